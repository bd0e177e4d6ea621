#pragma once
// The run: the Run button's checks, the output preparation, and Process, the loop that reads
// the report from end to end and hands each line piece to the converter. Both front ends
// run conversions through this class; the window runs it on a worker thread and cancels
// through State().CancelFlag.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "engine/converter.h"
#include "run/spreadsheet_output.h"

namespace qb {

struct RunStats {
  bool finished = false;   // Process reached its statistics (false after a failure)
  bool cancelled = false;  // the user cancelled; the rows gathered so far were written
  int64_t linesProcessed = 0;
  int32_t linesWritten = 0;
  std::chrono::steady_clock::duration runTime{};

  // "Run Time: 03:07": minutes and seconds, whole hours dropped.
  std::string RunTimeText() const;
  std::string LinesWrittenText() const { return std::to_string(linesWritten) + " Lines Written"; }
  std::string LinesProcessedText() const {
    return std::to_string(linesProcessed) + " Lines Processed";
  }
};

class RunDriver {
 public:
  explicit RunDriver(Engine& engine) : engine_(engine), converter_(engine) {}

  enum class Check { Ready, NothingToDo, NoOutputField, Declined };

  // The Run button's checks: report and RDF exist and an output is named (else nothing at
  // all happens), at least one output field is selected ("At least one Output field must
  // be selected."), and an existing output may be overwritten (asked; Yes deletes it).
  Check CheckRun(const std::filesystem::path& report, const std::filesystem::path& rdf,
                 const std::filesystem::path& output);

  // Start of run, then Process on `report` (the reformatted text for PDF and delimited
  // reports) writing `output`. False when the output could not be opened or written, or the
  // report could not be read: the error was shown and logged under "Process".
  bool Run(const std::filesystem::path& report, const std::filesystem::path& output);

  // The end of a run, after Run whatever its outcome: in buffer mode 6 the workbook is built
  // from the turbo file, then, when `launch`, the spreadsheet program opens it by the launch
  // method "lmeth". False when the workbook could not be built (the error is in LastError).
  bool RunEnd(const std::filesystem::path& output, bool launch);

  // Deletes the turbo file of a run that is not to be finished (a failed run, an exit).
  void DiscardTurboFile();

  const RunStats& Stats() const { return stats_; }
  RunState& State() { return converter_.State(); }
  Converter& converter() { return converter_; }
  const std::optional<QbError>& LastError() const { return lastError_; }
  // Lines handed on so far; may be read from another thread while the run goes on.
  int64_t LinesProcessed() const { return linesProcessed_.load(std::memory_order_relaxed); }

 private:
  void Process(const std::filesystem::path& report, const std::filesystem::path& output);
  void HandLine(std::string_view piece);
  void Fail(std::string_view procedure, const QbError& error);

  Engine& engine_;
  Converter converter_;
  std::unique_ptr<SpreadsheetRun> spreadsheet_;
  std::filesystem::path turboFile_;
  RunStats stats_;
  std::optional<QbError> lastError_;
  bool processFailed_ = false;
  std::atomic<int64_t> linesProcessed_{0};
};

}  // namespace qb
