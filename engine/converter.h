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
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/bytes.h"
#include "base/text_encoding.h"
#include "engine/engine.h"
#include "engine/pattern.h"
#include "engine/run_observer.h"
#include "output/output_sink.h"

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
  // Where the run is, set by the run driver before each piece: the report line (from 1) and
  // the piece of it (0 for a line without a form feed, else from 1).
  int64_t ReportLine = 0;
  int32_t Piece = 0;
  int64_t PiecesMatched = 0;  // pieces that some marker row matched
};

// A report line that an error dropped (or, in pickup, cut short).
struct LineErrorRecord {
  int64_t line = 0;
  int32_t piece = 0;
  int64_t rdfLine = 0;  // the marker or pickup row that failed; 0 when none is to blame
  bool partly = false;  // a pickup row failed: the line's earlier pickup rows were applied
  QbError error{0, "", ""};
};

// The run's line errors: how many, and the first few.
struct LineErrors {
  static constexpr size_t kKept = 5;
  int64_t count = 0;
  std::vector<LineErrorRecord> first;
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

  // The output settings step: resets the run state, takes the record selection and compiles
  // the tables for the run.
  void PrepareOutput(const OutputOptions& options);
  void SetSink(OutputSink* sink) { sink_ = sink; }
  // What the report's units stand for (set before PrepareOutput): the RDF's marker texts,
  // pickup values and labels are taken into it. Without one, they are used as they stand.
  void SetAlphabet(Alphabet* alphabet) { alphabet_ = alphabet; }
  // Tells `observer` (or nobody, with null) what the run does; set before the run.
  void SetObserver(RunObserver* observer) { observer_ = observer; }
  RunObserver* Observer() const { return observer_; }

  // One line piece, read as kLineWidth characters: cut there, or padded with blanks. Finds
  // the first marker row that matches and processes it. Errors propagate to the caller,
  // which drops the line. The piece must be followed by kCopyBlock readable bytes, as
  // LineReader's lines are: fields are read in whole blocks.
  bool CheckDataMarker(std::string_view line);

  // One piece of report line `line` (from 1): `part` is 0 for a line without a form feed,
  // else 1, 2, ... for the parts the form feeds cut it into. The observer hears of it, then
  // CheckDataMarker; an error drops the piece (DropLine) and the run goes on, but a
  // FatalRunError propagates.
  void HandPiece(std::string_view piece, int64_t line, int32_t part) {
    state_.ReportLine = line;
    state_.Piece = part;
    if (observer_) [[unlikely]]
      observer_->Piece(line, part, piece);
    try {
      CheckDataMarker(piece);
    } catch (FatalRunError&) {
      throw;
    } catch (const QbError& e) {
      DropLine(e);
    }
  }

  // A report line as pieces: a form feed ends a piece and is dropped, so a line holding only
  // one gives two pieces; `formFeed` false says the line holds none. `hand(piece, part)`.
  template <typename F>
  static void SplitPieces(std::string_view line, bool formFeed, F&& hand) {
    int32_t part = 0;
    for (size_t ff; formFeed && (ff = line.find('\f')) != std::string_view::npos;) {
      hand(line.substr(0, ff), ++part);
      line.remove_prefix(ff + 1);
    }
    hand(line, part == 0 ? 0 : part + 1);
  }

  // Writes the record gathered so far (and the header before the first row), then resets
  // wait slots above `level`, the sequences and the field values for the next record.
  void WriteLine(int level);

  // A run-time error that dropped the current piece, raised by the marker row that matched
  // it, if any: reported as below.
  void DropLine(const QbError& error);
  // A run-time error that dropped one line or cut its pickup short: the user sees each
  // distinct error once per run, the log each occurrence up to 1,000, then one line with the
  // count of the rest. The first few are kept with their places (LineErrors).
  void ReportLineError(const QbError& error, int64_t rdfLine, bool partly);
  const LineErrors& Errors() const { return lineErrors_; }
  // Logs how many line errors went unlogged, if any.
  void FinishErrorReport();

  RunState& State() { return state_; }

