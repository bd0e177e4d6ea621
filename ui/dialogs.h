#pragma once
// Every message box and file dialog of the window goes through Dialogs, so tests can answer
// them from a script (ScriptedDialogs in the tests) while the program shows real ones.

#include <QString>
#include <QWidget>

#include "settings/user_interface.h"

namespace qb::ui {

class Dialogs {
 public:
  virtual ~Dialogs() = default;
  virtual void message(QWidget* parent, const QString& text, const QString& title,
                       MessageIcon icon) = 0;
  virtual bool question(QWidget* parent, const QString& text, const QString& title,
                        MessageIcon icon) = 0;
  // File pickers: `filters` as "Text files (*.txt);;CSV files (*.csv)", `selected` 1-based.
  // An empty result means the user cancelled.
  virtual QString openFile(QWidget* parent, const QString& title, const QString& filters,
                           int selected, const QString& folder) = 0;
  virtual QString saveFile(QWidget* parent, const QString& title, const QString& filters,
                           int selected, const QString& folder) = 0;
};

// The real dialogs of the desktop.
class QtDialogs final : public Dialogs {
 public:
  void message(QWidget* parent, const QString& text, const QString& title,
               MessageIcon icon) override;
  bool question(QWidget* parent, const QString& text, const QString& title,
                MessageIcon icon) override;
  QString openFile(QWidget* parent, const QString& title, const QString& filters, int selected,
                   const QString& folder) override;
  QString saveFile(QWidget* parent, const QString& title, const QString& filters, int selected,
                   const QString& folder) override;
};

// "All Files (*.*)|*.*|Text files (*.txt)|*.txt" as the desktop's filter list.
QString QtFilters(const QString& pairs);

}  // namespace qb::ui
