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

#include <string_view>

namespace qb {

// Matches `segment` against `pattern` over `length` positions. Positions past the end of
// the segment or the pattern hold no character.
bool PatternMatch(std::string_view pattern, std::string_view segment, size_t length);

// Every character of `text` tested with the one class letter `cls` (as a pattern of that
// letter repeated): the identification tests of rules other than "=", "p" and "x".
bool MatchesClass(char cls, std::string_view text);

}  // namespace qb
