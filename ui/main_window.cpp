#include "ui/main_window.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QFontDatabase>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTableView>
#include <QThread>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "base/bytes.h"
#include "base/file_io.h"
#include "base/text_encoding.h"
#include "engine/rdf_checker.h"
#include "output/output_options.h"
#include "run/launch.h"
#include "ui/convert_many.h"
#include "ui/fields_model.h"
#include "ui/report_pane.h"
#include "ui/settings_dialogs.h"
#include "ui/text.h"

namespace qb::ui {
namespace {

// The property of a file box that holds the name last accepted in it.
constexpr char kAcceptedName[] = "acceptedName";

constexpr char kReportFilters[] =
    "All Files (*.*)|*.*|Text files (*.txt)|*.txt|PDF files (*.pdf)|*.pdf|Print files "
    "(*.prn)|*.prn|"
    "Report files (*.rpt)|*.rpt";
constexpr char kRdfFilters[] = "Report Description Files (*.rdf)|*.rdf";
constexpr char kOutputFilters[] =
    "Text files (*.txt)|*.txt|CSV files (*.csv)|*.csv|Excel files (*.xls)|*.xls|Excel workbooks "
    "(*.xlsx)|*.xlsx";

// How many reports and RDFs the File menu keeps.
constexpr int kRecentCount = 5;

// `path` with the extension of the output type `extension` (".csv"): an extension that names
// an output type, in any case, is replaced; any other stays part of the name.
QString WithOutputExtension(const QString& path, const QString& extension) {
  const QString suffix = QFileInfo(path).suffix();
  if (suffix.isEmpty() || !FormatOfExtension(S("." + suffix))) return path + extension;
  if (("." + suffix).compare(extension, Qt::CaseInsensitive) == 0) return path;  // JAN.CSV
  return path.left(path.size() - suffix.size() - 1) + extension;
}

bool IsRdf(const QString& path) {
  return QFileInfo(path).suffix().compare("rdf", Qt::CaseInsensitive) == 0;
}

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
    onGuiThread([&] {
      if (w_.running_) w_.runShown_ << Q(text);
      w_.dialogs_.message(&w_, Q(text), Q(title), icon);
    });
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
  setAcceptDrops(true);
  BuildControls();
  BuildMenus();
  ConnectSignals();
  LoadRecent();
  resize(1280, 760);
}

MainWindow::~MainWindow() {
  // The boxes lose the focus as the widgets go: leaving one must not reach this window then.
  for (QLineEdit* box : {txtRfile_, txtDfile_, txtOfile_}) box->disconnect(this);
  delete pane_;  // its threads end before the RDF and settings it copies from go
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

// Every mnemonic of the window is its own: the labels and buttons here and the menu titles
// (F, O, R, S, H) share one Alt key space.
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
    box->setAcceptDrops(false);  // a file dropped on a box is the window's, not text for it
    l->setBuddy(box);
    button = new QPushButton("...", fraFiles_);
    button->setObjectName(buttonName);
    button->setToolTip(tip);
    button->setMaximumWidth(40);
    files->addWidget(l, row, 0);
    files->addWidget(box, row, 1);
    files->addWidget(button, row, 2);
  };
  addRow(0, "Re&port:", "txtRfile", "btnReport", "Select a Report to Process", txtRfile_,
         btnReport_);
  addRow(1, "R&DF:", "txtDfile", "btnRDF", "Select a Report Description File", txtDfile_, btnRDF_);
  addRow(2, "Ou&tput:", "txtOfile", "btnOutput", "Select an Output File", txtOfile_, btnOutput_);
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
  for (std::string_view selection : kRecordSelections) cboRecordType_->addItem(Q(selection));
  cboRecordType_->setToolTip("Select the records to write");
  cboEncoding_ = new QComboBox(fraFileSettings_);
  cboEncoding_->setObjectName("cboEncoding");
  cboEncoding_->addItem("automatic", QString());
  for (Encoding e : {Encoding::Windows1252, Encoding::Utf8, Encoding::Latin1, Encoding::Cp437,
                     Encoding::Cp850, Encoding::Ebcdic037, Encoding::Ebcdic500}) {
    cboEncoding_->addItem(Q(EncodingName(e)), Q(EncodingName(e)));
  }
  cboEncoding_->setToolTip(
      "The report's encoding: automatic reads Windows-1252, or UTF-8 when the report begins "
      "with a byte-order mark");
  chkLaunchExcel_ = new QCheckBox("Select to Launch E&xcel", fraFileSettings_);
  chkLaunchExcel_->setObjectName("chkLaunchExcel");
  chkLaunchExcel_->setToolTip("Open the workbook in the spreadsheet program after the run");
  auto* delimiter = new QLabel("De&limiter:", fraFileSettings_);
  delimiter->setBuddy(cboDelimiter_);
  auto* write = new QLabel("Wr&ite:", fraFileSettings_);
  write->setBuddy(cboRecordType_);
  settings->addWidget(delimiter);
  settings->addWidget(cboDelimiter_);
  settings->addWidget(chkTextQualifier_);
  settings->addWidget(cboTextQualifier_);
  settings->addWidget(write);
  settings->addWidget(cboRecordType_);
  auto* encoding = new QLabel("&Encoding:", fraFileSettings_);
  encoding->setBuddy(cboEncoding_);
  settings->addWidget(encoding);
  settings->addWidget(cboEncoding_);
  settings->addWidget(chkLaunchExcel_);
  settings->addStretch();

