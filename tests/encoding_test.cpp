// Reports in other encodings than Windows-1252: columns count characters whatever the bytes,
// every encoding of one report gives the same rows, and what cannot be read is counted.

#include <gtest/gtest.h>

#include <sstream>

#include "base/recode.h"
#include "base/text_encoding.h"
#include "engine/report_text.h"
#include "preprocess/pdf.h"
#include "preprocess/print_file.h"
#include "run/conversion_job.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadFile;
using test::Sample;
using test::WriteFile;

class EncodingTest : public test::EngineTest {
 protected:
  // Converts `report` with ARINV01.rdf (or `rdf`) to a .csv under `settings`; the run's
  // statistics and the output's bytes.
  std::string Convert(const std::filesystem::path& report,
                      std::vector<std::pair<Key, std::string>> settings,
                      std::filesystem::path rdf = Sample("ARINV01.rdf")) {
    JobRequest r;
    r.report = report;
    r.rdf = std::move(rdf);
    r.output = home_ / (report.stem().string() + ".csv");
    r.overrides = std::move(settings);
    ConversionJob job(app_, ui_, r);
    ui_.answers = {true};
    EXPECT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_TRUE(job.Run()) << report;
    stats_ = job.Stats();
    findings_ = job.Findings();
    return ReadFile(r.output);
  }

  RunStats stats_;
  std::vector<std::string> findings_;
};

// The invoice register with names that hold letters past ASCII, each the same column width.
std::string AccentedRegister() {
  std::string text = ReadFile(Sample("ARINV01.txt"));
  const std::pair<std::string_view, std::string_view> swaps[] = {
      {"HARBORVIEW MARINE", "H\xC4RBORVIEW MAR\xFCNE"},
      {"PORTLAND ME", "P\xD6RTLAND ME"},
      {"BIRCH & STONE", "BIR\xC7H & ST\xE9NE"}};
  for (auto [from, to] : swaps) {
    for (size_t at; (at = text.find(from)) != std::string::npos;) text.replace(at, from.size(), to);
  }
  return text;  // Windows-1252
}

// `lines` (Windows-1252, CR LF) as print records: the carriage-control character first, "1"
// where a form feed began a page.
std::string AsaRecords(std::string_view text) {
  std::string records;
  while (!text.empty()) {
    size_t end = text.find("\r\n");
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    if (!line.empty() && line.front() == '\f') {
      records += '1';
      line.remove_prefix(1);
    } else {
      records += ' ';
    }
    records.append(line);
    records += '\n';
  }
  return records;
}

TEST_F(EncodingTest, EveryEncodingOfOneReportGivesTheSameRows) {
  const std::string cp1252 = AccentedRegister();
  WriteFile(home_ / "w.txt", cp1252);
  const std::string expected =
      Recoder("UTF-8", "WINDOWS-1252", "test")(Convert(home_ / "w.txt", {}));
  ASSERT_NE(expected.find("H\xC3\x84RBORVIEW MAR\xC3\xBCNE SUPPLY,100231"), std::string::npos);
  ASSERT_NE(expected.find(",1234.50,86.42,1320.92,"), std::string::npos);

  struct Copy {
    const char* name;
    std::string bytes;
    std::vector<std::pair<Key, std::string>> settings;
  };
  const std::string asa = AsaRecords(cp1252);
  std::string fixed;  // 133-byte records, as a mainframe spool keeps them
  for (size_t at = 0, end; (end = asa.find('\n', at)) != std::string::npos; at = end + 1) {
    std::string record = asa.substr(at, end - at);
    record.resize(133, ' ');
    fixed += record;
  }
  auto ebcdic = [](const char* page, const std::string& text) {
    std::string e = Recoder(page, "WINDOWS-1252", "test")(text);
    for (char& c : e) {
      if (c == '\x25') c = '\x15';  // records end at NL, as spool files do
    }
    return e;
  };
  const Copy copies[] = {
      {"utf-8", Recoder("UTF-8", "WINDOWS-1252", "test")(cp1252), {{Key::encoding, "utf-8"}}},
      {"utf-8 by its byte-order mark",
       std::string(kUtf8Bom) + Recoder("UTF-8", "WINDOWS-1252", "test")(cp1252),
       {}},
      {"cp437", Recoder("CP437", "WINDOWS-1252", "test")(cp1252), {{Key::encoding, "cp437"}}},
      {"cp850", Recoder("CP850", "WINDOWS-1252", "test")(cp1252), {{Key::encoding, "CP850"}}},
      {"ebcdic-037 lines", ebcdic("IBM037", asa), {{Key::encoding, "ebcdic-037"}}},
      {"ebcdic-037 lines without carriage control",
       ebcdic("IBM037", cp1252),
       {{Key::encoding, "ebcdic-037"}, {Key::asa, "0"}}},
      {"ebcdic-500 records",
       Recoder("IBM500", "WINDOWS-1252", "test")(fixed),
       {{Key::encoding, "ebcdic-500"}, {Key::reclen, "133"}}},
      {"utf-8 with carriage control",
       Recoder("UTF-8", "WINDOWS-1252", "test")(asa),
       {{Key::encoding, "utf-8"}, {Key::asa, "1"}}},
  };
  for (const Copy& copy : copies) {
    WriteFile(home_ / "copy.txt", copy.bytes);
    EXPECT_EQ(Convert(home_ / "copy.txt", copy.settings), expected) << copy.name;
    EXPECT_EQ(stats_.invalidSequences, 0) << copy.name;
  }
  // A byte-order mark is written on request, and only on a UTF-8 output.
  WriteFile(home_ / "copy.txt", copies[0].bytes);
  EXPECT_EQ(Convert(home_ / "copy.txt", {{Key::encoding, "utf-8"}, {Key::bom, "1"}}),
            std::string(kUtf8Bom) + expected);
  EXPECT_EQ(Convert(home_ / "w.txt", {{Key::bom, "1"}}).substr(0, 3), "Rec");
}

