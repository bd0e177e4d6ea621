#pragma once
// Delimited input (DFF): each line of a delimited file becomes a fixed-column line, every
// field at the column its DFC row gives, so the run reads it like a printed report.

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/temp_file.h"
#include "base/text_encoding.h"
#include "engine/engine.h"

namespace qb {

// Places the pieces of a delimited report's lines in columns, each field at the column its
// DFC row gives, into a line of its own (500 columns, trailing blanks removed). Fields are
// split at every delimiter with no quoting; fields beyond the DFC rows are dropped, and a
// line with fewer fields leaves the rest blank. A later field overwrites an earlier one
// where their columns meet.
class FieldPlacer {
 public:
  static constexpr size_t kWidth = 500;

  FieldPlacer(char delimiter, std::vector<int32_t> positions);
  // The DFI row's delimiter (a comma without one) and the DFC rows' columns.
  explicit FieldPlacer(RdfTables& tables);

  // `piece` placed; valid until the next call, and followed by LineReader::kLineSlack
  // readable bytes, as a line the run reads is. `piece` must be followed so too (a line a
  // LineReader gives, or a part of one). Throws QbError 5 when a field reaches a DFC row
  // whose column is below 1 or past 500.
  std::string_view Place(std::string_view piece);
  // The same, the error naming `report` and its input `line` (from 1) that reached the row.
  std::string_view Place(std::string_view piece, const std::filesystem::path& report, int64_t line);

 private:
  char delimiter_;
  std::vector<int32_t> positions_;
  std::unique_ptr<char[]> line_;
};

// `piece` placed by a FieldPlacer into `line`.
void PlaceFields(std::string_view piece, char delimiter, const std::vector<int32_t>& positions,
                 std::string& line);

// Reformats `report` into a ".qbr" work file in the run's folder and returns it. A UTF-8
// report's fields are placed in columns of characters, and the work file is UTF-8 too (with
// no byte-order mark). Throws QbError from "ProcessDFF": out/ missing, the file unreadable, a
// DFC column outside 1 to 500 (with the input line), or the user cancelled ("Reformatting
// Report file").
TempFile ProcessDFF(Engine& engine, const std::atomic<bool>& cancel,
                    const std::filesystem::path& report, RunFolder& work,
                    Encoding encoding = Encoding::Windows1252);

}  // namespace qb
