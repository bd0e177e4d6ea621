#pragma once
// How a workbook's rows travel as text: values joined by Tabs and rows by CR LF, for the paste
// modes' blocks and mode 6's work file. A value's own Tab, CR or LF would move cells or rows,
// so inside a value they travel escaped, and the sheet takes them back as they were:
//   Tab -> ESC 't', CR -> ESC 'r', LF -> ESC 'n', ESC itself -> ESC 'e'.

#include <string>
#include <string_view>

namespace qb::xls {

inline constexpr char kEscape = '\x1b';

inline bool NeedsEscape(char c) {
  return c == '\t' || c == '\r' || c == '\n' || c == kEscape;
}

// The value as it travels; `n` bytes at `begin` become the returned end, after the value was
// moved right in place (there must be room for every special character to double).
inline char* EscapeInPlace(char* begin, char* end) {
  size_t specials = 0;
  for (const char* p = begin; p != end; ++p) specials += NeedsEscape(*p);
  if (specials == 0) return end;
  char* out = end + specials;
  char* const newEnd = out;
  for (const char* p = end; p != begin;) {
    const char c = *--p;
    if (!NeedsEscape(c)) {
      *--out = c;
      continue;
    }
    *--out = c == '\t' ? 't' : c == '\r' ? 'r' : c == '\n' ? 'n' : 'e';
    *--out = kEscape;
  }
  return newEnd;
}

// The value as it was, from how it travelled.
inline std::string Unescape(std::string_view text) {
  std::string value;
  value.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != kEscape || i + 1 == text.size()) {
      value += text[i];
      continue;
    }
    const char code = text[++i];
    value += code == 't' ? '\t' : code == 'r' ? '\r' : code == 'n' ? '\n' : kEscape;
  }
  return value;
}

}  // namespace qb::xls
