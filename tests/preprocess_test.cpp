// Delimited input: field placement and the reformat of a whole file.

#include <gtest/gtest.h>

#include "base/recode.h"
#include "preprocess/dff.h"
#include "preprocess/pdf.h"
#include "preprocess/pdf_layout.h"
#include "run/conversion_job.h"
#include "tests/engine_fixture.h"
#include "tests/tools/plain_pdf.h"

namespace qb {
namespace {

using test::ReadFile;
using test::WriteFile;

TEST(DffPlacement, FieldsGoToTheirColumns) {
  std::string line;
  PlaceFields("a,bb,ccc", ',', {1, 10, 20}, line);
  EXPECT_EQ(line, "a        bb        ccc");
  PlaceFields("a,bb", ',', {1, 10, 20}, line);  // fewer fields: the rest stays blank
  EXPECT_EQ(line, "a        bb");
  PlaceFields("", ',', {1, 10}, line);
  EXPECT_EQ(line, "");
  PlaceFields("a,b,c,d", ',', {5, 1}, line);  // surplus fields are dropped
  EXPECT_EQ(line, "b   a");
  PlaceFields("\"x,y\",z", ',', {1, 10, 20}, line);  // no quoting: the comma splits
  EXPECT_EQ(line, "\"x       y\"        z");
  PlaceFields("longvalue,12", ',', {1, 3}, line);  // a later field overwrites an earlier one
  EXPECT_EQ(line, "lo12value");
  PlaceFields(std::string(20, 'x'), ',', {490}, line);  // cut at column 500
  EXPECT_EQ(line.size(), 500u);
  for (int32_t bad : {0, -1, 501}) EXPECT_THROW(PlaceFields("a", ',', {bad}, line), QbError) << bad;
}

class DffTest : public test::EngineTest {};

TEST_F(DffTest, ReformatsLinesAndFormFeedsAndEndsWithABlankLine) {
  Rdf("RDF 0001D T@T\r\nDFI\r\nTAB,\"\r\nDFC\r\n1,1,,0,\r\n2,8,,0,\r\nRDF 01 D\r\n");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  WriteFile(home_ / "in.tsv", "A\tone\r\nB\ttwo\fC\tthree\r\n\r\n");
  std::atomic<bool> cancel{false};
  {
    RunFolder work(home_ / "out");
    const TempFile out = ProcessDFF(engine_, cancel, home_ / "in.tsv", work);
    EXPECT_EQ(ReadFile(out.path()), "A      one\r\nB      two\r\nC      three\r\n\r\n \r\n");
    EXPECT_EQ(ui_.statuses.front(), "Reformatting DFF file ...");
    // In UTF-8 (its mark dropped), columns count characters and the text stays UTF-8.
    WriteFile(home_ / "in8.tsv", "\xEF\xBB\xBF\xC3\x84\xC3\x96\tone\r\n");
    const TempFile utf8 = ProcessDFF(engine_, cancel, home_ / "in8.tsv", work, Encoding::Utf8);
    EXPECT_EQ(ReadFile(utf8.path()), "\xC3\x84\xC3\x96     one\r\n \r\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(home_ / "out")) << "the run's folder stays";

  cancel = true;
  try {
    RunFolder work(home_ / "out");
    ProcessDFF(engine_, cancel, home_ / "in.tsv", work);
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.source(), "ProcessDFF");
    EXPECT_EQ(e.description(), "Reformatting Report file");
  }
  EXPECT_TRUE(std::filesystem::is_empty(home_ / "out"));
  cancel = false;
  // The program folder's out/ is made when it is missing; when it cannot be, the error names it.
  std::filesystem::remove_all(home_ / "out");
  {
    RunFolder work(home_ / "out");
    ProcessDFF(engine_, cancel, home_ / "in.tsv", work);
  }
  EXPECT_TRUE(std::filesystem::is_empty(home_ / "out"));
  std::filesystem::remove_all(home_ / "out");
  WriteFile(home_ / "out", "a file where the folder should be");
  try {
    RunFolder work(home_ / "out");
    ProcessDFF(engine_, cancel, home_ / "in.tsv", work);
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kPathNotFound);
    EXPECT_NE(e.description().find((home_ / "out").string()), std::string::npos);
  }
}

// A DFC column outside the line is named, with the input line that reached it.
// A run places a delimited report's lines as it reads them: its rows are those of the same
// RDF's marker and pickup rows over the reformatted text, for lines longer than a printed
// line, form feeds, blank lines and the closing blank line alike.
TEST_F(DffTest, ARunReadsADelimitedReportAsItsReformattedText) {
  const std::string body =
      "RDF 01 D\r\nDLM\r\n1,=,R,0,1,ROW\r\n1,=, ,0,1,END\r\nDLC\r\n"
      "ROW,0,0,1,1,3,=,,\r\nROW,0,0,2,5,7,=,,\r\nROW,0,0,3,12,8,=,,\r\n"
      "ROW,0,0,4,495,6,=,,\r\nEND,0,0,1,1,1,a,END,set\r\nFLD\r\n1,y,c,1,0,Id,\r\n"
      "2,y,c,2,0,Name,\r\n3,y,n,3,0,Amount,\r\n4,y,c,4,0,Tail,\r\n";
  const std::string dfc = "DFC\r\n1,1,,0,\r\n2,5,,0,\r\n3,20,,0,\r\n4,12,,0,\r\n";
  std::string filler;
  for (int i = 0; filler.size() < 700; ++i) filler += std::to_string(i % 10);
  WriteFile(home_ / "in.csv", "R1,Alpha," + filler + ",12.50\r\nR2,Beta,x,-3.00\fR3,Gamma\r\n\r\n" +
                                  "R4,\"Q,uoted\",," + filler.substr(0, 480) + "\r\n");
  auto convert = [&](const std::filesystem::path& report, const std::filesystem::path& rdf) {
    JobRequest r;
    r.report = report;
    r.rdf = rdf;
    r.output = home_ / (report.stem().string() + ".out.csv");
    ConversionJob job(app_, ui_, r);
    ui_.answers = {true};
    EXPECT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_TRUE(job.Run()) << report;
    EXPECT_TRUE(std::filesystem::is_empty(home_ / "out")) << "no work file is left";
    return ReadFile(r.output);
  };
  const std::filesystem::path rdf =
      Rdf("RDF 0001D D@D\r\nDFI\r\nCOMMA,\"\r\n" + dfc + body, "d.rdf");
  const std::string direct = convert(home_ / "in.csv", rdf);
  {
    ASSERT_TRUE(engine_.LoadRDF(rdf, ""));
    std::atomic<bool> cancel{false};
    RunFolder work(home_ / "out");
    const TempFile placed = ProcessDFF(engine_, cancel, home_ / "in.csv", work);
    std::filesystem::copy_file(placed.path(), home_ / "placed.txt");
  }
  EXPECT_EQ(direct, convert(home_ / "placed.txt", Rdf("RDF 0001T T@T\r\n" + body)));
  // The tail of the 700-character field, cut at column 500; the blank line and the closing
  // one match the blank marker; no quoting in a delimited line: a comma splits.
  EXPECT_EQ(direct,
            "Id,Name,Amount,Tail\r\nR1,Alpha,12.50,567890\r\nR2,Beta,-3.00,\r\nR3,Gamma,,\r\n"
            "END,,,\r\nR4,\"\"\"Q\",,\r\nEND,,,\r\n");

  // A run asked to write over its report (without the checks a front end makes first) fails
  // and leaves the report as it was.
  const std::string report = ReadFile(home_ / "in.csv");
  JobRequest r;
  r.report = r.output = home_ / "in.csv";
  r.rdf = rdf;
  ConversionJob job(app_, ui_, r);
  EXPECT_FALSE(job.Run());
  EXPECT_EQ(ReadFile(home_ / "in.csv"), report);
}

TEST_F(DffTest, AColumnOutsideTheLineSaysWhereAndWhich) {
  Rdf("RDF 0001D T@T\r\nDFI\r\ncomma,\"\r\nDFC\r\n1,1,,0,\r\n2,501,,0,\r\nRDF 01 D\r\n");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  WriteFile(home_ / "in.csv", "only one field\r\nA,B\r\n");
  std::atomic<bool> cancel{false};
  RunFolder work(home_ / "out");
  try {
    ProcessDFF(engine_, cancel, home_ / "in.csv", work);
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kInvalidCall);
    EXPECT_NE(e.description().find("places field 2 at column 501; columns run from 1 to 500"),
              std::string::npos)
        << e.description();
    EXPECT_EQ(e.file(), home_ / "in.csv");
    EXPECT_EQ(e.line(), 2);
  }
}

// Two runs at once, or a run after a killed one: work files never meet. Each run has its
// own folder, and a folder a killed run left goes once it is a day old.
TEST_F(DffTest, EachRunHasItsOwnWorkFolder) {
  Rdf("RDF 0001D T@T\r\nDFI\r\ncomma,\"\r\nDFC\r\n1,1,,0,\r\nRDF 01 D\r\n");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  std::filesystem::create_directories(home_ / "a");
  std::filesystem::create_directories(home_ / "b");
  WriteFile(home_ / "a" / "in.csv", "first\r\n");
  WriteFile(home_ / "b" / "in.csv", "second\r\n");
  std::atomic<bool> cancel{false};
  RunFolder one(home_ / "out"), two(home_ / "out");
  const TempFile a = ProcessDFF(engine_, cancel, home_ / "a" / "in.csv", one);
  const TempFile b = ProcessDFF(engine_, cancel, home_ / "b" / "in.csv", two);
  EXPECT_EQ(ReadFile(a.path()), "first\r\n \r\n");
  EXPECT_EQ(ReadFile(b.path()), "second\r\n \r\n");
  EXPECT_NE(one.Path("t"), two.Path("t"));

  // Old run folders go; a new one stays, and so do old folders of the user's whose names
  // merely look like a run folder's.
  const auto stale = home_ / "out" / "qbrun.k1LLed";
  const auto fresh = home_ / "out" / "qbrun.runs00";
  const auto users = home_ / "out" / "qbrun.2026-10 archive";
  const auto alike = home_ / "out" / "qbrun.backup";
  for (const auto& folder : {stale, fresh, users, alike}) {
    std::filesystem::create_directories(folder);
    if (folder != users && folder != alike) WriteFile(folder / ".qbrun", "");  // as a run marks it
  }
  WriteFile(stale / "x.qbr", "left by a killed run");
  WriteFile(users / "oct.csv", "kept");
  WriteFile(alike / "old.csv", "kept");
  for (const auto& old : {stale, users, alike}) {
    std::filesystem::last_write_time(
        old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(25));
  }
  RunFolder::RemoveStale(home_ / "out", std::chrono::hours(24));
  EXPECT_FALSE(std::filesystem::exists(stale));
  EXPECT_TRUE(std::filesystem::exists(fresh));
  EXPECT_EQ(ReadFile(users / "oct.csv"), "kept");
  EXPECT_EQ(ReadFile(alike / "old.csv"), "kept");
  EXPECT_TRUE(std::filesystem::exists(one.Path("t")));
}

}  // namespace
}  // namespace qb

