#include "engine/converter.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/bytes.h"
#include "engine/pattern.h"

namespace qb {
namespace {

[[noreturn]] void ThrowOverflow(const char* source) {
  throw QbError::Runtime(kOverflow, source);
}

// Inline: the marker path narrows three values a line.
inline int16_t Narrow16(int64_t v, const char* source) {
  if (v < std::numeric_limits<int16_t>::min() || v > std::numeric_limits<int16_t>::max())
      [[unlikely]] {
    ThrowOverflow(source);
  }
  return static_cast<int16_t>(v);
}

// Appends a number to `out` without allocating.
void AppendInt(std::string& out, int64_t v) {
  char digits[24];
  auto r = std::to_chars(digits, digits + sizeof digits, v);
  out.append(digits, r.ptr);
}

// A filter value in single quotes, with quotes doubled.
void AppendQuotedLiteral(std::string& out, std::string_view text) {
  out += '\'';
  for (char c : text) {
    if (c == '\'') out += '\'';
    out += c;
  }
  out += '\'';
}

}  // namespace

std::string Converter::RdfText(std::string_view text, bool* held) {
  if (held) *held = true;
  if (!alphabet_) return std::string(text);
  return alphabet_->Units(text, engine_.flags.RdfUtf8, held);
}

void Converter::PrepareOutput(const OutputOptions& options) {
  state_.CancelFlag = false;
  state_.StopFlag = false;
  state_.LastWriteFlag = false;
  state_.LinesWritten = 0;
  state_.CurrentGroup = state_.SubGroupCount = state_.LastGroup = state_.CurrentSeq = 0;
  state_.WaitSeen.fill(false);
  state_.ReportLine = 0;
  state_.Piece = 0;
  state_.PiecesMatched = 0;
  matched_ = nullptr;

  selection_ = options.selection;

  RdfTables& t = engine_.tables;
  markers_.clear();
  counting_.clear();
  Recordset& m = t.rsMarkers;
  m.Sort("");
  m.Filter("");
  for (m.MoveFirst(); !m.IsEOF(); m.MoveNext()) {
    MarkerRow r;
    const int64_t length = m.GetInt(col::Markers::fldLEN);
    r.at = Segment::Of(m.GetInt(col::Markers::fldSTR), length);
    const std::string_view ruleText = m.GetText(col::Markers::fldRUL);
    const char rule = ruleText.empty() ? '\0' : ruleText.front();
    bool held = true;
    r.marker = RdfText(m.GetText(col::Markers::fldMRK), &held);
    r.action = m.GetText(col::Markers::fldACT);
    r.group = static_cast<int32_t>(m.GetInt(col::Markers::fldGRP));
    r.wait = static_cast<int32_t>(m.GetInt(col::Markers::fldWTS));
    r.subGroup = m.GetBool(col::Markers::fldSGR);
    r.rule = rule;
    r.start = m.GetInt(col::Markers::fldSTR);
    r.length = length;
    r.rdfLine = m.GetInt(col::Markers::fldLIN);
    if (rule == 'p')
      r.pattern = CompiledPattern(r.marker, static_cast<size_t>(std::max<int64_t>(length, 0)));
    r.test = rule == '='
                 ? (r.at.count == r.marker.size() ? MarkerTest::Equal : MarkerTest::NeverEqual)
             : rule == 'p' ? MarkerTest::Pattern
             : rule == 'x' ? MarkerTest::Contains
                           : MarkerTest::Unknown;
    if (r.test == MarkerTest::Equal && !r.marker.empty() && r.marker.size() <= kCopyBlock) {
      std::array<char, kCopyBlock> text{}, mask{};
      std::memcpy(text.data(), r.marker.data(), r.marker.size());
      std::memset(mask.data(), 0xff, r.marker.size());
      std::memcpy(r.words.data(), text.data(), kCopyBlock);
      std::memcpy(r.masks.data(), mask.data(), kCopyBlock);
      r.test = MarkerTest::EqualWords;
    }
    // A text with a character the report's encoding cannot hold is on no line of it.
    if (!held && (rule == '=' || rule == 'x')) r.test = MarkerTest::NeverEqual;
    if (r.at.invalid && r.test != MarkerTest::Unknown) r.test = MarkerTest::Invalid;
    r.skip = r.action == "skip";
    r.stop = r.action == "stop";
    r.counts = !r.action.empty() && r.action.front() == 'S';
    if (r.counts) counting_.push_back(markers_.size());
    markers_.push_back(std::move(r));
  }

  slots_.clear();
  current_ = 0;
  Recordset& f = t.rsFields;
  f.Sort("");
  f.Filter("");
  for (f.MoveFirst(); !f.IsEOF(); f.MoveNext()) {
    slots_.push_back({static_cast<int32_t>(f.GetInt(col::Fields::fldFLD)), {}, {}});
  }
  auto slotOf = [this](int64_t number) {
    for (size_t i = 0; i < slots_.size(); ++i) {
      if (slots_[i].number == number) return static_cast<int>(i);
    }
    return -1;
  };
  recordSlot_ = slotOf(1);

  // Output columns: fields to output, by order (a stable sort, as the table sorts).
  columns_.clear();
  f.Sort("fldORD");
  for (f.MoveFirst(); !f.IsEOF(); f.MoveNext()) {
    if (!f.GetBool(col::Fields::fldOUT)) continue;
    std::string_view type = f.GetText(col::Fields::fldTYP);
    std::string label;
    for (char c : f.GetText(col::Fields::fldLAB)) {
      if (c != '[' && c != ']') label += c;
    }
    const int64_t dlb = f.GetInt(col::Fields::fldDLB);
    columns_.push_back({slotOf(f.GetInt(col::Fields::fldFLD)), std::string(type),
                        RdfText(Trim(label)), dlb > 0 ? slotOf(dlb) : -1});
  }
  f.Sort("");
  labels_.assign(columns_.size(), std::string_view());
  for (unsigned parity : {0u, 1u}) {
    rowSources_[parity].clear();
    for (const Column& c : columns_) {
      rowSources_[parity].push_back(
          c.slot >= 0 ? &slots_[static_cast<size_t>(c.slot)].values[parity] : &noValue_);
    }
  }
  padded_.fill(' ');
  paddedDirty_ = 0;
  pickupCache_.clear();
  lastPickup_.assign(markers_.size(), LastPickup());
  pickupInfo_.clear();
  errorsSeen_.clear();
  errorsLogged_ = errorsUnlogged_ = 0;
  lineErrors_ = LineErrors();
}

Converter::Checkpoint Converter::Save() const {
  Checkpoint c;
  c.linesWritten = state_.LinesWritten;
  c.currentGroup = state_.CurrentGroup;
  c.subGroupCount = state_.SubGroupCount;
  c.lastGroup = state_.LastGroup;
  c.currentSeq = state_.CurrentSeq;
  c.waitSeen = state_.WaitSeen;
  c.stop = state_.StopFlag;
  c.piecesMatched = state_.PiecesMatched;
  c.current = current_;
  c.values.reserve(3 * slots_.size());
  for (const FieldSlot& f : slots_) {
    c.values.emplace_back(f.values[0].view());
    c.values.emplace_back(f.values[1].view());
    c.values.emplace_back(f.hde.view());
  }
  return c;
}

void Converter::Restore(const Checkpoint& c) {
  if (c.values.size() != 3 * slots_.size())
    throw QbError(kInternalError, "Restore", "the checkpoint is of another run");
  state_.LinesWritten = c.linesWritten;
  state_.CurrentGroup = c.currentGroup;
  state_.SubGroupCount = c.subGroupCount;
  state_.LastGroup = c.lastGroup;
  state_.CurrentSeq = c.currentSeq;
  state_.WaitSeen = c.waitSeen;
  state_.StopFlag = c.stop;
  state_.LastWriteFlag = false;
  state_.PiecesMatched = c.piecesMatched;
  current_ = c.current;
  matched_ = nullptr;
  for (size_t i = 0; i < slots_.size(); ++i) {
    slots_[i].values[0].assign(std::string_view(c.values[3 * i]));
    slots_[i].values[1].assign(std::string_view(c.values[3 * i + 1]));
    slots_[i].hde.assign(std::string_view(c.values[3 * i + 2]));
  }
}

std::vector<Converter::ColumnField> Converter::ColumnFields() const {
  std::vector<ColumnField> fields;
  Recordset f = engine_.tables.rsFields.Clone();
  for (const Column& c : columns_) {
    ColumnField field{0, 0, c.label};
    if (c.slot >= 0) {
      field.field = slots_[static_cast<size_t>(c.slot)].number;
      f.MoveFirst();
      f.Find("fldFLD = " + std::to_string(field.field));
      if (!f.IsEOF()) field.rdfLine = f.GetInt(col::Fields::fldLIN);
    }
    fields.push_back(std::move(field));
  }
  return fields;
}

RunObserver::MarkerRow Converter::MarkerView(size_t index) const {
  const MarkerRow& m = markers_[index];
  return {index,    m.rdfLine, m.rule,  m.start, m.length,
          m.marker, m.action,  m.group, m.wait,  m.subGroup};
}

Converter::Segment Converter::Segment::Of(int64_t start, int64_t length) {
  Segment at;
  if (start < 1 || length < 0) {
    at.invalid = true;
    return at;
  }
  const auto width = static_cast<uint64_t>(kLineWidth);
  const uint64_t offset = std::min(static_cast<uint64_t>(start - 1), width);
  at.offset = static_cast<uint32_t>(offset);
  at.count = static_cast<uint32_t>(std::min(static_cast<uint64_t>(length), width - offset));
  return at;
}

std::string_view Converter::Padded(std::string_view line) {
  std::memcpy(padded_.data(), line.data(), line.size());
  if (paddedDirty_ > line.size()) {
    std::memset(padded_.data() + line.size(), ' ', paddedDirty_ - line.size());
  }
  paddedDirty_ = line.size();
  return {padded_.data(), kLineWidth};
}

static_assert(kCopyBlock >= CompiledPattern::kBlockSlack);

bool Converter::CheckDataMarker(std::string_view line) {
  if (line.size() > kLineWidth) line = line.substr(0, kLineWidth);
  matched_ = nullptr;
  std::string_view padded;  // made when a marker first reads past the line's end
  const MarkerRow* const first = markers_.data();
  const MarkerRow* const last = first + markers_.size();
  for (const MarkerRow* m = first; m != last; ++m) {
    if (m->test >= MarkerTest::NeverEqual) [[unlikely]] {
      if (m->test == MarkerTest::NeverEqual) continue;  // never as long as the marker
      if (m->test == MarkerTest::Invalid) {
        matched_ = m;
        ThrowInvalidCall("CheckDataMarker");
      }
      break;  // an unknown rule ends the search
    }
    const bool within = m->at.Within(line);
    if (!within && padded.empty()) padded = Padded(line);
    const std::string_view seg = m->at.In(within ? line : padded);
    bool match;
    if (m->test == MarkerTest::EqualWords) [[likely]] {
      match = m->SameWordsAt(seg.data());
    } else if (m->test == MarkerTest::Pattern) {
      match = m->pattern.Matches(seg);
    } else if (m->test == MarkerTest::Equal) {
      match = SameBytes(seg.data(), m->marker.data(), seg.size());
    } else {
      match = seg.find(m->marker) != std::string_view::npos;
    }
    if (match) {
      matched_ = m;
      ProcessDataMarker(static_cast<size_t>(m - first), line);
      return true;
    }
  }
  if (observer_) [[unlikely]]
    observer_->Marker(nullptr);
  return true;
}

void Converter::ProcessDataMarker(size_t index, std::string_view line) {
  MarkerRow& m = markers_[index];
  ++state_.PiecesMatched;
  if (observer_) [[unlikely]] {
    const RunObserver::MarkerRow view = MarkerView(index);
    observer_->Marker(&view);
  }
  if (m.skip) {
    if (m.group != 0) {
      state_.CurrentGroup = Narrow16(std::abs(static_cast<int64_t>(m.group)), "ProcessDataMarker");
      SequenceReset();
    }
    if (observer_) [[unlikely]]
      observer_->State(state_.CurrentGroup, state_.SubGroupCount, state_.CurrentSeq);
    return;
  }
  if (m.stop) {
    state_.StopFlag = true;
    return;
  }
  if (m.group != 0) SequenceReset();
  if (m.wait != 0 && WaitSlotTest(m.wait)) {
    if (observer_) [[unlikely]]
      observer_->WaitSlot(m.wait);
    WriteLine(m.wait);
  }
  if (m.group > 0) {
    state_.CurrentGroup = Narrow16(m.group, "ProcessDataMarker");
    ApplySubGroup(m);
  }
  if (m.counts) {
    if (m.seq == std::numeric_limits<int32_t>::max())
      throw QbError::Runtime(kOverflow, "ProcessDataMarker");
    ++m.seq;
  }
  state_.CurrentSeq = Narrow16(m.seq, "ProcessDataMarker");
  if (observer_) [[unlikely]] {
    PickupData<true>(index, line);
  } else {
    PickupData<false>(index, line);
  }
  if (m.group < 0) {
    state_.CurrentGroup = Narrow16(-static_cast<int64_t>(m.group), "ProcessDataMarker");
    ApplySubGroup(m);
  }
  state_.LastGroup = Narrow16(m.group, "ProcessDataMarker");
  if (observer_) [[unlikely]]
    observer_->State(state_.CurrentGroup, state_.SubGroupCount, state_.CurrentSeq);
}

// A group met again right after itself counts up when the row says so: CurrentGroup gets the
// repeat count added; any other group resets the count.
void Converter::ApplySubGroup(const MarkerRow& m) {
  if (m.group == state_.LastGroup && m.subGroup) {
    state_.SubGroupCount = Narrow16(state_.SubGroupCount + 1, "ProcessDataMarker");
    state_.CurrentGroup = Narrow16(state_.CurrentGroup + state_.SubGroupCount, "ProcessDataMarker");
  } else {
    state_.SubGroupCount = 0;
  }
}

bool Converter::WaitSlotTest(int32_t slot) {
  if (slot < 1 || slot > 10) throw QbError::Runtime(kSubscript, "ProcessDataMarker");
  bool seen = state_.WaitSeen[static_cast<size_t>(slot)];
  state_.WaitSeen[static_cast<size_t>(slot)] = true;
  return seen;
}

void Converter::WaitSlotReset(int from) {
  for (int i = std::max(from, 1); i <= 10; ++i) state_.WaitSeen[static_cast<size_t>(i)] = false;
}

void Converter::SequenceReset() {
  for (size_t i : counting_) markers_[i].seq = 0;
}

// The pickup rows of a record type, sequence and group: chosen by the pickup filter text,
// applied through the table the first time the combination occurs.
const std::vector<Converter::PickupRow>& Converter::PickupRows(size_t marker) {
  const uint64_t key = (static_cast<uint64_t>(marker) << 32) |
                       (static_cast<uint64_t>(static_cast<uint16_t>(state_.CurrentSeq)) << 16) |
                       static_cast<uint16_t>(state_.CurrentGroup);
  LastPickup& last = lastPickup_[marker];
  if (last.key == key) return *last.rows;
  if (auto it = pickupCache_.find(key); it != pickupCache_.end()) {
    last = {key, &it->second};
    return it->second;
  }

  const std::string& name = markers_[marker].action;
  std::string& text = filterText_;
  text.clear();
  text += "((fldMRK = ";
  AppendQuotedLiteral(text, name);
  text += " And fldSEQ = ";
  AppendInt(text, state_.CurrentSeq);
  text += " And fldGRP = 0) ";
  text += " Or (fldMRK = ";
  AppendQuotedLiteral(text, name);
  text += " And fldSEQ = ";
  AppendInt(text, state_.CurrentSeq);
  text += " And fldGRP = ";
  AppendInt(text, state_.CurrentGroup);
  text += "))";

  std::vector<PickupRow> rows;
  Recordset& p = engine_.tables.rsPickups;
  p.MoveFirst();
  p.Filter(text);
  for (; !p.IsEOF(); p.MoveNext()) {
    PickupRow r;
    r.at = Segment::Of(p.GetInt(col::Pickups::fldSTR), p.GetInt(col::Pickups::fldLEN));
    std::string_view rule = p.GetText(col::Pickups::fldRUL);
    std::string_view act = p.GetText(col::Pickups::fldACT);
    r.value = RdfText(p.GetText(col::Pickups::fldVAL));
    r.info = static_cast<uint32_t>(pickupInfo_.size());
    pickupInfo_.push_back({p.GetInt(col::Pickups::fldLIN),
                           static_cast<int32_t>(p.GetInt(col::Pickups::fldFLD)),
                           p.GetInt(col::Pickups::fldSTR), p.GetInt(col::Pickups::fldLEN),
                           std::string(rule), std::string(act), r.value});
    if (rule == "=") {
      r.op = act == "skip"   ? PickOp::StoreOrSkip
             : act == "prev" ? PickOp::StoreOrPrev
                             : PickOp::Store;
    } else if (rule == "a") {
      static constexpr std::pair<std::string_view, PickOp> kActs[] = {
          {"set", PickOp::Set},   {"seth", PickOp::SetH}, {"cat", PickOp::Cat},
          {"catv", PickOp::CatV}, {"get", PickOp::Get},   {"getc", PickOp::GetC},
          {"getz", PickOp::GetZ}, {"hold", PickOp::Hold}, {"keep", PickOp::Keep}};
      for (auto [word, op] : kActs) {
        if (act == word) r.op = op;
      }
    } else if (rule == "=p") {
      r.op = act == "set" ? PickOp::PrevSet : PickOp::PrevKeep;
    }
    const int64_t number = p.GetInt(col::Pickups::fldFLD);
    for (size_t i = 0; i < slots_.size() && r.field == nullptr; ++i) {
      if (slots_[i].number == number) r.field = &slots_[i];
    }
    if (r.field == nullptr) r.op = PickOp::NoField;
    if (r.at.invalid) {  // checked first, as Mid fails before the field is looked for
      r.op = PickOp::Invalid;
      r.field = nullptr;
    }
    rows.push_back(std::move(r));
  }
  p.Filter("");
  last = {key, &pickupCache_.emplace(key, std::move(rows)).first->second};
  return *last.rows;
}

template <bool kObserved>
void Converter::PickupData(size_t marker, std::string_view line) {
  const unsigned current = current_;  // held in a register: stores below cannot change it
  const PickupRow* at = nullptr;      // the row being applied, for an error's place
  const PickupRow* end = nullptr;
  // Tells the observer what the row did.
  auto observe = [&](const PickupRow& r) {
    if constexpr (kObserved) {
      const std::string_view held = r.field ? r.field->hde.view() : std::string_view();
      const std::string_view value = r.field ? r.field->values[current].view() : std::string_view();
      observer_->Pickup(pickupInfo_[r.info].View(), r.at.invalid ? "" : r.at.Trimmed(line), value,
                        held);
    }
  };
  try {
    const std::vector<PickupRow>& rows = PickupRows(marker);
    end = rows.data() + rows.size();
    for (at = rows.data(); at != end; ++at) {
      const PickupRow& r = *at;
      if (r.op == PickOp::Store) [[likely]] {  // most rows: the trimmed text, stored
        r.field->values[current].assignBlocks(r.at.Trimmed(line));
        observe(r);
        continue;
      }
      if (r.field == nullptr) [[unlikely]] {
        if (r.op == PickOp::Invalid) ThrowInvalidCall("PickupData");
        throw QbError(kNoCurrentRecord, "PickupData", "No output field for this pickup row");
      }
      FieldSlot& f = *r.field;
      ValueBuffer& rde = f.values[current];
      auto text = [&] { return r.at.Trimmed(line); };
      switch (r.op) {
        case PickOp::Store:
          break;                     // done above
        case PickOp::StoreOrSkip: {  // a text equal to the word is not stored
          const std::string_view t = text();
          if (t != r.value) rde.assignBlocks(t);
          break;
        }
        case PickOp::StoreOrPrev: {
          const std::string_view t = text();
          if (t != r.value) {
            rde.assignBlocks(t);
          } else {
            rde.assign(f.values[current ^ 1]);
          }
          break;
        }
        case PickOp::PrevSet:
        case PickOp::PrevKeep: {
          const int32_t slot = markers_[marker].wait;
          if (slot < 1 || slot > 10) throw QbError::Runtime(kSubscript, "PickupData");
          if (r.op == PickOp::PrevSet && rde.view() == f.values[current ^ 1].view() &&
              state_.WaitSeen[static_cast<size_t>(slot)]) {
            rde.assign(r.value);
          }  // otherwise the field keeps what it had
          break;
        }
        case PickOp::Set:
          rde.assign(r.value);
          break;
        case PickOp::SetH:
          f.hde.assign(r.value);
          break;
        case PickOp::Cat: {
          const std::string_view t = text();
          if (rde.empty()) {
            rde.assign(t);
          } else {
            pickValue_.assign(rde.view());
            pickValue_ += ' ';
            pickValue_ += t;
            rde.assign(pickValue_);
          }
          break;
        }
        case PickOp::CatV:
          pickValue_.assign(rde.view());
          pickValue_ += ' ';
          pickValue_ += r.value;
          rde.assign(pickValue_);
          break;
        case PickOp::Get:
          rde.assign(f.hde);
          break;
        case PickOp::GetC:
          rde.assign(f.hde);
          f.hde.clear();
          break;
        case PickOp::GetZ:
          rde.assign(f.hde);
          f.hde.assign("0.00");
          break;
        case PickOp::Hold:
          f.hde.assignBlocks(text());
          break;
        case PickOp::Keep:
          if (rde.empty()) rde.assignBlocks(text());
          break;
        case PickOp::Invalid:
        case PickOp::NoField:
          break;  // rows without a field, failed above
      }
      observe(r);
    }
  } catch (FatalRunError&) {
    throw;
  } catch (const QbError& e) {
    // Pickup's own trap: the rest of this line's pickup rows are skipped, the marker's
    // processing goes on.
    const QbError error(e.number(), "PickupData", "Pickup Data Error  " + e.description());
    const PickupInfo* info = at != nullptr && at != end ? &pickupInfo_[at->info] : nullptr;
    if constexpr (kObserved) {
      observer_->PickupError(info ? info->View() : RunObserver::PickupRow(), error);
    }
    ReportLineError(error, info ? info->rdfLine : 0, true);
  }
}

void Converter::WriteLine(int level) {
  bool write = true;
  if (selection_ != RecordSelection::All && engine_.flags.RecordField) {
    if (recordSlot_ < 0) throw QbError(kNoCurrentRecord, "WriteLine", "The RDF has no field 1");
    const bool total = !Rde(slots_[static_cast<size_t>(recordSlot_)]).empty();
    write = selection_ == RecordSelection::Details ? !total : total;
  }
  bool header = false;
  if (write) {
    if (state_.LinesWritten == std::numeric_limits<int32_t>::max()) {
      throw QbError::Runtime(kOverflow, "WriteLine");
    }
    header = ++state_.LinesWritten == 1;
  }

  if (!write && observer_) [[unlikely]]
    observer_->Rejected(RejectionReason());
  if (write || state_.LastWriteFlag) {
    try {
      WriteRow(header, write);
    } catch (FatalRunError&) {
      throw;
    } catch (const QbError& e) {
      // A paste that did not match is reported like a line error; any other failure means
      // the output cannot be written, and the run ends.
      if (e.number() == kMatchError) throw;
      throw FatalRunError(e);
    }
  }

  WaitSlotReset(level + 1);
  SequenceReset();
  current_ ^= 1;  // this record's values become the previous record's
  for (FieldSlot& f : slots_) Rde(f).clear();
}

// A column's label in the header: the value of its label field, or its own.
std::string_view Converter::ColumnLabel(size_t c) const {
  const Column& col = columns_[c];
  if (col.labelSlot >= 0) return Rde(slots_[static_cast<size_t>(col.labelSlot)]).view();
  return col.label;
}

// The header (when `header`), then the record's values (when `write`) or, in the final write
// of a record that was not selected, word of that; the final write also ends the rows.
void Converter::WriteRow(bool header, bool write) {
  if (header) {
    for (size_t c = 0; c < columns_.size(); ++c) labels_[c] = ColumnLabel(c);
    if (observer_) [[unlikely]]
      observer_->Header(labels_);
    sink_->Header(labels_);
  }
  if (write) {
    if (observer_) [[unlikely]]
      observer_->Row(state_.LinesWritten, rowSources_[current_]);
    sink_->Row(rowSources_[current_]);
  } else {
    sink_->RejectedLastRow();
  }
  if (state_.LastWriteFlag) sink_->EndOfRows();
}

// Why WriteLine did not write the record: record selection and field 1.
std::string Converter::RejectionReason() const {
  const std::string_view total =
      recordSlot_ >= 0 ? Rde(slots_[static_cast<size_t>(recordSlot_)]).view() : std::string_view();
  if (selection_ == RecordSelection::Details) {
    return "record selection writes detail records only, and field 1 holds \"" +
           std::string(total) + "\"";
  }
  return "record selection writes total records only, and field 1 is empty";
}

void Converter::DropLine(const QbError& error) {
  const int64_t rdfLine = matched_ ? matched_->rdfLine : 0;
  if (observer_) [[unlikely]]
    observer_->LineError(error, rdfLine);
  ReportLineError(error, rdfLine, false);
}

void Converter::ReportLineError(const QbError& e, int64_t rdfLine, bool partly) {
  ++lineErrors_.count;
  if (lineErrors_.first.size() < LineErrors::kKept) {
    lineErrors_.first.push_back({state_.ReportLine, state_.Piece, rdfLine, partly, e});
  }
  const int64_t n = ++errorsSeen_[{e.source(), e.number()}];
  const RunLog& log = engine_.app().Log();
  if (n == 1) {
    ++errorsLogged_;
    log.LogError(e.source(), e.number(), e.description(), log.AppLogFile());
  } else if (errorsLogged_ < 1000) {
    ++errorsLogged_;
    log.WriteLog(e.source(), "Error: " + std::to_string(e.number()) + "  " + e.description());
  } else {
    ++errorsUnlogged_;
  }
}

void Converter::FinishErrorReport() {
  if (errorsUnlogged_ > 0) {
    engine_.app().Log().WriteLog(
        "Process", std::to_string(errorsUnlogged_) + " more line errors were not logged");
  }
}

}  // namespace qb
