#include "preprocess/text_step.h"

#include "preprocess/dff.h"

namespace qb {

std::string_view TextStep(const Engine& engine, const ReportEncoding& how) {
  if (engine.flags.PdfReport) return "ProcessPDF";
  if (engine.flags.DffReport) return "ProcessDFF";
  if (how.Rewritten()) return "ProcessPrintFile";
  return {};
}

TempFile MakeReportText(Engine& engine, std::atomic<bool>& cancel,
                        const std::filesystem::path& report, RunFolder& work,
                        const ReportEncoding& how, TextStepCounts& counts) {
  if (engine.flags.PdfReport)
    return ProcessPDF(engine, cancel, report, work, how.encoding, counts.pdf);
  if (engine.flags.DffReport) return ProcessDFF(engine, cancel, report, work, how.encoding);
  return ProcessPrintFile(engine, cancel, report, work, how, counts.printed);
}

}  // namespace qb
