#pragma once
// frmConvertMany, File > Convert Many: many reports converted as one batch (run/batch.h).
// The list holds the reports and folders added (with the pickers or dropped on the dialog);
// the table below shows each report the batch finds, the RDF chosen for it and how, or why
// none, its output, and once run its rows, lines, time and result. The batch is planned
// again whenever the list or a choice changes, so the table always says what Run would do.
//
// Run converts on a thread of its own (the batch spreads the reports over threads of its
// own); the progress and the results come back to this thread. Cancel or Escape stops the
// run and keeps the outputs finished so far; closing the dialog during a run cancels it and
// the dialog goes when the run has ended.

#include <QDialog>
#include <QStringList>
#include <memory>
#include <thread>
#include <vector>

#include "run/batch.h"
#include "settings/application.h"
#include "ui/dialogs.h"

class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTableWidget;

namespace qb::ui {

class ConvertManyDialog final : public QDialog {
  Q_OBJECT
 public:
  // `front`: the window's application. Every plan and run copies it when it starts, so the
  // window may change its settings meanwhile; the dialog keeps no other hold on it.
  ConvertManyDialog(const Application& front, Dialogs& dialogs, QWidget* parent = nullptr);
  // A run still going is cancelled and waited for.
  ~ConvertManyDialog() override;

  // What the pickers and a drop do: files and folders join the list (each once) and the
  // batch is planned again. Ignored during a run.
  void AddInputs(const QStringList& paths);
  // The Run button: plans the batch afresh and starts it; runFinished() follows.
  void Run();
  bool RunActive() const { return running_; }

 signals:
  void runFinished();

 protected:
  // Close during a run: the run is cancelled, and the dialog closes when it has ended.
  void reject() override;
  // Escape during a run cancels it and leaves the dialog open with the results.
  void keyPressEvent(QKeyEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void BuildControls();
  void ConnectSignals();
  std::unique_ptr<Application> CopyOfFront(bool logging);
  BatchRequest Request() const;
  void Plan();
  void ShowItems(const std::vector<BatchItem>& items);
  void ShowProgress(const Batch::Progress& progress);
  void RunEnd(const QString& failure);
  void SetRunning(bool running);
  void PickFolder(QLineEdit* box, const QString& title);

  const Application& front_;
  Dialogs& dialogs_;
  SilentUserInterface silent_;        // the batch's jobs keep their messages to themselves
  std::unique_ptr<Application> app_;  // the running batch's copy of the front
  std::unique_ptr<Batch> batch_;      // the running or last run batch
  std::thread worker_;
  bool running_ = false;
  bool cancelling_ = false;
  bool closeRequested_ = false;
  QString lastFolder_;  // where the pickers open

  QGroupBox *fraReports_, *fraOutput_;
  QListWidget* lstInputs_;
  QPushButton *btnAddFiles_, *btnAddFolder_, *btnRemove_, *btnOutputFolder_, *btnRdfFolder_,
      *btnRun_, *btnCancel_, *btnClose_;
  QCheckBox* chkSubfolders_;
  QComboBox *cboOutputType_, *cboExisting_;
  QLineEdit *txtOutputFolder_, *txtRdfFolder_;
  QTableWidget* tblReports_;
  QLabel* lblStatus_;
  QProgressBar* prgMany_;
};

}  // namespace qb::ui
