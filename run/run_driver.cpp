#include "run/run_driver.h"

#include <cstdio>
#include <limits>
#include <memory>

#include "base/line_reader.h"
#include "engine/progress.h"
#include "output/output_sink.h"
#include "preprocess/dff.h"
#include "preprocess/text_step.h"
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
  for (const auto& [input, what] : {std::pair(report, "report"), std::pair(rdf, "RDF")}) {
    if (std::filesystem::equivalent(output, input, ec)) {
      ui.message(std::string("The output is the ") + what + " itself:\n" + output.string() +
                     "\nis " + input.string() + ".\nChoose another name for the output.",
                 "Output Not Written", MessageIcon::Critical);
      return Check::OutputIsAnInput;
    }
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
  rowsWritten_ = 0;
  const auto start = std::chrono::steady_clock::now();
  const RunLog& log = engine_.app().Log();
  // Whatever the caller checked before: a report is never written.
  if (std::error_code ec; !output.empty() && std::filesystem::equivalent(output, report, ec)) {
    RunTrapped(log, "Process", lastError_, [&] {
      throw QbError(kPathFileAccess, "Process",
                    "The output is the report itself; choose another name for the output")
          .at(output);
    });
    processFailed_ = true;
    stats_.runTime = std::chrono::steady_clock::now() - start;
    return false;
  }
  // The report's encoding: the units the run reads and the RDF's texts are taken into.
  ReportEncoding how;
  std::optional<ReportText> units;
  bool ok = RunTrapped(log, "Encoding", lastError_, [&] {
    how = ParseReportEncoding(engine_.app().Settings, report, engine_.flags.PdfReport);
    units.emplace(how.encoding);
  });
  if (!ok) {
    processFailed_ = true;
    stats_.runTime = std::chrono::steady_clock::now() - start;
    return false;
  }
  converter_.SetAlphabet(&units->alphabet());
  if (RunObserver* observer = converter_.Observer()) observer->Begin(units->alphabet());
  converter_.PrepareOutput(options_);
  // The run's work files (a PDF's or a rewritten print file's text, a workbook's rows) live
  // in a folder of its own, removed when the run ends however it ends; one that a killed run
  // left is removed by a later run once it is a day old.
  const std::filesystem::path out = engine_.app().ProgramFolder() / "out";
  RunFolder::RemoveStale(out, std::chrono::hours(24));
  RunFolder work(out);
  // PDF reports and print files are first turned into a text report, which the run reads. A
  // delimited report is placed in columns line by line as the run reads it.
  std::optional<TempFile> text;
  std::atomic<bool>& cancel = converter_.State().CancelFlag;
  TextStepCounts counts;
  bool stepCancelled = false;
  if (const std::string_view step = TextStep(engine_, how);
      !step.empty() && !engine_.flags.DffReport) {
    ok = RunTrapped(log, step, lastError_, [&] {
      try {
        text.emplace(MakeReportText(engine_, cancel, report, work, how, counts));
      } catch (const QbError& e) {
        // Cancelled before the run read a line: a cancelled run that wrote nothing.
        if (e.number() != kUserInterrupt || !cancel) throw;
        stepCancelled = true;
      }
    });
  }
  processFailed_ = false;
  if (ok && !stepCancelled) {
    ok = RunTrapped(log, "Process", lastError_,
                    [&] { Process(text ? text->path() : report, output, work, *units); }) &&
         !processFailed_;
  }
  converter_.SetAlphabet(nullptr);  // the alphabet ends with the run
  stats_.invalidSequences = units->InvalidSequences();
  stats_.unheldCharacters = units->alphabet().Unheld();
  stats_.overprintedLines = counts.printed.overprinted;
  stats_.cutRecords = counts.printed.cut;
  stats_.crowdedPdfPages = std::move(counts.pdf.crowdedPages);
  if (stats_.invalidSequences > 0) {
    log.WriteLog("Process", std::to_string(stats_.invalidSequences) +
                                " byte sequences were not valid " +
                                std::string(EncodingName(how.encoding)) +
                                " and were read as the replacement character");
  }
  if (stats_.unheldCharacters > 0) {
    log.WriteLog("Process", std::to_string(stats_.unheldCharacters) +
                                " different characters came after the most a run can hold "
                                "and were read as the replacement character");
  }
  if (stats_.cutRecords > 0) {
    log.WriteLog("Process", std::to_string(stats_.cutRecords) + " records were longer than " +
                                std::to_string(kMaxPrintRecord) +
                                " bytes and were cut there: a file of fixed-length records "
                                "without record ends needs reclen set to their length");
  }
  if (stats_.overprintedLines > 0) {
    log.WriteLog("Process", std::to_string(stats_.overprintedLines) +
                                " lines printed over the line before (carriage control +) "
                                "and were left out");
  }
  converter_.FinishErrorReport();
  stats_.runTime = std::chrono::steady_clock::now() - start;
  // An abandoned run wrote nothing, nor one that kept the previous output.
  stats_.linesWritten = stats_.previousKept || Abandoned() ? 0 : converter_.State().LinesWritten;
  stats_.linesProcessed = linesProcessed_;
  stats_.piecesMatched = converter_.State().PiecesMatched;
  stats_.lineErrors = converter_.Errors();
  stats_.cancelled = converter_.State().CancelFlag;
  stats_.finished = ok;
  return ok;
}

