#include "ui/main_window.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTableView>
#include <QThread>
#include <QUrl>
#include <QVBoxLayout>

#include "ui/fields_model.h"
#include "ui/settings_dialogs.h"

namespace qb::ui {
namespace {

QString Q(std::string_view s) {
  return QString::fromLocal8Bit(s.data(), static_cast<int>(s.size()));
}
std::string S(const QString& s) {
  return s.toLocal8Bit().toStdString();
}

constexpr char kReportFilters[] =
    "All Files (*.*)|*.*|Text files (*.txt)|*.txt|PDF files (*.pdf)|*.pdf|Print files "
    "(*.prn)|*.prn|"
    "Report files (*.rpt)|*.rpt";
constexpr char kRdfFilters[] = "Report Description Files (*.rdf)|*.rdf";
constexpr char kOutputFilters[] =
    "Text files (*.txt)|*.txt|CSV files (*.csv)|*.csv|Excel files (*.xls)|*.xls";

// Our logo: a quill over a brook, drawn rather than shipped as a file.
QPixmap Logo(int size) {
  QPixmap pixmap(size, size);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  p.setRenderHint(QPainter::Antialiasing);
  p.setBrush(QColor(38, 92, 140));
  p.setPen(Qt::NoPen);
  p.drawRoundedRect(0, 0, size, size, size / 6, size / 6);
  p.setPen(QPen(QColor(160, 210, 240), size / 16.0));
  for (int i = 0; i < 3; ++i) {
    const int y = size * (62 + 12 * i) / 100;
    QPainterPath wave;
    wave.moveTo(size * 0.15, y);
    wave.cubicTo(size * 0.35, y - size * 0.08, size * 0.55, y + size * 0.08, size * 0.85, y);
    p.drawPath(wave);
  }
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(250, 244, 225));
  QPolygonF quill;
  quill << QPointF(size * 0.72, size * 0.12) << QPointF(size * 0.52, size * 0.30)
        << QPointF(size * 0.30, size * 0.58) << QPointF(size * 0.46, size * 0.38);
  p.drawPolygon(quill);
  return pixmap;
}

}  // namespace

// The engine's way to the user while this window lives. Calls from the run's thread are
// carried over to the window's thread (and wait there for a box to be answered).
class MainWindow::WindowUI final : public UserInterface {
 public:
  explicit WindowUI(MainWindow& w) : w_(w) {}
  void message(std::string_view text, std::string_view title, MessageIcon icon) override {
    onGuiThread([&] { w_.dialogs_.message(&w_, Q(text), Q(title), icon); });
  }
  bool question(std::string_view text, std::string_view title, MessageIcon icon) override {
    bool yes = false;
    onGuiThread([&] { yes = w_.dialogs_.question(&w_, Q(text), Q(title), icon); });
    return yes;
  }
  void status(std::string_view text) override {
    const QString t = Q(text);
    QMetaObject::invokeMethod(&w_, [this, t] { w_.statusBar()->showMessage(t); });
  }
  void progress(int percent) override {
    QMetaObject::invokeMethod(&w_, [this, percent] { w_.SetProgress(percent); });
  }

 private:
  template <typename F>
  void onGuiThread(F&& f) {
    if (QThread::currentThread() == w_.thread()) {
      f();
    } else {
      QMetaObject::invokeMethod(&w_, std::forward<F>(f), Qt::BlockingQueuedConnection);
    }
  }
  MainWindow& w_;
};

MainWindow::MainWindow(const std::filesystem::path& programFolder, Dialogs& dialogs)
    : dialogs_(dialogs), ui_(std::make_unique<WindowUI>(*this)) {
  app_ = std::make_unique<Application>(programFolder, *ui_);
  engine_ = std::make_unique<Engine>(*app_);
  engine_->CreateRecordsets();
  setObjectName("frmqbuia");
  setWindowTitle("Quillbrook");
  setWindowIcon(QIcon(Logo(64)));
  BuildControls();
  BuildMenus();
  ConnectSignals();
  resize(1000, 680);
}

MainWindow::~MainWindow() {
  if (worker_.joinable()) {
    if (job_) job_->Abandon();
    worker_.join();
  }
}

