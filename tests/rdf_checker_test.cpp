// The RDF checker: each test breaks one thing in a copy of a sample RDF and looks for the
// diagnostic on the broken line.

#include "engine/rdf_checker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "tests/engine_fixture.h"

namespace qb {
namespace {

using Severity = RdfDiagnostic::Severity;
using test::ReadFile;
using test::Sample;
using test::WriteFile;

class RdfChecker : public ::testing::Test {
 protected:
  // A copy of `sample` with every `from` replaced by its `to` (each must be there), checked.
  // `line` is the line of the first replacement.
  RdfCheckResult Break(std::string_view sample,
                       std::initializer_list<std::pair<std::string_view, std::string_view>> edits) {
    text_ = ReadFile(Sample(sample));
    line_ = 0;
    for (auto [from, to] : edits) {
      size_t at = text_.find(from);
      EXPECT_NE(at, std::string::npos) << from;
      if (line_ == 0) line_ = LineOf(at);
      for (; at != std::string::npos; at = text_.find(from, at + to.size())) {
        text_.replace(at, from.size(), to);
      }
    }
    WriteFile(dir_ / sample, text_);
    return CheckRdf(dir_ / sample);
  }
  RdfCheckResult Break(std::string_view sample, std::string_view from, std::string_view to) {
    return Break(sample, {{from, to}});
  }
  // The line of the broken file on which `text` stands.
  int64_t LineOf(std::string_view text) const { return LineOf(text_.find(text)); }
  int64_t LineOf(size_t at) const {
    return 1 + std::count(text_.begin(), text_.begin() + static_cast<ptrdiff_t>(at), '\n');
  }

