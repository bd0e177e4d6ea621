#include "engine/converter.h"

#include <charconv>
#include <cstring>
#include <cstdlib>
#include <limits>

#include "engine/pattern.h"
#include "engine/text.h"

namespace qb {
namespace {

int16_t Narrow16(int64_t v, const char* source) {
  if (v < std::numeric_limits<int16_t>::min() || v > std::numeric_limits<int16_t>::max()) {
    throw QbError::Runtime(kOverflow, source);
  }
  return static_cast<int16_t>(v);
}

constexpr int32_t kNoCurrentRecordError = 3021;  // the record sets' "no current record"

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Appends a number to `out` without allocating.
void AppendInt(std::string& out, int64_t v) {
  char digits[24];
  auto r = std::to_chars(digits, digits + sizeof digits, v);
  out.append(digits, r.ptr);
}

// A set of bytes as a lookup table, for per-character tests on the hot path.
struct ByteSet {
  constexpr explicit ByteSet(std::string_view chars, bool bothCases = false) {
    for (char c : chars) {
      in[static_cast<unsigned char>(c)] = true;
      if (bothCases && c >= 'a' && c <= 'z') in[static_cast<unsigned char>(c - 'a' + 'A')] = true;
    }
  }
  bool operator()(char c) const { return in[static_cast<unsigned char>(c)]; }
  bool in[256] = {};
};
constexpr ByteSet kNumericDrop("()%#*$,+-cdr", /*bothCases=*/true);

// Copies `n` bytes; short values (most report fields) without a library call.
inline char* CopyBytes(char* dst, const char* src, size_t n) {
  if (n <= 16) {
    if (n >= 8) {
      std::memcpy(dst, src, 8);
      std::memcpy(dst + n - 8, src + n - 8, 8);
    } else if (n >= 4) {
      std::memcpy(dst, src, 4);
      std::memcpy(dst + n - 4, src + n - 4, 4);
    } else {
      for (size_t i = 0; i < n; ++i) dst[i] = src[i];
    }
    return dst + n;
  }
  std::memcpy(dst, src, n);
  return dst + n;
}

// True when `v` holds a comma or a double quote: eight bytes at a time, with the usual
// "has a zero byte" test on the word XORed with each character repeated.
bool HasCsvSpecial(std::string_view v) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL, kHighs = 0x8080808080808080ULL;
  constexpr uint64_t kCommas = kOnes * ',', kQuotes = kOnes * '"';
  auto hasZero = [](uint64_t x) { return ((x - kOnes) & ~x & kHighs) != 0; };
  size_t i = 0;
  for (; i + 8 <= v.size(); i += 8) {
    uint64_t w;
    std::memcpy(&w, v.data() + i, 8);
    if (hasZero(w ^ kCommas) || hasZero(w ^ kQuotes)) return true;
  }
  for (; i < v.size(); ++i) {
    if (v[i] == ',' || v[i] == '"') return true;
  }
  return false;
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

void Converter::PrepareOutput() {
  state_.CancelFlag = false;
  state_.StopFlag = false;
  state_.LastWriteFlag = false;
  state_.LinesWritten = 0;
  state_.CurrentGroup = state_.SubGroupCount = state_.LastGroup = state_.CurrentSeq = 0;
  state_.WaitSeen.fill(false);

  const clsKeys& s = engine_.app().Settings;
  const std::string& opfmt = s["opfmt"];
  format_ = opfmt == ".csv" ? OutputFormat::Csv : opfmt == ".xls" ? OutputFormat::Xls : OutputFormat::Txt;
  const std::string& delim = s["delim"];
  delimiter_ = EqualsNoCase(delim, "tab") ? "\t" : EqualsNoCase(delim, "comma") ? "," : delim;
  if (format_ == OutputFormat::Csv) delimiter_ = ",";
  if (format_ == OutputFormat::Xls) delimiter_ = "\t";
  qualifier_ = s["textq"];
  qualify_ = s["tqswt"] == "1";
  const std::string& rtype = s["rtype"];
  selection_ = rtype == "Details Only" ? Selection::Details
               : rtype == "Totals Only" ? Selection::Totals
                                        : Selection::All;

  RdfTables& t = engine_.tables;
  markers_.clear();
  Recordset& m = t.rsMarkers;
  m.Sort("");
  m.Filter("");
  for (m.MoveFirst(); !m.IsEOF(); m.MoveNext()) {
    MarkerRow r;
    r.start = static_cast<int32_t>(m.GetInt(col::Markers::fldSTR));
    r.length = static_cast<int32_t>(m.GetInt(col::Markers::fldLEN));
    r.rule = m.GetText(col::Markers::fldRUL).front();
    r.marker = m.GetText(col::Markers::fldMRK);
    r.action = m.GetText(col::Markers::fldACT);
    r.group = static_cast<int32_t>(m.GetInt(col::Markers::fldGRP));
    r.wait = static_cast<int32_t>(m.GetInt(col::Markers::fldWTS));
    r.subGroup = m.GetBool(col::Markers::fldSGR);
    r.skip = r.action == "skip";
    r.stop = r.action == "stop";
    r.counts = !r.action.empty() && r.action.front() == 'S';
    markers_.push_back(std::move(r));
  }

  slots_.clear();
  Recordset& f = t.rsFields;
  f.Sort("");
  f.Filter("");
  for (f.MoveFirst(); !f.IsEOF(); f.MoveNext()) {
    slots_.push_back({static_cast<int32_t>(f.GetInt(col::Fields::fldFLD)), {}, {}, {}});
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
                        !type.empty() && type.front() == 'n',
                        type == "c" || type == "r" || (!type.empty() && type.front() == 'w'),
                        std::string(Trim(label)), dlb > 0 ? slotOf(dlb) : -1});
  }
  f.Sort("");
  cleaned_.assign(columns_.size(), std::string());
  values_.assign(columns_.size(), std::string_view());
  pickupCache_.clear();
  errorsSeen_.clear();
  errorsLogged_ = errorsUnlogged_ = 0;
}

