#include "preprocess/pdf.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include "base/buffered_file.h"
#include "base/line_reader.h"
#include "base/shared_library.h"
#include "engine/progress.h"
#include "preprocess/pdf_layout.h"
#include "preprocess/pdf_reader.h"

namespace qb {
namespace {

[[noreturn]] void Unreadable(const std::filesystem::path& report, const std::string& why) {
  throw QbError(kPdfScan, "ProcessPDF", std::string(kPdfScanText) + "(" + why + ")").at(report);
}

int64_t Hundredths(double points) {
  return std::llround(points * 100.0);
}

// The turn of a page's text, in quarter turns clockwise (a word's rotation: 1 runs down the
// page, 2 upside down, 3 up the page), and the page's size as shown.
struct Turn {
  int quarters = 0;
  double width = 0, height = 0;
};

// The turn most of the page's words have; none when as many are upright.
Turn TurnOf(const QbPdfPage& page) {
  int count[4] = {};
  for (size_t i = 0; i < page.count; ++i) ++count[page.words[i].rotation & 3];
  Turn turn{0, page.width, page.height};
  for (int q = 1; q < 4; ++q) {
    if (count[q] > count[turn.quarters]) turn.quarters = q;
  }
  return turn;
}

// A word's box in the frame where the page's text reads left to right and top to bottom:
// left, top, right, bottom.
std::array<double, 4> Upright(const QbPdfWord& w, const Turn& t) {
  auto turn = [&t](double x, double y) -> std::pair<double, double> {
    switch (t.quarters) {
      case 1:
        return {y, t.width - x};
      case 2:
        return {t.width - x, t.height - y};
      case 3:
        return {t.height - y, x};
      default:
        return {x, y};
    }
  };
  const auto [ax, ay] = turn(w.left, w.top);
  const auto [bx, by] = turn(w.right, w.bottom);
  return {std::min(ax, bx), std::min(ay, by), std::max(ax, bx), std::max(ay, by)};
}

// A word's text, its typographic ligatures (U+FB00 to U+FB06, which fonts use for "ff",
// "fi", "ffi" ...) spelled out: a printed "ﬀ" stood for two letters and two columns.
std::string WordText(std::string_view utf8) {
  std::string word(utf8);
  static constexpr std::string_view kLigatures[] = {"ff", "fi", "fl", "ffi", "ffl", "st", "st"};
  for (size_t at = 0; (at = word.find("\xEF\xAC", at)) != std::string::npos;) {
    const auto last = at + 2 < word.size() ? static_cast<unsigned char>(word[at + 2]) : 0;
    if (last >= 0x80 && last <= 0x86) {
      word.replace(at, 3, kLigatures[last - 0x80]);
    } else {
      at += 2;
    }
  }
  return word;
}

using ReadPdf = decltype(qb_pdf_read);

ReadPdf* LoadPdfReader() {
  static const SharedLibrary module(SharedLibrary::OwnModule("libqb_pdf.so"),
                                    "the PDF reader (libqb_pdf.so and poppler)", kPdfScan,
                                    "ProcessPDF");
  return module.Function<ReadPdf>("qb_pdf_read");
}

// What the reader's page callback writes to, and the error that stopped it.
struct PieceWriter {
  BufferedFile& sink;
  PdfLayoutCounts& counts;
  const std::atomic<bool>* cancel;
  std::exception_ptr error;
  std::string line;  // a piece line, its buffer kept

