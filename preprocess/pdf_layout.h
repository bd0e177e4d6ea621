#pragma once
// The page-layout step of PDF reports: text pieces with their boxes on a page become the
// lines of a printed report. See docs/pdf-layout.md.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/rdf_tables.h"

namespace qb {

// One piece of text and its box, in hundredths of a point from the page's top left corner.
struct TextPiece {
  int32_t page = 0;
  int64_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
  std::string text;  // UTF-8
};

// "P <page> <x1> <y1> <x2> <y2> <text>", the text with "%", control characters and DEL
// written as %XX, so any character survives.
std::string FormatPieceLine(const TextPiece& piece);
// The same line written over `line` (its buffer kept from piece to piece).
void FormatPieceLine(const TextPiece& piece, std::string& line);
// Nothing when the line is not a piece line.
std::optional<TextPiece> ParsePieceLine(std::string_view line);

// The layout parameters: the RDF's PDP row and PDC bands. Zero values are derived from
// each page.
struct LayoutParams {
  bool bandsOnly = false;  // PDP column 0 "Y": text outside every band is dropped
  int64_t pitch = 0;       // character width
  int64_t margin = 0;      // x of column 1
  int64_t yLimit = 0;      // pieces this close vertically share a line
  struct Band {
    int64_t xs1, xs2, xe1, xe2;
    int32_t column;
    std::string tag;  // UTF-8
    int32_t tagColumn;
  };
  std::vector<Band> bands;
};
// `rdfUtf8`: the RDF's texts are UTF-8, not Windows-1252.
LayoutParams ReadLayoutParams(RdfTables& tables, bool rdfUtf8);

// The page table and LineSet.
class PageLayout {
 public:
  PageLayout();
  // Empties the page table.
  void NewPage();
  void Add(TextPiece piece);
  // Lays the collected page out as report lines in UTF-8 (trailing blanks removed, at most
  // 500 characters, each a column), blank lines where the vertical gaps call for them. A
  // piece never covers another, nor touches it: one whose columns are taken, or that would
  // run into the text before or after it, moves right, after one blank.
  std::vector<std::string> LineSet(const LayoutParams& params);

  // What the last LineSet had to do to the page's pieces.
  struct Placement {
    int64_t moved = 0;  // pieces moved right, their columns taken
    int64_t lost = 0;   // pieces that fell past the last column, in part or whole
  };
  const Placement& LastPlacement() const { return placement_; }

 private:
  Placement placement_;
  // The page table: the pieces as they came. A plain array: the generic table it was took a
  // quarter of a PDF's layout time setting, sorting and reading its fields.
  std::vector<TextPiece> page_;
};

}  // namespace qb