  // Where a run stands between two pieces: the run state and every field's values. A run
  // restored from a checkpoint goes on exactly as it went on after the piece before it; the
  // report view keeps one every few thousand lines, so that it can trace any part of a
  // report again without reading it from the start.
  struct Checkpoint {
    int32_t linesWritten = 0;
    int16_t currentGroup = 0, subGroupCount = 0, lastGroup = 0, currentSeq = 0;
    std::array<bool, 11> waitSeen{};
    bool stop = false;
    int64_t piecesMatched = 0;
    unsigned current = 0;
    std::vector<std::string> values;  // per field: fldRDE, fldPDE, fldHDE
  };
  Checkpoint Save() const;
  // Back to `checkpoint`, which a Save after the same PrepareOutput made.
  void Restore(const Checkpoint& checkpoint);

  // The type codes of the output columns, in output order (after PrepareOutput).
  std::vector<std::string> ColumnTypes() const {
    std::vector<std::string> types;
    for (const Column& c : columns_) types.push_back(c.type);
    return types;
  }
  Engine& engine() { return engine_; }

  // An output column as the RDF defines it.
  struct ColumnField {
    int32_t field;
    int64_t rdfLine;
    std::string label;
  };
  std::vector<ColumnField> ColumnFields() const;

 private:
  // Where a marker or pickup row reads the line: Mid(line, start, length) worked out once for
  // the fixed line width. A start below 1 or a negative length is kept as `invalid`, so the
  // line that reaches the row fails as Mid would.
  struct Segment {
    uint32_t offset = 0, count = 0;
    bool invalid = false;
    static Segment Of(int64_t start, int64_t length);
    bool Within(std::string_view line) const { return offset + count <= line.size(); }
    std::string_view In(std::string_view line) const { return {line.data() + offset, count}; }
    // The part of the segment the line holds: the rest would be padding blanks.
    std::string_view Clipped(std::string_view line) const {
      if (offset + count <= line.size()) [[likely]]
        return {line.data() + offset, count};
      const size_t from = std::min<size_t>(offset, line.size());
      return {line.data() + from, line.size() - from};
    }
    // The pickup's text: the part the line holds, trimmed (blanks past the line's end would
    // be trimmed away). The line has a block of slack after it.
    std::string_view Trimmed(std::string_view line) const {
      const std::string_view held = Clipped(line);
      return TrimBlock(held.data(), held.size());
    }
  };
  // How a marker row tests its segment. EqualWords is "=" with a text of 1 to 16
  // characters, compared as two masked words (the segment is readable a block past its
  // start). After the tests: NeverEqual is an "=" row whose segment cannot be as long as its
  // text, Invalid fails the line (a start below 1 or a negative length).
  enum class MarkerTest { EqualWords, Equal, Pattern, Contains, NeverEqual, Invalid, Unknown };
  struct MarkerRow {
    Segment at;
    MarkerTest test = MarkerTest::Unknown;
    std::array<uint64_t, 2> words{}, masks{};  // EqualWords: the text and which bytes count
    bool SameWordsAt(const char* p) const {
      uint64_t a, b;
      std::memcpy(&a, p, 8);
      std::memcpy(&b, p + 8, 8);
      return (((a ^ words[0]) & masks[0]) | ((b ^ words[1]) & masks[1])) == 0;
    }
    std::string marker;
    std::string action;       // as stored: text(4), blank-padded
    CompiledPattern pattern;  // rule "p"
    int32_t group = 0, wait = 0, seq = 0;
    bool subGroup = false, skip = false, stop = false, counts = false;
    // As the RDF gives them, for the observer.
    char rule = 0;
    int64_t start = 0, length = 0, rdfLine = 0;
  };
  // What a pickup row does, its rule and action in one.
  enum class PickOp {
    Store,        // "=" (and any rule but "a", "=p"): the trimmed text
    StoreOrSkip,  // "=" "skip": the text, unless it equals the value
    StoreOrPrev,  // "=" "prev": the text, or the previous record's value when it equals the value
    PrevSet,      // "=p" "set": the value, when the field still has the previous record's
    PrevKeep,     // "=p" otherwise: nothing
    Set,
    SetH,
    Cat,
    CatV,
    Get,
    GetC,
    GetZ,
    Hold,
    Keep,     // "a" with that action
    Invalid,  // a start below 1 or a negative length: fails the line, as Mid would
    NoField,  // the RDF has no field of the row's number
  };
  // A field's values. fldRDE and fldPDE are the two `values`, chosen by the run's parity
  // (current_): moving on to the next record flips it instead of copying or swapping.
  struct FieldSlot {
    int32_t number = 0;
    std::array<ValueBuffer, 2> values;
    ValueBuffer hde;
  };
  struct PickupRow {
    Segment at;
    PickOp op = PickOp::Store;
    uint32_t info = 0;           // index of the row's pickupInfo_
    FieldSlot* field = nullptr;  // null for Invalid and NoField
    std::string value;
  };
  // A pickup row as the RDF gives it: for the observer and for messages.
  struct PickupInfo {
    int64_t rdfLine = 0;
    int32_t field = 0;
    int64_t start = 0, length = 0;
    std::string rule, action, value;
    RunObserver::PickupRow View() const {
      return {rdfLine, field, start, length, rule, action, value};
    }
  };
  struct Column {
    int slot;
    std::string type;  // the field's type code: the sink formats the column by it
    std::string label;
    int labelSlot;  // field whose value labels this column, or -1
  };