TEST_F(EncodingTest, InvalidBytesAreOneCharacterEachAndCounted) {
  // A stray continuation byte, a two- and a three-byte sequence cut short and an encoded
  // surrogate: each one column wide, so what follows stays where the RDF looks for it.
  std::string text = Recoder("UTF-8", "WINDOWS-1252", "test")(AccentedRegister());
  WriteFile(home_ / "good.txt", text);
  const std::string good = Convert(home_ / "good.txt", {{Key::encoding, "utf-8"}});
  const std::string_view bad[] = {"\x80", "\xC3", "\xE2\x82", "\xED\xA0\x80"};
  size_t at = 0;
  for (std::string_view b : bad) {
    at = text.find("CUSTOMER  C1", at);
    ASSERT_NE(at, std::string::npos);
    text.replace(at + 8, 1, b);  // the blank between the marker and the customer number
    at += 10;
  }
  WriteFile(home_ / "bad.txt", text);
  EXPECT_TRUE(findings_.empty());  // of good.txt
  EXPECT_EQ(Convert(home_ / "bad.txt", {{Key::encoding, "utf-8"}}), good);
  EXPECT_EQ(stats_.invalidSequences, 4);
  EXPECT_NE(Log().find("4 byte sequences were not valid utf-8"), std::string::npos);
  ASSERT_EQ(findings_.size(), 1u);
  EXPECT_NE(findings_[0].find("4 byte sequences of"), std::string::npos) << findings_[0];
  // A first line of 130 letters past ASCII, more than a run holds: the last are unheld.
  std::u32string letters;
  for (char32_t c = U'\u0400'; c < U'\u0482'; ++c) letters += c;
  WriteFile(home_ / "many.txt",
            Utf8(letters) + "\r\n" + Recoder("UTF-8", "WINDOWS-1252", "test")(AccentedRegister()));
  Convert(home_ / "many.txt", {{Key::encoding, "utf-8"}});
  ASSERT_GT(stats_.unheldCharacters, 0);
  ASSERT_EQ(findings_.size(), 1u);
  EXPECT_NE(findings_[0].find(std::to_string(stats_.unheldCharacters) + " different characters"),
            std::string::npos)
      << findings_[0];
}

