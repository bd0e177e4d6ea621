// RDF line encoding, loading, report identification, settings, auto-find and saving.

#include <gtest/gtest.h>

#include "engine/rdf_codec.h"
#include "engine/rdf_sections.h"
#include "tests/engine_fixture.h"
#include "tests/rdf_scrambler.h"

namespace qb {
namespace {

using test::EngineTest;
using test::ReadFile;
using test::Sample;
using test::WriteFile;
using F = col::Fields;

std::string Decode(int16_t lineNo, std::string_view s, int16_t* status = nullptr) {
  std::string plain;
  int16_t st = 0;
  DecodeRDFLine(lineNo, s, plain, st);
  if (status) *status = st;
  return plain;
}

TEST(RdfCodec, DecodesByLineNumberLengthAndPosition) {
  EXPECT_EQ(LineChecksum(""), 0);
  EXPECT_EQ(LineChecksum("RDF"), (82 + 68 + 70) % 1000);
  EXPECT_EQ(LineChecksum(std::string(20, '~')), 20 * 126 % 1000);  // sums past 999 wrap

  // "ABC" on line 2: base 15; shifts 15+2+1, 15+0+2, 15+2+3.
  EXPECT_EQ(Decode(2, "ABC"), "/1/");
  // A blank on line 2 falls below 32 and wraps by 95.
  EXPECT_EQ(Decode(2, " "), "o");
  // Six characters are not rotated, seven are; position 7 gets no positional shift.
  const std::string six = test::ScrambleRDFLine(3, "ABCDEF");
  const std::string seven = test::ScrambleRDFLine(3, "ABCDEFG");
  EXPECT_EQ(Decode(3, six), "ABCDEF");
  EXPECT_EQ(Decode(3, seven), "ABCDEFG");
  EXPECT_EQ(Decode(4, seven).size(), 7u);
  EXPECT_NE(Decode(4, seven), "ABCDEFG");  // the same text on another line reads differently
  // Every printable character survives at many lengths and line numbers.
  std::string all;
  for (char c = 32; c < 127; ++c) all += c;
  for (int16_t line = 2; line < 40; line += 7) {
    for (size_t len : {0, 1, 6, 7, 10, 16, 17, 95}) {
      std::string text = all.substr(len % 13, len);
      EXPECT_EQ(Decode(line, test::ScrambleRDFLine(line, text)), text) << line << " " << len;
    }
  }

  // Line 1 carries a checksum, verified and cut.
  int16_t status = 0;
  const std::string header = "RDF 0001T Test@PROG";
  EXPECT_EQ(Decode(1, test::ScrambleRDFLine(1, header), &status), header);
  EXPECT_EQ(status, 0);
  std::string damaged = test::ScrambleRDFLine(1, header);
  damaged[10] = damaged[10] == 'a' ? 'b' : 'a';  // a text character, not a checksum digit
  Decode(1, damaged, &status);
  EXPECT_EQ(status, 5);
  // Too short for a checksum: an error, not a crash.
  EXPECT_THROW(Decode(1, ""), QbError);
  EXPECT_THROW(Decode(1, "ab"), QbError);
  // Starts with RDF but the last three characters are no number: type mismatch.
  try {
    Decode(1, test::ScrambleRDFLine(1, "RDF 0001T Test@PROGabc", /*withChecksum=*/false));
    ADD_FAILURE() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kTypeMismatch);
  }
}

TEST_F(EngineTest, LoadsPlainAndScrambledSamplesAlike) {
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARINV01.rdf"), Sample("ARINV01.txt")));
  EXPECT_FALSE(engine_.flags.Scrambled);
  EXPECT_TRUE(engine_.flags.RecordField);
  EXPECT_EQ(engine_.rdf.Number, 1);
  EXPECT_EQ(engine_.rdf.Kind, "T");
  EXPECT_EQ(engine_.rdf.Name, "Invoice register, Northgate Distribution");
  EXPECT_EQ(engine_.rdf.ProgramName, "ARINV01");
  RdfTables& t = engine_.tables;
  EXPECT_EQ(t.rsHeader.RecordCount(), 2);
  EXPECT_EQ(t.rsMarkers.RecordCount(), 7);
  EXPECT_EQ(t.rsPickups.RecordCount(), 22);
  EXPECT_EQ(t.rsFields.RecordCount(), 11);
  // The "x" marker with an explicit length of 0 reaches to the end of the line.
  t.rsMarkers.MoveLast();
  EXPECT_EQ(t.rsMarkers.GetText(col::Markers::fldACT), "stop");
  EXPECT_EQ(t.rsMarkers.GetInt(col::Markers::fldLEN), 999);
  t.rsMarkers.MoveFirst();
  EXPECT_EQ(t.rsMarkers.GetInt(col::Markers::fldLEN), 11);  // length of "(CONTINUED)"

  // rsLines: the header part line of kind P, comments gone, the FLD section line last.
  std::vector<std::string> lines;
  for (t.rsLines.MoveFirst(); !t.rsLines.IsEOF(); t.rsLines.MoveNext()) {
    lines.emplace_back(t.rsLines.GetText(col::Lines::fldRDL));
  }
  EXPECT_EQ(lines.front(), "RDF 0001P Invoice register, Northgate Distribution@ARINV01");
  EXPECT_EQ(lines.back(), "FLD");
  for (const std::string& l : lines) {
    EXPECT_NE(l.front(), '[');
    EXPECT_NE(l.substr(0, 3), "RLF");
    EXPECT_EQ(l.find(",y,"), std::string::npos) << l;  // no FLD data lines
  }

  // The RDF's setting records were applied: "DL,comma" gives ",".
  EXPECT_EQ(app_.Settings[Key::delim], ",");
  EXPECT_EQ(app_.Settings[Key::opfmt], ".csv");

  // The scrambled copy gives the same tables.
  Engine scrambled(app_);
  ASSERT_TRUE(scrambled.LoadRDF(Sample("ARINV01S.rdf"), Sample("ARINV01.txt")));
  EXPECT_TRUE(scrambled.flags.Scrambled);
  EXPECT_EQ(scrambled.rdf.ProgramName, "ARINV01");
  EXPECT_EQ(scrambled.tables.rsPickups.RecordCount(), 22);
  EXPECT_EQ(scrambled.tables.rsLines.RecordCount(), t.rsLines.RecordCount());
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(EngineTest, DamagedRdfsFailWithNumberAndPlace) {
  const std::string good =
      "RDF 0001T Test@PROG\r\nRDF 01 Detail\r\nDLM\r\n1,=,INV,0,1,INV\r\nFLD\r\n1,y,c,1,0,A,\r\n";
  struct Case {
    std::string text;
    bool scramble;
    int32_t number;
    std::string source;
    int64_t line;
  } cases[] = {
      {"RDF 0001T no at sign\r\n", false, 518, "GetRDFInfo", 1},
      {good, true, 517, "GetRDFInfo", 1},  // damaged below
      {"RDF 0001T T@P\r\nRDF 01 D\r\nDLM\r\nx,=,INV,0,1,INV\r\n", false, kTypeMismatch,
       "LoadRDFDetail", 4},
      {"RDF 0001T T@P\r\nRDF 01 D\r\nDLM\r\n1,=,INV,0,40000,INV\r\n", false, kOverflow,
       "LoadRDFDetail", 4},
      {"RDF 0001T T@P\r\n\r\n[ c ]\r\nRDF 01 D\r\nDLC\r\nINV,0,0,1,1\r\n", false, kSubscript,
       "LoadRDFDetail", 6},
      {"RDF 0001T T@P\r\nDIN\r\nCR\r\n", false, kSubscript, "LoadRDFHeader", 3},
      {"RDF 0001T T@P\r\nPDC\r\n1,2,3,4,5,t,6\r\n", false, kSubscript, "LoadRDFHeader", 3},
      {"RDF 0002T T@P\r\nRDF 01 D\r\n", false, kSubscript, "LoadRDFDetail", 0},  // no part 02
      // A delimited-input section with an empty delimiter would split the input at blanks.
      {"RDF 0001T T@P\r\nDFI\r\n,\"\r\nDFC\r\n1,1,,0,\r\n", false, kInvalidCall, "LoadRDFHeader",
       3},
  };
  int n = 0;
  for (Case& c : cases) {
    std::string text = c.scramble ? test::ScrambleRDF(c.text) : c.text;
    if (n == 1) text[3] = text[3] == 'A' ? 'B' : 'A';
    ui_.messages.clear();
    const std::string report = n == 7 ? "layout2.txt" : "";
    if (n == 7) WriteFile(home_ / report, "x\r\n");
    WriteFile(home_ / "rdfdir.txt", "");
    std::filesystem::path rdf = Rdf(text, "bad" + std::to_string(n) + ".rdf");
    if (n == 7) {
      // Layout 02 chosen by a flag row, but the file has no such part.
      rdf = Rdf("RDF 0002T T@P\r\nRID\r\nF1,1,=,x,\r\nFLG\r\n02,1\r\nRDF 01 D\r\n", "bad7.rdf");
    }
    EXPECT_FALSE(engine_.LoadRDF(rdf, report.empty() ? "" : home_ / report)) << n;
    ASSERT_TRUE(engine_.LastError()) << n;
    const QbError& e = *engine_.LastError();
    EXPECT_EQ(e.number(), c.number) << n << " " << e.describe();
    EXPECT_EQ(e.source(), c.source) << n;
    EXPECT_EQ(e.file(), rdf) << n;
    if (c.line > 0) {
      EXPECT_EQ(e.line(), c.line) << n;
    }
    // The user saw the error box and then "Error loading RDF"; the log names the procedure.
    ASSERT_GE(ui_.messages.size(), 2u) << n;
    EXPECT_EQ(ui_.messages.front().text.substr(0, 7), "Error: ") << n;
    EXPECT_EQ(ui_.messages.back().text, "Error loading RDF") << n;
    EXPECT_NE(Log().find(c.source + std::string(20 - c.source.size(), ' ') +
                         "  --- Error: " + std::to_string(c.number)),
              std::string::npos)
        << n;
    ++n;
  }
  // A missing file is error 53.
  EXPECT_FALSE(engine_.LoadRDF(home_ / "none.rdf", ""));
  EXPECT_EQ(engine_.LastError()->number(), kFileNotFound);
}

// An RDF of no bytes, or of nothing but blanks and line ends, is said to be empty, where it
// would be taken for a scrambled RDF whose first line is damaged.
TEST_F(EngineTest, AnEmptyRdfIsSaidToBeEmpty) {
  for (const char* text : {"", " \r\n\t\r\n\r\n", "\xEF\xBB\xBF\r\n"}) {
    const std::filesystem::path rdf = Rdf(text, "empty.rdf");
    EXPECT_FALSE(engine_.LoadRDF(rdf, ""));
    ASSERT_TRUE(engine_.LastError());
    const QbError& e = *engine_.LastError();
    EXPECT_EQ(e.number(), kRdfCorruptHeader);
    EXPECT_EQ(e.file(), rdf);
    EXPECT_TRUE(e.detail().starts_with("the RDF is empty:")) << e.describe();
  }
  // A blank line before the text is still the first line, as loading has always read it.
  EXPECT_FALSE(engine_.LoadRDF(Rdf(" \r\nRDF 0001T T@P\r\nRDF 01 D\r\n", "blank.rdf"), ""));
  EXPECT_EQ(engine_.LastError()->detail(), kBadChecksumText);
}

TEST_F(EngineTest, ReportKindMustMatchTheRdf) {
  engine_.flags.PdfReport = true;
  EXPECT_FALSE(engine_.LoadRDF(Sample("ARINV01.rdf"), "report.pdf"));
  EXPECT_EQ(engine_.LastError()->number(), 515);
  EXPECT_EQ(engine_.LastError()->description(),
            "The selected RDF is for a Text report not a PDF report.");
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARINV01P.rdf"), "report.pdf"));
  EXPECT_TRUE(engine_.flags.PdfRdf);
  EXPECT_EQ(engine_.tables.rsPdfParams.RecordCount(), 1);
  engine_.flags.PdfReport = false;
  EXPECT_FALSE(engine_.LoadRDF(Sample("ARINV01P.rdf"), Sample("ARINV01.txt")));
  EXPECT_EQ(engine_.LastError()->number(), 516);

  // A delimited-input RDF marks the report for reformatting.
  ASSERT_TRUE(engine_.LoadRDF(Sample("ORDERS.rdf"), Sample("ORDERS.csv")));
  EXPECT_TRUE(engine_.flags.DffReport);
  Recordset& d = engine_.tables.rsDelimited;
  d.MoveFirst();
  EXPECT_EQ(d.GetText(col::Delimited::fldDLM), ",");
  EXPECT_EQ(d.GetText(col::Delimited::fldTXQ), "\"");
  EXPECT_EQ(engine_.tables.rsDelimitedCols.RecordCount(), 6);
  Rdf("RDF 0001T T@P\r\nDFI\r\ntab,'\r\nRDF 01 D\r\n", "tab.rdf");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "tab.rdf", ""));
  engine_.tables.rsDelimited.MoveFirst();
  EXPECT_EQ(engine_.tables.rsDelimited.GetText(col::Delimited::fldDLM), "\t");
}