bool Converter::CheckDataMarker(std::string_view line) {
  for (size_t i = 0; i < markers_.size(); ++i) {
    const MarkerRow& m = markers_[i];
    bool match;
    switch (m.rule) {
      case '=': {
        const std::string_view seg = Mid(line, m.start, m.length, "CheckDataMarker");
        match = seg.size() == m.marker.size() &&
                (seg.empty() || (seg.front() == m.marker.front() &&
                                 std::memcmp(seg.data(), m.marker.data(), seg.size()) == 0));
        break;
      }
      case 'p':
        match = PatternMatch(m.marker, Mid(line, m.start, m.length, "CheckDataMarker"),
                             static_cast<size_t>(m.length));
        break;
      case 'x':
        match = Mid(line, m.start, m.length, "CheckDataMarker").find(m.marker) != std::string_view::npos;
        break;
      default: return true;  // an unknown rule ends the search
    }
    if (match) {
      ProcessDataMarker(i, line);
      return true;
    }
  }
  return true;
}

void Converter::ProcessDataMarker(size_t index, std::string_view line) {
  MarkerRow& m = markers_[index];
  if (m.skip) {
    if (m.group != 0) {
      state_.CurrentGroup = Narrow16(std::abs(static_cast<int64_t>(m.group)), "ProcessDataMarker");
      SequenceReset();
    }
    return;
  }
  if (m.stop) {
    state_.StopFlag = true;
    return;
  }
  if (m.group != 0) SequenceReset();
  if (m.wait != 0 && WaitSlotTest(m.wait)) WriteLine(m.wait);
  if (m.group > 0) {
    state_.CurrentGroup = Narrow16(m.group, "ProcessDataMarker");
    ApplySubGroup(m);
  }
  if (m.counts) {
    if (m.seq == std::numeric_limits<int32_t>::max()) throw QbError::Runtime(kOverflow, "ProcessDataMarker");
    ++m.seq;
  }
  state_.CurrentSeq = Narrow16(m.seq, "ProcessDataMarker");
  PickupData(index, line);
  if (m.group < 0) {
    state_.CurrentGroup = Narrow16(-static_cast<int64_t>(m.group), "ProcessDataMarker");
    ApplySubGroup(m);
  }
  state_.LastGroup = Narrow16(m.group, "ProcessDataMarker");
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
  for (MarkerRow& m : markers_) {
    if (m.counts) m.seq = 0;
  }
}

