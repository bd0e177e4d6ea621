#include "engine/text.h"

namespace qb {

// Out of line, so that Mid stays small enough to inline on the per-line path.
void ThrowInvalidCall(std::string_view source) {
  throw QbError::Runtime(kInvalidCall, std::string(source));
}

}  // namespace qb