namespace qb {
namespace {

TEST(PdfPieces, AnyTextSurvivesTheLineFormat) {
  const TextPiece piece{3, 3600, -20, 4800, 1200, "50% off\tnow\r\n%41\x7f\xe9"};
  const std::string line = FormatPieceLine(piece);
  EXPECT_EQ(line.find('\t'), std::string::npos);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  const auto back = ParsePieceLine(line);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->page, 3);
  EXPECT_EQ(back->y1, -20);
  EXPECT_EQ(back->x2, 4800);
  EXPECT_EQ(back->text, piece.text);
  for (const char* bad : {"", "P", "P 1 2 3 4", "P 1 2 3 4 x text", "P 1 2 3 4 5 bad%4",
                          "P 1 2 3 4 5 %zz", "Q 1 2 3 4 5 t"}) {
    EXPECT_FALSE(ParsePieceLine(bad)) << bad;
  }
}

// A piece of `text` at column `col` (1-based) on line `row`, 6-point pitch, 12-point lines.
TextPiece At(int row, int col, std::string text, int64_t width = 600) {
  const int64_t x = 3600 + (col - 1) * 600, y = 5000 + row * 1200;
  return {1, x, y - 1000, x + width * static_cast<int64_t>(text.size()), y, std::move(text)};
}

TEST(PdfLayout, LinesColumnsAndBlankLines) {
  PageLayout page;
  page.Add(At(0, 1, "HEADER"));
  page.Add(At(0, 20, "PAGE"));
  page.Add(At(0, 25, "1"));
  page.Add(At(1, 3, "A1"));
  page.Add(At(4, 3, "A2"));  // two blank lines before it
  TextPiece low = At(4, 10, "SAME");
  low.y2 += 150;  // a little off the baseline: still the same line
  page.Add(low);
  EXPECT_EQ(page.LineSet({}), (std::vector<std::string>{"HEADER             PAGE 1", "  A1", "", "",
                                                        "  A2     SAME"}));
  // The pitch and margin given: 12 points from 48 points, where A1 starts.
  EXPECT_EQ(page.LineSet({false, 1200, 4800, 0, {}})[1], "A1");

  // Bands: pieces in a band are joined at its column, with a tag; with "bands only", text
  // outside every band is dropped.
  LayoutParams banded{false, 0, 0, 0, {{3600 + 9 * 600, 3600 + 20 * 600, 0, 0, 40, "TAG", 60}}};
  PageLayout amounts;
  amounts.Add(At(0, 1, "TOTAL"));
  amounts.Add(At(0, 12, "1,234.50"));
  amounts.Add(At(0, 21, "CR"));
  std::vector<std::string> lines = amounts.LineSet(banded);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0], "TOTAL" + std::string(34, ' ') + "1,234.50 CR" + std::string(9, ' ') + "TAG");
  banded.bandsOnly = true;
  EXPECT_EQ(amounts.LineSet(banded)[0].substr(0, 5), "     ");

  PageLayout empty;
  EXPECT_TRUE(empty.LineSet({}).empty());
}

