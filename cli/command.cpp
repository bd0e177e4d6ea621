#include "cli/command.h"

#include <cstdio>
#include <string>

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/file_io.h"
#include "base/utf8.h"
#include "cli/console_ui.h"
#include "cli/options.h"
#include "engine/rdf_checker.h"
#include "run/batch.h"
#include "run/conversion_job.h"
#include "run/launch.h"
#include "run/run_tally.h"
#include "run/trace_writer.h"
#include "settings/application.h"

namespace qb::cli {
namespace {

constexpr std::string_view kSource = "qbconvert";

// Without a job: the start-up summary, so a user sees which folder and settings are used.
void ShowStartup(const Application& app) {
  std::printf("Program folder: %s\n", app.ProgramFolder().c_str());
  std::printf("Settings file:  %s%s\n", (app.ProgramFolder() / kSettingsFileName).c_str(),
              std::filesystem::exists(app.ProgramFolder() / kSettingsFileName)
                  ? ""
                  : " (not present: defaults in use)");
  std::printf("Log:            %s\n", app.Log().AppLogFile().c_str());
  std::printf("Source systems: %d\n", app.Systems.Count());
  for (const clsSystem& s : app.Systems) std::printf("  %s\n", s.PfsetText().c_str());
  std::printf("Settings:\n");
  for (const clsKey& k : app.Settings) {
    std::printf("  [%s] %s=%s\n", k.Section.c_str(), k.Name.c_str(), k.Value.c_str());
  }
}

// --set KEY=VALUE, checked against the settings before anything starts.
// A value typed on the command line for a setting of a few fixed values must be one of them
// (a run reads any other as its default, which would hide the typing mistake); the record
// selection's words are taken in any case. The other settings are checked where they are used.
void CheckSetValue(std::pair<Key, std::string>& set) {
  auto& [key, value] = set;
  std::span<const std::string_view> allowed;
  static constexpr std::string_view kSwitch[] = {"0", "1"};
  static constexpr std::string_view kMethods[] = {"1", "2", "3"};
  switch (key) {
    case Key::tqswt:
    case Key::exswt:
    case Key::bom:
      allowed = kSwitch;
      break;
    case Key::rtype:
      allowed = kRecordSelections;
      break;
    case Key::lmeth:
      allowed = kMethods;
      break;
    default:
      return;
  }
  std::string list;
  for (std::string_view a : allowed) {
    if (EqualsNoCase(a, value)) {
      value = a;
      return;
    }
    list += (list.empty() ? "" : ", ") + std::string("\"") + std::string(a) + "\"";
  }
  throw UsageError("--set " + std::string(KeyName(key)) + "=" + value + ": the value is one of " +
                   list);
}

std::vector<std::pair<Key, std::string>> ParseSets(const ParsedOptions& opts) {
  std::vector<std::pair<Key, std::string>> sets;
  for (const std::string& s : opts.values(Opt::Set)) {
    size_t eq = s.find('=');
    if (eq == std::string::npos) throw UsageError("--set needs KEY=VALUE, not '" + s + "'");
    const std::string name = s.substr(0, eq);
    const std::optional<Key> key = KeyNamed(name);
    if (!key) {
      std::string names;
      for (const SettingDefinition& d : SettingDefinitions()) names += " " + std::string(d.name);
      throw UsageError("--set: unknown setting '" + name + "'; the settings are:" + names);
    }
    sets.emplace_back(*key, s.substr(eq + 1));
    CheckSetValue(sets.back());
  }
  return sets;
}

// The --set overrides for a run: pfset takes a whole line of qbsys.txt, and the system's name
// alone stands for its line ("Ledgerline Financials" for "Ledgerline Financials,1,1,8, ").
std::vector<std::pair<Key, std::string>> SettingsFor(const ParsedOptions& opts,
                                                     const Application& app) {
  std::vector<std::pair<Key, std::string>> sets = ParseSets(opts);
  for (auto& [key, value] : sets) {
    if (key != Key::pfset) continue;
    for (const clsSystem& system : app.Systems) {
      if (EqualsNoCase(system.System, Trim(value))) {
        value = system.PfsetText();
        break;
      }
    }
  }
  return sets;
}

std::vector<int> ParseFieldList(const ParsedOptions& opts) {
  std::vector<int> fields;
  std::optional<std::string> text = opts.value(Opt::Fields);
  if (!text) return fields;
  std::string_view rest = *text;
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string_view item = Trim(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    try {
      int n = ParseInt16(item, "qbconvert");
      if (n < 1) throw QbError::Runtime(kOverflow, "qbconvert");
      if (std::find(fields.begin(), fields.end(), n) != fields.end()) {
        throw UsageError("--fields names field " + std::to_string(n) + " twice");
      }
      fields.push_back(n);
    } catch (const QbError&) {
      throw UsageError("--fields takes field numbers such as 3,1,7, not '" + std::string(item) +
                       "'");
    }
  }
  if (fields.empty()) throw UsageError("--fields needs at least one field number");
  if (fields.size() > 99) throw UsageError("--fields takes at most 99 fields");
  return fields;
}

void ListFields(Recordset& rs) {
  rs.Sort("fldFLD");
  std::printf("%5s  %-6s  %5s  %-5s  %s\n", "Field", "Output", "Order", "Type", "Label");
  for (; !rs.IsEOF(); rs.MoveNext()) {
    std::printf("%5lld  %-6s  %5lld  %-5s  %s\n",
                static_cast<long long>(rs.GetInt(col::Fields::fldFLD)),
                rs.GetBool(col::Fields::fldOUT) ? "y" : "n",
                static_cast<long long>(rs.GetInt(col::Fields::fldORD)),
                std::string(rs.GetText(col::Fields::fldTYP)).c_str(),
                std::string(rs.GetText(col::Fields::fldLAB)).c_str());
  }
  rs.Sort("");
}

// Only a report whose name ends in ".pdf", in lower case, is read as a PDF (as the window
// reads it); REPORT.PDF is read as text, and a PDF RDF then refuses it.
void ExplainPdfCase(const std::filesystem::path& report, std::string_view error) {
  const std::string extension = report.extension().string();
  if (extension != ".pdf" && EqualsNoCase(extension, ".pdf") &&
      error.find(kRdfNotForTextText) != std::string_view::npos) {
    std::fprintf(stderr,
                 "qbconvert: %s is read as a text report: only a name ending in .pdf in lower "
                 "case is read as a PDF; rename it to end in .pdf\n",
                 report.c_str());
  }
}

// The job the command line asks for: the RDF loaded with the command line's settings and
// field choices (without a report, as the kind of RDF it is). Throws UsageError for a field the RDF
// lacks; nothing when loading failed (the reason is on standard error).
std::optional<ConversionJob> PrepareJob(const ParsedOptions& opts, const Application& app,
                                        ConsoleUI& ui, const std::atomic<bool>* stop = nullptr) {
  JobRequest request;
  request.stop = stop;
  request.report = opts.value(Opt::Report).value_or("");
  request.rdf = opts.value(Opt::Rdf).value_or("");
  request.output = opts.value(Opt::Output).value_or("");
  request.overrides = SettingsFor(opts, app);
  request.fields = ParseFieldList(opts);
  request.launch = opts.has(Opt::Launch);
  request.noOutput = !opts.has(Opt::Output);
  const std::filesystem::path report = request.report;
  try {
    return std::optional<ConversionJob>(std::in_place, app, ui, std::move(request));
  } catch (const JobError& e) {
    if (e.kind() == JobError::Kind::NoSuchField)
      throw UsageError(std::string("--fields: ") + e.what());
    // A load that failed has said why in its message ("cannot load RDF FILE: Error 515 in
    // LoadRDFHeader: ..."); what it failed on is enough here.
    const std::string_view what = e.what();
    const size_t error = what.find(": Error ");
    const size_t why = error == std::string_view::npos ? error : what.find(": ", error + 2);
    if (why != std::string_view::npos && ui.Told(what.substr(why))) {
      std::fprintf(stderr, "qbconvert: %.*s, as said above\n", static_cast<int>(why), what.data());
    } else {
      std::fprintf(stderr, "qbconvert: %s\n", e.what());
    }
    ExplainPdfCase(report, e.what());
    return std::nullopt;
  }
}

// Whether two names are one file: the same file when both exist, else the same place once
// resolved (an output that is yet to be written).
bool SameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  if (std::filesystem::equivalent(a, b, ec)) return true;
  const std::filesystem::path ca =
      std::filesystem::weakly_canonical(std::filesystem::absolute(a, ec), ec);
  if (ec) return false;
  const std::filesystem::path cb =
      std::filesystem::weakly_canonical(std::filesystem::absolute(b, ec), ec);
  return !ec && ca == cb;
}

// Whether --output or --save-rdf (`what`) may write `target`: never over the report or the
// RDF, nor over a folder, and over a file only with --overwrite. The first three are told
// before the last, since --overwrite would not help there. False when refused, the reason
// on standard error.
bool MayWrite(const std::filesystem::path& target, std::string_view what,
              const std::filesystem::path& report, const std::filesystem::path& rdf,
              bool overwrite) {
  const std::string name(what);
  std::error_code ec;
  for (const auto& [input, which] : {std::pair(&report, "report"), std::pair(&rdf, "RDF")}) {
    if (!input->empty() && std::filesystem::equivalent(target, *input, ec)) {
      std::fprintf(stderr, "The %s is the %s itself.\n%s: choose another name for the %s\n",
                   name.c_str(), which, target.c_str(), name.c_str());
      return false;
    }
  }
  const std::filesystem::file_status status = std::filesystem::status(target, ec);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    std::fprintf(stderr, "The %s is not a file.\n%s: choose another name for the %s\n",
                 name.c_str(), target.c_str(), name.c_str());
    return false;
  }
  if (std::filesystem::exists(status) && !overwrite) {
    std::string heading = name;
    heading[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(heading[0])));
    std::fprintf(stderr, "%s file already exists.\n%s: give --overwrite to replace it\n",
                 heading.c_str(), target.c_str());
    return false;
  }
  return true;
}

