// The window and its dialogs, driven through their widgets by object name. Message boxes and
// file pickers go through ScriptedDialogs, which records them and answers from a script.

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDropEvent>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <deque>
#include <fstream>
#include <sstream>

#include "cli/command.h"
#include "tests/test_support.h"
#include "ui/main_window.h"
#include "ui/settings_dialogs.h"

// Failures show texts as text.
inline void PrintTo(const QString& text, std::ostream* out) {
  *out << '"' << text.toStdString() << '"';
}

namespace qb::ui {
namespace {

using test::ReadFile;
using test::WriteFile;

class ScriptedDialogs final : public Dialogs {
 public:
  struct Shown {
    QString text, title;
    MessageIcon icon;
  };
  void message(QWidget*, const QString& text, const QString& title, MessageIcon icon) override {
    shown.push_back({text, title, icon});
  }
  bool question(QWidget*, const QString& text, const QString& title, MessageIcon icon) override {
    shown.push_back({text, title, icon});
    return answerYes;
  }
  QString openFile(QWidget*, const QString& title, const QString& filters, int selected,
                   const QString& folder) override {
    return pick(title, filters, selected, folder);
  }
  QString saveFile(QWidget*, const QString& title, const QString& filters, int selected,
                   const QString& folder) override {
    return pick(title, filters, selected, folder);
  }

  std::vector<Shown> shown;
  std::deque<QString> files;  // answers of the pickers, in order; "" cancels
  bool answerYes = true;
  QString lastTitle, lastFilters, lastFolder;
  int lastSelected = 0;

 private:
  QString pick(const QString& title, const QString& filters, int selected, const QString& folder) {
    lastTitle = title;
    lastFilters = filters;
    lastSelected = selected;
    lastFolder = folder;
    if (files.empty()) return {};
    QString f = files.front();
    files.pop_front();
    return f;
  }
};

const std::filesystem::path kSamples = QB_SAMPLES_DIR;

class WindowTest : public ::testing::Test {
 protected:
  WindowTest() {
    std::filesystem::create_directories(home_ / "log");
    std::filesystem::copy_file(std::filesystem::path(QB_SOURCE_DIR) / "settings" / "qbsys.txt",
                               home_ / "qbsys.txt");
    WriteFile(home_ / "qbcfg.ini", "[qbpaths]\r\nrdfdir=" + (home_ / "rdf").string() +
                                       "\r\nlogdir=" + home_.path().string() + "\r\n");
    std::filesystem::create_directories(home_ / "rdf");
    std::filesystem::copy_file(kSamples / "ARINV01.rdf", home_ / "rdf" / "ARINV01.rdf");
    window_ = std::make_unique<MainWindow>(home_.path(), dialogs_);
  }

  template <typename T>
  T* Find(const char* name) {
    T* w = window_->findChild<T*>(name);
    EXPECT_NE(w, nullptr) << name;
    return w;
  }
  QAction* Action(const char* name) { return Find<QAction>(name); }
  QString Text(const char* name) { return Find<QLineEdit>(name)->text(); }
  static QString Q(const std::filesystem::path& p) { return QString::fromStdString(p.string()); }
  // For typing and keys: a window that has the focus.
  void ShowActive() {
    window_->show();
    window_->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window_.get()));
  }
  // Types `text` into the named box and tabs out of it.
  QLineEdit* TypeAndLeave(const char* name, const QString& text) {
    auto* box = Find<QLineEdit>(name);
    box->setFocus();
    box->selectAll();
    QTest::keyClicks(box, text);
    QTest::keyClick(box, Qt::Key_Tab);
    return box;
  }
  // The sample invoice register's RDF with `from` replaced by `to` in it.
  std::filesystem::path ChangedRdf(const char* name, std::string_view from, std::string_view to) {
    std::string rdf = ReadFile(kSamples / "ARINV01.rdf");
    const size_t at = rdf.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) rdf.replace(at, from.size(), to);
    WriteFile(home_ / name, rdf);
    return home_ / name;
  }
  // The mistakes of the RDF guide's broken.rdf: an unknown action, a pickup into a field FLD
  // lacks (every line with a ship-to address is then dropped in part).
  std::filesystem::path BrokenRdf() {
    ChangedRdf("broken.rdf", "CUST,0,0,3,19,30,a,,hold", "CUST,0,0,3,19,30,a,,hld");
    std::string rdf = ReadFile(home_ / "broken.rdf");
    rdf.replace(rdf.find("ADDR,0,0,11,"), 12, "ADDR,0,0,12,");
    WriteFile(home_ / "broken.rdf", rdf);
    return home_ / "broken.rdf";
  }
  void WaitForRun() {
    QSignalSpy done(window_.get(), &MainWindow::runFinished);
    if (window_->RunActive()) {
      ASSERT_TRUE(done.wait(60000));
    }
  }
  std::string Log() const { return ReadFile(home_ / "log" / "qbuia.log"); }

  test::TempDir home_;
  ScriptedDialogs dialogs_;
  std::unique_ptr<MainWindow> window_;
};

TEST_F(WindowTest, StartUpWritesAFreshLogAndNeedsTheSystemsList) {
  WriteFile(home_ / "log" / "qbuia.log", "a line from the last start\r\n");
  ASSERT_TRUE(window_->Startup());
  EXPECT_EQ(Log().find("a line from the last start"), std::string::npos);
  EXPECT_NE(Log().find("Quillbrook            --- Started..."), std::string::npos);

  std::filesystem::remove(home_ / "qbsys.txt");
  MainWindow second(home_.path(), dialogs_);
  EXPECT_FALSE(second.Startup());
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, "Error: 513\rAutofind Settings File Does not Exist ");
}