TEST(PdfLayout, APieceNeverCoversAnotherAndWhatFallsOffIsCounted) {
  // A proportional font measured too narrow: the second word's column is inside the first.
  PageLayout page;
  page.Add(At(0, 1, "INVOICE"));
  page.Add(At(0, 7, "REGISTER"));
  page.Add(At(0, 20, "PAGE"));
  page.Add(At(1, 1, "ADJACENT"));
  page.Add(At(1, 9, "WORDS"));  // right after: two words, not one
  EXPECT_EQ(page.LineSet({}),
            (std::vector<std::string>{"INVOICE REGISTER   PAGE", "ADJACENT WORDS"}));
  EXPECT_EQ(page.LastPlacement().moved, 2);
  EXPECT_EQ(page.LastPlacement().lost, 0);

  // A band that reaches into a word moves its text right, after one blank.
  LayoutParams banded{false, 0, 0, 0, {{3600 + 5 * 600, 3600 + 9 * 600, 0, 0, 3, "", 0}}};
  PageLayout heading;
  heading.Add(At(0, 1, "DUE"));
  heading.Add(At(0, 7, "NOW"));
  EXPECT_EQ(heading.LineSet(banded), (std::vector<std::string>{"DUE NOW"}));
  EXPECT_EQ(heading.LastPlacement().moved, 1);

  // A pitch so coarse that the page's right side falls past column 500: counted, not silent.
  PageLayout wide;
  wide.Add(At(0, 1, "LEFT"));
  wide.Add(At(0, 499, "RIGHT"));
  wide.Add(At(0, 600, "GONE"));
  EXPECT_EQ(wide.LineSet({false, 600, 3600, 0, {}})[0].size(), 500u);
  EXPECT_EQ(wide.LastPlacement().lost, 2);
}

