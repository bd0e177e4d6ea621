// The report view's tracer: the lines it reads and what it says the run did to each of them
// agree with a whole traced run, wherever the view looks first and however far it goes back.

#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "run/conversion_job.h"
#include "run/report_tracer.h"
#include "run/row_preview.h"
#include "run/trace_writer.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadFile;
using test::Sample;
using test::WriteFile;

class ReportTracerTest : public test::EngineTest {
 protected:
  void Load(const std::filesystem::path& report, const std::filesystem::path& rdf) {
    engine_.flags.PdfReport = report.extension() == ".pdf";
    ASSERT_TRUE(engine_.LoadRDF(rdf, report));
  }

  // The whole run's trace, piece by piece, keyed "line" or "line.piece".
  std::map<std::string, std::string> WholeTrace(const std::filesystem::path& report,
                                                const std::filesystem::path& rdf) {
    JobRequest request;
    request.report = report;
    request.rdf = rdf;
    request.noOutput = true;
    ConversionJob job(app_, ui_, engine_, request);
    std::map<std::string, std::string> pieces;
    TraceOptions options;
    options.report = report.filename().string();
    options.rdf = rdf.filename().string();
    TraceWriter writer(
        [&](std::string_view text) {
          if (!text.starts_with("line ")) return;  // the end of the report
          const std::string key(text.substr(5, text.find(':') - 5));
          pieces[key] = std::string(text);
        },
        options);
    job.Observe(&writer);
    EXPECT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_TRUE(job.Run());
    return pieces;
  }