  test::TempDir dir_;
  std::string text_;
  int64_t line_ = 0;
};

// The one diagnostic on `line` has this severity and holds every one of `words`.
testing::AssertionResult On(const RdfCheckResult& r, int64_t line, Severity severity,
                            std::initializer_list<std::string_view> words) {
  std::vector<const RdfDiagnostic*> found;
  for (const RdfDiagnostic& d : r.diagnostics) {
    if (d.line == line) found.push_back(&d);
  }
  std::string all;
  for (const RdfDiagnostic& d : r.diagnostics) all += "\n  " + FormatDiagnostic(d);
  if (found.size() != 1)
    return testing::AssertionFailure() << found.size() << " diagnostics on line " << line << all;
  if (found[0]->severity != severity)
    return testing::AssertionFailure() << "other severity:" << all;
  for (std::string_view w : words) {
    if (found[0]->message.find(w) == std::string::npos)
      return testing::AssertionFailure() << "no \"" << w << "\":" << all;
  }
  return testing::AssertionSuccess();
}

TEST_F(RdfChecker, SamplesCheckClean) {
  for (const auto& entry : std::filesystem::directory_iterator(QB_SAMPLES_DIR)) {
    if (entry.path().extension() != ".rdf") continue;
    const RdfCheckResult r = CheckRdf(entry.path());
    EXPECT_EQ(r.errors + r.warnings, 0)
        << entry.path() << ": " << FormatDiagnostic(r.diagnostics[0]);
  }
}

TEST_F(RdfChecker, TooFewColumns) {
  const RdfCheckResult r = Break("ARINV01.rdf", "INV,0,0,4,3,6,=,,", "INV,0,0,4,3");
  EXPECT_TRUE(On(r, line_, Severity::Error,
                 {"DLC line has 5 columns; 8 are needed: record name, group, sequence, field"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, TooManyColumns) {
  const RdfCheckResult r = Break("ARINV01.rdf", "HD,Invoice Register", "HD,Invoices, Northgate");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"RLF line has 3 columns; at most 2", "code, value"}));
}

TEST_F(RdfChecker, UnknownSectionCode) {
  const RdfCheckResult r = Break("ARINV01.rdf", "RLF SECTION", "DLX\r\nRLF SECTION");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"\"DLX\" is not a section code", "DLM, DLC"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, NumberWhereAWordIsNeeded) {
  const RdfCheckResult r = Break("ARINV01.rdf", "ADDR,0,0,11,20,40,=,,", "ADDR,0,0,11,20,40,7,,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"DLC column 7, the rule, is 7", "column is missing"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, TextWhereANumberIsNeeded) {
  const RdfCheckResult r = Break("ARINV01.rdf", "nn/nn/nn,0,1,INV", "nn/nn/nn,x1,1,INV");
  EXPECT_TRUE(On(r, line_, Severity::Error,
                 {"DLM column 4, the group, is \"x1\"; it must be a whole number"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, NumberOutOfRange) {
  const RdfCheckResult r = Break("ARINV01.rdf", "8,y,n,7,0,Amount,", "8,y,n,7,40000,Amount,");
  EXPECT_TRUE(
      On(r, line_, Severity::Error, {"the label flag, is 40000; it must be at most 32,767"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, UnknownMarkerRuleHidesLaterRows) {
  const RdfCheckResult r = Break("ARINV01.rdf", "11,=,SHIP TO:", "11,y,SHIP TO:");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the rule, is \"y\"", "the 3 rows after it"}));
}

TEST_F(RdfChecker, UnknownIdentificationRule) {
  const RdfCheckResult r = Break("APCHK01.rdf", "F1,1,x,DETAIL,stop,0", "F1,1,q,DETAIL,stop");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"RID column 3", "every report line passes"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, UnknownPickupRule) {
  const RdfCheckResult r = Break("ARINV01.rdf", "INV,0,0,4,3,6,=,,", "INV,0,0,4,3,6,==,,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"DLC column 7", "must be =, a or =p"}));
}

TEST_F(RdfChecker, UnknownPickupActionForItsRule) {
  const RdfCheckResult r =
      Break("ARINV01.rdf", "CUST,0,0,2,11,6,a,,hold", "CUST,0,0,2,11,6,a,,hld");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the action, is \"hld\"", "with rule a"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, MisspeltSkipAction) {
  const RdfCheckResult r = Break("ARINV01.rdf", "(CONTINUED),0,0,skip", "(CONTINUED),0,0,skp");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"\"skp\"", "misspelt skip"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, CapitalisedStopAction) {
  const RdfCheckResult r = Break("ARINV01.rdf", "0,0,stop,0", "0,0,STOP,0");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"misspelt stop", "in lower case"}));
}

TEST_F(RdfChecker, PickupForARecordNoMarkerNames) {
  const RdfCheckResult r = Break("ARINV01.rdf", "CUST,0,0,2,", "CUSX,0,0,2,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"\"CUSX\"; no DLM row has this action"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, RecordNameLongerThanFourCharacters) {
  const RdfCheckResult r = Break("ARINV01.rdf", "RTOT,0,0,", "RTOTAL,0,0,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"keeps only four characters", "\"RTOT\""}));
  EXPECT_EQ(r.errors, 4);  // each of the record's pickup rows
}

TEST_F(RdfChecker, UnknownFieldType) {
  const RdfCheckResult r = Break("ARINV01.rdf", "6,y,c,6,0,PO Number,", "6,y,q,6,0,PO Number,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the type, is \"q\"", "type code"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, RecordTypeOffFieldOne) {
  const RdfCheckResult r = Break("ARINV01.rdf", "4,y,c,4,0,Invoice,", "4,y,r,4,0,Invoice,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"type r", "only on field 1"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, PickupIntoUndefinedField) {
  const RdfCheckResult r = Break("ARINV01.rdf", "INV,0,0,7,35,", "INV,0,0,12,35,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the field, is 12", "FLD defines no field 12"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, WaitSlotOutOfRange) {
  const RdfCheckResult r = Break("ARINV01.rdf", "nn/nn/nn,0,1,INV", "nn/nn/nn,0,11,INV");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the wait slot, is 11", "1 to 10"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, PreviousValueRuleOnMarkerWithoutWaitSlot) {
  const RdfCheckResult r =
      Break("ARINV01.rdf", "ADDR,0,0,11,20,40,=,,", "ADDR,0,0,11,20,40,=p,x,set");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"=p", "line " + std::to_string(LineOf("ADDR\r"))}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, PickupStartBeforeColumnOne) {
  const RdfCheckResult r = Break("ARINV01.rdf", "INV,0,0,5,11,8,", "INV,0,0,5,0,8,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the start, is 0", "counted from 1"}));
}

TEST_F(RdfChecker, NegativeSearchLength) {
  const RdfCheckResult r = Break("ARINV01.rdf", "0,0,stop,0", "0,0,stop,-1");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the length, is -1", "cannot be negative"}));
}

TEST_F(RdfChecker, MorePartsAnnouncedThanPresent) {
  const RdfCheckResult r = Break("ARINV01.rdf", "RDF 0001T", "RDF 0002T");
  EXPECT_TRUE(On(r, 1, Severity::Error, {"announce 2 detail parts, but the file has 1"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, FewerPartsAnnouncedThanPresent) {
  const RdfCheckResult r = Break("APCHK01.rdf", "RDF 0002T", "RDF 0001T");
  EXPECT_TRUE(On(r, 1, Severity::Error, {"announce 1 detail part, but the file has 2"}));
}

TEST_F(RdfChecker, RepeatedPartId) {
  const RdfCheckResult r = Break("APCHK01.rdf", "RDF 02 Detail", "RDF 01 Detail");
  EXPECT_TRUE(On(r, line_, Severity::Error,
                 {"Detail part 01 is already on line " + std::to_string(LineOf("RDF 01"))}));
}

TEST_F(RdfChecker, FlagRowForMissingLayout) {
  const RdfCheckResult r = Break("APCHK01.rdf", "02,1\r\n", "03,1\r\n");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"layout \"03\"", "no part line begins \"RDF 03\""}));
}

TEST_F(RdfChecker, FlagRowThatNeverMatches) {
  const RdfCheckResult r = Break("APCHK01.rdf", "02,1\r\n", "02,x\r\n");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"never matches", "only 0 and 1"}));
}

