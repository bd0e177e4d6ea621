#pragma once
// The trace of a run: for every line piece, the marker row that matched it (by RDF file and
// line), what that row did, each pickup row applied with the text it found and the value it
// left, and every record written, as text for people or as one JSON object a line for
// programs.
//
//   line 8: "  100238  10/06/26  PO-7790       NET 30            310.00"
//     marker ARINV01.rdf:13: rule p at 3,16 "xxxxxx  nn/nn/nn" -> INV (wait slot 1)
//     wait slot 1 completed: the record gathered so far is written
//     row 1: "" | "C10045" | "HARBORVIEW MARINE SUPPLY" | "100231" | ...
//     pickup ARINV01.rdf:24: field 4 at 3,6 rule =: "100238" -> "100238"
//     group 0, sub-group 0, sequence 0
//
// A piece's events are gathered and written when the next piece begins, so that a trace
// limited to unmatched pieces or to a range of lines shows whole pieces.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "engine/run_observer.h"

namespace qb {

struct TraceOptions {
  enum class Format { Text, Jsonl };
  Format format = Format::Text;
  // Report lines to show, both included. Records written at the end of the report are shown
  // when the range reaches the report's last line.
  int64_t from = 1, to = std::numeric_limits<int64_t>::max();
  bool unmatchedOnly = false;  // only the pieces that no marker row matched
  std::string report, rdf;     // the names the trace gives the files
};

class TraceWriter final : public RunObserver {
 public:
  // Writes to `out`, which must stay open while the run goes on. Errors writing it (a closed
  // pipe) are not the run's: they are counted (WriteFailed) and the run goes on.
  TraceWriter(std::FILE* out, TraceOptions options);
  // Hands each piece's text to `emit` instead (the report view keeps it per piece).
  using Emitter = std::function<void(std::string_view)>;
  TraceWriter(Emitter emit, TraceOptions options);

  void Begin(const Alphabet& alphabet) override;
  void Piece(int64_t line, int piece, std::string_view text) override;
  void Marker(const MarkerRow* row) override;
  void WaitSlot(int32_t slot) override;
  void Header(std::span<const std::string_view> labels) override;
  void Row(int32_t number, std::span<const ValueBuffer* const> values) override;
  void Rejected(std::string_view reason) override;
  void Pickup(const PickupRow& row, std::string_view raw, std::string_view value,
              std::string_view held) override;
  void PickupError(const PickupRow& row, const QbError& error) override;
  void State(int group, int subGroup, int sequence) override;
  void LineError(const QbError& error, int64_t rdfLine) override;
  void EndOfReport() override;
  void End() override;

  bool WriteFailed() const { return writeFailed_; }
  // Writes the gathered piece now, when it is one to show, and starts afresh (a piece is
  // otherwise written when the next one begins).
  void Flush();

 private:
  bool Jsonl() const { return options_.format == TraceOptions::Format::Jsonl; }
  void Emit(const std::string& text);
  std::string Where(int64_t rdfLine) const;
  // Text of the report or the RDF as the run holds it (units), in UTF-8 when the run's
  // encoding is not Windows-1252 (whose bytes are shown as they are); valid until the next
  // call.
  std::string_view Chars(std::string_view units);

  const Alphabet* alphabet_ = nullptr;
  std::string chars_;
  std::FILE* out_ = nullptr;
  Emitter emit_;
  TraceOptions options_;
  bool writeFailed_ = false;

  // The piece being gathered.
  bool open_ = false;
  int64_t line_ = 0;
  bool matched_ = false;
  bool atEnd_ = false;
  int64_t lastLine_ = 0;
  std::string text_;  // Text: the lines so far; Jsonl: the object's members so far
  std::string did_;   // Jsonl: none, skip, stop, pickup or dropped
  std::vector<std::string> rows_, pickups_;
};

}  // namespace qb
