#include "run/trace_writer.h"

#include <cstring>

#include "base/json.h"

namespace qb {
namespace {

constexpr size_t kTextShown = 80;  // characters of a piece the text trace shows

// A text in double quotes for the text trace: control characters as \t or \xNN.
void AppendQuoted(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  out += '"';
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      out += "\\x";
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += ch;
    }
  }
  out += '"';
}

std::string_view Action(std::string_view action) {
  return TrimRight(action);
}

}  // namespace

TraceWriter::TraceWriter(std::FILE* out, TraceOptions options)
    : TraceWriter(Emitter(), std::move(options)) {
  out_ = out;
  if (Jsonl()) Emit(text_);  // the start object, kept until there was a file to write it to
  text_.clear();
}

TraceWriter::TraceWriter(Emitter emit, TraceOptions options)
    : emit_(std::move(emit)), options_(std::move(options)) {
  if (Jsonl()) {
    std::string start = "{\"type\":\"start\",\"report\":";
    AppendJson(start, options_.report);
    start += ",\"rdf\":";
    AppendJson(start, options_.rdf);
    start += "}\n";
    if (emit_)
      Emit(start);
    else
      text_ = std::move(start);  // written once the file is known
  }
}

std::string TraceWriter::Where(int64_t rdfLine) const {
  return options_.rdf + ":" + std::to_string(rdfLine);
}

void TraceWriter::Emit(const std::string& text) {
  if (emit_) return emit_(text);
  if (std::fwrite(text.data(), 1, text.size(), out_) != text.size()) writeFailed_ = true;
}

void TraceWriter::Begin(const Alphabet& alphabet) {
  alphabet_ = alphabet.Native() ? nullptr : &alphabet;
}

std::string_view TraceWriter::Chars(std::string_view units) {
  if (!alphabet_ || IsAscii(units)) return units;
  chars_.clear();
  alphabet_->AppendUtf8(chars_, units);
  return chars_;
}

void TraceWriter::Piece(int64_t line, int piece, std::string_view text) {
  Flush();
  open_ = true;
  line_ = lastLine_ = line;
  matched_ = false;
  if (Jsonl()) {
    text_ = "{\"type\":\"piece\",\"line\":" + std::to_string(line) +
            ",\"piece\":" + std::to_string(piece) + ",\"text\":";
    AppendJson(text_, Chars(text));
    did_ = "none";
    return;
  }
  text_ = "line " + std::to_string(line);
  if (piece > 0) text_ += "." + std::to_string(piece);
  text_ += ": ";
  const std::string_view shown = TrimRight(text.substr(0, kTextShown));
  AppendQuoted(text_, Chars(shown));
  if (shown.size() < TrimRight(text).size()) text_ += "...";
  text_ += '\n';
}

void TraceWriter::Marker(const MarkerRow* row) {
  matched_ = row != nullptr;
  const std::string_view action = row ? Action(row->action) : std::string_view();
  if (Jsonl()) {
    text_ += ",\"marker\":";
    if (!row) {
      text_ += "null";
      return;
    }
    text_ += "{\"rdfLine\":" + std::to_string(row->rdfLine) +
             ",\"index\":" + std::to_string(row->index) + ",\"rule\":";
    AppendJson(text_, std::string_view(&row->rule, row->rule ? 1 : 0));
    text_ += ",\"start\":" + std::to_string(row->start) +
             ",\"length\":" + std::to_string(row->length) + ",\"text\":";
    AppendJson(text_, Chars(row->text));
    text_ += ",\"action\":";
    AppendJson(text_, action);
    text_ += ",\"group\":" + std::to_string(row->group) + ",\"wait\":" + std::to_string(row->wait) +
             ",\"subGroup\":" + (row->subGroup ? "true" : "false") + "}";
    did_ = action == "skip" ? "skip" : action == "stop" ? "stop" : "pickup";
    return;
  }
  if (!row) {
    text_ += "  no marker\n";
    return;
  }
  text_ += "  marker " + Where(row->rdfLine) + ": rule " +
           (row->rule ? std::string(1, row->rule) : std::string("(none)")) + " at " +
           std::to_string(row->start) + "," + std::to_string(row->length) + " ";
  AppendQuoted(text_, Chars(row->text));
  text_ += " -> ";
  text_ += action;
  std::string extra;
  if (row->group != 0) extra += "group " + std::to_string(row->group);
  if (row->wait != 0)
    extra += (extra.empty() ? "" : ", ") + ("wait slot " + std::to_string(row->wait));
  if (row->subGroup) extra += (extra.empty() ? "" : ", ") + std::string("sub-group");
  if (!extra.empty()) text_ += " (" + extra + ")";
  text_ += '\n';
  if (action == "skip") text_ += "  skip: nothing is picked up\n";
  if (action == "stop") text_ += "  stop: the run reads no further\n";
}

void TraceWriter::WaitSlot(int32_t slot) {
  if (Jsonl()) {
    text_ += ",\"waitSlot\":" + std::to_string(slot);
    return;
  }
  text_ +=
      "  wait slot " + std::to_string(slot) + " completed: the record gathered so far is written\n";
}

void TraceWriter::Header(std::span<const std::string_view> labels) {
  std::string s;
  if (Jsonl()) {
    s = "{\"header\":[";
    for (size_t i = 0; i < labels.size(); ++i) {
      if (i) s += ',';
      AppendJson(s, Chars(labels[i]));
    }
    s += "]}";
    rows_.push_back(std::move(s));
    return;
  }
  s = "  header: ";
  for (size_t i = 0; i < labels.size(); ++i) {
    if (i) s += " | ";
    s += labels[i];
  }
  text_ += s + '\n';
}