TEST_F(WindowTest, ChoosingFilesSetsSettingsLoadsTheRdfAndEnablesRun) {
  ASSERT_TRUE(window_->Startup());
  auto* run = Find<QPushButton>("btnRun");
  EXPECT_FALSE(run->isEnabled());

  // The report picker: its title, filters and start folder; the RDF is found by file name.
  WriteFile(home_ / "ARINV01.log", "old per-report log");
  dialogs_.files = {QString::fromStdString((kSamples / "ARINV01.txt").string())};
  QTest::mouseClick(Find<QPushButton>("btnReport"), Qt::LeftButton);
  EXPECT_EQ(dialogs_.lastTitle, "Select a Report to Process ...");
  EXPECT_TRUE(dialogs_.lastFilters.startsWith("All Files (*.*);;Text files (*.txt);;PDF files"));
  EXPECT_EQ(window_->app().Settings[Key::rptdir], kSamples.string());
  EXPECT_FALSE(std::filesystem::exists(home_ / "ARINV01.log"));
  EXPECT_NE(Log().find("Report-Click          --- " + (kSamples / "ARINV01.txt").string()),
            std::string::npos);
  EXPECT_EQ(Find<QLineEdit>("txtDfile")->text().toStdString(),
            (home_ / "rdf" / "ARINV01.rdf").string());
  EXPECT_EQ(Find<QTableView>("dgdFields")->model()->rowCount(), 11);
  EXPECT_EQ(Find<QComboBox>("cboDelimiter")->currentText(), ",");  // the RDF's "DL,comma"

  // The output picker opens on the type's filter; the extension sets the type.
  window_->app().Settings.Item(Key::opfmt).Value = ".xls";
  dialogs_.files = {QString::fromStdString((home_ / "out.csv").string())};
  QTest::mouseClick(Find<QPushButton>("btnOutput"), Qt::LeftButton);
  EXPECT_EQ(dialogs_.lastSelected, 3);
  EXPECT_EQ(window_->app().Settings[Key::opfmt], ".csv");
  EXPECT_EQ(window_->app().Settings[Key::outdir], home_.path().string());
  EXPECT_TRUE(run->isEnabled());

  // A cancelled picker changes nothing.
  dialogs_.files = {""};
  QTest::mouseClick(Find<QPushButton>("btnRDF"), Qt::LeftButton);
  EXPECT_EQ(Find<QLineEdit>("txtDfile")->text().toStdString(),
            (home_ / "rdf" / "ARINV01.rdf").string());
  EXPECT_TRUE(dialogs_.shown.empty());
}

TEST_F(WindowTest, TypedNamesAreCheckedOnLeavingTheBox) {
  ShowActive();
  ASSERT_TRUE(window_->Startup());
  auto* box = TypeAndLeave("txtRfile", "/no/such/report.txt");
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, "Report File: /no/such/report.txt  \r\rDoes not exist.");
  EXPECT_EQ(dialogs_.shown[0].title, "File Not Found");
  EXPECT_EQ(dialogs_.shown[0].icon, MessageIcon::Critical);
  EXPECT_TRUE(box->hasFocus());
  EXPECT_NE(window_->app().Settings[Key::rptdir], "/no/such");

  auto* out = TypeAndLeave("txtOfile", "/no/folder/x.csv");
  ASSERT_EQ(dialogs_.shown.size(), 2u);
  EXPECT_EQ(dialogs_.shown[1].title, "File's Path Not Found");
  EXPECT_TRUE(out->hasFocus());
}

// What the program puts in a box was checked: leaving that box chooses nothing again (an RDF
// chosen after the report stays). A typed name that was refused is checked again when Run is
// pressed, and not run; nor is an RDF deleted since it was chosen.
TEST_F(WindowTest, ANameIsCheckedOnceAndARefusedOneIsNeverRun) {
  ShowActive();
  ASSERT_TRUE(window_->Startup());
  Find<QLineEdit>("txtRfile")->setFocus();
  window_->ChooseReport(Q(kSamples / "ARINV01.txt"));  // as a drop does, focus in the box
  std::filesystem::copy_file(kSamples / "ARINV01.rdf", home_ / "MINE.rdf");
  const QString chosen = Q(home_ / "MINE.rdf");
  window_->ChooseRdf(chosen);
  QTest::keyClick(Find<QLineEdit>("txtRfile"), Qt::Key_Tab);
  EXPECT_EQ(Text("txtDfile"), chosen);
  EXPECT_TRUE(dialogs_.shown.empty());

  TypeAndLeave("txtOfile", Q(home_ / "sales.csv"));
  ASSERT_TRUE(Find<QPushButton>("btnRun")->isEnabled());
  const QString refused = Q(home_ / "Sales (Q1).csv");  // "(" is not taken in a name
  auto* out = TypeAndLeave("txtOfile", refused);
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].title, "File's Path Not Found");
  Find<QTableView>("dgdFields")->setFocus();  // the box left with the name still in it
  dialogs_.shown.clear();
  QTest::keyClick(window_.get(), Qt::Key_F5);
  ASSERT_EQ(dialogs_.shown.size(), 1u);  // checked again by Run, refused again
  EXPECT_EQ(dialogs_.shown[0].title, "File's Path Not Found");
  EXPECT_TRUE(out->hasFocus());
  EXPECT_EQ(window_->Job(), nullptr);
  EXPECT_FALSE(std::filesystem::exists(refused.toStdString()));

  // A chosen RDF deleted since is said when Run is pressed.
  TypeAndLeave("txtOfile", Q(home_ / "sales.csv"));
  std::filesystem::remove(home_ / "MINE.rdf");
  dialogs_.shown.clear();
  QTest::keyClick(window_.get(), Qt::Key_F5);
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, "RDF File: " + chosen + "  \r\rDoes not exist.");
  EXPECT_EQ(window_->Job(), nullptr);
  std::filesystem::copy_file(kSamples / "ARINV01.rdf", home_ / "MINE.rdf");

  // Save RDF As: a name typed without ".rdf" is asked about as the file it becomes.
  dialogs_.files = {Q(home_ / "rdf" / "ARINV01")};
  dialogs_.answerYes = false;
  const std::string before = ReadFile(home_ / "rdf" / "ARINV01.rdf");
  Action("mnuSaveRDF")->trigger();
  EXPECT_EQ(dialogs_.shown.back().title, "Save RDF As ...");
  EXPECT_EQ(ReadFile(home_ / "rdf" / "ARINV01.rdf"), before);
}