bool MainWindow::Startup() {
  std::error_code ec;
  std::filesystem::remove(app_->Log().AppLogFile(), ec);  // every start begins an empty log
  app_->Log().WriteLog("Quillbrook", "Started...");
  if (!app_->ResetForm()) return false;
  ShowSettings();
  UpdateRunButton();
  return true;
}

void MainWindow::BuildControls() {
  auto* central = new QWidget(this);
  auto* layout = new QVBoxLayout(central);

  fraFiles_ = new QGroupBox("Files", central);
  fraFiles_->setObjectName("fraFiles");
  auto* files = new QGridLayout(fraFiles_);
  auto addRow = [&](int row, const char* label, const char* boxName, const char* buttonName,
                    const char* tip, QLineEdit*& box, QPushButton*& button) {
    auto* l = new QLabel(label, fraFiles_);
    box = new QLineEdit(fraFiles_);
    box->setObjectName(boxName);
    box->setToolTip(tip);
    box->installEventFilter(this);
    l->setBuddy(box);
    button = new QPushButton("...", fraFiles_);
    button->setObjectName(buttonName);
    button->setToolTip(tip);
    button->setMaximumWidth(40);
    files->addWidget(l, row, 0);
    files->addWidget(box, row, 1);
    files->addWidget(button, row, 2);
  };
  addRow(0, "&Report:", "txtRfile", "btnReport", "Select a Report to Process", txtRfile_,
         btnReport_);
  addRow(1, "R&DF:", "txtDfile", "btnRDF", "Select a Report Description File", txtDfile_, btnRDF_);
  addRow(2, "&Output:", "txtOfile", "btnOutput", "Select an Output File", txtOfile_, btnOutput_);
  imgLogo_ = new QLabel(fraFiles_);
  imgLogo_->setObjectName("imgLogo");
  imgLogo_->setPixmap(Logo(72));
  files->addWidget(imgLogo_, 0, 3, 3, 1);

  fraFileSettings_ = new QGroupBox("File Settings", central);
  fraFileSettings_->setObjectName("fraFileSettings");
  auto* settings = new QHBoxLayout(fraFileSettings_);
  cboDelimiter_ = new QComboBox(fraFileSettings_);
  cboDelimiter_->setObjectName("cboDelimiter");
  cboDelimiter_->setEditable(true);
  cboDelimiter_->addItems({"|", ",", "tab", ";"});
  cboDelimiter_->setToolTip("Select a Delimiter");
  chkTextQualifier_ = new QCheckBox("Use Text &Qualifier", fraFileSettings_);
  chkTextQualifier_->setObjectName("chkTextQualifier");
  cboTextQualifier_ = new QComboBox(fraFileSettings_);
  cboTextQualifier_->setObjectName("cboTextQualifier");
  cboTextQualifier_->addItems({"\"", "'"});
  cboTextQualifier_->setToolTip("Select a Text Qualifier");
  cboRecordType_ = new QComboBox(fraFileSettings_);
  cboRecordType_->setObjectName("cboRecordType");
  cboRecordType_->addItems({"All Records", "Details Only", "Totals Only"});
  cboRecordType_->setToolTip("Select the records to write");
  chkLaunchExcel_ = new QCheckBox("Select to Launch Excel", fraFileSettings_);
  chkLaunchExcel_->setObjectName("chkLaunchExcel");
  chkLaunchExcel_->setToolTip("Open the workbook in the spreadsheet program after the run");
  settings->addWidget(new QLabel("Delimiter:", fraFileSettings_));
  settings->addWidget(cboDelimiter_);
  settings->addWidget(chkTextQualifier_);
  settings->addWidget(cboTextQualifier_);
  settings->addWidget(new QLabel("Write:", fraFileSettings_));
  settings->addWidget(cboRecordType_);
  settings->addWidget(chkLaunchExcel_);
  settings->addStretch();

  auto* grid = new QHBoxLayout;
  dgdFields_ = new QTableView(central);
  dgdFields_->setObjectName("dgdFields");
  dgdFields_->setSelectionBehavior(QAbstractItemView::SelectRows);
  dgdFields_->horizontalHeader()->setStretchLastSection(true);
  model_ = std::make_unique<FieldsModel>(engine_->tables.rsFields, [this](const QString& text) {
    dialogs_.message(this, text, "Quillbrook", MessageIcon::Exclamation);
  });
  dgdFields_->setModel(model_.get());
  auto* moves = new QVBoxLayout;
  cmdUp_ = new QPushButton("Move &Up", central);
  cmdUp_->setObjectName("cmdUp");
  cmdDown_ = new QPushButton("Move Do&wn", central);
  cmdDown_->setObjectName("cmdDown");
  moves->addWidget(cmdUp_);
  moves->addWidget(cmdDown_);
  moves->addStretch();
  grid->addWidget(dgdFields_, 1);
  grid->addLayout(moves);

  fraStatistics_ = new QGroupBox("Statistics", central);
  fraStatistics_->setObjectName("fraStatistics");
  auto* stats = new QHBoxLayout(fraStatistics_);
  lblRunTime_ = new QLabel(fraStatistics_);
  lblRunTime_->setObjectName("lblRunTime");
  lblLinesWritten_ = new QLabel(fraStatistics_);
  lblLinesWritten_->setObjectName("lblLinesWritten");
  lblLinesProcessed_ = new QLabel(fraStatistics_);
  lblLinesProcessed_->setObjectName("lblLinesProcessed");
  stats->addWidget(lblRunTime_);
  stats->addWidget(lblLinesWritten_);
  stats->addWidget(lblLinesProcessed_);
  fraStatistics_->hide();

  auto* bottom = new QHBoxLayout;
  lblStatus_ = new QLabel(central);
  lblStatus_->setObjectName("lblStatus");
  prgRun_ = new QProgressBar(central);
  prgRun_->setObjectName("prgRun");
  prgRun_->setTextVisible(false);
  prgRun_->hide();
  lblPercent_ = new QLabel(central);
  lblPercent_->setObjectName("lblPercent");
  lblPercent_->hide();
  btnRun_ = new QPushButton("&Run", central);
  btnRun_->setObjectName("btnRun");
  btnRun_->setToolTip("Convert the report");
  btnRun_->setDefault(true);
  btnCancel_ = new QPushButton("&Cancel", central);
  btnCancel_->setObjectName("btnCancel");
  btnCancel_->hide();
  bottom->addWidget(lblStatus_);
  bottom->addWidget(prgRun_, 1);
  bottom->addWidget(lblPercent_);
  bottom->addStretch();
  bottom->addWidget(btnCancel_);
  bottom->addWidget(btnRun_);

  layout->addWidget(fraFiles_);
  layout->addWidget(fraFileSettings_);
  layout->addLayout(grid, 1);
  layout->addWidget(fraStatistics_);
  layout->addLayout(bottom);
  setCentralWidget(central);
  setTabOrder(txtRfile_, btnReport_);
  setTabOrder(btnReport_, txtDfile_);
  setTabOrder(txtDfile_, btnRDF_);
  setTabOrder(btnRDF_, txtOfile_);
  setTabOrder(txtOfile_, btnOutput_);
  setTabOrder(btnOutput_, cboDelimiter_);
}