// Ctrl-C during a run: the first calls `cancel` and says `what`, the second ends the
// program at once. A request to stop (SIGTERM, or SIGHUP when the terminal goes) counts as
// Ctrl-C, so that it too leaves the outputs whole and no work files. A thread waits for the
// signal, so no handler state is needed; SIGUSR1 tells it the run is over.
class InterruptWatch {
 public:
  InterruptWatch(std::function<void()> cancel, std::string what) {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&set, sig);
    pthread_sigmask(SIG_BLOCK, &set, &old_);
    thread_ = std::thread([set, cancel = std::move(cancel), what = std::move(what)] {
      for (int presses = 0;;) {
        int sig = 0;
        if (sigwait(&set, &sig) != 0 || sig == SIGUSR1) return;
        if (++presses == 1) {
          cancel();
          std::fprintf(stderr, "\nqbconvert: cancelling; %s (Ctrl-C again to stop at once)\n",
                       what.c_str());
        } else {
          _exit(kExitCancelled);
        }
      }
    });
  }
  ~InterruptWatch() {
    pthread_kill(thread_.native_handle(), SIGUSR1);
    thread_.join();
    pthread_sigmask(SIG_SETMASK, &old_, nullptr);
  }

 private:
  sigset_t old_;
  std::thread thread_;
};

