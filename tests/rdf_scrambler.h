#pragma once
// The inverse of the RDF line decoder, for tests and for making the scrambled sample.
// The product itself never writes scrambled RDFs.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "engine/rdf_codec.h"

namespace qb::test {

// Scrambles one plain line as line `lineNo`; line 1 gets its three-digit checksum first
// unless `withChecksum` is false (for damaged files).
inline std::string ScrambleRDFLine(int16_t lineNo, std::string_view plain,
                                   bool withChecksum = true) {
  std::string r(plain);
  if (lineNo == 1 && withChecksum) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%03d", LineChecksum(plain));
    r += digits;
  }
  const size_t length = r.size();
  std::string w = length > 6 ? r.substr(length - 6) + r.substr(0, length - 6) : r;
  const int base = 10 + static_cast<int>((lineNo + static_cast<int64_t>(length)) % 10);
  int toggle = 0;
  for (size_t i = 1; i <= length; ++i) {
    toggle = toggle == 0 ? 2 : 0;
    int m = static_cast<int>(i % 10);
    if (m >= 7) m = 0;
    int x = static_cast<unsigned char>(w[i - 1]) + base + toggle + m;
    if (x > 126) x -= 95;
    w[i - 1] = static_cast<char>(x);
  }
  return w;
}

// A whole plain RDF scrambled: comment lines dropped (a scrambled file has none), every
// other line trimmed and scrambled with its number, CR LF line ends.
inline std::string ScrambleRDF(std::string_view plainFile) {
  std::string out;
  int16_t lineNo = 0;
  while (!plainFile.empty()) {
    size_t end = plainFile.find('\n');
    std::string_view line = plainFile.substr(0, end);
    plainFile = end == std::string_view::npos ? std::string_view() : plainFile.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line.front() == ' ' || line.front() == '[') continue;
    while (!line.empty() && line.back() == ' ') line.remove_suffix(1);
    out += ScrambleRDFLine(++lineNo, line);
    out += "\r\n";
  }
  return out;
}

}  // namespace qb::test