void MainWindow::BuildMenus() {
  auto action = [this](QMenu* menu, const char* name, const QString& text, bool locked,
                       auto&& slot) {
    QAction* a = menu->addAction(text);
    a->setObjectName(name);
    connect(a, &QAction::triggered, this, slot);
    if (locked) runLocked_ << a;
    return a;
  };
  QMenu* file = menuBar()->addMenu("&File");
  file->setObjectName("mnuFile");
  action(file, "mnuNew", "&New", true, [this] { NewForm(); })->setShortcut(QKeySequence::New);
  action(file, "mnuSaveRDF", "Save RDF &As ...", true, [this] { SaveRdfAs(); });
  file->addSeparator();
  action(file, "mnuExit", "E&xit", false, [this] { close(); })->setShortcut(QKeySequence::Quit);

  QMenu* options = menuBar()->addMenu("&Options");
  options->setObjectName("mnuOptions");
  QMenu* type = options->addMenu("Output &Type");
  type->setObjectName("mnuOutputType");
  runLocked_ << type->menuAction();
  for (const char* ext : {".txt", ".csv", ".xls"}) {
    action(type, (std::string("mnuOutput") + (ext + 1)).c_str(), QString(ext), false,
           [this, ext] { SetOutputType(ext); });
  }
  action(options, "mnuSelect", "&Select", true, [this] {
    QList<int> rows;
    for (const QModelIndex& i : dgdFields_->selectionModel()->selectedRows()) rows << i.row();
    model_->SetOutput(rows, true);
  });
  action(options, "mnuDeselect", "&Deselect", true, [this] {
    QList<int> rows;
    for (const QModelIndex& i : dgdFields_->selectionModel()->selectedRows()) rows << i.row();
    model_->SetOutput(rows, false);
  });
  action(options, "mnuGroupFields", "&Group Fields", true, [this] { model_->GroupFields(); });
  action(options, "mnuSelectReport", "Select &Report ...", true, [this] {
    btnReport_->click();
  })->setShortcut(QKeySequence::Open);

  QMenu* rdf = menuBar()->addMenu("&RDF");
  rdf->setObjectName("mnuRDF");
  action(rdf, "mnuAboutRDF", "&About RDF", true, [this] { AboutRdf(); });

  QMenu* settings = menuBar()->addMenu("&Settings");
  settings->setObjectName("mnuSettings");
  action(settings, "mnuConfigOptions", "&Configuration Options ...", true, [this] {
    ConfigOptionsDialog dialog(*app_, dialogs_, this);
    dialog.exec();
  });
  action(settings, "mnuSaveSettings", "&Save Current Settings ...", true, [this] {
    CurrentSettingsDialog dialog(*app_, dialogs_, this);
    dialog.exec();
  });

  QMenu* help = menuBar()->addMenu("&Help");
  help->setObjectName("mnuHelp");
  action(help, "mnuQuillbrookHelp", "Quillbrook &Manual", true, [this] {
    OpenManual();
  })->setShortcut(QKeySequence::HelpContents);
  action(help, "mnuWebSite", "Quillbrook on the &Web", true, [] {
    QDesktopServices::openUrl(
        QUrl(qEnvironmentVariable("QUILLBROOK_HOMEPAGE", "https://quillbrook.example/")));
  });
  action(help, "mnuAboutQuillbrook", "&About Quillbrook", true, [this] { AboutQuillbrook(); });
}