// Counts a piece and hands it on.
// Pieces are LineReader lines or parts of them, so they have the slack the converter reads.
static_assert(LineReader::kLineSlack >= kCopyBlock);
void RunDriver::HandLine(std::string_view piece, int64_t line, int32_t part) {
  int64_t n = linesProcessed_.load(std::memory_order_relaxed) + 1;
  if (n > std::numeric_limits<int32_t>::max()) [[unlikely]] {
    throw QbError(kOverflow, "Process",
                  "Overflow: the report has more than 2,147,483,647 lines, more than a run "
                  "counts; split it into smaller reports");
  }
  linesProcessed_.store(n, std::memory_order_relaxed);
  converter_.HandPiece(piece, line, part);
  rowsWritten_.store(converter_.State().LinesWritten, std::memory_order_relaxed);
}

void RunDriver::Process(const std::filesystem::path& report, const std::filesystem::path& output,
                        RunFolder& work, ReportText& text) {
  const RunLog& log = engine_.app().Log();
  UserInterface& ui = engine_.app().ui();
  RunState& state = converter_.State();

  // Only the first kLineWidth characters of a piece are ever read: a line of gigabytes costs
  // no more memory than the reader's buffer. A delimited line is read whole: its fields are
  // placed in columns first.
  LineReader reader(report, "Process",
                    engine_.flags.DffReport ? 0 : text.BytesFor(Converter::kLineWidth));
  const int64_t size = reader.FileSize();
  // Work files: mode 6's rows, an .xls sheet's finished rows until it is saved, an .xlsx's
  // sheets until they are packed.
  const bool workFile =
      options_.format == OutputFormat::Xls || options_.format == OutputFormat::Xlsx;
  OutputTarget target{output,
                      workFile ? work.Path("Process") : std::filesystem::path(),
                      converter_.ColumnTypes(),
                      text.alphabet().Units(RdfHeading(engine_.tables), engine_.flags.RdfUtf8),
                      &log,
                      &text.alphabet()};
  std::error_code ec;
  const bool replacing = !output.empty() && std::filesystem::is_regular_file(output, ec);
  std::unique_ptr<OutputSink> sink;
  try {
    sink = output.empty() ? DiscardingSink() : OpenOutputSink(options_, target);
  } catch (const QbError& e) {
    return Fail(e.source(), e);
  }
  converter_.SetSink(sink.get());

  if (!state.CancelFlag && !state.StopFlag) {
    ui.status(IsWorkbook(options_.format) ? "Generating Spreadsheet ..."
                                          : "Generating Output File ...");
    ByteProgress progress(ui, size);
    std::string_view line;
    bool formFeed = false;
    int64_t number = 0;
    auto running = [&state] {
      return !state.CancelFlag.load(std::memory_order_relaxed) && !state.StopFlag;
    };
    if (engine_.flags.DffReport) {
      // Each piece between form feeds is a line of its own, its fields placed in columns
      // (counted in characters: a line is read into units first); the text ends with a line
      // of one blank, as the reformatted file always did.
      FieldPlacer placer(engine_.tables);
      int64_t input = 0;
      auto hand = [&](std::string_view piece) {
        ++number;
        HandLine(placer.Place(text.Units(piece, number), report, input), number, 0);
      };
      while (running() && reader.Next(line, formFeed)) {
        ++input;
        progress.AddLine(reader.LineBytes());
        for (size_t ff; formFeed && (ff = line.find('\f')) != std::string_view::npos;) {
          hand(line.substr(0, ff));
          line.remove_prefix(ff + 1);
        }
        hand(line);
      }
      if (running()) {
        static constexpr char kBlank[1 + LineReader::kLineSlack] = " ";
        ++number;
        HandLine(text.Units(std::string_view(kBlank, 1), number), number, 0);
      }
    } else {
      while (running() && reader.Next(line, formFeed)) {
        ++number;
        progress.AddLine(reader.LineBytes());
        line = text.Units(line, number);
        Converter::SplitPieces(line, formFeed, [&](std::string_view piece, int32_t part) {
          HandLine(piece, number, part);
        });
      }
    }
    log.WriteLog("Process", "Loop Complete");
    if (RunObserver* observer = converter_.Observer()) observer->EndOfReport();
    state.LastWriteFlag = true;
    try {
      converter_.WriteLine(1);
    } catch (FatalRunError&) {
      throw;
    } catch (const QbError& e) {
      converter_.ReportLineError(e, 0, false);
    }
    log.WriteLog("Process", "Last Write");
    if (RunObserver* observer = converter_.Observer()) observer->End();
  }
  converter_.SetSink(nullptr);
  if (abandon_) return sink->Abandon();
  if (state.CancelFlag && replacing) {
    stats_.previousKept = true;
    log.WriteLog("Process", "Cancelled: the output that was there is kept");
    return sink->Abandon();
  }
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
  engine_.app().Log().LogError(*lastError_);  // with the file it concerns, when there is one
  processFailed_ = true;
}

void RunDriver::RunEnd(const std::filesystem::path& output, bool launch) {
  std::error_code ec;  // a run cancelled before it read a line wrote no output to open
  if (IsWorkbook(options_.format) && launch && !abandon_ && std::filesystem::exists(output, ec)) {
    engine_.app().ui().status("Opening Spreadsheet ...");
    LaunchSpreadsheet(engine_.app().Log(), engine_.app().ui(), options_.launchMethod, output);
  }
  engine_.app().ui().status("");
}

}  // namespace qb