// --lines FROM-TO (or FROM-, -TO, N).
std::pair<int64_t, int64_t> ParseLineRange(const ParsedOptions& opts) {
  constexpr int64_t kAll = std::numeric_limits<int64_t>::max();
  std::optional<std::string> text = opts.value(Opt::Lines);
  if (!text) return {1, kAll};
  auto number = [&](std::string_view digits, int64_t empty) {
    if (digits.empty()) return empty;
    int64_t n = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
    if (ec != std::errc() || end != digits.data() + digits.size() || n < 1) {
      throw UsageError("--lines takes report line numbers such as 120-180, 120- or -40, not '" +
                       *text + "'");
    }
    return n;
  };
  const std::string_view t = *text;
  const size_t dash = t.find('-');
  if (dash == std::string_view::npos) {
    const int64_t n = number(t, 0);
    if (n == 0) throw UsageError("--lines needs a line number or a range such as 120-180");
    return {n, n};
  }
  const auto range = std::pair(number(t.substr(0, dash), 1), number(t.substr(dash + 1), kAll));
  if (range.first > range.second) {
    throw UsageError("--lines " + *text + " ends before it begins: give FROM-TO with FROM <= TO");
  }
  return range;
}

TraceOptions MakeTraceOptions(const ParsedOptions& opts, const ConversionJob& job) {
  TraceOptions trace;
  const std::string format = opts.value(Opt::TraceFormat).value_or("text");
  trace.format = format == "jsonl" ? TraceOptions::Format::Jsonl : TraceOptions::Format::Text;
  std::tie(trace.from, trace.to) = ParseLineRange(opts);
  trace.unmatchedOnly = opts.has(Opt::Unmatched);
  trace.report = job.Request().report.string();
  trace.rdf = job.Request().rdf.string();
  return trace;
}

// What --check advises a run that matched nothing: it is itself the --check --report that a
// run advises.
constexpr std::string_view kTraceAdvice = "see what the RDF does to each report line with --trace";

// A finished run's findings on standard error (and already in the log); true when there
// were any.
bool ShowFindings(const ConversionJob& job, bool checking = false) {
  const std::vector<std::string> findings = checking ? job.Findings(kTraceAdvice) : job.Findings();
  for (const std::string& line : findings) {
    std::fprintf(stderr, "%s%s\n", line.starts_with(" ") ? "" : "qbconvert: ", line.c_str());
  }
  return !findings.empty();
}

int Convert(const ParsedOptions& opts, Application& app, ConsoleUI& ui) {
  const std::filesystem::path report = *opts.value(Opt::Report);
  const std::filesystem::path output = opts.value(Opt::Output).value_or("");
  const bool tracing = opts.has(Opt::Trace);
  std::error_code ec;
  // A text report may also come through a named pipe (a report unpacked on the fly).
  const auto kind = std::filesystem::status(report, ec);
  if (!std::filesystem::is_regular_file(kind) && !std::filesystem::is_fifo(kind)) {
    std::fprintf(stderr, "qbconvert: the report %s does not exist or is not a file\n",
                 report.c_str());
    return kExitFailed;
  }
  // Ctrl-C while the job is prepared (a piped report copied first) stops it, writing nothing.
  std::atomic<bool> stopped{false};
  std::optional<ConversionJob> job = [&] {
    InterruptWatch watch([&stopped] { stopped = true; }, "nothing is written");
    return PrepareJob(opts, app, ui, &stopped);
  }();
  if (stopped) return kExitCancelled;
  if (!job) return kExitFailed;
  // After loading: the RDF auto-find chose must not be written over either.
  if (!output.empty() &&
      !MayWrite(output, "output", report, job->Request().rdf, opts.has(Opt::Overwrite)))
    return kExitFailed;
  std::optional<TraceWriter> trace;
  if (tracing) {
    trace.emplace(stdout, MakeTraceOptions(opts, *job));
    job->Observe(&*trace);
  }

  ui.setAnswer(opts.has(Opt::Overwrite));
  if (job->Check() != RunDriver::Check::Ready) return kExitFailed;
  ui.setProgressDetail([&job] { return std::to_string(job->LinesProcessed()) + " lines"; });
  bool ok;
  {
    // A cancelled run keeps its rows, unless they would replace an output: that one stays.
    const bool replacing = !output.empty() && std::filesystem::is_regular_file(output, ec);
    InterruptWatch watch(
        [&job] { job->Cancel(); },
        replacing ? "the output that was there stays as it was" : "the rows so far are kept");
    ok = job->Run();
  }
  ui.finishProgress();
  if (!ok) {
    const std::optional<QbError>& error = job->LastError();
    const std::string why = !error ? std::string("unknown error")
                            : ui.Told(error->describe())
                                ? "Error " + std::to_string(error->number()) + " in " +
                                      error->source() + ", as said above"
                                : error->describe();
    std::fprintf(stderr, "qbconvert: the conversion of %s failed: %s\n", report.c_str(),
                 why.c_str());
    return kExitFailed;
  }
  const RunStats& stats = job->Stats();
  if (!opts.has(Opt::Quiet) || stats.cancelled) {
    // A trace owns standard output: the figures go to standard error beside it.
    std::fprintf(tracing ? stderr : stdout, "%s\n%s\n%s\n%s\n",
                 stats.cancelled ? "** Cancelled **" : "Complete", stats.RunTimeText().c_str(),
                 stats.LinesWrittenText().c_str(), stats.LinesProcessedText().c_str());
  }
  if (stats.cancelled) return kExitCancelled;
  if (job->Request().launch && IsWorkbook(job->Options().format)) {
    // The default launch only logs why it opened nothing; a user at a terminal is told.
    const std::string problem = LaunchProblem(job->Options().launchMethod, output);
    if (!problem.empty()) std::fprintf(stderr, "qbconvert: %s\n", problem.c_str());
  }
  std::fflush(stdout);
  return ShowFindings(*job) ? kExitDropped : kExitOk;
}

