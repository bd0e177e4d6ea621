// Record identification, pickup and the output writer, run end to end on small RDFs and
// reports written for each case.

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <random>

#include "engine/pattern.h"
#include "output/row_formatter.h"
#include "run/run_driver.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadLines;
using test::WriteFile;

// A one-layout RDF from its DLM, DLC and FLD lines (joined by "|"), with optional RLF lines.
std::string MakeRdf(std::string_view dlm, std::string_view dlc, std::string_view fld,
                    std::string_view rlf = "") {
  auto lines = [](std::string_view rows) {
    std::string out;
    for (char c : rows) out += c == '|' ? std::string("\r\n") : std::string(1, c);
    return out + "\r\n";
  };
  std::string rdf = "RDF 0001T Test@TEST\r\nRDF 01 Detail\r\nDLM\r\n" + lines(dlm) + "DLC\r\n" +
                    lines(dlc) + "FLD\r\n" + lines(fld);
  if (!rlf.empty()) rdf += "RLF SECTION\r\n" + lines(rlf);
  return rdf;
}

class ConvertTest : public test::EngineTest {
 protected:
  // Loads `rdf`, converts `report` to `ext` and returns the output's lines.
  std::vector<std::string> Convert(const std::string& rdf, std::string_view report,
                                   std::string_view ext = ".csv") {
    app_.Settings = app_.SavedSettings;  // each conversion starts from the saved settings
    WriteFile(home_ / "r.txt", report);
    const auto out = home_ / ("out" + std::string(ext));
    std::filesystem::remove(out);
    EXPECT_TRUE(engine_.LoadRDF(Rdf(rdf), home_ / "r.txt"));
    app_.Settings.Item(Key::opfmt).Value = std::string(ext);
    for (auto& [key, value] : overrides_) app_.Settings.Item(key).Value = value;
    driver_ = std::make_unique<RunDriver>(engine_, ParseOutputOptions(app_.Settings));
    if (cancelAt_ > 0) {
      ui_.onProgress = [this](int pct) {
        if (pct >= cancelAt_) driver_->State().CancelFlag = true;
      };
    }
    EXPECT_TRUE(driver_->Run(home_ / "r.txt", out));
    return ReadLines(out);
  }

  std::vector<std::pair<Key, std::string>> overrides_;
  int cancelAt_ = 0;
  std::unique_ptr<RunDriver> driver_;
};

using Lines = std::vector<std::string>;

TEST(Pattern, ClassesAndRuns) {
  auto match = [](std::string_view pattern, std::string_view text) {
    return PatternMatch(pattern, text, pattern.size());
  };
  EXPECT_TRUE(match("nn/nn/nn", "12/31/99"));
  EXPECT_TRUE(match("nn/nn/nn", "1?/31/99"));
  EXPECT_FALSE(match("nn/nn/nn", "12-31-99"));
  EXPECT_FALSE(match("nn/nn/nn", "1A/31/99"));
  EXPECT_FALSE(match("sss", "   "));
  EXPECT_TRUE(match("sss", " a "));
  EXPECT_TRUE(match("ddd", " . "));
  EXPECT_TRUE(match("ddd", "1?2"));
  EXPECT_FALSE(match("ddd", "123"));
  EXPECT_FALSE(match("dd x", "12 A"));  // a closed d run without "." fails at once
  EXPECT_TRUE(match("xbx", "A B"));
  EXPECT_FALSE(match("xbx", "AXB"));
  EXPECT_FALSE(match("xbx", " AB"));
  EXPECT_TRUE(match("x x", "AXC"));  // a blank in the pattern accepts anything
  EXPECT_TRUE(match("(nnn)", "(555)"));
  EXPECT_FALSE(match("(nnn)", "[555]"));
  EXPECT_TRUE(match("AZ", "qq"));  // letters other than the classes accept anything
  // Past the end of the segment there is no character: not a blank, not punctuation.
  EXPECT_FALSE(PatternMatch("b", "", 1));
  EXPECT_FALSE(PatternMatch("-", "", 1));
  EXPECT_TRUE(PatternMatch("x", "", 1));
  EXPECT_TRUE(MatchesClass('n', "2026"));
  EXPECT_FALSE(MatchesClass('n', "20x6"));
}

