#include "output/row_formatter.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/bytes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qb {
namespace {

char Lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// A set of bytes as a lookup table, for per-character tests on the hot path.
struct ByteSet {
  constexpr explicit ByteSet(std::string_view chars, bool bothCases = false) {
    for (char c : chars) {
      in[static_cast<unsigned char>(c)] = true;
      if (bothCases && c >= 'a' && c <= 'z') in[static_cast<unsigned char>(c - 'a' + 'A')] = true;
    }
  }
  constexpr bool operator()(char c) const { return in[static_cast<unsigned char>(c)]; }
  bool in[256] = {};
};
// The characters the clean-up drops, and the blank, which it drops only at the ends.
constexpr ByteSet kNumericSpecial("()%#*$,+-cdr ", /*bothCases=*/true);

// Per character, for the clean-up's quick pass: kKeep when it stays; kCareful when the
// quick pass cannot handle it (a blank, or a sign of a negative value).
enum : uint8_t { kKeep = 1, kCareful = 2 };
constexpr std::array<uint8_t, 256> MakeNumericClasses() {
  std::array<uint8_t, 256> classes{};
  for (int c = 0; c < 256; ++c) {
    const char ch = static_cast<char>(c);
    uint8_t k = kNumericSpecial(ch) ? 0 : kKeep;
    if (ch == ' ' || ch == '(' || ch == '-' || ch == 'c' || ch == 'C') k |= kCareful;
    classes[static_cast<size_t>(c)] = k;
  }
  return classes;
}
constexpr std::array<uint8_t, 256> kNumericClasses = MakeNumericClasses();

// True when the word holds a comma, a double quote, a CR or an LF: the usual "has a zero byte" test
// on the word XORed with each character repeated.
inline bool WordHasCsvSpecial(uint64_t w) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL, kHighs = 0x8080808080808080ULL;
  auto hasZero = [](uint64_t x) { return ((x - kOnes) & ~x & kHighs) != 0; };
  return hasZero(w ^ (kOnes * ',')) || hasZero(w ^ (kOnes * '"')) || hasZero(w ^ (kOnes * '\r')) ||
         hasZero(w ^ (kOnes * '\n'));
}

inline uint64_t LoadWord(const char* p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}

// The first `n` (below 8) bytes of a word as loaded from memory; the others zero, which is
// none of the characters a CSV value is quoted for.
inline uint64_t FirstBytes(uint64_t w, size_t n) {
  if constexpr (std::endian::native == std::endian::little) {
    return w & ((uint64_t{1} << (8 * n)) - 1);
  } else {
    return n == 0 ? 0 : w & ~((uint64_t{1} << (8 * (8 - n))) - 1);
  }
}

}  // namespace

RowFormatter::RowFormatter(OutputFormat format, std::string delimiter, std::string qualifier,
                           bool qualify, std::vector<Column> columns)
    : delimiter_(std::move(delimiter)),
      qualifier_(std::move(qualifier)),
      extra_(2 * qualifier_.size() + delimiter_.size() + 2 + kCopyBlock),
      cleaned_(columns.size()) {
  const bool csv = format == OutputFormat::Csv;
  sheet_ = format == OutputFormat::Xls;
  const bool qualified = format == OutputFormat::Txt && qualify && !qualifier_.empty();
  const Kind textKind = csv ? Kind::CsvText : qualified ? Kind::Qualified : Kind::Plain;
  for (const Column& c : columns) {
    columns_.push_back({c.numeric ? Kind::Numeric
                        : c.text  ? textKind
                                  : Kind::Plain,
                        csv || c.text ? textKind : Kind::Plain});
  }
}

namespace {
std::vector<RowFormatter::Column> KindsOf(std::span<const std::string> typeCodes) {
  std::vector<RowFormatter::Column> kinds;
  for (const std::string& code : typeCodes) kinds.push_back(RowFormatter::KindOf(code));
  return kinds;
}
}  // namespace

RowFormatter::RowFormatter(const OutputOptions& options, std::span<const std::string> typeCodes,
                           const Alphabet* alphabet)
    : RowFormatter(options.format, options.delimiter, options.qualifier, options.qualify,
                   KindsOf(typeCodes)) {
  if (alphabet) fold_ = alphabet->NumericFold();
}

std::string_view RowFormatter::Folded(std::string_view value) const {
  if (IsAscii(value)) return value;
  folded_.resize(value.size() + kCopyBlock);
  for (size_t i = 0; i < value.size(); ++i)
    folded_[i] = (*fold_)[static_cast<unsigned char>(value[i])];
  return std::string_view(folded_.data(), value.size());
}

void RowFormatter::Clean(std::vector<std::string_view>& values) {
  for (size_t c = 0; c < values.size() && c < columns_.size(); ++c) {
    if (columns_[c].rowKind != Kind::Numeric) continue;
    if (fold_) values[c] = Folded(values[c]);
    std::string& out = cleaned_[c];
    if (out.size() < values[c].size() + 1) out.resize(values[c].size() + 1);
    values[c] = std::string_view(out.data(), CleanNumber(values[c], out.data()));
  }
}

