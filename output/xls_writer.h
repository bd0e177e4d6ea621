#pragma once
// Writes one worksheet as a legacy Excel 97-2003 workbook (.xls): BIFF8 records in an OLE2
// compound file, the compound file written by libgsf.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/temp_file.h"
#include "base/text_encoding.h"

namespace qb::xls {

// The largest sheet a BIFF8 workbook holds.
inline constexpr int kMaxRows = 65536;
inline constexpr int kMaxColumns = 256;
// The longest text a cell holds.
inline constexpr size_t kMaxCellText = 32767;

struct ColumnSpec {
  std::string numberFormat = "General";
  bool wrap = false;
  double width = -1;  // in characters; below 0: the default width
};

struct CellData {
  enum class Kind : uint8_t { Number, Text };
  uint16_t column = 0;  // 0-based
  Kind kind = Kind::Text;
  bool bold = false;
  double number = 0;  // Number: the value (dates as day serials)
  uint32_t text = 0;  // Text: index into SheetData::strings
};

// Rows a sheet is done with, moved out of memory into an unnamed work file, 16 bytes a cell:
// a sheet of 65,536 rows held whole took three times the memory of the workbook it made.
class SpilledRows {
 public:
  // Throws QbError naming `source` when no work file can be made in `folder`.
  SpilledRows(const std::filesystem::path& folder, std::string_view source);
  ~SpilledRows();
  SpilledRows(const SpilledRows&) = delete;
  SpilledRows& operator=(const SpilledRows&) = delete;

  // Appends row `row` (0-based, the row after the last one added). Throws QbError when the
  // work file cannot be written (a full disk).
  void Add(uint32_t row, std::span<const CellData> cells);
  // Calls `f` with every cell added, row by row, in the order added. Throws QbError when the
  // work file cannot be read back.
  void ForEach(const std::function<void(uint32_t row, const CellData&)>& f) const;
  // The row after the last one added; 1 (the row after the header) until then.
  uint32_t End() const { return end_; }

 private:
  void WriteOut();

  TempFile file_;
  int fd_ = -1;
  std::unique_ptr<char[]> buffer_;  // pending cells
  size_t used_ = 0;
  uint64_t written_ = 0;  // bytes in the file
  uint32_t end_ = 1;
  std::string source_;
};

// The sheet as it will be written. Rows are 0-based; each row's cells in column order.
struct SheetData {
  std::string name = "Sheet1";
  std::vector<ColumnSpec> columns;  // column 1 first
  bool alignTop = false;            // every column aligned to the top
  // Every row; those moved to `spill` (rows 1 to spill->End() - 1) are empty here.
  std::vector<std::vector<CellData>> rows;
  std::unique_ptr<SpilledRows> spill;
  std::vector<std::string> strings;    // unique cell texts, in the units of `alphabet`
  const Alphabet* alphabet = nullptr;  // Windows-1252 when null

  // The index of `text` in `strings`, added when new.
  uint32_t Intern(std::string_view text);

  // Calls `f(row, cell)` with every cell, row by row, wherever the row is kept.
  template <class F>
  void ForEachCell(F&& f) const {
    auto inMemory = [&](size_t from, size_t to) {
      for (size_t r = from; r < to && r < rows.size(); ++r) {
        for (const CellData& cell : rows[r]) f(static_cast<uint32_t>(r), cell);
      }
    };
    if (!spill) return inMemory(0, rows.size());
    inMemory(0, 1);
    spill->ForEach(std::ref(f));
    inMemory(spill->End(), rows.size());
  }

 private:
  void Grow();

  // An open-addressed table over `strings`: each slot the high half of a text's hash and its
  // index + 1 (0: empty), a power of two of them, at most half taken. A lookup reads one
  // slot and, for a hash that agrees, one string: a node-based map read several scattered
  // nodes, and looking texts up was the largest part of writing a workbook.
  std::vector<uint64_t> slots_;
};

// Writes `sheet` to `path`, replacing a file of that name only when the whole workbook was
// written (it is written beside it first). Throws QbError naming "SaveAs" on failure.
void WriteWorkbook(const SheetData& sheet, const std::filesystem::path& path);

}  // namespace qb::xls
