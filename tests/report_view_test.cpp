// The report pane, offscreen: the tints and outlines the view paints agree with a whole traced
// run, the preview holds the rows a real run writes, a span of columns selected with the
// mouse gives the numbers an RDF needs, and a report of a gigabyte scrolls to its end while
// the event loop goes on.

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableView>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "run/conversion_job.h"
#include "run/trace_writer.h"
#include "tests/test_support.h"
#include "ui/main_window.h"
#include "ui/report_pane.h"
#include "ui/report_view.h"

namespace qb::ui {
namespace {

using test::ReadFile;
using test::WriteFile;

const std::filesystem::path kSampleDir = QB_SAMPLES_DIR;

class ReportPaneTest : public ::testing::Test {
 protected:
  ReportPaneTest() : app_(home_.path(), ui_), engine_(app_) {
    std::filesystem::create_directories(home_ / "log");
    std::filesystem::create_directories(home_ / "out");
    std::filesystem::copy_file(std::filesystem::path(QB_SOURCE_DIR) / "settings" / "qbsys.txt",
                               home_ / "qbsys.txt");
    EXPECT_TRUE(app_.ResetForm());
    engine_.CreateRecordsets();
  }

  void Load(const std::filesystem::path& report, const std::filesystem::path& rdf) {
    engine_.flags.PdfReport = report.extension() == ".pdf";
    ASSERT_TRUE(engine_.LoadRDF(rdf, report));
  }

  // The whole run's trace words, by report line.
  std::map<int64_t, std::string> WholeTrace(const std::filesystem::path& report,
                                            const std::filesystem::path& rdf) {
    JobRequest request;
    request.report = report;
    request.rdf = rdf;
    request.noOutput = true;
    ConversionJob job(app_, ui_, engine_, request);
    std::map<int64_t, std::string> lines;
    TraceOptions options;
    options.report = report.filename().string();
    options.rdf = rdf.filename().string();
    TraceWriter writer(
        [&](std::string_view text) {
          if (text.starts_with("line ")) lines[std::stoll(std::string(text.substr(5)))] += text;
        },
        options);
    job.Observe(&writer);
    EXPECT_TRUE(job.Run());
    return lines;
  }

  // Runs the event loop until `done` (a minute at most).
  template <typename P>
  static bool Until(P done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 60000) {
      QApplication::processEvents(QEventLoop::AllEvents, 20);
      QTest::qWait(5);
    }
    return done();
  }