void MainWindow::ConnectSignals() {
  auto pick = [this](QLineEdit* box, const char* title, const char* filters, int selected,
                     Key folderKey, bool save, void (MainWindow::*choose)(const QString&)) {
    QString folder = Q(app_->Settings[folderKey]);
    if (QFileInfo::exists(box->text())) folder = box->text();  // open on the file already named
    const QString path = save
                             ? dialogs_.saveFile(this, title, QtFilters(filters), selected, folder)
                             : dialogs_.openFile(this, title, QtFilters(filters), selected, folder);
    if (!path.isEmpty()) (this->*choose)(path);  // a cancelled picker changes nothing
  };
  connect(btnReport_, &QPushButton::clicked, this, [this, pick] {
    pick(txtRfile_, "Select a Report to Process ...", kReportFilters, 1, Key::rptdir, false,
         &MainWindow::ChooseReport);
  });
  connect(btnRDF_, &QPushButton::clicked, this, [this, pick] {
    pick(txtDfile_, "Select a Report Description File ...", kRdfFilters, 1, Key::rdfdir, false,
         &MainWindow::ChooseRdf);
  });
  connect(btnOutput_, &QPushButton::clicked, this, [this, pick] {
    const std::string& type = app_->Settings[Key::opfmt];
    pick(txtOfile_, "Select an Output File ...", kOutputFilters,
         type == ".csv"   ? 2
         : type == ".xls" ? 3
                          : 1,
         Key::outdir, true, &MainWindow::ChooseOutput);
  });
  for (QLineEdit* box : {txtRfile_, txtDfile_, txtOfile_}) {
    connect(box, &QLineEdit::editingFinished, this, [this, box] { LeaveBox(box); });
  }
  connect(cboDelimiter_, &QComboBox::currentTextChanged, this,
          [this](const QString& t) { app_->Settings.Item(Key::delim).Value = S(t); });
  connect(cboTextQualifier_, &QComboBox::currentTextChanged, this,
          [this](const QString& t) { app_->Settings.Item(Key::textq).Value = S(t); });
  connect(cboRecordType_, &QComboBox::currentTextChanged, this,
          [this](const QString& t) { app_->Settings.Item(Key::rtype).Value = S(t); });
  connect(chkTextQualifier_, &QCheckBox::toggled, this,
          [this](bool on) { app_->Settings.Item(Key::tqswt).Value = on ? "1" : "0"; });
  connect(chkLaunchExcel_, &QCheckBox::toggled, this,
          [this](bool on) { app_->Settings.Item(Key::exswt).Value = on ? "1" : "0"; });
  connect(btnRun_, &QPushButton::clicked, this, [this] { Run(); });
  connect(btnCancel_, &QPushButton::clicked, this, [this] {
    if (job_) job_->Cancel();
  });
  auto move = [this](int step) {
    const QModelIndex current = dgdFields_->currentIndex();
    if (!current.isValid()) return;
    const int row = model_->Move(current.row(), step);
    dgdFields_->selectRow(row);
  };
  connect(cmdUp_, &QPushButton::clicked, this, [move] { move(-1); });
  connect(cmdDown_, &QPushButton::clicked, this, [move] { move(+1); });
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::FocusIn) {
    if (auto* box = qobject_cast<QLineEdit*>(watched)) remembered_ = box->text();
  }
  return QMainWindow::eventFilter(watched, event);
}

