#pragma once
// The code page of a workbook's texts. A report's bytes are Windows-1252, as the spreadsheet
// program read them: an .xls keeps each character as a UTF-16 unit, an .xlsx as UTF-8. The
// bytes 0x81, 0x8D, 0x8F, 0x90 and 0x9D, which the code page leaves undefined, stand for the
// control characters of the same number, so that no byte is lost.

#include <cstdint>
#include <string>
#include <string_view>

namespace qb::xls {

// The UTF-16 unit of one Windows-1252 byte.
inline uint16_t Cp1252Unit(char c) {
  // Bytes 0x80 to 0x9F; the rest of the code page is Latin-1.
  static constexpr uint16_t kHigh[32] = {
      0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
      0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  const auto b = static_cast<unsigned char>(c);
  return b >= 0x80 && b < 0xA0 ? kHigh[b - 0x80] : b;
}

// Appends `text`, Windows-1252 bytes, to `out` as UTF-8.
inline void AppendUtf8(std::string& out, std::string_view text) {
  for (char c : text) {
    const uint16_t u = Cp1252Unit(c);
    if (u < 0x80) {
      out += static_cast<char>(u);
    } else if (u < 0x800) {
      out += static_cast<char>(0xC0 | (u >> 6));
      out += static_cast<char>(0x80 | (u & 0x3F));
    } else {
      out += static_cast<char>(0xE0 | (u >> 12));
      out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (u & 0x3F));
    }
  }
}

}  // namespace qb::xls
