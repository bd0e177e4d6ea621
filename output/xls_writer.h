#pragma once
// Writes one worksheet as a legacy Excel 97-2003 workbook (.xls): BIFF8 records in an OLE2
// compound file, the compound file written by libgsf.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

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

// The sheet as it will be written. Rows are 0-based; each row's cells in column order.
struct SheetData {
  std::string name = "Sheet1";
  std::vector<ColumnSpec> columns;  // column 1 first
  bool alignTop = false;            // every column aligned to the top
  std::vector<std::vector<CellData>> rows;
  std::vector<std::string> strings;    // unique cell texts, in the units of `alphabet`
  const Alphabet* alphabet = nullptr;  // Windows-1252 when null

  // The index of `text` in `strings`, added when new.
  uint32_t Intern(std::string_view text);

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
