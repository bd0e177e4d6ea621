#pragma once
// The terminal side of the user interface: messages go to standard error, progress is a
// bar on standard error when that is a terminal.

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "settings/user_interface.h"

namespace qb::cli {

class ConsoleUI final : public UserInterface {
 public:
  explicit ConsoleUI(std::FILE* err = stderr);

  void message(std::string_view text, std::string_view title, MessageIcon icon) override;
  // qbconvert never waits for an answer: questions are printed and answered as set (No
  // unless the command line said otherwise, e.g. --overwrite).
  bool question(std::string_view text, std::string_view title, MessageIcon icon) override;
  void setAnswer(bool yes) { answer_ = yes; }
  void status(std::string_view text) override;
  void progress(int percent) override;

  // Whether a message shown so far said what `text` says: a line of it (other than a short
  // heading such as "Error: 5") stands in `text`. A failure already told need not be told
  // again in full.
  bool Told(std::string_view text) const;

  // Extra text shown after the bar, asked for at each redraw ("12345 lines").
  void setProgressDetail(std::function<std::string()> detail) { detail_ = std::move(detail); }
  // Ends the bar's line so later output starts on a fresh one.
  void finishProgress();

 private:
  void clearBar();

  std::FILE* err_;
  bool tty_;
  bool barShown_ = false;
  std::string status_;
  std::function<std::string()> detail_;
  bool answer_ = false;
  std::vector<std::string> told_;  // the lines of the messages shown
  std::chrono::steady_clock::time_point start_;
};

}  // namespace qb::cli
