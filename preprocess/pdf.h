#pragma once
// PDF reports: poppler-cpp extracts each page's text pieces with their boxes into an
// intermediate ".qbt" file in the program folder's out/, and the page-layout step turns
// it into a ".qbr" text report that the run reads.

#include <atomic>
#include <filesystem>

#include "engine/engine.h"

namespace qb {

inline constexpr std::string_view kPageStart = "Start Text Contents **";
inline constexpr std::string_view kPageEnd = "End Text Contents ****";
inline constexpr std::string_view kPageSeparator = "*****************>>>>>>>>>>>>>>>";

// Writes out/<name>.qbt. Throws QbError 514 when the PDF cannot be read (damaged,
// encrypted, not a PDF), or when out/ is missing.
std::filesystem::path ConvertPdfToText(Engine& engine, const std::filesystem::path& report);

// Lays the pages of a ".qbt" file out into the ".qbr" beside it, deletes the ".qbt" and
// returns the ".qbr". Stops after the current line when `cancel` is set.
std::filesystem::path ReformatPdfText(Engine& engine, const std::atomic<bool>& cancel,
                                      const std::filesystem::path& textPath);

// Both steps, with their status texts.
std::filesystem::path ProcessPDF(Engine& engine, std::atomic<bool>& cancel,
                                 const std::filesystem::path& report);

}  // namespace qb