// A table cell on one line: a message may hold line breaks ("The output is the RDF
// itself:\n..."), and so may a file name.
std::string OneLine(std::string text) {
  for (char& c : text) {
    if (c == '\r' || c == '\n' || c == '\t') c = ' ';
  }
  return text;
}

// The characters a terminal shows for `text`: a UTF-8 sequence is one, and so is each byte
// that is no part of one (a Windows-1252 name shows a replacement character a byte).
size_t ShownWidth(std::string_view text) {
  size_t shown = 0;
  for (size_t i = 0; i < text.size(); ++shown) i += std::max<size_t>(1, Utf8Length(text.substr(i)));
  return shown;
}

// `text` on one line, with blanks after it to `width` shown characters.
std::string Cell(std::string_view text, size_t width) {
  std::string cell = OneLine(std::string(text));
  if (const size_t shown = ShownWidth(cell); shown < width) cell.append(width - shown, ' ');
  return cell;
}

// The results of a batch (or of merged manifests) as a table on standard output.
void PrintTable(const std::vector<BatchItem>& items) {
  size_t wide = 6;
  for (const BatchItem& i : items) wide = std::max(wide, ShownWidth(OneLine(i.report.string())));
  std::printf("%s  %-14s  %9s  %10s  %8s  %s\n", Cell("REPORT", wide).c_str(), "RDF", "ROWS",
              "LINES", "TIME", "RESULT / OUTPUT");
  for (const BatchItem& i : items) {
    const double seconds = std::chrono::duration<double>(i.time).count();
    std::printf("%s  %s  %9lld  %10lld  %7.2fs  %s", Cell(i.report.string(), wide).c_str(),
                Cell(i.rdf.filename().string(), 14).c_str(), static_cast<long long>(i.rows),
                static_cast<long long>(i.lines), seconds,
                std::string(ResultName(i.result)).c_str());
    if (i.result == BatchItem::Result::Done || i.result == BatchItem::Result::Findings)
      std::printf(" %s", OneLine(i.output.string()).c_str());
    if (!i.message.empty()) std::printf(": %s", OneLine(i.message).c_str());
    std::printf("\n");
  }
}

// The exit status of results read back: as a batch gives it.
int StatusOf(const std::vector<BatchItem>& items) {
  int status = kExitOk;
  for (const BatchItem& i : items) {
    if (i.result == BatchItem::Result::Failed) return kExitFailed;
    if (i.result == BatchItem::Result::Cancelled) status = kExitCancelled;
    if (i.result == BatchItem::Result::Findings && status == kExitOk) status = kExitDropped;
  }
  return status;
}

bool WriteManifest(const std::filesystem::path& file, const std::vector<BatchItem>& items) {
  std::string text;
  for (const BatchItem& i : items) text += ManifestLine(i) + "\n";
  try {
    WriteFileAtomically(file, text, "Manifest");
    return true;
  } catch (const QbError& e) {
    std::fprintf(stderr, "qbconvert: the manifest %s cannot be written: %s\n", file.c_str(),
                 e.describe().c_str());
    return false;
  }
}

// --manifest never takes the place of a file the batch reads or writes: the manifest is
// written last, over whatever has its name.
// Whether --manifest can be written where it is named, found out before the work, not after
// it: its folder exists and takes files, and what has its name, if anything, is a file (the
// manifest replaces it whole, which would turn /dev/stdout into a file).
void CheckManifestPlace(const std::filesystem::path& manifest) {
  const std::string refused = "--manifest " + manifest.string() + " is ";
  std::error_code ec;
  const std::filesystem::path folder = std::filesystem::absolute(manifest, ec).parent_path();
  const auto status = std::filesystem::status(manifest, ec);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw UsageError(refused + "no file" +
                     (std::filesystem::is_directory(status) ? std::string(" but a folder") : "") +
                     ": name a file for the manifest (the table goes to standard output)");
  }
  if (!std::filesystem::is_directory(folder, ec))
    throw UsageError(refused + "in a folder that does not exist (" + folder.string() + ")");
  if (::access(folder.c_str(), W_OK) != 0)
    throw UsageError(refused + "in a folder that cannot be written (" + folder.string() + ")");
}

