#include "preprocess/pdf_layout.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/text_encoding.h"

namespace qb {
namespace {

constexpr size_t kWidth = 500;

int64_t Median(std::vector<int64_t> v) {
  if (v.empty()) return 0;
  std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
  return v[v.size() / 2];
}

// A laid-out line: a character a column, whatever its encoding will take.
using Line = std::u32string;

// Writes `text` at column `at` (from 0); false when some of it fell past the last column.
bool Put(Line& line, size_t at, std::u32string_view text) {
  if (at >= kWidth) return text.empty();
  const bool whole = text.size() <= kWidth - at;
  text = text.substr(0, kWidth - at);
  if (line.size() < at + text.size()) line.resize(at + text.size(), ' ');
  line.replace(at, text.size(), text);
  return whole;
}

// `at` when `length` characters there cover no other text and touch none (a blank or the
// line's end on either side: two pieces are two words); else the first column after it
// where they do neither.
size_t FirstFree(const Line& line, size_t at, size_t length) {
  auto taken = [&line](size_t p) { return p < line.size() && line[p] != U' '; };
  auto fits = [&](size_t p) {
    if ((p > 0 && taken(p - 1)) || taken(p + length)) return false;
    for (size_t i = p; i < std::min(p + length, line.size()); ++i) {
      if (line[i] != U' ') return false;
    }
    return true;
  };
  size_t p = at;
  while (p < kWidth && !fits(p)) ++p;
  return p;
}

// A band's tag as UTF-8, from the RDF's encoding.
std::string TagText(std::string_view tag, bool rdfUtf8) {
  if (rdfUtf8) return std::string(tag);
  std::string out;
  AppendWindows1252AsUtf8(out, tag);
  return out;
}

}  // namespace

void FormatPieceLine(const TextPiece& p, std::string& line) {
  char numbers[128] = "P ";
  char* at = numbers + 2;
  for (const int64_t n : {int64_t{p.page}, p.x1, p.y1, p.x2, p.y2}) {
    at = std::to_chars(at, numbers + sizeof numbers - 1, n).ptr;
    *at++ = ' ';
  }
  line.assign(numbers, at);
  static const char kHex[] = "0123456789ABCDEF";
  for (char c : p.text) {
    const auto b = static_cast<unsigned char>(c);
    if (b < 0x20 || b == 0x7F || c == '%') {
      line += '%';
      line += kHex[b >> 4];
      line += kHex[b & 15];
    } else {
      line += c;
    }
  }
}

std::string FormatPieceLine(const TextPiece& p) {
  std::string line;
  FormatPieceLine(p, line);
  return line;
}

std::optional<TextPiece> ParsePieceLine(std::string_view line) {
  if (line.substr(0, 2) != "P ") return std::nullopt;
  line.remove_prefix(2);
  int64_t v[5];
  for (int64_t& n : v) {
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    try {
      n = ParseInt32(line.substr(0, blank), "ReformatPdfText");
    } catch (const QbError&) {
      return std::nullopt;
    }
    line.remove_prefix(blank + 1);
  }
  TextPiece p{static_cast<int32_t>(v[0]), v[1], v[2], v[3], v[4], {}};
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (;;) {
    const size_t escape = line.find('%');
    p.text.append(line.substr(0, escape));
    if (escape == std::string_view::npos) break;
    line.remove_prefix(escape);
    if (line.size() < 3 || hex(line[1]) < 0 || hex(line[2]) < 0) return std::nullopt;
    p.text += static_cast<char>(hex(line[1]) * 16 + hex(line[2]));
    line.remove_prefix(3);
  }
  return p;
}

LayoutParams ReadLayoutParams(RdfTables& t, bool rdfUtf8) {
  LayoutParams params;
  Recordset& pdp = t.rsPdfParams;
  pdp.MoveFirst();
  if (!pdp.IsEOF()) {
    params.bandsOnly = pdp.GetBool(col::PdfParams::fldTLS);
    params.pitch = pdp.GetInt(col::PdfParams::fldRAT);
    params.margin = pdp.GetInt(col::PdfParams::fldXDT);
    params.yLimit = pdp.GetInt(col::PdfParams::fldYLT);
  }
  Recordset& pdc = t.rsPdfColumns;
  for (pdc.MoveFirst(); !pdc.IsEOF(); pdc.MoveNext()) {
    params.bands.push_back(
        {pdc.GetInt(col::PdfColumns::fldXS1), pdc.GetInt(col::PdfColumns::fldXS2),
         pdc.GetInt(col::PdfColumns::fldXE1), pdc.GetInt(col::PdfColumns::fldXE2),
         static_cast<int32_t>(pdc.GetInt(col::PdfColumns::fldPOS)),
         TagText(pdc.GetText(col::PdfColumns::fldTAG), rdfUtf8),
         static_cast<int32_t>(pdc.GetInt(col::PdfColumns::fldTPS))});
  }
  return params;
}

PageLayout::PageLayout() {
  NewPage();
}

void PageLayout::NewPage() {
  page_.clear();
}

void PageLayout::Add(TextPiece piece) {
  page_.push_back(std::move(piece));
}

std::vector<std::string> PageLayout::LineSet(const LayoutParams& given) {
  struct Piece {
    int64_t x1, x2, y, height;
    std::u32string text;
  };
  // Top to bottom by the pieces' baselines, left to right on one; pieces alike keep the
  // order they came in.
  std::vector<const TextPiece*> order;
  order.reserve(page_.size());
  for (const TextPiece& piece : page_) order.push_back(&piece);
  std::stable_sort(order.begin(), order.end(), [](const TextPiece* a, const TextPiece* b) {
    return a->y2 != b->y2 ? a->y2 < b->y2 : a->x1 < b->x1;
  });
  std::vector<Piece> pieces;
  pieces.reserve(page_.size());
  for (const TextPiece* piece : order) {
    if (Trim(piece->text).empty()) continue;
    pieces.push_back(
        {piece->x1, piece->x2, piece->y2, piece->y2 - piece->y1, CodePoints(piece->text)});
  }
  std::vector<std::string> lines;
  placement_ = {};
  if (pieces.empty()) return lines;

  // Parameters of 0 come from the page itself.
  LayoutParams p = given;
  if (p.pitch <= 0) {
    std::vector<int64_t> widths;
    for (const Piece& piece : pieces) {
      if (piece.text.size() >= 2)
        widths.push_back((piece.x2 - piece.x1) / static_cast<int64_t>(piece.text.size()));
    }
    p.pitch = std::max<int64_t>(1, Median(widths));
  }
  if (p.margin <= 0) {
    p.margin = pieces.front().x1;
    for (const Piece& piece : pieces) p.margin = std::min(p.margin, piece.x1);
  }
  if (p.yLimit <= 0) {
    std::vector<int64_t> heights;
    for (const Piece& piece : pieces) heights.push_back(piece.height);
    p.yLimit = std::max<int64_t>(1, Median(heights) / 3);
  }

  // Pieces on one baseline, within the limit, form a line.
  std::vector<std::vector<const Piece*>> rows;
  std::vector<int64_t> rowY;
  for (const Piece& piece : pieces) {
    if (rows.empty() || piece.y - rowY.back() > p.yLimit) {
      rows.emplace_back();
      rowY.push_back(piece.y);
    }
    rows.back().push_back(&piece);
  }
  // The line spacing is the smallest gap between lines; larger gaps hold blank lines.
  int64_t spacing = 0;
  for (size_t i = 1; i < rowY.size(); ++i) {
    const int64_t gap = rowY[i] - rowY[i - 1];
    if (spacing == 0 || gap < spacing) spacing = gap;
  }

  for (size_t r = 0; r < rows.size(); ++r) {
    if (r > 0 && spacing > 0) {
      const int64_t blanks =
          std::llround(static_cast<double>(rowY[r] - rowY[r - 1]) / static_cast<double>(spacing)) -
          1;
      for (int64_t b = 0; b < std::min<int64_t>(blanks, 60); ++b) lines.emplace_back();
    }
    auto& row = rows[r];
    std::sort(row.begin(), row.end(), [](const Piece* a, const Piece* b) { return a->x1 < b->x1; });
    Line line;
    // A piece never covers another: one whose columns are taken (a narrow pitch, a band
    // that reaches into a word) moves right, after one blank.
    auto place = [&](size_t column, std::u32string_view text) {
      const size_t at = FirstFree(line, column, text.size());
      if (at != column) ++placement_.moved;
      if (!Put(line, at, text)) ++placement_.lost;
    };
    std::map<size_t, std::u32string> bandText;  // band index -> its pieces joined
    for (const Piece* piece : row) {
      int band = -1;
      for (size_t b = 0; b < p.bands.size() && band < 0; ++b) {
        const LayoutParams::Band& d = p.bands[b];
        if ((piece->x1 >= d.xs1 && piece->x1 <= d.xs2) ||
            (d.xe2 > 0 && piece->x2 >= d.xe1 && piece->x2 <= d.xe2)) {
          band = static_cast<int>(b);
        }
      }
      if (band >= 0) {
        std::u32string& t = bandText[static_cast<size_t>(band)];
        if (!t.empty()) t += ' ';
        t += piece->text;
      } else if (!p.bandsOnly) {
        const int64_t measured =
            std::llround(static_cast<double>(piece->x1 - p.margin) / static_cast<double>(p.pitch));
        place(static_cast<size_t>(std::max<int64_t>(0, measured)), piece->text);
      }
    }
    for (const auto& [b, text] : bandText) {
      const LayoutParams::Band& d = p.bands[b];
      if (d.column >= 1) place(static_cast<size_t>(d.column - 1), text);
      if (!d.tag.empty() && d.tagColumn >= 1)
        place(static_cast<size_t>(d.tagColumn - 1), CodePoints(d.tag));
    }
    line.erase(line.find_last_not_of(U' ') + 1);
    lines.push_back(Utf8(line));
  }
  return lines;
}

}  // namespace qb