// A report whose RDF auto-find cannot find: the message names the RDF it looked for and the
// RDF folder; the RDF box keeps what it had. A chosen RDF that is not there is named too.
TEST_F(WindowTest, MissingFilesAreNamedAsTheyWereLookedFor) {
  ASSERT_TRUE(window_->Startup());
  std::filesystem::copy_file(kSamples / "ARINV01.txt", home_ / "MARCH.txt");
  EXPECT_TRUE(window_->ChooseReport(Q(home_ / "MARCH.txt")));
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].title, "RDF Not Found");
  const QString lookedFor = Q(home_ / "rdf" / "MARCH.rdf");
  EXPECT_TRUE(dialogs_.shown[0].text.contains(lookedFor + "\rin the RDF folder (rdfdir)"));
  EXPECT_EQ(Text("txtDfile"), "");

  EXPECT_FALSE(window_->ChooseRdf(lookedFor));
  EXPECT_EQ(dialogs_.shown.back().text, "RDF File: " + lookedFor + "  \r\rDoes not exist.");
  EXPECT_EQ(Text("txtDfile"), "");
}

// Whatever changes the output type changes the output name's extension, and a name's
// extension changes the type: the file written is the one the box names, of its type.
TEST_F(WindowTest, TheOutputNameAndTypeAlwaysAgree) {
  ShowActive();
  ASSERT_TRUE(window_->Startup());
  window_->ChooseReport(Q(kSamples / "ARINV01.txt"));  // its RDF says OF,.csv
  const QString name = Q(home_ / "name");
  TypeAndLeave("txtOfile", name + ".csv");
  EXPECT_EQ(Text("txtOfile"), name + ".csv");
  EXPECT_TRUE(Action("mnuOutputcsv")->isChecked());

  window_->ChooseRdf(Q(ChangedRdf("ARINV01X.rdf", "OF,.csv", "OF,.xls")));
  EXPECT_EQ(Text("txtOfile"), name + ".xls");
  EXPECT_TRUE(Action("mnuOutputxls")->isChecked());
  EXPECT_FALSE(Action("mnuOutputcsv")->isChecked());

  Action("mnuOutputtxt")->trigger();
  EXPECT_EQ(Text("txtOfile"), name + ".txt");
  EXPECT_EQ(window_->app().Settings[Key::opfmt], ".txt");
  EXPECT_TRUE(Action("mnuOutputtxt")->isChecked());

  TypeAndLeave("txtOfile", Q(home_ / "other.XLS"));
  EXPECT_EQ(Text("txtOfile"), Q(home_ / "other.XLS"));
  EXPECT_EQ(window_->app().Settings[Key::opfmt], ".xls");
  EXPECT_TRUE(Action("mnuOutputxls")->isChecked());

  TypeAndLeave("txtOfile", Q(home_ / "jan.dat"));  // not an output type: part of the name
  EXPECT_EQ(Text("txtOfile"), Q(home_ / "jan.dat.xls"));

  QTest::keyClick(window_.get(), Qt::Key_F5);
  ASSERT_NE(window_->Job(), nullptr);
  WaitForRun();
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Complete");
  EXPECT_EQ(ReadFile(home_ / "jan.dat.xls").substr(0, 4), "\xD0\xCF\x11\xE0");  // a workbook
}

// The grid shows and takes the labels in the RDF's own encoding: Windows-1252, or UTF-8 after
// a byte-order mark; a character Windows-1252 lacks is kept as "?".
TEST_F(WindowTest, GridLabelsAreInTheRdfsEncoding) {
  ASSERT_TRUE(window_->Startup());
  std::string rdf = ReadFile(kSamples / "ARINV01.rdf");
  rdf.replace(rdf.find("Customer Name"), 13, "Kunde \x80");  // the euro sign
  WriteFile(home_ / "cp.rdf", rdf);
  WriteFile(home_ / "u8.rdf", "\xEF\xBB\xBF" + ReadFile(home_ / "cp.rdf")
                                                   .replace(rdf.find("Kunde \x80"), 7,
                                                            "Gr\xC3\xBC\xC3\x9F\xE2\x82\xAC"));
  QAbstractItemModel* model = Find<QTableView>("dgdFields")->model();
  Recordset& fields = window_->engine().tables.rsFields;
  auto label = [&] {  // field 3's label as the engine holds it
    fields.Filter("fldFLD = 3");
    std::string text(fields.GetText(col::Fields::fldLAB));
    fields.Filter("");
    return text;
  };
  window_->ChooseRdf(Q(home_ / "cp.rdf"));
  EXPECT_EQ(model->data(model->index(2, 2)).toString(), QString::fromUtf8("Kunde \u20ac"));
  ASSERT_TRUE(model->setData(model->index(2, 2), QString::fromUtf8("\u20ac \u0141"), Qt::EditRole));
  EXPECT_EQ(label(), "\x80 ?");
  window_->ChooseRdf(Q(home_ / "u8.rdf"));
  EXPECT_EQ(model->data(model->index(2, 2)).toString(), QString::fromUtf8("Gr\u00fc\u00df\u20ac"));
  ASSERT_TRUE(
      model->setData(model->index(2, 2), QString::fromUtf8("\u0141\u00f3d\u017a"), Qt::EditRole));
  EXPECT_EQ(label(),
            "\xC5\x81\xC3\xB3"
            "d\xC5\xBA");
}

