#pragma once
// The step that turns a report into the text a run reads, for the run and the report view
// alike: a PDF is laid out, a delimited file placed in columns, a print file (EBCDIC, or with
// carriage control) rewritten as lines; any other report is read as it is.

#include <atomic>
#include <filesystem>
#include <string_view>

#include "base/temp_file.h"
#include "engine/engine.h"
#include "engine/report_text.h"
#include "preprocess/pdf.h"
#include "preprocess/print_file.h"

namespace qb {

// What the step did that the run's log and figures tell.
struct TextStepCounts {
  PrintFileCounts printed;
  PdfLayoutCounts pdf;
};

// The step's name ("ProcessPDF", "ProcessDFF", "ProcessPrintFile"), which its errors and log
// lines carry; empty when the report is read as it is.
std::string_view TextStep(const Engine& engine, const ReportEncoding& how);

// Runs the step that TextStep names, writing the text into the run's work folder.
TempFile MakeReportText(Engine& engine, std::atomic<bool>& cancel,
                        const std::filesystem::path& report, RunFolder& work,
                        const ReportEncoding& how, TextStepCounts& counts);

}  // namespace qb
