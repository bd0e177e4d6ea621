#include "engine/rdf_codec.h"

#include <limits>

#include "base/errors.h"

namespace qb {

int16_t LineChecksum(std::string_view text) {
  int64_t sum = 0;
  for (unsigned char c : text) sum += c;
  return static_cast<int16_t>(sum % 1000);
}

void DecodeRDFLine(int16_t lineNo, std::string_view scrambled, std::string& plain,
                   int16_t& status) {
  const int64_t length = static_cast<int64_t>(scrambled.size());
  const int64_t sum = lineNo + length;
  if (sum > std::numeric_limits<int16_t>::max()) throw QbError::Runtime(kOverflow, "DecodeRDFLine");
  const int base = 10 + static_cast<int>(sum % 10);

  std::string w;
  w.resize(scrambled.size());
  int toggle = 0;
  for (size_t i = 1; i <= scrambled.size(); ++i) {
    toggle = toggle == 0 ? 2 : 0;
    int m = static_cast<int>(i % 10);
    if (m >= 7) m = 0;
    int x = static_cast<unsigned char>(scrambled[i - 1]) - (base + toggle + m);
    if (x < 32) x += 95;
    w[i - 1] = static_cast<char>(x);
  }
  if (w.size() > 6) {
    plain.assign(w, 6);
    plain.append(w, 0, 6);
  } else {
    plain = std::move(w);
  }

  if (lineNo != 1) return;
  const int64_t n = static_cast<int64_t>(plain.size()) - 3;
  if (n < 0) throw QbError::Runtime(kInvalidCall, "DecodeRDFLine");
  const int16_t computed = LineChecksum(std::string_view(plain).substr(0, static_cast<size_t>(n)));
  int16_t stored = -1;
  if (plain.compare(0, 3, "RDF") == 0) {
    stored = ParseInt16(std::string_view(plain).substr(static_cast<size_t>(n)), "DecodeRDFLine");
  }
  if (computed != stored) status = 5;
  plain.resize(static_cast<size_t>(n));
}

}  // namespace qb
