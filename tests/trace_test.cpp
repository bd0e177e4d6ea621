// What a run tells its observer: the trace, the checker's figures and the findings a run
// leaves for its user (dropped lines, nothing matched). Watching a run never changes it.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "run/conversion_job.h"
#include "run/run_tally.h"
#include "run/trace_writer.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::Count;
using test::ReadFile;
using test::Sample;
using test::WriteFile;

// Lines of `text` that begin with `prefix`.
std::vector<std::string> LinesStartingWith(const std::string& text, std::string_view prefix) {
  std::vector<std::string> found;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(prefix)) found.push_back(line);
  }
  return found;
}

class TraceTest : public test::EngineTest {
 protected:
  JobRequest Request(const std::filesystem::path& report, const std::filesystem::path& rdf,
                     const std::string& output) const {
    JobRequest r;
    r.report = report;
    r.rdf = rdf;
    r.output = output.empty() ? std::filesystem::path() : home_ / output;
    r.noOutput = output.empty();
    return r;
  }

  // Runs `request`, traced with `options` when given; returns the trace.
  std::string Run(JobRequest request, std::optional<TraceOptions> options = std::nullopt,
                  RunStats* stats = nullptr) {
    ConversionJob job(app_, ui_, std::move(request));
    std::FILE* out = std::tmpfile();
    std::optional<TraceWriter> trace;
    if (options) {
      trace.emplace(out, *options);
      job.Observe(&*trace);
    }
    ui_.answers = {true};
    EXPECT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_TRUE(job.Run());
    if (stats) *stats = job.Stats();
    std::string text(static_cast<size_t>(std::ftell(out)), '\0');
    std::rewind(out);
    EXPECT_EQ(std::fread(text.data(), 1, text.size(), out), text.size());
    std::fclose(out);
    return text;
  }

  TraceOptions Options(TraceOptions::Format format = TraceOptions::Format::Text) const {
    TraceOptions o;
    o.format = format;
    o.report = "report.txt";
    o.rdf = "t.rdf";
    return o;
  }
};

