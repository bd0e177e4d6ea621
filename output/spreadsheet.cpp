#include "output/spreadsheet.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/line_reader.h"
#include "output/sheet_text.h"
#include "settings/run_log.h"

namespace qb::xls {
namespace {

[[noreturn]] void SheetFull() {
  throw QbError(kAppDefined, "WriteLine",
                "The report gives more than 65,536 rows, more than an .xls sheet holds: use "
                ".xlsx (1,048,576 rows a sheet), .csv or .txt instead.");
}

// Days from 1899-12-30, the serial of spreadsheet dates.
int64_t DaySerial(int year, int month, int day) {
  // Days from the civil date, from Howard Hinnant's algorithm.
  year -= month <= 2;
  const int era = (year >= 0 ? year : year - 399) / 400;
  const int yoe = year - era * 400;
  const int doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  const int64_t daysFrom1970 = static_cast<int64_t>(era) * 146097 + doe - 719468;
  return daysFrom1970 + 25569;
}

}  // namespace

std::optional<double> ParseNumber(std::string_view text) {
  text = Trim(text);
  if (text.empty()) return std::nullopt;
  size_t i = 0;
  if (text[i] == '+' || text[i] == '-') ++i;
  size_t digits = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i, ++digits;
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return std::nullopt;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    size_t j = i + 1;
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) ++j;
    size_t expDigits = 0;
    while (j < text.size() && text[j] >= '0' && text[j] <= '9') ++j, ++expDigits;
    if (expDigits == 0) return std::nullopt;
    i = j;
  }
  if (i != text.size()) return std::nullopt;
  double value = 0;
  const char* first = text.data() + (text.front() == '+' ? 1 : 0);  // from_chars takes no '+'
  std::from_chars(first, text.data() + text.size(), value);
  return value;
}