size_t RowFormatter::CleanNumberBlock(std::string_view value, char* out) {
#if defined(__SSE2__)
  // An amount of up to 16 characters holding only digits, points and commas (most of them)
  // is worked out from one block: copied whole, then the commas squeezed out.
  const size_t n = value.size();
  if (n <= kCopyBlock) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(value.data()));
    const __m128i digits = _mm_and_si128(_mm_cmpgt_epi8(block, _mm_set1_epi8('0' - 1)),
                                         _mm_cmplt_epi8(block, _mm_set1_epi8('9' + 1)));
    const __m128i commas = _mm_cmpeq_epi8(block, _mm_set1_epi8(','));
    const __m128i usual =
        _mm_or_si128(_mm_or_si128(digits, commas), _mm_cmpeq_epi8(block, _mm_set1_epi8('.')));
    const uint32_t live = (uint32_t{1} << n) - 1;
    if ((~static_cast<uint32_t>(_mm_movemask_epi8(usual)) & live) == 0) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), block);
      const uint32_t commaBits = static_cast<uint32_t>(_mm_movemask_epi8(commas)) & live;
      if (commaBits == 0) return n;
      size_t kept = static_cast<size_t>(std::countr_zero(commaBits));
      for (size_t i = kept + 1; i < n; ++i) {
        out[kept] = value[i];
        kept += value[i] != ',';
      }
      return kept;
    }
  }
#endif
  return CleanNumber(value, out);
}

size_t RowFormatter::CleanNumber(std::string_view value, char* out) {
  // The quick pass, without a branch per character: each character is stored, and the
  // cursor moves on only for those that stay. Most amounts ("12,345.67") need nothing else.
  size_t n = 0;
  uint8_t seen = 0;
  for (char c : value) {
    const uint8_t k = kNumericClasses[static_cast<unsigned char>(c)];
    out[n] = c;
    n += k & kKeep;
    seen |= k;
  }
  if ((seen & kCareful) == 0) return n;

  n = 0;
  bool negative = false;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (!kNumericSpecial(c)) {
      out[n++] = c;
      continue;
    }
    if (c == ' ') {
      if (n > 0) out[n++] = c;  // blanks before the first kept character go
      continue;
    }
    if (c == '(' || c == '-' ||
        (Lower(c) == 'c' && i + 1 < value.size() && Lower(value[i + 1]) == 'r')) {
      negative = true;
    }
  }
  while (n > 0 && out[n - 1] == ' ') --n;
  if (negative) {
    std::memmove(out + 1, out, n);
    out[0] = '-';
    ++n;
  }
  return n;
}

bool RowFormatter::HasCsvSpecialAt(const char* p, size_t n) {
#if defined(__SSE2__)
  // A block at a time: one compare per character sought, the bytes past `n` masked off.
  const __m128i comma = _mm_set1_epi8(','), quote = _mm_set1_epi8('"');
  const __m128i cr = _mm_set1_epi8('\r'), lf = _mm_set1_epi8('\n');
  for (size_t i = 0; i < n; i += kCopyBlock) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    auto found = static_cast<uint32_t>(_mm_movemask_epi8(
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, comma), _mm_cmpeq_epi8(block, quote)),
                     _mm_or_si128(_mm_cmpeq_epi8(block, cr), _mm_cmpeq_epi8(block, lf)))));
    if (n - i < kCopyBlock) found &= (uint32_t{1} << (n - i)) - 1;
    if (found != 0) return true;
  }
  return false;
#else
  return HasCsvSpecialByWords(p, n);
#endif
}

bool RowFormatter::HasCsvSpecialByWords(const char* p, size_t n) {
  if (n < 8) return WordHasCsvSpecial(FirstBytes(LoadWord(p), n));
  for (size_t i = 0; i + 8 < n; i += 8) {
    if (WordHasCsvSpecial(LoadWord(p + i))) return true;
  }
  return WordHasCsvSpecial(LoadWord(p + n - 8));  // overlaps the word before
}

char* RowFormatter::PutCsvQuoted(char* p, std::string_view value) {
  *p++ = '"';
  for (char c : value) {
    if (c == '"') *p++ = '"';
    *p++ = c;
  }
  *p++ = '"';
  return p;
}

// An empty value is written bare.
char* RowFormatter::PutQualified(char* p, std::string_view value) const {
  if (value.empty()) return p;
  p = PutBytes(p, qualifier_);
  for (size_t i = 0; i < value.size();) {
    if (value.compare(i, qualifier_.size(), qualifier_) == 0) {
      p = PutBytes(p, qualifier_);
      p = PutBytes(p, qualifier_);
      i += qualifier_.size();
    } else {
      *p++ = value[i++];
    }
  }
  return PutBytes(p, qualifier_);
}

std::string_view RowFormatter::Join(const std::vector<std::string_view>& values, bool header) {
  size_t bound = 0;
  for (size_t c = 0; c < columns_.size(); ++c) bound += ColumnBound(values[c]);
  if (line_.size() < bound) line_.resize(bound + line_.size());
  char* const begin = line_.data();
  char* p = begin;
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (c > 0) p = PutDelimiter(p);
    const Kind kind = header ? columns_[c].headerKind : columns_[c].rowKind;
    char* const start = p;
    p = Put<false>(p, kind == Kind::Numeric ? Kind::Plain : kind, values[c]);  // cleaned up already
    if (sheet_) p = xls::EscapeInPlace(start, p);
  }
  return std::string_view(begin, static_cast<size_t>(p - begin));
}

}  // namespace qb
