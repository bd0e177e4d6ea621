#pragma once
// JSON strings for the JSON Lines that programs read (the trace, a batch's manifest).

#include <string>
#include <string_view>

namespace qb {

// The length of the valid UTF-8 sequence at `s`, or 0.
inline size_t Utf8Length(std::string_view s) {
  const auto b = static_cast<unsigned char>(s[0]);
  const size_t n = b < 0xC2 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF5 ? 4 : 0;
  if (n == 0 || s.size() < n) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0;
  }
  return n;
}

// A JSON string. Report text is bytes: valid UTF-8 passes as it is, any other byte is taken
// as the Latin-1 character of its value, so the object is always valid JSON. With
// `escapeBytes` such a byte is written as its escape ("\u00ff") instead, which a JSON reader
// takes for the same character and the manifest reader back for the byte: a file name that
// is not UTF-8 then still names its file.
inline void AppendJson(std::string& out, std::string_view text, bool escapeBytes = false) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F || (escapeBytes && c >= 0x80 && !Utf8Length(text.substr(i)))) {
      out += "\\u00";
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (size_t n = Utf8Length(text.substr(i)); n > 0) {
      out.append(text.substr(i, n));
      i += n - 1;
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  out += '"';
}

}  // namespace qb