// The compiled form the run uses must answer as the general match does, for segments of
// every length against patterns of every class, the s and d runs and the absent positions.
TEST(Pattern, CompiledPatternAgreesWithTheGeneralMatch) {
  std::mt19937 random(20261122);
  auto pick = [&random](std::string_view from, size_t n) {
    std::string out;
    for (size_t i = 0; i < n; ++i) out += from[random() % from.size()];
    return out;
  };
  int matched = 0, failed = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string pattern = pick("xbn./sdd(-?A ", random() % 40);
    const size_t length = pattern.size() + random() % 4;
    const std::string segment = pick(" 0129./-(?aZ", random() % (length + 2));
    const bool expected = PatternMatch(pattern, segment, length);
    // What follows the segment in memory (the rest of the line) must not count.
    const std::string line = segment + pick(" 0129./-(?aZ", CompiledPattern::kBlockSlack);
    ASSERT_EQ(CompiledPattern(pattern, length).Matches({line.data(), segment.size()}), expected)
        << "pattern \"" << pattern << "\" length " << length << " segment \"" << segment << "\"";
    (expected ? matched : failed)++;
  }
  EXPECT_GT(matched, 1000);  // both answers were tested often
  EXPECT_GT(failed, 1000);
}

// Pickups trim a field from a block's mask of non-blanks; the bytes after the field (here
// non-blanks) must not count, and bytes that differ from a blank in one bit are data.
TEST(Text, TrimBlockAgreesWithTrim) {
  using namespace std::string_view_literals;
  for (std::string_view body :
       {""sv, "a b"sv, "1,234.50CR"sv, "\xa0x\0"sv, "\tx\t"sv, "x       y"sv}) {
    for (size_t before = 0; before <= 17; ++before) {
      for (size_t after = 0; after <= 17; ++after) {
        const std::string field =
            std::string(before, ' ') + std::string(body) + std::string(after, ' ');
        const std::string buffer = field + std::string(kCopyBlock, 'x');
        EXPECT_EQ(TrimBlock(buffer.data(), field.size()), Trim(field)) << '"' << field << '"';
        EXPECT_EQ(text_detail::NonBlankBits16(buffer.data()),
                  text_detail::NonBlankBitsByWords(buffer.data()))
            << '"' << field << '"';
      }
    }
  }
}

// A .csv text value goes in double quotes, inner ones doubled, when it holds a comma or a
// double quote anywhere: the test looks at whole blocks, so try every position and length.
// A .csv value is quoted when it holds a comma, a double quote, a CR or an LF (a lone CR
// unquoted reads as a row break), wherever it stands in the value.
TEST(Formatting, CsvQuotingFindsCommasQuotesAndLineBreaksAnywhere) {
  RowFormatter formatter(OutputFormat::Csv, ",", "\"", false, {{false, true}});
  auto rule = [](const std::string& v) {
    if (v.find_first_of(",\"\r\n") == std::string::npos) return v;
    std::string quoted = "\"";
    for (char c : v) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
  };
  std::mt19937 random(2611);
  for (int i = 0; i < 20000; ++i) {
    std::string value(random() % 40, 'a');
    if (i % 2 == 0 && !value.empty()) value[random() % value.size()] = ",\"\r\n"[i / 2 % 4];
    std::vector<std::string_view> values{value};
    ASSERT_EQ(formatter.Join(values, false), rule(value)) << value;
    // Written from a batch: the bytes after the value are another value's, here commas.
    const std::string batch = value + std::string(kCopyBlock, ',');
    std::string out(formatter.ColumnBound(value), '\0');
    char* end =
        formatter.PutColumn(out.data(), 0, std::string_view(batch.data(), value.size()), false);
    ASSERT_EQ(std::string(out.data(), end), rule(value)) << value;
    // The word-wise test, which processors without SSE2 use, finds the same.
    ASSERT_EQ(RowFormatter::HasCsvSpecialByWords(batch.data(), value.size()),
              RowFormatter::HasCsvSpecialAt(batch.data(), value.size()))
        << value;
  }
}

