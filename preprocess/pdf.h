#pragma once
// PDF reports: poppler-cpp extracts each page's text pieces with their boxes into an
// intermediate ".qbt" work file in the run's own folder (in the program folder's out/), and
// the page-layout step turns it into a ".qbr" text report that the run reads.

#include <atomic>
#include <filesystem>

#include "base/temp_file.h"
#include "engine/engine.h"

namespace qb {

inline constexpr std::string_view kPageStart = "Start Text Contents **";
inline constexpr std::string_view kPageEnd = "End Text Contents ****";
inline constexpr std::string_view kPageSeparator = "*****************>>>>>>>>>>>>>>>";

// Writes the PDF's text pieces, page by page, to a ".qbt" work file in the run's folder.
// Throws QbError 514 when the PDF cannot be read (damaged, encrypted, not a PDF), or
// 76 when the program folder's out/ is missing.
TempFile ConvertPdfToText(const std::filesystem::path& report, RunFolder& work);

// Lays the pages of a ".qbt" file out into a ".qbr" work file, which it returns. Stops after
// the current line when `cancel` is set.
TempFile ReformatPdfText(Engine& engine, const std::atomic<bool>& cancel,
                         const std::filesystem::path& textPath, RunFolder& work);

// Both steps, with their status texts; the ".qbt" is gone when this returns.
TempFile ProcessPDF(Engine& engine, std::atomic<bool>& cancel, const std::filesystem::path& report,
                    RunFolder& work);

}  // namespace qb