TEST_F(TraceTest, ATracedRunWritesWhatAPlainRunWritesOnEverySample) {
  std::ifstream list(Sample("samples.txt"));
  int samples = 0;
  for (std::string line; std::getline(list, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string report, rdf;
    fields >> report >> rdf;
    SCOPED_TRACE(report + " with " + rdf);
    RunStats plain, traced;
    Run(Request(Sample(report), Sample(rdf), "plain.csv"), std::nullopt, &plain);
    const std::string trace = Run(Request(Sample(report), Sample(rdf), "traced.csv"),
                                  Options(TraceOptions::Format::Jsonl), &traced);
    EXPECT_EQ(ReadFile(home_ / "plain.csv"), ReadFile(home_ / "traced.csv"));
    EXPECT_GT(plain.linesWritten, 0);
    EXPECT_EQ(plain.linesWritten, traced.linesWritten);
    // Every piece and every row written is in the trace, once.
    EXPECT_EQ(Count(trace, "{\"type\":\"piece\""), static_cast<size_t>(plain.linesProcessed));
    EXPECT_EQ(Count(trace, "{\"row\":"), static_cast<size_t>(plain.linesWritten));
    EXPECT_EQ(Count(trace, "{\"header\":"), 1u);
    EXPECT_EQ(Count(trace, "\"marker\":null"),
              static_cast<size_t>(plain.linesProcessed - plain.piecesMatched));
    ++samples;
  }
  EXPECT_GE(samples, 9);
}

// A report a line of which holds a form feed, and a customer line the RDF misspells.
constexpr std::string_view kReport =
    "CUST C1 NORTHWIND\r\n"
    "ITEM A100  2\r\n"
    "ITEM A200  5\r\n"
    "\fCUST C2 BIRCH\r\n"
    "ITEM B100  1\f\r\n"
    "TOTAL       8\r\n";
constexpr std::string_view kTraceRdf =
    "RDF 0001T Trace@TRACE\r\n"
    "RDF 01 Items under customers\r\n"
    "DLM\r\n"
    "1,=,CUST,0,1,CUS\r\n"
    "1,=,ITEM,0,2,ITM\r\n"
    "1,=,TOTAL,0,1,TOT\r\n"
    "DLC\r\n"
    "CUS,0,0,1,6,2,a,,hold\r\n"
    "ITM,0,0,1,1,1,a,,get\r\n"
    "ITM,0,0,2,6,4,=,,\r\n"
    "ITM,0,0,3,12,1,=,,\r\n"
    "TOT,0,0,3,13,1,=,,\r\n"
    "FLD\r\n"
    "1,y,c,1,0,Customer,\r\n"
    "2,y,c,2,0,Item,\r\n"
    "3,y,n,3,0,Quantity,\r\n";

TEST_F(TraceTest, TheTextTraceTellsEachPieceItsMarkerPickupsAndRows) {
  WriteFile(home_ / "report.txt", kReport);
  const std::string trace = Run(Request(home_ / "report.txt", Rdf(kTraceRdf), ""), Options());
  // Written out by hand from the report and the RDF above: two levels (slot 1 for the
  // customer, slot 2 for its items), the form feeds cutting lines 4 and 5 into pieces.
  const std::string expected =
      "line 1: \"CUST C1 NORTHWIND\"\n"
      "  marker t.rdf:4: rule = at 1,4 \"CUST\" -> CUS (wait slot 1)\n"
      "  pickup t.rdf:8: field 1 at 6,2 rule a hold: \"C1\" -> \"\", held \"C1\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "line 2: \"ITEM A100  2\"\n"
      "  marker t.rdf:5: rule = at 1,4 \"ITEM\" -> ITM (wait slot 2)\n"
      "  pickup t.rdf:9: field 1 at 1,1 rule a get: \"I\" -> \"C1\", held \"C1\"\n"
      "  pickup t.rdf:10: field 2 at 6,4 rule =: \"A100\" -> \"A100\"\n"
      "  pickup t.rdf:11: field 3 at 12,1 rule =: \"2\" -> \"2\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "line 3: \"ITEM A200  5\"\n"
      "  marker t.rdf:5: rule = at 1,4 \"ITEM\" -> ITM (wait slot 2)\n"
      "  wait slot 2 completed: the record gathered so far is written\n"
      "  header: Customer | Item | Quantity\n"
      "  row 1: \"C1\" | \"A100\" | \"2\"\n"
      "  pickup t.rdf:9: field 1 at 1,1 rule a get: \"I\" -> \"C1\", held \"C1\"\n"
      "  pickup t.rdf:10: field 2 at 6,4 rule =: \"A200\" -> \"A200\"\n"
      "  pickup t.rdf:11: field 3 at 12,1 rule =: \"5\" -> \"5\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "line 4.1: \"\"\n"
      "  no marker\n"
      "line 4.2: \"CUST C2 BIRCH\"\n"
      "  marker t.rdf:4: rule = at 1,4 \"CUST\" -> CUS (wait slot 1)\n"
      "  wait slot 1 completed: the record gathered so far is written\n"
      "  row 2: \"C1\" | \"A200\" | \"5\"\n"
      "  pickup t.rdf:8: field 1 at 6,2 rule a hold: \"C2\" -> \"\", held \"C2\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "line 5.1: \"ITEM B100  1\"\n"
      "  marker t.rdf:5: rule = at 1,4 \"ITEM\" -> ITM (wait slot 2)\n"
      "  pickup t.rdf:9: field 1 at 1,1 rule a get: \"I\" -> \"C2\", held \"C2\"\n"
      "  pickup t.rdf:10: field 2 at 6,4 rule =: \"B100\" -> \"B100\"\n"
      "  pickup t.rdf:11: field 3 at 12,1 rule =: \"1\" -> \"1\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "line 5.2: \"\"\n"
      "  no marker\n"
      "line 6: \"TOTAL       8\"\n"
      "  marker t.rdf:6: rule = at 1,5 \"TOTAL\" -> TOT (wait slot 1)\n"
      "  wait slot 1 completed: the record gathered so far is written\n"
      "  row 3: \"C2\" | \"B100\" | \"1\"\n"
      "  pickup t.rdf:12: field 3 at 13,1 rule =: \"8\" -> \"8\"\n"
      "  group 0, sub-group 0, sequence 0\n"
      "end of report: the last record is written\n"
      "  row 4: \"\" | \"\" | \"8\"\n";
  EXPECT_EQ(trace, expected);
}

TEST_F(TraceTest, LinesAndUnmatchedLimitWhatIsShownNotWhatIsRead) {
  WriteFile(home_ / "report.txt", kReport);
  TraceOptions some = Options();
  some.from = 3;
  some.to = 4;
  RunStats stats;
  const std::string trace = Run(Request(home_ / "report.txt", Rdf(kTraceRdf), ""), some, &stats);
  const std::vector<std::string> lines = LinesStartingWith(trace, "line ");
  EXPECT_EQ(lines, (std::vector<std::string>{"line 3: \"ITEM A200  5\"", "line 4.1: \"\"",
                                             "line 4.2: \"CUST C2 BIRCH\""}));
  // The state was built from line 1 on: line 3 writes the first record with line 1's customer.
  EXPECT_NE(trace.find("  row 1: \"C1\" | \"A100\" | \"2\"\n"), std::string::npos);
  EXPECT_EQ(trace.find("end of report"), std::string::npos);  // line 6 is outside the range
  EXPECT_EQ(stats.linesWritten, 4);

  TraceOptions unmatched = Options(TraceOptions::Format::Jsonl);
  unmatched.unmatchedOnly = true;
  const std::string only = Run(Request(home_ / "report.txt", home_ / "t.rdf", ""), unmatched);
  EXPECT_EQ(Count(only, "{\"type\":\"piece\""), 2u);
  EXPECT_EQ(Count(only, "\"marker\":null"), 2u);
  EXPECT_NE(only.find("\"line\":4,\"piece\":1,"), std::string::npos);
  EXPECT_NE(only.find("\"line\":5,\"piece\":2,"), std::string::npos);
  EXPECT_EQ(only.find("\"type\":\"end\""), std::string::npos);
}

TEST_F(TraceTest, JsonlKeepsEveryObjectOnOneLineWhateverTheReportHolds) {
  // Quotes, a backslash, a tab, a control character and bytes that are not UTF-8: lone
  // bytes, an overlong "/" and a surrogate, each byte of which becomes a character of its own.
  WriteFile(home_ / "report.txt",
            std::string("CUST \"1\\\tx\x01 \xE9\xFF\xE0\x80\xAF\xED\xA0\x80\r\nITEM A100  2\r\n"));
  const std::string trace =
      Run(Request(home_ / "report.txt", Rdf(kTraceRdf), ""), Options(TraceOptions::Format::Jsonl));
  const std::vector<std::string> objects = LinesStartingWith(trace, "{");
  ASSERT_EQ(objects.size(), 4u);  // start, two pieces, end
  EXPECT_EQ(Count(trace, "\n"), 4u);
  EXPECT_NE(objects[1].find(R"("text":"CUST \"1\\\tx\u0001 )"
                            "\xC3\xA9\xC3\xBF\xC3\xA0\xC2\x80\xC2\xAF\xC3\xAD\xC2\xA0\xC2\x80\""),
            std::string::npos)
      << objects[1];
  EXPECT_NE(objects[1].find(R"("held":"\"1")"), std::string::npos) << objects[1];
  EXPECT_NE(objects[3].find(R"({"type":"end","lines":2,"rows":[{"header":["Customer","Item",)"),
            std::string::npos)
      << objects[3];
}

// An RDF whose item marker has wait slot 11 (the run drops its lines) and whose total row
// picks up into field 9, which FLD lacks (its line's later pickup rows are skipped).
constexpr std::string_view kBrokenRdf =
    "RDF 0001T Broken@BROKEN\r\n"
    "RDF 01 Items\r\n"
    "DLM\r\n"
    "1,=,CUST,0,1,CUS\r\n"
    "1,=,ITEM,0,11,ITM\r\n"
    "1,=,TOTAL,0,1,TOT\r\n"
    "DLC\r\n"
    "CUS,0,0,1,6,2,=,,\r\n"
    "ITM,0,0,2,6,4,=,,\r\n"
    "TOT,0,0,3,13,1,=,,\r\n"
    "TOT,0,0,9,13,1,=,,\r\n"
    "FLD\r\n"
    "1,y,c,1,0,Customer,\r\n"
    "2,y,c,2,0,Item,\r\n"
    "3,y,n,3,0,Quantity,\r\n";

TEST_F(TraceTest, DroppedLinesAreCountedWithTheirReportAndRdfLines) {
  std::string report = std::string(kReport);
  for (int i = 0; i < 4; ++i) report += "ITEM C" + std::to_string(i) + "00  1\r\n";
  WriteFile(home_ / "report.txt", report);
  ConversionJob job(app_, ui_, Request(home_ / "report.txt", Rdf(kBrokenRdf), "out.csv"));
  ASSERT_EQ(job.Check(), RunDriver::Check::Ready);
  ASSERT_TRUE(job.Run());
  const LineErrors& errors = job.Stats().lineErrors;
  EXPECT_EQ(errors.count, 8);  // 7 item lines dropped, the total line cut short
  ASSERT_EQ(errors.first.size(), 5u);
  EXPECT_EQ(errors.first[0].line, 2);
  EXPECT_EQ(errors.first[0].rdfLine, 5);
  EXPECT_EQ(errors.first[0].error.number(), kSubscript);
  EXPECT_FALSE(errors.first[0].partly);
  EXPECT_EQ(errors.first[2].line, 5);  // the piece before the form feed
  EXPECT_EQ(errors.first[2].piece, 1);
  EXPECT_EQ(errors.first[3].line, 6);
  EXPECT_EQ(errors.first[3].rdfLine, 11);
  EXPECT_TRUE(errors.first[3].partly);
  EXPECT_EQ(errors.first[3].error.number(), kNoCurrentRecord);

  const std::vector<std::string> findings = job.Findings();
  ASSERT_EQ(findings.size(), 6u);
  EXPECT_NE(findings[0].find("8 report lines were dropped or only partly picked up"),
            std::string::npos);
  EXPECT_NE(findings[0].find("the first 5:"), std::string::npos);
  const std::string rdf = (home_ / "t.rdf").string();
  EXPECT_EQ(findings[1], "  " + (home_ / "report.txt").string() + ":2: RDF " + rdf +
                             ":5: Error 9 in ProcessDataMarker: Subscript out of range; the line "
                             "was dropped");
  EXPECT_NE(findings[4].find(":6: RDF " + rdf + ":11: Error 3021 in PickupData"),
            std::string::npos);
  EXPECT_NE(findings[4].find("later pickup rows were skipped"), std::string::npos);
  // The log has the same lines; the total line's pickup rows before the failed one applied.
  for (const std::string& line : findings) EXPECT_NE(Log().find(line), std::string::npos) << line;
  EXPECT_TRUE(ReadFile(home_ / "out.csv").ends_with("\r\n,,8\r\n")) << ReadFile(home_ / "out.csv");
}

TEST_F(TraceTest, ARunThatMatchesNothingSaysSoAndOneThatMatchesSaysNothing) {
  WriteFile(home_ / "report.txt", "nothing here\r\nor here\r\n");
  ConversionJob none(app_, ui_, Request(home_ / "report.txt", Rdf(kTraceRdf), "out.csv"));
  ASSERT_EQ(none.Check(), RunDriver::Check::Ready);
  ASSERT_TRUE(none.Run());
  EXPECT_EQ(none.Findings(),
            std::vector<std::string>{"no line of " + (home_ / "report.txt").string() +
                                     " matched a marker of " + (home_ / "t.rdf").string() +
                                     ": check the RDF with --check --report"});

  WriteFile(home_ / "report.txt", kReport);
  ConversionJob good(app_, ui_, Request(home_ / "report.txt", home_ / "t.rdf", "out2.csv"));
  ui_.answers = {true};
  ASSERT_EQ(good.Check(), RunDriver::Check::Ready);
  ASSERT_TRUE(good.Run());
  EXPECT_TRUE(good.Findings().empty());
}

TEST_F(TraceTest, TheTallyCountsMarkersUnmatchedBeginningsAndEmptyFields) {
  // A marker that never matches ("ITEMS"), and field 4 that no row fills.
  std::string rdf(kTraceRdf);
  rdf.replace(rdf.find("1,=,TOTAL"), 9, "1,=,TOTL");
  rdf += "4,y,c,4,0,Warehouse,\r\n";
  WriteFile(home_ / "report.txt", std::string(kReport) + "PAGE 2\r\nPAGE 3\r\n");
  ConversionJob job(app_, ui_, Request(home_ / "report.txt", Rdf(rdf), ""));
  RunTally tally(job.engine().tables);
  job.Observe(&tally);
  ASSERT_EQ(job.Check(), RunDriver::Check::Ready);
  ASSERT_TRUE(job.Run());
  EXPECT_EQ(tally.Pieces(), 10);
  EXPECT_EQ(tally.Matched(0), 2);
  EXPECT_EQ(tally.Matched(1), 3);
  EXPECT_EQ(tally.Matched(2), 0);
  const RunTally::Summary s = tally.Report("report.txt", "t.rdf", job.ColumnFields());
  EXPECT_EQ(s.warnings, 2);
  const std::string all = [&] {
    std::string t;
    for (const std::string& l : s.lines) t += l + "\n";
    return t;
  }();
  EXPECT_NE(all.find("report.txt: 10 line pieces read; 5 matched a marker row, 5 (50.0%) "
                     "matched none"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("t.rdf:6: warning: this marker row matched no line of report.txt"),
            std::string::npos);
  EXPECT_NE(all.find("(2 of them blank)"), std::string::npos);
  EXPECT_NE(all.find("         2  \"PAGE n\""), std::string::npos) << all;
  EXPECT_NE(all.find("         1  \"TOTAL       n\""), std::string::npos);
  EXPECT_NE(all.find("t.rdf:17: warning: field 4 (\"Warehouse\") stayed empty in every one of "
                     "the 3 rows written"),
            std::string::npos)
      << all;
  EXPECT_EQ(s.lines.back(), "3 rows written");

  // More beginnings than are shown, one of them with a control character in it.
  std::string many = "\x1b[31m boom\r\n";
  for (char c = 'A'; c <= 'L'; ++c) many += std::string("Z") + c + " item\r\n";
  WriteFile(home_ / "many.txt", many);
  ConversionJob second(app_, ui_, Request(home_ / "many.txt", home_ / "t.rdf", ""));
  RunTally manyTally(second.engine().tables);
  second.Observe(&manyTally);
  ASSERT_EQ(second.Check(), RunDriver::Check::Ready);
  ASSERT_TRUE(second.Run());
  std::string shown;
  for (const std::string& l : manyTally.Report("many.txt", "t.rdf", second.ColumnFields()).lines)
    shown += l + "\n";
  EXPECT_NE(shown.find("         1  \".[nnm boom\""), std::string::npos) << shown;
  EXPECT_EQ(shown.find('\x1b'), std::string::npos);
  EXPECT_NE(shown.find("(and 3 more, of 3 other beginnings)"), std::string::npos) << shown;
  EXPECT_NE(shown.find("stayed empty in the one row written"), std::string::npos);
  EXPECT_TRUE(shown.ends_with("\n1 row written\n")) << shown;
}

}  // namespace
}  // namespace qb