TEST_F(EngineTest, ReportLayoutComesFromIdentificationRules) {
  ASSERT_TRUE(engine_.LoadRDF(Sample("APCHK01.rdf"), Sample("APCHK01D.txt")));
  EXPECT_EQ(engine_.tables.rsFields.RecordCount(), 8);
  EXPECT_NE(Log().find("GetReportID           --- RID=02   Flags=1\r\n"), std::string::npos);
  ASSERT_TRUE(engine_.LoadRDF(Sample("APCHK01.rdf"), Sample("APCHK01.txt")));
  EXPECT_EQ(engine_.tables.rsFields.RecordCount(), 6);
  EXPECT_NE(Log().find("RID=01   Flags=0\r\n"), std::string::npos);

  // Only the first 600 characters of a line are tested; no matching flag row keeps "01".
  // F2: columns 1 to 3 all digits (a class rule). F1: "MARK" at column 597, which must lie
  // within the first 600 characters.
  Rdf("RDF 0002T T@P\r\nRID\r\nF1,597,=,MARK,\r\nF2,1,n,x,,3\r\nFLG\r\n02,11\r\nRDF 01 A\r\n"
      "FLD\r\n1,y,c,1,0,A,\r\nRDF 02 B\r\nFLD\r\n1,y,c,1,0,B,\r\n2,y,c,2,0,B2,\r\n");
  WriteFile(home_ / "r.txt", "123" + std::string(594, ' ') + "MARK\r\n");  // cut to "MAR"
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", home_ / "r.txt"));
  EXPECT_EQ(engine_.tables.rsFields.RecordCount(), 1);
  EXPECT_NE(Log().find("RID=01   Flags=01\r\n"), std::string::npos);
  WriteFile(home_ / "r.txt", "123" + std::string(593, ' ') + "MARK\r\n");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", home_ / "r.txt"));
  EXPECT_EQ(engine_.tables.rsFields.RecordCount(), 2);
  EXPECT_NE(Log().find("RID=02   Flags=11\r\n"), std::string::npos);
}

