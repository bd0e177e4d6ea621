#include "run/run_tally.h"

#include <algorithm>
#include <cstdio>

#include "base/bytes.h"

namespace qb {

RunTally::RunTally(RdfTables& tables) {
  Recordset m = tables.rsMarkers.Clone();
  for (m.MoveFirst(); !m.IsEOF(); m.MoveNext()) {
    std::string shown(Trim(m.GetText(col::Markers::fldRUL)));
    shown += " " + std::to_string(m.GetInt(col::Markers::fldSTR)) + "," +
             std::to_string(m.GetInt(col::Markers::fldLEN)) + " \"" +
             std::string(m.GetText(col::Markers::fldMRK)) + "\" -> " +
             std::string(Trim(m.GetText(col::Markers::fldACT)));
    markers_.push_back({m.GetInt(col::Markers::fldLIN), std::move(shown)});
  }
  matches_.assign(markers_.size(), 0);
}

void RunTally::Piece(int64_t, int, std::string_view text) {
  ++pieces_;
  piece_ = text;
}

void RunTally::Marker(const MarkerRow* row) {
  if (row) {
    if (row->index < matches_.size()) ++matches_[row->index];
    return;
  }
  ++unmatched_;
  // Leading blanks stay (they give the column), digits become n as in a "p" marker, so
  // lines that differ only in their numbers count together; control characters become "."
  // so that a binary file read as a report prints nothing a terminal would act on.
  const std::string_view begins = TrimRight(piece_.substr(0, kBeginning));
  if (begins.empty()) {
    ++blankUnmatched_;
    return;
  }
  beginning_.assign(begins);
  for (char& c : beginning_) {
    if (c >= '0' && c <= '9') {
      c = 'n';
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      c = '.';
    }
  }
  auto it = beginnings_.find(beginning_);
  if (it != beginnings_.end()) {
    ++it->second;
  } else if (beginnings_.size() < kKeptBeginnings) {
    beginnings_.emplace(beginning_, 1);
  } else {
    ++otherUnmatched_;
  }
}

void RunTally::Row(int32_t, std::span<const ValueBuffer* const> values) {
  ++rows_;
  if (filled_.size() < values.size()) filled_.resize(values.size(), false);
  for (size_t i = 0; i < values.size(); ++i) {
    if (!filled_[i] && !Trim(values[i]->view()).empty()) filled_[i] = true;
  }
}

RunTally::Summary RunTally::Report(const std::string& report, const std::string& rdf,
                                   const std::vector<Converter::ColumnField>& columns) const {
  Summary s;
  auto percent = [this](int64_t n) {
    char text[16];
    std::snprintf(text, sizeof text, "%.1f%%", pieces_ ? 100.0 * n / pieces_ : 0.0);
    return std::string(text);
  };
  s.lines.push_back(report + ": " + std::to_string(pieces_) + " line pieces read; " +
                    std::to_string(pieces_ - unmatched_) + " matched a marker row, " +
                    std::to_string(unmatched_) + " (" + percent(unmatched_) + ") matched none");
  s.lines.push_back("Pieces each marker row matched:");
  for (size_t i = 0; i < markers_.size(); ++i) {
    char count[24];
    std::snprintf(count, sizeof count, "%10lld  ", static_cast<long long>(matches_[i]));
    s.lines.push_back(count + rdf + ":" + std::to_string(markers_[i].rdfLine) + "  " +
                      markers_[i].shown);
  }
  for (size_t i = 0; i < markers_.size(); ++i) {
    if (matches_[i] > 0) continue;
    ++s.warnings;
    s.lines.push_back(rdf + ":" + std::to_string(markers_[i].rdfLine) +
                      ": warning: this marker row matched no line of " + report +
                      ": check its start column and text against the report (--trace shows "
                      "what each line matched)");
  }
  if (unmatched_ > 0) {
    std::vector<std::pair<std::string_view, int64_t>> top(beginnings_.begin(), beginnings_.end());
    std::sort(top.begin(), top.end(), [](const auto& a, const auto& b) {
      return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    constexpr size_t kShown = 10;
    int64_t unshown = 0;
    for (size_t i = kShown; i < top.size(); ++i) unshown += top[i].second;
    const size_t unshownBeginnings = top.size() > kShown ? top.size() - kShown : 0;
    if (top.size() > kShown) top.resize(kShown);
    s.lines.push_back("Unmatched pieces, by how they begin, digits shown as n (" +
                      std::to_string(blankUnmatched_) + " of them blank):");
    for (const auto& [text, n] : top) {
      char count[24];
      std::snprintf(count, sizeof count, "%10lld  \"", static_cast<long long>(n));
      s.lines.push_back(count + std::string(text) + "\"");
    }
    if (unshown > 0) {
      s.lines.push_back("    (and " + std::to_string(unshown) + " more, of " +
                        std::to_string(unshownBeginnings) + " other beginnings)");
    }
    if (otherUnmatched_ > 0) {
      s.lines.push_back("    (and " + std::to_string(otherUnmatched_) +
                        " pieces of further beginnings, not counted one by one)");
    }
  }
  for (size_t i = 0; i < columns.size() && rows_ > 0; ++i) {
    if (i < filled_.size() && filled_[i]) continue;
    ++s.warnings;
    const Converter::ColumnField& c = columns[i];
    s.lines.push_back(rdf + ":" + std::to_string(c.rdfLine) + ": warning: field " +
                      std::to_string(c.field) + " (\"" + c.label + "\") stayed empty in " +
                      (rows_ == 1 ? std::string("the one row")
                                  : "every one of the " + std::to_string(rows_) + " rows") +
                      " written: check its DLC rows' start and length, or that their "
                      "record name, group and sequence ever apply");
  }
  s.lines.push_back(std::to_string(rows_) + (rows_ == 1 ? " row written" : " rows written"));
  return s;
}

}  // namespace qb
