#pragma once
// Many reports in one go: the reports named (files, folders, globs) each with the RDF chosen
// for it and an output of its own, converted by a few worker threads, each report a
// ConversionJob of its own. qbconvert --batch and the window's Convert Many both run this.
//
// A batch is planned on the caller's thread (Plan: the reports found, each one's RDF and
// output, or why it cannot be converted), then run (Run, on any thread); Cancel may come
// from any thread. Results keep the order of the reports as they were named, whatever order
// the jobs finish in.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "settings/application.h"
#include "settings/settings_store.h"

namespace qb {

struct BatchRequest {
  // Files, folders (their reports, the files directly in them unless `recursive`) and glob
  // patterns ("reports/*.txt"), in the order given.
  std::vector<std::string> inputs;
  bool recursive = false;
  int jobs = 0;                     // worker threads; 0: one a core
  std::filesystem::path outputDir;  // empty: each output beside its report
  std::string outputType;           // ".csv", ".txt", ".xls"; empty: the "opfmt" setting
  std::filesystem::path rdf;        // one RDF for every report
  std::filesystem::path rdfDir;     // else: the RDF of this folder that identifies the report
  enum class Existing { Refuse, Overwrite, Skip };
  Existing existing = Existing::Refuse;                // an output that exists already
  std::vector<std::pair<Key, std::string>> overrides;  // --set, for every job
};

// One report of a batch: planned, then run.
struct BatchItem {
  enum class Result {
    Planned,    // to be converted
    Done,       // converted cleanly
    Findings,   // converted, but lines were dropped or nothing matched (exit status 3)
    Cancelled,  // the batch was cancelled before or while it ran
    Failed,     // could not be planned (no RDF, an ambiguous one, an existing output) or run
    Skipped,    // its output existed and the request said to skip such reports
  };
  std::filesystem::path report, rdf, output;
  std::string rdfChosenBy;  // "given", "auto-find", "identification"
  Result result = Result::Planned;
  std::string message;  // why it failed, or its findings, a line each joined by "; "
  int64_t rows = 0, lines = 0;
  std::chrono::steady_clock::duration time{};
};

// The words a manifest and the table use for a result: "done", "findings", "cancelled",
// "failed", "skipped", "planned".
std::string_view ResultName(BatchItem::Result result);

class Batch {
 public:
  // `front`: the settings and program folder every job copies. Messages of the jobs go
  // nowhere: each item keeps its own.
  Batch(const Application& front, BatchRequest request);
  ~Batch();
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  // Finds the reports and chooses each one's RDF and output. Throws QbError when an input
  // names nothing that exists (a file or folder that is not there, a glob that matches
  // nothing).
  void Plan();

  // Converts the planned items on `jobs` threads; returns when all have ended (or were
  // cancelled). `progress` is called on the caller's thread when an item ends and about ten
  // times a second between.
  struct Progress {
    size_t done = 0, total = 0;  // items ended / planned
    int64_t rows = 0;            // rows written so far, the running items' too
    int64_t bytesRead = 0;       // report bytes of the items ended
    int64_t lines = 0;           // report lines read so far, the running items' too
  };
  void Run(const std::function<void(const Progress&)>& progress = {});
  // From any thread: every running job stops at its next line and writes nothing; items not
  // started are cancelled. Outputs that were finished stay.
  void Cancel();

  const std::vector<BatchItem>& Items() const { return items_; }
  // 0 when every item is Done (or Skipped), 3 when some have findings and none failed, 1
  // when any failed, 130 after Cancel.
  int ExitStatus() const;

 private:
  const Application& front_;
  BatchRequest request_;
  std::vector<BatchItem> items_;
  std::atomic<bool> cancelled_{false};
  std::mutex mutex_;                           // guards running_ while Run goes on
  std::vector<class ConversionJob*> running_;  // each worker's job, or null
};

// A batch's results as JSON Lines, one object an item: report, rdf, rdfChosenBy, output,
// result, rows, lines, seconds, message.
std::string ManifestLine(const BatchItem& item);
// Reads manifest lines back (those of --merge-manifests). Throws QbError on a line that is
// not one of ours.
BatchItem ParseManifestLine(std::string_view line);

}  // namespace qb
