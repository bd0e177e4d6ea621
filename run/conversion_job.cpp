#include "run/conversion_job.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/buffered_file.h"
#include "base/errors.h"
#include "preprocess/print_file.h"

namespace qb {
namespace {

// An engine of its own for looking at an RDF before the job loads it: it tells no one and
// logs nothing (a damaged RDF is told of by the load that follows).
struct QuietProbe {
  explicit QuietProbe(const Application& front) : app(front, silent, /*logging=*/false) {
    engine.CreateRecordsets();
  }
  SilentUserInterface silent;
  Application app;
  Engine engine{app};
};

// Whether the RDF is for PDF reports: its header loads as a text RDF's, or fails only for
// being a PDF one.
bool IsPdfRdf(const Application& app, const std::filesystem::path& rdf) {
  QuietProbe probe(app);
  if (probe.engine.GetRDFInfo(rdf) && probe.engine.LoadRDFHeader(rdf)) return false;
  return probe.engine.LastError() && probe.engine.LastError()->number() == kRdfNotForText;
}

// A report that exists but is no file or folder: a pipe, a device. A missing report or a
// folder is told of by the run's checks.
bool ThroughPipe(const std::filesystem::path& report) {
  std::error_code ec;
  const auto kind = std::filesystem::status(report, ec).type();
  return !report.empty() && !ec && kind != std::filesystem::file_type::not_found &&
         kind != std::filesystem::file_type::regular &&
         kind != std::filesystem::file_type::directory;
}

// Whether loading the RDF reads the report: to tell its layout among the RDF's several, or
// to compare its program name with the RDF's ("pfset" naming a line of a text report).
bool LoadingReadsReport(const Application& app, const std::filesystem::path& rdf, bool pdf) {
  QuietProbe probe(app);
  if (!probe.engine.GetRDFInfo(rdf)) return false;
  if (probe.engine.rdf.Number > 1) return true;
  try {
    return !pdf && ParseSystemEntry(app.Settings[Key::pfset], "LoadRDF").Row >= 1;
  } catch (const QbError&) {
    return false;
  }
}

}  // namespace

ConversionJob::ConversionJob(const Application& front, UserInterface& ui, JobRequest request)
    : request_(std::move(request)), app_(front, ui), engine_(app_) {
  // The overrides count for finding the RDF too ("rdfdir", "pfset").
  ApplyOverrides();
  reportFile_ = request_.report;
  const bool pipe = ThroughPipe(request_.report);
  std::filesystem::path rdf = request_.rdf;
  if (rdf.empty()) {
    clsSystem system;
    try {
      system = ParseSystemEntry(app_.Settings[Key::pfset], "ConversionJob");
    } catch (const QbError&) {
      throw JobError(JobError::Kind::Failed, "the \"pfset\" setting '" + app_.Settings[Key::pfset] +
                                                 "' is not a source system entry; name the RDF");
    }
    // Auto-find by a line of the report reads it (by its name, it does not).
    if (pipe && system.Row >= 1) SpoolReport();
    std::optional<std::filesystem::path> found = FindRdf(
        system.Row >= 1 ? reportFile_ : request_.report, system, app_.Settings[Key::rdfdir]);
    if (!found || !std::filesystem::exists(*found)) {
      throw JobError(JobError::Kind::Failed,
                     "no RDF found for " + request_.report.string() + ": source system \"" +
                         system.System + "\" gives " +
                         (found ? found->string() : std::string("no usable identifier")) +
                         ". Name the RDF, or set rdfdir and pfset (qbcfg.ini or --set).");
    }
    rdf = *found;
  }
  request_.rdf = rdf;
  // Loading reads an RDF several times over: a pipe would give its lines once.
  if (std::error_code ec;
      std::filesystem::exists(rdf, ec) && !std::filesystem::is_regular_file(rdf, ec)) {
    throw JobError(JobError::Kind::Failed,
                   "the RDF " + rdf.string() +
                       (std::filesystem::is_directory(rdf, ec)
                            ? " is a folder: name an RDF file"
                            : " is not a file: an RDF is read more than once, so it cannot come "
                              "through a pipe; save it to a file and name that"));
  }
  // Without a report (a job that lists or saves the RDF) no name says which kind of report
  // is read: the RDF is loaded as the kind it is.
  engine_.flags.PdfReport =
      request_.report.empty() ? IsPdfRdf(app_, rdf) : request_.report.extension() == ".pdf";
  if (pipe && !spooled_ && LoadingReadsReport(app_, rdf, engine_.flags.PdfReport)) SpoolReport();
  if (!engine_.LoadRDF(rdf, reportFile_)) {
    const std::string why =
        engine_.LastError() ? engine_.LastError()->describe() : std::string("unknown error");
    throw JobError(JobError::Kind::Failed, "cannot load RDF " + rdf.string() + ": " + why);
  }
  if (!request_.output.empty()) {
    if (auto format = FormatOfExtension(request_.output.extension().string())) {
      app_.Settings.Item(Key::opfmt).Value = std::string(ExtensionOf(*format));
    }
  }
  ApplyOverrides();
  ApplyFieldList();
  MakeDriver();
}

ConversionJob::ConversionJob(const Application& front, UserInterface& ui, const Engine& loaded,
                             JobRequest request)
    : request_(std::move(request)), app_(front, ui), engine_(app_, loaded) {
  reportFile_ = request_.report;
  ApplyOverrides();
  ApplyFieldList();
  MakeDriver();
}

// A report that is no file (a pipe, a device) can be read only once: when finding or loading
// the RDF reads it too, it is first copied into a work file, which all of them then read.
// Otherwise the run reads it as it comes.
void ConversionJob::SpoolReport() {
  constexpr std::string_view kProc = "ConversionJob";
  try {
    const int in = ::open(request_.report.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) throw ErrorFromErrno(errno, std::string(kProc)).at(request_.report);
    const struct Closer {
      int fd;
      ~Closer() { ::close(fd); }
    } closer{in};
    spoolFolder_.emplace(app_.ProgramFolder() / "out");
    spooled_.emplace(spoolFolder_->Path(kProc), "report", "", kProc);
    BufferedFile copy(spooled_->path(), kProc, spooled_->shown());
    constexpr size_t kChunk = 1 << 20;
    for (;;) {
      if (request_.stop && *request_.stop) {
        throw JobError(JobError::Kind::Cancelled,
                       "cancelled while copying the report " + request_.report.string());
      }
      char* const p = copy.Reserve(copy.Cursor(), kChunk);
      const ssize_t n = ::read(in, p, kChunk);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw ErrorFromErrno(errno, std::string(kProc)).at(request_.report);
      if (n == 0) break;
      copy.Commit(p + n);
    }
    copy.Close();
  } catch (const QbError& e) {
    throw JobError(JobError::Kind::Failed,
                   "cannot copy the report " + request_.report.string() +
                       " into a work file (a report that comes through a pipe is read from "
                       "one): " +
                       e.describe());
  }
  reportFile_ = spooled_->path();
}

// The output options, parsed once and checked: an output named .csv is never written as a
// workbook, nor the reverse.
void ConversionJob::MakeDriver() {
  OutputOptions options;
  try {
    options = ParseOutputOptions(app_.Settings);
  } catch (const QbError& e) {
    throw JobError(JobError::Kind::Failed, e.description());
  }
  const std::string extension = request_.output.extension().string();
  if (auto named = FormatOfExtension(extension); named && *named != options.format) {
    throw JobError(JobError::Kind::Failed, "the output " + request_.output.string() + " is named " +
                                               extension + " but the output type (opfmt) is " +
                                               app_.Settings[Key::opfmt] +
                                               ": give the output the extension of its type");
  }
  options.writerThread = request_.writerThread;
  driver_.emplace(engine_, std::move(options));
}

void ConversionJob::ApplyOverrides() {
  for (const auto& [key, value] : request_.overrides) app_.Settings.Item(key).Value = value;
}

// Those fields are output in that order; every other field is not output.
void ConversionJob::ApplyFieldList() {
  const std::vector<int>& fields = request_.fields;
  if (fields.empty()) return;
  Recordset& rs = engine_.tables.rsFields;
  for (int n : fields) {
    rs.Filter("");
    rs.Find("fldFLD = " + std::to_string(n));
    if (rs.IsEOF()) {
      throw JobError(JobError::Kind::NoSuchField, "the RDF has no field " + std::to_string(n));
    }
  }
  for (rs.Filter(""); !rs.IsEOF(); rs.MoveNext()) {
    const int n = static_cast<int>(rs.GetInt(col::Fields::fldFLD));
    auto at = std::find(fields.begin(), fields.end(), n);
    rs.SetBool(col::Fields::fldOUT, at != fields.end());
    const int order = at != fields.end() ? static_cast<int>(at - fields.begin()) + 1 : 0;
    rs.SetInt(col::Fields::fldORD, order);
    rs.SetInt(col::Fields::fldTMP, order);
  }
  rs.MoveFirst();
}

RunDriver::Check ConversionJob::Check() {
  if (request_.noOutput) {
    std::error_code ec;
    return std::filesystem::exists(request_.report, ec) ? RunDriver::Check::Ready
                                                        : RunDriver::Check::NothingToDo;
  }
  return driver_->CheckRun(request_.report, request_.rdf, request_.output);
}

bool ConversionJob::Run() {
  const std::filesystem::path output =
      request_.noOutput ? std::filesystem::path() : request_.output;
  const bool ok = driver_->Run(reportFile_, output);
  if (ok) {
    for (const std::string& line : Findings()) app_.Log().WriteLog("Process", line);
  }
  // A run cancelled while replacing an output wrote nothing: there is nothing new to open.
  if (ok && !driver_->Abandoned() && !request_.noOutput && !driver_->Stats().previousKept) {
    driver_->RunEnd(request_.output, request_.launch);
  }
  return ok;
}

std::vector<std::string> ConversionJob::Findings(std::string_view advice) const {
  std::vector<std::string> lines;
  const RunStats& stats = driver_->Stats();
  if (!stats.finished || stats.cancelled) return lines;
  const std::string report = request_.report.string(), rdf = request_.rdf.string();
  const LineErrors& errors = stats.lineErrors;
  if (errors.count > 0) {
    const bool more = errors.count > static_cast<int64_t>(errors.first.size());
    lines.push_back("completed, but " + std::to_string(errors.count) + " report line" +
                    (errors.count == 1 ? " was" : "s were") +
                    " dropped or only partly picked up because of errors" +
                    (more ? "; the first " + std::to_string(errors.first.size()) + ":" : ":"));
    for (const LineErrorRecord& e : errors.first) {
      std::string line = "  " + report + ":" + std::to_string(e.line);
      if (e.piece > 0) line += " (piece " + std::to_string(e.piece) + ")";
      line += ": ";
      if (e.rdfLine > 0) line += "RDF " + rdf + ":" + std::to_string(e.rdfLine) + ": ";
      line += e.error.describe();
      line += e.partly ? "; the line's later pickup rows were skipped" : "; the line was dropped";
      lines.push_back(std::move(line));
    }
  }
  if (stats.piecesMatched == 0) {
    lines.push_back("no line of " + report + " matched a marker of " + rdf + ": " +
                    std::string(advice));
  }
  // "1 record of R was", "2 records of R were".
  auto of = [&report](int64_t n, std::string_view what) {
    return std::to_string(n) + " " + std::string(what) + (n == 1 ? "" : "s") + " of " + report +
           (n == 1 ? " was" : " were");
  };
  if (stats.cutRecords > 0) {
    lines.push_back("completed, but " + of(stats.cutRecords, "record") + " longer than " +
                    std::to_string(kMaxPrintRecord) +
                    " bytes and cut there: a file of fixed-length records without record ends "
                    "needs reclen set to their length");
  }
  // Text that could not be read is written as the replacement character.
  if (stats.invalidSequences > 0) {
    lines.push_back("completed, but " + of(stats.invalidSequences, "byte sequence") +
                    " not valid in its encoding and written as \"\xEF\xBF\xBD\": check the "
                    "encoding setting");
  }
  if (stats.unheldCharacters > 0) {
    lines.push_back("completed, but " + of(stats.unheldCharacters, "different character") +
                    " past the most a run holds and written as \"\xEF\xBF\xBD\": split the "
                    "report, or convert it with a code page that has its letters");
  }
  return lines;
}

}  // namespace qb
