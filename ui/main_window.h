#pragma once
// frmqbuia, the main window: the report, RDF and output boxes with their pickers and
// checks, the file settings, the output-fields grid, the menus, and runs with progress,
// Cancel and the statistics. A run is a ConversionJob on a worker thread with its own copy
// of the RDF and settings; the window stays responsive and the engine's messages come back
// to this thread.

#include <QMainWindow>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "engine/engine.h"
#include "run/conversion_job.h"
#include "settings/application.h"
#include "ui/dialogs.h"

class QAction;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QPushButton;
class QTableView;

namespace qb::ui {

class FieldsModel;

class MainWindow final : public QMainWindow {
  Q_OBJECT
 public:
  MainWindow(const std::filesystem::path& programFolder, Dialogs& dialogs);
  ~MainWindow() override;

  // Start-up: a fresh log with "Started...", then ResetForm. False when the program must
  // end (the 513 box was shown).
  bool Startup();

  // What the pickers and the boxes do with a chosen file.
  void ChooseReport(const QString& path);
  void ChooseRdf(const QString& path);
  void ChooseOutput(const QString& path);
  // The Run button. The run finishes on its own; runFinished() follows.
  void Run();
  bool RunActive() const { return running_; }
  // The last run's job, or null before the first run.
  ConversionJob* Job() const { return job_.get(); }
  Application& app() { return *app_; }
  Engine& engine() { return *engine_; }

 signals:
  void runFinished();

 protected:
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  class WindowUI;
  void BuildControls();
  void BuildMenus();
  void ConnectSignals();
  void ShowSettings();
  void UpdateRunButton();
  void LoadRdf(const QString& path);
  void LeaveBox(QLineEdit* box);
  void SetOutputType(const QString& extension);
  void StartOfRun();
  void RunEnd(bool ok);
  void SetMenusEnabled(bool enabled);
  void SetProgress(int percent);
  void NewForm();
  void SaveRdfAs();
  void AboutRdf();
  void AboutQuillbrook();
  void OpenManual();

  Dialogs& dialogs_;
  std::unique_ptr<WindowUI> ui_;
  std::unique_ptr<Application> app_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<ConversionJob> job_;
  std::unique_ptr<FieldsModel> model_;
  std::thread worker_;
  bool running_ = false;
  bool exitRequested_ = false;  // Exit during a run: close when it has ended
  bool pdfReport_ = false;
  std::chrono::steady_clock::time_point runStart_;
  QString remembered_;  // a box's text when it got the focus

  QGroupBox *fraFiles_, *fraFileSettings_, *fraStatistics_;
  QLineEdit *txtRfile_, *txtDfile_, *txtOfile_;
  QPushButton *btnReport_, *btnRDF_, *btnOutput_, *btnRun_, *btnCancel_, *cmdUp_, *cmdDown_;
  QComboBox *cboDelimiter_, *cboTextQualifier_, *cboRecordType_;
  QCheckBox *chkTextQualifier_, *chkLaunchExcel_;
  QTableView* dgdFields_;
  QLabel *lblStatus_, *lblPercent_, *lblRunTime_, *lblLinesWritten_, *lblLinesProcessed_, *imgLogo_;
  QProgressBar* prgRun_;
  QList<QAction*> runLocked_;  // menu entries disabled while a run is active
};

}  // namespace qb::ui
