#include "run/batch.h"

#include <glob.h>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <set>
#include <thread>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/json.h"
#include "engine/engine.h"
#include "output/output_options.h"
#include "run/conversion_job.h"

namespace qb {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kSource = "Batch";

// An item's own way to the user: its messages are kept for its result; the one question a
// job asks (replace an existing output) was settled when the batch was planned.
class ItemUI final : public UserInterface {
 public:
  explicit ItemUI(bool overwrite) : overwrite_(overwrite) {}
  void message(std::string_view text, std::string_view, MessageIcon) override {
    messages.emplace_back(text);
  }
  bool question(std::string_view, std::string_view, MessageIcon) override { return overwrite_; }
  void status(std::string_view) override {}
  void progress(int) override {}

  std::vector<std::string> messages;

 private:
  bool overwrite_;
};

bool IsGlob(std::string_view s) {
  return s.find_first_of("*?[") != std::string_view::npos;
}

bool HasExtension(const fs::path& file, std::string_view extension) {
  return EqualsNoCase(file.extension().string(), extension);
}

// Files a folder holds that are not reports: RDFs, logs, settings, workbooks, manifests,
// hidden files.
bool NotAReport(const fs::path& file) {
  static constexpr std::string_view kNot[] = {".rdf",  ".log",  ".ini",  ".xls",
                                              ".xlsx", ".part", ".jsonl"};
  return std::any_of(std::begin(kNot), std::end(kNot),
                     [&file](std::string_view ext) { return HasExtension(file, ext); }) ||
         file.filename().string().starts_with(".");
}

// A path with its folder as the file system resolves it (links, "." and ".."), so that two
// spellings of one file compare equal, and a file written there replaces what this names.
// The name itself is kept: two links to one report are two reports (and writing over a link
// replaces the link, not what it points to). The file need not exist yet.
fs::path Resolved(const fs::path& path) {
  std::error_code ec;
  const fs::path absolute = fs::absolute(path, ec);
  // The folder is looked up as it is spelt: "link/.." is where the link leads, then up.
  const fs::path folder = fs::weakly_canonical(absolute.parent_path(), ec);
  return ec ? absolute.lexically_normal() : folder / absolute.filename();
}

QbError FolderError(const fs::path& folder, const std::error_code& ec) {
  return QbError(ec == std::errc::permission_denied ? kPathFileAccess : kPathNotFound,
                 std::string(kSource), "the folder cannot be read: " + ec.message())
      .at(folder);
}

// A file of the output type named as another report of its folder is that report's output
// of an earlier batch, not a report, where this batch writes its outputs elsewhere. (Where it
// writes them to that folder, Plan tells an earlier output from a report by its age.)
void DropEarlierOutputs(std::vector<fs::path>& found, std::string_view type,
                        const fs::path& outputDir) {
  if (outputDir.empty()) return;
  std::set<fs::path> stems;
  for (const fs::path& f : found) {
    if (!HasExtension(f, type)) stems.insert(f.parent_path() / f.stem());
  }
  std::error_code ec;
  const fs::path outputs = fs::weakly_canonical(fs::absolute(outputDir, ec), ec);
  std::erase_if(found, [&](const fs::path& f) {
    return HasExtension(f, type) && stems.contains(f.parent_path() / f.stem()) &&
           Resolved(f).parent_path() != outputs;
  });
}

// The reports one input names, in name order for folders and globs, an earlier batch's
// outputs left out.
std::vector<fs::path> Expand(const std::string& input, bool recursive, std::string_view type,
                             const fs::path& outputDir) {
  std::vector<fs::path> found;
  std::error_code ec;
  if (IsGlob(input) && !fs::exists(input, ec)) {
    glob_t g{};
    if (::glob(input.c_str(), 0, nullptr, &g) == 0) {
      for (size_t i = 0; i < g.gl_pathc; ++i) {
        if (fs::is_regular_file(g.gl_pathv[i], ec) && !NotAReport(g.gl_pathv[i]))
          found.emplace_back(g.gl_pathv[i]);
      }
    }
    ::globfree(&g);
    DropEarlierOutputs(found, type, outputDir);
    if (found.empty()) {
      throw QbError(kFileNotFound, std::string(kSource), "no report matches \"" + input + "\"");
    }
    return found;
  }
  // A report named may also be a named pipe (a report unpacked on the fly).
  const auto kind = fs::status(input, ec);
  if (ec && ec != std::errc::no_such_file_or_directory) {
    throw QbError(kPathFileAccess, std::string(kSource), "cannot be read: " + ec.message())
        .at(input);
  }
  if (fs::is_regular_file(kind) || fs::is_fifo(kind)) return {fs::path(input)};
  if (fs::exists(kind) && !fs::is_directory(kind)) {
    throw QbError(kFileNotFound, std::string(kSource),
                  "not a report: only files and folders are converted")
        .at(input);
  }
  if (!fs::is_directory(kind)) {
    throw QbError(kFileNotFound, std::string(kSource), "no such report or folder").at(input);
  }
  auto take = [&found](const fs::directory_entry& e) {
    std::error_code entry;
    if (e.is_regular_file(entry) && !NotAReport(e.path())) found.push_back(e.path());
  };
  if (recursive) {
    // Links to folders are not followed, so a link back up cannot make the walk endless.
    fs::recursive_directory_iterator it(input, ec), end;
    if (ec) throw FolderError(input, ec);
    for (; it != end;) {
      take(*it);
      // The step below enters a folder, or reads on in the one it is in; either may fail.
      std::error_code kind;
      const fs::path at = it->is_directory(kind) ? it->path() : it->path().parent_path();
      it.increment(ec);
      if (ec) throw FolderError(at, ec);
    }
  } else {
    fs::directory_iterator it(input, ec), end;
    if (ec) throw FolderError(input, ec);
    for (; it != end;) {
      take(*it);
      it.increment(ec);
      if (ec) throw FolderError(input, ec);
    }
  }
  std::sort(found.begin(), found.end());
  DropEarlierOutputs(found, type, outputDir);
  if (found.empty()) {
    throw QbError(kFileNotFound, std::string(kSource),
                  recursive ? "no reports in this folder or the folders below it"
                            : "no reports in this folder")
        .at(input);
  }
  return found;
}

}  // namespace

