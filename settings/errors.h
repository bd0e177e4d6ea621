#pragma once
// Errors of the engine and its support code.
//
// Each error carries the number and source that the user sees in a message box and in the
// run log ("Error: 519" from "LoadRDFHeader"), and, where it applies, the file and line that
// caused it. Procedures throw QbError inside; their boundaries catch it, log it through
// LogError and return failure, so callers see a bool plus the last error.

#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qb {

// Numbers of the run-time errors, kept as the original runtime numbered them so that logs
// read the same.
enum RuntimeError : int32_t {
  kInvalidCall = 5,    // invalid procedure call or argument
  kOverflow = 6,       // a number outside its type's range
  kSubscript = 9,      // subscript out of range
  kTypeMismatch = 13,  // text where a number was expected
  kFileNotFound = 53,
  kDeviceIO = 57,
  kDiskFull = 61,
  kPathFileAccess = 75,
  kPathNotFound = 76,
  kDuplicateKey = 457,  // a second collection item with the same key
};

// The runtime's own description of a run-time error number.
std::string_view RuntimeErrorText(int32_t number);

class QbError : public std::runtime_error {
 public:
  QbError(int32_t number, std::string source, std::string description)
      : std::runtime_error(description),
        number_(number),
        source_(std::move(source)),
        description_(std::move(description)) {}

  // A run-time error with the runtime's own description.
  static QbError Runtime(int32_t number, std::string source) {
    return QbError(number, std::move(source), std::string(RuntimeErrorText(number)));
  }

  int32_t number() const { return number_; }
  const std::string& source() const { return source_; }
  const std::string& description() const { return description_; }

  // Where the error applies: a file and, when known, a 1-based line of it.
  const std::filesystem::path& file() const { return file_; }
  int64_t line() const { return line_; }
  QbError& at(std::filesystem::path file, int64_t line = 0) {
    file_ = std::move(file);
    line_ = line;
    return *this;
  }
  QbError& withSource(std::string source) {
    source_ = std::move(source);
    return *this;
  }

  // "Error 519 in LoadRDFHeader: Corrupted RDF (x.rdf, line 12)" for lines on standard error.
  std::string describe() const;

 private:
  int32_t number_;
  std::string source_;
  std::string description_;
  std::filesystem::path file_;
  int64_t line_ = 0;
};

// The run-time error for a failed system call (errno): path not found, access, disk full.
QbError ErrorFromErrno(int err, std::string source);

// Numbers as the RDF, the systems list and the settings hold them: optional blanks, an
// optional sign and decimal digits. Anything else is error 13, a value outside the type's
// range error 6; `source` names the procedure for the error.
int16_t ParseInt16(std::string_view text, std::string_view source);
int32_t ParseInt32(std::string_view text, std::string_view source);

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

}  // namespace qb