TEST_F(WindowTest, TheGridChecksOrdersMovesAndGroupsFields) {
  ASSERT_TRUE(window_->Startup());
  window_->ChooseRdf(QString::fromStdString((kSamples / "ARINV01.rdf").string()));
  QAbstractItemModel* model = Find<QTableView>("dgdFields")->model();
  EXPECT_EQ(model->headerData(0, Qt::Horizontal).toString(), "Output");
  EXPECT_EQ(model->data(model->index(6, 0)).toString(), "N");  // Terms is not output
  EXPECT_FALSE(model->setData(model->index(0, 1), "100", Qt::EditRole));
  EXPECT_FALSE(model->setData(model->index(0, 1), "0", Qt::EditRole));
  ASSERT_EQ(dialogs_.shown.size(), 2u);
  EXPECT_EQ(dialogs_.shown[0].text, "Invalid Output Order number must be > 0 or <= 99");
  EXPECT_FALSE(model->setData(model->index(0, 1), "4a", Qt::EditRole));  // digits only
  EXPECT_FALSE(model->setData(model->index(0, 0), "x", Qt::EditRole));   // y or n
  EXPECT_TRUE(model->setData(model->index(6, 0), "y", Qt::EditRole));
  EXPECT_TRUE(model->setData(model->index(6, 1), "11", Qt::EditRole));

  // Group Fields: output fields first, by order; then a field moves up one place.
  Action("mnuGroupFields")->trigger();
  EXPECT_EQ(model->data(model->index(10, 2)).toString(), "Terms");
  auto* view = Find<QTableView>("dgdFields");
  view->setCurrentIndex(model->index(10, 0));
  QTest::mouseClick(Find<QPushButton>("cmdUp"), Qt::LeftButton);
  EXPECT_EQ(model->data(model->index(9, 2)).toString(), "Terms");
  EXPECT_EQ(model->data(model->index(9, 1)).toInt(), 10);
  EXPECT_EQ(model->data(model->index(10, 2)).toString(), "Ship To");

  // Deselect with no selection turns every field off, when the user says so.
  view->clearSelection();
  dialogs_.answerYes = false;
  Action("mnuDeselect")->trigger();
  EXPECT_EQ(dialogs_.shown.back().title, "Deselect");
  EXPECT_EQ(model->data(model->index(0, 0)).toString(), "Y");
  dialogs_.answerYes = true;
  Action("mnuDeselect")->trigger();
  for (int r = 0; r < model->rowCount(); ++r)
    EXPECT_EQ(model->data(model->index(r, 0)).toString(), "N");
}

// Moves go by output order whatever rows the grid shows around the field, and the run writes
// the columns as the grid then shows them.
TEST_F(WindowTest, MovesExchangeNeighboursInOutputOrder) {
  ASSERT_TRUE(window_->Startup());
  window_->ChooseReport(Q(kSamples / "ARINV01.txt"));
  auto* view = Find<QTableView>("dgdFields");
  QAbstractItemModel* model = view->model();
  auto labels = [model] {
    QStringList l;
    for (int r = 0; r < model->rowCount(); ++r) l << model->data(model->index(r, 2)).toString();
    return l;
  };
  auto move = [&](const QString& label, const char* button) {
    view->setCurrentIndex(model->index(static_cast<int>(labels().indexOf(label)), 0));
    QTest::mouseClick(Find<QPushButton>(button), Qt::LeftButton);
    return view->currentIndex().row();
  };
  // Record Type (row 0) by hand to order 8, Tax's: it now comes out just before Tax.
  ASSERT_TRUE(model->setData(model->index(0, 1), "8", Qt::EditRole));
  EXPECT_EQ(move("Tax", "cmdUp"), 7);
  EXPECT_EQ(labels(),
            QStringList({"Terms", "Customer", "Customer Name", "Invoice", "Invoice Date",
                         "PO Number", "Amount", "Tax", "Record Type", "Total", "Ship To"}));
  EXPECT_EQ(move("Ship To", "cmdDown"), 10);  // the last stays last
  EXPECT_EQ(move("Terms", "cmdDown"), 1);     // not output, but not sent to the end either
  EXPECT_EQ(labels().mid(0, 3), QStringList({"Customer", "Terms", "Customer Name"}));

  window_->ChooseOutput(Q(home_ / "moved.csv"));
  window_->Run();
  WaitForRun();
  EXPECT_EQ(test::ReadLines(home_ / "moved.csv").at(0),
            "Customer,Customer Name,Invoice,Invoice Date,PO Number,Amount,Tax,Record Type,Total,"
            "Ship To");
}

TEST_F(WindowTest, ARunWritesWhatQbconvertWrites) {
  ASSERT_TRUE(window_->Startup());
  window_->ChooseReport(QString::fromStdString((kSamples / "ARINV01.txt").string()));
  window_->ChooseOutput(QString::fromStdString((home_ / "out.csv").string()));
  QTest::mouseClick(Find<QPushButton>("btnRun"), Qt::LeftButton);
  EXPECT_FALSE(Action("mnuNew")->isEnabled());
  EXPECT_TRUE(Find<QPushButton>("btnCancel")->isVisibleTo(window_.get()));
  WaitForRun();
  EXPECT_EQ(ReadFile(home_ / "out.csv"),
            ReadFile(std::filesystem::path(QB_SOURCE_DIR) / "tests" / "golden" / "ARINV01.csv"));
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Complete");
  EXPECT_EQ(Find<QLabel>("lblLinesWritten")->text(), "15 Lines Written");
  EXPECT_EQ(Find<QLabel>("lblLinesProcessed")->text(), "40 Lines Processed");
  EXPECT_TRUE(Find<QLabel>("lblRunTime")->text().startsWith("Run Time: 00:0"));
  EXPECT_TRUE(Action("mnuNew")->isEnabled());

  // Again: the overwrite question; No changes nothing.
  dialogs_.answerYes = false;
  QTest::mouseClick(Find<QPushButton>("btnRun"), Qt::LeftButton);
  EXPECT_FALSE(window_->RunActive());
  EXPECT_EQ(dialogs_.shown.back().text,
            "Output file already exists.\nDo you want to Overwrite it?");
  EXPECT_EQ(dialogs_.shown.back().title, "File Found");
}