// The numeric clean-up takes a quick pass for plain amounts and a careful one for blanks and
// negatives; both must give what the rule says: negative when the value holds "(", "-" or
// "cr", the characters of "()%#*$,+-cdr" dropped, blanks dropped at both ends.
TEST(Formatting, NumericCleanUpAgreesWithTheRule) {
  auto rule = [](const std::string& value) {
    std::string lower = value, kept;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool negative =
        lower.find_first_of("(-") != std::string::npos || lower.find("cr") != std::string::npos;
    for (size_t i = 0; i < value.size(); ++i) {
      if (std::string_view("()%#*$,+-cdr").find(lower[i]) == std::string_view::npos)
        kept += value[i];
    }
    kept = std::string(Trim(kept));
    return negative ? "-" + kept : kept;
  };
  // Written from a batch, a plain amount is cleaned up from one block.
  RowFormatter batchWriter(OutputFormat::Csv, ",", "\"", false, {{true, false}});
  std::mt19937 random(11222026);
  for (int i = 0; i < 30000; ++i) {
    // Plain amounts, then values without blanks and signs, then anything.
    const std::string_view from = i % 3 == 0   ? "0123456789.,"
                                  : i % 3 == 1 ? "0123456789.,$%#*+rRdDx"
                                               : "0123456789.,()-+$%#*crCRdD x";
    std::string value;
    for (size_t n = random() % 20; n > 0; --n) value += from[random() % from.size()];
    std::string out(value.size() + 1, '?');
    out.resize(RowFormatter::CleanNumber(value, out.data()));
    ASSERT_EQ(out, rule(value)) << '"' << value << '"';
    const std::string batch = value + std::string(kCopyBlock, ',');
    std::string written(batchWriter.ColumnBound(value), '?');
    char* end = batchWriter.PutColumn(written.data(), 0, {batch.data(), value.size()}, false);
    ASSERT_EQ(std::string(written.data(), end), rule(value)) << '"' << value << '"';
  }
}

TEST_F(ConvertTest, FirstMatchingRowWinsAndAnUnknownRuleEndsTheSearch) {
  const std::string rdf =
      MakeRdf("1,=,AB,0,1,ONE|1,=,ABC,0,1,TWO|1,z,Q,0,1,BAD|1,=,QQ,0,1,QQQ",
              "ONE,0,0,1,1,5,=,,|TWO,0,0,1,1,5,a,two,set|QQQ,0,0,1,1,5,=,,", "1,y,c,1,0,Value,");
  EXPECT_EQ(Convert(rdf, "ABCDE\nQQ\nABX\n"), (Lines{"Value", "ABCDE", "ABX"}));
  EXPECT_EQ(driver_->Stats().linesProcessed, 3);
}

TEST_F(ConvertTest, WaitSlotsWriteRecordsLevelByLevel) {
  const std::string rdf = MakeRdf("1,=,CUST,0,1,CUS|1,=,ORD,0,2,ORD|1,=,ITEM,0,3,ITM",
                                  "CUS,0,0,1,6,2,=,,|ORD,0,0,2,5,2,=,,|ITM,0,0,3,6,2,=,,",
                                  "1,y,c,1,0,Cust,|2,y,c,2,0,Order,|3,y,c,3,0,Item,");
  EXPECT_EQ(Convert(rdf,
                    "CUST C1\nORD O1\nITEM I1\nITEM I2\nORD O2\nITEM I3\nCUST C2\nORD O3\n"
                    "ITEM I4\n"),
            (Lines{"Cust,Order,Item", "C1,O1,I1", ",,I2", ",O2,I3", "C2,O3,I4"}));
}

TEST_F(ConvertTest, GroupsNegativeGroupsAndSubGroups) {
  const std::string rdf = MakeRdf(
      "1,=,GRPA,2,0,HDR|1,=,GRPB,-3,0,HDR|1,=,BLK,4,0,BLK,,y|1,=,SKIP,-6,0,skip|1,=,DET,0,1,DET",
      "HDR,2,0,5,6,1,=,,|DET,0,0,1,5,6,=,,|DET,2,0,2,5,6,=,,|DET,3,0,3,5,6,=,,|"
      "DET,5,0,4,5,6,=,,|DET,6,0,4,5,6,a,in6,set",
      "1,y,c,1,0,All,|2,y,c,2,0,G2,|3,y,c,3,0,G3,|4,y,c,4,0,G5,|5,y,c,5,0,Hdr,");
  EXPECT_EQ(Convert(rdf,
                    "GRPA x\nDET aaaaaa\nGRPB y\nDET bbbbbb\nBLK\nBLK\nDET cccccc\nSKIP\n"
                    "DET dddddd\n"),
            (Lines{"All,G2,G3,G5,Hdr",
                   "aaaaaa,aaaaaa,,,y",  // GRPB picked up under group 2, then set group 3
                   "bbbbbb,,bbbbbb,,",   // group 3
                   "cccccc,,,cccccc,",   // BLK twice: 4 and its repeat, 5
                   "dddddd,,,in6,"}));   // a skip row with group -6 sets group 6
}

