#include "ui/convert_many.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <map>

#include "base/errors.h"
#include "ui/text.h"

namespace qb::ui {
namespace {

constexpr char kReportFilters[] =
    "All Files (*.*)|*.*|Text files (*.txt)|*.txt|PDF files (*.pdf)|*.pdf|Print files "
    "(*.prn)|*.prn|Report files (*.rpt)|*.rpt|CSV files (*.csv)|*.csv";

// The table's columns.
enum Column { kReport, kRdf, kOutput, kRows, kLines, kTime, kResult, kColumns };

QString Count(int64_t n) {
  return QLocale::system().toString(static_cast<qlonglong>(n));
}

QString Reports(int64_t n) {
  return Count(n) + (n == 1 ? " report" : " reports");
}

QString Name(const std::filesystem::path& path) {
  return Q(path.filename().string());
}

// A cell that shows a name and holds the whole path in its tip.
QTableWidgetItem* PathCell(const QString& text, const std::filesystem::path& path) {
  auto* cell = new QTableWidgetItem(text);
  cell->setToolTip(Q(path.string()));
  return cell;
}

QTableWidgetItem* NumberCell(const QString& text) {
  auto* cell = new QTableWidgetItem(text);
  cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
  return cell;
}

// Why planning or running stopped: our errors as the log has them, others (a folder that
// cannot be read, say) as they come.
QString Why(const std::exception& e) {
  const auto* error = dynamic_cast<const QbError*>(&e);
  return error ? Q(error->describe()) : Q(e.what());
}

bool Ran(const BatchItem& item) {
  return item.result == BatchItem::Result::Done || item.result == BatchItem::Result::Findings ||
         item.time.count() > 0;
}

// "2 done, 1 failed": how many items have each result, in the order of the results.
QString Tally(const std::vector<BatchItem>& items) {
  std::map<BatchItem::Result, int> counts;
  for (const BatchItem& item : items) ++counts[item.result];
  QStringList parts;
  for (const auto& [result, count] : counts) {
    parts << QString("%1 %2").arg(count).arg(Q(ResultName(result)));
  }
  return parts.join(", ");
}

}  // namespace

ConvertManyDialog::ConvertManyDialog(const Application& front, Dialogs& dialogs, QWidget* parent)
    : QDialog(parent), front_(front), dialogs_(dialogs) {
  setObjectName("frmConvertMany");
  setWindowTitle("Convert Many");
  setAcceptDrops(true);
  lastFolder_ = Q(front_.Settings[Key::rptdir]);
  BuildControls();
  ConnectSignals();
  resize(1000, 640);
  Plan();
}

ConvertManyDialog::~ConvertManyDialog() {
  if (worker_.joinable()) {
    batch_->Cancel();
    worker_.join();
  }
}

// Every mnemonic of the dialog is its own.
void ConvertManyDialog::BuildControls() {
  auto* layout = new QVBoxLayout(this);

  fraReports_ = new QGroupBox("Reports", this);
  fraReports_->setObjectName("fraReports");
  auto* reports = new QHBoxLayout(fraReports_);
  lstInputs_ = new QListWidget(fraReports_);
  lstInputs_->setObjectName("lstInputs");
  lstInputs_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  lstInputs_->setToolTip("The reports and folders of reports to convert; drop more here");
  lstInputs_->setAcceptDrops(false);  // a drop is the dialog's
  lstInputs_->setMaximumHeight(lstInputs_->fontMetrics().height() * 8);
  auto* buttons = new QVBoxLayout;
  auto button = [this](const char* text, const char* name, const char* tip, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(name);
    b->setToolTip(tip);
    b->setAutoDefault(false);
    return b;
  };
  btnAddFiles_ = button("Add &Files ...", "btnAddFiles", "Add reports to the list", fraReports_);
  btnAddFolder_ = button("Add F&older ...", "btnAddFolder",
                         "Add a folder: every report in it is converted", fraReports_);
  btnRemove_ =
      button("&Remove", "btnRemove", "Take the selected entries off the list", fraReports_);
  chkSubfolders_ = new QCheckBox("Include &subfolders", fraReports_);
  chkSubfolders_->setObjectName("chkSubfolders");
  chkSubfolders_->setToolTip("A folder's reports include those of the folders inside it");
  buttons->addWidget(btnAddFiles_);
  buttons->addWidget(btnAddFolder_);
  buttons->addWidget(btnRemove_);
  buttons->addWidget(chkSubfolders_);
  buttons->addStretch();
  reports->addWidget(lstInputs_, 1);
  reports->addLayout(buttons);

  fraOutput_ = new QGroupBox("Choices", this);
  fraOutput_->setObjectName("fraOutput");
  auto* grid = new QGridLayout(fraOutput_);
  cboOutputType_ = new QComboBox(fraOutput_);
  cboOutputType_->setObjectName("cboOutputType");
  cboOutputType_->addItems({".txt", ".csv", ".xls", ".xlsx"});
  cboOutputType_->setToolTip("The type of every output");
  const int type = cboOutputType_->findText(Q(front_.SavedSettings[Key::opfmt]));
  cboOutputType_->setCurrentIndex(std::max(type, 0));
  cboExisting_ = new QComboBox(fraOutput_);
  cboExisting_->setObjectName("cboExisting");
  cboExisting_->addItem("Leave it and fail the report",
                        static_cast<int>(BatchRequest::Existing::Refuse));
  cboExisting_->addItem("Overwrite it", static_cast<int>(BatchRequest::Existing::Overwrite));
  cboExisting_->addItem("Skip the report", static_cast<int>(BatchRequest::Existing::Skip));
  cboExisting_->setToolTip("What happens to a report whose output exists already");
  auto folderRow = [&](int row, const char* label, const char* boxName, const char* buttonName,
                       const QString& placeholder, const char* tip, QLineEdit*& box,
                       QPushButton*& pick) {
    auto* l = new QLabel(label, fraOutput_);
    box = new QLineEdit(fraOutput_);
    box->setObjectName(boxName);
    box->setPlaceholderText(placeholder);
    box->setToolTip(tip);
    box->setClearButtonEnabled(true);
    l->setBuddy(box);
    pick = button("...", buttonName, tip, fraOutput_);
    pick->setMaximumWidth(40);
    grid->addWidget(l, row, 0);
    grid->addWidget(box, row, 1);
    grid->addWidget(pick, row, 2);
  };
  folderRow(0, "O&utput folder:", "txtOutputFolder", "btnOutputFolder", "Beside each report",
            "The folder for every output; empty: each beside its report", txtOutputFolder_,
            btnOutputFolder_);
  const std::string& rdfdir = front_.SavedSettings[Key::rdfdir];
  folderRow(1, "R&DF folder:", "txtRdfFolder", "btnRdfFolder",
            "None: auto-find in " + (rdfdir.empty() ? QString("the current folder") : Q(rdfdir)),
            "A folder of RDFs: each report gets the one auto-find names there, else the one "
            "that identifies it",
            txtRdfFolder_, btnRdfFolder_);
  auto* typeLabel = new QLabel("Output &type:", fraOutput_);
  typeLabel->setBuddy(cboOutputType_);
  auto* existingLabel = new QLabel("If an output &exists:", fraOutput_);
  existingLabel->setBuddy(cboExisting_);
  grid->addWidget(typeLabel, 0, 3);
  grid->addWidget(cboOutputType_, 0, 4);
  grid->addWidget(existingLabel, 1, 3);
  grid->addWidget(cboExisting_, 1, 4);
  grid->setColumnStretch(1, 1);

  tblReports_ = new QTableWidget(0, kColumns, this);
  tblReports_->setObjectName("tblReports");
  tblReports_->setHorizontalHeaderLabels(
      {"Report", "RDF", "Output", "Rows", "Lines", "Time", "Result"});
  tblReports_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  tblReports_->setSelectionBehavior(QAbstractItemView::SelectRows);
  tblReports_->horizontalHeader()->setStretchLastSection(true);
  tblReports_->verticalHeader()->setDefaultSectionSize(tblReports_->fontMetrics().height() + 6);

  auto* bottom = new QHBoxLayout;
  lblStatus_ = new QLabel(this);
  lblStatus_->setObjectName("lblStatus");
  lblStatus_->setTextFormat(Qt::PlainText);
  prgMany_ = new QProgressBar(this);
  prgMany_->setObjectName("prgMany");
  prgMany_->setFormat("%v of %m");
  prgMany_->hide();
  btnRun_ = button("Ru&n", "btnRun", "Convert every report that has an RDF", this);
  btnRun_->setDefault(true);
  btnCancel_ =
      button("&Cancel", "btnCancel", "Stop the run; the outputs finished so far stay (Esc)", this);
  btnCancel_->hide();
  btnClose_ =
      button("C&lose", "btnClose", "Close the dialog (during a run: cancel it first)", this);
  bottom->addWidget(lblStatus_, 1);
  bottom->addWidget(prgMany_, 1);
  bottom->addWidget(btnCancel_);
  bottom->addWidget(btnRun_);
  bottom->addWidget(btnClose_);

  layout->addWidget(fraReports_);
  layout->addWidget(fraOutput_);
  layout->addWidget(tblReports_, 1);
  layout->addLayout(bottom);
}

void ConvertManyDialog::ConnectSignals() {
  connect(btnAddFiles_, &QPushButton::clicked, this, [this] {
    const QStringList files =
        dialogs_.openFiles(this, "Add Reports ...", QtFilters(kReportFilters), 1, lastFolder_);
    if (files.isEmpty()) return;
    lastFolder_ = QFileInfo(files.front()).absolutePath();
    AddInputs(files);
  });
  connect(btnAddFolder_, &QPushButton::clicked, this, [this] {
    const QString folder = dialogs_.openFolder(this, "Add a Folder of Reports ...", lastFolder_);
    if (folder.isEmpty()) return;
    lastFolder_ = folder;
    AddInputs({folder});
  });
  connect(btnRemove_, &QPushButton::clicked, this, [this] {
    const QList<QListWidgetItem*> selected = lstInputs_->selectedItems();
    if (selected.isEmpty()) return;
    qDeleteAll(selected);
    Plan();
  });
  connect(btnOutputFolder_, &QPushButton::clicked, this,
          [this] { PickFolder(txtOutputFolder_, "Select the Output Folder ..."); });
  connect(btnRdfFolder_, &QPushButton::clicked, this,
          [this] { PickFolder(txtRdfFolder_, "Select the RDF Folder ..."); });
  for (QLineEdit* box : {txtOutputFolder_, txtRdfFolder_}) {
    connect(box, &QLineEdit::editingFinished, this, [this] { Plan(); });
  }
  for (QComboBox* box : {cboOutputType_, cboExisting_}) {
    connect(box, &QComboBox::currentIndexChanged, this, [this] { Plan(); });
  }
  connect(chkSubfolders_, &QCheckBox::toggled, this, [this] { Plan(); });
  connect(btnRun_, &QPushButton::clicked, this, [this] { Run(); });
  connect(btnCancel_, &QPushButton::clicked, this, [this] {
    if (!running_) return;
    batch_->Cancel();
    cancelling_ = true;
    lblStatus_->setText("Cancelling ...");
  });
  connect(btnClose_, &QPushButton::clicked, this, [this] { reject(); });
}

void ConvertManyDialog::PickFolder(QLineEdit* box, const QString& title) {
  const QString start = box->text().trimmed().isEmpty() ? lastFolder_ : box->text().trimmed();
  const QString folder = dialogs_.openFolder(this, title, start);
  if (folder.isEmpty()) return;
  box->setText(folder);
  Plan();
}

void ConvertManyDialog::AddInputs(const QStringList& paths) {
  if (running_) return;
  for (const QString& path : paths) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (lstInputs_->findItems(absolute, Qt::MatchExactly).isEmpty()) lstInputs_->addItem(absolute);
  }
  Plan();
}

