#include "base/errors.h"

#include <cerrno>
#include <limits>

#include "base/bytes.h"

namespace qb {

std::string_view RuntimeErrorText(int32_t number) {
  switch (number) {
    case kInvalidCall:
      return "Invalid procedure call or argument";
    case kOverflow:
      return "Overflow";
    case kOutOfMemory:
      return "Out of memory";
    case kSubscript:
      return "Subscript out of range";
    case kTypeMismatch:
      return "Type mismatch";
    case kUserInterrupt:
      return "User interrupt occurred";
    case kInternalError:
      return "Internal error";
    case kFileNotFound:
      return "File not found";
    case kDeviceIO:
      return "Device I/O error";
    case kDiskFull:
      return "Disk full";
    case kPathFileAccess:
      return "Path/File access error";
    case kPathNotFound:
      return "Path not found";
    case kDuplicateKey:
      return "This key is already associated with an element of this collection";
    default:
      return "Application-defined or object-defined error";
  }
}

std::string QbError::describe() const {
  std::string s = "Error " + std::to_string(number_);
  if (!source_.empty()) s += " in " + source_;
  s += ": " + std::string(Trim(description_));
  if (!detail_.empty()) return s + "\n" + Place();
  if (!file_.empty()) {
    s += " (" + file_.string();
    if (line_ > 0) s += ", line " + std::to_string(line_);
    s += ")";
  }
  return s;
}

std::string QbError::Place() const {
  if (detail_.empty()) return {};
  std::string s;
  if (!file_.empty()) {
    s = file_.string();
    if (line_ > 0) s += ":" + std::to_string(line_);
    s += ": ";
  }
  return s + detail_;
}

QbError ErrorFromErrno(int err, std::string source) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
      return QbError::Runtime(kPathNotFound, std::move(source));
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return QbError::Runtime(kPathFileAccess, std::move(source));
    case ENOSPC:
    case EDQUOT:
    case EFBIG:  // past the file-size limit: to the user, as a full disk
      return QbError::Runtime(kDiskFull, std::move(source));
    default:
      return QbError::Runtime(kDeviceIO, std::move(source));
  }
}

namespace {

template <typename Int>
Int ParseInt(std::string_view text, std::string_view source) {
  std::string_view t = Trim(text);
  bool negative = false;
  if (!t.empty() && (t.front() == '+' || t.front() == '-')) {
    negative = t.front() == '-';
    t.remove_prefix(1);
  }
  if (t.empty()) throw QbError::Runtime(kTypeMismatch, std::string(source));
  int64_t value = 0;
  for (char c : t) {
    if (c < '0' || c > '9') throw QbError::Runtime(kTypeMismatch, std::string(source));
    value = value * 10 + (c - '0');
    if (value > int64_t{std::numeric_limits<Int>::max()} + 1) {
      throw QbError::Runtime(kOverflow, std::string(source));
    }
  }
  if (negative) value = -value;
  if (value < std::numeric_limits<Int>::min() || value > std::numeric_limits<Int>::max()) {
    throw QbError::Runtime(kOverflow, std::string(source));
  }
  return static_cast<Int>(value);
}

}  // namespace

int16_t ParseInt16(std::string_view text, std::string_view source) {
  return ParseInt<int16_t>(text, source);
}
int32_t ParseInt32(std::string_view text, std::string_view source) {
  return ParseInt<int32_t>(text, source);
}

}  // namespace qb
