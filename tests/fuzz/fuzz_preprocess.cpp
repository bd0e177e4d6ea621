// libFuzzer target: the intermediate-file reader and page layout of PDF reports, and the
// field placement of delimited input, on arbitrary bytes.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "preprocess/dff.h"
#include "preprocess/pdf_layout.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  // Piece lines: whatever parses must format back to a line that parses the same.
  qb::PageLayout page;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    if (auto piece = qb::ParsePieceLine(line)) {
      auto again = qb::ParsePieceLine(qb::FormatPieceLine(*piece));
      if (!again || again->text != piece->text || again->x1 != piece->x1) std::abort();
      page.Add(*piece);
    }
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  qb::LayoutParams params;
  for (const std::string& line : page.LineSet(params)) {
    if (line.size() > 500) std::abort();
  }
  params.pitch = 1 + (size % 700);
  params.bands.push_back(
      {0, 50000, 0, 0, static_cast<int32_t>(size % 600), "T", static_cast<int32_t>(size % 520)});
  page.LineSet(params);

  // Field placement: a line of at most 500 columns, or an error for a bad position.
  std::vector<int32_t> positions;
  for (size_t i = 0; i < std::min<size_t>(size, 12); ++i)
    positions.push_back(static_cast<int8_t>(data[i]) * 4);
  std::string placed;
  try {
    qb::PlaceFields(bytes, size ? static_cast<char>(data[0]) : ',', positions, placed);
    if (placed.size() > 500) std::abort();
  } catch (const qb::QbError&) {
  }
  return 0;
}
