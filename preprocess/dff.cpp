#include "preprocess/dff.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "base/buffered_file.h"
#include "base/line_reader.h"
#include "engine/progress.h"
#include "engine/report_text.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qb {
namespace {

constexpr size_t kBlock = 16;
static_assert(LineReader::kLineSlack >= kBlock);

// Where the first `delimiter` of `piece` is (its size when there is none), a block at a time:
// `piece` is followed by a block's worth of readable bytes.
size_t FindDelimiter(std::string_view piece, char delimiter) {
#if defined(__SSE2__)
  const __m128i wanted = _mm_set1_epi8(delimiter);
  for (size_t i = 0; i < piece.size(); i += kBlock) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(piece.data() + i));
    if (const auto hits = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, wanted))))
      return std::min(piece.size(), i + static_cast<size_t>(std::countr_zero(hits)));
  }
  return piece.size();
#else
  const size_t at = piece.find(delimiter);
  return at == std::string_view::npos ? piece.size() : at;
#endif
}

}  // namespace

FieldPlacer::FieldPlacer(char delimiter, std::vector<int32_t> positions)
    : delimiter_(delimiter),
      positions_(std::move(positions)),
      line_(std::make_unique<char[]>(kWidth + LineReader::kLineSlack)) {}

FieldPlacer::FieldPlacer(RdfTables& tables) : FieldPlacer(',', {}) {
  Recordset& dfi = tables.rsDelimited;
  dfi.MoveFirst();
  if (!dfi.IsEOF() && !dfi.GetText(col::Delimited::fldDLM).empty())
    delimiter_ = dfi.GetText(col::Delimited::fldDLM).front();
  Recordset& dfc = tables.rsDelimitedCols;
  for (dfc.MoveFirst(); !dfc.IsEOF(); dfc.MoveNext()) {
    positions_.push_back(static_cast<int32_t>(dfc.GetInt(col::DelimitedCols::fldPOS)));
  }
}

std::string_view FieldPlacer::Place(std::string_view piece) {
  // Only the columns written so far are touched: the blanks between fields are filled as a
  // field is placed past them, never a whole blank line first. Past the columns written,
  // blanks and fields go in whole blocks (the line has a block to spare after column 500);
  // a field placed back over written columns is copied exactly.
  static constexpr char kBlanks[kBlock + 1] = "                ";
  char* const line = line_.get();
  size_t end = 0;  // columns written
  for (size_t n = 0; n < positions_.size(); ++n) {
    const size_t length = FindDelimiter(piece, delimiter_);
    const int32_t pos = positions_[n];
    if (pos < 1 || pos > static_cast<int32_t>(kWidth)) {
      throw QbError(kInvalidCall, "ProcessDFF",
                    "Invalid procedure call or argument: the DFC section places field " +
                        std::to_string(n + 1) + " at column " + std::to_string(pos) +
                        "; columns run from 1 to 500");
    }
    const size_t at = static_cast<size_t>(pos - 1);
    const size_t kept = std::min(length, kWidth - at);
    if (at >= end) {
      for (size_t i = end; i < at; i += kBlock) std::memcpy(line + i, kBlanks, kBlock);
      for (size_t i = 0; i < kept; i += kBlock)
        std::memcpy(line + at + i, piece.data() + i, kBlock);
      end = at + kept;
    } else {
      std::memcpy(line + at, piece.data(), kept);
      end = std::max(end, at + kept);
    }
    if (length == piece.size()) break;  // fewer fields than DFC rows: the rest blank
    piece.remove_prefix(length + 1);
  }
  while (end > 0 && line[end - 1] == ' ') --end;
  return std::string_view(line, end);
}

std::string_view FieldPlacer::Place(std::string_view piece, const std::filesystem::path& report,
                                    int64_t line) {
  try {
    return Place(piece);
  } catch (QbError& e) {
    throw e.at(report, line);
  }
}

void PlaceFields(std::string_view piece, char delimiter, const std::vector<int32_t>& positions,
                 std::string& line) {
  FieldPlacer placer(delimiter, positions);
  std::string padded(piece);
  padded.append(kBlock, '\0');  // the spare bytes Place reads past a piece
  line.assign(placer.Place(std::string_view(padded).substr(0, piece.size())));
}

TempFile ProcessDFF(Engine& engine, const std::atomic<bool>& cancel,
                    const std::filesystem::path& report, RunFolder& work, Encoding encoding) {
  constexpr std::string_view kProc = "ProcessDFF";
  UserInterface& ui = engine.app().ui();
  ui.status("Reformatting DFF file ...");
  TempFile output(work.Path(kProc), report.stem().string(), ".qbr", kProc);

  FieldPlacer placer(engine.tables);
  LineReader reader(report, kProc);
  BufferedFile sink(output.path(), kProc, output.shown());
  ByteProgress progress(ui, reader.FileSize());
  int64_t lineNumber = 0;
  // A UTF-8 report: each piece is placed as units, one a character, and written back.
  std::optional<ReportText> units;
  if (encoding == Encoding::Utf8) units.emplace(encoding);
  std::string utf8;
  auto place = [&](std::string_view piece) {
    if (!units) return sink.WriteLine(placer.Place(piece, report, lineNumber));
    const std::string_view placed =
        placer.Place(units->Units(piece, lineNumber), report, lineNumber);
    utf8.clear();
    units->alphabet().AppendUtf8(utf8, placed);
    sink.WriteLine(utf8);
  };
  std::string_view line;
  while (!cancel && reader.Next(line)) {
    ++lineNumber;
    progress.AddLine(line.size());
    for (size_t ff; (ff = line.find('\f')) != std::string_view::npos;) {
      place(line.substr(0, ff));
      line.remove_prefix(ff + 1);
    }
    place(line);
  }
  sink.WriteLine(" ");
  sink.Close();
  if (cancel) throw QbError(kUserInterrupt, std::string(kProc), "Reformatting Report file");
  return output;
}

}  // namespace qb
