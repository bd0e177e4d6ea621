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
  std::vector<RowFormatter::Column> kinds;
  for (const Column& c : columns_) kinds.push_back({c.numeric, c.text});
  formatter_ = RowFormatter(format_, delimiter_, qualifier_, qualify_, std::move(kinds));
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
    // A sink that formats on its own thread takes the raw values; others get the line too.
    const bool raw = sink_->WantsRawValues();
    try {
      if (header) {
        for (size_t c = 0; c < columns_.size(); ++c) {
          const Column& col = columns_[c];
          values_[c] = col.labelSlot >= 0 ? slots_[static_cast<size_t>(col.labelSlot)].rde.view()
                                          : std::string_view(col.label);
        }
        sink_->Write({values_, raw ? std::string_view() : formatter_.Join(values_, true), true});
      }
      std::string_view joined;
      if (write) {
        for (size_t c = 0; c < columns_.size(); ++c) {
          const int slot = columns_[c].slot;
          values_[c] = slot >= 0 ? slots_[static_cast<size_t>(slot)].rde.view() : std::string_view();
        }
        if (!raw) {
          formatter_.Clean(values_);
          joined = formatter_.Join(values_, false);
        }
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
