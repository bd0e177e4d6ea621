#pragma once
// Every message box and file dialog of the window goes through Dialogs, so tests can answer
// them from a script (ScriptedDialogs in the tests) while the program shows real ones.

#include <QString>
#include <QStringList>
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
  // Several files at once, and a folder (Convert Many). A script that answers only openFile
  // gives one file and no folder.
  virtual QStringList openFiles(QWidget* parent, const QString& title, const QString& filters,
                                int selected, const QString& folder) {
    const QString file = openFile(parent, title, filters, selected, folder);
    return file.isEmpty() ? QStringList() : QStringList{file};
  }
  virtual QString openFolder(QWidget*, const QString&, const QString&) { return {}; }
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
  QStringList openFiles(QWidget* parent, const QString& title, const QString& filters, int selected,
                        const QString& folder) override;
  QString openFolder(QWidget* parent, const QString& title, const QString& folder) override;
};

// "All Files (*.*)|*.*|Text files (*.txt)|*.txt" as the desktop's filter list.
QString QtFilters(const QString& pairs);

}  // namespace qb::ui
