#pragma once
// PDF reports: poppler-cpp extracts each page's text pieces with their boxes into an
// intermediate ".qbt" work file in the run's own folder (in the program folder's out/), and
// the page-layout step turns it into a ".qbr" text report that the run reads.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

#include "base/temp_file.h"
#include "base/text_encoding.h"
#include "engine/engine.h"

namespace qb {

inline constexpr std::string_view kPageStart = "Start Text Contents **";
inline constexpr std::string_view kPageEnd = "End Text Contents ****";
inline constexpr std::string_view kPageSeparator = "*****************>>>>>>>>>>>>>>>";

// What laying a PDF's pages out had to do to its words.
struct PdfLayoutCounts {
  // More words than this moved on one page make the page crowded: the pitch is wider than
  // the characters of the page's text (a proportional font).
  static constexpr int64_t kFewMoved = 3;

  int64_t moved = 0;  // words moved right, their columns taken
  int64_t lost = 0;   // words that fell past column 500, in part or whole
  // Pages whose text runs turned on the page (a wide report printed sideways), with the
  // turn in degrees clockwise: laid out turned upright.
  std::vector<std::pair<int32_t, int>> turnedPages;
  std::vector<std::pair<int32_t, int64_t>> crowdedPages;  // page, words moved
};

// Writes the PDF's text pieces, page by page, to a ".qbt" work file in the run's folder, the
// pieces' text in UTF-8. A page whose text runs turned is turned upright first (noted in
// `counts`). Throws QbError 514 when the PDF cannot be read (damaged, encrypted, not a PDF),
// or 76 when the program folder's out/ is missing, and 18 when `cancel` is set (checked
// between pages).
TempFile ConvertPdfToText(const std::filesystem::path& report, RunFolder& work,
                          PdfLayoutCounts& counts, const std::atomic<bool>* cancel = nullptr);

// Lays the pages of a ".qbt" file out into a ".qbr" work file in `encoding`, which it
// returns. Stops after the current line when `cancel` is set.
TempFile ReformatPdfText(Engine& engine, const std::atomic<bool>& cancel,
                         const std::filesystem::path& textPath, RunFolder& work, Encoding encoding,
                         PdfLayoutCounts& counts);

// Both steps, with their status texts and log lines; the ".qbt" is gone when this returns.
TempFile ProcessPDF(Engine& engine, std::atomic<bool>& cancel, const std::filesystem::path& report,
                    RunFolder& work, Encoding encoding, PdfLayoutCounts& counts);

}  // namespace qb