TEST_F(ConvertTest, EveryPickupRule) {
  const std::string rdf =
      MakeRdf("1,=,H,0,0,HDR|1,=,D,0,1,DET|1,=,C,0,0,CON|1,=,K,0,0,KEP",
              "HDR,0,0,4,3,7,a,,hold|HDR,0,0,5,1,1,a,SETH,seth|HDR,0,0,6,3,7,a,,hold|"
              "DET,0,0,1,3,3,=,,|DET,0,0,2,7,3,=,N/A,skip|DET,0,0,3,11,3,=,DO,prev|"
              "DET,0,0,4,1,1,a,,get|DET,0,0,5,1,1,a,,getc|DET,0,0,6,1,1,a,,getz|"
              "DET,0,0,7,1,1,a,FIXED,set|DET,0,0,9,1,1,a,X,catv|DET,0,0,11,15,1,=,,|"
              "DET,0,0,11,1,1,=p,SAME,set|CON,0,0,8,3,5,a,,cat|KEP,0,0,10,3,6,a,,keep",
              "1,y,c,1,0,Id,|2,y,c,2,0,Skip,|3,y,c,3,0,Prev,|4,y,c,4,0,Get,|5,y,c,5,0,GetC,|"
              "6,y,c,6,0,GetZ,|7,y,c,7,0,Set,|8,y,c,8,0,Cat,|9,y,c,9,0,CatV,|10,y,c,10,0,Keep,|"
              "11,y,c,11,0,EqP,");
  EXPECT_EQ(
      Convert(rdf,
              "H HOLDVAL\nD 001 N/A AAA A\nC one\nC two\nK first\nK second\n"
              "D 002 XYZ DO  A\nD 003 N/A BBB B\n"),
      (Lines{"Id,Skip,Prev,Get,GetC,GetZ,Set,Cat,CatV,Keep,EqP",
             "001,,AAA,HOLDVAL,SETH,HOLDVAL,FIXED,one two, X,first,A",
             "002,XYZ,AAA,HOLDVAL,,0.00,FIXED,, X,,SAME", "003,,BBB,HOLDVAL,,0.00,FIXED,, X,,B"}));
}

TEST_F(ConvertTest, RecordSelectionQualifyingAndNumbers) {
  const std::string rdf = MakeRdf(
      "1,=,D,0,1,DET|1,=,T,0,1,TOT",
      "DET,0,0,2,3,12,=,,|DET,0,0,3,16,12,=,,|TOT,0,0,1,1,1,a,TOTAL,set|TOT,0,0,3,16,12,=,,",
      "1,y,r,1,0,[ Kind ],|2,y,c,2,0,Text,|3,y,n,3,0,Amount,");
  // Text in columns 3 to 14, the amount from column 16.
  auto row = [](char kind, std::string text, std::string amount) {
    text.resize(12, ' ');
    return std::string(1, kind) + " " + text + " " + amount + "\n";
  };
  const std::string report = row('D', "say \"hi\"", "1,234.50CR") + row('D', "a,b", "(12.00)") +
                             row('D', "it's", "-5") + row('D', "", "$1,000.00 ") +
                             row('T', "", "12.5%");
  EXPECT_EQ(Convert(rdf, report),
            (Lines{"Kind,Text,Amount", ",\"say \"\"hi\"\"\",-1234.50", ",\"a,b\",-12.00",
                   ",it's,-5", ",,1000.00", "TOTAL,,12.5"}));
  // Details Only: the four details; the last record (a total) is rejected, and the final
  // write then prints an empty line.
  overrides_ = {{Key::rtype, "Details Only"}};
  Lines details = Convert(rdf, report);
  ASSERT_EQ(details.size(), 6u);
  EXPECT_EQ(details[4], ",,1000.00");
  EXPECT_EQ(details[5], "");
  overrides_ = {{Key::rtype, "Totals Only"}};
  EXPECT_EQ(Convert(rdf, report), (Lines{"Kind,Text,Amount", "TOTAL,,12.5"}));
  // The final write that selection rejects prints one empty line and no second header.
  EXPECT_EQ(Convert(rdf, row('T', "", "1.00") + row('D', "x", "")),
            (Lines{"Kind,Text,Amount", "TOTAL,,1.00", ""}));

  // .txt: the delimiter, and the qualifier doubled inside text values; numbers and empty
  // text stay bare.
  overrides_ = {{Key::delim, "tab"}, {Key::tqswt, "1"}, {Key::textq, "'"}};
  EXPECT_EQ(Convert(rdf, report, ".txt"),
            (Lines{"'Kind'\t'Text'\tAmount", "\t'say \"hi\"'\t-1234.50", "\t'a,b'\t-12.00",
                   "\t'it''s'\t-5", "\t\t1000.00", "'TOTAL'\t\t12.5"}));
  overrides_ = {{Key::delim, "comma"}, {Key::tqswt, "0"}};
  EXPECT_EQ(Convert(rdf, row('D', "a,b", "1"), ".txt"), (Lines{"Kind,Text,Amount", ",a,b,1"}));
}

