#pragma once
// JSON strings for the JSON Lines that programs read (the trace, a batch's manifest).

#include <string>
#include <string_view>

#include "base/utf8.h"

namespace qb {

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
