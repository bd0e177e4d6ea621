// Spreadsheet output: typed input, the paste blocks and their check, the sheet's row limit,
// rows kept in a work file, the backup on save, and an .xlsx put in place only when finished.

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "output/spreadsheet_sink.h"
#include "run/run_driver.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadFile;
using test::WriteFile;

TEST(TypedInput, NumbersAndDates) {
  EXPECT_EQ(xls::ParseNumber(" -12.50 "), -12.5);
  EXPECT_EQ(xls::ParseNumber("2e3"), 2000.0);
  EXPECT_EQ(xls::ParseNumber(".5"), 0.5);
  for (const char* text : {"", "-", "1,234", "12a", "1e", "0x10", "nan", "1.2.3"}) {
    EXPECT_FALSE(xls::ParseNumber(text)) << text;
  }
  EXPECT_EQ(xls::ParseDate("10/02/26"), 46297.0);  // 00-29: the 2000s
  EXPECT_EQ(xls::ParseDate("12/31/99"), 36525.0);  // 30-99: the 1900s
  EXPECT_EQ(xls::ParseDate("1/1/1900"), 2.0);      // serials count from 1899-12-30
  EXPECT_EQ(xls::ParseDate("02/29/2024"), 45351.0);
  for (const char* text : {"02/29/2023", "13/01/26", "00/10/26", "1/32/26", "1/2/3", "1-2-26",
                           "1/2/26/4", "123/1/26"}) {
    EXPECT_FALSE(xls::ParseDate(text)) << text;
  }
}

class SpreadsheetTest : public test::EngineTest {
 protected:
  SpreadsheetTest() {
    Rdf("RDF 0001T T@T\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,6,=,,\r\n"
        "DET,0,0,2,10,20,=,,\r\nFLD\r\n1,y,c,1,0,Code,\r\n2,y,c,2,0,Text,\r\nRLF SECTION\r\n"
        "HD,Rows\r\n");
  }

  // Converts `report` to .xls in buffer `mode`; returns the driver after RunEnd.
  std::unique_ptr<RunDriver> ConvertXls(const std::string& report, const char* mode, bool* ok) {
    WriteFile(home_ / "r.txt", report);
    EXPECT_TRUE(engine_.LoadRDF(home_ / "t.rdf", home_ / "r.txt"));
    app_.Settings.Item(Key::opfmt).Value = ".xls";
    app_.Settings.Item(Key::rmode).Value = mode;
    app_.Settings.Item(Key::outdir).Value = home_.path().string();
    auto driver = std::make_unique<RunDriver>(engine_, ParseOutputOptions(app_.Settings));
    *ok = driver->Run(home_ / "r.txt", home_ / "out.xls");
    return driver;
  }
};

// A paste-mode sink over two columns of `types`, writing home/out.xls.
std::unique_ptr<SpreadsheetRun> PasteSink(const RunLog& log, const std::filesystem::path& home,
                                          std::vector<std::string> types, int mode) {
  OutputOptions options;
  options.format = OutputFormat::Xls;
  options.delimiter = "\t";
  options.bufferMode = mode;
  return std::make_unique<SpreadsheetRun>(
      options, OutputTarget{home / "out.xls", home, std::move(types), "Rows", &log});
}

