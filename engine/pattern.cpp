#include "engine/pattern.h"

#include <algorithm>

namespace qb {
namespace {

// One position. `c` is 0 when the segment has no character there; an absent character is
// not a blank and is found in every class list, as the empty string was by the original's
// substring search, but never equals a punctuation character.
template <typename PatternAt>
bool Match(PatternAt patternAt, std::string_view segment, size_t length) {
  bool inS = false, sSeen = false, inD = false, dSeen = false;
  for (size_t i = 0; i < length; ++i) {
    const char p = patternAt(i);
    const bool has = i < segment.size();
    const char c = has ? segment[i] : 0;
    if (p != 's' && inS) {
      if (!sSeen) return false;
      inS = false;
    }
    if (p != 'd' && inD) {
      if (!dSeen) return false;
      inD = false;
    }
    switch (p) {
      case 'x':
        if (has && c == ' ') return false;
        break;
      case 'b':
        if (!has || c != ' ') return false;
        break;
      case 'n':
        if (has && !((c >= '0' && c <= '9') || c == '?')) return false;
        break;
      case '.':
        if (has && c != '.' && c != '?') return false;
        break;
      case '/':
        if (has && c != '/' && c != '?') return false;
        break;
      case 's':
        if (!inS) sSeen = false;
        inS = true;
        if (!has || c != ' ') sSeen = true;
        break;
      case 'd':
        if (!inD) dSeen = false;
        inD = true;
        if (!has || c == '.' || c == '?') dSeen = true;
        break;
      default:
        if (p != 0 && kPatternPunctuation.find(p) != std::string_view::npos && (!has || c != p)) {
          return false;
        }
        break;
    }
  }
  return !(inS && !sSeen) && !(inD && !dSeen);
}

}  // namespace

bool PatternMatch(std::string_view pattern, std::string_view segment, size_t length) {
  return Match([pattern](size_t i) { return i < pattern.size() ? pattern[i] : char{0}; }, segment,
               length);
}

bool MatchesClass(char cls, std::string_view text) {
  return Match([cls](size_t) { return cls; }, text, text.size());
}

CompiledPattern::CompiledPattern(std::string_view pattern, size_t length)
    : pattern_(pattern), length_(length) {
  using namespace pattern_classes;
  const size_t used = std::min(pattern.size(), length);
  for (size_t i = 0; i < used;) {
    const char p = pattern[i];
    const auto at = static_cast<uint32_t>(i);
    uint64_t cls = 0;
    switch (p) {
      case 'x':
        cls = kNotBlank;
        break;
      case 'b':
        cls = kBlank;
        break;
      case 'n':
        cls = kDigit;
        break;
      case '.':
        cls = kDot;
        break;
      case '/':
        cls = kSlash;
        break;
      case 's':
      case 'd': {
        size_t end = i;
        while (end < used && pattern[end] == p) ++end;
        checks_.push_back({at, static_cast<uint32_t>(end - i), p == 's' ? kNotBlank : kDot});
        i = end;
        continue;
      }
      default:
        if (size_t k = kPatternPunctuation.find(p); p != 0 && k != std::string_view::npos) {
          cls = kFirstPunctuation << k;
        }
        break;
    }
    if (cls != 0) checks_.push_back({at, 1, cls});
    ++i;
  }
#if defined(__SSE2__)
  // Single positions go into blocks of sixteen, each starting at its first position.
  std::vector<Check> runs;
  for (const Check& c : checks_) {
    if (c.count != 1) {
      runs.push_back(c);
      continue;
    }
    if (blocks_.empty() || c.offset >= blocks_.back().offset + 16)
      blocks_.push_back({.offset = c.offset});
    Block& b = blocks_.back();
    const uint32_t bit = uint32_t{1} << (c.offset - b.offset);
    switch (c.cls) {
      case kNotBlank:
        b.notBlank |= bit;
        break;
      case kBlank:
        b.blank |= bit;
        break;
      case kDigit:
        b.digit |= bit;
        break;
      case kDot:
        b.dot |= bit;
        break;
      case kSlash:
        b.slash |= bit;
        break;
      default:  // punctuation: that character
        b.literal |= bit;
        b.literals[c.offset - b.offset] = pattern[c.offset];
        break;
    }
  }
  checks_ = std::move(runs);
#endif
}

}  // namespace qb
