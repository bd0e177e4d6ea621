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

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
  kNotBlank = 1,
  kBlank = 2,
  kDigit = 4,
  kDot = 8,
  kSlash = 16,
  kFirstPunctuation = 32
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

// A pattern turned into checks once, for the per-line path. Positions that accept anything
// cost nothing. Where the processor has SSE2 (every x86-64), single positions are checked
// sixteen at a time: each block of the segment is classified by a few vector compares and
// held against the masks of the positions that need each class. Elsewhere, and for the runs
// of "s" and "d", each constrained position is one table look-up. Gives the same answers as
// PatternMatch.
class CompiledPattern {
 public:
  CompiledPattern() = default;
  CompiledPattern(std::string_view pattern, size_t length);

  // The segment must be followed by kBlockSlack readable bytes (of any value).
  static constexpr size_t kBlockSlack = 16;
  bool Matches(std::string_view segment) const {
    using pattern_classes::kAccepts;
    // A segment cut short by the end of the line has absent positions, which the general
    // match handles.
    if (segment.size() < length_) [[unlikely]]
      return PatternMatch(pattern_, segment, length_);
#if defined(__SSE2__)
    for (const Block& b : blocks_) {
      if (!b.Matches(segment.data() + b.offset)) return false;
    }
#endif
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
#if defined(__SSE2__)
  // Sixteen positions from `offset`: bit i of a mask is set when position offset + i needs
  // that class; `literal` positions need the character in `literals`.
  struct Block {
    uint32_t offset = 0;
    uint32_t notBlank = 0, blank = 0, digit = 0, dot = 0, slash = 0, literal = 0;
    std::array<char, 16> literals{};
    bool Matches(const char* p) const {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      auto bits = [](__m128i m) { return static_cast<uint32_t>(_mm_movemask_epi8(m)); };
      const uint32_t blanks = bits(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')));
      const uint32_t unknown = bits(_mm_cmpeq_epi8(v, _mm_set1_epi8('?')));  // in every class
      const uint32_t digits = bits(_mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8('0' - 1)),
                                                 _mm_cmplt_epi8(v, _mm_set1_epi8('9' + 1))));
      const uint32_t dots = bits(_mm_cmpeq_epi8(v, _mm_set1_epi8('.')));
      const uint32_t slashes = bits(_mm_cmpeq_epi8(v, _mm_set1_epi8('/')));
      const uint32_t same = bits(
          _mm_cmpeq_epi8(v, _mm_loadu_si128(reinterpret_cast<const __m128i*>(literals.data()))));
      const uint32_t failed = (notBlank & blanks) | (blank & ~blanks) |
                              (digit & ~(digits | unknown)) | (dot & ~(dots | unknown)) |
                              (slash & ~(slashes | unknown)) | (literal & ~same);
      return failed == 0;
    }
  };
  std::vector<Block> blocks_;
#endif
  std::string pattern_;
  size_t length_ = 0;
  std::vector<Check> checks_;  // with SSE2, only the runs
};

}  // namespace qb
