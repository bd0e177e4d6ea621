// File > Convert Many, offscreen: reports added with the pickers or dropped on the dialog get
// their RDFs and convert to what single runs of qbconvert write; a report without an RDF
// says why and the others go on; Cancel, Escape and Close during a run keep the outputs
// finished so far.

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTest>
#include <QUrl>
#include <deque>

#include "cli/command.h"
#include "tests/test_support.h"
#include "ui/convert_many.h"
#include "ui/main_window.h"

namespace qb::ui {
namespace {

using test::ReadFile;
using test::WriteFile;
namespace fs = std::filesystem;

const fs::path kSamples = QB_SAMPLES_DIR;

// Answers the pickers from a script; remembers the messages.
class PickingDialogs final : public Dialogs {
 public:
  void message(QWidget*, const QString& text, const QString&, MessageIcon) override {
    shown << text;
  }
  bool question(QWidget*, const QString&, const QString&, MessageIcon) override { return true; }
  QString openFile(QWidget*, const QString&, const QString&, int, const QString&) override {
    return {};
  }
  QString saveFile(QWidget*, const QString&, const QString&, int, const QString&) override {
    return {};
  }
  QStringList openFiles(QWidget*, const QString&, const QString&, int, const QString&) override {
    return Next(files);
  }
  QString openFolder(QWidget*, const QString&, const QString&) override { return Next(folders); }

  std::deque<QStringList> files;
  std::deque<QString> folders;
  QStringList shown;

 private:
  template <typename T>
  static T Next(std::deque<T>& answers) {
    if (answers.empty()) return {};
    T answer = answers.front();
    answers.pop_front();
    return answer;
  }
};

enum Column { kReport, kRdf, kOutput, kRows, kLines, kTime, kResult };

class ConvertManyTest : public ::testing::Test {
 protected:
  ConvertManyTest() {
    fs::create_directories(home_ / "log");
    fs::create_directories(home_ / "rdf");
    fs::create_directories(home_ / "single");
    fs::copy_file(fs::path(QB_SOURCE_DIR) / "settings" / "qbsys.txt", home_ / "qbsys.txt");
    WriteFile(home_ / "qbcfg.ini", "[qbpaths]\r\nrdfdir=" + (home_ / "rdf").string() +
                                       "\r\nlogdir=" + home_.path().string() + "\r\n");
    window_ = std::make_unique<MainWindow>(home_.path(), dialogs_);
    EXPECT_TRUE(window_->Startup());
  }

  static QString Q(const fs::path& p) { return QString::fromStdString(p.string()); }

  // File > Convert Many, as .csv.
  ConvertManyDialog* Open() {
    window_->findChild<QAction*>("mnuConvertMany")->trigger();
    dialog_ = window_->findChild<ConvertManyDialog*>("frmConvertMany");
    EXPECT_NE(dialog_, nullptr);
    EXPECT_TRUE(dialog_->isVisible());
    Find<QComboBox>("cboOutputType")->setCurrentText(".csv");
    return dialog_;
  }
  template <typename T>
  T* Find(const char* name) {
    T* w = dialog_->findChild<T*>(name);
    EXPECT_NE(w, nullptr) << name;
    return w;
  }
  void Click(const char* button) { QTest::mouseClick(Find<QPushButton>(button), Qt::LeftButton); }
  void WaitForRun() {
    QSignalSpy done(dialog_, &ConvertManyDialog::runFinished);
    if (dialog_->RunActive()) {
      ASSERT_TRUE(done.wait(120000));
    }
  }

  // The table's row of the report named `name`, and its cells.
  int Row(const std::string& name) {
    auto* table = Find<QTableWidget>("tblReports");
    for (int row = 0; row < table->rowCount(); ++row) {
      if (table->item(row, kReport)->text().toStdString() == name) return row;
    }
    ADD_FAILURE() << name << " is not in the table";
    return 0;
  }
  std::string Cell(const std::string& report, Column column) {
    return Find<QTableWidget>("tblReports")->item(Row(report), column)->text().toStdString();
  }
  // The result word, without the message.
  std::string Result(const std::string& report) {
    const std::string cell = Cell(report, kResult);
    return cell.substr(0, cell.find(':'));
  }
  std::string Tip(const std::string& report, Column column) {
    return Find<QTableWidget>("tblReports")->item(Row(report), column)->toolTip().toStdString();
  }