// A line longer than the reader's buffer is read only as far as a run looks, 500 columns:
// in UTF-8 that is up to four bytes a column.
TEST_F(EncodingTest, ALineOfMegabytesIsReadToColumn500InCharacters) {
  std::string line = "D";
  for (int i = 0; i < 398; ++i) line += "\xC3\xA9";  // columns 2 to 399
  WriteFile(home_ / "long.txt", line + "FARVALUE01" + std::string(2 << 20, ' ') + "\r\n");
  const auto rdf =
      Rdf("RDF 0001T Far@FAR\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,400,10,=,,\r\n"
          "FLD\r\n1,y,c,1,0,Far,\r\n");
  EXPECT_EQ(Convert(home_ / "long.txt", {{Key::encoding, "utf-8"}}, rdf), "Far\r\nFARVALUE01\r\n");
  // Cut where it is, such a line never splits a character into an invalid sequence.
  std::string accents;
  for (int i = 0; i < 700000; ++i) accents += "\xC3\xA9";
  WriteFile(home_ / "accents.txt", "D" + accents + "\r\nD" + accents + "\r\n");
  Convert(home_ / "accents.txt", {{Key::encoding, "utf-8"}}, rdf);
  EXPECT_EQ(stats_.invalidSequences, 0);
  EXPECT_TRUE(findings_.empty());
}

// An EBCDIC file read without its record length may have no record ends at all: its record
// is cut at kMaxPrintRecord bytes (memory stays small), and the run's end says to set reclen.
TEST_F(EncodingTest, AnEbcdicRecordWithoutAnEndIsCutAndReclenNamed) {
  WriteFile(home_ / "spool.txt", std::string(3 * kMaxPrintRecord, '\xC4'));  // "D" in EBCDIC
  Convert(home_ / "spool.txt", {{Key::encoding, "ebcdic-037"}});
  EXPECT_EQ(stats_.cutRecords, 1);
  ASSERT_FALSE(findings_.empty());
  EXPECT_NE(findings_.back().find("needs reclen"), std::string::npos) << findings_.back();
}

// A delimited report in UTF-8 has its fields placed in columns of characters, as in any
// other encoding; a byte-order mark is not part of its first field.
TEST_F(EncodingTest, DelimitedFieldsArePlacedByCharacters) {
  std::string cp1252 = ReadFile(Sample("ORDERS.csv"));
  for (auto [from, to] : {std::pair<std::string_view, std::string_view>{"ROPE", "R\xD6PE"},
                          {"C10112",
                           "C1\xC9"
                           "1\xC9"},
                          {"FLOUR", "FL\xD6\xDCR"}}) {
    cp1252.replace(cp1252.find(from), from.size(), to);
  }
  WriteFile(home_ / "orders1252.txt", cp1252);
  WriteFile(home_ / "ordersu8.txt",
            std::string(kUtf8Bom) + Recoder("UTF-8", "WINDOWS-1252", "test")(cp1252));
  const std::string expected = Recoder(
      "UTF-8", "WINDOWS-1252", "test")(Convert(home_ / "orders1252.txt", {}, Sample("ORDERS.rdf")));
  EXPECT_NE(expected.find("R\xC3\x96PE"), std::string::npos);
  EXPECT_EQ(Convert(home_ / "ordersu8.txt", {}, Sample("ORDERS.rdf")), expected);
}

// A UTF-8 report's byte-order mark is not text: report identification and auto-find read
// line 1 from the character after it.
TEST_F(EncodingTest, IdentificationReadsPastAByteOrderMark) {
  WriteFile(home_ / "bom.txt", std::string(kUtf8Bom) + "MYPROG01  SALES LIST\r\nD 1\r\n");
  Rdf("RDF 0002T Two@MYPROG01\r\nRID\r\nF1,1,=,MYPROG01,stop\r\nFLG\r\n02,1\r\n01,0\r\n"
      "RDF 01 Other\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,1,=,,\r\nFLD\r\n"
      "1,y,c,1,0,Other,\r\nRDF 02 Sales\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\n"
      "DET,0,0,1,3,1,=,,\r\nFLD\r\n1,y,c,1,0,Sales,\r\n",
      "MYPROG01.rdf");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "MYPROG01.rdf", home_ / "bom.txt"));
  engine_.tables.rsFields.MoveFirst();
  EXPECT_EQ(engine_.tables.rsFields.GetText(col::Fields::fldLAB), "Sales");
  EXPECT_EQ(FindRdf(home_ / "bom.txt", ParseSystemEntry("Mine,1,1,8, ", "test"), home_.path()),
            home_ / "MYPROG01.rdf");
}