TEST_F(ConvertTest, LinePiecesFormFeedsAndLongLines) {
  const std::string rdf = MakeRdf("500,=,Y,0,1,END|1,x,,0,1,ALL,0",
                                  "ALL,0,0,1,1,5,=,,|END,0,0,1,498,6,=,,", "1,y,c,1,0,Piece,");
  // A, FF, B gives A and B; a lone FF two empty pieces; C, FF gives C and an empty piece.
  EXPECT_EQ(Convert(rdf, "A\fB\n\f\nC\f\n"), (Lines{"Piece", "A", "B", "", "", "C", ""}));
  EXPECT_EQ(driver_->Stats().linesProcessed, 6);
  EXPECT_EQ(driver_->Stats().linesWritten, 6);
  // CR LF and a last line without LF; a line over 500 characters is cut at 500.
  EXPECT_EQ(Convert(rdf, "one\r\n" + std::string(497, 'x') + "xxYZZZ\r\ntwo"),
            (Lines{"Piece", "one", "xxY", "two"}));  // columns 498 to 500
  // An empty report: no line, and the final write still gives the header and a row.
  EXPECT_EQ(Convert(rdf, ""), (Lines{"Piece", ""}));
  EXPECT_EQ(driver_->Stats().linesProcessed, 0);
}

// A report of several megabytes: rows cross the writer's batches and the reader's buffer
// refills, form feeds land anywhere, and every row comes out once, in order.
TEST_F(ConvertTest, LargeReportKeepsEveryRowInOrder) {
  const std::string rdf = MakeRdf("1,=,D,0,1,DET", "DET,0,0,1,3,7,=,,|DET,0,0,2,12,14,=,,",
                                  "1,y,c,1,0,Number,|2,y,n,2,0,Amount,");
  std::string report;
  Lines expected{"Number,Amount"};
  for (int i = 0; i < 60000; ++i) {
    const std::string number = std::to_string(1000000 + i);
    const std::string amount = std::to_string(i % 1000) + ",234.5" + std::to_string(i % 10);
    std::string line = "D " + number + "  " + std::string(12 - amount.size(), ' ') + amount +
                       (i % 3 ? "CR" : "  ") + std::string(30 + i % 17, ' ') + "NOTES";
    if (i % 37 == 0) line += "\f";  // ends a page: an empty piece follows
    report += line + "\n";
    expected.push_back(number + "," + (i % 3 ? "-" : "") + std::to_string(i % 1000) + "234.5" +
                       std::to_string(i % 10));
  }
  ASSERT_GT(report.size(), 3u << 20);  // three reader buffers; the rows fill several batches
  EXPECT_EQ(Convert(rdf, report), expected);
  EXPECT_EQ(driver_->Stats().linesProcessed, 60000 + (60000 + 36) / 37);
  // Progress grew one percent at a time to 100, each step reported once.
  ASSERT_FALSE(ui_.percents.empty());
  EXPECT_LE(ui_.percents.front(), 1);
  EXPECT_EQ(ui_.percents.back(), 100);
  EXPECT_TRUE(std::adjacent_find(ui_.percents.begin(), ui_.percents.end(),
                                 [](int a, int b) { return b != a + 1; }) == ui_.percents.end());
}