TEST(Recoder, CharactersTheTargetLacksBecomeTheReplacement) {
  Recoder to1252("WINDOWS-1252", "UTF-8", "Test");
  // Euro sign, en dash, bullet, O with diaeresis, a CJK character, an invalid byte.
  EXPECT_EQ(to1252("\u20AC 5 \u2013 \u2022 \u00D6 \u4E2D \xFF!"), "\x80 5 \x96 \x95 \xD6 ? ?!");
  EXPECT_EQ(to1252("\u4E2D", "#"), "#");
  Recoder fromCp437("UTF-8", "CP437", "Test");
  EXPECT_EQ(fromCp437("\xC9\xCD\xBB \x81"), "\u2554\u2550\u2557 \u00FC");
  EXPECT_THROW(Recoder("NO-SUCH-ENCODING", "UTF-8", "Test"), QbError);
}

class PdfTest : public test::EngineTest {};

TEST_F(PdfTest, TheIntermediateFileIsReadByItsMarkers) {
  Rdf("RDF 0001P T@T\r\nPDP\r\nN,600,3600,0\r\nRDF 01 D\r\n");
  engine_.flags.PdfReport = true;
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  const std::string start = "Start Text Contents ** Page 1 (text after the marker is ignored)";
  WriteFile(home_ / "out" / "r.qbt",
            "a line before any page\r\n" + start + "\r\n\r\n" + FormatPieceLine(At(0, 1, "ONE")) +
                "\r\n\r\n" + FormatPieceLine(At(0, 5, "TWO")) +
                "\r\nEnd Text Contents **** Page 1\r\n" +
                "*****************>>>>>>>>>>>>>>>\r\nStart Text Contents ** Page 2\r\n" +
                FormatPieceLine(At(0, 1, "THREE")) + "\r\nEnd Text Contents **** Page 2\r\n" +
                "Start Text Contents ** Page 3\r\n" + FormatPieceLine(At(0, 1, "LOST")) + "\r\n");
  std::atomic<bool> cancel{false};
  RunFolder work(home_ / "out");
  PdfLayoutCounts counts;
  const TempFile out = ReformatPdfText(engine_, cancel, home_ / "out" / "r.qbt", work,
                                       Encoding::Windows1252, counts);
  // A page without its end marker gives no lines; page 2 begins with a form feed.
  EXPECT_EQ(ReadFile(out.path()), "ONE TWO\r\n\fTHREE\r\n \r\n");
  EXPECT_TRUE(std::is_sorted(ui_.percents.begin(), ui_.percents.end()));
  EXPECT_LE(ui_.percents.back(), 100);

  // Not a PDF: error 514 that says why; nothing is left behind.
  WriteFile(home_ / "fake.pdf", "%PDF-1.4 but nothing more\r\n");
  try {
    ConvertPdfToText(home_ / "fake.pdf", work, counts);
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), 514);
    EXPECT_NE(e.description().find("damaged or not a PDF"), std::string::npos);
  }
  EXPECT_EQ(test::Files(work.Path("t")), std::vector<std::string>{".qbrun"});  // its mark alone
}