  // What qbconvert writes for the report with the RDF.
  std::string SingleRun(const fs::path& report, const fs::path& rdf) {
    const fs::path output = home_ / "single" / (report.stem().string() + ".csv");
    const std::string home = home_.path().string(), from = report.string(), with = rdf.string(),
                      to = output.string();
    const char* args[] = {"--home",     home.c_str(), "--report", from.c_str(), "--rdf",
                          with.c_str(), "--output",   to.c_str(), "--quiet"};
    EXPECT_EQ(cli::RunCommand(args), cli::kExitOk) << from;
    return ReadFile(output);
  }

  test::TempDir home_;
  PickingDialogs dialogs_;
  std::unique_ptr<MainWindow> window_;
  ConvertManyDialog* dialog_ = nullptr;
};

// A folder of reports and a folder of their RDFs, named so that auto-find finds none: each
// report is shown with the RDF that identifies it (the source system names the line where
// each report prints its program) before the run, and comes out as a single run writes it.
TEST_F(ConvertManyTest, EachReportGetsItsRdfAndComesOutAsFromASingleRun) {
  const fs::path reports = home_ / "reports", rdfs = home_ / "rdfs";
  fs::create_directories(reports);
  fs::create_directories(rdfs);
  window_->app().SavedSettings.Item(Key::pfset).Value = "Ledgerline Financials,1,1,8, ";
  const std::vector<std::string> names = {"APCHK01", "ARAGE02", "GLDET01"};
  for (const std::string& name : names) {
    fs::copy_file(kSamples / (name + ".txt"), reports / (name + ".txt"));
    fs::copy_file(kSamples / (name + ".rdf"), rdfs / ("id-" + name + ".rdf"));
  }
  Open();
  dialogs_.folders = {Q(reports), Q(rdfs)};
  Click("btnAddFolder");
  Click("btnRdfFolder");
  ASSERT_EQ(Find<QTableWidget>("tblReports")->rowCount(), 3);
  for (const std::string& name : names) {
    EXPECT_EQ(Cell(name + ".txt", kRdf), "id-" + name + ".rdf (identification)");
    EXPECT_EQ(Tip(name + ".txt", kRdf), (rdfs / ("id-" + name + ".rdf")).string());
    EXPECT_EQ(Tip(name + ".txt", kOutput), (reports / (name + ".csv")).string());  // beside it
    EXPECT_EQ(Result(name + ".txt"), "planned");
  }

  Click("btnRun");
  EXPECT_TRUE(dialog_->RunActive());
  EXPECT_TRUE(Find<QPushButton>("btnCancel")->isVisible());
  WaitForRun();
  for (const std::string& name : names) {
    const fs::path output = reports / (name + ".csv");
    EXPECT_EQ(Result(name + ".txt"), "done");
    EXPECT_EQ(ReadFile(output),
              SingleRun(reports / (name + ".txt"), rdfs / ("id-" + name + ".rdf")))
        << name;
    EXPECT_EQ(Cell(name + ".txt", kRows), std::to_string(test::ReadLines(output).size() - 1));
  }
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Finished: 3 done");
  EXPECT_TRUE(dialogs_.shown.isEmpty());
}

// Reports dropped on the dialog, their RDFs found by auto-find in the RDF folder setting:
// one has none, says so before and after the run, and the other is converted all the same.
TEST_F(ConvertManyTest, AReportWithoutAnRdfSaysWhyAndTheOthersAreConverted) {
  Open();
  EXPECT_FALSE(Find<QPushButton>("btnRun")->isEnabled());  // nothing to convert yet
  const fs::path in = home_ / "in";
  fs::create_directories(in);
  fs::copy_file(kSamples / "ARAGE02.txt", in / "ARAGE02.txt");
  fs::copy_file(kSamples / "ARAGE02.rdf", home_ / "rdf" / "ARAGE02.rdf");
  WriteFile(in / "NOTES.txt", "Things to do on Monday\r\nCall the bank\r\n");
  QMimeData mime;
  mime.setUrls(
      {QUrl::fromLocalFile(Q(in / "NOTES.txt")), QUrl::fromLocalFile(Q(in / "ARAGE02.txt"))});
  QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(dialog_, &enter);
  EXPECT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(dialog_, &drop);
  ASSERT_EQ(Find<QTableWidget>("tblReports")->rowCount(), 2);
  EXPECT_EQ(Cell("ARAGE02.txt", kRdf), "ARAGE02.rdf (auto-find)");
  EXPECT_EQ(Cell("NOTES.txt", kRdf), "");
  const std::string why = Cell("NOTES.txt", kResult);
  EXPECT_TRUE(why.starts_with("failed: ") && why.size() > 10) << why;

  Click("btnRun");
  WaitForRun();
  EXPECT_EQ(Result("ARAGE02.txt"), "done");
  EXPECT_EQ(ReadFile(in / "ARAGE02.csv"), SingleRun(in / "ARAGE02.txt", kSamples / "ARAGE02.rdf"));
  EXPECT_EQ(Cell("NOTES.txt", kResult), why);
  EXPECT_FALSE(fs::exists(in / "NOTES.csv"));
  EXPECT_EQ(Find<QLabel>("lblStatus")->text(), "Finished: 1 done, 1 failed");
}

// A report long enough to be stopped: Escape cancels it once the short ones are done and
// leaves their outputs; run again skipping them, Close cancels it and the dialog goes when
// the run has ended.
TEST_F(ConvertManyTest, CancelAndCloseMidRunKeepTheFinishedOutputs) {
  const fs::path in = home_ / "in";
  fs::create_directories(in);
  for (const char* name : {"ARINV01", "ARAGE02"}) {
    fs::copy_file(kSamples / (std::string(name) + ".txt"), in / (std::string(name) + ".txt"));
    fs::copy_file(kSamples / (std::string(name) + ".rdf"),
                  home_ / "rdf" / (std::string(name) + ".rdf"));
  }
  std::string big;
  for (int i = 0; i < 3000000; ++i) big += "D " + std::to_string(1000000 + i) + "\r\n";
  WriteFile(in / "BIG.txt", big);
  WriteFile(home_ / "rdf" / "BIG.rdf",
            "RDF 0001T Big@BIG\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\n"
            "FLD\r\n1,y,c,1,0,Number,\r\n");
  Open();
  dialogs_.files = {{Q(in / "ARINV01.txt"), Q(in / "ARAGE02.txt"), Q(in / "BIG.txt")}};
  Click("btnAddFiles");
  ASSERT_EQ(Find<QTableWidget>("tblReports")->rowCount(), 3);

  Click("btnRun");
  QTRY_VERIFY_WITH_TIMEOUT(Find<QProgressBar>("prgMany")->value() >= 2, 60000);
  ASSERT_TRUE(dialog_->RunActive());
  QTest::keyClick(dialog_, Qt::Key_Escape);
  WaitForRun();
  EXPECT_TRUE(dialog_->isVisible());
  EXPECT_EQ(Result("BIG.txt"), "cancelled");
  EXPECT_EQ(Cell("BIG.txt", kRows), "0");  // its rows so far were not written
  EXPECT_FALSE(fs::exists(in / "BIG.csv"));
  for (const char* name : {"ARINV01", "ARAGE02"}) {
    EXPECT_EQ(Result(std::string(name) + ".txt"), "done");
    EXPECT_EQ(
        ReadFile(in / (std::string(name) + ".csv")),
        SingleRun(in / (std::string(name) + ".txt"), kSamples / (std::string(name) + ".rdf")));
  }
  EXPECT_TRUE(Find<QLabel>("lblStatus")->text().startsWith("Cancelled: "));

  auto* existing = Find<QComboBox>("cboExisting");
  existing->setCurrentIndex(existing->findData(static_cast<int>(BatchRequest::Existing::Skip)));
  Click("btnRun");
  ASSERT_TRUE(dialog_->RunActive());
  EXPECT_FALSE(dialog_->close());  // not yet: the run ends first
  EXPECT_TRUE(dialog_->isVisible());
  WaitForRun();
  EXPECT_FALSE(dialog_->isVisible());
  EXPECT_EQ(Result("BIG.txt"), "cancelled");
  EXPECT_EQ(Result("ARINV01.txt"), "skipped");
  EXPECT_FALSE(fs::exists(in / "BIG.csv"));

  // Exit from the main window during a run cancels it too, and the program ends with it.
  window_->show();
  Open();
  Click("btnRun");
  ASSERT_TRUE(dialog_->RunActive());
  EXPECT_FALSE(window_->close());
  EXPECT_TRUE(window_->isVisible());
  WaitForRun();
  EXPECT_FALSE(window_->isVisible());
  EXPECT_EQ(Result("BIG.txt"), "cancelled");
  EXPECT_FALSE(fs::exists(in / "BIG.csv"));
}

}  // namespace
}  // namespace qb::ui
