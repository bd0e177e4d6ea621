#include "engine/row_formatter.h"

#include <cstdint>
#include <cstring>

namespace qb {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// A set of bytes as a lookup table, for per-character tests on the hot path.
struct ByteSet {
  constexpr explicit ByteSet(std::string_view chars, bool bothCases = false) {
    for (char c : chars) {
      in[static_cast<unsigned char>(c)] = true;
      if (bothCases && c >= 'a' && c <= 'z') in[static_cast<unsigned char>(c - 'a' + 'A')] = true;
    }
  }
  bool operator()(char c) const { return in[static_cast<unsigned char>(c)]; }
  bool in[256] = {};
};
constexpr ByteSet kNumericDrop("()%#*$,+-cdr", /*bothCases=*/true);

// Copies `n` bytes; short values (most report fields) without a library call.
inline char* CopyBytes(char* dst, const char* src, size_t n) {
  if (n <= 16) {
    if (n >= 8) {
      std::memcpy(dst, src, 8);
      std::memcpy(dst + n - 8, src + n - 8, 8);
    } else if (n >= 4) {
      std::memcpy(dst, src, 4);
      std::memcpy(dst + n - 4, src + n - 4, 4);
    } else {
      for (size_t i = 0; i < n; ++i) dst[i] = src[i];
    }
    return dst + n;
  }
  std::memcpy(dst, src, n);
  return dst + n;
}

// True when `v` holds a comma or a double quote: eight bytes at a time, with the usual
// "has a zero byte" test on the word XORed with each character repeated.
bool HasCsvSpecial(std::string_view v) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL, kHighs = 0x8080808080808080ULL;
  constexpr uint64_t kCommas = kOnes * ',', kQuotes = kOnes * '"';
  auto hasZero = [](uint64_t x) { return ((x - kOnes) & ~x & kHighs) != 0; };
  size_t i = 0;
  for (; i + 8 <= v.size(); i += 8) {
    uint64_t w;
    std::memcpy(&w, v.data() + i, 8);
    if (hasZero(w ^ kCommas) || hasZero(w ^ kQuotes)) return true;
  }
  for (; i < v.size(); ++i) {
    if (v[i] == ',' || v[i] == '"') return true;
  }
  return false;
}

}  // namespace

RowFormatter::RowFormatter(OutputFormat format, std::string delimiter, std::string qualifier,
                           bool qualify, std::vector<Column> columns)
    : format_(format),
      delimiter_(std::move(delimiter)),
      qualifier_(std::move(qualifier)),
      qualify_(qualify),
      columns_(std::move(columns)),
      cleaned_(columns_.size()) {}

void RowFormatter::Clean(std::vector<std::string_view>& values) {
  for (size_t c = 0; c < values.size() && c < columns_.size(); ++c) {
    if (columns_[c].numeric) values[c] = NumericCleanUp(values[c], cleaned_[c]);
  }
}

// "1,234.50CR" -> "-1234.50", "(12.00)" -> "-12.00": a value with "(", "-" or "cr" is
// negative; the characters of "()%#*$,+-cdr" (any case) go; blanks at both ends go.
std::string_view RowFormatter::NumericCleanUp(std::string_view value, std::string& out) {
  // Room for the sign in front of the kept text; the kept text is never longer than value.
  if (out.size() < value.size() + 1) out.resize(value.size() + 1);
  char* kept = out.data() + 1;
  size_t n = 0;
  bool negative = false;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (!kNumericDrop(c)) {
      kept[n++] = c;
      continue;
    }
    if (c == '(' || c == '-' ||
        (Lower(c) == 'c' && i + 1 < value.size() && Lower(value[i + 1]) == 'r')) {
      negative = true;
    }
  }
  size_t begin = 0;
  while (begin < n && kept[begin] == ' ') ++begin;
  while (n > begin && kept[n - 1] == ' ') --n;
  if (negative) {
    kept[begin - 1] = '-';
    return std::string_view(kept + begin - 1, n - begin + 1);
  }
  return std::string_view(kept + begin, n - begin);
}

char* RowFormatter::PutQualified(char* p, std::string_view value, bool text) const {
  auto put = [&p](std::string_view v) { p = CopyBytes(p, v.data(), v.size()); };
  if (format_ == OutputFormat::Csv) {
    if (!text || !HasCsvSpecial(value)) {
      put(value);
      return p;
    }
    *p++ = '"';
    for (char c : value) {
      if (c == '"') *p++ = '"';
      *p++ = c;
    }
    *p++ = '"';
    return p;
  }
  if (format_ != OutputFormat::Txt || !qualify_ || !text || value.empty() || qualifier_.empty()) {
    put(value);
    return p;
  }
  put(qualifier_);
  for (size_t i = 0; i < value.size();) {
    if (value.compare(i, qualifier_.size(), qualifier_) == 0) {
      put(qualifier_);
      put(qualifier_);
      i += qualifier_.size();
    } else {
      *p++ = value[i++];
    }
  }
  put(qualifier_);
  return p;
}

std::string_view RowFormatter::Join(const std::vector<std::string_view>& values, bool header) {
  // Room for the worst case: every character doubled by qualifying, two qualifiers and a
  // delimiter per column.
  size_t bound = 0;
  const size_t extra = 2 * qualifier_.size() + delimiter_.size() + 2;
  for (std::string_view v : values) bound += 2 * v.size() + extra;
  if (line_.size() < bound) line_.resize(bound + line_.size());
  char* const begin = line_.data();
  char* p = begin;
  const bool oneCharDelimiter = delimiter_.size() == 1;
  const bool csvHeader = header && format_ == OutputFormat::Csv;
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (c > 0) {
      if (oneCharDelimiter) {
        *p++ = delimiter_[0];
      } else {
        p = CopyBytes(p, delimiter_.data(), delimiter_.size());
      }
    }
    p = PutQualified(p, values[c], csvHeader || columns_[c].text);
  }
  return std::string_view(begin, static_cast<size_t>(p - begin));
}

}  // namespace qb