TEST_F(EngineTest, RdfSettingsAreAppliedAndRestored) {
  app_.Settings.Item(Key::delim).Value = "|";
  app_.Settings.Item(Key::opfmt).Value = ".txt";
  app_.SnapshotSettings();
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARAGE02.rdf"), ""));
  EXPECT_EQ(app_.Settings[Key::delim], "tab");
  EXPECT_EQ(app_.Settings[Key::tqswt], "1");
  // The next RDF has only a heading record: the saved values come back first.
  ASSERT_TRUE(engine_.LoadRDF(Sample("ORDERS.rdf"), ""));
  EXPECT_EQ(app_.Settings[Key::delim], "|");
  EXPECT_EQ(app_.Settings[Key::tqswt], "0");
  EXPECT_FALSE(engine_.flags.SettingsRestore);
}

TEST_F(EngineTest, ReportProgramMustMatchTheRdf) {
  app_.Settings.Item(Key::pfset).Value = "Ledgerline Financials,1,1,8, ";
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARAGE02.rdf"), Sample("ARAGE02.txt")));
  EXPECT_TRUE(ui_.messages.empty());  // "ARAGE02" occurs in "ARAGE02.RPT" cut at its dot
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARAGE02.rdf"), Sample("GLDET01.txt")));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, "Report and RDF Program names don't match.");
  EXPECT_EQ(ui_.messages[0].title, "Report / RDF MisMatch");
}