TEST_F(SpreadsheetTest, BlocksArePastedEveryModeRowsAndTheRestAtTheEnd) {
  auto run = PasteSink(app_.Log(), home_.path(), {"c", "n"}, 3);
  std::vector<std::string_view> labels{"Code", "Amount"};
  run->Header(labels);
  std::vector<int> usedAfter;
  ValueBuffer code, amount;
  amount.assign("1.5");
  const std::vector<const ValueBuffer*> values{&code, &amount};
  for (int k = 1; k <= 7; ++k) {
    code.assign("R" + std::to_string(k));
    run->Row(values);
    if (k == 7) run->EndOfRows();  // the 7th row comes with the final write
    usedAfter.push_back(run->Sheet()->UsedRows());
  }
  // Rows 2-4 land with the 3rd row, 5-7 with the 6th, row 8 alone in the final call.
  EXPECT_EQ(usedAfter, (std::vector<int>{1, 1, 4, 4, 4, 7, 8}));
  EXPECT_EQ(run->Sheet()->Data().rows[7][1].number, 1.5);

  // A value holding a Tab, a CR or an LF lands whole in its cell: nothing moves.
  auto special = PasteSink(app_.Log(), home_.path(), {"c", "c"}, 1);
  for (const char* text : {"a\tb", "c\rd", "e\nf", "g\x1bh"}) {
    code.assign(text);
    amount.assign("next");
    special->Row(values);
  }
  const xls::SheetData& sheet = special->Sheet()->Data();
  ASSERT_EQ(sheet.rows.size(), 5u);
  int row = 1;
  for (const char* text : {"a\tb", "c\rd", "e\nf", "g\x1bh"}) {
    ASSERT_EQ(sheet.rows[row].size(), 2u) << text;
    EXPECT_EQ(sheet.strings[sheet.rows[row][0].text], text);
    EXPECT_EQ(sheet.strings[sheet.rows[row][1].text], "next");
    ++row;
  }
}

// A Tab or a CR inside a picked-up value, in every buffer mode: no "Match Error.", no
// message, every row written (the cells themselves are read back in xls_test.py).
TEST_F(SpreadsheetTest, ATabOrCrInAValueMovesNoCell) {
  for (const char* mode : {"0", "1", "3", "6"}) {
    ui_.messages.clear();
    bool ok = false;
    auto driver =
        ConvertXls("D 000001 plain\r\nD 000002 with\ttab\r\nD 000003 with\rcr\r\n", mode, &ok);
    EXPECT_TRUE(ok) << mode;
    EXPECT_TRUE(ui_.messages.empty()) << mode << ": " << ui_.messages[0].text;
    EXPECT_EQ(driver->Stats().linesWritten, 3) << mode;
  }
}