// A batch is the same whatever the window has open: it starts from the settings as saved,
// as qbconvert does, not from those the window's RDF has changed.
std::unique_ptr<Application> ConvertManyDialog::CopyOfFront(bool logging) {
  auto app = std::make_unique<Application>(front_, silent_, logging);
  app->Settings = app->SavedSettings;
  return app;
}

BatchRequest ConvertManyDialog::Request() const {
  BatchRequest request;
  for (int i = 0; i < lstInputs_->count(); ++i)
    request.inputs.push_back(S(lstInputs_->item(i)->text()));
  request.recursive = chkSubfolders_->isChecked();
  request.outputDir = S(txtOutputFolder_->text().trimmed());
  request.outputType = S(cboOutputType_->currentText());
  request.rdfDir = S(txtRdfFolder_->text().trimmed());
  request.existing = static_cast<BatchRequest::Existing>(cboExisting_->currentData().toInt());
  return request;
}

// What Run would do now: each report with its RDF and output, or why it cannot be converted.
void ConvertManyDialog::Plan() {
  if (running_) return;
  btnRemove_->setEnabled(lstInputs_->count() > 0);
  btnRun_->setEnabled(false);
  if (lstInputs_->count() == 0) {
    ShowItems({});
    lblStatus_->setText("Add reports or folders of reports, or drop them here.");
    return;
  }
  const std::unique_ptr<Application> app = CopyOfFront(/*logging=*/false);
  Batch batch(*app, Request());
  try {
    batch.Plan();
  } catch (const std::exception& e) {
    ShowItems({});
    lblStatus_->setText(Why(e));
    return;
  }
  ShowItems(batch.Items());
  const auto& items = batch.Items();
  const bool any = std::any_of(items.begin(), items.end(), [](const BatchItem& item) {
    return item.result == BatchItem::Result::Planned;
  });
  btnRun_->setEnabled(any);
  lblStatus_->setText(items.empty()
                          ? QString("No reports found.")
                          : Reports(static_cast<int64_t>(items.size())) + ": " + Tally(items));
}

