#include "run/run_driver.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "engine/line_reader.h"

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
  for (f.MoveFirst(); !f.IsEOF() && !anyOutput; f.MoveNext()) anyOutput = f.GetBool(col::Fields::fldOUT);
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
    std::filesystem::remove(output, ec);
  }
  return Check::Ready;
}

bool RunDriver::Run(const std::filesystem::path& report, const std::filesystem::path& output) {
  lastError_.reset();
  stats_ = RunStats();
  linesProcessed_ = 0;
  const auto start = std::chrono::steady_clock::now();
  converter_.PrepareOutput();
  const bool ok = RunTrapped(engine_.app().Log(), "Process", lastError_, [&] { Process(report, output); });
  converter_.FinishErrorReport();
  stats_.runTime = std::chrono::steady_clock::now() - start;
  stats_.linesWritten = converter_.State().LinesWritten;
  stats_.linesProcessed = linesProcessed_;
  stats_.cancelled = converter_.State().CancelFlag;
  stats_.finished = ok;
  return ok;
}

// Pads or cuts a piece to the line width and hands it on; a dropped line's error is reported
// and the run goes on.
void RunDriver::HandLine(std::string_view piece) {
  int64_t n = linesProcessed_.load(std::memory_order_relaxed) + 1;
  if (n > std::numeric_limits<int32_t>::max()) throw QbError::Runtime(kOverflow, "Process");
  linesProcessed_.store(n, std::memory_order_relaxed);
  const size_t len = std::min(piece.size(), sizeof line_);
  std::memcpy(line_, piece.data(), len);
  if (dirty_ > len) std::memset(line_ + len, ' ', dirty_ - len);
  dirty_ = len;
  try {
    converter_.CheckDataMarker(std::string_view(line_, sizeof line_));
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
  std::memset(line_, ' ', sizeof line_);
  dirty_ = 0;

  if (engine_.flags.PdfReport || engine_.flags.DffReport) {
    throw QbError(kInvalidCall, "Process",
                  std::string(engine_.flags.PdfReport ? "PDF" : "Delimited") +
                      " reports need a preprocessing step this build does not have yet");
  }
  LineReader reader(report, "Process");
  const int64_t size = reader.FileSize();
  std::unique_ptr<OutputSink> sink;
  if (converter_.Format() == OutputFormat::Xls) {
    throw QbError(kInvalidCall, "Process", ".xls output is not available in this build; use .csv or .txt");
  }
  sink = std::make_unique<TextFileSink>(output, "Process");
  converter_.SetSink(sink.get());

  if (!state.CancelFlag && !state.StopFlag) {
    ui.status(converter_.Format() == OutputFormat::Xls ? "Generating Spreadsheet ..."
                                                       : "Generating Output File ...");
    ui.progress(0);
    int bar = 0;
    int64_t bytesRead = 0;
    std::string_view line;
    while (!state.CancelFlag.load(std::memory_order_relaxed) && !state.StopFlag && reader.Next(line)) {
      bytesRead += static_cast<int64_t>(line.size()) + 2;
      if (size > 0) {
        const int pct = static_cast<int>(std::nearbyint(static_cast<double>(bytesRead) * 100.0 /
                                                        static_cast<double>(size)));
        if (bar < pct && bar < 100) {
          bar = std::min(pct, 100);
          ui.progress(bar);
        }
      }
      // A form feed ends a piece and is dropped; a line holding only one gives two pieces.
      for (size_t ff; (ff = line.find('\f')) != std::string_view::npos;) {
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
  try {
    sink->Close();
  } catch (const QbError& e) {
    throw FatalRunError(e);
  }
}

}  // namespace qb