  // Waits (a minute at most, so that a fault cannot hang the tests) for `done`.
  template <typename P>
  bool Await(P done) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::minutes(1), done);
  }
  std::function<void()> Notify() {
    return [this] {
      { const std::lock_guard lock(mutex_); }
      changed_.notify_all();
    };
  }

  // Checks what `tracer` shows of lines `first` to `last` against `whole` and the report's
  // lines, as a view showing them would ask.
  void ExpectShownAgrees(ReportTracer& tracer, int64_t first, int64_t last,
                         const std::map<std::string, std::string>& whole,
                         const std::vector<std::string>& text) {
    tracer.Want(first, last);
    std::shared_ptr<const TracedBlock> block;
    for (int64_t line = first; line <= last; ++line) {
      if (!block || !block->At(line)) {
        ASSERT_TRUE(Await([&] { return (block = tracer.Block(line)) != nullptr; })) << line;
      }
    }
    const std::vector<MarkerTally> markers = tracer.Markers();
    for (int64_t line = first; line <= last; ++line) {
      if (!block->At(line)) block = tracer.Block(line);
      ASSERT_NE(block, nullptr) << line;
      const LineTrace* trace = block->At(line);
      ASSERT_NE(trace, nullptr);
      for (const PieceTrace& piece : trace->pieces) {
        const std::string key =
            std::to_string(line) + (piece.piece ? "." + std::to_string(piece.piece) : "");
        SCOPED_TRACE(key);
        ASSERT_TRUE(whole.contains(key));
        const std::string& words = whole.at(key);
        EXPECT_EQ(piece.detail, words);
        // The tint and outlines say what the words say.
        if (piece.marker < 0) {
          EXPECT_NE(words.find("  no marker\n"), std::string::npos);
        } else {
          EXPECT_NE(words.find(":" + std::to_string(markers[piece.marker].rdfLine) + ": rule"),
                    std::string::npos);
        }
        size_t outlined = 0;
        for (const PieceTrace::Segment& s : piece.pickups) {
          const std::string at = " at " + std::to_string(s.start) + "," + std::to_string(s.length);
          outlined += words.find(at + " rule") != std::string::npos;
        }
        EXPECT_EQ(outlined, piece.pickups.size());
        EXPECT_EQ(piece.did == PieceTrace::Did::Skip, words.find("  skip:") != std::string::npos);
        EXPECT_EQ(piece.did == PieceTrace::Did::Dropped,
                  words.find("; the line is dropped") != std::string::npos);
      }
    }
    // The text the view shows is the report's.
    const std::vector<std::string> shown = tracer.Text(first, last - first + 1);
    ASSERT_EQ(static_cast<int64_t>(shown.size()), last - first + 1);
    for (int64_t line = first; line <= last; ++line) {
      EXPECT_EQ(shown[static_cast<size_t>(line - first)], text[static_cast<size_t>(line - 1)]);
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
};

TEST_F(ReportTracerTest, EveryBlockAgreesWithTheWholeRunInAnyOrderOnEverySample) {
  int samples = 0;
  for (const auto& [name, rdfName] : test::ListedSamples(Sample("samples.txt"))) {
    SCOPED_TRACE(name + " with " + rdfName);
    std::filesystem::path report = Sample(name);
    const std::filesystem::path rdf = Sample(rdfName);
    // A text report copied over and over, so that it spans several blocks: the later blocks
    // are traced from their checkpoints, and out of order.
    if (report.extension() == ".txt") {
      const std::string once = ReadFile(report);
      std::string many;
      while (std::count(many.begin(), many.end(), '\n') < 3 * ReportTracer::kBlock + 100)
        many += once;
      report = home_ / ("big-" + name);
      WriteFile(report, many);
    }
    Load(report, rdf);
    const auto whole = WholeTrace(report, rdf);
    ReportTracer tracer(app_, engine_, report, rdf, Notify());
    ASSERT_TRUE(Await([&] { return tracer.Status().indexed || !tracer.Status().error.empty(); }));
    const TracerStatus status = tracer.Status();
    ASSERT_EQ(status.error, "");
    // The text of a PDF or delimited report is made by the tracer: its lines are the ones
    // the whole run traced.
    std::vector<std::string> text =
        report.extension() == ".txt" ? test::ReadLines(report) : tracer.Text(1, status.lines);
    ASSERT_EQ(static_cast<int64_t>(text.size()), status.lines);
    const int64_t blocks = (status.lines + ReportTracer::kBlock - 1) / ReportTracer::kBlock;
    for (int64_t b = blocks - 1; b >= 0; --b) {
      const int64_t first = b * ReportTracer::kBlock + 1;
      ExpectShownAgrees(tracer, first, std::min(first + ReportTracer::kBlock - 1, status.lines),
                        whole, text);
    }
    // A screenful across the boundary of two blocks, after the others were traced.
    if (blocks > 1)
      ExpectShownAgrees(tracer, ReportTracer::kBlock - 20, ReportTracer::kBlock + 20, whole, text);
    EXPECT_TRUE(tracer.Status().complete);
    int64_t matched = 0;
    for (const MarkerTally& m : tracer.Markers()) matched += m.pieces;
    EXPECT_GT(matched, 0);
    ++samples;
  }
  EXPECT_GE(samples, 9);
}

// Lines the markers match, lines they don't (blank ones aside), a form feed and a stop row.
constexpr std::string_view kReport =
    "CUST C1 NORTHWIND\r\n"
    "ITEM A100  2\r\n"
    "   \r\n"
    "a remark the RDF does not know\r\n"
    "\fCUST C2 BIRCH\r\n"
    "ITEM B100  1\r\n"
    "END OF REPORT\r\n"
    "ITEM C100  9\r\n";
constexpr std::string_view kRdf =
    "RDF 0001T Tracer@TRACER\r\n"
    "RDF 01 Items under customers\r\n"
    "DLM\r\n"
    "1,=,CUST,0,1,CUS\r\n"
    "1,=,ITEM,0,2,ITM\r\n"
    "1,=,END,0,0,stop\r\n"
    "DLC\r\n"
    "CUS,0,0,1,6,2,a,,hold\r\n"
    "ITM,0,0,1,1,1,a,,get\r\n"
    "ITM,0,0,2,6,4,=,,\r\n"
    "ITM,0,0,3,12,1,=,,\r\n"
    "FLD\r\n"
    "1,y,c,1,0,Customer,\r\n"
    "2,y,c,2,0,Item,\r\n"
    "3,y,n,3,0,Quantity,\r\n";

TEST_F(ReportTracerTest, TalliesUnmatchedLinesAndTheStopWhenTheWholeReportIsTraced) {
  WriteFile(home_ / "report.txt", kReport);
  Load(home_ / "report.txt", Rdf(kRdf));
  ReportTracer tracer(app_, engine_, home_ / "report.txt", home_ / "t.rdf", Notify());
  tracer.TraceAll();
  ASSERT_TRUE(Await([&] { return tracer.Status().complete; }));
  const TracerStatus status = tracer.Status();
  EXPECT_EQ(status.lines, 8);
  EXPECT_EQ(status.stopLine, 7);
  const std::vector<MarkerTally> markers = tracer.Markers();
  ASSERT_EQ(markers.size(), 3u);
  EXPECT_EQ(markers[0].action, "CUS");
  EXPECT_EQ(markers[0].pieces, 2);
  EXPECT_EQ(markers[1].pieces, 2);  // the item after the stop is never read
  EXPECT_EQ(markers[2].action, "stop");
  EXPECT_EQ(markers[2].pieces, 1);
  // The remark and the empty piece before the form feed matched nothing; the blank line is
  // left out.
  EXPECT_EQ(tracer.Unmatched(0, 10), (std::vector<int64_t>{4}));

  tracer.Want(1, 8);
  std::shared_ptr<const TracedBlock> block;
  ASSERT_TRUE(Await([&] { return (block = tracer.Block(1)) != nullptr; }));
  const LineTrace& customer = *block->At(5);
  ASSERT_EQ(customer.pieces.size(), 2u);  // the form feed cut it
  EXPECT_EQ(customer.pieces[0].marker, -1);
  EXPECT_EQ(customer.pieces[1].marker, 0);
  ASSERT_EQ(customer.pieces[1].pickups.size(), 1u);
  EXPECT_EQ(customer.pieces[1].pickups[0].start, 6);
  EXPECT_EQ(customer.pieces[1].pickups[0].length, 2);
  EXPECT_EQ(block->At(7)->pieces.at(0).did, PieceTrace::Did::Stop);
  EXPECT_TRUE(block->At(8)->pieces.empty());
  EXPECT_EQ(tracer.Text(5, 1), (std::vector<std::string>{"\fCUST C2 BIRCH"}));
  EXPECT_TRUE(tracer.Text(9, 1).empty());
}

TEST_F(ReportTracerTest, ABadReportOrBadSettingsAreSaidInWords) {
  Load(Sample("ARINV01.txt"), Sample("ARINV01.rdf"));
  ReportTracer tracer(app_, engine_, home_ / "missing.txt", Sample("ARINV01.rdf"), Notify());
  ASSERT_TRUE(Await([&] { return !tracer.Status().error.empty(); }));
  EXPECT_NE(tracer.Status().error.find("missing.txt"), std::string::npos);
  EXPECT_TRUE(tracer.Text(1, 10).empty());

  // Settings a run cannot start with: the lines are shown all the same, plain.
  app_.Settings.Item(Key::opfmt).Value = ".doc";
  ReportTracer plain(app_, engine_, Sample("ARINV01.txt"), Sample("ARINV01.rdf"), Notify());
  ASSERT_TRUE(Await([&] { return !plain.Status().untraced.empty(); }));
  EXPECT_NE(plain.Status().untraced.find(".doc"), std::string::npos);
  EXPECT_EQ(plain.Status().error, "");
  EXPECT_EQ(plain.Text(1, 1), std::vector<std::string>{test::ReadLines(Sample("ARINV01.txt"))[0]});
  plain.Want(1, 10);
  EXPECT_FALSE(plain.Status().complete);
}

TEST_F(ReportTracerTest, ThePreviewHoldsTheFirstRowsARunWritesOnEverySample) {
  int samples = 0;
  for (const auto& [name, rdfName] : test::ListedSamples(Sample("samples.txt"))) {
    SCOPED_TRACE(name + " with " + rdfName);
    Load(Sample(name), Sample(rdfName));
    // The RDF's own settings aside: plain text rows, easy to compare.
    app_.Settings.Item(Key::opfmt).Value = ".txt";
    app_.Settings.Item(Key::delim).Value = "|";
    app_.Settings.Item(Key::tqswt).Value = "0";
    JobRequest request;
    request.report = Sample(name);
    request.rdf = Sample(rdfName);
    request.output = home_ / "run.txt";
    ConversionJob run(app_, ui_, engine_, request);
    ui_.answers = {true};
    ASSERT_EQ(run.Check(), RunDriver::Check::Ready);
    ASSERT_TRUE(run.Run());
    const std::vector<std::string> written = test::ReadLines(home_ / "run.txt");

    request.output.clear();
    request.noOutput = true;
    ConversionJob previewed(app_, ui_, engine_, request);
    const size_t max = 5;
    const PreviewRows preview = PreviewRun(previewed, max);
    EXPECT_EQ(preview.error, "");
    ASSERT_GE(written.size(), 2u);
    std::string header;
    for (const std::string& label : preview.header) header += (header.empty() ? "" : "|") + label;
    EXPECT_EQ(header, written[0]);
    EXPECT_EQ(preview.rows.size(), std::min(max, written.size() - 1));
    EXPECT_EQ(preview.whole, written.size() - 1 < max);
    for (size_t r = 0; r < preview.rows.size(); ++r) {
      std::string row;
      for (size_t c = 0; c < preview.rows[r].size(); ++c)
        row += (c ? "|" : "") + preview.rows[r][c];
      EXPECT_EQ(row, written[r + 1]);
    }
    ++samples;
  }
  EXPECT_GE(samples, 9);
}

}  // namespace
}  // namespace qb