  // A text of the RDF in the report's units; `held` false when a character could not be.
  std::string RdfText(std::string_view text, bool* held = nullptr);
  std::string_view Padded(std::string_view line);
  void ProcessDataMarker(size_t marker, std::string_view line);
  template <bool kObserved>
  void PickupData(size_t marker, std::string_view line);
  RunObserver::MarkerRow MarkerView(size_t marker) const;
  std::string RejectionReason() const;
  const std::vector<PickupRow>& PickupRows(size_t marker);
  std::string_view ColumnLabel(size_t c) const;
  void WriteRow(bool header, bool write);
  bool WaitSlotTest(int32_t slot);
  void WaitSlotReset(int from);
  void SequenceReset();
  ValueBuffer& Rde(FieldSlot& f) { return f.values[current_]; }
  const ValueBuffer& Rde(const FieldSlot& f) const { return f.values[current_]; }
  void ApplySubGroup(const MarkerRow& m);

  Engine& engine_;
  RunState state_;
  OutputSink* sink_ = nullptr;
  RunObserver* observer_ = nullptr;
  Alphabet* alphabet_ = nullptr;
  const MarkerRow* matched_ = nullptr;  // the row that matched the current piece

  RecordSelection selection_ = RecordSelection::All;

  std::vector<MarkerRow> markers_;
  std::vector<size_t> counting_;  // the markers whose action counts a sequence
  std::vector<FieldSlot> slots_;  // pickup rows point into it: it does not change during a run
  unsigned current_ = 0;          // which of a slot's values is fldRDE
  std::vector<Column> columns_;
  // Per parity and output column, the field value a row takes (an always empty one for a
  // column whose field is missing).
  std::array<std::vector<const ValueBuffer*>, 2> rowSources_;
  ValueBuffer noValue_;
  int recordSlot_ = -1;  // field 1
  std::unordered_map<uint64_t, std::vector<PickupRow>> pickupCache_;
  // Per marker, the pickup rows it used last (consecutive lines mostly share them).
  struct LastPickup {
    uint64_t key = ~uint64_t{0};
    const std::vector<PickupRow>* rows = nullptr;
  };
  std::vector<LastPickup> lastPickup_;
  std::vector<PickupInfo> pickupInfo_;
  std::string filterText_;

  // A line padded with blanks to the full width, for the markers that read past its end;
  // a block more, so segments can be read in whole blocks as the line's can.
  std::array<char, kLineWidth + kCopyBlock> padded_;
  size_t paddedDirty_ = kLineWidth;  // how much of padded_ may hold non-blanks

  // Per-row scratch, reused so the run allocates nothing once warm.
  std::string pickValue_;
  std::vector<std::string_view> labels_;

  std::map<std::pair<std::string, int32_t>, int64_t> errorsSeen_;
  int64_t errorsLogged_ = 0;
  int64_t errorsUnlogged_ = 0;
  LineErrors lineErrors_;
};

}  // namespace qb
