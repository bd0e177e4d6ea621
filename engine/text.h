#pragma once
// String helpers with the semantics report and RDF processing rely on.

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "settings/errors.h"

namespace qb {

[[noreturn]] void ThrowInvalidCall(std::string_view source);

// `length` characters of `s` from 1-based `start`, fewer at the end of `s`, none past it.
// A start below 1 or a negative length is QbError 5 from `source`.
inline std::string_view Mid(std::string_view s, int64_t start, int64_t length,
                            std::string_view source) {
  if (start < 1 || length < 0) [[unlikely]] ThrowInvalidCall(source);
  if (static_cast<uint64_t>(start) > s.size()) return {};
  return s.substr(static_cast<size_t>(start - 1), static_cast<size_t>(length));
}

// A value kept across lines: its buffer only grows, so storing a value on the per-line path
// is a length check and a copy, without the library calls of std::string::assign.
class ValueBuffer {
 public:
  ValueBuffer() = default;
  ValueBuffer(const ValueBuffer& o) { assign(o.view()); }
  ValueBuffer& operator=(const ValueBuffer& o) {
    if (this != &o) assign(o.view());
    return *this;
  }
  ValueBuffer(ValueBuffer&&) noexcept = default;
  ValueBuffer& operator=(ValueBuffer&&) noexcept = default;

  std::string_view view() const { return {buf_.get(), len_}; }
  bool empty() const { return len_ == 0; }
  void assign(std::string_view v) {
    if (cap_ < v.size()) grow(v.size());
    if (!v.empty()) std::memmove(buf_.get(), v.data(), v.size());
    len_ = v.size();
  }
  void clear() { len_ = 0; }
  void swap(ValueBuffer& other) noexcept {
    buf_.swap(other.buf_);
    std::swap(cap_, other.cap_);
    std::swap(len_, other.len_);
  }

 private:
  void grow(size_t need) {
    size_t cap = need + cap_ + 16;
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