void ConvertManyDialog::ShowItems(const std::vector<BatchItem>& items) {
  tblReports_->setRowCount(static_cast<int>(items.size()));
  for (int row = 0; row < static_cast<int>(items.size()); ++row) {
    const BatchItem& item = items[static_cast<size_t>(row)];
    tblReports_->setItem(row, kReport, PathCell(Name(item.report), item.report));
    tblReports_->setItem(
        row, kRdf,
        PathCell(item.rdf.empty() ? QString() : Name(item.rdf) + " (" + Q(item.rdfChosenBy) + ")",
                 item.rdf));
    tblReports_->setItem(row, kOutput, PathCell(Name(item.output), item.output));
    const bool ran = Ran(item);
    tblReports_->setItem(row, kRows, NumberCell(ran ? Count(item.rows) : QString()));
    tblReports_->setItem(row, kLines, NumberCell(ran ? Count(item.lines) : QString()));
    const double seconds = std::chrono::duration<double>(item.time).count();
    tblReports_->setItem(row, kTime,
                         NumberCell(ran ? QString::number(seconds, 'f', 2) + " s" : QString()));
    QString result = Q(ResultName(item.result));
    if (!item.message.empty()) result += ": " + Q(item.message);
    auto* cell = new QTableWidgetItem(result);
    cell->setToolTip(result);
    if (item.result == BatchItem::Result::Failed) cell->setForeground(QColor(0xb0, 0, 0));
    tblReports_->setItem(row, kResult, cell);
  }
  for (int column = 0; column < kResult; ++column) tblReports_->resizeColumnToContents(column);
}