// Leaving a box: a new name is checked; a bad one is refused and the focus stays.
void MainWindow::LeaveBox(QLineEdit* box) {
  const QString text = box->text().trimmed();
  if (text.isEmpty() || text == remembered_) return;
  remembered_ = text;
  const QFileInfo info(text);
  bool ok;
  QString label, title = "File Not Found";
  if (box == txtOfile_) {
    const QString base = info.completeBaseName();
    ok = QFileInfo(info.absolutePath()).isDir() && !base.isEmpty();
    for (QChar c : base) ok = ok && !QStringLiteral(".?':;|\"][{}+=)(*&^#@!`").contains(c);
    label = "Output path: ";
    title = "File's Path Not Found";
  } else {
    ok = info.isFile();
    label = box == txtRfile_ ? "Report File: " : "RDF File: ";
  }
  if (!ok) {
    dialogs_.message(this, label + text + "  \r\rDoes not exist.", title, MessageIcon::Critical);
    box->setFocus();
    return;
  }
  if (box == txtRfile_)
    ChooseReport(text);
  else if (box == txtDfile_)
    ChooseRdf(text);
  else
    ChooseOutput(text);
}

void MainWindow::ChooseReport(const QString& path) {
  const QFileInfo info(path);
  app_->Settings.Item(Key::rptdir).Value = S(info.absolutePath());
  app_->SetReportLogFile(S(info.absoluteFilePath()));
  app_->Log().WriteLog("Report-Click", S(info.absoluteFilePath()));
  pdfReport_ = info.suffix() == "pdf";  // lower case only: REPORT.PDF is read as text
  txtRfile_->setText(info.absoluteFilePath());
  try {
    const clsSystem system = ParseSystemEntry(app_->Settings[Key::pfset], "ChooseReport");
    if (auto rdf = FindRdf(S(info.absoluteFilePath()), system, app_->Settings[Key::rdfdir])) {
      txtDfile_->setText(Q(rdf->string()));
      LoadRdf(txtDfile_->text());
    }
  } catch (const QbError&) {
    // A damaged "pfset": the RDF is chosen by hand.
  }
  UpdateRunButton();
}

void MainWindow::ChooseRdf(const QString& path) {
  const QFileInfo info(path);
  app_->Settings.Item(Key::rdfdir).Value = S(info.absolutePath());
  txtDfile_->setText(info.absoluteFilePath());
  LoadRdf(txtDfile_->text());
  UpdateRunButton();
}

