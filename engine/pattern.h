#pragma once
// The pattern match of "p" markers.
//
// Per position, the pattern character decides what the report character may be:
//   x  not a blank          b  a blank            n  a digit or "?"
//   .  "." or "?"           /  "/" or "?"         punctuation  itself
//   s  a run of s needs at least one non-blank    d  a run of d needs a "." or "?"
//   anything else: any character.
// "?" stands in every class because reports print unprintable characters as "?".
// So "nn/nn/nn" matches "12/31/99" and "1?/31/99" but not "12-31-99".

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

// Pattern characters that stand for themselves.
inline constexpr std::string_view kPatternPunctuation = ":;,-+_\\*(){}[]@&%$#|!<>?=^";

// Matches `segment` against `pattern` over `length` positions. Positions past the end of
// the segment or the pattern hold no character.
bool PatternMatch(std::string_view pattern, std::string_view segment, size_t length);

// Every character of `text` tested with the one class letter `cls` (as a pattern of that
// letter repeated): the identification tests of rules other than "=", "p" and "x".
bool MatchesClass(char cls, std::string_view text);

namespace pattern_classes {
// One bit per class; kAccepts[c] has the bits of the classes that accept character c.
enum : uint64_t {
  kNotBlank = 1, kBlank = 2, kDigit = 4, kDot = 8, kSlash = 16, kFirstPunctuation = 32
};
constexpr std::array<uint64_t, 256> MakeAccepts() {
  std::array<uint64_t, 256> a{};
  for (int c = 0; c < 256; ++c) {
    uint64_t bits = c == ' ' ? kBlank : kNotBlank;
    if ((c >= '0' && c <= '9') || c == '?') bits |= kDigit;
    if (c == '.' || c == '?') bits |= kDot;
    if (c == '/' || c == '?') bits |= kSlash;
    for (size_t k = 0; k < kPatternPunctuation.size(); ++k) {
      if (static_cast<unsigned char>(kPatternPunctuation[k]) == c) bits |= kFirstPunctuation << k;
    }
    a[static_cast<size_t>(c)] = bits;
  }
  return a;
}
inline constexpr std::array<uint64_t, 256> kAccepts = MakeAccepts();
}  // namespace pattern_classes

// A pattern turned into a list of checks once, for the per-line path: each constrained
// position (or run of "s" or "d") is one table look-up per character. Positions that accept
// anything cost nothing. Gives the same answers as PatternMatch.
class CompiledPattern {
 public:
  CompiledPattern() = default;
  CompiledPattern(std::string_view pattern, size_t length);

  bool Matches(std::string_view segment) const {
    using pattern_classes::kAccepts;
    // A segment cut short by the end of the line has absent positions, which the general
    // match handles.
    if (segment.size() < length_) [[unlikely]] return PatternMatch(pattern_, segment, length_);
    for (const Check& c : checks_) {
      if (c.count == 1) {
        if ((kAccepts[static_cast<unsigned char>(segment[c.offset])] & c.cls) == 0) return false;
        continue;
      }
      bool any = false;
      for (uint32_t i = 0; i < c.count && !any; ++i) {
        any = (kAccepts[static_cast<unsigned char>(segment[c.offset + i])] & c.cls) != 0;
      }
      if (!any) return false;
    }
    return true;
  }

 private:
  // `count` 1: the character at `offset` must be in `cls`; more: at least one of the run's.
  struct Check {
    uint32_t offset;
    uint32_t count;
    uint64_t cls;
  };
  std::string pattern_;
  size_t length_ = 0;
  std::vector<Check> checks_;
};

}  // namespace qb