// What poppler finds wrong in a damaged PDF stays off standard error, where the run's own
// message about it goes.
TEST_F(PdfTest, ADamagedPdfLeavesStandardErrorToTheRun) {
  WriteFile(home_ / "damaged.pdf", "%PDF-1.4 but nothing more\r\n");
  RunFolder work(home_ / "out");
  PdfLayoutCounts counts;
  testing::internal::CaptureStderr();
  EXPECT_THROW(ConvertPdfToText(home_ / "damaged.pdf", work, counts), QbError);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A PDF of one US Letter page in Courier, the page turned by `rotate` degrees, each text of
// `lines` drawn with the text matrix `matrix` ("a b c d") from the point `at(i)`.
template <typename At>
std::string OnePagePdf(int rotate, const char* matrix, const std::vector<std::string>& lines,
                       At at) {
  std::string content;
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto [x, y] = at(static_cast<int>(i));
    content += "BT /F1 10 Tf " + std::string(matrix) + " " + std::to_string(x) + " " +
               std::to_string(y) + " Tm (" + lines[i] + ") Tj ET\n";
  }
  return test::PlainPdf({{content, 612, 792, rotate}});
}

TEST_F(PdfTest, TurnedPagesAndTextPrintedSidewaysAreLaidOutUpright) {
  Rdf("RDF 0001P T@T\r\nPDP\r\nN,0,0,0\r\nRDF 01 D\r\n");
  engine_.flags.PdfReport = true;
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  const std::vector<std::string> lines = {"INVOICE 100231      1,234.50",
                                          "INVOICE 100238        310.00", "REPORT TOTAL  1,544.50"};
  // The page upright; a page the PDF turns a quarter (text drawn up the sheet, shown upright);
  // the same text on an upright page, seen sideways; and turned the other way, and upside down.
  struct Case {
    const char* name;
    std::string pdf;
    int turned;  // degrees the log names; 0: none
  };
  const Case cases[] = {
      {"upright",
       OnePagePdf(0, "1 0 0 1", lines, [](int i) { return std::pair(72, 700 - 12 * i); }), 0},
      {"page turned",
       OnePagePdf(90, "0 1 -1 0", lines, [](int i) { return std::pair(100 + 12 * i, 72); }), 0},
      {"text up the page",
       OnePagePdf(0, "0 1 -1 0", lines, [](int i) { return std::pair(100 + 12 * i, 72); }), 270},
      {"text down the page",
       OnePagePdf(0, "0 -1 1 0", lines, [](int i) { return std::pair(500 - 12 * i, 700); }), 90},
      {"upside down",
       OnePagePdf(0, "-1 0 0 -1", lines, [](int i) { return std::pair(540, 100 + 12 * i); }), 180},
  };
  for (const Case& c : cases) {
    WriteFile(home_ / "turned.pdf", c.pdf);
    std::atomic<bool> cancel{false};
    RunFolder work(home_ / "out");
    PdfLayoutCounts counts;
    const TempFile text =
        ProcessPDF(engine_, cancel, home_ / "turned.pdf", work, Encoding::Utf8, counts);
    EXPECT_EQ(ReadFile(text.path()), lines[0] + "\r\n" + lines[1] + "\r\n" + lines[2] + "\r\n \r\n")
        << c.name;
    if (c.turned == 0) {
      EXPECT_TRUE(counts.turnedPages.empty()) << c.name;
    } else {
      EXPECT_EQ(counts.turnedPages, (std::vector<std::pair<int32_t, int>>{{1, c.turned}}))
          << c.name;
      EXPECT_NE(Log().find("Page 1: the text runs turned " + std::to_string(c.turned) +
                           " degrees on the page; laid out turned upright"),
                std::string::npos)
          << c.name;
    }
  }
}

