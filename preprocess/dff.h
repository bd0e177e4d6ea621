#pragma once
// Delimited input (DFF): each line of a delimited file becomes a fixed-column line, every
// field at the column its DFC row gives, so the run reads it like a printed report.

#include <atomic>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/temp_file.h"
#include "engine/engine.h"

namespace qb {

// One input piece placed by the DFC rows into `line` (500 columns, trailing blanks removed).
// Fields are split at every `delimiter` with no quoting; fields beyond `positions` are
// dropped. Throws QbError 5 for a position below 1 or past 500.
void PlaceFields(std::string_view piece, char delimiter, const std::vector<int32_t>& positions,
                 std::string& line);

// Reformats `report` into a ".qbr" work file in the run's folder and returns it. Throws
// QbError from "ProcessDFF": out/ missing, the file unreadable, a DFC column outside 1 to
// 500 (with the input line), or the user cancelled ("Reformatting Report file").
TempFile ProcessDFF(Engine& engine, const std::atomic<bool>& cancel,
                    const std::filesystem::path& report, RunFolder& work);

}  // namespace qb
