#pragma once
// The report view's reading of a report: its lines, and what the run does to each of them,
// worked out on a thread of the tracer's own so that the window never waits for it.
//
// A tracer takes a copy of the window's RDF (the grid's choices included) and settings, and
// the report. Its thread turns a PDF or delimited report into the text the run reads, then
// indexes the lines (the offset of every kIndexStep-th line), then traces the report from
// its start as far as the view asks, keeping the run's state at the start of every block of
// kBlock lines. The blocks the view shows are traced again from their checkpoints, with
// every detail, and only the last few of those are kept: a report of gigabytes costs the
// index and the checkpoints, and scrolling back to any part of it costs one block's trace.
//
// Every public call may come from any thread; none of them waits for the tracer's work.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/line_reader.h"
#include "base/temp_file.h"
#include "engine/converter.h"
#include "engine/engine.h"
#include "engine/report_text.h"
#include "settings/application.h"

namespace qb {

// What the run did to one piece of a report line.
struct PieceTrace {
  enum class Did : uint8_t { Nothing, Pickup, Skip, Stop, Dropped };
  struct Segment {
    int32_t start = 0, length = 0;  // columns of the piece, from 1
  };
  int32_t piece = 0;    // 0 for a line without a form feed, else 1, 2, ...
  int32_t marker = -1;  // the marker row that matched (an index of Markers()), or -1
  Did did = Did::Nothing;
  std::vector<Segment> pickups;  // the segments the pickup rows read
  std::string detail;            // the trace's words for the piece
};

// What the run did to one report line: a piece a form feed cut, or just the line. No piece
// at all: the run never read the line (a stop row ended it earlier).
struct LineTrace {
  std::vector<PieceTrace> pieces;
};

// The traces of kBlock lines from `first`; never changed once made.
struct TracedBlock {
  int64_t first = 1;
  std::vector<LineTrace> lines;
  const LineTrace* At(int64_t line) const {
    const int64_t i = line - first;
    return i >= 0 && i < static_cast<int64_t>(lines.size()) ? &lines[static_cast<size_t>(i)]
                                                            : nullptr;
  }
};

// A marker row, and how many pieces it matched in the part of the report traced so far.
struct MarkerTally {
  std::string action;  // the record name, "skip" or "stop"
  int64_t rdfLine = 0;
  int64_t pieces = 0;
};

struct TracerStatus {
  bool textReady = false;  // the text the run reads is there (a PDF's is made first)
  int64_t lines = 0;       // lines indexed so far
  bool indexed = false;    // ... and that is every line
  int64_t traced = 0;      // lines traced from the start
  bool complete = false;   // the trace reached the end, or the stop row
  int64_t stopLine = 0;    // the line a stop row matched, or 0
  std::string error;       // why the tracer gave up, in words for the user
  std::string untraced;    // why the lines are shown but not traced (the settings)
};

class ReportTracer {
 public:
  static constexpr int64_t kIndexStep = 512;
  static constexpr int64_t kBlock = 2048;
  static constexpr int64_t kKeptBlocks = 8;
  static constexpr size_t kShownWidth = 2000;  // characters of each piece Text() reads

  // `changed` is called on the tracer's thread whenever there is more to show; it must not
  // call back into the tracer, only arrange for the view to look again.
  ReportTracer(const Application& front, const Engine& loaded, std::filesystem::path report,
               std::filesystem::path rdf, std::function<void()> changed);
  ~ReportTracer();
  ReportTracer(const ReportTracer&) = delete;
  ReportTracer& operator=(const ReportTracer&) = delete;

  TracerStatus Status() const;
  // The text of lines first to first + count - 1 (from 1) as far as they are indexed, each
  // piece cut to kShownWidth characters, form feeds kept. Reads the file: a few blocks at
  // most, so a view may call it on its own thread.
  std::vector<std::string> Text(int64_t first, int64_t count) const;
  // What the text's bytes stand for, once Status().textReady: UTF-8 text is shown decoded,
  // any other through the alphabet.
  const Alphabet& TextAlphabet() const { return units_->alphabet(); }
  // The view shows lines first to last: they are traced in full, and the report up to them.
  void Want(int64_t first, int64_t last);
  // The whole report is to be traced (the view lists the unmatched lines).
  void TraceAll();

  // The traced block holding `line`, or null when it is not traced yet.
  std::shared_ptr<const TracedBlock> Block(int64_t line) const;
  std::vector<MarkerTally> Markers() const;
  // Lines that no marker row matched (blank ones left out), in order: how many so far, and
  // `count` of them from the `from`-th.
  size_t UnmatchedCount() const;
  std::vector<int64_t> Unmatched(size_t from, size_t count) const;

 private:
  class TallyObserver;
  class DetailObserver;
  struct Checkpoint {
    int64_t offset = 0;
    Converter::Checkpoint state;
  };

  void Work();
  void Prepare();
  void PrepareRun();
  void Index();
  void Forward();
  void Detail(int64_t block);
  // Reads lines from `reader` (at line `line`) through `last`, piece by piece, into
  // `converter`; false when the run stopped or the text ended.
  bool TraceLines(LineReader& reader, Converter& converter, int64_t& line, int64_t last);
  // The next block the view waits for that can be traced in full now, or -1.
  int64_t NextWantedBlock() const;
  void Changed();

  SilentUserInterface silent_;
  Application app_;
  Engine engine_;
  Converter forward_, detail_;
  const std::filesystem::path report_, rdf_;  // the trace's words name them
  std::function<void()> changed_;
  std::unique_ptr<OutputSink> sink_ = DiscardingSink();
  std::optional<RunFolder> work_;
  std::optional<TempFile> text_;  // a PDF's or delimited report's text, or a print file's
  std::optional<ReportText> units_;
  std::filesystem::path textPath_;
  std::unique_ptr<LineReader> forwardReader_;
  std::unique_ptr<TallyObserver> tally_;

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::atomic<bool> stop_{false};
  TracerStatus status_;
  std::vector<int64_t> index_;                          // offset of lines 1, 1 + kIndexStep, ...
  std::vector<Checkpoint> checkpoints_;                 // at lines 1, 1 + kBlock, ...
  std::list<std::shared_ptr<const TracedBlock>> kept_;  // the latest first
  std::vector<MarkerTally> markers_;
  std::vector<int64_t> unmatched_;
  int64_t wantFirst_ = 1, wantLast_ = 0;
  bool all_ = false;
  std::chrono::steady_clock::time_point told_{};

  std::thread thread_;  // last: started once everything above is made
};

}  // namespace qb