  // The fields grid with its buttons, one widget that can go in a splitter beside others.
  auto* fields = new QWidget(central);
  fields->setObjectName("fraFields");
  auto* grid = new QHBoxLayout(fields);
  grid->setContentsMargins(0, 0, 0, 0);
  dgdFields_ = new QTableView(fields);
  dgdFields_->setObjectName("dgdFields");
  dgdFields_->setSelectionBehavior(QAbstractItemView::SelectRows);
  dgdFields_->horizontalHeader()->setStretchLastSection(true);
  model_ = std::make_unique<FieldsModel>(
      engine_->tables.rsFields, engine_->flags.RdfUtf8, [this](const QString& text) {
        dialogs_.message(this, text, "Quillbrook", MessageIcon::Exclamation);
      });
  dgdFields_->setModel(model_.get());
  auto* moves = new QVBoxLayout;
  cmdUp_ = new QPushButton("Move &Up", fields);
  cmdUp_->setObjectName("cmdUp");
  cmdUp_->setToolTip("Move the field one place earlier in the output");
  cmdDown_ = new QPushButton("Move Do&wn", fields);
  cmdDown_->setObjectName("cmdDown");
  cmdDown_->setToolTip("Move the field one place later in the output");
  moves->addWidget(cmdUp_);
  moves->addWidget(cmdDown_);
  moves->addStretch();
  grid->addWidget(dgdFields_, 1);
  grid->addLayout(moves);

  fraStatistics_ = new QGroupBox("Statistics", central);
  fraStatistics_->setObjectName("fraStatistics");
  auto* stats = new QVBoxLayout(fraStatistics_);
  auto* figures = new QHBoxLayout;
  lblRunTime_ = new QLabel(fraStatistics_);
  lblRunTime_->setObjectName("lblRunTime");
  lblLinesWritten_ = new QLabel(fraStatistics_);
  lblLinesWritten_->setObjectName("lblLinesWritten");
  lblLinesProcessed_ = new QLabel(fraStatistics_);
  lblLinesProcessed_->setObjectName("lblLinesProcessed");
  figures->addWidget(lblRunTime_);
  figures->addWidget(lblLinesWritten_);
  figures->addWidget(lblLinesProcessed_);
  // What the run has to tell besides its figures: why it failed, the lines it dropped.
  lblFindings_ = new QLabel(fraStatistics_);
  lblFindings_->setObjectName("lblFindings");
  lblFindings_->setTextFormat(Qt::PlainText);
  lblFindings_->setWordWrap(true);
  lblFindings_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  lblFindings_->hide();
  stats->addLayout(figures);
  stats->addWidget(lblFindings_);
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
  btnRun_ = new QPushButton("Ru&n", central);
  btnRun_->setObjectName("btnRun");
  btnRun_->setToolTip("Convert the report (Ctrl+R, F5)");
  btnRun_->setDefault(true);
  btnCancel_ = new QPushButton("&Cancel", central);
  btnCancel_->setObjectName("btnCancel");
  btnCancel_->setToolTip(
      "Stop the run; the rows so far are written, unless they would replace an output (Esc)");
  btnCancel_->hide();
  bottom->addWidget(lblStatus_);
  bottom->addWidget(prgRun_, 1);
  bottom->addWidget(lblPercent_);
  bottom->addStretch();
  bottom->addWidget(btnCancel_);
  bottom->addWidget(btnRun_);

  layout->addWidget(fraFiles_);
  layout->addWidget(fraFileSettings_);
  // Beside the grid, the report as the run reads it and the rows it would write.
  splFields_ = new QSplitter(Qt::Horizontal, central);
  splFields_->setObjectName("splFields");
  pane_ = new ReportPane(*app_, *engine_, splFields_);
  splFields_->addWidget(fields);
  splFields_->addWidget(pane_);
  splFields_->setStretchFactor(0, 0);
  splFields_->setStretchFactor(1, 1);
  splFields_->setSizes({380, 880});
  layout->addWidget(splFields_, 1);
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
  action(file, "mnuConvertMany", "Convert &Many ...", false, [this] { ConvertMany(); });
  mnuRecent_ = file->addMenu("&Recent Files");
  mnuRecent_->setObjectName("mnuRecent");
  runLocked_ << mnuRecent_->menuAction();
  file->addSeparator();
  action(file, "mnuExit", "E&xit", false, [this] { close(); })->setShortcut(QKeySequence::Quit);