TEST_F(EncodingTest, TheNumericCleanUpReadsUnicodeMinusSignsAndNoBreakSpaces) {
  const std::string rdf =
      "RDF 0001T Amounts@AMT\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\n"
      "DET,0,0,1,3,6,=,,\r\nDET,0,0,2,10,10,=,,\r\nFLD\r\n1,y,c,1,0,Name,\r\n"
      "2,y,n,2,0,Amount,\r\n";
  // U+2212 minus, U+2013 en dash, a no-break space before the digits, an ASCII minus.
  WriteFile(home_ / "amt.txt",
            "D ALPHA  \xE2\x88\x92"
            "1,234.50\r\nD BETA   \xE2\x80\x93"
            "12.00\r\n"
            "D GAMMA  \xC2\xA0"
            "7.25\r\nD DELTA  -3.00\r\nD \xC3\x89PSIL  4.00\r\n");
  EXPECT_EQ(Convert(home_ / "amt.txt", {{Key::encoding, "utf-8"}}, Rdf(rdf)),
            "Name,Amount\r\nALPHA,-1234.50\r\nBETA,-12.00\r\nGAMMA,7.25\r\nDELTA,-3.00\r\n"
            "\xC3\x89PSIL,4.00\r\n");
}

TEST_F(EncodingTest, MarkerTextsOfEitherRdfEncodingMatchTheDecodedReport) {
  // "Ö" at column 3 of a UTF-8 report is one column, as in the RDF's marker.
  const std::string report = "  \xC3\x96L  100\r\n  OIL  200\r\n";
  WriteFile(home_ / "oil.txt", report);
  const std::string body =
      "RDF 01 D\r\nDLM\r\n3,=,\xD6L,0,1,DET\r\nDLC\r\nDET,0,0,1,3,2,=,,\r\n"
      "DET,0,0,2,7,3,=,,\r\nFLD\r\n1,y,c,1,0,Kind,\r\n2,y,n0,2,0,Litres,\r\n";
  const std::string expected = "Kind,Litres\r\n\xC3\x96L,100\r\n";
  // A Windows-1252 RDF, a UTF-8 RDF by its byte-order mark, and one by its EN record.
  const auto cp1252 = Rdf("RDF 0001T Oil@OIL\r\n" + body, "cp1252.rdf");
  EXPECT_EQ(Convert(home_ / "oil.txt", {{Key::encoding, "utf-8"}}, cp1252), expected);
  const std::string utf8Body = Recoder("UTF-8", "WINDOWS-1252", "test")(body);
  const auto bom = Rdf(std::string(kUtf8Bom) + "RDF 0001T Oil@OIL\r\n" + utf8Body, "bom.rdf");
  EXPECT_EQ(Convert(home_ / "oil.txt", {{Key::encoding, "utf-8"}}, bom), expected);
  const auto en = Rdf("RDF 0001T Oil@OIL\r\n" + utf8Body + "RLF SECTION\r\nEN,utf-8\r\n", "en.rdf");
  EXPECT_EQ(Convert(home_ / "oil.txt", {}, en), expected);
  // Saved again, each is read as it was: a UTF-8 RDF begins with a byte-order mark, and the
  // Windows-1252 texts of one saved with "EN" utf-8 are written in UTF-8.
  auto save = [&](const std::filesystem::path& rdf,
                  std::vector<std::pair<Key, std::string>> settings) {
    JobRequest r;
    r.rdf = rdf;
    r.overrides = std::move(settings);
    ConversionJob job(app_, ui_, r);
    const auto saved = home_ / ("saved-" + rdf.filename().string());
    EXPECT_TRUE(job.engine().BuildRDF(saved));
    return saved;
  };
  EXPECT_EQ(Convert(home_ / "oil.txt", {}, save(cp1252, {{Key::encoding, "utf-8"}})), expected);
  EXPECT_EQ(Convert(home_ / "oil.txt", {{Key::encoding, "utf-8"}}, save(bom, {})), expected);
  EXPECT_EQ(Convert(home_ / "oil.txt", {}, save(en, {})), expected);
  EXPECT_EQ(ReadFile(home_ / "saved-cp1252.rdf").substr(0, 3), kUtf8Bom);
  // A marker text the report's code page cannot hold matches no line, and says nothing of it.
  WriteFile(home_ / "oil437.txt", "  \x99L  100\r\n");  // cp437's "Ö"
  EXPECT_EQ(Convert(home_ / "oil437.txt", {{Key::encoding, "cp437"}},
                    Rdf("RDF 0001T Oil@OIL\r\n" + body)),
            "Kind,Litres\r\n\xC3\x96L,100\r\n");
  const std::string euro =
      "RDF 0001T Oil@OIL\r\nRDF 01 D\r\nDLM\r\n3,=,\x80L,0,1,DET\r\nDLC\r\n"
      "DET,0,0,1,3,2,=,,\r\nFLD\r\n1,y,c,1,0,Kind,\r\n";
  EXPECT_EQ(Convert(home_ / "oil437.txt", {{Key::encoding, "cp437"}}, Rdf(euro)).find("\xC3\x96"),
            std::string::npos);
}