  test::TempDir home_;
  test::RecordingUI ui_;
  Application app_;
  Engine engine_;
};

// Tints and outlines as the trace's words give them: the marker row named ("marker
// X.rdf:N") gives the colour, "skip" grey, a dropped line red, and each pickup's "at S,L"
// an outline.
TEST_F(ReportPaneTest, TintsAndOutlinesAgreeWithTheTraceOnEverySample) {
  for (const test::ListedSample& sample : test::ListedSamples(kSampleDir / "samples.txt")) {
    SCOPED_TRACE(sample.report + " with " + sample.rdf);
    const std::filesystem::path report = kSampleDir / sample.report, rdf = kSampleDir / sample.rdf;
    Load(report, rdf);
    const std::map<int64_t, std::string> whole = WholeTrace(report, rdf);
    ReportPane pane(app_, engine_);
    pane.resize(900, 2400);  // every sample's first page at once
    pane.show();
    pane.SetSource(QString::fromStdString(report.string()), QString::fromStdString(rdf.string()));
    ReportView& view = *pane.view();
    ASSERT_TRUE(Until([&] { return pane.tracer() && pane.tracer()->Status().indexed; }));
    const int64_t shown = std::min<int64_t>(pane.tracer()->Status().lines, 100);
    ASSERT_TRUE(Until([&] { return view.LineDetail(shown).contains("line "); }));
    const std::vector<MarkerTally> markers = pane.tracer()->Markers();
    const std::regex markerLine(R"(marker [^:]+:(\d+):)"),
        pickupAt(R"(pickup [^:]+:\d+: field \d+ at (\d+),(\d+) rule)");
    for (int64_t line = 1; line <= shown; ++line) {
      SCOPED_TRACE(line);
      if (!whole.contains(line)) {  // after the stop line: never read
        EXPECT_TRUE(view.LineDetail(line).contains("the run stopped at line"));
        EXPECT_FALSE(view.LineTint(line).isValid());
        continue;
      }
      const std::string& words = whole.at(line);
      EXPECT_EQ(view.LineDetail(line).toStdString(),
                QString::fromUtf8(words.data(), static_cast<qsizetype>(words.size()))
                    .trimmed()
                    .toStdString());
      QColor expected;
      std::smatch m;
      if (words.find("; the line is dropped") != std::string::npos) {
        expected = QColor(255, 205, 205);
      } else if (std::regex_search(words, m, markerLine)) {
        const int64_t rdfLine = std::stoll(m[1]);
        const auto row = std::find_if(markers.begin(), markers.end(),
                                      [&](const MarkerTally& t) { return t.rdfLine == rdfLine; });
        ASSERT_NE(row, markers.end());
        expected = words.find("  skip:") != std::string::npos
                       ? ReportView::SkipColour()
                       : ReportView::MarkerColour(static_cast<int>(row - markers.begin()));
      }
      EXPECT_EQ(view.LineTint(line), expected);
      std::vector<std::pair<int, int>> outlines, said;
      for (const PieceTrace::Segment& s : view.LineOutlines(line))
        outlines.emplace_back(s.start, s.length);
      for (auto it = std::sregex_iterator(words.begin(), words.end(), pickupAt);
           it != std::sregex_iterator(); ++it) {
        said.emplace_back(std::stoi((*it)[1]), std::stoi((*it)[2]));
      }
      if (words.find("line " + std::to_string(line) + ".") == std::string::npos) {
        EXPECT_EQ(outlines, said);  // a line a form feed cut shifts its later pieces
      }
    }
  }
}

TEST_F(ReportPaneTest, ThePreviewShowsTheRowsARunWritesAndFollowsTheGrid) {
  for (const test::ListedSample& sample : test::ListedSamples(kSampleDir / "samples.txt")) {
    SCOPED_TRACE(sample.report + " with " + sample.rdf);
    const std::filesystem::path report = kSampleDir / sample.report, rdf = kSampleDir / sample.rdf;
    Load(report, rdf);
    app_.Settings.Item(Key::opfmt).Value = ".txt";
    app_.Settings.Item(Key::delim).Value = "|";
    app_.Settings.Item(Key::tqswt).Value = "0";
    JobRequest request;
    request.report = report;
    request.rdf = rdf;
    request.output = home_ / "run.txt";
    ConversionJob run(app_, ui_, engine_, request);
    ui_.answers = {true};
    ASSERT_EQ(run.Check(), RunDriver::Check::Ready);
    ASSERT_TRUE(run.Run());
    const std::vector<std::string> written = test::ReadLines(home_ / "run.txt");

    ReportPane pane(app_, engine_);
    pane.SetSource(QString::fromStdString(report.string()), QString::fromStdString(rdf.string()));
    ASSERT_TRUE(Until([&] { return pane.PreviewCurrent(); }));
    const QTableWidget& table = *pane.previewTable();
    ASSERT_EQ(static_cast<size_t>(table.rowCount()),
              std::min(written.size() - 1, ReportPane::kPreviewRows));
    auto joined = [&](int r) {
      QStringList cells;
      for (int c = 0; c < table.columnCount(); ++c) {
        cells << (r < 0 ? table.horizontalHeaderItem(c)->text() : table.item(r, c)->text());
      }
      return cells.join('|').toStdString();
    };
    EXPECT_EQ(joined(-1), written[0]);
    for (int r = 0; r < table.rowCount(); ++r) EXPECT_EQ(joined(r), written[r + 1]);

    // A field turned off in the grid is gone from the next preview.
    Recordset& fields = engine_.tables.rsFields;
    fields.MoveFirst();
    fields.SetBool(col::Fields::fldOUT, false);
    const int columns = table.columnCount();
    pane.SourceChanged();
    ASSERT_TRUE(Until([&] { return pane.PreviewCurrent(); }));
    EXPECT_EQ(table.columnCount(), columns - 1);
  }
}

TEST_F(ReportPaneTest, AColumnSpanDraggedWithTheMouseGivesStartAndLength) {
  const std::filesystem::path report = kSampleDir / "ARINV01.txt";
  Load(report, kSampleDir / "ARINV01.rdf");
  ReportPane pane(app_, engine_);
  pane.resize(900, 600);
  pane.show();
  pane.SetSource(QString::fromStdString(report.string()),
                 QString::fromStdString((kSampleDir / "ARINV01.rdf").string()));
  ReportView& view = *pane.view();
  ASSERT_TRUE(Until([&] { return view.LineAt(0) == 1; }));
  view.horizontalScrollBar()->setValue(5);  // the ruler follows: column 12 is further left
  auto xOf = [&](int column) {
    for (int x = 0; x < view.viewport()->width(); ++x) {
      if (view.ColumnAt(x) == column) return x + 2;
    }
    return -1;
  };
  QSignalSpy spy(&pane, &ReportPane::columnsSelected);
  const int y = view.viewport()->height() / 2;
  QTest::mousePress(view.viewport(), Qt::LeftButton, {}, QPoint(xOf(19), y));
  QMouseEvent move(QEvent::MouseMove, QPointF(xOf(12), y),
                   view.viewport()->mapToGlobal(QPointF(xOf(12), y)), Qt::NoButton, Qt::LeftButton,
                   Qt::NoModifier);
  QApplication::sendEvent(view.viewport(), &move);
  QTest::mouseRelease(view.viewport(), Qt::LeftButton, {}, QPoint(xOf(12), y));
  ASSERT_EQ(spy.count(), 1);
  EXPECT_EQ(spy[0][0].toInt(), 12);
  EXPECT_EQ(spy[0][1].toInt(), 8);

  // Unmatched lines only: every line shown is one the tracer lists, and none is tinted.
  pane.findChild<QCheckBox*>("chkUnmatched")->setChecked(true);
  ASSERT_TRUE(Until([&] { return pane.tracer()->Status().complete && view.LineAt(0) > 0; }));
  const std::vector<int64_t> unmatched = pane.tracer()->Unmatched(0, 1000);
  ASSERT_FALSE(unmatched.empty());
  for (int row = 0; view.LineAt(row) != 0; ++row) {
    EXPECT_EQ(view.LineAt(row), unmatched[static_cast<size_t>(row)]);
    EXPECT_FALSE(view.LineTint(view.LineAt(row)).isValid());
  }
}

// Answers every question yes and picks no file; remembers the messages.
class QuietDialogs final : public Dialogs {
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
  QStringList shown;
};

TEST_F(ReportPaneTest, ThePaneFollowsTheWindowsReportRdfAndGrid) {
  QuietDialogs dialogs;
  MainWindow window(home_.path(), dialogs);
  ASSERT_TRUE(window.Startup());
  window.show();
  auto* pane = window.findChild<ReportPane*>();
  ASSERT_NE(pane, nullptr);
  const QString report = QString::fromStdString((kSampleDir / "ARINV01.txt").string());
  std::filesystem::copy_file(kSampleDir / "ARINV01.rdf", home_ / "ARINV01.rdf");
  const QString rdf = QString::fromStdString((home_ / "ARINV01.rdf").string());
  // A report alone shows plain, with no preview.
  ASSERT_TRUE(window.ChooseReport(report));
  ASSERT_TRUE(Until([&] { return pane->tracer() && pane->tracer()->Status().indexed; }));
  EXPECT_TRUE(pane->tracer()->Markers().empty());
  ASSERT_TRUE(window.ChooseRdf(rdf));
  ASSERT_TRUE(
      Until([&] { return pane->PreviewCurrent() && pane->previewTable()->rowCount() > 0; }));
  EXPECT_FALSE(pane->tracer()->Markers().empty());
  const int columns = pane->previewTable()->columnCount();

  // Deselect every field but the first: the preview follows the grid.
  auto* grid = window.findChild<QTableView*>("dgdFields");
  grid->selectionModel()->select(grid->model()->index(0, 0),
                                 QItemSelectionModel::Select | QItemSelectionModel::Rows);
  for (int r = 1; r < grid->model()->rowCount(); ++r) {
    grid->model()->setData(grid->model()->index(r, 0), "n", Qt::EditRole);
  }
  ASSERT_TRUE(Until([&] { return pane->PreviewCurrent(); }));
  EXPECT_EQ(pane->previewTable()->columnCount(), 1);
  EXPECT_GT(columns, 1);

  // A column span picked in the view is in the status bar and on the clipboard.
  pane->view()->SelectColumns(19, 12);
  EXPECT_EQ(window.statusBar()->currentMessage(),
            "Columns 12 to 19: start 12, length 8 (copied \"12,8\")");
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "12,8");