  QMenu* options = menuBar()->addMenu("&Options");
  options->setObjectName("mnuOptions");
  QMenu* type = options->addMenu("Output &Type");
  type->setObjectName("mnuOutputType");
  runLocked_ << type->menuAction();
  outputTypes_ = new QActionGroup(this);
  for (const char* ext : {".txt", ".csv", ".xls", ".xlsx"}) {
    QAction* a = action(type, (std::string("mnuOutput") + (ext + 1)).c_str(), QString(ext), false,
                        [this, ext] { SetOutputType(ext); });
    a->setCheckable(true);
    a->setData(QString(ext));
    outputTypes_->addAction(a);
  }
  auto selectedRows = [this] {
    QList<int> rows;
    for (const QModelIndex& i : dgdFields_->selectionModel()->selectedRows()) rows << i.row();
    return rows;
  };
  action(options, "mnuSelect", "&Select", true,
         [this, selectedRows] { model_->SetOutput(selectedRows(), true); });
  action(options, "mnuDeselect", "&Deselect", true, [this, selectedRows] {
    const QList<int> rows = selectedRows();
    if (rows.isEmpty() && !dialogs_.question(this,
                                             "No field is selected.\rTurn the output off for "
                                             "every field?",
                                             "Deselect", MessageIcon::Exclamation)) {
      return;
    }
    model_->SetOutput(rows, false);
  });
  action(options, "mnuGroupFields", "&Group Fields", true, [this] { model_->GroupFields(); });
  action(options, "mnuSelectReport", "Select &Report ...", true, [this] {
    btnReport_->click();
  })->setShortcut(QKeySequence::Open);

  QMenu* view = menuBar()->addMenu("&View");
  view->setObjectName("mnuView");
  mnuReportPane_ = action(view, "mnuReportPane", "Report &Pane", false,
                          [this](bool on) { pane_->setVisible(on); });
  mnuReportPane_->setCheckable(true);
  mnuReportPane_->setChecked(true);
  mnuReportPane_->setShortcut(Qt::Key_F9);

  QMenu* rdf = menuBar()->addMenu("&RDF");
  rdf->setObjectName("mnuRDF");
  action(rdf, "mnuAboutRDF", "&About RDF", true, [this] { AboutRdf(); });
  action(rdf, "mnuCheckRDF", "&Check RDF ...", false, [this] { CheckRdfFile(); });
  // After an edit of the RDF in another program: the grid, the report view and the preview
  // follow it.
  action(rdf, "mnuReloadRDF", "Re&load RDF", true, [this] {
    if (FileThere(txtDfile_->text(), "RDF File: ")) LoadRdf(txtDfile_->text());
  })->setShortcut(Qt::Key_F6);

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
  action(help, "mnuQuillbrookHelp", "Quillbrook &Manual", false, [this] {
    OpenDocument(app_->ProgramFolder() / "system" / "Quillbrook_Manual.pdf", "The manual");
  })->setShortcut(QKeySequence::HelpContents);
  action(help, "mnuRdfGuide", "RDF &Format Guide", false, [this] {
    OpenDocument(app_->ProgramFolder() / "system" / "rdf-format.md", "The RDF format guide");
  });
  action(help, "mnuAboutQuillbrook", "&About Quillbrook", true, [this] { AboutQuillbrook(); });

  // Keys without a menu entry: Run as the button, and Esc to cancel (only while running, so
  // that it means nothing else the rest of the time).
  auto* run = new QAction(this);
  run->setObjectName("actRun");
  run->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence(Qt::Key_F5)});
  connect(run, &QAction::triggered, this, [this] {
    if (btnRun_->isEnabled()) Run();
  });
  addAction(run);
  runLocked_ << run;
  cancelKey_ = new QAction(this);
  cancelKey_->setObjectName("actCancel");
  cancelKey_->setShortcut(QKeySequence(Qt::Key_Escape));
  cancelKey_->setEnabled(false);
  connect(cancelKey_, &QAction::triggered, this, [this] { btnCancel_->click(); });
  addAction(cancelKey_);
}