  void Page(const QbPdfPage& page) {
    if (cancel && *cancel) throw QbError(kUserInterrupt, "ProcessPDF", "Scanning PDF file");
    if (page.number > 1) sink.WriteLine(kPageSeparator);
    sink.WriteLine(std::string(kPageStart) + " Page " + std::to_string(page.number));
    const Turn turn = TurnOf(page);
    if (turn.quarters != 0) counts.turnedPages.emplace_back(page.number, turn.quarters * 90);
    for (size_t i = 0; i < page.count; ++i) {
      const QbPdfWord& word = page.words[i];
      const auto [left, top, right, bottom] = Upright(word, turn);
      const TextPiece piece{page.number,        Hundredths(left),
                            Hundredths(top),    Hundredths(right),
                            Hundredths(bottom), WordText(std::string_view(word.text, word.size))};
      FormatPieceLine(piece, line);
      sink.WriteLine(line);
    }
    sink.WriteLine(std::string(kPageEnd) + " Page " + std::to_string(page.number));
  }
};

// A laid-out line in a single-byte code page: a minus sign that the code page lacks becomes
// a hyphen-minus, so that an amount keeps its sign; any other character it lacks is "?".
std::string InCodePage(std::string_view utf8, Alphabet& codePage) {
  std::string out;
  out.reserve(utf8.size());
  for (const char32_t cp : CodePoints(utf8)) {
    const std::optional<unsigned char> unit = codePage.UnitOf(cp);
    out += unit ? static_cast<char>(*unit) : cp == U'\u2212' ? '-' : '?';
  }
  return out;
}

}  // namespace

TempFile ConvertPdfToText(const std::filesystem::path& report, RunFolder& work,
                          PdfLayoutCounts& counts, const std::atomic<bool>* cancel) {
  TempFile text(work.Path("ProcessPDF"), report.stem().string(), ".qbt", "ProcessPDF");
  std::error_code ec;
  if (!std::filesystem::is_regular_file(report, ec)) {
    Unreadable(report, std::filesystem::exists(report, ec)
                           ? "it is not a file: a PDF is read from a file, not through a pipe"
                           : "the file does not exist");
  }
  static ReadPdf* const read = LoadPdfReader();

  BufferedFile sink(text.path(), "ProcessPDF", text.shown());
  PieceWriter writer{sink, counts, cancel, nullptr, {}};
  auto page = [](void* context, const QbPdfPage* p) {
    auto& w = *static_cast<PieceWriter*>(context);
    try {
      w.Page(*p);
      return 0;
    } catch (...) {
      w.error = std::current_exception();
      return 1;
    }
  };
  int badPage = 0;
  switch (read(report.c_str(), page, &writer, &badPage)) {
    case kQbPdfRead:
      break;
    case kQbPdfUnreadable:
      Unreadable(report, "the file is damaged or not a PDF");
    case kQbPdfLocked:
      Unreadable(report, "the PDF is protected by a password");
    case kQbPdfBadPage:
      Unreadable(report, "page " + std::to_string(badPage) + " cannot be read");
    case kQbPdfStopped:
      std::rethrow_exception(writer.error);
    default:
      Unreadable(report, "poppler could not read it");
  }
  sink.Close();
  return text;
}

TempFile ReformatPdfText(Engine& engine, const std::atomic<bool>& cancel,
                         const std::filesystem::path& textPath, RunFolder& work, Encoding encoding,
                         PdfLayoutCounts& counts) {
  TempFile reportOut(work.Path("ReformatPdfText"), textPath.stem().string(), ".qbr",
                     "ReformatPdfText");
  LineReader reader(textPath, "ReformatPdfText");
  BufferedFile sink(reportOut.path(), "ReformatPdfText", reportOut.shown());
  ByteProgress progress(engine.app().ui(), reader.FileSize());
  const LayoutParams params = ReadLayoutParams(engine.tables, engine.flags.RdfUtf8);
  std::optional<Alphabet> codePage;
  if (encoding != Encoding::Utf8) codePage.emplace(encoding);
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
      if (auto piece = ParsePieceLine(line)) layout.Add(std::move(*piece));
      continue;
    }
    inPage = false;
    std::vector<std::string> lines = layout.LineSet(params);
    const PageLayout::Placement& placed = layout.LastPlacement();
    counts.moved += placed.moved;
    counts.lost += placed.lost;
    if (placed.moved > PdfLayoutCounts::kFewMoved)
      counts.crowdedPages.emplace_back(pages, placed.moved);
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
                                 "give the RDF's PDP row a wider pitch");
    }
    for (size_t i = 0; i < lines.size(); ++i) {
      if (codePage) lines[i] = InCodePage(lines[i], *codePage);
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
                    RunFolder& work, Encoding encoding, PdfLayoutCounts& counts) {
  UserInterface& ui = engine.app().ui();
  ui.status("Scanning PDF file ...");
  if (report.empty()) {
    cancel = true;
    throw QbError(kPdfScan, "ProcessPDF", std::string(kPdfScanText));
  }
  TempFile text = ConvertPdfToText(report, work, counts, &cancel);
  for (const auto& [page, degrees] : counts.turnedPages) {
    engine.app().Log().WriteLog("ProcessPDF", "Page " + std::to_string(page) +
                                                  ": the text runs turned " +
                                                  std::to_string(degrees) +
                                                  " degrees on the page; laid out turned upright");
  }
  ui.status("Reformatting PDF file ...");
  return ReformatPdfText(engine, cancel, text.path(), work, encoding, counts);
}

}  // namespace qb