void TraceWriter::Row(int32_t number, std::span<const ValueBuffer* const> values) {
  std::string s;
  if (Jsonl()) {
    s = "{\"row\":" + std::to_string(number) + ",\"values\":[";
    for (size_t i = 0; i < values.size(); ++i) {
      if (i) s += ',';
      AppendJson(s, Chars(values[i]->view()));
    }
    s += "]}";
    rows_.push_back(std::move(s));
    return;
  }
  s = "  row " + std::to_string(number) + ": ";
  for (size_t i = 0; i < values.size(); ++i) {
    if (i) s += " | ";
    AppendQuoted(s, Chars(values[i]->view()));
  }
  text_ += s + '\n';
}

void TraceWriter::Rejected(std::string_view reason) {
  if (Jsonl()) {
    std::string s = "{\"rejected\":";
    AppendJson(s, reason);
    rows_.push_back(s + "}");
    return;
  }
  text_ += "  record not written: ";
  text_ += reason;
  text_ += '\n';
}

void TraceWriter::Pickup(const PickupRow& row, std::string_view raw, std::string_view value,
                         std::string_view held) {
  const std::string_view action = Action(row.action);
  const bool showHeld = action == "hold" || action == "seth" || action == "get" ||
                        action == "getc" || action == "getz";
  if (Jsonl()) {
    std::string s = "{\"rdfLine\":" + std::to_string(row.rdfLine) +
                    ",\"field\":" + std::to_string(row.field) +
                    ",\"start\":" + std::to_string(row.start) +
                    ",\"length\":" + std::to_string(row.length) + ",\"rule\":";
    AppendJson(s, row.rule);
    s += ",\"action\":";
    AppendJson(s, action);
    s += ",\"raw\":";
    AppendJson(s, Chars(raw));
    s += ",\"value\":";
    AppendJson(s, Chars(value));
    s += ",\"held\":";
    AppendJson(s, Chars(held));
    pickups_.push_back(s + "}");
    return;
  }
  text_ += "  pickup " + Where(row.rdfLine) + ": field " + std::to_string(row.field) + " at " +
           std::to_string(row.start) + "," + std::to_string(row.length) + " rule " +
           std::string(row.rule);
  if (!action.empty()) text_ += " " + std::string(action);
  text_ += ": ";
  AppendQuoted(text_, Chars(raw));
  text_ += " -> ";
  AppendQuoted(text_, Chars(value));
  if (showHeld) {
    text_ += ", held ";
    AppendQuoted(text_, Chars(held));
  }
  text_ += '\n';
}

void TraceWriter::PickupError(const PickupRow& row, const QbError& error) {
  if (Jsonl()) {
    std::string s = "{\"rdfLine\":" + std::to_string(row.rdfLine) +
                    ",\"field\":" + std::to_string(row.field) +
                    ",\"error\":" + std::to_string(error.number()) + ",\"message\":";
    AppendJson(s, error.description());
    pickups_.push_back(s + "}");
    return;
  }
  text_ += "  pickup " + Where(row.rdfLine) + ": field " + std::to_string(row.field) + ": " +
           error.describe() + "; the line's later pickup rows are skipped\n";
}

void TraceWriter::State(int group, int subGroup, int sequence) {
  if (Jsonl()) {
    text_ += ",\"group\":" + std::to_string(group) + ",\"subGroup\":" + std::to_string(subGroup) +
             ",\"sequence\":" + std::to_string(sequence);
    return;
  }
  text_ += "  group " + std::to_string(group) + ", sub-group " + std::to_string(subGroup) +
           ", sequence " + std::to_string(sequence) + '\n';
}

void TraceWriter::LineError(const QbError& error, int64_t rdfLine) {
  if (Jsonl()) {
    text_ += ",\"error\":{\"number\":" + std::to_string(error.number()) +
             ",\"rdfLine\":" + std::to_string(rdfLine) + ",\"message\":";
    AppendJson(text_, error.describe());
    text_ += "}";
    did_ = "dropped";
    return;
  }
  text_ += "  error";
  if (rdfLine > 0) text_ += " at " + Where(rdfLine);
  text_ += ": " + error.describe() + "; the line is dropped\n";
}

void TraceWriter::EndOfReport() {
  Flush();
  open_ = true;
  atEnd_ = true;
  matched_ = true;
  if (Jsonl()) {
    text_ = "{\"type\":\"end\",\"lines\":" + std::to_string(lastLine_);
  } else {
    text_ = "end of report: the last record is written\n";
  }
}

void TraceWriter::End() {
  Flush();
  if (out_ && std::fflush(out_) != 0) writeFailed_ = true;
}

void TraceWriter::Flush() {
  if (!open_) return;
  open_ = false;
  const bool inRange =
      atEnd_ ? options_.to >= lastLine_ : line_ >= options_.from && line_ <= options_.to;
  const bool shown = inRange && !(options_.unmatchedOnly && (matched_ || atEnd_));
  if (shown) {
    if (Jsonl()) {
      if (!atEnd_) {
        text_ += ",\"did\":";
        AppendJson(text_, did_);
      }
      if (!rows_.empty()) {
        text_ += ",\"rows\":[";
        for (size_t i = 0; i < rows_.size(); ++i) text_ += (i ? "," : "") + rows_[i];
        text_ += "]";
      }
      if (!pickups_.empty()) {
        text_ += ",\"pickups\":[";
        for (size_t i = 0; i < pickups_.size(); ++i) text_ += (i ? "," : "") + pickups_[i];
        text_ += "]";
      }
      text_ += "}\n";
    }
    Emit(text_);
  }
  text_.clear();
  rows_.clear();
  pickups_.clear();
}

}  // namespace qb
