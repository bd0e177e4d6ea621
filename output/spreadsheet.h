#pragma once
// A small spreadsheet object model, shaped like the automation interface the spreadsheet
// procedures were written against (Workbooks.Add, Worksheets(1), Columns(c).NumberFormat,
// Cells(r, c).Value, a range paste, SaveAs), so those procedures read step for step.
// Behind it is one in-memory sheet that SaveAs writes as an .xls workbook.

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "output/xls_writer.h"

namespace qb {
class RunLog;
}

namespace qb::xls {

inline constexpr int xlTop = -4160;
inline constexpr int xlWorkbookNormal = -4143;
inline constexpr int xlDelimited = 1;

// Turbo import column types (OpenText FieldInfo).
enum ImportType { kImportGeneral = 1, kImportText = 2, kImportMDY = 3 };

// What a value typed into a cell becomes, in .xls and .xlsx alike: in a text column ("@")
// text; elsewhere the number it reads as, or in a date column the day serial of mm/dd/yy or
// mm/dd/yyyy; otherwise text (nothing here).
std::optional<double> TypedNumber(std::string_view text, bool textColumn, bool dateColumn);
// Whether a number format shows dates.
bool IsDateFormat(std::string_view format);

// How many characters a number shows in a column of `format`: what AutoFit measures.
size_t DisplayWidth(double number, std::string_view format);
// The width AutoFit gives a column whose longest cell shows `longest` characters (at least
// one): a character more, at most 255.
double AutoFitWidth(size_t longest);

// A text longer than a cell holds (kMaxCellText), cut there.
struct CutCell {
  int row, column;     // 1-based, on its sheet
  size_t length;       // of the text as given
  int sheet = 1;       // an .xlsx's later sheets are 2, 3, ...
  size_t escaped = 0;  // when an .xlsx's escapes made it too long: its length with them
};
// One log line a cut cell (the first twenty of `cells`), and the count of the rest of `total`.
void LogCutCells(const RunLog& log, std::string_view source, std::span<const CutCell> cells,
                 size_t total);

class Worksheet;

// Cells(r, c): a handle on one cell.
class CellRef {
 public:
  CellRef(Worksheet& sheet, int row, int column) : sheet_(sheet), row_(row), column_(column) {}
  // Value = text, taken as typed input: text in a "@" column, else a number when it reads
  // as one, a date in a date column when it reads as mm/dd/yy or mm/dd/yyyy, else text.
  void Value(std::string_view text);
  // The same for a text as it travelled in a pasted block or mode 6's work file, whose Tabs,
  // CRs and LFs came escaped (output/sheet_text.h).
  void TravelledValue(std::string_view text);
  void FontBold(bool bold);

 private:
  Worksheet& sheet_;
  int row_, column_;
};

class Worksheet {
 public:
  std::string Name = "Sheet1";

  // Columns(c), 1-based: NumberFormat, WrapText, ColumnWidth.
  ColumnSpec& Columns(int column);
  // Columns.AutoFit: every column fits its longest cell text (at most 255 characters);
  // a wrapped column keeps its width, its text wraps to it.
  void ColumnsAutoFit();
  // Columns.VerticalAlignment = xlTop.
  void ColumnsVerticalAlignment(int alignment);

  // Cells(r, c), 1-based. Throws QbError when r passes the sheet's 65,536 rows.
  CellRef Cells(int row, int column);

  // Pastes tab-separated lines (CR LF between rows) into Range(Cells(r1, c1), Cells(r2, c2)):
  // what falls outside the range is dropped. Returns the pasted range read back as text.
  std::string PasteText(int r1, int c1, int r2, int c2, std::string_view text);

  int UsedRows() const { return static_cast<int>(data_.rows.size()); }

  // A sheet that is filled row by row keeps in memory only the rows still being filled: once
  // told where, rows the filler is done with go to a work file in `folder`, a thousand or
  // so at a time. Row 1, the header, always stays.
  void SpillTo(std::filesystem::path folder) { spillFolder_ = std::move(folder); }
  // Rows 2 to `row` - 1 are done with: they may go to the work file, and a cell in them can
  // no longer be set (Cells throws error 5). Throws QbError when the work file cannot be
  // made or written.
  void SealRowsBefore(int row);

  // A cell holds at most kMaxCellText characters; a longer text is cut there and the cell
  // remembered, so that the run can log each one.
  const std::vector<CutCell>& CutCells() const { return cutCells_; }
  // One log line a cut cell (the first twenty), and the count of the rest.
  void LogCutCells(const RunLog& log, std::string_view source) const {
    xls::LogCutCells(log, source, cutCells_, cutCells_.size());
  }
  const SheetData& Data() const { return data_; }
  // What the texts' bytes stand for (Windows-1252 without one).
  void SetAlphabet(const Alphabet* alphabet) { data_.alphabet = alphabet; }

 private:
  friend class CellRef;
  friend class Workbook;
  friend class Application;
  void Put(int row, int column, std::string_view text, std::optional<bool> bold);
  CellData* Find(int row, int column);

  void CheckNotSealed(int row) const;

  SheetData data_;
  std::filesystem::path spillFolder_;  // empty: every row stays in memory
  int sealedBefore_ = 2;               // rows 2 to this - 1 are sealed
  std::vector<CutCell> cutCells_;
  std::vector<int> importTypes_;  // per column, set by OpenText; 0 when none
};

class Workbook {
 public:
  Workbook() : sheet_(std::make_unique<Worksheet>()) {}
  Worksheet& Worksheets(int index);
  // Writes the workbook. With createBackup, an existing file of that name is first renamed
  // to "Backup of <name>.xlk" in the same folder. Throws QbError on failure.
  void SaveAs(const std::filesystem::path& fileName, int fileFormat, bool createBackup);
  void Close() {}

 private:
  friend class Application;
  std::unique_ptr<Worksheet> sheet_;
};

class Application {
 public:
  class WorkbookList {
   public:
    Workbook& Add();
    // Reads a tab-delimited text file into a new workbook; `fieldInfo` gives (column, type)
    // pairs. The rows read go to a work file in `spillFolder` unless it is empty
    // (Worksheet::SpillTo). Throws QbError when the file cannot be read or has more rows than
    // a sheet.
    Workbook& OpenText(const std::filesystem::path& fileName, int dataType, bool tab,
                       const std::vector<std::pair<int, int>>& fieldInfo,
                       const std::filesystem::path& spillFolder = {});

   private:
    friend class Application;
    std::vector<std::unique_ptr<Workbook>> books_;
  };

  WorkbookList Workbooks;
  Workbook* ActiveWorkbook() {
    return Workbooks.books_.empty() ? nullptr : Workbooks.books_.back().get();
  }
  void Quit() { Workbooks.books_.clear(); }
};

// A typed-input value: the number or day serial `text` stands for, if any.
std::optional<double> ParseNumber(std::string_view text);
std::optional<double> ParseDate(std::string_view text);

}  // namespace qb::xls