std::optional<double> ParseDate(std::string_view text) {
  text = Trim(text);
  int part[3] = {0, 0, 0};
  size_t len[3] = {0, 0, 0};
  int n = 0;
  for (char c : text) {
    if (c == '/') {
      if (++n > 2) return std::nullopt;
    } else if (c >= '0' && c <= '9') {
      part[n] = part[n] * 10 + (c - '0');
      if (++len[n] > 4) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (n != 2 || len[0] == 0 || len[0] > 2 || len[1] == 0 || len[1] > 2 ||
      (len[2] != 2 && len[2] != 4)) {
    return std::nullopt;
  }
  int year = part[2];
  if (len[2] == 2) year += year < 30 ? 2000 : 1900;
  const int month = part[0], day = part[1];
  static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1 || day > kDays[month - 1]) return std::nullopt;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (month == 2 && day == 29 && !leap) return std::nullopt;
  return static_cast<double>(DaySerial(year, month, day));
}

std::optional<double> TypedNumber(std::string_view text, bool textColumn, bool dateColumn) {
  if (textColumn) return std::nullopt;
  std::optional<double> number = ParseNumber(text);
  if (!number && dateColumn) number = ParseDate(text);
  return number;
}

bool IsDateFormat(std::string_view format) {
  return format.find("yy") != std::string_view::npos;
}

size_t DisplayWidth(double number, std::string_view format) {
  if (IsDateFormat(format)) return format.size();
  char text[64];
  const size_t dot = format.find('.');
  if (dot != std::string_view::npos && format != "General" && format != "@") {
    const int decimals = static_cast<int>(format.size() - dot - 1);
    return static_cast<size_t>(std::snprintf(text, sizeof text, "%.*f", decimals, number));
  }
  return static_cast<size_t>(std::snprintf(text, sizeof text, "%.10g", number));
}

double AutoFitWidth(size_t longest) {
  return static_cast<double>(std::min<size_t>(longest + 1, 255));
}

void LogCutCells(const RunLog& log, std::string_view source, std::span<const CutCell> cells,
                 size_t total) {
  constexpr size_t kNamed = 20;
  for (size_t i = 0; i < cells.size() && i < kNamed; ++i) {
    const CutCell& c = cells[i];
    log.WriteLog(source,
                 (c.sheet > 1 ? "Sheet " + std::to_string(c.sheet) + ", row " : "Row ") +
                     std::to_string(c.row) + ", column " + std::to_string(c.column) +
                     ": a text of " + std::to_string(c.length) + " characters" +
                     (c.escaped > 0 ? " (" + std::to_string(c.escaped) +
                                          " with the escapes a workbook writes for some characters)"
                                    : "") +
                     " was cut to the " + std::to_string(kMaxCellText) + " a cell holds");
  }
  if (total > kNamed) log.WriteLog(source, std::to_string(total - kNamed) + " more texts were cut");
}

void CellRef::Value(std::string_view text) {
  sheet_.Put(row_, column_, text, std::nullopt);
}
void CellRef::FontBold(bool bold) {
  if (CellData* cell = sheet_.Find(row_, column_)) {
    cell->bold = bold;
  } else {
    sheet_.Put(row_, column_, "", bold);
  }
}

ColumnSpec& Worksheet::Columns(int column) {
  if (column < 1 || column > kMaxColumns) throw QbError::Runtime(kInvalidCall, "Columns");
  if (static_cast<size_t>(column) > data_.columns.size())
    data_.columns.resize(static_cast<size_t>(column));
  return data_.columns[static_cast<size_t>(column - 1)];
}

void Worksheet::ColumnsAutoFit() {
  std::vector<size_t> longest(data_.columns.size(), 0);
  const std::string general = "General";
  data_.ForEachCell([&](uint32_t, const CellData& cell) {
    if (cell.column >= longest.size()) longest.resize(cell.column + 1, 0);
    const std::string& format =
        cell.column < data_.columns.size() ? data_.columns[cell.column].numberFormat : general;
    size_t width = cell.kind == CellData::Kind::Text ? data_.strings[cell.text].size()
                                                     : DisplayWidth(cell.number, format);
    longest[cell.column] = std::max(longest[cell.column], width);
  });
  if (data_.columns.size() < longest.size()) data_.columns.resize(longest.size());
  for (size_t c = 0; c < longest.size(); ++c) {
    ColumnSpec& col = data_.columns[c];
    if (col.wrap && col.width >= 0) continue;  // wrapped text fits the width it was given
    if (longest[c] > 0) col.width = AutoFitWidth(longest[c]);
  }
}

void Worksheet::ColumnsVerticalAlignment(int alignment) {
  data_.alignTop = alignment == xlTop;
}

CellRef Worksheet::Cells(int row, int column) {
  if (row > kMaxRows) SheetFull();
  if (row < 1 || column < 1 || column > kMaxColumns) throw QbError::Runtime(kInvalidCall, "Cells");
  CheckNotSealed(row);
  return CellRef(*this, row, column);
}

void Worksheet::CheckNotSealed(int row) const {
  if (row >= 2 && row < sealedBefore_) throw QbError::Runtime(kInvalidCall, "Cells");
}

void Worksheet::SealRowsBefore(int row) {
  sealedBefore_ = std::max(sealedBefore_, row);
  // Rows move out a thousand at a time, and only from a sheet told where to: a small sheet
  // never makes a work file.
  constexpr size_t kSpillRows = 1024;
  const size_t end = std::min(static_cast<size_t>(sealedBefore_ - 1), data_.rows.size());
  const size_t from = data_.spill ? data_.spill->End() : 1;
  if (spillFolder_.empty() || end < from + kSpillRows) return;
  if (!data_.spill) data_.spill = std::make_unique<SpilledRows>(spillFolder_, "Cells");
  for (size_t r = from; r < end; ++r) {
    data_.spill->Add(static_cast<uint32_t>(r), data_.rows[r]);
    std::vector<CellData>().swap(data_.rows[r]);
  }
}

CellData* Worksheet::Find(int row, int column) {
  CheckNotSealed(row);
  if (static_cast<size_t>(row) > data_.rows.size()) return nullptr;
  for (CellData& cell : data_.rows[static_cast<size_t>(row - 1)]) {
    if (cell.column == column - 1) return &cell;
  }
  return nullptr;
}

void Worksheet::Put(int row, int column, std::string_view text, std::optional<bool> bold) {
  if (row > kMaxRows) SheetFull();
  CheckNotSealed(row);
  if (text.size() > kMaxCellText) {
    cutCells_.push_back({row, column, text.size()});
    text = text.substr(0, kMaxCellText);
  }
  if (static_cast<size_t>(row) > data_.rows.size()) data_.rows.resize(static_cast<size_t>(row));
  auto& cells = data_.rows[static_cast<size_t>(row - 1)];
  auto at = std::find_if(cells.begin(), cells.end(),
                         [column](const CellData& c) { return c.column >= column - 1; });
  const bool exists = at != cells.end() && at->column == column - 1;
  CellData cell = exists ? *at : CellData{};
  cell.column = static_cast<uint16_t>(column - 1);
  if (bold) cell.bold = *bold;
  if (!bold) {
    const ColumnSpec* columnFormat = static_cast<size_t>(column) <= data_.columns.size()
                                         ? &data_.columns[static_cast<size_t>(column - 1)]
                                         : nullptr;
    const int importType = static_cast<size_t>(column) <= importTypes_.size()
                               ? importTypes_[static_cast<size_t>(column - 1)]
                               : 0;
    const bool textColumn =
        (columnFormat && columnFormat->numberFormat == "@") || importType == kImportText;
    const bool dateColumn =
        (columnFormat && IsDateFormat(columnFormat->numberFormat)) || importType == kImportMDY;
    const std::optional<double> number = TypedNumber(text, textColumn, dateColumn);
    if (text.empty() && !exists) return;  // an empty value leaves no cell
    if (number) {
      cell.kind = CellData::Kind::Number;
      cell.number = *number;
    } else {
      cell.kind = CellData::Kind::Text;
      cell.text = data_.Intern(text);
    }
  } else if (!exists) {
    cell.kind = CellData::Kind::Text;
    cell.text = data_.Intern("");
  }
  if (exists) {
    *at = cell;
  } else {
    cells.insert(at, cell);
  }
}

void CellRef::TravelledValue(std::string_view text) {
  if (text.find(kEscape) == std::string_view::npos) return Value(text);  // most values
  Value(Unescape(text));
}

std::string Worksheet::PasteText(int r1, int c1, int r2, int c2, std::string_view text) {
  std::string readBack;
  int row = r1;
  for (;;) {
    const size_t end = text.find("\r\n");
    std::string_view line = text.substr(0, end);
    if (row <= r2) {
      if (row > r1) readBack += "\r\n";
      int column = c1;
      for (;;) {
        const size_t tab = line.find('\t');
        std::string_view value = line.substr(0, tab);
        if (column <= c2) {
          if (column > c1) readBack += '\t';
          Cells(row, column).TravelledValue(value);
          readBack += value;
        }
        if (tab == std::string_view::npos) break;
        line.remove_prefix(tab + 1);
        ++column;
      }
    }
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 2);
    ++row;
  }
  return readBack;
}