  // The RDF changed on disk and loaded again (F6): the view reads the report with it.
  auto customerAction = [&] {  // the CUSTOMER marker's row is line 11
    for (const MarkerTally& m : pane->tracer()->Markers())
      if (m.rdfLine == 11) return m.action;
    return std::string();
  };
  EXPECT_EQ(customerAction(), "CUST");
  std::string text = test::ReadFile(home_ / "ARINV01.rdf");
  text.replace(text.find("1,=,CUSTOMER,0,0,CUST"), 21, "1,=,CUSTOMER,0,0,skip");
  test::WriteFile(home_ / "ARINV01.rdf", text);
  QTest::keyClick(&window, Qt::Key_F6);
  EXPECT_TRUE(Until([&] { return pane->tracer() && customerAction() == "skip"; }));

  // F9 hides the pane and shows it again.
  QTest::keyClick(&window, Qt::Key_F9);
  EXPECT_FALSE(pane->isVisible());
  QTest::keyClick(&window, Qt::Key_F9);
  EXPECT_TRUE(pane->isVisible());
  // Only auto-find spoke (the RDF folder is not the samples folder).
  ASSERT_EQ(dialogs.shown.size(), 1);
  EXPECT_TRUE(dialogs.shown[0].startsWith("Auto-find looked for"))
      << dialogs.shown[0].toStdString();
}