// The encoding box is the "encoding" setting: a UTF-8 report converts with its letters, and an
// RDF that names its report's encoding shows it in the box.
TEST_F(WindowTest, TheEncodingBoxReadsTheReportInItsEncoding) {
  ASSERT_TRUE(window_->Startup());
  std::string text = ReadFile(kSamples / "ARINV01.txt");
  text.replace(text.find("HARBORVIEW"), 10, "H\xC3\x96RBORVIEW");  // one column more a byte
  WriteFile(home_ / "utf8.txt", text);
  window_->ChooseReport(Q(home_ / "utf8.txt"));
  window_->ChooseRdf(Q(kSamples / "ARINV01.rdf"));
  auto* box = Find<QComboBox>("cboEncoding");
  EXPECT_EQ(box->currentText(), "automatic");
  box->setCurrentIndex(box->findText("utf-8"));
  EXPECT_EQ(window_->app().Settings[Key::encoding], "utf-8");
  window_->ChooseOutput(Q(home_ / "out.csv"));
  QTest::mouseClick(Find<QPushButton>("btnRun"), Qt::LeftButton);
  WaitForRun();
  const std::string out = ReadFile(home_ / "out.csv");
  EXPECT_NE(out.find(",C10045,H\xC3\x96RBORVIEW MARINE SUPPLY,100231,10/02/26,PO-7781,1234.50,"),
            std::string::npos)
      << out;

  std::string rdf = ReadFile(kSamples / "ARINV01.rdf");
  rdf += "EN,cp850\r\n";
  WriteFile(home_ / "cp850.rdf", rdf);
  window_->ChooseRdf(Q(home_ / "cp850.rdf"));
  EXPECT_EQ(box->currentText(), "cp850");
}

// A failed run says why, with the file where there is one, once, and claims no rows: a
// failed run replaces nothing.
TEST_F(WindowTest, AFailedRunSaysWhyAndClaimsNoRows) {
  ASSERT_TRUE(window_->Startup());
  std::string report;
  for (int i = 0; i < 70000; ++i) report += "D " + std::to_string(1000000 + i) + "\r\n";
  WriteFile(home_ / "big.txt", report);
  WriteFile(home_ / "big.rdf",
            "RDF 0001T Big@BIG\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,"
            "\r\nFLD\r\n1,y,c,1,0,Number,\r\n");
  window_->ChooseReport(Q(home_ / "big.txt"));
  window_->ChooseRdf(Q(home_ / "big.rdf"));
  window_->ChooseOutput(Q(home_ / "big.xls"));
  dialogs_.shown.clear();
  window_->Run();
  WaitForRun();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_TRUE(dialogs_.shown[0].text.contains("more than 65,536 rows"));
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Failed: nothing was written");
  EXPECT_TRUE(Find<QGroupBox>("fraStatistics")->isVisibleTo(window_.get()));
  EXPECT_EQ(Find<QLabel>("lblLinesWritten")->text(), "Nothing Written");
  EXPECT_EQ(Find<QLabel>("lblLinesProcessed")->text(), "70000 Lines Processed");
  EXPECT_TRUE(Find<QLabel>("lblFindings")->text().contains("more than 65,536 rows"));
  EXPECT_FALSE(std::filesystem::exists(home_ / "big.xls"));

  // The output named is a folder: the error's box names it, and it is told once.
  std::filesystem::create_directory(home_ / "folder.csv");
  window_->ChooseOutput(Q(home_ / "folder.csv"));
  dialogs_.shown.clear();
  window_->Run();
  WaitForRun();
  EXPECT_EQ(
      std::count_if(dialogs_.shown.begin(), dialogs_.shown.end(),
                    [](const auto& m) { return m.text.contains("The output is not a file"); }),
      1);
  EXPECT_TRUE(dialogs_.shown.back().text.contains("The output is not a file"));
  EXPECT_TRUE(dialogs_.shown.back().text.contains(Q(home_ / "folder.csv")));
  EXPECT_EQ(Find<QLabel>("lblLinesWritten")->text(), "Nothing Written");
}

// A run that completed tells what it found besides its figures; a workbook that cannot be
// opened afterwards is said too.
TEST_F(WindowTest, ARunTellsItsFindingsAndAFailedLaunch) {
  ASSERT_TRUE(window_->Startup());
  window_->ChooseReport(Q(kSamples / "ARINV01.txt"));
  window_->ChooseRdf(Q(BrokenRdf()));
  window_->ChooseOutput(Q(home_ / "out.csv"));
  window_->Run();
  WaitForRun();
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Complete");
  const QString findings = Find<QLabel>("lblFindings")->text();
  EXPECT_TRUE(findings.startsWith("completed, but 3 report lines were dropped"))
      << findings.toStdString();
  EXPECT_TRUE(findings.contains("ARINV01.txt:8: RDF " + Q(home_ / "broken.rdf") + ":30:"));

  qputenv("QUILLBROOK_SPREADSHEET", "/no/such/spreadsheet");
  window_->ChooseRdf(Q(kSamples / "ARINV01.rdf"));
  window_->ChooseOutput(Q(home_ / "out.xls"));
  Find<QCheckBox>("chkLaunchExcel")->setChecked(true);
  window_->Run();
  WaitForRun();
  qunsetenv("QUILLBROOK_SPREADSHEET");
  EXPECT_EQ(Find<QLabel>("lblLinesWritten")->text(), "15 Lines Written");
  EXPECT_EQ(dialogs_.shown.back().title, "Workbook Not Opened");
  EXPECT_TRUE(dialogs_.shown.back().text.contains("/no/such/spreadsheet"));
  EXPECT_FALSE(Find<QLabel>("lblFindings")->text().contains("dropped"));
}

