#pragma once
// Byte helpers with the semantics report and RDF processing rely on: trimming, cutting,
// and the block reads and copies that need 16 readable bytes after a value (kCopyBlock).

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/errors.h"

namespace qb {

// Blanks removed at both ends. Only the space counts: a tab in report text is data.
// Inline, eight characters at a time: the run trims every value it picks up, and report
// fields are padded with runs of blanks.
namespace trim_detail {
constexpr uint64_t kBlanks = 0x2020202020202020ULL;
inline uint64_t NonBlanks(const char* p) {  // zero bytes where p has blanks
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w ^ kBlanks;
}
constexpr bool kLittleEndian = std::endian::native == std::endian::little;
}  // namespace trim_detail

[[gnu::always_inline]] inline std::string_view TrimRight(std::string_view s) {
  using namespace trim_detail;
  const char* const begin = s.data();
  size_t n = s.size();
  if constexpr (kLittleEndian) {
    while (n >= 8) {
      const uint64_t x = NonBlanks(begin + n - 8);
      if (x != 0) return {begin, n - static_cast<size_t>(std::countl_zero(x)) / 8};
      n -= 8;
    }
  }
  while (n > 0 && begin[n - 1] == ' ') --n;
  return {begin, n};
}
[[gnu::always_inline]] inline std::string_view Trim(std::string_view s) {
  using namespace trim_detail;
  const char* p = s.data();
  const char* const end = p + s.size();
  if constexpr (kLittleEndian) {
    while (end - p >= 8) {
      const uint64_t x = NonBlanks(p);
      if (x != 0) {
        p += std::countr_zero(x) / 8;
        return TrimRight({p, static_cast<size_t>(end - p)});
      }
      p += 8;
    }
  }
  while (p < end && *p == ' ') ++p;
  return TrimRight({p, static_cast<size_t>(end - p)});
}

// ASCII case-insensitive comparison, for section, key and collection names.
bool EqualsNoCase(std::string_view a, std::string_view b);

[[noreturn]] void ThrowInvalidCall(std::string_view source);

// `length` characters of `s` from 1-based `start`, fewer at the end of `s`, none past it.
// A start below 1 or a negative length is QbError 5 from `source`.
inline std::string_view Mid(std::string_view s, int64_t start, int64_t length,
                            std::string_view source) {
  if (start < 1 || length < 0) [[unlikely]]
    ThrowInvalidCall(source);
  if (static_cast<uint64_t>(start) > s.size()) return {};
  return s.substr(static_cast<size_t>(start - 1), static_cast<size_t>(length));
}

namespace text_detail {
template <typename Word>
inline Word Load(const char* p) {
  Word w;
  std::memcpy(&w, p, sizeof w);
  return w;
}
// The first and last words of `n` bytes (sizeof(Word) <= n <= 2 * sizeof(Word)), which
// overlap when n is below twice the word size.
template <typename Word>
inline void CopyHeadTail(char* dst, const char* src, size_t n) {
  const Word head = Load<Word>(src), tail = Load<Word>(src + n - sizeof(Word));
  std::memcpy(dst, &head, sizeof head);
  std::memcpy(dst + n - sizeof(Word), &tail, sizeof tail);
}
template <typename Word>
inline bool SameHeadTail(const char* a, const char* b, size_t n) {
  const size_t last = n - sizeof(Word);
  return ((Load<Word>(a) ^ Load<Word>(b)) | (Load<Word>(a + last) ^ Load<Word>(b + last))) == 0;
}
}  // namespace text_detail

// Copies `n` bytes from `src` to `dst` and returns the end of the copy. Short values (most
// report fields) are copied in two overlapping words, without a library call; every byte is
// loaded before any is stored, so `src` and `dst` may overlap when n is at most 16.
[[gnu::always_inline]] inline char* CopyBytes(char* dst, const char* src, size_t n) {
  if (n > 16) {
    std::memmove(dst, src, n);
  } else if (n >= 8) {
    text_detail::CopyHeadTail<uint64_t>(dst, src, n);
  } else if (n >= 4) {
    text_detail::CopyHeadTail<uint32_t>(dst, src, n);
  } else if (n > 0) {
    const char first = src[0], middle = src[n / 2], last = src[n - 1];
    dst[0] = first;
    dst[n / 2] = middle;
    dst[n - 1] = last;
  }
  return dst + n;
}

// True when the `n` bytes at `a` and `b` are equal; short runs (most markers) compared in two
// overlapping words, without a library call.
inline bool SameBytes(const char* a, const char* b, size_t n) {
  if (n > 16) return std::memcmp(a, b, n) == 0;
  if (n >= 8) return text_detail::SameHeadTail<uint64_t>(a, b, n);
  if (n >= 4) return text_detail::SameHeadTail<uint32_t>(a, b, n);
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

// Copies `n` bytes in 16-byte blocks and returns the end of the copy. It reads and writes up
// to a block past the ends (a whole block when n is 0), so both sides need that room; in
// exchange a short value costs one load and one store, whatever its length.
inline constexpr size_t kCopyBlock = 16;
[[gnu::always_inline]] inline char* CopyBlocks(char* dst, const char* src, size_t n) {
  std::memcpy(dst, src, kCopyBlock);  // the whole value, mostly: no test for its length
  for (size_t i = kCopyBlock; i < n; i += kCopyBlock) [[unlikely]] {
      std::memcpy(dst + i, src + i, kCopyBlock);
    }
  return dst + n;
}

namespace text_detail {
// One bit per byte of the 16 at `p` (bit i for p[i]) that is not a blank, a word at a time
// (the little-endian order of bits; TrimBlock uses it only there).
inline uint32_t NonBlankBitsByWords(const char* p) {
  auto bits8 = [](const char* q) {
    constexpr uint64_t kLow7 = 0x7f7f7f7f7f7f7f7fULL;
    const uint64_t x = trim_detail::NonBlanks(q);                // zero bytes were blanks
    const uint64_t high = (((x & kLow7) + kLow7) | x) & ~kLow7;  // the top bit of the others
    // Gathers the eight top bits into one byte, byte i's bit to bit i.
    return static_cast<uint32_t>(((high >> 7) * 0x0102040810204080ULL) >> 56);
  };
  return bits8(p) | bits8(p + 8) << 8;
}
// The same in one vector compare where the processor has SSE2 (every x86-64).
inline uint32_t NonBlankBits16(const char* p) {
#if defined(__SSE2__)
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const auto blanks =
      static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(' '))));
  return ~blanks & 0xffffu;
#else
  return NonBlankBitsByWords(p);
#endif
}
}  // namespace text_detail

