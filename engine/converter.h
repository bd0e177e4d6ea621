#pragma once
// Record identification, data pickup and the output writer: what happens to each 500-character
// line piece of a report.
//
// PrepareOutput compiles the marker, pickup and field tables into plain arrays for the run
// (rules and actions as enums, output columns in order), so the per-line path does no table
// look-ups by name, no text parsing and, once warm, no allocation. The pickup rows for a
// record type, sequence and group are chosen with the filter text the pickup rule describes,
// applied through the table once per combination and remembered.

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/engine.h"
#include "engine/output_sink.h"
#include "engine/row_formatter.h"
#include "engine/text.h"

namespace qb {

// The state of one run. Reset by PrepareOutput.
struct RunState {
  std::atomic<bool> CancelFlag{false};  // set from the front end, tested before each line
  bool StopFlag = false;
  bool LastWriteFlag = false;
  int32_t LinesWritten = 0;
  int16_t CurrentGroup = 0;
  int16_t SubGroupCount = 0;
  int16_t LastGroup = 0;
  int16_t CurrentSeq = 0;
  std::array<bool, 11> WaitSeen{};  // slots 1 to 10
};

// An error that ends the run instead of dropping one line (the output cannot be written).
class FatalRunError : public QbError {
 public:
  explicit FatalRunError(const QbError& e) : QbError(e) {}
};

class Converter {
 public:
  static constexpr size_t kLineWidth = 500;

  explicit Converter(Engine& engine) : engine_(engine) {}

  // The output settings step: resets the run state, reads "delim", "textq", "tqswt",
  // "opfmt" and "rtype", and compiles the tables for the run.
  void PrepareOutput();
  void SetSink(OutputSink* sink) { sink_ = sink; }
  OutputFormat Format() const { return format_; }
  // The formatting of this run's rows, for a sink that formats them itself.
  const RowFormatter& Formatter() const { return formatter_; }

  // One line piece, exactly kLineWidth characters. Finds the first marker row that matches
  // and processes it. Errors propagate to the caller, which drops the line.
  bool CheckDataMarker(std::string_view line);

  // Writes the record gathered so far (and the header before the first row), then resets
  // wait slots above `level`, the sequences and the field values for the next record.
  void WriteLine(int level);

  // A run-time error that dropped one line: the user sees each distinct error once per run,
  // the log each occurrence up to 1,000, then one line with the count of the rest.
  void ReportLineError(const QbError& error);
  // Logs how many line errors went unlogged, if any.
  void FinishErrorReport();

  RunState& State() { return state_; }
  // The type codes of the output columns, in output order (after PrepareOutput).
  std::vector<std::string> ColumnTypes() const {
    std::vector<std::string> types;
    for (const Column& c : columns_) types.push_back(c.type);
    return types;
  }
  Engine& engine() { return engine_; }

  // The compiled tables, exposed for the window's and the tests' inspection.
  struct MarkerRow {
    int32_t start = 0, length = 0;
    char rule = 0;
    std::string marker;
    std::string action;  // as stored: text(4), blank-padded
    int32_t group = 0, wait = 0, seq = 0;
    bool subGroup = false, skip = false, stop = false, counts = false;
  };

 private:
  enum class PickRule { Equal, Action, EqualPrev, Other };
  enum class PickAct { None, Skip, Prev, Set, SetH, Cat, CatV, Get, GetC, GetZ, Hold, Keep };
  struct PickupRow {
    int32_t start = 0, length = 0;
    PickRule rule = PickRule::Other;
    PickAct act = PickAct::None;
    std::string value;
    int slot = -1;  // output field row, -1 when the RDF has none of that number
  };
  struct FieldSlot {
    int32_t number = 0;
    ValueBuffer rde, pde, hde;
  };
  struct Column {
    int slot;
    std::string type;  // the field's type code
    bool numeric, text;
    std::string label;
    int labelSlot;  // field whose value labels this column, or -1
  };

  void ProcessDataMarker(size_t marker, std::string_view line);
  void PickupData(size_t marker, std::string_view line);
  const std::vector<PickupRow>& PickupRows(size_t marker);
  bool WaitSlotTest(int32_t slot);
  void WaitSlotReset(int from);
  void SequenceReset();
  void ApplySubGroup(const MarkerRow& m);

  Engine& engine_;
  RunState state_;
  OutputSink* sink_ = nullptr;

  OutputFormat format_ = OutputFormat::Txt;
  std::string delimiter_;
  std::string qualifier_;
  bool qualify_ = false;
  enum class Selection { All, Details, Totals } selection_ = Selection::All;

  std::vector<MarkerRow> markers_;
  std::vector<FieldSlot> slots_;
  std::vector<Column> columns_;
  int recordSlot_ = -1;  // field 1
  std::unordered_map<uint64_t, std::vector<PickupRow>> pickupCache_;
  std::string filterText_;

  // Per-row scratch, reused so the run allocates nothing once warm.
  std::string pickValue_;
  RowFormatter formatter_;
  std::vector<std::string_view> values_;

  std::map<std::pair<std::string, int32_t>, int64_t> errorsSeen_;
  int64_t errorsLogged_ = 0;
  int64_t errorsUnlogged_ = 0;
};

}  // namespace qb