// A PDF of upright US Letter pages in Courier, each with its `pages` lines.
std::string PagesPdf(const std::vector<std::vector<std::string>>& pages) {
  std::vector<test::PlainPage> plain;
  for (const std::vector<std::string>& lines : pages) {
    std::string content;
    for (size_t i = 0; i < lines.size(); ++i) {
      content += "BT /F1 10 Tf 72 " + std::to_string(700 - 12 * static_cast<int>(i)) + " Td (" +
                 lines[i] + ") Tj ET\n";
    }
    plain.push_back({content});
  }
  return test::PlainPdf(plain);
}

// A long PDF is read by several threads at once: its pages still come out whole, each once,
// in their order.
TEST_F(PdfTest, ALongPdfReadOnSeveralThreadsKeepsItsPagesInOrder) {
  Rdf("RDF 0001P T@T\r\nPDP\r\nN,0,0,0\r\nRDF 01 D\r\n");
  engine_.flags.PdfReport = true;
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  std::vector<std::vector<std::string>> pages;
  std::vector<std::string> want;
  for (int p = 1; p <= 60; ++p) {
    pages.emplace_back();
    for (int line = 1; line <= 3 + p % 4; ++line) {
      pages.back().push_back("PAGE " + std::to_string(p) + " LINE " + std::to_string(line) + "  " +
                             std::to_string(p * 1000 + line) + ".00");
      want.push_back(pages.back().back());
    }
  }
  WriteFile(home_ / "long.pdf", PagesPdf(pages));
  std::atomic<bool> cancel{false};
  RunFolder work(home_ / "out");
  PdfLayoutCounts counts;
  const TempFile text =
      ProcessPDF(engine_, cancel, home_ / "long.pdf", work, Encoding::Utf8, counts);
  std::vector<std::string> got;
  int pageStarts = 0;
  for (std::string line : test::ReadLines(text.path())) {
    if (!line.empty() && line[0] == '\f') ++pageStarts, line.erase(0, 1);
    line = line.substr(0, line.find_last_not_of(' ') + 1);
    if (!line.empty()) got.push_back(line);
  }
  EXPECT_EQ(got, want);
  EXPECT_EQ(pageStarts, 59);

  // Cancelled, the reading stops between pages: a run or the report view is not held up for
  // the rest of a long PDF.
  cancel = true;
  try {
    ProcessPDF(engine_, cancel, home_ / "long.pdf", work, Encoding::Utf8, counts);
    ADD_FAILURE() << "a cancelled PDF was read";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kUserInterrupt);
  }
}