std::string_view ResultName(BatchItem::Result result) {
  switch (result) {
    case BatchItem::Result::Planned:
      return "planned";
    case BatchItem::Result::Done:
      return "done";
    case BatchItem::Result::Findings:
      return "findings";
    case BatchItem::Result::Cancelled:
      return "cancelled";
    case BatchItem::Result::Failed:
      return "failed";
    case BatchItem::Result::Skipped:
      return "skipped";
  }
  return "planned";
}

Batch::Batch(const Application& front, BatchRequest request)
    : front_(front), request_(std::move(request)) {}

Batch::~Batch() {
  Cancel();
}

void Batch::Plan() {
  items_.clear();
  SilentUserInterface silent;
  Application app(front_, silent, /*logging=*/false);
  for (const auto& [key, value] : request_.overrides) app.Settings.Item(key).Value = value;
  std::string type = request_.outputType.empty() ? app.Settings[Key::opfmt] : request_.outputType;
  if (!FormatOfExtension(type)) {
    throw QbError(kInvalidCall, std::string(kSource),
                  "the output type \"" + type + "\" is none of .txt, .csv, .xls and .xlsx");
  }
  // Each report once, however often and however spelt it was named; each path resolved once.
  struct Candidate {
    fs::path report, resolved, output, resolvedOutput;
  };
  std::vector<Candidate> candidates;
  std::set<fs::path> named;
  for (const std::string& input : request_.inputs) {
    for (fs::path& r : Expand(input, request_.recursive, type, request_.outputDir)) {
      fs::path resolved = Resolved(r);
      if (!named.insert(resolved).second) continue;
      const fs::path folder = request_.outputDir.empty() ? r.parent_path() : request_.outputDir;
      fs::path output = folder / (r.stem().string() + type);
      fs::path resolvedOutput = Resolved(output);
      candidates.push_back(
          {std::move(r), std::move(resolved), std::move(output), std::move(resolvedOutput)});
    }
  }
  // A file found that another report of the batch would write, and that was written after
  // that report, is its output of an earlier batch, not a report. An older one may be either:
  // it stays a report, and the one that would write it fails, saying so.
  std::map<fs::path, size_t> writerOf;  // resolved output -> index in `candidates`
  for (size_t i = 0; i < candidates.size(); ++i) {
    if (candidates[i].resolvedOutput != candidates[i].resolved)
      writerOf.emplace(candidates[i].resolvedOutput, i);
  }
  std::vector<const Candidate*> reports;
  std::map<fs::path, const Candidate*> reportAt;  // resolved path -> the report
  std::error_code ec;
  for (size_t i = 0; i < candidates.size(); ++i) {
    if (const auto writer = writerOf.find(candidates[i].resolved);
        writer != writerOf.end() && writer->second != i) {
      const auto written = fs::last_write_time(candidates[i].report, ec);
      if (!ec && written >= fs::last_write_time(candidates[writer->second].report, ec) && !ec)
        continue;
    }
    reportAt.emplace(candidates[i].resolved, &candidates[i]);
    reports.push_back(&candidates[i]);
  }
  std::vector<fs::path> rdfs;  // the RDF folder's, for identification
  if (!request_.rdfDir.empty()) {
    if (!fs::is_directory(request_.rdfDir, ec)) {
      throw QbError(
          kPathNotFound, std::string(kSource),
          fs::exists(request_.rdfDir, ec) ? "the RDF folder is not a folder" : "no such RDF folder")
          .at(request_.rdfDir);
    }
    fs::directory_iterator it(request_.rdfDir, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
      std::error_code entry;
      if (HasExtension(it->path(), ".rdf") && it->is_regular_file(entry))
        rdfs.push_back(it->path());
    }
    if (ec) throw FolderError(request_.rdfDir, ec);
    std::sort(rdfs.begin(), rdfs.end());
  }
  // Auto-find looks in the RDF folder named for the batch, else in that of the settings.
  const std::string autoFindFolder =
      request_.rdfDir.empty() ? app.Settings[Key::rdfdir] : request_.rdfDir.string();
  std::optional<clsSystem> system;
  try {
    system = ParseSystemEntry(app.Settings[Key::pfset], std::string(kSource));
  } catch (const QbError&) {
    // A damaged "pfset": no auto-find; identification or the given RDF still work.
  }
  Engine identify(app);
  std::vector<const fs::path*> resolvedOutputs;  // each item's
  for (const Candidate* candidate : reports) {
    const fs::path& report = candidate->report;
    BatchItem item;
    item.report = report;
    item.output = candidate->output;
    resolvedOutputs.push_back(&candidate->resolvedOutput);
    auto fail = [&](std::string why) {
      item.result = BatchItem::Result::Failed;
      item.message = std::move(why);
    };
    std::string autoFind;
    // Auto-find by a line of the report, and identification, read the report before its run:
    // a pipe would be used up.
    const bool pipe = !fs::is_regular_file(report, ec);
    if (!request_.rdf.empty()) {
      item.rdf = request_.rdf;
      item.rdfChosenBy = "given";
    } else if (pipe) {
      fail("a report that comes through a pipe is not identified: name its RDF with --rdf");
    } else if (std::optional<fs::path> found =
                   system ? FindRdf(report, *system, autoFindFolder) : std::nullopt;
               found && fs::is_regular_file(*found, ec)) {
      item.rdf = *found;
      item.rdfChosenBy = "auto-find";
    } else {
      autoFind = found ? "auto-find looked for " + found->string() + ", which is not there"
                       : "auto-find gives no RDF name for it";
      std::vector<fs::path> accepting;
      for (const fs::path& rdf : rdfs) {
        identify.flags.PdfReport = report.extension() == ".pdf";
        if (identify.Identifies(rdf, report)) accepting.push_back(rdf);
      }
      if (accepting.size() == 1) {
        item.rdf = accepting.front();
        item.rdfChosenBy = "identification";
      } else if (accepting.size() > 1) {
        std::string names;
        for (const fs::path& r : accepting)
          names += (names.empty() ? "" : ", ") + r.filename().string();
        fail("more than one RDF identifies it (" + names + "): name the RDF with --rdf");
      } else {
        fail("no RDF: " + autoFind +
             (request_.rdfDir.empty()
                  ? std::string("; name one, or an RDF folder to identify it in")
                  : "; no RDF of " + request_.rdfDir.string() + " identifies it"));
      }
    }
    if (item.result == BatchItem::Result::Planned) {
      // A report that another report would write is older than that one (see above): it
      // may be a report, or an output of an earlier batch.
      const auto writer = writerOf.find(candidate->resolved);
      if (const auto other = reportAt.find(candidate->resolvedOutput); other != reportAt.end()) {
        if (other->second != candidate) {
          fail("the output would replace " + other->second->report.string() +
               ", older than this report and so taken for a report of the batch: if it is an "
               "earlier output, delete it; if not, write the outputs to another folder");
        } else if (writer != writerOf.end() && &candidates[writer->second] != candidate) {
          fail("older than " + candidates[writer->second].report.string() +
               ", whose output it would be, and so taken for a report: if it is an earlier "
               "output, delete it; if not, write the outputs to another folder");
        } else {
          fail("a report of the output type (" + type +
               ") would be written over itself: write the outputs to another folder");
        }
      } else if (fs::equivalent(item.output, report, ec)) {
        fail("the output would be the report itself");
      } else if (fs::equivalent(item.output, item.rdf, ec)) {
        fail("the output would be the RDF itself");
      }
    }
    items_.push_back(std::move(item));
  }
  // Two reports that would write one output: neither is converted.
  std::map<fs::path, std::vector<size_t>> writers;
  for (size_t i = 0; i < items_.size(); ++i) {
    if (items_[i].result == BatchItem::Result::Planned) writers[*resolvedOutputs[i]].push_back(i);
  }
  for (const auto& [output, indexes] : writers) {
    if (indexes.size() < 2) continue;
    std::string names;
    for (size_t i : indexes) names += (names.empty() ? "" : ", ") + items_[i].report.string();
    for (size_t i : indexes) {
      items_[i].result = BatchItem::Result::Failed;
      items_[i].message = "more than one report of the batch would write " +
                          items_[i].output.string() + " (" + names +
                          "): convert them apart, or rename one";
    }
  }
  for (BatchItem& item : items_) {
    if (item.result != BatchItem::Result::Planned || !fs::exists(item.output, ec)) continue;
    if (request_.existing == BatchRequest::Existing::Skip) {
      item.result = BatchItem::Result::Skipped;
      item.message = "the output exists";
    } else if (request_.existing == BatchRequest::Existing::Refuse) {
      item.result = BatchItem::Result::Failed;
      item.message =
          "the output " + item.output.string() + " exists: overwrite it, or skip such reports";
    }
  }
}

