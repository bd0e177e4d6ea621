#pragma once
// The .xlsx output, written by libxlsxwriter in its constant-memory mode: each row goes to the
// library's work file as the next one starts, so a run of a million rows holds one row in
// memory. The sheet is the .xls sheet: named by the RDF's heading, a bold header row, each
// column's number format, wrap and width from its type code, every column aligned to the top
// when one wraps, and the other columns as wide as their longest text (measured as the rows
// pass, set before the workbook is closed, as .xls's AutoFit gives them). A text keeps every
// character, a NUL and a control character as the escape that readers decode ("_x0000_").
//
// A sheet holds 1,048,576 rows, the header's included. The rows then go on on a second sheet
// named like the first with " (2)", and so on, each beginning with the header row; the log
// names each sheet begun.
//
// The workbook is written under a temporary name beside the output and renamed over it by
// Finish; Abandon drops it. Buffer modes do not apply.

#include <memory>

#include "output/output_sink.h"

namespace qb::xlsx {

// The rows an .xlsx sheet holds, the header's included, and its columns.
inline constexpr int kMaxRows = 1048576;
inline constexpr int kMaxColumns = 16384;

// Opens the workbook. Throws QbError from "CreateSheet".
std::unique_ptr<OutputSink> OpenSink(const OutputOptions& options, const OutputTarget& target);

}  // namespace qb::xlsx
