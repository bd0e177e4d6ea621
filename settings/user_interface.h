#pragma once
// The one way the engine reaches the user.
//
// The window shows message boxes, a status bar and a progress bar; qbconvert prints to
// standard error and draws a text progress bar. Tests answer questions from a script.
// Nothing below the front ends opens a dialog or writes to a terminal by itself.

#include <string_view>

namespace qb {

enum class MessageIcon { None, Information, Exclamation, Critical };

class UserInterface {
 public:
  virtual ~UserInterface() = default;

  // A message box with an OK button. `text` may hold CR or LF line breaks.
  virtual void message(std::string_view text, std::string_view title, MessageIcon icon) = 0;

  // A Yes/No question; true for Yes.
  virtual bool question(std::string_view text, std::string_view title, MessageIcon icon) = 0;

  // The status bar text ("Generating Output File ...").
  virtual void status(std::string_view text) = 0;

  // Progress of the current step, 0 to 100. Called only when the whole percentage grows,
  // so an implementation may repaint and let the user act (cancel) here.
  virtual void progress(int percent) = 0;
};

// Swallows everything and answers No: for library users that want no interaction.
class SilentUserInterface final : public UserInterface {
 public:
  void message(std::string_view, std::string_view, MessageIcon) override {}
  bool question(std::string_view, std::string_view, MessageIcon) override { return false; }
  void status(std::string_view) override {}
  void progress(int) override {}
};

}  // namespace qb