void Batch::Run(const std::function<void(const Progress&)>& progress) {
  std::vector<size_t> todo;
  for (size_t i = 0; i < items_.size(); ++i) {
    if (items_[i].result == BatchItem::Result::Planned) todo.push_back(i);
  }
  const size_t workers = std::min<size_t>(
      todo.size(), request_.jobs > 0 ? static_cast<size_t>(request_.jobs)
                                     : std::max(1u, std::thread::hardware_concurrency()));
  std::mutex& mutex = mutex_;
  std::condition_variable ended;
  size_t next = 0, done = 0;
  int64_t rowsDone = 0, linesDone = 0, bytesDone = 0;
  std::vector<ConversionJob*>& running = running_;
  {
    const std::lock_guard lock(mutex);
    running.assign(workers, nullptr);
  }

  auto work = [&](size_t slot) {
    for (;;) {
      size_t index;
      {
        const std::lock_guard lock(mutex);
        if (next == todo.size()) return;
        index = todo[next++];
      }
      BatchItem& item = items_[index];
      const auto start = std::chrono::steady_clock::now();
      ItemUI ui(request_.existing == BatchRequest::Existing::Overwrite);
      if (cancelled_) {
        item.result = BatchItem::Result::Cancelled;
      } else {
        JobRequest job;
        job.report = item.report;
        job.rdf = item.rdf;
        job.output = item.output;
        job.overrides = request_.overrides;
        // With a job on every core, a writer thread a job only takes turns with the readers.
        job.writerThread = workers < std::max(1u, std::thread::hardware_concurrency());
        job.stop = &cancelled_;
        try {
          ConversionJob conversion(front_, ui, job);
          {
            const std::lock_guard lock(mutex);
            running[slot] = &conversion;
          }
          if (cancelled_) conversion.Abandon();
          const bool ok = conversion.Check() == RunDriver::Check::Ready && conversion.Run();
          {
            const std::lock_guard lock(mutex);
            running[slot] = nullptr;
          }
          const RunStats& stats = conversion.Stats();
          item.rows = stats.linesWritten;
          item.lines = stats.linesProcessed;
          std::string why;
          for (const std::string& f : conversion.Findings()) why += (why.empty() ? "" : "; ") + f;
          if (cancelled_ || stats.cancelled) {
            item.result = BatchItem::Result::Cancelled;
          } else if (!ok) {
            item.result = BatchItem::Result::Failed;
            why = conversion.LastError() ? conversion.LastError()->describe()
                  : !ui.messages.empty() ? ui.messages.front()
                                         : "the run did not start";
          } else {
            item.result = why.empty() ? BatchItem::Result::Done : BatchItem::Result::Findings;
          }
          item.message = why;
        } catch (const JobError& e) {
          item.result = e.kind() == JobError::Kind::Cancelled ? BatchItem::Result::Cancelled
                                                              : BatchItem::Result::Failed;
          item.message = e.what();
        }
      }
      item.time = std::chrono::steady_clock::now() - start;
      {
        const std::lock_guard lock(mutex);
        ++done;
        rowsDone += item.rows;
        linesDone += item.lines;
        std::error_code ec;
        const auto size = fs::file_size(item.report, ec);
        if (!ec) bytesDone += static_cast<int64_t>(size);
      }
      ended.notify_all();
    }
  };

  std::vector<std::thread> threads;
  for (size_t w = 0; w < workers; ++w) threads.emplace_back(work, w);
  // Progress from this thread: when an item ends, and ten times a second between.
  Progress p;
  p.total = todo.size();
  {
    std::unique_lock lock(mutex);
    while (done < todo.size()) {
      ended.wait_for(lock, std::chrono::milliseconds(100));
      p.done = done;
      p.rows = rowsDone;
      p.bytesRead = bytesDone;
      p.lines = linesDone;
      for (const ConversionJob* job : running) {
        if (!job) continue;
        p.lines += job->LinesProcessed();
        p.rows += job->RowsWritten();
      }
      if (progress) {
        lock.unlock();
        progress(p);
        lock.lock();
      }
    }
  }
  for (std::thread& t : threads) t.join();
  {
    const std::lock_guard lock(mutex);
    running.clear();
  }
  if (cancelled_) {
    for (BatchItem& item : items_) {
      if (item.result == BatchItem::Result::Planned) item.result = BatchItem::Result::Cancelled;
    }
  }
}

