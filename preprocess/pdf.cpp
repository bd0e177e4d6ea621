#include "preprocess/pdf.h"

#include <poppler-document.h>
#include <poppler-page.h>

#include <cmath>
#include <memory>
#include <system_error>

#include "base/buffered_file.h"
#include "base/line_reader.h"
#include "base/recode.h"
#include "engine/progress.h"
#include "preprocess/pdf_layout.h"

namespace qb {
namespace {

[[noreturn]] void Unreadable(const std::filesystem::path& report, const std::string& why) {
  throw QbError(kPdfScan, "ProcessPDF", std::string(kPdfScanText) + "(" + why + ")").at(report);
}

int64_t Hundredths(double points) {
  return std::llround(points * 100.0);
}

// A word's text in Windows-1252, the encoding of the laid-out report: the euro sign, dashes,
// bullets and quotes keep their places there; the minus sign, which the code page lacks,
// becomes a hyphen-minus, so an amount keeps its sign; anything else it lacks is "?".
std::string Windows1252(Recoder& recode, const poppler::ustring& text) {
  std::vector<char> utf8 = text.to_utf8();
  std::string word(utf8.begin(), utf8.end());
  static constexpr std::string_view kMinusSign = "\xE2\x88\x92";
  for (size_t at; (at = word.find(kMinusSign)) != std::string::npos;) word.replace(at, 3, "-");
  return recode(word);
}

}  // namespace

TempFile ConvertPdfToText(const std::filesystem::path& report, RunFolder& work) {
  TempFile text(work.Path("ProcessPDF"), report.stem().string(), ".qbt", "ProcessPDF");
  std::error_code ec;
  if (!std::filesystem::is_regular_file(report, ec)) Unreadable(report, "the file does not exist");
  std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(report.string()));
  if (!doc) Unreadable(report, "the file is damaged or not a PDF");
  if (doc->is_locked()) Unreadable(report, "the PDF is protected by a password");

  BufferedFile sink(text.path(), "ProcessPDF");
  Recoder recode("WINDOWS-1252", "UTF-8", "ProcessPDF");
  auto write = [&sink](std::string_view line) { sink.WriteLine(line); };
  for (int i = 0; i < doc->pages(); ++i) {
    std::unique_ptr<poppler::page> page(doc->create_page(i));
    if (!page) Unreadable(report, "page " + std::to_string(i + 1) + " cannot be read");
    if (i > 0) write(kPageSeparator);
    write(std::string(kPageStart) + " Page " + std::to_string(i + 1));
    for (const poppler::text_box& box : page->text_list()) {
      const poppler::rectf r = box.bbox();
      TextPiece piece{i + 1,
                      Hundredths(r.left()),
                      Hundredths(r.top()),
                      Hundredths(r.right()),
                      Hundredths(r.bottom()),
                      Windows1252(recode, box.text())};
      write(FormatPieceLine(piece));
    }
    write(std::string(kPageEnd) + " Page " + std::to_string(i + 1));
  }
  sink.Close();
  return text;
}

TempFile ReformatPdfText(Engine& engine, const std::atomic<bool>& cancel,
                         const std::filesystem::path& textPath, RunFolder& work) {
  TempFile reportOut(work.Path("ReformatPdfText"), textPath.stem().string(), ".qbr",
                     "ReformatPdfText");
  LineReader reader(textPath, "ReformatPdfText");
  BufferedFile sink(reportOut.path(), "ReformatPdfText");
  ByteProgress progress(engine.app().ui(), reader.FileSize());
  const LayoutParams params = ReadLayoutParams(engine.tables);
  PageLayout layout;
  bool inPage = false;
  int pages = 0;
  std::string_view line;
  for (;;) {
    if (cancel || !reader.Next(line)) {
      sink.WriteLine(" ");
      break;
    }
    progress.AddLine(line.size());
    if (line.empty()) continue;
    const std::string_view head = line.substr(0, 22);
    if (!inPage) {
      if (head == kPageStart) {
        layout.NewPage();
        inPage = true;
        ++pages;
      }
      continue;
    }
    if (head != kPageEnd) {
      if (auto piece = ParsePieceLine(line)) layout.Add(*piece);
      continue;
    }
    inPage = false;
    std::vector<std::string> lines = layout.LineSet(params);
    const PageLayout::Placement& placed = layout.LastPlacement();
    if (placed.moved > 0) {
      engine.app().Log().WriteLog("ReformatPdfText", "Page " + std::to_string(pages) + ": " +
                                                         std::to_string(placed.moved) +
                                                         " words moved right, their columns taken");
    }
    if (placed.lost > 0) {
      engine.app().Log().WriteLog(
          "ReformatPdfText", "Warning: page " + std::to_string(pages) + ": " +
                                 std::to_string(placed.lost) +
                                 " words fall past column 500, in part or whole, and are lost: "
                                 "give the RDF's PDP row a finer pitch");
    }
    for (size_t i = 0; i < lines.size(); ++i) {
      // A page after the first begins with a form feed, as the printed report's did.
      if (i == 0 && pages > 1) lines[i].insert(0, 1, '\f');
      sink.WriteLine(lines[i]);
    }
  }
  layout.NewPage();
  sink.Close();
  return reportOut;
}

TempFile ProcessPDF(Engine& engine, std::atomic<bool>& cancel, const std::filesystem::path& report,
                    RunFolder& work) {
  UserInterface& ui = engine.app().ui();
  ui.status("Scanning PDF file ...");
  if (report.empty()) {
    cancel = true;
    throw QbError(kPdfScan, "ProcessPDF", std::string(kPdfScanText));
  }
  TempFile text = ConvertPdfToText(report, work);
  ui.status("Reformatting PDF file ...");
  return ReformatPdfText(engine, cancel, text.path(), work);
}

}  // namespace qb