TEST_F(SpreadsheetTest, MoreRowsThanASheetHoldsFailWithoutAFile) {
  std::string report;
  report.reserve(70000 * 10);
  for (int i = 0; i < xls::kMaxRows + 5; ++i) report += "D " + std::to_string(100000 + i) + "\r\n";
  for (const char* mode : {"0", "6"}) {
    ui_.messages.clear();
    bool ok = true;
    auto driver = ConvertXls(report, mode, &ok);
    EXPECT_FALSE(ok) << mode;
    ASSERT_TRUE(driver->LastError()) << mode;
    EXPECT_NE(driver->LastError()->description().find("use .xlsx"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(home_ / "out.xls")) << mode;
    EXPECT_EQ(test::Files(home_.path()),
              (std::vector<std::string>{"log", "out", "qbsys.txt", "r.txt", "t.rdf"}))
        << "a work or temporary file was left";
  }
}

// An .xlsx takes the output's name only when finished: abandoned, or dropped unfinished, it
// leaves the previous output as it was and no file of its own.
TEST_F(SpreadsheetTest, AnXlsxReplacesThePreviousOutputOnlyWhenFinished) {
  const std::filesystem::path out = home_ / "out.xlsx";
  WriteFile(out, "previous output");
  const std::vector<std::string> before = test::Files(home_.path());
  OutputOptions options;
  options.format = OutputFormat::Xlsx;
  const OutputTarget target{out, home_.path(), {"c", "n"}, "Rows", &app_.Log()};
  const std::vector<std::string_view> labels{"Code", "Amount"};
  ValueBuffer code, amount;
  code.assign("A1");
  amount.assign("1,234.50");
  const std::vector<const ValueBuffer*> values{&code, &amount};
  for (bool abandon : {true, false}) {
    std::unique_ptr<OutputSink> sink = OpenOutputSink(options, target);
    sink->Header(labels);
    sink->Row(values);
    if (abandon) sink->Abandon();
  }
  EXPECT_EQ(ReadFile(out), "previous output");
  EXPECT_EQ(test::Files(home_.path()), before);

  std::unique_ptr<OutputSink> sink = OpenOutputSink(options, target);
  sink->Header(labels);
  sink->Row(values);
  sink->Finish();
  EXPECT_EQ(ReadFile(out).substr(0, 2), "PK");  // a zip container: the workbook
  EXPECT_EQ(test::Files(home_.path()), before);
}

// A NUL reaches an .xlsx cell as a seven-character escape, and the workbook takes at most
// 32,767 characters a cell, escapes counted whole: a text of NULs is cut where its escapes
// fill the cell, and the log says which cell, where the workbook would refuse the cell.
TEST_F(SpreadsheetTest, AnXlsxTextWhoseEscapesOverfillACellIsCut) {
  OutputOptions options;
  options.format = OutputFormat::Xlsx;
  const OutputTarget target{home_ / "out.xlsx", home_.path(), {"c"}, "Rows", &app_.Log()};
  ValueBuffer text;
  text.assign(std::string(xls::kMaxCellText, '\0'));
  const std::vector<const ValueBuffer*> values{&text};
  std::unique_ptr<OutputSink> sink = OpenOutputSink(options, target);
  sink->Row(values);
  sink->Finish();
  EXPECT_NE(Log().find("Row 1, column 1: a text of 32767 characters (229369 with the escapes a "
                       "workbook writes for some characters) was cut to the 32767 a cell holds"),
            std::string::npos)
      << Log();
}

// A sheet filled row by row moves the rows it is done with to a work file: it holds only the
// header and the rows still open, refuses a cell in a finished row, and saves the same
// workbook, byte for byte, as a sheet held whole, with formats and bold set after the rows
// (as the turbo import sets them) and the columns fitted to texts that are only on disk.
TEST_F(SpreadsheetTest, ASheetFilledRowByRowSavesTheSameWorkbookFromItsWorkFile) {
  const std::filesystem::path work = home_ / "work";
  std::filesystem::create_directories(work);
  auto fill = [&](xls::Worksheet& sheet, bool spill) {
    if (spill) sheet.SpillTo(work);
    for (int row = 1; row <= 5000; ++row) {
      sheet.Cells(row, 1).Value("C" + std::to_string(row % 700));
      sheet.Cells(row, 2).Value(std::to_string(row) + ".25");
      if (row % 3 == 0) sheet.Cells(row, 4).Value("10/" + std::to_string(row % 28 + 1) + "/26");
      if (row == 4321) sheet.Cells(row, 3).Value("the longest text of column three");
      sheet.SealRowsBefore(row);
    }
    sheet.Columns(2).numberFormat = "0.00";
    sheet.Columns(4).numberFormat = "mm/dd/yy";
    for (int column = 1; column <= 4; ++column) sheet.Cells(1, column).FontBold(true);
    sheet.ColumnsAutoFit();
  };
  xls::Application excel;
  xls::Workbook& whole = excel.Workbooks.Add();
  fill(whole.Worksheets(1), false);
  xls::Workbook& spilled = excel.Workbooks.Add();
  xls::Worksheet& sheet = spilled.Worksheets(1);
  fill(sheet, true);

  const xls::SheetData& data = sheet.Data();
  ASSERT_TRUE(data.spill);
  EXPECT_GE(data.spill->End(), 4000u);
  EXPECT_TRUE(data.rows[1].empty());
  EXPECT_EQ(data.rows[0].size(), 4u);  // the header row stays
  EXPECT_EQ(data.rows.back().size(), 2u);
  EXPECT_EQ(data.columns[2].width, 33.0);  // fitted to a text of row 4,321, on disk by then
  EXPECT_THROW(sheet.Cells(4321, 1).Value("late"), QbError);
  sheet.Cells(5000, 3).Value("the last row is still open");
  whole.Worksheets(1).Cells(5000, 3).Value("the last row is still open");

  whole.SaveAs(home_ / "whole.xls", xls::xlWorkbookNormal, false);
  spilled.SaveAs(home_ / "spilled.xls", xls::xlWorkbookNormal, false);
  EXPECT_EQ(ReadFile(home_ / "spilled.xls"), ReadFile(home_ / "whole.xls"));
  excel.Quit();
  EXPECT_TRUE(test::Files(work).empty()) << "the work file outlived its sheet";
}

// A text output is the same file whether a writer thread formats its rows from batches or
// the run's thread formats each row straight from the run's buffers: the header, quoting,
// the numeric clean-up, a rejected record's empty line in between, and UTF-8 lines.
TEST_F(SpreadsheetTest, TextOutputsAreTheSameWithAndWithoutTheWriterThread) {
  Alphabet utf8(Encoding::Utf8);
  const std::string accented = utf8.Units("Müller & Søn", true);
  auto write = [&](bool threaded, const Alphabet* alphabet, const std::filesystem::path& out) {
    OutputOptions options;
    options.format = OutputFormat::Csv;
    options.delimiter = ",";
    options.writerThread = threaded;
    std::unique_ptr<OutputSink> sink = OpenOutputSink(
        options, OutputTarget{out, home_.path(), {"c", "n", "c"}, "Rows", &app_.Log(), alphabet});
    const std::vector<std::string_view> labels{"Customer", "Amount", "Note"};
    sink->Header(labels);
    ValueBuffer name, amount, note;
    const std::vector<const ValueBuffer*> values{&name, &amount, &note};
    for (int r = 0; r < 3000; ++r) {
      name.assign(r % 7 == 0 ? accented : "C" + std::to_string(r));
      amount.assign(std::to_string(r) + ",000.5" + (r % 2 ? "-" : ""));
      note.assign(r % 5 == 0 ? "says \"hello\", twice" : "");
      sink->Row(values);
      if (r == 1500) sink->RejectedLastRow();
    }
    sink->Finish();
    return ReadFile(out);
  };
  for (const Alphabet* alphabet : {static_cast<const Alphabet*>(nullptr), &std::as_const(utf8)}) {
    const std::string threaded = write(true, alphabet, home_ / "threaded.csv");
    const std::string inline_ = write(false, alphabet, home_ / "inline.csv");
    EXPECT_EQ(inline_, threaded);
    EXPECT_EQ(std::count(inline_.begin(), inline_.end(), '\n'), 3002);
    EXPECT_NE(inline_.find("\"says \"\"hello\"\", twice\""), std::string::npos);
    EXPECT_NE(inline_.find("\r\n\r\n"), std::string::npos);  // the rejected record's line
    EXPECT_NE(inline_.find(alphabet ? "Müller & Søn" : accented), std::string::npos);
  }
}

TEST_F(SpreadsheetTest, SavingOverAWorkbookKeepsABackup) {
  xls::Application excel;
  xls::Workbook& book = excel.Workbooks.Add();
  book.Worksheets(1).Cells(1, 1).Value("new");
  WriteFile(home_ / "report.xls", "old workbook");
  book.SaveAs(home_ / "report.xls", xls::xlWorkbookNormal, /*createBackup=*/true);
  EXPECT_EQ(ReadFile(home_ / "Backup of report.xlk"), "old workbook");
  EXPECT_NE(ReadFile(home_ / "report.xls"), "old workbook");
  // A folder that does not exist: an error, nothing written.
  EXPECT_THROW(book.SaveAs(home_ / "none" / "x.xls", xls::xlWorkbookNormal, false), QbError);
}

}  // namespace
}  // namespace qb