void RefuseManifestOverFiles(const std::filesystem::path& manifest,
                             const std::vector<BatchItem>& items,
                             const std::filesystem::path& rdf) {
  const std::string refused = "--manifest " + manifest.string() + " is ";
  const std::string advice = ": choose another name for the manifest";
  CheckManifestPlace(manifest);
  if (SameFile(manifest, rdf)) throw UsageError(refused + "the RDF (--rdf)" + advice);
  for (const BatchItem& i : items) {
    if (SameFile(manifest, i.report)) throw UsageError(refused + "a report of the batch" + advice);
    if (SameFile(manifest, i.rdf))
      throw UsageError(refused + "the RDF of " + i.report.string() + advice);
    if (SameFile(manifest, i.output))
      throw UsageError(refused + "the output of " + i.report.string() + advice);
  }
}

// --batch: plan, run with a progress line on a terminal, then the table.
int BatchCommand(const ParsedOptions& opts, const Application& app) {
  BatchRequest request;
  request.inputs = opts.positional;
  request.recursive = opts.has(Opt::Recursive);
  if (auto jobs = opts.value(Opt::Jobs)) {
    const char* end = jobs->data() + jobs->size();
    if (std::from_chars(jobs->data(), end, request.jobs).ptr != end || request.jobs < 1)
      throw UsageError("--jobs takes a number of reports at once (1 or more), not '" + *jobs + "'");
  }
  request.outputDir = opts.value(Opt::OutputDir).value_or("");
  request.outputType = opts.value(Opt::To).value_or("");
  if (!request.outputType.empty() && !FormatOfExtension(request.outputType))
    throw UsageError("--to is .csv, .txt, .xls or .xlsx, not '" + request.outputType + "'");
  request.rdf = opts.value(Opt::Rdf).value_or("");
  request.rdfDir = opts.value(Opt::RdfDir).value_or("");
  request.existing = opts.has(Opt::Overwrite)      ? BatchRequest::Existing::Overwrite
                     : opts.has(Opt::SkipExisting) ? BatchRequest::Existing::Skip
                                                   : BatchRequest::Existing::Refuse;
  request.overrides = SettingsFor(opts, app);
  std::error_code ec;
  if (!request.outputDir.empty() && !std::filesystem::is_directory(request.outputDir, ec)) {
    std::fprintf(stderr, "qbconvert: the output folder %s %s\n", request.outputDir.c_str(),
                 std::filesystem::exists(request.outputDir, ec) ? "is not a folder"
                                                                : "does not exist: make it first");
    return kExitFailed;
  }
  Batch batch(app, request);
  try {
    batch.Plan();
  } catch (const QbError& e) {
    std::fprintf(stderr, "qbconvert: %s\n", e.describe().c_str());
    return kExitFailed;
  }
  if (auto manifest = opts.value(Opt::Manifest))
    RefuseManifestOverFiles(*manifest, batch.Items(), request.rdf);
  const bool progress = !opts.has(Opt::Quiet) && ::isatty(STDERR_FILENO);
  const auto start = std::chrono::steady_clock::now();
  {
    InterruptWatch watch([&batch] { batch.Cancel(); }, "the outputs finished so far are kept");
    batch.Run([&](const Batch::Progress& p) {
      if (!progress) return;
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      std::fprintf(stderr, "\r%zu of %zu reports, %lld rows, %.0f lines/s   ", p.done, p.total,
                   static_cast<long long>(p.rows),
                   seconds > 0 ? static_cast<double>(p.lines) / seconds : 0.0);
    });
  }
  if (progress) std::fputs("\n", stderr);
  PrintTable(batch.Items());
  if (auto manifest = opts.value(Opt::Manifest);
      manifest && !WriteManifest(*manifest, batch.Items()))
    return kExitFailed;
  return batch.ExitStatus();
}

