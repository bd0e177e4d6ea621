#pragma once
// frmqbuia, the main window: the report, RDF and output boxes with their pickers and
// checks, the file settings, the output-fields grid, the menus, and runs with progress,
// Cancel and the statistics. A run is a ConversionJob on a worker thread with its own copy
// of the RDF and settings; the window stays responsive and the engine's messages come back
// to this thread. A report or an RDF dropped on the window is taken as if chosen, and the
// File menu keeps the files chosen last and opens Convert Many for many reports at once.

#include <QMainWindow>
#include <QPointer>
#include <QStringList>
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
class QActionGroup;
class QCheckBox;
class QComboBox;
class QDialog;
class QGroupBox;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QSplitter;
class QPushButton;
class QTableView;

namespace qb::ui {

class ConvertManyDialog;
class FieldsModel;
class ReportPane;

class MainWindow final : public QMainWindow {
  Q_OBJECT
 public:
  MainWindow(const std::filesystem::path& programFolder, Dialogs& dialogs);
  ~MainWindow() override;

  // Start-up: a fresh log with "Started...", then ResetForm. False when the program must
  // end (the 513 box was shown).
  bool Startup();

  // What the pickers, the boxes, a drop and the recent files do with a chosen file. A report
  // or RDF that is not there is refused with a message naming it; false then.
  bool ChooseReport(const QString& path);
  bool ChooseRdf(const QString& path);
  // The output name and the output type always agree: a name ending in .txt, .csv or .xls
  // (in any case) sets the type; any other name is given the current type's extension
  // ("jan" and "jan.dat" become "jan.csv" and "jan.dat.csv"), so a name is never written
  // as another type than it says.
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
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  class WindowUI;
  void BuildControls();
  void BuildMenus();
  void ConnectSignals();
  void ShowSettings();
  void UpdateRunButton();
  void LoadRdf(const QString& path);
  bool FileThere(const QString& path, const QString& label);
  bool AutoFindRdf(const QString& report);
  void ShowIn(QLineEdit* box, const QString& text);
  void LeaveBox(QLineEdit* box);
  bool CheckBox(QLineEdit* box);
  void SetOutputType(const QString& extension);
  void ShowOutputType();
  void OpenChosen(const QString& path);
  void LoadRecent();
  void Remember(const QString& path);
  void Forget(const QString& path);
  void SaveRecent();
  void ShowRecent();
  void StartOfRun();
  void RunEnd(bool ok);
  void ShowFailure();
  QString LaunchProblem() const;
  void SetMenusEnabled(bool enabled);
  void SetProgress(int percent);
  void NewForm();
  void SaveRdfAs();
  void AboutRdf();
  void AboutQuillbrook();
  void OpenDocument(const std::filesystem::path& file, const QString& what);
  void CheckRdfFile();
  void ConvertMany();

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
  QString remembered_;        // a box's text when it got the focus, or as it was accepted
  bool checkingBox_ = false;  // LeaveBox is checking a name
  QStringList recent_;        // the reports and RDFs chosen last, the latest first
  QStringList runShown_;      // the texts of the boxes shown during the current run

  QGroupBox *fraFiles_, *fraFileSettings_, *fraStatistics_;
  QLineEdit *txtRfile_, *txtDfile_, *txtOfile_;
  QPushButton *btnReport_, *btnRDF_, *btnOutput_, *btnRun_, *btnCancel_, *cmdUp_, *cmdDown_;
  QComboBox *cboDelimiter_, *cboTextQualifier_, *cboRecordType_, *cboEncoding_;
  QCheckBox *chkTextQualifier_, *chkLaunchExcel_;
  QTableView* dgdFields_;
  QLabel *lblStatus_, *lblPercent_, *lblRunTime_, *lblLinesWritten_, *lblLinesProcessed_,
      *lblFindings_, *imgLogo_;
  QProgressBar* prgRun_;
  QMenu* mnuRecent_;
  QActionGroup* outputTypes_;
  QAction* cancelKey_;
  QPointer<QDialog> frmCheckRdf_;
  QPointer<ConvertManyDialog> frmConvertMany_;
  ReportPane* pane_;
  QSplitter* splFields_;
  QAction* mnuReportPane_;
  QList<QAction*> runLocked_;  // menu entries disabled while a run is active
};

}  // namespace qb::ui
