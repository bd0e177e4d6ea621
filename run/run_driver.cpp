#include "run/run_driver.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

#include "base/line_reader.h"
#include "engine/progress.h"
#include "output/output_sink.h"
#include "preprocess/dff.h"
#include "preprocess/pdf.h"
#include "run/launch.h"

namespace qb {

std::string RunStats::RunTimeText() const {
  const auto secs = std::chrono::duration_cast<std::chrono::seconds>(runTime).count();
  char text[32];
  std::snprintf(text, sizeof text, "Run Time: %02lld:%02lld",
                static_cast<long long>((secs / 60) % 60), static_cast<long long>(secs % 60));
  return text;
}

RunDriver::Check RunDriver::CheckRun(const std::filesystem::path& report,
                                     const std::filesystem::path& rdf,
                                     const std::filesystem::path& output) {
  std::error_code ec;
  if (!std::filesystem::exists(report, ec) || !std::filesystem::exists(rdf, ec) || output.empty()) {
    return Check::NothingToDo;
  }
  bool anyOutput = false;
  Recordset& f = engine_.tables.rsFields;
  for (f.MoveFirst(); !f.IsEOF() && !anyOutput; f.MoveNext())
    anyOutput = f.GetBool(col::Fields::fldOUT);
  f.MoveFirst();
  UserInterface& ui = engine_.app().ui();
  if (!anyOutput) {
    ui.message("At least one Output field must be selected.", "", MessageIcon::None);
    return Check::NoOutputField;
  }
  if (std::filesystem::exists(output, ec)) {
    if (!ui.question("Output file already exists.\nDo you want to Overwrite it?", "File Found",
                     MessageIcon::Exclamation)) {
      return Check::Declined;
    }
  }
  return Check::Ready;
}

bool RunDriver::Run(const std::filesystem::path& report, const std::filesystem::path& output) {
  lastError_.reset();
  stats_ = RunStats();
  linesProcessed_ = 0;
  const auto start = std::chrono::steady_clock::now();
  converter_.PrepareOutput(options_);
  // PDF and delimited reports are first turned into a text report, which the run reads
  // and then deletes.
  std::filesystem::path text = report;
  const RunLog& log = engine_.app().Log();
  bool ok = true;
  if (engine_.flags.PdfReport) {
    ok = RunTrapped(log, "ProcessPDF", lastError_,
                    [&] { text = ProcessPDF(engine_, converter_.State().CancelFlag, report); });
  } else if (engine_.flags.DffReport) {
    ok = RunTrapped(log, "ProcessDFF", lastError_,
                    [&] { text = ProcessDFF(engine_, converter_.State().CancelFlag, report); });
  }
  processFailed_ = false;
  if (ok)
    ok = RunTrapped(log, "Process", lastError_, [&] { Process(text, output); }) && !processFailed_;
  if (text != report) {
    std::error_code ec;
    std::filesystem::remove(text, ec);
  }
  converter_.FinishErrorReport();
  stats_.runTime = std::chrono::steady_clock::now() - start;
  stats_.linesWritten = converter_.State().LinesWritten;
  stats_.linesProcessed = linesProcessed_;
  stats_.cancelled = converter_.State().CancelFlag;
  stats_.finished = ok;
  return ok;
}

// Counts a piece and hands it on; a dropped line's error is reported and the run goes on.
// Pieces are LineReader lines or parts of them, so they have the slack the converter reads.
static_assert(LineReader::kLineSlack >= kCopyBlock);
void RunDriver::HandLine(std::string_view piece) {
  int64_t n = linesProcessed_.load(std::memory_order_relaxed) + 1;
  if (n > std::numeric_limits<int32_t>::max()) throw QbError::Runtime(kOverflow, "Process");
  linesProcessed_.store(n, std::memory_order_relaxed);
  try {
    converter_.CheckDataMarker(piece);
  } catch (FatalRunError&) {
    throw;
  } catch (const QbError& e) {
    converter_.ReportLineError(e);
  }
}

void RunDriver::Process(const std::filesystem::path& report, const std::filesystem::path& output) {
  const RunLog& log = engine_.app().Log();
  UserInterface& ui = engine_.app().ui();
  RunState& state = converter_.State();

  LineReader reader(report, "Process");
  const int64_t size = reader.FileSize();
  OutputTarget target{output, engine_.app().Settings[Key::outdir], converter_.ColumnTypes(),
                      RdfHeading(engine_.tables), &log};
  std::unique_ptr<OutputSink> sink;
  try {
    sink = OpenOutputSink(options_, target);
  } catch (const QbError& e) {
    return Fail(e.source(), e);
  }
  converter_.SetSink(sink.get());

  if (!state.CancelFlag && !state.StopFlag) {
    ui.status(options_.format == OutputFormat::Xls ? "Generating Spreadsheet ..."
                                                   : "Generating Output File ...");
    ByteProgress progress(ui, size);
    std::string_view line;
    bool formFeed = false;
    while (!state.CancelFlag.load(std::memory_order_relaxed) && !state.StopFlag &&
           reader.Next(line, formFeed)) {
      progress.AddLine(line.size());
      // A form feed ends a piece and is dropped; a line holding only one gives two pieces.
      for (size_t ff; formFeed && (ff = line.find('\f')) != std::string_view::npos;) {
        HandLine(line.substr(0, ff));
        line.remove_prefix(ff + 1);
      }
      HandLine(line);
    }
    log.WriteLog("Process", "Loop Complete");
    state.LastWriteFlag = true;
    try {
      converter_.WriteLine(1);
    } catch (FatalRunError&) {
      throw;
    } catch (const QbError& e) {
      converter_.ReportLineError(e);
    }
    log.WriteLog("Process", "Last Write");
  }
  converter_.SetSink(nullptr);
  if (abandon_) return sink->Abandon();
  try {
    sink->Finish();
  } catch (const QbError& e) {
    sink->Abandon();
    return Fail(e.source(), e);
  }
}

// A step that failed: reported under its own name, and the run ends without statistics.
void RunDriver::Fail(std::string_view procedure, const QbError& error) {
  lastError_ = error;
  lastError_->withSource(std::string(procedure));
  engine_.app().Log().LogError(procedure, error.number(), error.description(),
                               engine_.app().Log().AppLogFile());
  processFailed_ = true;
}

void RunDriver::RunEnd(const std::filesystem::path& output, bool launch) {
  if (options_.format == OutputFormat::Xls && launch && !abandon_) {
    engine_.app().ui().status("Opening Spreadsheet ...");
    LaunchSpreadsheet(engine_.app().Log(), engine_.app().ui(), options_.launchMethod, output);
  }
  engine_.app().ui().status("");
}

}  // namespace qb