void MainWindow::ChooseOutput(const QString& path) {
  const QFileInfo info(path);
  txtOfile_->setText(info.absoluteFilePath());
  app_->Settings.Item(Key::outdir).Value = S(info.absolutePath());
  if (!info.suffix().isEmpty()) app_->Settings.Item(Key::opfmt).Value = "." + S(info.suffix());
  UpdateRunButton();
}

void MainWindow::LoadRdf(const QString& path) {
  engine_->flags.PdfReport = pdfReport_;
  engine_->LoadRDF(S(path), S(txtRfile_->text()));  // says "Error loading RDF" itself
  model_->Reload();
  ShowSettings();
}

void MainWindow::ShowSettings() {
  const clsKeys& s = app_->Settings;
  const QSignalBlocker b1(cboDelimiter_), b2(cboTextQualifier_), b3(cboRecordType_),
      b4(chkTextQualifier_), b5(chkLaunchExcel_);
  cboDelimiter_->setCurrentText(Q(s[Key::delim]));
  cboTextQualifier_->setCurrentText(Q(s[Key::textq]));
  cboRecordType_->setCurrentText(Q(s[Key::rtype]));
  chkTextQualifier_->setChecked(s[Key::tqswt] == "1");
  chkLaunchExcel_->setChecked(s[Key::exswt] == "1");
}

void MainWindow::UpdateRunButton() {
  btnRun_->setEnabled(QFileInfo(txtRfile_->text()).isFile() &&
                      QFileInfo(txtDfile_->text()).isFile() && !txtOfile_->text().isEmpty());
}

void MainWindow::SetOutputType(const QString& extension) {
  app_->Settings.Item(Key::opfmt).Value = S(extension);
  if (!txtOfile_->text().isEmpty()) {
    const QFileInfo info(txtOfile_->text());
    txtOfile_->setText(info.absolutePath() + "/" + info.completeBaseName() + extension);
  }
}

// The run goes on a worker thread with a job of its own: a copy of the loaded RDF with the
// grid's choices as they are now, and of the settings. The grid stays this thread's.
void MainWindow::Run() {
  if (running_) return;
  JobRequest request;
  request.report = S(txtRfile_->text());
  request.rdf = S(txtDfile_->text());
  request.output = S(txtOfile_->text());
  request.launch = app_->Settings[Key::exswt] == "1";
  try {
    job_ = std::make_unique<ConversionJob>(*app_, *ui_, *engine_, std::move(request));
  } catch (const JobError& e) {
    dialogs_.message(this, Q(e.what()), "Quillbrook", MessageIcon::Exclamation);
    return;
  }
  if (job_->Check() != RunDriver::Check::Ready) return;
  StartOfRun();
  worker_ = std::thread([this, job = job_.get()] {
    const bool ok = job->Run();
    QMetaObject::invokeMethod(this, [this, ok] { RunEnd(ok); });
  });
}

void MainWindow::StartOfRun() {
  running_ = true;
  runStart_ = std::chrono::steady_clock::now();
  prgRun_->setValue(0);
  prgRun_->show();
  SetMenusEnabled(false);
  dgdFields_->setEnabled(false);
  lblPercent_->setText("0%");
  lblPercent_->show();
  imgLogo_->show();
  lblStatus_->setText("Quillbrook Running");
  lblStatus_->show();
  btnCancel_->show();
  btnCancel_->setFocus();
  btnRun_->hide();
  fraFiles_->setEnabled(false);
  fraFileSettings_->setEnabled(false);
  fraStatistics_->hide();
  QApplication::setOverrideCursor(Qt::BusyCursor);
}

void MainWindow::SetProgress(int percent) {
  prgRun_->setValue(std::min(percent, 100));
  lblPercent_->setText(QString::number(std::min(percent, 100)) + "%");
  if (isMinimized()) setWindowTitle("Quillbrook " + lblPercent_->text());
}