// --merge-manifests: the manifests of batches run apart, as one table (and one manifest).
int MergeCommand(const ParsedOptions& opts) {
  if (auto manifest = opts.value(Opt::Manifest)) {
    try {
      CheckManifestPlace(*manifest);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\nTry 'qbconvert --help'.\n", e.what());
      return kExitUsage;
    }
  }
  std::vector<BatchItem> items;
  std::map<std::filesystem::path, std::string> seen;  // report -> the manifest it came from
  std::set<std::pair<dev_t, ino_t>> manifests;        // each file once, by its inode
  for (const std::string& file : opts.positional) {
    std::error_code ec;
    if (struct stat st{};
        ::stat(file.c_str(), &st) == 0 && !manifests.insert({st.st_dev, st.st_ino}).second) {
      std::fprintf(stderr, "qbconvert: the manifest %s is named twice\n", file.c_str());
      return kExitFailed;
    }
    // A manifest may come through a pipe (<(ssh node cat slice.jsonl)); a folder is none.
    std::ifstream in(file, std::ios::binary);
    if (!in || std::filesystem::is_directory(file, ec)) {
      std::fprintf(stderr, "qbconvert: the manifest %s cannot be read\n", file.c_str());
      return kExitFailed;
    }
    int number = 0;
    const size_t before = items.size();
    for (std::string line; std::getline(in, line);) {
      ++number;
      if (Trim(line).empty() || line == "\r") continue;
      try {
        items.push_back(ParseManifestLine(line));
      } catch (const QbError& e) {
        std::fprintf(stderr, "%s:%d: %s\n", file.c_str(), number, e.description().c_str());
        return kExitFailed;
      }
      const auto [at, added] = seen.emplace(items.back().report, file);
      if (!added) {
        std::fprintf(stderr, "qbconvert: %s: %s is in %s too; both are counted\n", file.c_str(),
                     items.back().report.c_str(), at->second.c_str());
      }
    }
    // A batch always writes a line for each report: an empty manifest is one cut off.
    if (items.size() == before) {
      std::fprintf(stderr,
                   "qbconvert: the manifest %s holds no results: its batch did not get to the "
                   "end, or it is no manifest\n",
                   file.c_str());
      return kExitFailed;
    }
  }
  PrintTable(items);
  if (auto manifest = opts.value(Opt::Manifest); manifest && !WriteManifest(*manifest, items))
    return kExitFailed;
  return StatusOf(items);
}

// --list-fields and --save-rdf: the RDF as the command line loads it, listed or saved.
int RdfCommand(const ParsedOptions& opts, const Application& app, ConsoleUI& ui) {
  const std::optional<std::string> save = opts.value(Opt::SaveRdf);
  if (save && !MayWrite(*save, "saved RDF", opts.value(Opt::Report).value_or(""),
                        *opts.value(Opt::Rdf), opts.has(Opt::Overwrite)))
    return kExitFailed;
  std::optional<ConversionJob> job = PrepareJob(opts, app, ui);
  if (!job) return kExitFailed;
  if (!save) {
    ListFields(job->engine().tables.rsFields);
    return kExitOk;
  }
  Engine& engine = job->engine();
  // The header part line is saved as loading kept it: one that began with blanks was read,
  // but not kept as that line, and an RDF saved without it would not load.
  Recordset& kept = engine.tables.rsLines;
  kept.MoveFirst();
  if (kept.IsEOF() || !kept.GetText(col::Lines::fldRDL).starts_with("RDF")) {
    std::fprintf(stderr,
                 "qbconvert: %s is not saved: the first line of %s does not begin with \"RDF\" "
                 "(blanks before it?), and the saved RDF would lack it; correct the line first "
                 "(qbconvert --check --rdf shows it)\n",
                 save->c_str(), opts.value(Opt::Rdf)->c_str());
    return kExitFailed;
  }
  if (!engine.BuildRDF(*save)) {
    std::fprintf(stderr, "qbconvert: cannot write %s: %s\n", save->c_str(),
                 engine.LastError()->describe().c_str());
    return kExitFailed;
  }
  // An RDF is saved as it is loaded: its header part and the one layout chosen for the report.
  if (engine.rdf.Number > 1) {
    std::string layout = "01";
    Recordset& lines = engine.tables.rsLines;
    for (lines.MoveFirst(); !lines.IsEOF(); lines.MoveNext()) {
      const std::string_view line = lines.GetText(col::Lines::fldRDL);
      if (line.starts_with("RDF") && line.size() >= 6 && line.substr(4, 2) != "00") {
        layout = line.substr(4, 2);
      }
    }
    std::fprintf(stderr,
                 "qbconvert: note: %s has %d report layouts; %s holds layout %s only (the one "
                 "loaded%s): to save another, give --report a report of that layout\n",
                 opts.value(Opt::Rdf)->c_str(), engine.rdf.Number, save->c_str(), layout.c_str(),
                 opts.has(Opt::Report) ? " for the report" : " without a report");
  }
  return kExitOk;
}

// --check: the RDF's problems, then (with --report) how the RDF meets the report.
int CheckCommand(const ParsedOptions& opts, Application& app, ConsoleUI& ui) {
  const std::filesystem::path rdf = *opts.value(Opt::Rdf);
  RdfCheckResult result = CheckRdf(rdf);
  for (const RdfDiagnostic& d : result.diagnostics) {
    std::printf("%s\n", FormatDiagnostic(d).c_str());
  }
  if (opts.has(Opt::Report)) {
    if (result.errors > 0) {
      std::printf("%s was not read: correct the RDF's errors first\n",
                  opts.value(Opt::Report)->c_str());
    } else if (std::optional<ConversionJob> job = PrepareJob(opts, app, ui)) {
      RunTally tally(job->engine().tables);
      job->Observe(&tally);
      if (job->Check() == RunDriver::Check::Ready && job->Run()) {
        const RunTally::Summary summary =
            tally.Report(job->Request().report.string(), rdf.string(), job->ColumnFields());
        for (const std::string& line : summary.lines) std::printf("%s\n", line.c_str());
        result.warnings += summary.warnings;
        // An RDF that already gives the layout its pitch or bands is told where to look.
        const RdfTables& tables = job->engine().tables;
        const bool laidOut =
            tables.rsPdfParams.RecordCount() > 0 || tables.rsPdfColumns.RecordCount() > 0;
        for (const auto& [page, moved] : job->Stats().crowdedPdfPages) {
          ++result.warnings;
          std::printf(
              "%s: warning: page %d: %lld words had to move right, their columns taken by other "
              "words: the pitch is wider than the characters of the page's text; %s\n",
              job->Request().report.c_str(), page, static_cast<long long>(moved),
              laidOut ? "if a field's words are among them (--trace shows the page's lines), "
                        "give the PDP row a narrower pitch or a PDC band for that column"
                      : "give the RDF's PDP row the pitch and margin the report was printed "
                        "with, or PDC bands for its columns");
        }
        std::fflush(stdout);
        // Report lines the run dropped are the RDF's errors with this report, and text it
        // could not read a warning (the tally counted a report that matched nothing).
        ShowFindings(*job, true);
        const RunStats& stats = job->Stats();
        if (stats.lineErrors.count > 0) ++result.errors;
        if (stats.invalidSequences > 0 || stats.unheldCharacters > 0 || stats.cutRecords > 0)
          ++result.warnings;
      } else {
        ++result.errors;
        std::printf("%s was not read through: %s\n", opts.value(Opt::Report)->c_str(),
                    job->LastError() ? job->LastError()->describe().c_str() : "it does not exist");
      }
    } else {
      ++result.errors;
    }
  }
  std::printf("%s\n", CheckSummary(result).c_str());
  return result.errors > 0 ? kExitFailed : kExitOk;
}