// A report of QB_BIG_REPORT_MB megabytes (a gigabyte unless told): opened, then scrolled to
// its end as fast as the scroll bar grows. A watchdog timer on the event loop measures the
// longest the window's thread was kept from it; bench/README.md reports it.
TEST(ReportPaneScale, AGigabyteReportScrollsToItsEndWhileTheEventLoopGoesOn) {
  const int64_t megabytes = qEnvironmentVariableIsSet("QB_BIG_REPORT_MB")
                                ? qEnvironmentVariableIntValue("QB_BIG_REPORT_MB")
                                : 1024;
  test::TempDir home;
  std::filesystem::create_directories(home / "log");
  std::filesystem::create_directories(home / "out");
  std::filesystem::copy_file(std::filesystem::path(QB_SOURCE_DIR) / "settings" / "qbsys.txt",
                             home / "qbsys.txt");
  test::RecordingUI ui;
  Application app(home.path(), ui);
  ASSERT_TRUE(app.ResetForm());
  Engine engine(app);
  engine.CreateRecordsets();
  // The invoice register without its report totals and its stop line, over and over.
  std::vector<std::string> register_ = test::ReadLines(kSampleDir / "ARINV01.txt");
  register_.resize(register_.size() - 4);
  std::string once;
  for (const std::string& line : register_) once += line + "\r\n";
  const std::filesystem::path big = home / "BIG.txt";
  {
    std::string chunk;
    while (chunk.size() < (8u << 20)) chunk += once;
    std::ofstream out(big, std::ios::binary);
    for (int64_t written = 0; written < (megabytes << 20);
         written += static_cast<int64_t>(chunk.size()))
      out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
  }
  ASSERT_TRUE(engine.LoadRDF(kSampleDir / "ARINV01.rdf", big));
  const std::string lastLine = register_.back();

  ReportPane pane(app, engine);
  pane.resize(1000, 700);
  pane.show();
  QElapsedTimer clock, sinceTick;
  qint64 longest = 0;
  QTimer watchdog;
  watchdog.setInterval(5);
  QObject::connect(&watchdog, &QTimer::timeout,
                   [&] { longest = std::max(longest, sinceTick.restart()); });
  clock.start();
  sinceTick.start();
  watchdog.start();
  pane.SetSource(QString::fromStdString(big.string()),
                 QString::fromStdString((kSampleDir / "ARINV01.rdf").string()));
  ReportView& view = *pane.view();
  auto atEnd = [&] {
    const TracerStatus s = pane.tracer()->Status();
    if (!s.indexed) return false;
    int row = 0;
    while (view.LineAt(row + 1) != 0) ++row;
    return view.LineAt(row) == s.lines && view.LineTint(s.lines).isValid() &&
           view.LineDetail(s.lines).contains("line ");
  };
  while (!atEnd() && clock.elapsed() < 600000) {
    view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum());
    QTest::qWait(20);
  }
  watchdog.stop();
  ASSERT_TRUE(atEnd());
  const TracerStatus status = pane.tracer()->Status();
  EXPECT_EQ(pane.tracer()->Text(status.lines, 1), std::vector<std::string>{lastLine});
  std::printf(
      "report view: %lld MB, %lld lines, at its end after %.1f s; longest wait on the "
      "window's thread %lld ms\n",
      static_cast<long long>(megabytes), static_cast<long long>(status.lines),
      clock.elapsed() / 1000.0, static_cast<long long>(longest));
  ::testing::Test::RecordProperty("longest_wait_ms", static_cast<int>(longest));
}

}  // namespace
}  // namespace qb::ui