void MainWindow::ConnectSignals() {
  auto pick = [this](QLineEdit* box, const char* title, const char* filters, int selected,
                     Key folderKey, bool save, auto&& choose) {
    QString folder = Q(app_->Settings[folderKey]);
    if (QFileInfo::exists(box->text())) folder = box->text();  // open on the file already named
    const QString path = save
                             ? dialogs_.saveFile(this, title, QtFilters(filters), selected, folder)
                             : dialogs_.openFile(this, title, QtFilters(filters), selected, folder);
    if (!path.isEmpty()) choose(path);  // a cancelled picker changes nothing
  };
  connect(btnReport_, &QPushButton::clicked, this, [this, pick] {
    pick(txtRfile_, "Select a Report to Process ...", kReportFilters, 1, Key::rptdir, false,
         [this](const QString& path) { ChooseReport(path); });
  });
  connect(btnRDF_, &QPushButton::clicked, this, [this, pick] {
    pick(txtDfile_, "Select a Report Description File ...", kRdfFilters, 1, Key::rdfdir, false,
         [this](const QString& path) { ChooseRdf(path); });
  });
  connect(btnOutput_, &QPushButton::clicked, this, [this, pick] {
    const std::string& type = app_->Settings[Key::opfmt];
    pick(txtOfile_, "Select an Output File ...", kOutputFilters,
         type == ".csv"    ? 2
         : type == ".xls"  ? 3
         : type == ".xlsx" ? 4
                           : 1,
         Key::outdir, true, [this](const QString& path) { ChooseOutput(path); });
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
  // The report is read afresh in another encoding.
  connect(cboEncoding_, &QComboBox::currentIndexChanged, this, [this] {
    app_->Settings.Item(Key::encoding).Value = S(cboEncoding_->currentData().toString());
    pane_->ReadAgain();
  });
  // The preview follows the grid and the file settings.
  for (QComboBox* box : {cboDelimiter_, cboTextQualifier_, cboRecordType_})
    connect(box, &QComboBox::currentTextChanged, pane_, &ReportPane::SourceChanged);
  connect(chkTextQualifier_, &QCheckBox::toggled, pane_, &ReportPane::SourceChanged);
  connect(model_.get(), &QAbstractItemModel::dataChanged, pane_, &ReportPane::SourceChanged);
  connect(model_.get(), &QAbstractItemModel::modelReset, pane_, &ReportPane::SourceChanged);
  connect(model_.get(), &QAbstractItemModel::layoutChanged, pane_, &ReportPane::SourceChanged);
  // A span of columns picked in the report view: the numbers an RDF row needs, copied.
  connect(pane_, &ReportPane::columnsSelected, this, [this](int start, int length) {
    const QString numbers = QString("%1,%2").arg(start).arg(length);
    QGuiApplication::clipboard()->setText(numbers);
    statusBar()->showMessage(QString("Columns %1 to %2: start %1, length %3 (copied \"%4\")")
                                 .arg(start)
                                 .arg(start + length - 1)
                                 .arg(length)
                                 .arg(numbers));
  });
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

// A name the program puts in a box (a choice, a drop, a recent file) was checked already: it
// is the box's accepted name, and in the box that has the focus it counts as the text the box
// had, so leaving the box does not choose it again (auto-find would replace the RDF chosen
// after it).
void MainWindow::ShowIn(QLineEdit* box, const QString& text) {
  box->setText(text);
  box->setProperty(kAcceptedName, text);
  if (box->hasFocus()) remembered_ = text;
}

// Leaving a box: a name typed since the box got the focus is checked.
void MainWindow::LeaveBox(QLineEdit* box) {
  if (box->text().trimmed() != remembered_) CheckBox(box);
}

// A name typed into a box and not yet accepted is chosen, or refused (the message says why)
// with the focus back in the box. False when refused.
bool MainWindow::CheckBox(QLineEdit* box) {
  const QString text = box->text().trimmed();
  // A message shown while checking takes the focus, which leaves the box again.
  if (text.isEmpty() || text == box->property(kAcceptedName).toString() || checkingBox_)
    return true;
  checkingBox_ = true;
  bool ok = true;
  if (box == txtOfile_) {
    const QFileInfo info(text);
    const QString base = info.completeBaseName();
    ok = QFileInfo(info.absolutePath()).isDir() && !base.isEmpty();
    for (QChar c : base) ok = ok && !QStringLiteral(".?':;|\"][{}+=)(*&^#@!`").contains(c);
    if (ok) {
      ChooseOutput(text);
    } else {
      dialogs_.message(this, "Output path: " + info.absoluteFilePath() + "  \r\rDoes not exist.",
                       "File's Path Not Found", MessageIcon::Critical);
    }
  } else {
    ok = box == txtRfile_ ? ChooseReport(text) : ChooseRdf(text);
  }
  checkingBox_ = false;
  if (ok) {
    remembered_ = box->text().trimmed();
  } else {
    box->setFocus();
  }
  return ok;
}

// A report or RDF that is not there is named as it was looked for: a name typed without a
// folder is looked for in the current folder, and the message says which one that is.
bool MainWindow::FileThere(const QString& path, const QString& label) {
  const QFileInfo info(path);
  if (info.isFile()) return true;
  if (info.isDir()) {
    dialogs_.message(this,
                     label + info.absoluteFilePath() +
                         "  \r\rIs a folder: choose a file in it (File > Convert Many ... "
                         "converts every report of a folder).",
                     "Not a File", MessageIcon::Exclamation);
    return false;
  }
  dialogs_.message(this, label + info.absoluteFilePath() + "  \r\rDoes not exist.",
                   "File Not Found", MessageIcon::Critical);
  return false;
}

bool MainWindow::ChooseReport(const QString& path) {
  if (!FileThere(path, "Report File: ")) return false;
  const QFileInfo info(path);
  app_->Settings.Item(Key::rptdir).Value = S(info.absolutePath());
  app_->SetReportLogFile(S(info.absoluteFilePath()));
  app_->Log().WriteLog("Report-Click", S(info.absoluteFilePath()));
  pdfReport_ = info.suffix() == "pdf";  // lower case only: REPORT.PDF is read as text
  ShowIn(txtRfile_, info.absoluteFilePath());
  Remember(info.absoluteFilePath());
  if (!AutoFindRdf(info.absoluteFilePath())) pane_->SetSource(txtRfile_->text(), txtDfile_->text());
  UpdateRunButton();
  return true;
}

// The report's RDF, by its identifier in the RDF folder ("rdfdir"). An RDF that auto-find
// names but the folder lacks is said, with where it was looked for; the RDF box keeps what
// it had, as it does when the report names none.
bool MainWindow::AutoFindRdf(const QString& report) {
  clsSystem system;
  try {
    system = ParseSystemEntry(app_->Settings[Key::pfset], "ChooseReport");
  } catch (const QbError&) {
    return false;  // a damaged "pfset": the RDF is chosen by hand
  }
  const std::filesystem::path folder = app_->Settings[Key::rdfdir];
  const std::optional<std::filesystem::path> rdf = FindRdf(S(report), system, folder);
  if (!rdf) {
    statusBar()->showMessage("Auto-find: the report gives no RDF name for source system \"" +
                             Q(system.System) + "\"; choose the RDF");
    return false;
  }
  std::error_code ec;
  if (!std::filesystem::is_regular_file(*rdf, ec)) {
    dialogs_.message(this,
                     "Auto-find looked for this report's RDF as\r" +
                         Q(std::filesystem::absolute(*rdf, ec).string()) +
                         "\rin the RDF folder (rdfdir" +
                         (folder.empty() ? QString(" is not set: the current folder") : "") +
                         "), and it is not there.\r\rChoose the RDF: the folder it comes from "
                         "becomes the RDF folder.",
                     "RDF Not Found", MessageIcon::Exclamation);
    return false;
  }
  ShowIn(txtDfile_, Q(rdf->string()));
  LoadRdf(txtDfile_->text());
  return true;
}

bool MainWindow::ChooseRdf(const QString& path) {
  if (!FileThere(path, "RDF File: ")) return false;
  const QFileInfo info(path);
  app_->Settings.Item(Key::rdfdir).Value = S(info.absolutePath());
  ShowIn(txtDfile_, info.absoluteFilePath());
  Remember(info.absoluteFilePath());
  LoadRdf(txtDfile_->text());
  UpdateRunButton();
  return true;
}

void MainWindow::ChooseOutput(const QString& path) {
  const QFileInfo info(path);
  if (auto format = FormatOfExtension(S("." + info.suffix()))) {
    app_->Settings.Item(Key::opfmt).Value = std::string(ExtensionOf(*format));
  }
  ShowIn(txtOfile_, info.absoluteFilePath());
  app_->Settings.Item(Key::outdir).Value = S(info.absolutePath());
  ShowOutputType();
  UpdateRunButton();
}

void MainWindow::LoadRdf(const QString& path) {
  engine_->flags.PdfReport = pdfReport_;
  engine_->LoadRDF(S(path), S(txtRfile_->text()));  // says "Error loading RDF" itself
  model_->Reload();
  ShowSettings();
  pane_->SetSource(txtRfile_->text(), txtDfile_->text());
}

void MainWindow::ShowSettings() {
  const clsKeys& s = app_->Settings;
  const QSignalBlocker b1(cboDelimiter_), b2(cboTextQualifier_), b3(cboRecordType_),
      b4(chkTextQualifier_), b5(chkLaunchExcel_), b6(cboEncoding_);
  cboDelimiter_->setCurrentText(Q(s[Key::delim]));
  cboTextQualifier_->setCurrentText(Q(s[Key::textq]));
  cboRecordType_->setCurrentText(Q(s[Key::rtype]));
  chkTextQualifier_->setChecked(s[Key::tqswt] == "1");
  chkLaunchExcel_->setChecked(s[Key::exswt] == "1");
  // A name the box does not list (a misspelling in the settings file) shows as itself.
  const std::optional<Encoding> encoding = EncodingNamed(s[Key::encoding]);
  const QString name = Trim(s[Key::encoding]).empty() || !encoding ? Q(s[Key::encoding])
                                                                   : Q(EncodingName(*encoding));
  if (cboEncoding_->findData(name) < 0) cboEncoding_->addItem(name, name);
  cboEncoding_->setCurrentIndex(cboEncoding_->findData(name));
  ShowOutputType();  // an RDF's settings may choose another output type
}

void MainWindow::UpdateRunButton() {
  btnRun_->setEnabled(QFileInfo(txtRfile_->text()).isFile() &&
                      QFileInfo(txtDfile_->text()).isFile() && !txtOfile_->text().isEmpty());
}

void MainWindow::SetOutputType(const QString& extension) {
  app_->Settings.Item(Key::opfmt).Value = S(extension);
  ShowOutputType();
}

// The output type as the settings hold it, in the Output Type menu and in the output name's
// extension. A type that is none of the three changes nothing: the run says what is wrong.
void MainWindow::ShowOutputType() {
  const auto format = FormatOfExtension(app_->Settings[Key::opfmt]);
  if (!format) return;
  const QString extension = Q(ExtensionOf(*format));
  for (QAction* a : outputTypes_->actions()) a->setChecked(a->data().toString() == extension);
  const QString name = txtOfile_->text().trimmed();
  if (name.isEmpty()) return;
  const QString renamed = WithOutputExtension(name, extension);
  if (renamed == name) return;
  ShowIn(txtOfile_, renamed);
}

// The run goes on a worker thread with a job of its own: a copy of the loaded RDF with the
// grid's choices as they are now, and of the settings. The grid stays this thread's.
void MainWindow::Run() {
  if (running_) return;
  // Names typed into the boxes and not yet accepted are checked first, as leaving a box
  // checks them: a refused one is not run.
  for (QLineEdit* box : {txtRfile_, txtDfile_, txtOfile_}) {
    if (!CheckBox(box)) return;
  }
  // A report or RDF moved or deleted since it was chosen is said, not silently not run.
  if (!FileThere(txtRfile_->text(), "Report File: ") || !FileThere(txtDfile_->text(), "RDF File: "))
    return;
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
  runShown_.clear();
  runStart_ = std::chrono::steady_clock::now();
  prgRun_->setValue(0);
  prgRun_->show();
  SetMenusEnabled(false);
  cancelKey_->setEnabled(true);
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

// The statistics say what the run wrote: a failed run replaces nothing (the output, if there
// was one, is as it was), so it wrote nothing, whatever it counted before it failed. Below
// the figures, what else the run has to tell: why it failed, or the lines it dropped.
void MainWindow::RunEnd(bool ok) {
  worker_.join();
  const RunStats& stats = job_->Stats();
  lblRunTime_->setText(Q(stats.RunTimeText()));
  lblLinesWritten_->setText(ok && !stats.previousKept ? Q(stats.LinesWrittenText())
                                                      : QStringLiteral("Nothing Written"));
  lblLinesProcessed_->setText(Q(stats.LinesProcessedText()));
  QStringList findings;
  if (ok) {
    for (const std::string& line : job_->Findings()) findings << Q(line);
    if (stats.previousKept) {
      findings << "Cancelled before the end: the output that was there is kept as it was.";
    }
    QApplication::beep();
  } else {
    const std::optional<QbError>& error = job_->LastError();
    findings << (error ? Q(error->describe()) : QStringLiteral("The run failed."))
             << "Nothing was written. The log: " + Q(app_->Log().AppLogFile().string());
  }
  const QString launch = ok && !exitRequested_ && !stats.previousKept ? LaunchProblem() : QString();
  if (!launch.isEmpty()) findings << launch;
  lblFindings_->setText(findings.join('\n'));
  lblFindings_->setVisible(!findings.isEmpty());
  SetProgress(100);
  running_ = false;
  SetMenusEnabled(true);
  cancelKey_->setEnabled(false);
  lblPercent_->hide();
  prgRun_->hide();
  lblStatus_->setText(!ok               ? "Failed: nothing was written"
                      : stats.cancelled ? "** Cancelled **"
                                        : "Complete");
  btnRun_->show();
  btnCancel_->hide();
  fraStatistics_->show();
  fraFiles_->setEnabled(true);
  fraFileSettings_->setEnabled(true);
  dgdFields_->setEnabled(true);
  model_->Reload();
  statusBar()->clearMessage();
  QApplication::restoreOverrideCursor();
  if (!isMinimized()) setWindowTitle("Quillbrook");
  if (!ok) ShowFailure();
  if (!launch.isEmpty()) {
    dialogs_.message(this, launch, "Workbook Not Opened", MessageIcon::Exclamation);
  }
  emit runFinished();
  if (exitRequested_) close();
}

// A failed run's error is shown as the step that failed reported it, but not every step's
// box names the file (the output that could not be written, say) and a failure that no step
// reported would otherwise go unseen: unless a box of this run showed the error with its
// file, the window shows it.
void MainWindow::ShowFailure() {
  const std::optional<QbError>& error = job_->LastError();
  if (error) {
    const QString description = Q(error->description()).trimmed();
    const QString file = Q(error->file().string());
    const bool shown = std::any_of(runShown_.begin(), runShown_.end(), [&](const QString& text) {
      return text.contains(description) && (file.isEmpty() || text.contains(file));
    });
    if (shown) return;
  }
  dialogs_.message(this,
                   (error ? Q(error->describe()) : QStringLiteral("The run failed.")) +
                       "\r\rNothing was written. The log has the details: " +
                       Q(app_->Log().AppLogFile().string()),
                   "Run Failed", MessageIcon::Critical);
}

// Why the finished workbook could not be opened, or "". Launch method 1 (and any method but
// 2 and 3) only logs a spreadsheet program it cannot start, while the user waits for the
// workbook to open; the program is looked for as LaunchSpreadsheet looks for it.
QString MainWindow::LaunchProblem() const {
  const ConversionJob& job = *job_;
  if (!job.Request().launch || !IsWorkbook(job.Options().format)) return {};
  return Q(qb::LaunchProblem(job.Options().launchMethod, job.Request().output));
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
  if (frmConvertMany_ && frmConvertMany_->RunActive()) {
    // So does Exit during a Convert Many run, whose finished outputs stay.
    exitRequested_ = true;
    frmConvertMany_->close();  // cancels the run, and closes when it has ended
    event->ignore();
    return;
  }
  app_->Log().WriteLog("Quillbrook", "Closed...");
  event->accept();
}

void MainWindow::NewForm() {
  for (QLineEdit* box : {txtRfile_, txtDfile_, txtOfile_}) ShowIn(box, {});
  engine_->DestroyRecordsets();
  engine_->CreateRecordsets();
  model_->Reload();
  pane_->SetSource({}, {});
  fraStatistics_->hide();
  lblStatus_->clear();
  UpdateRunButton();
}

void MainWindow::SaveRdfAs() {
  QString path = dialogs_.saveFile(this, "Save RDF As ...", QtFilters(kRdfFilters), 1,
                                   Q(app_->Settings[Key::rdfdir]));
  if (path.isEmpty()) return;
  if (QFileInfo(path).suffix().isEmpty()) {
    // The picker asked about the name as typed; the RDF that has the name with ".rdf" is
    // asked about here.
    path += ".rdf";
    if (QFileInfo::exists(path) &&
        !dialogs_.question(this, path + " already exists.\rDo you want to replace it?",
                           "Save RDF As ...", MessageIcon::Exclamation)) {
      return;
    }
  }
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

void MainWindow::OpenDocument(const std::filesystem::path& file, const QString& what) {
  if (!std::filesystem::exists(file) ||
      !QDesktopServices::openUrl(QUrl::fromLocalFile(Q(file.string())))) {
    dialogs_.message(this, what + " cannot be opened: " + Q(file.string()), "Quillbrook",
                     MessageIcon::Exclamation);
  }
}

// The RDF in the RDF box, checked as loading reads it, in a window of its own that can stay
// open beside this one; checking again shows the new result in it.
void MainWindow::CheckRdfFile() {
  const QString path = txtDfile_->text().trimmed();
  if (path.isEmpty()) {
    dialogs_.message(this, "No RDF is named in the RDF box: choose the RDF to check first.",
                     "Check RDF", MessageIcon::Information);
    return;
  }
  const RdfCheckResult result = CheckRdf(S(path));
  QStringList lines;
  for (const RdfDiagnostic& d : result.diagnostics) lines << Q(FormatDiagnostic(d));
  lines << Q(CheckSummary(result));
  if (!frmCheckRdf_) {
    frmCheckRdf_ = new QDialog(this);
    frmCheckRdf_->setObjectName("frmCheckRdf");
    frmCheckRdf_->setAttribute(Qt::WA_DeleteOnClose);
    auto* layout = new QVBoxLayout(frmCheckRdf_);
    auto* text = new QPlainTextEdit(frmCheckRdf_);
    text->setObjectName("txtCheckRdf");
    text->setReadOnly(true);
    text->setLineWrapMode(QPlainTextEdit::NoWrap);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, frmCheckRdf_);
    connect(buttons, &QDialogButtonBox::rejected, frmCheckRdf_, &QDialog::reject);
    layout->addWidget(text);
    layout->addWidget(buttons);
    frmCheckRdf_->resize(900, 400);
  }
  frmCheckRdf_->setWindowTitle("Check RDF - " + QFileInfo(path).fileName());
  frmCheckRdf_->findChild<QPlainTextEdit*>("txtCheckRdf")->setPlainText(lines.join('\n'));
  frmCheckRdf_->show();
  frmCheckRdf_->raise();
  frmCheckRdf_->activateWindow();
}

// Convert Many is a window of its own beside this one, kept with its list when closed. Its
// batch runs with its own copy of the settings, so this window's runs and choices go on.
void MainWindow::ConvertMany() {
  if (!frmConvertMany_) {
    frmConvertMany_ = new ConvertManyDialog(*app_, dialogs_, this);
    connect(frmConvertMany_, &ConvertManyDialog::runFinished, this, [this] {
      if (exitRequested_) close();
    });
  }
  frmConvertMany_->show();
  frmConvertMany_->raise();
  frmConvertMany_->activateWindow();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  const QList<QUrl> urls = event->mimeData()->urls();
  if (!running_ &&
      std::any_of(urls.begin(), urls.end(), [](const QUrl& u) { return u.isLocalFile(); })) {
    event->acceptProposedAction();
  }
}

// Files dropped on the window are taken as if chosen: the reports first, so that an RDF
// dropped with its report is the one loaded rather than the one auto-find picks.
void MainWindow::dropEvent(QDropEvent* event) {
  if (running_) return;
  QStringList reports, rdfs;
  for (const QUrl& url : event->mimeData()->urls()) {
    if (url.isLocalFile()) (IsRdf(url.toLocalFile()) ? rdfs : reports) << url.toLocalFile();
  }
  if (reports.isEmpty() && rdfs.isEmpty()) return;
  event->acceptProposedAction();
  for (const QString& path : reports + rdfs) OpenChosen(path);
}

void MainWindow::OpenChosen(const QString& path) {
  if (IsRdf(path)) {
    ChooseRdf(path);
  } else {
    ChooseReport(path);
  }
}

// The recent files live in the program folder's log/qbrecent.txt, a path a line, the latest
// first. Not in qbcfg.ini: that file holds the settings the user saves, and only when they
// save, while this list changes with every file chosen. log/ is where the program writes as
// it runs (the program folder itself may be read-only), and the list stays with its program
// folder, as the settings do, so each --home keeps its own.
void MainWindow::LoadRecent() {
  recent_.clear();
  try {
    const QString text = Q(ReadWholeFile(app_->ProgramFolder() / "log" / "qbrecent.txt", "Recent"));
    for (const QString& line : text.split(QRegularExpression("[\r\n]+"), Qt::SkipEmptyParts)) {
      if (!recent_.contains(line) && recent_.size() < kRecentCount) recent_ << line;
    }
  } catch (const QbError&) {
    // no list yet
  }
  ShowRecent();
}

void MainWindow::Remember(const QString& path) {
  recent_.removeAll(path);
  recent_.prepend(path);
  while (recent_.size() > kRecentCount) recent_.removeLast();
  SaveRecent();
}

void MainWindow::Forget(const QString& path) {
  recent_.removeAll(path);
  SaveRecent();
}

void MainWindow::SaveRecent() {
  ShowRecent();
  try {
    WriteFileAtomically(app_->ProgramFolder() / "log" / "qbrecent.txt",
                        S(recent_.join("\r\n") + "\r\n"), "Recent");
  } catch (const QbError& e) {
    // The list is a convenience: the choice itself stands.
    app_->Log().WriteLog("Recent", "Not saved: " + e.describe());
  }
}

void MainWindow::ShowRecent() {
  // An entry may be the one being triggered now: it goes once its signal has been handled.
  for (QAction* a : mnuRecent_->actions()) {
    mnuRecent_->removeAction(a);
    a->setParent(nullptr);
    a->deleteLater();
  }
  for (int i = 0; i < recent_.size(); ++i) {
    const QString path = recent_[i];
    QAction* a =
        mnuRecent_->addAction(QString("&%1 %2").arg(i + 1).arg(QString(path).replace('&', "&&")));
    a->setObjectName(QString("mnuRecent%1").arg(i + 1));
    connect(a, &QAction::triggered, this, [this, path] {
      if (!QFileInfo(path).isFile()) Forget(path);
      OpenChosen(path);  // one that is gone is named in a message
    });
  }
  if (recent_.isEmpty()) mnuRecent_->addAction("No recent files")->setEnabled(false);
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