// The run plans the batch afresh, as the files are now, and goes on a thread of its own with
// its own copy of the settings. Only the progress comes back while it goes: the items are
// the batch's until it has ended.
void ConvertManyDialog::Run() {
  if (running_ || lstInputs_->count() == 0) return;
  batch_.reset();  // before the copy of the front it holds
  app_ = CopyOfFront(/*logging=*/true);
  batch_ = std::make_unique<Batch>(*app_, Request());
  try {
    batch_->Plan();
  } catch (const std::exception& e) {
    dialogs_.message(this, Why(e), "Convert Many", MessageIcon::Exclamation);
    Plan();
    return;
  }
  ShowItems(batch_->Items());
  prgMany_->setRange(0, static_cast<int>(batch_->Items().size()));
  prgMany_->setValue(0);
  SetRunning(true);
  lblStatus_->setText("Converting ...");
  worker_ = std::thread([this, batch = batch_.get()] {
    QString failure;  // a batch that could not go on at all
    try {
      batch->Run([this](const Batch::Progress& progress) {
        QMetaObject::invokeMethod(
            this, [this, progress] { ShowProgress(progress); }, Qt::QueuedConnection);
      });
    } catch (const std::exception& e) {
      failure = Why(e);
    }
    QMetaObject::invokeMethod(
        this, [this, failure] { RunEnd(failure); }, Qt::QueuedConnection);
  });
}