// The command line's combinations, checked before start-up.
void Validate(const ParsedOptions& opts) {
  const bool list = opts.has(Opt::ListFields), save = opts.has(Opt::SaveRdf);
  const bool trace = opts.has(Opt::Trace), check = opts.has(Opt::Check);
  for (const OptionInfo& o : Options()) {
    const bool traceOnly = o.id == Opt::Lines || o.id == Opt::Unmatched || o.id == Opt::TraceFormat;
    if (traceOnly && opts.has(o.id) && !trace) {
      throw UsageError("--" + std::string(o.name) + " goes with --trace");
    }
  }
  if (auto format = opts.value(Opt::TraceFormat);
      format && *format != "text" && *format != "jsonl") {
    throw UsageError("--trace-format is text or jsonl, not '" + *format + "'");
  }
  ParseLineRange(opts);
  const bool batch = opts.has(Opt::Batch), merge = opts.has(Opt::MergeManifests);
  for (Opt o :
       {Opt::Jobs, Opt::OutputDir, Opt::To, Opt::RdfDir, Opt::SkipExisting, Opt::Recursive}) {
    if (opts.has(o) && !batch) {
      for (const OptionInfo& option : Options()) {
        if (option.id == o)
          throw UsageError("--" + std::string(option.name) + " goes with --batch");
      }
    }
  }
  if (opts.has(Opt::Manifest) && !batch && !merge)
    throw UsageError("--manifest goes with --batch or --merge-manifests");
  if (!opts.positional.empty() && !batch && !merge) {
    throw UsageError("unexpected argument '" + opts.positional.front() +
                     "': every argument belongs to an option such as --report");
  }
  if (batch || merge) {
    if (opts.positional.empty())
      throw UsageError(batch ? "--batch needs the reports: files, folders or quoted globs"
                             : "--merge-manifests needs the manifest files");
    if (batch && merge) throw UsageError("--batch and --merge-manifests do not go together");
    if (opts.has(Opt::Report) || opts.has(Opt::Output) || trace || check || list || save)
      throw UsageError(
          "--batch takes its reports after the options, and no --report, --output, "
          "--trace, --check, --list-fields or --save-rdf");
    const std::string command = batch ? "--batch" : "--merge-manifests";
    if (opts.has(Opt::Fields))
      throw UsageError("--fields does not go with " + command +
                       ": choose the fields in the RDF (--save-rdf --fields writes one)");
    if (opts.has(Opt::Launch))
      throw UsageError("--launch does not go with " + command +
                       ": it opens the output of a single conversion");
    if (batch && opts.has(Opt::Rdf) && opts.has(Opt::RdfDir))
      throw UsageError("--rdf and --rdf-dir do not go together: one RDF for all, or a folder");
    if (opts.has(Opt::Overwrite) && opts.has(Opt::SkipExisting))
      throw UsageError("--overwrite and --skip-existing do not go together");
    ParseSets(opts);
    return;
  }
  if (trace && !opts.has(Opt::Report)) throw UsageError("--trace needs --report FILE");
  if (check && !opts.has(Opt::Rdf)) throw UsageError("--check needs --rdf FILE");
  if (check && (trace || list || save || opts.has(Opt::Output) || opts.has(Opt::Fields) ||
                opts.has(Opt::Launch))) {
    throw UsageError(
        "--check goes with --rdf, --report and --set only (not with --output, --trace, "
        "--fields, --launch, --list-fields or --save-rdf)");
  }
  if (trace && (list || save)) {
    throw UsageError("--trace does not go with --list-fields or --save-rdf");
  }
  if ((list || save) && !opts.has(Opt::Rdf)) {
    throw UsageError(std::string(list ? "--list-fields" : "--save-rdf") + " needs --rdf FILE");
  }
  if (list && save) throw UsageError("--list-fields and --save-rdf do not go together");
  if ((list || save) && opts.has(Opt::Output)) {
    throw UsageError("--output does not go with --list-fields or --save-rdf");
  }
  if (opts.has(Opt::Output)) {
    if (!opts.has(Opt::Report)) throw UsageError("--output needs --report FILE");
    const std::optional<OutputFormat> format =
        FormatOfExtension(std::filesystem::path(*opts.value(Opt::Output)).extension().string());
    if (!format) {
      throw UsageError("--output must end in .txt, .csv, .xls or .xlsx, not '" +
                       *opts.value(Opt::Output) + "'");
    }
    if (opts.has(Opt::Launch) && !IsWorkbook(*format))
      throw UsageError("--launch opens a workbook: give an --output ending in .xls or .xlsx");
  }
  if (!list && !save && !trace && !check && !opts.has(Opt::Output) &&
      (opts.has(Opt::Report) || opts.has(Opt::Rdf) || opts.has(Opt::Fields) ||
       opts.has(Opt::Set))) {
    throw UsageError(
        "nothing to do: give --output FILE, --trace, --check, --list-fields or --save-rdf FILE");
  }
  ParseSets(opts);
  ParseFieldList(opts);
}

