#pragma once
// The run: the Run button's checks, the output preparation, and Process, the loop that reads
// the report from end to end and hands each line piece to the converter, then finishes the
// output (or abandons it). A ConversionJob owns one; its Run may go on any thread, and
// Cancel and Abandon may come from any other.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/temp_file.h"
#include "engine/converter.h"
#include "engine/report_text.h"
#include "output/output_options.h"

namespace qb {

struct RunStats {
  bool finished = false;  // Process reached its statistics (false after a failure)
  // The user cancelled: the rows gathered so far were written, unless the run was replacing
  // an output (`previousKept`): then they were dropped, and that output stays as it was (an
  // output is only ever replaced whole).
  bool cancelled = false;
  bool previousKept = false;
  int64_t linesProcessed = 0;
  int32_t linesWritten = 0;
  int64_t piecesMatched = 0;  // pieces that some marker row matched
  LineErrors lineErrors;      // lines that errors dropped or cut short
  // Reading the report's encoding: byte sequences that were not valid (each read as one
  // replacement character), characters past the most a UTF-8 run holds (read so too), and
  // lines that printed over the line before ("+" carriage control, left out).
  int64_t invalidSequences = 0;
  int64_t unheldCharacters = 0;
  int64_t overprintedLines = 0;
  int64_t cutRecords = 0;  // EBCDIC records cut for want of record ends (see reclen)
  // A PDF's pages where more than a few words had to move right, their columns taken by
  // others (PdfLayoutCounts::kFewMoved), with the number moved.
  std::vector<std::pair<int32_t, int64_t>> crowdedPdfPages;
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
  RunDriver(Engine& engine, OutputOptions options)
      : engine_(engine), options_(std::move(options)), converter_(engine) {}

  enum class Check { Ready, NothingToDo, NoOutputField, OutputIsAnInput, Declined };

  // The Run button's checks: report and RDF exist and an output is named (else nothing at
  // all happens), at least one output field is selected ("At least one Output field must
  // be selected."), the output is neither the report nor the RDF (by name, link or file
  // identity: they are never written), and an existing output may be overwritten (asked).
  // Yes means "replace
  // it when the run succeeds": the output is only ever replaced whole, so a run that fails
  // leaves the previous one as it was.
  Check CheckRun(const std::filesystem::path& report, const std::filesystem::path& rdf,
                 const std::filesystem::path& output);

  // Start of run, then Process on `report` (the reformatted text for PDF and delimited
  // reports) writing `output`, which is finished (put in place) unless the run failed or was
  // abandoned. False when the output could not be opened, written or finished, or the report
  // could not be read: the error was shown and logged under the step that failed.
  bool Run(const std::filesystem::path& report, const std::filesystem::path& output);

  // The end of a finished run: when `launch`, a workbook is opened by the launch method.
  void RunEnd(const std::filesystem::path& output, bool launch);

  // From any thread: the run stops at the next line and writes nothing (Exit during a run).
  void Abandon() {
    abandon_ = true;
    State().CancelFlag = true;
  }
  bool Abandoned() const { return abandon_; }
  const OutputOptions& Options() const { return options_; }

  const RunStats& Stats() const { return stats_; }
  RunState& State() { return converter_.State(); }
  Converter& converter() { return converter_; }
  const Converter& converter() const { return converter_; }
  const std::optional<QbError>& LastError() const { return lastError_; }
  // Lines handed on so far; may be read from another thread while the run goes on.
  int64_t LinesProcessed() const { return linesProcessed_.load(std::memory_order_relaxed); }
  // Rows written so far, read as LinesProcessed is.
  int32_t RowsWritten() const { return rowsWritten_.load(std::memory_order_relaxed); }

 private:
  void Process(const std::filesystem::path& report, const std::filesystem::path& output,
               RunFolder& work, ReportText& text);
  void HandLine(std::string_view piece, int64_t line, int32_t part);
  void Fail(std::string_view procedure, const QbError& error);

  Engine& engine_;
  const OutputOptions options_;
  Converter converter_;
  std::atomic<bool> abandon_{false};
  RunStats stats_;
  std::optional<QbError> lastError_;
  bool processFailed_ = false;
  std::atomic<int64_t> linesProcessed_{0};
  std::atomic<int32_t> rowsWritten_{0};
};

}  // namespace qb