void ConvertManyDialog::ShowProgress(const Batch::Progress& progress) {
  if (!running_) return;
  prgMany_->setRange(0, static_cast<int>(progress.total));
  prgMany_->setValue(static_cast<int>(progress.done));
  if (cancelling_) return;
  lblStatus_->setText(QString("%1 of %2 finished, %3 rows, %4 MB read")
                          .arg(progress.done)
                          .arg(Reports(static_cast<int64_t>(progress.total)))
                          .arg(Count(progress.rows))
                          .arg(static_cast<double>(progress.bytesRead) / (1 << 20), 0, 'f', 1));
}

void ConvertManyDialog::RunEnd(const QString& failure) {
  worker_.join();
  SetRunning(false);
  const std::vector<BatchItem>& items = batch_->Items();
  ShowItems(items);
  lblStatus_->setText((batch_->ExitStatus() == 130 ? "Cancelled: " : "Finished: ") + Tally(items));
  if (!failure.isEmpty()) {
    lblStatus_->setText("The run stopped: " + failure);
    dialogs_.message(this, "The run stopped: " + failure, "Convert Many", MessageIcon::Critical);
  }
  if (closeRequested_) {
    closeRequested_ = false;
    QDialog::reject();
  }
  emit runFinished();
}

void ConvertManyDialog::SetRunning(bool running) {
  running_ = running;
  cancelling_ = false;
  fraReports_->setEnabled(!running);
  fraOutput_->setEnabled(!running);
  prgMany_->setVisible(running);
  btnRun_->setVisible(!running);
  btnCancel_->setVisible(running);
  if (running) btnCancel_->setFocus();
}

void ConvertManyDialog::reject() {
  if (!running_) {
    QDialog::reject();
    return;
  }
  closeRequested_ = true;
  btnCancel_->click();
}

void ConvertManyDialog::keyPressEvent(QKeyEvent* event) {
  if (running_ && event->key() == Qt::Key_Escape) {
    btnCancel_->click();
    event->accept();
    return;
  }
  QDialog::keyPressEvent(event);
}

void ConvertManyDialog::dragEnterEvent(QDragEnterEvent* event) {
  const QList<QUrl> urls = event->mimeData()->urls();
  if (!running_ &&
      std::any_of(urls.begin(), urls.end(), [](const QUrl& u) { return u.isLocalFile(); })) {
    event->acceptProposedAction();
  }
}

void ConvertManyDialog::dropEvent(QDropEvent* event) {
  if (running_) return;
  QStringList paths;
  for (const QUrl& url : event->mimeData()->urls()) {
    if (url.isLocalFile()) paths << url.toLocalFile();
  }
  if (paths.isEmpty()) return;
  event->acceptProposedAction();
  AddInputs(paths);
}

}  // namespace qb::ui