// The pickup rows of a record type, sequence and group: chosen by the pickup filter text,
// applied through the table the first time the combination occurs.
const std::vector<Converter::PickupRow>& Converter::PickupRows(size_t marker) {
  const uint64_t key = (static_cast<uint64_t>(marker) << 32) |
                       (static_cast<uint64_t>(static_cast<uint16_t>(state_.CurrentSeq)) << 16) |
                       static_cast<uint16_t>(state_.CurrentGroup);
  if (auto it = pickupCache_.find(key); it != pickupCache_.end()) return it->second;

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
    r.start = static_cast<int32_t>(p.GetInt(col::Pickups::fldSTR));
    r.length = static_cast<int32_t>(p.GetInt(col::Pickups::fldLEN));
    std::string_view rule = p.GetText(col::Pickups::fldRUL);
    std::string_view act = p.GetText(col::Pickups::fldACT);
    r.value = p.GetText(col::Pickups::fldVAL);
    if (rule == "=") {
      r.rule = PickRule::Equal;
      r.act = act == "skip" ? PickAct::Skip : act == "prev" ? PickAct::Prev : PickAct::None;
    } else if (rule == "a") {
      r.rule = PickRule::Action;
      static constexpr std::pair<std::string_view, PickAct> kActs[] = {
          {"set", PickAct::Set},   {"seth", PickAct::SetH}, {"cat", PickAct::Cat},
          {"catv", PickAct::CatV}, {"get", PickAct::Get},   {"getc", PickAct::GetC},
          {"getz", PickAct::GetZ}, {"hold", PickAct::Hold}, {"keep", PickAct::Keep}};
      for (auto [word, a] : kActs) {
        if (act == word) r.act = a;
      }
    } else if (rule == "=p") {
      r.rule = PickRule::EqualPrev;
      r.act = act == "set" ? PickAct::Set : PickAct::None;
    }
    const int64_t number = p.GetInt(col::Pickups::fldFLD);
    for (size_t i = 0; i < slots_.size() && r.slot < 0; ++i) {
      if (slots_[i].number == number) r.slot = static_cast<int>(i);
    }
    rows.push_back(std::move(r));
  }
  p.Filter("");
  return pickupCache_.emplace(key, std::move(rows)).first->second;
}

void Converter::PickupData(size_t marker, std::string_view line) {
  try {
    for (const PickupRow& r : PickupRows(marker)) {
      const std::string_view text = Trim(Mid(line, r.start, r.length, "PickupData"));
      if (r.slot < 0) {
        throw QbError(kNoCurrentRecordError, "PickupData", "No output field for this pickup row");
      }
      FieldSlot& f = slots_[static_cast<size_t>(r.slot)];
      if (r.rule == PickRule::Equal) {
        if (r.act == PickAct::None || text != r.value) {
          f.rde.assign(text);
        } else if (r.act == PickAct::Prev) {
          f.rde.assign(f.pde.view());
        }  // "skip": the value equals the word, nothing is stored
        continue;
      }
      if (r.rule == PickRule::EqualPrev) {
        const int32_t slot = markers_[marker].wait;
        if (slot < 1 || slot > 10) throw QbError::Runtime(kSubscript, "PickupData");
        if (r.act == PickAct::Set && f.rde.view() == f.pde.view() &&
            state_.WaitSeen[static_cast<size_t>(slot)]) {
          f.rde.assign(r.value);
        }  // otherwise the field keeps what it had
        continue;
      }
      if (r.rule == PickRule::Other) {
        f.rde.assign(text);
        continue;
      }
      switch (r.act) {  // rule "a"
        case PickAct::Set: f.rde.assign(r.value); break;
        case PickAct::SetH: f.hde.assign(r.value); break;
        case PickAct::Cat:
          if (f.rde.empty()) {
            f.rde.assign(text);
          } else {
            pickValue_.assign(f.rde.view());
            pickValue_ += ' ';
            pickValue_ += text;
            f.rde.assign(pickValue_);
          }
          break;
        case PickAct::CatV:
          pickValue_.assign(f.rde.view());
          pickValue_ += ' ';
          pickValue_ += r.value;
          f.rde.assign(pickValue_);
          break;
        case PickAct::Get: f.rde.assign(f.hde.view()); break;
        case PickAct::GetC:
          f.rde.assign(f.hde.view());
          f.hde.clear();
          break;
        case PickAct::GetZ:
          f.rde.assign(f.hde.view());
          f.hde.assign("0.00");
          break;
        case PickAct::Hold: f.hde.assign(text); break;
        case PickAct::Keep:
          if (f.rde.empty()) f.rde.assign(text);
          break;
        default: f.rde.assign(text); break;
      }
    }
  } catch (FatalRunError&) {
    throw;
  } catch (const QbError& e) {
    // Pickup's own trap: the rest of this line's pickup rows are skipped, the marker's
    // processing goes on.
    ReportLineError(QbError(e.number(), "PickupData", "Pickup Data Error  " + e.description()));
  }
}

// "1,234.50CR" -> "-1234.50", "(12.00)" -> "-12.00": a value with "(", "-" or "cr" is
// negative; the characters of "()%#*$,+-cdr" (any case) go; blanks at both ends go.
std::string_view Converter::NumericCleanUp(std::string_view value, std::string& out) const {
  // Room for the sign in front of the kept text; the kept text is never longer than value.
  if (out.size() < value.size() + 1) out.resize(value.size() + 1);
  char* kept = out.data() + 1;
  size_t n = 0;
  bool negative = false;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (!kNumericDrop(c)) {
      kept[n++] = c;
      continue;
    }
    if (c == '(' || c == '-' ||
        (Lower(c) == 'c' && i + 1 < value.size() && Lower(value[i + 1]) == 'r')) {
      negative = true;
    }
  }
  size_t begin = 0;
  while (begin < n && kept[begin] == ' ') ++begin;
  while (n > begin && kept[n - 1] == ' ') --n;
  if (negative) {
    kept[begin - 1] = '-';
    return std::string_view(kept + begin - 1, n - begin + 1);
  }
  return std::string_view(kept + begin, n - begin);
}