// Every shipped sample, in every output type, through the window and through qbconvert's
// command: the two front ends build the same job, so the outputs are the same bytes.
TEST_F(WindowTest, EverySampleComesOutOfTheWindowAsOutOfQbconvert) {
  std::filesystem::create_directories(home_ / "out");  // PDF and delimited work files
  ASSERT_TRUE(window_->Startup());
  std::ifstream list(kSamples / "samples.txt");
  int compared = 0;
  for (std::string line; std::getline(list, line);) {
    std::istringstream fields(line);
    std::string report, rdf;
    if (line.empty() || line[0] == '#' || !(fields >> report >> rdf)) continue;
    for (const char* ext : {".txt", ".csv", ".xls"}) {
      const std::string name = std::filesystem::path(report).stem().string() + "-" + rdf + ext;
      const auto byWindow = home_ / ("window-" + name);
      const auto byCommand = home_ / ("command-" + name);
      window_->ChooseReport(QString::fromStdString((kSamples / report).string()));
      window_->ChooseRdf(QString::fromStdString((kSamples / rdf).string()));
      window_->ChooseOutput(QString::fromStdString(byWindow.string()));
      window_->Run();
      WaitForRun();
      ASSERT_NE(window_->Job(), nullptr);
      EXPECT_TRUE(window_->Job()->Stats().finished) << name;

      const std::string home = home_.path().string(), from = (kSamples / report).string(),
                        with = (kSamples / rdf).string(), to = byCommand.string();
      const char* args[] = {"--home",     home.c_str(), "--report", from.c_str(), "--rdf",
                            with.c_str(), "--output",   to.c_str(), "--quiet"};
      EXPECT_EQ(cli::RunCommand(args), 0) << name;
      ASSERT_TRUE(std::filesystem::exists(byWindow)) << name;
      EXPECT_EQ(ReadFile(byWindow), ReadFile(byCommand)) << name;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 33);  // eleven samples, three output types
}

class BigRunTest : public WindowTest {
 protected:
  BigRunTest() {
    std::string report;
    report.reserve(static_cast<size_t>(kLines) * 12);
    for (int i = 0; i < kLines; ++i) report += "D " + std::to_string(1000000 + i) + "\r\n";
    WriteFile(home_ / "big.txt", report);
    WriteFile(
        home_ / "big.rdf",
        "RDF 0001T Big@BIG\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\n"
        "DET,0,0,2,1,1,=,,\r\nFLD\r\n1,y,c,1,0,Number,\r\n2,y,c,2,0,Code,\r\n");
  }
  // Starts the run; `settle`: returns once it is under way (2%).
  void StartBigRun(bool settle = true) {
    ASSERT_TRUE(window_->Startup());
    window_->ChooseReport(QString::fromStdString((home_ / "big.txt").string()));
    window_->ChooseRdf(QString::fromStdString((home_ / "big.rdf").string()));
    window_->ChooseOutput(QString::fromStdString((home_ / "big.csv").string()));
    window_->Run();
    ASSERT_TRUE(window_->RunActive());
    if (settle) QTRY_VERIFY_WITH_TIMEOUT(Find<QProgressBar>("prgRun")->value() >= 2, 30000);
  }
  static constexpr int kLines = 3000000;
};

TEST_F(BigRunTest, EscapeCancelsAndKeepsTheRowsSoFar) {
  ShowActive();
  StartBigRun();
  EXPECT_TRUE(Find<QPushButton>("btnCancel")->isVisible());
  QTest::keyClick(window_.get(), Qt::Key_Escape);
  WaitForRun();
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "** Cancelled **");
  const RunStats& stats = window_->Job()->Stats();
  EXPECT_TRUE(stats.cancelled);
  EXPECT_GT(stats.linesWritten, 0);
  EXPECT_LT(stats.linesProcessed, kLines);
  EXPECT_EQ(test::ReadLines(home_ / "big.csv").size(), static_cast<size_t>(stats.linesWritten) + 1);
}

// The grid is repainted and edited from the moment Run is pressed, while the run reads the
// fields and goes on: the run writes the columns the grid showed when Run was pressed, every
// row whole. (Under ThreadSanitizer this also shows that the run and the grid share no table.)
TEST_F(BigRunTest, TheGridCanBeEditedWhileARunGoes) {
  window_->show();
  StartBigRun(/*settle=*/false);
  auto* grid = Find<QTableView>("dgdFields");
  QAbstractItemModel* model = grid->model();
  int edits = 0;
  while (window_->RunActive() && edits < 400) {
    const int order = 1 + edits % 2;
    model->setData(model->index(0, 1), QString::number(order + 1), Qt::EditRole);
    model->setData(model->index(1, 1), QString::number(order), Qt::EditRole);
    grid->viewport()->repaint();
    QApplication::processEvents();
    ++edits;
  }
  EXPECT_GT(edits, 0);
  WaitForRun();
  const std::vector<std::string> lines = test::ReadLines(home_ / "big.csv");
  ASSERT_EQ(lines.size(), static_cast<size_t>(kLines) + 1);
  EXPECT_EQ(lines[0], "Number,Code");
  for (size_t i = 1; i < lines.size(); i += 99991) {
    EXPECT_EQ(lines[i], std::to_string(1000000 + i - 1) + ",D") << i;
  }
  EXPECT_EQ(lines.back(), std::to_string(1000000 + kLines - 1) + ",D");
}

TEST_F(BigRunTest, ExitDuringARunCancelsItAndThenCloses) {
  window_->show();
  StartBigRun();
  Action("mnuExit")->trigger();
  EXPECT_TRUE(window_->isVisible());  // not yet: the run ends first
  WaitForRun();
  EXPECT_FALSE(window_->isVisible());
  EXPECT_TRUE(window_->Job()->Stats().cancelled);
  EXPECT_NE(Log().find("Quillbrook            --- Closed..."), std::string::npos);
}