Worksheet& Workbook::Worksheets(int index) {
  if (index != 1) throw QbError::Runtime(kSubscript, "Worksheets");
  return *sheet_;
}

void Workbook::SaveAs(const std::filesystem::path& fileName, int, bool createBackup) {
  std::error_code ec;
  if (createBackup && std::filesystem::exists(fileName, ec)) {
    std::filesystem::path backup =
        fileName.parent_path() / ("Backup of " + fileName.stem().string() + ".xlk");
    std::filesystem::rename(fileName, backup, ec);
    if (ec) {
      throw QbError(kPathFileAccess, "SaveAs", "Cannot keep a backup: " + ec.message()).at(backup);
    }
  }
  sheet_->data_.name = sheet_->Name;
  WriteWorkbook(sheet_->Data(), fileName);
}

Workbook& Application::WorkbookList::Add() {
  books_.push_back(std::make_unique<Workbook>());
  return *books_.back();
}

Workbook& Application::WorkbookList::OpenText(const std::filesystem::path& fileName, int, bool tab,
                                              const std::vector<std::pair<int, int>>& fieldInfo,
                                              const std::filesystem::path& spillFolder) {
  Workbook& book = Add();
  Worksheet& sheet = book.Worksheets(1);
  sheet.SpillTo(spillFolder);
  sheet.Name = fileName.stem().string();
  for (const auto& [column, type] : fieldInfo) {
    if (column < 1 || column > kMaxColumns) continue;
    if (static_cast<size_t>(column) > sheet.importTypes_.size())
      sheet.importTypes_.resize(static_cast<size_t>(column), 0);
    sheet.importTypes_[static_cast<size_t>(column - 1)] = type;
    if (type == kImportText) sheet.Columns(column).numberFormat = "@";
  }
  LineReader reader(fileName, "OpenText");
  std::string_view line;
  int row = 0;
  while (reader.Next(line)) {
    if (++row > kMaxRows) SheetFull();
    int column = 1;
    for (;;) {
      const size_t cut = tab ? line.find('\t') : std::string_view::npos;
      if (column <= kMaxColumns) sheet.Cells(row, column).TravelledValue(line.substr(0, cut));
      if (cut == std::string_view::npos) break;
      line.remove_prefix(cut + 1);
      ++column;
    }
    sheet.SealRowsBefore(row);
  }
  return book;
}

}  // namespace qb::xls