char* Converter::PutQualified(char* p, std::string_view value, bool text) const {
  auto put = [&p](std::string_view v) { p = CopyBytes(p, v.data(), v.size()); };
  if (format_ == OutputFormat::Csv) {
    if (!text || !HasCsvSpecial(value)) {
      put(value);
      return p;
    }
    *p++ = '"';
    for (char c : value) {
      if (c == '"') *p++ = '"';
      *p++ = c;
    }
    *p++ = '"';
    return p;
  }
  if (format_ != OutputFormat::Txt || !qualify_ || !text || value.empty() || qualifier_.empty()) {
    put(value);
    return p;
  }
  put(qualifier_);
  for (size_t i = 0; i < value.size();) {
    if (value.compare(i, qualifier_.size(), qualifier_) == 0) {
      put(qualifier_);
      put(qualifier_);
      i += qualifier_.size();
    } else {
      *p++ = value[i++];
    }
  }
  put(qualifier_);
  return p;
}

std::string_view Converter::JoinLine(bool header) {
  // Room for the worst case: every character doubled by qualifying, two qualifiers and a
  // delimiter per column.
  size_t bound = 0;
  const size_t extra = 2 * qualifier_.size() + delimiter_.size() + 2;
  for (std::string_view v : values_) bound += 2 * v.size() + extra;
  if (line_.size() < bound) line_.resize(bound + line_.size());
  char* const begin = line_.data();
  char* p = begin;
  const bool oneCharDelimiter = delimiter_.size() == 1;
  const bool csvHeader = header && format_ == OutputFormat::Csv;
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (c > 0) {
      if (oneCharDelimiter) {
        *p++ = delimiter_[0];
      } else {
        p = CopyBytes(p, delimiter_.data(), delimiter_.size());
      }
    }
    p = PutQualified(p, values_[c], csvHeader || columns_[c].text);
  }
  return std::string_view(begin, static_cast<size_t>(p - begin));
}

void Converter::WriteLine(int level) {
  bool write = true;
  if (selection_ != Selection::All && engine_.flags.RecordField) {
    if (recordSlot_ < 0) throw QbError(kNoCurrentRecordError, "WriteLine", "The RDF has no field 1");
    const bool total = !slots_[static_cast<size_t>(recordSlot_)].rde.empty();
    write = selection_ == Selection::Details ? !total : total;
  }
  bool header = false;
  if (write) {
    if (state_.LinesWritten == std::numeric_limits<int32_t>::max()) {
      throw QbError::Runtime(kOverflow, "WriteLine");
    }
    header = ++state_.LinesWritten == 1;
  }

  if (write || state_.LastWriteFlag) {
    try {
      if (header) {
        for (size_t c = 0; c < columns_.size(); ++c) {
          const Column& col = columns_[c];
          values_[c] = col.labelSlot >= 0 ? slots_[static_cast<size_t>(col.labelSlot)].rde.view()
                                          : std::string_view(col.label);
        }
        sink_->Write({values_, JoinLine(true), true});
      }
      std::string_view joined;
      if (write) {
        for (size_t c = 0; c < columns_.size(); ++c) {
          const Column& col = columns_[c];
          std::string_view v =
              col.slot >= 0 ? slots_[static_cast<size_t>(col.slot)].rde.view() : std::string_view();
          values_[c] = col.numeric ? NumericCleanUp(v, cleaned_[c]) : v;
        }
        joined = JoinLine(false);
      }
      sink_->Write({write ? std::span<const std::string_view>(values_)
                          : std::span<const std::string_view>(),
                    joined, false});
    } catch (FatalRunError&) {
      throw;
    } catch (const QbError& e) {
      if (e.number() == 521) throw;  // a paste that did not match: reported like a line error
      throw FatalRunError(e);        // the output cannot be written: the run ends
    }
  }

  WaitSlotReset(level + 1);
  SequenceReset();
  for (FieldSlot& f : slots_) {
    f.pde.swap(f.rde);
    f.rde.clear();
  }
}

void Converter::ReportLineError(const QbError& e) {
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
    engine_.app().Log().WriteLog("Process", std::to_string(errorsUnlogged_) +
                                                " more line errors were not logged");
  }
}

}  // namespace qb
