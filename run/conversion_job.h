#pragma once
// One conversion as both front ends run it: a report, its RDF, an output, and the settings
// they run with.
//
// A job is prepared on the caller's thread: the RDF loaded (or a front end's loaded RDF
// copied), the settings and overrides applied, the output options parsed once. Run may then
// go on any thread: it touches only the job's own copies of the settings, the RDF tables and
// the run state, so two jobs share nothing they change, and the window can go on showing and
// editing its own tables while a job runs. Cancel and Abandon may come from any thread.

#include <atomic>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/temp_file.h"
#include "engine/engine.h"
#include "output/output_options.h"
#include "run/run_driver.h"
#include "settings/application.h"

namespace qb {

struct JobRequest {
  std::filesystem::path report;
  std::filesystem::path rdf;     // empty: found from the report through "pfset" in "rdfdir"
  std::filesystem::path output;  // empty: the RDF is only loaded (to list or save it)
  // Settings given for this job (qbconvert's --set): applied before the RDF is found and
  // loaded, and again after, so that they win over the RDF's own setting records.
  std::vector<std::pair<Key, std::string>> overrides;
  // The fields to output, in this order; every other field is not output. Empty: as the RDF
  // (or the window's grid) says.
  std::vector<int> fields;
  bool launch = false;  // open a finished workbook in the spreadsheet program
  // Read the report through without writing any output: the run is watched (a trace, the
  // RDF checker's report) and `output` is not used.
  bool noOutput = false;
  // A text output's rows formatted on a thread of their own (see OutputOptions): off for the
  // jobs of a batch that gives every core a job already.
  bool writerThread = true;
  // Set from another thread while the job is prepared, it stops the copy of a piped report
  // (JobError::Kind::Cancelled).
  const std::atomic<bool>* stop = nullptr;
};

// A job that cannot be prepared, in words for the user.
class JobError : public std::runtime_error {
 public:
  enum class Kind {
    Failed,       // the RDF cannot be found or loaded, or the settings do not fit the output
    NoSuchField,  // the request's field list names a field the RDF lacks
    Cancelled,    // the request's stop was set while the job was prepared
  };
  JobError(Kind kind, const std::string& what) : std::runtime_error(what), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

class ConversionJob {
 public:
  // Loads the RDF the request names, or the one auto-find picks for the report, with
  // `front`'s settings and the request's overrides; the output type follows the output's
  // extension. Messages go to `ui`. Throws JobError.
  ConversionJob(const Application& front, UserInterface& ui, JobRequest request);
  // Takes `loaded`'s RDF as the front end holds it now (the grid's choices included) and
  // `front`'s settings as they are now. Throws JobError for a bad field list.
  ConversionJob(const Application& front, UserInterface& ui, const Engine& loaded,
                JobRequest request);
  ConversionJob(const ConversionJob&) = delete;
  ConversionJob& operator=(const ConversionJob&) = delete;

  // The Run button's checks (see RunDriver::CheckRun), on the caller's thread: they may ask.
  RunDriver::Check Check();
  // The conversion: preprocessing, the pass over the report, the output finished (or, after
  // a failure or Abandon, dropped), then the launch. False when it failed; LastError says
  // why, and the error was shown and logged.
  bool Run();

  // Tells `observer` what the run does, line by line (see RunObserver); before Run.
  void Observe(RunObserver* observer) { driver_->converter().SetObserver(observer); }

  // What a finished run should tell its user besides its figures, a line each: the report
  // lines that errors dropped (how many, the first few with their report and RDF lines), or
  // that no line matched any marker, with `advice` on what to do then. Empty when there is
  // nothing to tell. Run also logs them.
  static constexpr std::string_view kNothingMatchedAdvice = "check the RDF with --check --report";
  std::vector<std::string> Findings(std::string_view advice = kNothingMatchedAdvice) const;

  // The run stops at the next line; the rows so far are written.
  void Cancel() { driver_->State().CancelFlag = true; }
  // The run stops at the next line and writes nothing: a previous output stays as it was.
  void Abandon() { driver_->Abandon(); }

  const JobRequest& Request() const { return request_; }
  const OutputOptions& Options() const { return driver_->Options(); }
  const RunStats& Stats() const { return driver_->Stats(); }
  const std::optional<QbError>& LastError() const { return driver_->LastError(); }
  // Lines handed on so far; may be read from another thread while the job runs.
  int64_t LinesProcessed() const { return driver_->LinesProcessed(); }
  int32_t RowsWritten() const { return driver_->RowsWritten(); }
  // The output columns as the RDF defines them (after Run).
  std::vector<Converter::ColumnField> ColumnFields() const {
    return driver_->converter().ColumnFields();
  }
  // The type codes of the output columns, in output order (once Run has begun).
  std::vector<std::string> ColumnTypes() const { return driver_->converter().ColumnTypes(); }
  // The job's own RDF tables (to list or save them before a run).
  Engine& engine() { return engine_; }

 private:
  void ApplyOverrides();
  void ApplyFieldList();
  void MakeDriver();
  void SpoolReport();

  JobRequest request_;
  Application app_;
  Engine engine_;
  // What is read as the report: the request's, or the copy of a report that comes through a
  // pipe and is read to load the RDF, in a work folder of the job's own.
  std::filesystem::path reportFile_;
  std::optional<RunFolder> spoolFolder_;
  std::optional<TempFile> spooled_;
  std::optional<RunDriver> driver_;  // made once the settings are final
};

}  // namespace qb