void Batch::Cancel() {
  cancelled_ = true;
  const std::lock_guard lock(mutex_);
  for (ConversionJob* job : running_) {
    if (job) job->Abandon();  // it writes nothing; the outputs finished before stay
  }
}

std::string ManifestLine(const BatchItem& item) {
  std::string line = "{\"report\":";
  AppendJson(line, item.report.string(), /*escapeBytes=*/true);
  line += ",\"rdf\":";
  AppendJson(line, item.rdf.string(), /*escapeBytes=*/true);
  line += ",\"rdfChosenBy\":";
  AppendJson(line, item.rdfChosenBy);
  line += ",\"output\":";
  AppendJson(line, item.output.string(), /*escapeBytes=*/true);
  line += ",\"result\":";
  AppendJson(line, ResultName(item.result));
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.3f", std::chrono::duration<double>(item.time).count());
  line += ",\"rows\":" + std::to_string(item.rows) + ",\"lines\":" + std::to_string(item.lines) +
          ",\"seconds\":" + seconds + ",\"message\":";
  AppendJson(line, item.message);
  return line + "}";
}

// Reads back what ManifestLine wrote: one flat object of strings and numbers.
BatchItem ParseManifestLine(std::string_view line) {
  auto bad = [&](std::string_view why) {
    return QbError(
        kTypeMismatch, std::string(kSource),
        "not a manifest line (" + std::string(why) + "): " + std::string(line.substr(0, 80)));
  };
  size_t at = 0;
  auto skipBlanks = [&] {
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t' || line[at] == '\r')) ++at;
  };
  auto expect = [&](char c) {
    skipBlanks();
    if (at >= line.size() || line[at] != c) throw bad(std::string("expected ") + c);
    ++at;
  };
  auto text = [&] {
    expect('"');
    std::string out;
    while (at < line.size() && line[at] != '"') {
      char c = line[at++];
      if (c != '\\') {
        out += c;
        continue;
      }
      if (at >= line.size()) throw bad("a cut escape");
      c = line[at++];
      if (c == 'u') {
        unsigned code = 0;
        if (at + 4 > line.size() ||
            std::from_chars(line.data() + at, line.data() + at + 4, code, 16).ptr !=
                line.data() + at + 4 ||
            code > 0xFF) {
          throw bad("an escape of ours is \\u00XX");
        }
        out += static_cast<char>(code);
        at += 4;
      } else {
        out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
      }
    }
    expect('"');
    return out;
  };
  BatchItem item;
  expect('{');
  for (bool first = true;; first = false) {
    skipBlanks();
    if (at < line.size() && line[at] == '}') break;
    if (!first) expect(',');
    const std::string key = text();
    expect(':');
    skipBlanks();
    if (at < line.size() && line[at] == '"') {
      const std::string value = text();
      if (key == "report")
        item.report = value;
      else if (key == "rdf")
        item.rdf = value;
      else if (key == "rdfChosenBy")
        item.rdfChosenBy = value;
      else if (key == "output")
        item.output = value;
      else if (key == "message")
        item.message = value;
      else if (key == "result") {
        bool known = false;
        for (auto r : {BatchItem::Result::Planned, BatchItem::Result::Done,
                       BatchItem::Result::Findings, BatchItem::Result::Cancelled,
                       BatchItem::Result::Failed, BatchItem::Result::Skipped}) {
          if (ResultName(r) == value) {
            item.result = r;
            known = true;
          }
        }
        if (!known) throw bad("an unknown result");
      }
      continue;
    }
    size_t end = line.find_first_of(",}", at);
    if (end == std::string_view::npos) end = line.size();
    const std::string_view number = Trim(line.substr(at, end - at));
    at = end;
    // A count or a time of ours: the whole text a number, and none below 0.
    auto parse = [&](auto& value) {
      const auto [ptr, ec] = std::from_chars(number.data(), number.data() + number.size(), value);
      if (ec != std::errc() || ptr != number.data() + number.size() || number.empty())
        throw bad("a number that is none");
      if (value < 0) throw bad("a number below 0");
    };
    if (key == "rows") {
      parse(item.rows);
    } else if (key == "lines") {
      parse(item.lines);
    } else if (key == "seconds") {
      double seconds = 0;
      parse(seconds);
      item.time = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
          std::chrono::duration<double>(seconds));
    }
  }
  ++at;  // the closing brace
  skipBlanks();
  if (at < line.size()) throw bad("text after the object");
  if (item.report.empty()) throw bad("no report");
  return item;
}

int Batch::ExitStatus() const {
  if (cancelled_) return 130;
  bool findings = false;
  for (const BatchItem& item : items_) {
    if (item.result == BatchItem::Result::Failed) return 1;
    findings = findings || item.result == BatchItem::Result::Findings;
  }
  return findings ? 3 : 0;
}

}  // namespace qb
