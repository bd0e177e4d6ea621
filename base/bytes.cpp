#include "base/bytes.h"

namespace qb {

// Out of line, so that Mid stays small enough to inline on the per-line path.
void ThrowInvalidCall(std::string_view source) {
  throw QbError::Runtime(kInvalidCall, std::string(source));
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

}  // namespace qb
