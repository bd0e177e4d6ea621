#pragma once
// What a run does to each line piece, told as it happens: the trace and the RDF checker's
// report read a run through this. A run without an observer pays one test of a null pointer
// per piece and per record written; the pickup loop is compiled twice, so that the plain
// run's loop tests nothing.
//
// Each event does nothing unless overridden: an observer hears only what it asks for.
//
// First Begin, with the alphabet of the run's text. For each piece, in this order: Piece (from the
// run driver), then Marker (the row that matched, or none); for a matched row WaitSlot when it
// completed a record (the Header, Row or Rejected of that record follow), each Pickup or
// PickupError, then State. A piece the run dropped gets LineError. At the end of the report (or at
// a stop): EndOfReport, the last record (Header, Row or Rejected), then End.

#include <cstdint>
#include <span>
#include <string_view>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/text_encoding.h"

namespace qb {

class RunObserver {
 public:
  // A marker row as the run uses it; `index` is its place in the marker table.
  struct MarkerRow {
    size_t index = 0;
    int64_t rdfLine = 0;
    char rule = 0;
    int64_t start = 0, length = 0;
    std::string_view text;
    std::string_view action;  // "skip", "stop" or the record name, as the table keeps it
    int32_t group = 0, wait = 0;
    bool subGroup = false;
  };
  // A pickup row as the run uses it.
  struct PickupRow {
    int64_t rdfLine = 0;
    int32_t field = 0;
    int64_t start = 0, length = 0;
    std::string_view rule, action, value;
  };

  virtual ~RunObserver() = default;

  // The run begins. Its text, and so every piece, value and label told after this, is in the
  // units of `alphabet` (base/text_encoding.h), which lasts until End.
  virtual void Begin(const Alphabet& /*alphabet*/) {}

  // A piece of report line `line` (counted from 1). `piece` is 0 for a line without a form
  // feed, else 1, 2, ... for the parts the form feeds cut it into.
  virtual void Piece(int64_t /*line*/, int /*piece*/, std::string_view /*text*/) {}
  // The row that matched the piece, or null when none did.
  virtual void Marker(const MarkerRow* /*row*/) {}
  // The matched row's wait slot had been seen: the record gathered so far is written now.
  virtual void WaitSlot(int32_t /*slot*/) {}
  virtual void Header(std::span<const std::string_view> /*labels*/) {}
  // A record written, `number` counted from 1, its values in column order.
  virtual void Row(int32_t /*number*/, std::span<const ValueBuffer* const> /*values*/) {}
  // A record that record selection did not write, and why.
  virtual void Rejected(std::string_view /*reason*/) {}
  // A pickup row applied: the text in its segment (trimmed), the field's value afterwards
  // and its held value afterwards.
  virtual void Pickup(const PickupRow& /*row*/, std::string_view /*raw*/,
                      std::string_view /*value*/, std::string_view /*held*/) {}
  // A pickup row failed; the piece's later pickup rows were skipped.
  virtual void PickupError(const PickupRow& /*row*/, const QbError& /*error*/) {}
  // The run state after the piece: what the next pickup rows are chosen by.
  virtual void State(int /*group*/, int /*subGroup*/, int /*sequence*/) {}
  // The piece was dropped because of `error`, raised by the row of RDF line `rdfLine` (0
  // when no row is to blame).
  virtual void LineError(const QbError& /*error*/, int64_t /*rdfLine*/) {}
  // The report is read (or a stop row ended the run): the last record is written next.
  virtual void EndOfReport() {}
  // The last record is written.
  virtual void End() {}
};

}  // namespace qb
