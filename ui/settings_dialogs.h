#pragma once
// frmConfigOptions ("Configuration Options": RDF auto-find system, buffer mode, launch
// method; saves only those) and frmCurrentSettings ("Save Current Settings": shows the
// working settings and saves all of them). When qbcfg.ini cannot be written, both say so
// ("Settings Not Saved", naming the file) and take no snapshot of the settings.

#include <QDialog>

#include "settings/application.h"
#include "ui/dialogs.h"

class QComboBox;
class QGroupBox;
class QPushButton;

namespace qb::ui {

class ConfigOptionsDialog final : public QDialog {
  Q_OBJECT
 public:
  ConfigOptionsDialog(Application& app, Dialogs& dialogs, QWidget* parent = nullptr);
  void done(int result) override;

 private:
  void Save();

  Application& app_;
  Dialogs& dialogs_;
  clsSystems systems_;  // a fresh reading of qbsys.txt
  QComboBox *cboSystem_, *cboBuffer_, *cboLaunch_;
  QGroupBox* fraExcelSettings_;
  QPushButton* btnSave_;
};

class CurrentSettingsDialog final : public QDialog {
  Q_OBJECT
 public:
  CurrentSettingsDialog(Application& app, Dialogs& dialogs, QWidget* parent = nullptr);
};

}  // namespace qb::ui