TEST_F(EncodingTest, CarriageControlMakesPagesAndBlankLinesAndDropsOverprints) {
  WriteFile(home_ / "asa.txt", "1HEAD\n DATA 1\n0DATA 2\n-DATA 3\n+DATA 3\n \n");
  RunFolder work(home_ / "out");
  ReportEncoding how;
  how.asa = true;
  PrintFileCounts counts;
  std::atomic<bool> cancel{false};
  const TempFile text = ProcessPrintFile(engine_, cancel, home_ / "asa.txt", work, how, counts);
  EXPECT_EQ(ReadFile(text.path()), "\fHEAD\r\nDATA 1\r\n\r\nDATA 2\r\n\r\n\r\nDATA 3\r\n\r\n");
  EXPECT_EQ(counts.records, 6);
  EXPECT_EQ(counts.overprinted, 1);

  // A run counts the overprinted lines and logs them.
  const std::string rdf =
      "RDF 0001T Data@DAT\r\nRDF 01 D\r\nDLM\r\n1,=,DATA,0,1,DET\r\nDLC\r\n"
      "DET,0,0,1,6,1,=,,\r\nFLD\r\n1,y,c,1,0,N,\r\n";
  EXPECT_EQ(Convert(home_ / "asa.txt", {{Key::asa, "1"}}, Rdf(rdf)), "N\r\n1\r\n2\r\n3\r\n");
  EXPECT_EQ(stats_.overprintedLines, 1);
  EXPECT_NE(Log().find("1 lines printed over the line before"), std::string::npos);
}

// Each line's words, in order.
std::vector<std::string> Words(std::string_view line) {
  std::vector<std::string> words;
  std::istringstream in{std::string(line)};
  for (std::string w; in >> w;) words.push_back(w);
  return words;
}

TEST_F(EncodingTest, APdfIsReadInUnicodeAndItsWordsNeverCoverEachOther) {
  // The credit note register printed to PDF gives the rows of its UTF-8 text report: accented
  // names, the euro sign, an en dash read as a minus, a font's "ff" ligature spelled out.
  const std::filesystem::path pdf = Sample("pdf/ARCRN01_proportional.pdf");
  const std::string fromText = Convert(Sample("ARCRN01.txt"), {}, Sample("ARCRN01.rdf"));
  ASSERT_NE(fromText.find("M\xC3\xBCller B\xC3\xBCrobedarf KG,Returned goods,-125.40"),
            std::string::npos);
  const std::string fromPdf = Convert(pdf, {}, Sample("ARCRN01P.rdf"));
  EXPECT_EQ(fromPdf, fromText);
  EXPECT_NE(fromPdf.find("Price difference,-48.00"), std::string::npos);
  EXPECT_NE(fromPdf.find("REPORT TOTAL,,,,,-1410.80"), std::string::npos);

  // Its title is set in the font's own spacing, narrower than the RDF's grid: the title's
  // words are moved right, counted, and the page is named for the checker.
  ASSERT_EQ(stats_.crowdedPdfPages.size(), 1u);
  EXPECT_EQ(stats_.crowdedPdfPages[0].first, 1);
  const int64_t moved = stats_.crowdedPdfPages[0].second;
  EXPECT_GT(moved, PdfLayoutCounts::kFewMoved);
  EXPECT_NE(Log().find("Page 1: " + std::to_string(moved) + " words moved right"),
            std::string::npos);

  // Whatever the pitch, the grid's or one measured from the page, every line of the laid-out
  // text holds the words of the printed line, each whole and in order.
  const std::vector<std::string> printed = test::ReadLines(Sample("ARCRN01.txt"));
  engine_.flags.PdfReport = true;
  for (const char* pdp : {"N,480,3600,0", "N,0,0,0"}) {
    std::string rdf = ReadFile(Sample("ARCRN01P.rdf"));
    rdf.replace(rdf.find("N,480,3600,0"), 12, pdp);
    ASSERT_TRUE(engine_.LoadRDF(Rdf(rdf), ""));
    std::atomic<bool> cancel{false};
    RunFolder work(home_ / "out");
    PdfLayoutCounts counts;
    const TempFile text = ProcessPDF(engine_, cancel, pdf, work, Encoding::Utf8, counts);
    std::vector<std::string> laidOut = test::ReadLines(text.path());
    laidOut.pop_back();  // the closing blank line
    ASSERT_EQ(laidOut.size(), printed.size()) << pdp;
    for (size_t i = 0; i < printed.size(); ++i) {
      EXPECT_EQ(Words(laidOut[i]), Words(printed[i])) << pdp << ", line " << i + 1;
    }
    EXPECT_EQ(counts.lost, 0);
  }

  // With a code page named, the laid-out text is in it: the en dash and the euro sign keep
  // their Windows-1252 places, a letter the code page lacks is "?".
  const std::string in1252 =
      Convert(pdf, {{Key::encoding, "windows-1252"}}, Sample("ARCRN01P.rdf"));
  EXPECT_NE(in1252.find("M\xFCller B\xFCrobedarf KG,Returned goods,\x96"
                        "125.40"),
            std::string::npos);
  EXPECT_NE(in1252.find("?\xF3"
                        "d? Papier"),
            std::string::npos);
}

