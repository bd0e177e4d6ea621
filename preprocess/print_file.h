#pragma once
// Print files as the text lines a run reads. An EBCDIC file's records (each ended by NL or
// LF, or all of one fixed length) become ISO-8859-1 lines; the carriage-control character in
// column 1 of each record becomes what it did on the printer: "1" a new page (a form feed
// before the line), "0" one blank line before it, "-" two, "+" printing over the line
// before (the line is left out and counted), anything else (" ") just the line. The
// character itself goes, so column 1 is the first printed one.

#include <atomic>
#include <cstdint>
#include <filesystem>

#include "base/temp_file.h"
#include "engine/engine.h"
#include "engine/report_text.h"

namespace qb {

struct PrintFileCounts {
  int64_t records = 0;
  int64_t overprinted = 0;  // "+" lines left out
  int64_t cut = 0;          // EBCDIC records longer than kMaxPrintRecord, cut there
};

// The longest record or line kept whole; a run reads only its first 500 characters anyway,
// and a file read without its record length set may have no record ends at all.
inline constexpr size_t kMaxPrintRecord = 64 * 1024;

// Rewrites `report` as text lines in a ".qbr" work file in the run's folder and returns it.
// Throws QbError from "ProcessPrintFile": the file unreadable, the work file unwritable, or
// the user cancelled.
TempFile ProcessPrintFile(Engine& engine, const std::atomic<bool>& cancel,
                          const std::filesystem::path& report, RunFolder& work,
                          const ReportEncoding& how, PrintFileCounts& counts);

}  // namespace qb