TEST_F(EngineTest, AutoFindStaysInTheRdfFolder) {
  const clsSystem byName = ParseSystemEntry("Default - By Filename,0,1,1,.", "t");
  const clsSystem byLine = ParseSystemEntry("Ledgerline Financials,1,1,8, ", "t");
  const std::filesystem::path rdfs = "/srv/rdf";
  EXPECT_EQ(FindRdf("/in/ARINV01.txt", byName, rdfs), rdfs / "ARINV01.rdf");
  EXPECT_EQ(FindRdf(Sample("ARAGE02.txt"), byLine, rdfs), rdfs / "ARAGE02.rdf");
  // Row past the end of the report: the last line read.
  const clsSystem row9 = ParseSystemEntry("S,9,1,4,", "t");
  WriteFile(home_ / "short.txt", "AAAA\r\nBBBB tail\r\n");
  EXPECT_EQ(FindRdf(home_ / "short.txt", row9, rdfs), rdfs / "BBBB.rdf");
  // Identifiers that would leave the folder, or are empty, find nothing.
  for (const char* line : {"../../etc/passwd", "a/b", "x\\y", "  ", "..", "a:b"}) {
    WriteFile(home_ / "evil.txt", std::string(line) + "\r\n");
    EXPECT_FALSE(FindRdf(home_ / "evil.txt", ParseSystemEntry("S,1,1,20,", "t"), rdfs)) << line;
  }
  EXPECT_FALSE(FindRdf(home_ / "missing.txt", row9, rdfs));
  EXPECT_FALSE(FindRdf("/in/.hidden", byName, rdfs));

  // A link in the RDF folder is followed inside it, never out of it.
  const std::filesystem::path folder = home_ / "rdfs";
  std::filesystem::create_directories(folder);
  WriteFile(folder / "REAL.rdf", "RDF 0001T T@P\r\n");
  WriteFile(home_ / "outside.rdf", "RDF 0001T T@P\r\n");
  std::filesystem::create_symlink(folder / "REAL.rdf", folder / "INSIDE.rdf");
  std::filesystem::create_symlink(home_ / "outside.rdf", folder / "OUT.rdf");
  std::filesystem::create_symlink("../outside.rdf", folder / "UP.rdf");
  EXPECT_EQ(FindRdf("/in/INSIDE.txt", byName, folder),
            std::filesystem::canonical(folder / "REAL.rdf"));
  EXPECT_FALSE(FindRdf("/in/OUT.txt", byName, folder));
  EXPECT_FALSE(FindRdf("/in/UP.txt", byName, folder));
}