TEST_F(EncodingTest, EncodingSettingsAreCheckedAndKeptByTheRdf) {
  // A value the run cannot read is refused before anything is written, naming the setting.
  WriteFile(home_ / "w.txt", AccentedRegister());
  for (auto [key, value] : {std::pair(Key::encoding, "klingon"), std::pair(Key::asa, "yes"),
                            std::pair(Key::reclen, "-5")}) {
    JobRequest r;
    r.report = home_ / "w.txt";
    r.rdf = Sample("ARINV01.rdf");
    r.output = home_ / "never.csv";
    r.overrides = {{key, value}};
    ConversionJob job(app_, ui_, r);
    ui_.answers = {true};
    ASSERT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_FALSE(job.Run()) << value;
    ASSERT_FALSE(ui_.messages.empty());
    EXPECT_NE(ui_.messages.back().text.find("The setting " + std::string(KeyName(key)) + " is \"" +
                                            value + "\"; it takes"),
              std::string::npos)
        << ui_.messages.back().text;
    EXPECT_FALSE(std::filesystem::exists(home_ / "never.csv"));
  }
  // A PDF's text is laid out in UTF-8 unless a code page is named; never in EBCDIC.
  const std::filesystem::path pdf = Sample("pdf/ARCRN01_proportional.pdf");
  EXPECT_EQ(ParseReportEncoding(app_.Settings, pdf, true).encoding, Encoding::Utf8);
  app_.Settings.Item(Key::encoding).Value = "cp850";
  EXPECT_EQ(ParseReportEncoding(app_.Settings, pdf, true).encoding, Encoding::Cp850);
  app_.Settings.Item(Key::encoding).Value = "ebcdic-500";
  EXPECT_THROW(ParseReportEncoding(app_.Settings, pdf, true), QbError);
  app_.Settings.Item(Key::encoding).Value = "";
  EXPECT_EQ(EncodingNamed("UTF8"), Encoding::Utf8);
  EXPECT_EQ(EncodingNamed(" ebcdic-037 "), Encoding::Ebcdic037);
  EXPECT_EQ(EncodingNamed(""), Encoding::Windows1252);

  // An RDF saved with an encoding keeps it in an EN record; one saved without has none, as
  // RDFs always were.
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARINV01.rdf"), Sample("ARINV01.txt")));
  ASSERT_TRUE(engine_.BuildRDF(home_ / "plain.rdf"));
  EXPECT_EQ(ReadFile(home_ / "plain.rdf").find("\r\nEN,"), std::string::npos);
  app_.Settings.Item(Key::encoding).Value = "cp850";
  ASSERT_TRUE(engine_.BuildRDF(home_ / "cp850.rdf"));
  EXPECT_NE(ReadFile(home_ / "cp850.rdf").find("\r\nEN,cp850\r\n"), std::string::npos);
  app_.Settings.Item(Key::encoding).Value = "";
  ASSERT_TRUE(engine_.LoadRDF(home_ / "cp850.rdf", Sample("ARINV01.txt")));
  EXPECT_EQ(app_.Settings[Key::encoding], "cp850");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "plain.rdf", Sample("ARINV01.txt")));
  EXPECT_EQ(app_.Settings[Key::encoding], "");  // put back for the RDF without one
}

}  // namespace
}  // namespace qb