TEST_F(RdfChecker, CountedRecordWithSequenceZeroRows) {
  const RdfCheckResult r = Break("ARINV01.rdf", "ADDR", "SHIP");
  EXPECT_TRUE(On(r, LineOf("SHIP,"), Severity::Warning,
                 {"\"SHIP\" begins with a capital S", "sequence 1", "none ever applies"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, UncountedRecordWithSequenceRows) {
  const RdfCheckResult r = Break("GLDET01.rdf", "SDSC", "DESC");
  EXPECT_TRUE(On(r, LineOf("DESC,"), Severity::Warning,
                 {"does not begin with a capital S", "never apply"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, ContainsRuleWithoutLengthOrTooShortOne) {
  RdfCheckResult r = Break("ARINV01.rdf", "0,0,stop,0", "0,0,stop");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"gives none", "0 for the rest of the line"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  r = Break("ARINV01.rdf", "0,0,stop,0", "0,0,stop,5");  // END OF REPORT: 13 characters
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"is 5", "never matches", "at least 13"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  r = Break("ARINV01.rdf", "1,x,END OF REPORT,0,0,stop,0", "495,x,END OF REPORT,0,0,stop,0");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"from column 495", "never matches"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  // In a UTF-8 RDF the marker is as long as its characters: "ÄND" is 3, in 4 bytes.
  r = Break("ARINV01.rdf", {{"RDF 0001T", "\xEF\xBB\xBFRDF 0001T"},
                            {"END OF REPORT,0,0,stop,0", "\xC3\x84ND,0,0,stop,3"}});
  EXPECT_EQ(r.errors + r.warnings, 0);
}

TEST_F(RdfChecker, PickupPastColumn500) {
  const RdfCheckResult r = Break("ARINV01.rdf", "INV,0,0,10,73,12,", "INV,0,0,10,495,12,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"column 506", "first 500 characters"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

// Past column 500 a line has no characters: an = marker there never matches, and a pattern
// there matches every line.
TEST_F(RdfChecker, MarkersPastColumn500) {
  RdfCheckResult r = Break("ARINV01.rdf", "1,=,CUSTOMER,", "497,=,CUSTOMER,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"column 504", "never matches"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  r = Break("ARINV01.rdf", "3,p,xxxxxx  nn/nn/nn,", "600,p,xxxxxx  nn/nn/nn,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"column 615", "matches every line"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  // In a UTF-8 RDF a marker is as long as its characters: three letters at 498 end at 500.
  r = Break("ARINV01.rdf", {{"RDF 0001T", "\xEF\xBB\xBFRDF 0001T"},
                            {"1,=,CUSTOMER,", "498,=,\xC3\x84\xC3\x96\xC3\x9C,"}});
  EXPECT_EQ(r.errors + r.warnings, 0);
}

TEST_F(RdfChecker, MarkerRowHiddenByAnEarlierOne) {
  const RdfCheckResult r = Break("ARINV01.rdf", "CUSTOMER TOTAL,0,1,CTOT", "REPORT TOTAL,0,1,CTOT");
  EXPECT_TRUE(On(r, line_ + 1, Severity::Warning,
                 {"never matches", "line " + std::to_string(line_), "same rule, start"}));
}

TEST_F(RdfChecker, WrittenFieldNoPickupFills) {
  const RdfCheckResult r = Break("ARINV01.rdf", "ADDR,0,0,11,20,40,=,,\r\n", "");
  EXPECT_TRUE(On(r, LineOf("11,y,w4"), Severity::Warning, {"Field 11 (Ship To)", "no DLC row"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, TwoWrittenFieldsWithOneOrder) {
  const RdfCheckResult r = Break("ARINV01.rdf", "9,y,n,8,0,Tax,", "9,y,n,7,0,Tax,");
  EXPECT_TRUE(On(r, line_, Severity::Warning,
                 {"the order, is 7, as for field 8 on line " + std::to_string(line_ - 1)}));
}

TEST_F(RdfChecker, FieldDefinedTwice) {
  const RdfCheckResult r =
      Break("ARINV01.rdf", "11,y,w4,10,0,Ship To,", "11,y,w4,10,0,Ship To,\r\n11,n,c,0,0,Again,");
  EXPECT_TRUE(On(r, line_ + 1, Severity::Error,
                 {"field 11 is already defined on line " + std::to_string(line_)}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, DetailSectionInTheHeaderPart) {
  const RdfCheckResult r =
      Break("ARINV01.rdf", "AU,Quillbrook samples", "AU,x\r\nDLM\r\n1,=,A,0,0,B");
  EXPECT_TRUE(On(r, line_ + 1, Severity::Error, {"DLM is a section of a detail part", "DIN"}));
  EXPECT_EQ(r.errors + r.warnings, 1);  // and the row under it is not read as DLM
}

TEST_F(RdfChecker, PickupInAGroupNoMarkerStarts) {
  const RdfCheckResult r = Break("ARINV01.rdf", "ADDR,0,0,11", "ADDR,3,0,11");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"the group, is 3", "no DLM row starts"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, TotalsOnlyWithoutARecordField) {
  const RdfCheckResult r =
      Break("ARINV01.rdf", {{"RT,All Records", "RT,Totals Only"}, {"1,y,r,1,", "1,y,c,1,"}});
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"field 1 of type r", "every record is written"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, NoFieldWritten) {
  const RdfCheckResult r = Break("ARINV01.rdf", ",y,", ",n,");
  EXPECT_TRUE(On(r, LineOf("FLD\r\n"), Severity::Warning,
                 {"No field of detail part 01", "refuses to start", "--fields"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

// Settings that make runs fail: an unknown encoding a run's that sets none of its own, an
// empty delimiter a .txt output's.
TEST_F(RdfChecker, SettingsThatRunsRefuse) {
  RdfCheckResult r = Break("ARINV01.rdf", "RT,All Records", "EN,latin9\r\nRT,All Records");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"is \"latin9\"", "refuses any other unless"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
  r = Break("ARINV01.rdf", "RT,All Records", "DL,\r\nRT,All Records");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"delimiter is empty", ".txt"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, DelimitedFieldsOutOfOrder) {
  const RdfCheckResult r = Break("ORDERS.rdf", "2,12,,0,", "3,12,,0,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"the input field, is 3", "places input field 2"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, PdfPitchInPoints) {
  const RdfCheckResult r = Break("ARINV01PP.rdf", "N,480,3600,0", "N,5,3600,0");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"the pitch, is 5", "looks like points"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, PdfPitchTooNarrowForThePage) {
  const RdfCheckResult r = Break("ARINV01PP.rdf", "N,480,3600,0", "N,100,3600,0");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"column 577", "only 500 columns"}));
}

TEST_F(RdfChecker, PdfBandsInPoints) {
  const RdfCheckResult r =
      Break("ARINV01PP.rdf",
            {{"25440,30960", "254,309"}, {"32160,36240", "321,362"}, {"37920,43440", "379,434"}});
  EXPECT_TRUE(On(r, LineOf("PDC\r\n"), Severity::Warning, {"below 1000", "look like points"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, DelimitedFieldPastColumn500) {
  const RdfCheckResult r = Break("ORDERS.rdf", "6,68,,0,", "6,600,,0,");
  EXPECT_TRUE(On(r, line_, Severity::Error, {"the column, is 600", "1 to 500"}));
}

TEST_F(RdfChecker, DamagedScrambledFirstLine) {
  std::string text = ReadFile(Sample("ARINV01S.rdf"));
  text[10] = text[10] == 'a' ? 'b' : 'a';
  WriteFile(dir_ / "S.rdf", text);
  const RdfCheckResult r = CheckRdf(dir_ / "S.rdf");
  EXPECT_TRUE(On(r, 1, Severity::Error, {"checksum", "error 517, Corrupted RDF"}));
  EXPECT_EQ(r.errors + r.warnings, 1);
}

TEST_F(RdfChecker, AnIndentedRowIsToldToBeAComment) {
  const RdfCheckResult r = Break("ARINV01.rdf", "1,=,CUSTOMER,", "  1,=,CUSTOMER,");
  EXPECT_TRUE(On(r, line_, Severity::Warning, {"begins with a blank", "if it is a row"}));
  // A comment that begins with a blank and reads like none stays a comment, unremarked.
  const RdfCheckResult clean = Break("ARINV01.rdf", "DLM\r\n", "DLM\r\n   a note\r\n");
  EXPECT_EQ(clean.errors + clean.warnings, 0);
}

TEST_F(RdfChecker, AFileOfBlanksIsEmptyAndABlankFirstLineIsNamed) {
  for (const char* text : {"", "\r\n  \r\n\t\r\n", "\xEF\xBB\xBF\r\n"}) {
    WriteFile(dir_ / "E.rdf", text);
    EXPECT_TRUE(On(CheckRdf(dir_ / "E.rdf"), 0, Severity::Error, {"file is empty"}));
  }
  WriteFile(dir_ / "E.rdf", "\r\n" + ReadFile(Sample("ARINV01.rdf")));
  EXPECT_TRUE(On(CheckRdf(dir_ / "E.rdf"), 1, Severity::Error, {"an empty line first"}));
  WriteFile(dir_ / "E.rdf", " " + ReadFile(Sample("ARINV01.rdf")));
  const RdfCheckResult indented = CheckRdf(dir_ / "E.rdf");
  EXPECT_TRUE(On(indented, 1, Severity::Error, {"begins with blanks", "Begin the line with"}));
  EXPECT_EQ(indented.errors + indented.warnings, 1);
}

TEST_F(RdfChecker, MissingFileFolderOrPipeIsOneError) {
  const RdfCheckResult r = CheckRdf(dir_ / "none.rdf");
  EXPECT_TRUE(On(r, 0, Severity::Error, {"cannot be read", "File not found"}));
  EXPECT_TRUE(On(CheckRdf(dir_.path()), 0, Severity::Error, {"folder"}));
  ASSERT_EQ(::mkfifo((dir_ / "pipe.rdf").c_str(), 0600), 0);  // opened, it would wait for a writer
  EXPECT_TRUE(On(CheckRdf(dir_ / "pipe.rdf"), 0, Severity::Error, {"cannot come through a pipe"}));
  EXPECT_EQ(
      FormatDiagnostic(r.diagnostics.at(0)),
      (dir_ / "none.rdf").string() + ": error: The file cannot be read: File not found (error 53)");
}

TEST_F(RdfChecker, DiagnosticsAndSummaryInCompilerForm) {
  const RdfCheckResult r = Break("ARINV01.rdf", {{"9,y,n,8,0,Tax,", "9,y,n,7,0,Tax,"},
                                                 {"6,y,c,6,0,PO Number,", "6,y,q,6,0,PO Number,"}});
  EXPECT_EQ(CheckSummary(r), "ARINV01.rdf: 1 error, 1 warning");
  EXPECT_EQ(FormatDiagnostic(r.diagnostics.at(0)),
            (dir_ / "ARINV01.rdf").string() + ":" + std::to_string(LineOf("6,y,q")) +
                ": error: FLD column 3, the type, is \"q\"; it must be a type code: c (text), r "
                "(record type, on field 1), n, n0 to n6 or nf (numbers), d (date), or w, w1, w4, "
                "w6 or w8 (wrapped text)");
  EXPECT_EQ(FormatDiagnostic(r.diagnostics.at(1)).find(":" + std::to_string(line_) + ": warning: "),
            (dir_ / "ARINV01.rdf").string().size());
}

class RdfLoadingError : public test::EngineTest {};

TEST_F(RdfLoadingError, KeepsItsNumberAndSaysWhereAndWhat) {
  std::string text = ReadFile(Sample("ARINV01.rdf"));
  const size_t at = text.find("INV,0,0,4,3,6,=,,");
  text.replace(at, 17, "INV,0,0,4,3");
  const auto rdf = Rdf(text, "ARINV01.rdf");
  const int64_t line =
      1 + std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(at), '\n');

  EXPECT_FALSE(engine_.LoadRDF(rdf, ""));
  ASSERT_TRUE(engine_.LastError());
  const QbError& e = *engine_.LastError();
  EXPECT_EQ(e.number(), kSubscript);
  EXPECT_EQ(e.description(), "Subscript out of range");
  EXPECT_EQ(e.file(), rdf);
  EXPECT_EQ(e.line(), line);
  EXPECT_EQ(e.detail(),
            "DLC line has 5 columns; 8 are needed: record name, group, sequence, field, start, "
            "length, rule, value");
  // The checker says the same of the same line.
  const RdfCheckResult r = CheckRdf(rdf);
  EXPECT_TRUE(On(r, line, Severity::Error, {e.detail()}));
}

}  // namespace
}  // namespace qb