TEST_F(EngineTest, SavedRdfLoadsBackTheSame) {
  ASSERT_TRUE(engine_.LoadRDF(Sample("ARINV01S.rdf"), Sample("ARINV01.txt")));
  Recordset& f = engine_.tables.rsFields;
  f.MoveFirst();
  f.Find("fldFLD = 7");
  f.SetBool(F::fldOUT, true);
  f.SetInt(F::fldORD, 11);
  f.SetText(F::fldLAB, "Net, gross");
  f.MoveFirst();
  f.Find("fldFLD = 11");
  f.SetInt(F::fldDLB, 2);
  f.SetText(F::fldLAB, "[ Ship To ]");
  app_.Settings.Item(Key::delim).Value = ",";
  app_.Settings.Item(Key::rtype).Value = "Details Only";
  const auto saved = home_ / "saved.rdf";
  ASSERT_TRUE(engine_.BuildRDF(saved));

  const std::string text = ReadFile(saved);
  EXPECT_EQ(text.substr(0, 10), "RDF 0001P ");
  EXPECT_NE(text.find("\r\nFLD\r\n1,y,r,1,0,Record Type,\r\n"), std::string::npos);
  EXPECT_NE(text.find("\r\n7,y,c,11,0,Net  gross,\r\n"), std::string::npos);
  EXPECT_NE(text.find("\r\n11,y,w4,10,2,Ship To,\r\n"), std::string::npos);
  EXPECT_NE(text.find("\r\nRLF SECTION\r\nHD,Invoice Register\r\nOF,.csv\r\nQS,0\r\nTQ,\"\r\n"
                      "DL,comma\r\nRT,Details Only\r\nES,0\r\n"),
            std::string::npos);

  Engine again(app_);
  app_.Settings.Item(Key::delim).Value = "|";
  ASSERT_TRUE(again.LoadRDF(saved, Sample("ARINV01.txt")));
  EXPECT_EQ(app_.Settings[Key::delim], ",");
  EXPECT_EQ(app_.Settings[Key::rtype], "Details Only");
  Recordset& g = again.tables.rsFields;
  f.Sort("fldFLD");  // saving leaves the table in output order
  for (f.MoveFirst(), g.MoveFirst(); !f.IsEOF(); f.MoveNext(), g.MoveNext()) {
    ASSERT_FALSE(g.IsEOF());
    EXPECT_EQ(g.GetInt(F::fldFLD), f.GetInt(F::fldFLD));
    EXPECT_EQ(g.GetBool(F::fldOUT), f.GetBool(F::fldOUT));
    EXPECT_EQ(g.GetInt(F::fldORD), f.GetInt(F::fldORD));
    if (g.GetInt(F::fldFLD) != 7) {
      EXPECT_EQ(g.GetText(F::fldLAB), f.GetText(F::fldLAB));
    }
  }
  EXPECT_TRUE(g.IsEOF());

  // An unwritable target is an error naming BuildRDF.
  EXPECT_FALSE(engine_.BuildRDF(home_ / "no" / "x.rdf"));
  EXPECT_EQ(engine_.LastError()->source(), "BuildRDF");
}

}  // namespace
}  // namespace qb