// Trim of `n` bytes at `p` that are followed by at least kCopyBlock readable bytes: a field
// of up to 16 characters (most report fields) is trimmed from one block's mask of
// non-blanks, without a branch per character.
[[gnu::always_inline]] inline std::string_view TrimBlock(const char* p, size_t n) {
  if constexpr (std::endian::native == std::endian::little) {
    if (n <= kCopyBlock) {
      const uint32_t bits = text_detail::NonBlankBits16(p) & ((uint32_t{1} << n) - 1);
      if (bits == 0) return {p, 0};
      const int first = std::countr_zero(bits), last = 31 - std::countl_zero(bits);
      return {p + first, static_cast<size_t>(last - first + 1)};
    }
  }
  return Trim({p, n});
}

// A value kept across lines: its buffer only grows, so storing a value on the per-line path
// is a length check and a copy, without the library calls of std::string::assign. The
// buffer's size is a whole number of copy blocks, so a value can be block-copied out of it.
class ValueBuffer {
 public:
  ValueBuffer() : buf_(std::make_unique<char[]>(2 * kCopyBlock)), cap_(2 * kCopyBlock) {}
  ValueBuffer(const ValueBuffer& o) : ValueBuffer() { assign(o.view()); }
  ValueBuffer& operator=(const ValueBuffer& o) {
    if (this != &o) assign(o.view());
    return *this;
  }
  ValueBuffer(ValueBuffer&& o) noexcept
      : buf_(std::move(o.buf_)), cap_(std::exchange(o.cap_, 0)), len_(std::exchange(o.len_, 0)) {}
  ValueBuffer& operator=(ValueBuffer&& o) noexcept {
    buf_ = std::move(o.buf_);
    cap_ = std::exchange(o.cap_, 0);
    len_ = std::exchange(o.len_, 0);
    return *this;
  }

  std::string_view view() const { return {buf_.get(), len_}; }
  // The value's bytes, readable in whole copy blocks (CopyBlocks).
  const char* data() const { return buf_.get(); }
  size_t size() const { return len_; }
  bool empty() const { return len_ == 0; }
  // Inlined even where the compiler would not: it is the per-pickup store. (A moved-from
  // buffer has no room at all, so it grows here before it is written.)
  [[gnu::always_inline]] void assign(std::string_view v) {
    if (v.size() >= cap_) [[unlikely]]
      grow(v.size());
    CopyBytes(buf_.get(), v.data(), v.size());
    len_ = v.size();
  }
  // The same, block-copied from a source readable a block past its end.
  [[gnu::always_inline]] void assignBlocks(std::string_view v) {
    if (v.size() >= cap_) [[unlikely]]
      grow(v.size());
    CopyBlocks(buf_.get(), v.data(), v.size());
    len_ = v.size();
  }
  // From another value, block-copied.
  [[gnu::always_inline]] void assign(const ValueBuffer& o) {
    if (o.len_ >= cap_) [[unlikely]]
      grow(o.len_);
    CopyBlocks(buf_.get(), o.buf_.get(), o.len_);
    len_ = o.len_;
  }
  void clear() { len_ = 0; }

 private:
  void grow(size_t need) {
    const size_t cap = (need + cap_ + kCopyBlock) / kCopyBlock * kCopyBlock;
    auto bigger = std::make_unique_for_overwrite<char[]>(cap);
    if (len_ > 0) std::memcpy(bigger.get(), buf_.get(), len_);
    buf_ = std::move(bigger);
    cap_ = cap;
  }

  std::unique_ptr<char[]> buf_;
  size_t cap_ = 0;
  size_t len_ = 0;
};

inline bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

}  // namespace qb