// The program folder, or a message naming it and where it came from when it is no folder:
// the log and the settings would otherwise fail one by one, none of them naming it.
std::optional<std::filesystem::path> ProgramFolder(const ParsedOptions& opts) {
  const std::optional<std::string> home = opts.value(Opt::Home);
  std::filesystem::path folder = ResolveProgramFolder(home);
  if (std::error_code ec; std::filesystem::is_directory(folder, ec)) return folder;
  const char* env = std::getenv("QUILLBROOK_HOME");
  const std::string from = home          ? "--home " + *home
                           : env && *env ? std::string("QUILLBROOK_HOME")
                                         : std::string("the folder of qbconvert");
  std::fprintf(stderr,
               "qbconvert: the program folder %s (%s) does not exist or is not a folder: give "
               "--home the folder that holds qbsys.txt\n",
               folder.c_str(), from.c_str());
  return std::nullopt;
}

// Whether everything printed reached standard output; it is buffered, so a full disk shows
// only when it is flushed, after the command has finished.
bool StandardOutputWritten() {
  const bool flushed = std::fflush(stdout) == 0;
  const int error = errno;
  if (flushed && !std::ferror(stdout)) return true;
  const std::string why = flushed ? std::string() : " (" + std::string(std::strerror(error)) + ")";
  std::fprintf(stderr,
               "qbconvert: standard output could not be written whole%s: check where it goes "
               "(a full disk, a file-size limit)\n",
               why.c_str());
  return false;
}

int Run(std::span<const char* const> args) {
  ParsedOptions opts;
  try {
    opts = ParseCommandLine(args);
    if (!opts.has(Opt::Help) && !opts.has(Opt::Version)) Validate(opts);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "qbconvert: %s\nTry 'qbconvert --help'.\n", e.what());
    return kExitUsage;
  }
  if (opts.has(Opt::Help)) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitOk;
  }
  if (opts.has(Opt::Version)) {
    std::printf("qbconvert %s\n", QB_VERSION);
    return kExitOk;
  }

  const std::optional<std::filesystem::path> folder = ProgramFolder(opts);
  if (!folder) return kExitFailed;
  ConsoleUI ui;
  Application app(*folder, ui);
  app.Log().WriteLog(kSource, "Started...");
  int status = kExitOk;
  if (!app.ResetForm()) {
    if (std::error_code ec; !std::filesystem::exists(*folder / "qbsys.txt", ec)) {
      std::fprintf(stderr,
                   "qbconvert: %s has no qbsys.txt, so it is no program folder: give --home "
                   "the folder that holds qbsys.txt\n",
                   folder->c_str());
    }
    status = kExitFailed;
  } else if (opts.has(Opt::Batch)) {
    try {
      status = BatchCommand(opts, app);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\nTry 'qbconvert --help'.\n", e.what());
      status = kExitUsage;
    }
  } else if (opts.has(Opt::MergeManifests)) {
    status = MergeCommand(opts);
  } else if (opts.has(Opt::ListFields) || opts.has(Opt::SaveRdf)) {
    try {
      status = RdfCommand(opts, app, ui);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\n", e.what());
      status = kExitUsage;
    }
  } else if (opts.has(Opt::Check)) {
    try {
      status = CheckCommand(opts, app, ui);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\n", e.what());
      status = kExitUsage;
    }
  } else if (opts.has(Opt::Output) || opts.has(Opt::Trace)) {
    try {
      status = Convert(opts, app, ui);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\n", e.what());
      status = kExitUsage;
    }
  } else {
    ShowStartup(app);
  }
  app.Log().WriteLog(kSource, "Closed...");
  return status;
}

}  // namespace

int RunCommand(std::span<const char* const> args) {
  int status;
  try {
    status = Run(args);
  } catch (const std::bad_alloc&) {
    // What the run traps itself (a conversion's error 7) never gets here; this is the rest:
    // reading a damaged file whole for --check, say.
    std::fprintf(stderr, "qbconvert: out of memory: %s\n",
                 "a file is larger than this machine can hold (a file without line ends?)");
    return kExitFailed;
  }
  if (!StandardOutputWritten() && (status == kExitOk || status == kExitDropped)) return kExitFailed;
  return status;
}

}  // namespace qb::cli