// An output that cannot be written ends the run with the system's error, rows and all, and
// leaves the previous output as it was and no temporary file. The disk is "full" at a
// file-size limit of 256 KiB (each test runs in a process of its own).
TEST_F(ConvertTest, WriteFailureEndsTheRunAndKeepsThePreviousOutput) {
  const std::string rdf = MakeRdf("1,=,D,0,1,DET", "DET,0,0,1,3,6,=,,", "1,y,c,1,0,V,");
  std::string report;
  for (int i = 0; i < 200000; ++i) report += "D " + std::to_string(100000 + i) + "\n";
  WriteFile(home_ / "r.txt", report);
  WriteFile(home_ / "out.csv", "previous output\r\n");
  ASSERT_TRUE(engine_.LoadRDF(Rdf(rdf), home_ / "r.txt"));
  app_.Settings.Item(Key::opfmt).Value = ".csv";
  RunDriver driver(engine_, ParseOutputOptions(app_.Settings));
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit small = old;
  small.rlim_cur = 256 * 1024;
  std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool ok = driver.Run(home_ / "r.txt", home_ / "out.csv");
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_FALSE(ok);
  ASSERT_TRUE(driver.LastError().has_value());
  EXPECT_EQ(driver.LastError()->number(), kDiskFull);
  EXPECT_FALSE(driver.Stats().finished);
  EXPECT_EQ(test::ReadFile(home_ / "out.csv"), "previous output\r\n");
  EXPECT_EQ(test::Files(home_.path()),
            (std::vector<std::string>{"log", "out", "out.csv", "qbsys.txt", "r.txt", "t.rdf"}));
}

TEST_F(ConvertTest, StopEndsTheRunAfterTheLinesPieces) {
  const std::string rdf =
      MakeRdf("1,=,STOP,0,0,stop|1,=,D,0,1,DET", "DET,0,0,1,3,3,=,,", "1,y,c,1,0,V,");
  EXPECT_EQ(Convert(rdf, "D 001\nSTOP\fD 002\nD 003\n"), (Lines{"V", "001", "002"}));
  EXPECT_FALSE(driver_->Stats().cancelled);
}

TEST_F(ConvertTest, CancelKeepsTheRowsGatheredSoFar) {
  const std::string rdf = MakeRdf("1,=,D,0,1,DET", "DET,0,0,1,3,6,=,,", "1,y,c,1,0,V,");
  std::string report;
  for (int i = 0; i < 1000; ++i) report += "D " + std::to_string(100000 + i) + "\n";
  cancelAt_ = 30;
  Lines out = Convert(rdf, report);
  const RunStats& stats = driver_->Stats();
  EXPECT_TRUE(stats.cancelled);
  EXPECT_GT(stats.linesProcessed, 250);
  EXPECT_LT(stats.linesProcessed, 400);
  ASSERT_EQ(out.size(), static_cast<size_t>(stats.linesWritten) + 1);
  EXPECT_EQ(out.back(), std::to_string(100000 + stats.linesProcessed - 1));  // the final write
  // Progress only grows, and stops being reported after the cancel.
  EXPECT_TRUE(std::is_sorted(ui_.percents.begin(), ui_.percents.end()));
  EXPECT_EQ(ui_.percents.back(), 30);
}

TEST_F(ConvertTest, LineErrorsDropTheLineAndAreShownOnce) {
  const std::string rdf = MakeRdf("0,=,Z,0,1,BAD|1,=,D,0,1,DET",
                                  "DET,0,0,1,3,3,=,,|DET,0,0,99,3,3,=,,|DET,0,0,2,7,3,=,,",
                                  "1,y,c,1,0,A,|2,y,c,2,0,B,");
  // Start column 0 is an error on every line: each line is dropped, the run goes on to its
  // final write (an empty record).
  EXPECT_EQ(Convert(rdf, "D 001 aaa\nD 002 bbb\nD 003 ccc\n"), (Lines{"A,B", ","}));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, "Error: 5\rInvalid procedure call or argument");
  size_t logged = 0;
  for (const std::string& line : ReadLines(home_ / "log" / "qbuia.log")) {
    logged += line.find("CheckDataMarker       --- Error: 5  Invalid") != std::string::npos;
  }
  EXPECT_EQ(logged, 3u);

  // A pickup row for a field the RDF lacks: its trap skips the rest of that line's rows.
  ui_.messages.clear();
  const std::string rdf2 =
      MakeRdf("1,=,D,0,1,DET", "DET,0,0,1,3,3,=,,|DET,0,0,99,3,3,=,,|DET,0,0,2,7,3,=,,",
              "1,y,c,1,0,A,|2,y,c,2,0,B,");
  EXPECT_EQ(Convert(rdf2, "D 001 aaa\nD 002 bbb\n"), (Lines{"A,B", "001,", "002,"}));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_NE(ui_.messages[0].text.find("Pickup Data Error  "), std::string::npos);
}

}  // namespace
}  // namespace qb
