#pragma once
// String helpers with the semantics report and RDF processing rely on.

#include <cstdint>
#include <string_view>

#include "settings/errors.h"

namespace qb {

// `length` characters of `s` from 1-based `start`, fewer at the end of `s`, none past it.
// A start below 1 or a negative length is QbError 5 from `source`.
inline std::string_view Mid(std::string_view s, int64_t start, int64_t length,
                            std::string_view source) {
  if (start < 1 || length < 0) throw QbError::Runtime(kInvalidCall, std::string(source));
  if (static_cast<uint64_t>(start) > s.size()) return {};
  return s.substr(static_cast<size_t>(start - 1), static_cast<size_t>(length));
}

inline bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

}  // namespace qb