void MainWindow::RunEnd(bool ok) {
  worker_.join();
  const RunStats& stats = job_->Stats();
  if (stats.finished) {
    lblRunTime_->setText(Q(stats.RunTimeText()));
    lblLinesWritten_->setText(Q(stats.LinesWrittenText()));
    lblLinesProcessed_->setText(Q(stats.LinesProcessedText()));
    QApplication::beep();
  }
  SetProgress(100);
  running_ = false;
  SetMenusEnabled(true);
  lblPercent_->hide();
  prgRun_->hide();
  lblStatus_->setText(stats.cancelled ? "** Cancelled **" : "Complete");
  if (!ok && !stats.cancelled) lblStatus_->setText("Failed: see the message and the log");
  btnRun_->show();
  btnCancel_->hide();
  fraStatistics_->setVisible(stats.finished);
  fraFiles_->setEnabled(true);
  fraFileSettings_->setEnabled(true);
  dgdFields_->setEnabled(true);
  model_->Reload();
  statusBar()->clearMessage();
  QApplication::restoreOverrideCursor();
  if (!isMinimized()) setWindowTitle("Quillbrook");
  emit runFinished();
  if (exitRequested_) close();
}

void MainWindow::SetMenusEnabled(bool enabled) {
  for (QAction* a : runLocked_) a->setEnabled(enabled);
}

void MainWindow::changeEvent(QEvent* event) {
  if (event->type() == QEvent::WindowStateChange && !isMinimized()) setWindowTitle("Quillbrook");
  QMainWindow::changeEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (running_) {  // Exit during a run cancels it; the window closes when the run has ended
    exitRequested_ = true;
    job_->Abandon();
    event->ignore();
    return;
  }
  app_->Log().WriteLog("Quillbrook", "Closed...");
  event->accept();
}

void MainWindow::NewForm() {
  for (QLineEdit* box : {txtRfile_, txtDfile_, txtOfile_}) box->clear();
  engine_->DestroyRecordsets();
  engine_->CreateRecordsets();
  model_->Reload();
  fraStatistics_->hide();
  lblStatus_->clear();
  UpdateRunButton();
}

void MainWindow::SaveRdfAs() {
  QString path = dialogs_.saveFile(this, "Save RDF As ...", QtFilters(kRdfFilters), 1,
                                   Q(app_->Settings[Key::rdfdir]));
  if (path.isEmpty()) return;
  if (QFileInfo(path).suffix().isEmpty()) path += ".rdf";
  if (!engine_->BuildRDF(S(path))) return;  // the error was shown and logged
  model_->Reload();
}

void MainWindow::AboutRdf() {
  QString text = Q(engine_->rdf.Name);
  Recordset& header = engine_->tables.rsHeader;
  if (header.IsOpen()) {
    header.Filter("fldTYP = 'CR'");
    if (!header.IsEOF()) text += "\r\r" + Q(header.GetText(col::Header::fldVAL));
    header.Filter("");
  }
  dialogs_.message(this, text.isEmpty() ? "No RDF is loaded." : text, "About RDF",
                   MessageIcon::Information);
}

void MainWindow::OpenManual() {
  const auto manual = app_->ProgramFolder() / "system" / "Quillbrook_Manual.pdf";
  if (!std::filesystem::exists(manual) ||
      !QDesktopServices::openUrl(QUrl::fromLocalFile(Q(manual.string())))) {
    dialogs_.message(this, "The manual cannot be opened: " + Q(manual.string()), "Quillbrook",
                     MessageIcon::Exclamation);
  }
}

void MainWindow::AboutQuillbrook() {
  QMessageBox box(this);
  box.setObjectName("frmAbout");
  box.setWindowTitle("About Quillbrook");
  box.setIconPixmap(Logo(64));
  box.setText("<b>Quillbrook</b><br>Version " QB_VERSION
              "<br><br>Turns printed business reports into rows of data.");
  QPushButton* info = box.addButton("&System Info ...", QMessageBox::ActionRole);
  info->setObjectName("cmdSysInfo");
  QString tool;
  for (const char* candidate : {"hardinfo", "kinfocenter", "gnome-system-monitor"}) {
    if (tool.isEmpty()) tool = QStandardPaths::findExecutable(candidate);
  }
  info->setEnabled(!tool.isEmpty());
  box.addButton(QMessageBox::Ok);
  box.exec();
  if (box.clickedButton() == info) QProcess::startDetached(tool, {});
}

}  // namespace qb::ui