// Alt and a letter reaches one thing: the menu titles, labels, buttons and check boxes of the
// window share one set of mnemonics, and each menu's entries another.
TEST_F(WindowTest, EveryMnemonicIsItsOwn) {
  auto unique = [](const QStringList& texts, const char* where) {
    QStringList keys;
    for (const QString& t : texts) {
      const QString key = QKeySequence::mnemonic(t).toString();
      if (key.isEmpty()) continue;
      EXPECT_FALSE(keys.contains(key))
          << where << ": " << t.toStdString() << " has " << key.toStdString();
      keys << key;
    }
    return keys.size();
  };
  QStringList window;
  for (QAction* a : window_->menuBar()->actions()) window << a->text();
  for (QLabel* l : window_->findChildren<QLabel*>()) window << l->text();
  for (QAbstractButton* b : window_->findChildren<QAbstractButton*>()) window << b->text();
  EXPECT_GE(unique(window, "window"), 16);
  for (QMenu* menu : window_->findChildren<QMenu*>()) {
    QStringList entries;
    for (QAction* a : menu->actions()) entries << a->text();
    unique(entries, menu->title().toStdString().c_str());
  }
}

TEST_F(WindowTest, HelpNamesTheGuideItCannotOpen) {
  ASSERT_TRUE(window_->Startup());
  Action("mnuRdfGuide")->trigger();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text,
            "The RDF format guide cannot be opened: " + Q(home_ / "system" / "rdf-format.md"));
}

// Files dropped on the window are chosen (the report before the RDF, whatever their order),
// and the File menu keeps the last five chosen, the latest first, each once.
TEST_F(WindowTest, DroppedFilesAreChosenAndRemembered) {
  ASSERT_TRUE(window_->Startup());
  QMimeData mime;
  mime.setUrls({QUrl::fromLocalFile(Q(kSamples / "ARINV01S.rdf")),
                QUrl::fromLocalFile(Q(kSamples / "ARINV01.txt"))});
  QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(window_.get(), &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(window_.get(), &drop);
  EXPECT_TRUE(drop.isAccepted());
  EXPECT_EQ(Text("txtRfile"), Q(kSamples / "ARINV01.txt"));
  EXPECT_EQ(Text("txtDfile"), Q(kSamples / "ARINV01S.rdf"));  // not the one auto-find found
  // A folder is said to be one, with where its reports are converted.
  QMimeData folder;
  folder.setUrls({QUrl::fromLocalFile(Q(home_.path()))});
  QDragEnterEvent enterFolder(QPoint(10, 10), Qt::CopyAction, &folder, Qt::LeftButton,
                              Qt::NoModifier);
  QApplication::sendEvent(window_.get(), &enterFolder);
  QDropEvent dropFolder(QPointF(10, 10), Qt::CopyAction, &folder, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(window_.get(), &dropFolder);
  ASSERT_FALSE(dialogs_.shown.empty());
  EXPECT_EQ(dialogs_.shown.back().title, "Not a File");
  EXPECT_TRUE(dialogs_.shown.back().text.contains("Convert Many"))
      << dialogs_.shown.back().text.toStdString();
  EXPECT_EQ(Text("txtRfile"), Q(kSamples / "ARINV01.txt"));

  auto recent = [this] {
    QStringList paths;
    for (QAction* a : Find<QMenu>("mnuRecent")->actions()) paths << a->text().section(' ', 1);
    return paths;
  };
  EXPECT_EQ(recent(), QStringList({Q(kSamples / "ARINV01S.rdf"), Q(kSamples / "ARINV01.txt")}));
  window_->ChooseReport(Q(kSamples / "APCHK01.txt"));
  window_->ChooseRdf(Q(kSamples / "GLDET01.rdf"));
  window_->ChooseReport(Q(kSamples / "ARAGE02.txt"));
  window_->ChooseRdf(Q(kSamples / "ORDERS.rdf"));
  window_->ChooseReport(Q(kSamples / "APCHK01.txt"));
  const QStringList five = {Q(kSamples / "APCHK01.txt"), Q(kSamples / "ORDERS.rdf"),
                            Q(kSamples / "ARAGE02.txt"), Q(kSamples / "GLDET01.rdf"),
                            Q(kSamples / "ARINV01S.rdf")};
  EXPECT_EQ(recent(), five);

  // Kept for the next start; an entry whose file has gone is said and dropped.
  window_ = std::make_unique<MainWindow>(home_.path(), dialogs_);
  ASSERT_TRUE(window_->Startup());
  EXPECT_EQ(recent(), five);
  std::filesystem::copy_file(kSamples / "ORDERS.rdf", home_ / "gone.rdf");
  window_->ChooseRdf(Q(home_ / "gone.rdf"));
  std::filesystem::remove(home_ / "gone.rdf");
  Find<QMenu>("mnuRecent")->actions().at(0)->trigger();
  EXPECT_EQ(dialogs_.shown.back().text,
            "RDF File: " + Q(home_ / "gone.rdf") + "  \r\rDoes not exist.");
  EXPECT_EQ(recent(), five.mid(0, 4));
}

TEST_F(WindowTest, CheckRdfShowsWhatIsWrongInTheRdfBox) {
  ASSERT_TRUE(window_->Startup());
  Action("mnuCheckRDF")->trigger();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text,
            "No RDF is named in the RDF box: choose the RDF to check first.");

  Find<QLineEdit>("txtDfile")->setText(Q(BrokenRdf()));
  Action("mnuCheckRDF")->trigger();
  auto* form = Find<QDialog>("frmCheckRdf");
  ASSERT_NE(form, nullptr);
  EXPECT_TRUE(form->isVisible());
  auto* text = form->findChild<QPlainTextEdit*>("txtCheckRdf");
  EXPECT_TRUE(text->isReadOnly());
  const QStringList lines = text->toPlainText().split('\n');
  ASSERT_EQ(lines.size(), 4);
  const QString file = Q(home_ / "broken.rdf");
  EXPECT_TRUE(lines[0].startsWith(file + ":20: error: DLC column 9, the action, is \"hld\""));
  EXPECT_TRUE(lines[1].startsWith(file + ":30: error: DLC column 4, the field, is 12"));
  EXPECT_TRUE(lines[2].startsWith(file + ":53: warning: Field 11 (Ship To)"));
  EXPECT_EQ(lines[3], "broken.rdf: 2 errors, 1 warning");

  // Checked again once mended: the same window, the new result.
  std::filesystem::copy_file(kSamples / "ARINV01.rdf", home_ / "broken.rdf",
                             std::filesystem::copy_options::overwrite_existing);
  Action("mnuCheckRDF")->trigger();
  EXPECT_EQ(Find<QDialog>("frmCheckRdf"), form);
  EXPECT_EQ(text->toPlainText(), "broken.rdf: 0 errors, 0 warnings");
  form->close();
}

TEST_F(WindowTest, ConfigurationOptionsSavesOnlyItsKeys) {
  ASSERT_TRUE(window_->Startup());
  Application& app = window_->app();
  app.Settings.Item(Key::delim).Value = "tab";  // changed in memory only
  {
    ConfigOptionsDialog dialog(app, dialogs_);
    auto* system = dialog.findChild<QComboBox*>("cboSystem");
    EXPECT_EQ(system->currentText(), "Default - By Filename");
    EXPECT_FALSE(dialog.findChild<QPushButton*>("btnSave")->isEnabled());
    dialog.findChild<QPushButton*>("btnClose")->click();
    EXPECT_TRUE(dialogs_.shown.empty());  // nothing changed: no message
  }
  {
    ConfigOptionsDialog dialog(app, dialogs_);
    dialog.show();
    auto* excel = dialog.findChild<QGroupBox*>("fraExcelSettings");
    EXPECT_TRUE(excel->isVisible());
    auto* system = dialog.findChild<QComboBox*>("cboSystem");
    system->setCurrentIndex(system->findText("Harbor Payroll"));
    emit system->activated(system->currentIndex());
    dialog.findChild<QComboBox*>("cboBuffer")->setCurrentText("3");
    dialog.findChild<QComboBox*>("cboLaunch")->setCurrentText("2");
    dialog.findChild<QPushButton*>("btnSave")->click();
    dialog.findChild<QPushButton*>("btnClose")->click();
  }
  const std::string ini = ReadFile(home_ / "qbcfg.ini");
  EXPECT_NE(ini.find("pfset=Harbor Payroll,1,100,10,-\r\n"), std::string::npos);
  EXPECT_NE(ini.find("rmode=3\r\n"), std::string::npos);
  EXPECT_NE(ini.find("lmeth=2\r\n"), std::string::npos);
  EXPECT_EQ(ini.find("delim"), std::string::npos);
  EXPECT_TRUE(dialogs_.shown.empty());

  // A change not saved: "Changes Cancelled".
  ConfigOptionsDialog dialog(app, dialogs_);
  emit dialog.findChild<QComboBox*>("cboLaunch")->activated(0);
  dialog.findChild<QPushButton*>("btnClose")->click();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, "Changes Cancelled");
}