TEST_F(PdfTest, SamplePdfsConvertLikeTheirTextReport) {
  engine_.flags.PdfReport = true;
  for (const char* name : {"ARINV01_fixed", "ARINV01_proportional"}) {
    ASSERT_TRUE(engine_.LoadRDF(
        test::Sample(name == std::string("ARINV01_fixed") ? "ARINV01P.rdf" : "ARINV01PP.rdf"), ""));
    std::atomic<bool> cancel{false};
    RunFolder work(home_ / "out");
    PdfLayoutCounts counts;
    const TempFile qbr =
        ProcessPDF(engine_, cancel, test::Sample(std::string("pdf/") + name + ".pdf"), work,
                   Encoding::Utf8, counts);
    const std::string text = ReadFile(test::Sample("ARINV01.txt"));
    // Every line that carries data reads the same; only trailing blanks and blank page ends differ.
    std::vector<std::string> want, got;
    for (const std::string& l : test::ReadLines(test::Sample("ARINV01.txt"))) {
      const std::string t = l.substr(0, l.find_last_not_of(' ') + 1);
      if (!t.empty()) want.push_back(t);
    }
    for (const std::string& l : test::ReadLines(qbr.path())) {
      if (!l.empty() && l != " ") got.push_back(l);
    }
    if (std::string(name) == "ARINV01_fixed") {
      EXPECT_EQ(got, want) << name;
    } else {
      EXPECT_EQ(got.size(), want.size()) << name;
    }
    EXPECT_EQ(ui_.statuses[ui_.statuses.size() - 2], "Scanning PDF file ...");
    EXPECT_EQ(ui_.statuses.back(), "Reformatting PDF file ...");
  }
}

}  // namespace
}  // namespace qb
