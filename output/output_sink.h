#pragma once
// The one contract every output type meets, and the function that opens the sink for a run.
//
// The output writer hands a sink the header's labels and each record's values as they were
// picked up; the sink formats them itself (numeric clean-up, qualifying or quoting, joining,
// cells). Nothing reaches the output's name until Finish: a sink writes under a temporary
// name beside the output (or keeps an .xls workbook in memory) and Finish puts the whole output
// in place of any previous one. Abandon, or destroying a sink that was not finished, drops
// what was written and leaves a previous output of that name as it was.
//
// REQUIRES: Header before the first Row; EndOfRows at most once, after the last Row; then
// Finish or Abandon (or neither: the destructor abandons). Every call but Abandon may throw
// QbError; after a failed Finish the sink has abandoned.

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/text_encoding.h"
#include "output/output_options.h"

namespace qb {

class RunLog;

class OutputSink {
 public:
  virtual ~OutputSink() = default;

  // The header row: one label a column.
  virtual void Header(std::span<const std::string_view> labels) = 0;
  // One record's values, in column order, readable a copy block past their ends. Error 521
  // ("Match Error.") drops the record and the run goes on; any other error ends the run.
  virtual void Row(std::span<const ValueBuffer* const> values) = 0;
  // The last record was not selected: text outputs end with an empty line for it.
  virtual void RejectedLastRow() = 0;
  // After the last record: a workbook that pastes rows in blocks pastes what it holds.
  // Errors as Row.
  virtual void EndOfRows() {}
  // Completes the output and puts it in place of any previous one of that name.
  virtual void Finish() = 0;
  // Drops the output. Never fails.
  virtual void Abandon() noexcept = 0;
};

// Where a run's output goes and what its columns are.
struct OutputTarget {
  std::filesystem::path path;             // the output file
  std::filesystem::path workFolder;       // for work files: mode 6's rows, an .xlsx's sheets
  std::vector<std::string> columnTypes;   // the type code of each output column, in order
  std::string heading = "Output Fields";  // the RDF's heading: the workbook's sheet name
  const RunLog* log = nullptr;            // the workbook's steps are logged here
  // What the values' bytes stand for; null or Windows-1252: they are written as they are.
  const Alphabet* alphabet = nullptr;
};

// Opens the sink for `options.format` (and an .xls's buffer mode). Throws QbError naming the
// step that failed ("Process" for text files, "CreateSheet" for a workbook).
std::unique_ptr<OutputSink> OpenOutputSink(const OutputOptions& options,
                                           const OutputTarget& target);

// A sink that writes nothing, for a run that is read for its trace or its figures only.
std::unique_ptr<OutputSink> DiscardingSink();

}  // namespace qb
