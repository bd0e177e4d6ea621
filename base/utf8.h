#pragma once
// Writing a code point as UTF-8, and the length of a sequence: inline and free of the rest of
// base, so that modules loaded on their own (the PDF reader) use them without linking anything.

#include <string>
#include <string_view>

namespace qb {

// Appends code point `cp` as UTF-8.
inline void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

// The length of the valid UTF-8 sequence at the start of `s` (2 to 4), or 0: an ASCII
// character, a byte that begins no sequence, a sequence cut short, an overlong form, a
// surrogate or a code point past U+10FFFF.
inline size_t Utf8Length(std::string_view s) {
  const auto b = static_cast<unsigned char>(s[0]);
  const size_t n = b < 0xC2 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
  if (n == 0 || s.size() < n) return 0;
  // Those three show in the second byte's range.
  const auto second = static_cast<unsigned char>(s[1]);
  const unsigned lowest = b == 0xE0 ? 0xA0 : b == 0xF0 ? 0x90 : 0x80;
  const unsigned highest = b == 0xED ? 0x9F : b == 0xF4 ? 0x8F : 0xBF;
  if (second < lowest || second > highest) return 0;
  for (size_t i = 2; i < n; ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0;
  }
  return n;
}

// The characters of UTF-8 text: its bytes but continuation bytes.
inline size_t Utf8Characters(std::string_view s) {
  size_t n = 0;
  for (char c : s) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return n;
}

}  // namespace qb