TEST_F(WindowTest, SaveCurrentSettingsWritesEveryKey) {
  ASSERT_TRUE(window_->Startup());
  Application& app = window_->app();
  app.Settings.Item(Key::exswt).Value = "0";
  CurrentSettingsDialog dialog(app, dialogs_);
  EXPECT_EQ(dialog.findChild<QLineEdit*>("txtExcelSwitch")->text(), "no");
  EXPECT_EQ(dialog.findChild<QLineEdit*>("txtRecType")->text(), "All Records");
  dialog.findChild<QPushButton*>("cmdSave")->click();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, "Current Settings Saved");
  EXPECT_EQ(dialogs_.shown[0].title, "Settings Saved");
  const clsKeys saved = LoadSettings(home_.path(), kSettingsFileName);
  for (const clsKey& k : app.Settings) EXPECT_EQ(saved.ItemNamed(k.Name).Value, k.Value) << k.Name;
  EXPECT_NE(ReadFile(home_ / "qbcfg.ini").find("exswt=0"), std::string::npos);
}

// A settings file that cannot be written: both dialogs say so, name the file, and take no
// snapshot (the settings were not saved).
TEST_F(WindowTest, ASaveThatFailsSaysSoAndTakesNoSnapshot) {
  ASSERT_TRUE(window_->Startup());
  Application& app = window_->app();
  std::filesystem::remove(home_ / "qbcfg.ini");
  std::filesystem::create_directory(home_ / "qbcfg.ini");  // cannot be replaced, even as root
  const QString notSaved =
      QString::fromStdString("The settings file " + (home_ / "qbcfg.ini").string() +
                             " could not be written: Path/File access error.\rThe settings "
                             "were not saved.");
  app.Settings.Item(Key::exswt).Value = "0";
  {
    CurrentSettingsDialog dialog(app, dialogs_);
    dialog.findChild<QPushButton*>("cmdSave")->click();
    ASSERT_EQ(dialogs_.shown.size(), 1u);
    EXPECT_EQ(dialogs_.shown[0].text, notSaved);
    EXPECT_EQ(dialogs_.shown[0].title, "Settings Not Saved");
    EXPECT_EQ(app.SavedSettings[Key::exswt], "1");
    EXPECT_NE(dialog.result(), QDialog::Accepted);
  }
  dialogs_.shown.clear();
  ConfigOptionsDialog dialog(app, dialogs_);
  dialog.show();
  auto* system = dialog.findChild<QComboBox*>("cboSystem");
  system->setCurrentIndex(system->findText("Harbor Payroll"));
  emit system->activated(system->currentIndex());
  dialog.findChild<QPushButton*>("btnSave")->click();
  ASSERT_EQ(dialogs_.shown.size(), 1u);
  EXPECT_EQ(dialogs_.shown[0].text, notSaved);
  EXPECT_TRUE(dialog.findChild<QPushButton*>("btnSave")->isEnabled());
  EXPECT_EQ(app.Settings[Key::pfset], "Default - By Filename,0,1,1,.");
  EXPECT_EQ(app.SavedSettings[Key::pfset], "Default - By Filename,0,1,1,.");
  dialog.findChild<QPushButton*>("btnClose")->click();
  ASSERT_EQ(dialogs_.shown.size(), 2u);
  EXPECT_EQ(dialogs_.shown[1].text, "Changes Cancelled");
}

}  // namespace
}  // namespace qb::ui

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
