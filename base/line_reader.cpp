#include "base/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/errors.h"

namespace qb {
namespace {
constexpr size_t kMinChunk = 4096;
constexpr size_t kMaxChunk = 1 << 20;
}  // namespace

LineReader::LineReader(const std::filesystem::path& path, std::string_view source, size_t keep)
    : keep_(keep), source_(source) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) {
    int err = errno;
    if (err == ENOENT) throw QbError::Runtime(kFileNotFound, std::string(source)).at(path);
    throw ErrorFromErrno(err, std::string(source)).at(path);
  }
  struct stat st;
  if (::fstat(fd_, &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      ::close(fd_);
      fd_ = -1;
      throw QbError::Runtime(kPathFileAccess, std::string(source)).at(path);
    }
    size_ = st.st_size;
  }
  // Small files (RDFs) get a small buffer; reports stream through 1 MiB.
  capacity_ = std::clamp(static_cast<size_t>(size_) + 1, kMinChunk, kMaxChunk);
  buf_ = std::make_unique<char[]>(capacity_ + kLineSlack);
#ifdef POSIX_FADV_SEQUENTIAL
  ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

LineReader::~LineReader() {
  if (fd_ >= 0) ::close(fd_);
}

void LineReader::Seek(int64_t offset) {
  if (::lseek(fd_, offset, SEEK_SET) < 0) throw ErrorFromErrno(errno, std::string(source_));
  readPos_ = offset;
  begin_ = end_ = scanFrom_ = 0;
  eof_ = false;
  formFeed_ = nullptr;
  compacted_ = pieceLength_ = dropped_ = lineBytes_ = 0;
}

// Moves the unread tail to the front and reads more after it; false when nothing came.
// scanFrom_ is left where the bytes not yet searched for a line end begin.
bool LineReader::fill() {
  if (eof_) return false;
  formFeed_ = nullptr;
  if (begin_ > 0) {
    std::memmove(buf_.get(), buf_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == capacity_ && keep_ > 0) compact();
  if (end_ == capacity_) {  // a line longer than the buffer
    auto bigger = std::make_unique<char[]>(capacity_ * 2 + kLineSlack);
    std::memcpy(bigger.get(), buf_.get(), end_);
    buf_ = std::move(bigger);
    capacity_ *= 2;
  }
  scanFrom_ = end_;
  for (;;) {
    ssize_t n = ::read(fd_, buf_.get() + end_, capacity_ - end_);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw ErrorFromErrno(errno, std::string(source_));
    }
    if (n == 0) {
      eof_ = true;
      return false;
    }
    end_ += static_cast<size_t>(n);
    readPos_ += n;
    return true;
  }
}

// The buffer holds one unfinished line: each of its pieces is cut to keep_ characters, in
// place, form feeds kept. What was compacted before is not looked at again.
void LineReader::compact() {
  end_ = compacted_ = Compact(compacted_, end_);
}

size_t LineReader::Compact(size_t from, size_t to) {
  char* const buf = buf_.get();
  size_t out = from;
  for (size_t in = from; in < to; ++in) {
    const char c = buf[in];
    // A piece is cut after keep_ bytes, but not inside a UTF-8 character: the continuation
    // bytes of one begun before the cut are kept (in a single-byte code page, a few more
    // characters past the limit, which the run does not read anyway).
    const bool continues = keptLast_ && (static_cast<unsigned char>(c) & 0xC0) == 0x80;
    if (c == '\f') {
      pieceLength_ = 0;
    } else if (pieceLength_ < keep_ || continues) {
      ++pieceLength_;
    } else {
      ++dropped_;
      keptLast_ = false;
      continue;
    }
    keptLast_ = true;
    buf[out++] = c;
  }
  return out;
}

std::string_view LineReader::Finish(size_t end) {
  // A line that was cut while it was read has the rest of its pieces cut the same way (a CR
  // before the LF may be the last byte already cut).
  if (compacted_ > 0 && end > compacted_) end = Compact(compacted_, end);
  const std::string_view line(buf_.get() + begin_, end - begin_);
  lineBytes_ = line.size() + dropped_;
  compacted_ = pieceLength_ = dropped_ = 0;
  keptLast_ = false;
  return line;
}

bool LineReader::Next(std::string_view& line) {
  size_t scanFrom = begin_;
  for (;;) {
    const char* start = buf_.get() + scanFrom;
    const void* lf = std::memchr(start, '\n', end_ - scanFrom);
    if (lf) {
      const size_t at = static_cast<size_t>(static_cast<const char*>(lf) - buf_.get());
      line = Finish(at > begin_ && buf_[at - 1] == '\r' ? at - 1 : at);
      begin_ = at + 1;
      return true;
    }
    if (!fill()) {
      if (begin_ == end_) return false;
      line = Finish(end_);  // the last line, without an LF
      begin_ = end_;
      return true;
    }
    scanFrom = scanFrom_;
  }
}

bool LineReader::Next(std::string_view& line, bool& formFeed) {
  if (!Next(line)) return false;
  if (formFeed_ == nullptr || formFeed_ < line.data()) {
    const char* const bufferEnd = buf_.get() + end_;
    const void* found =
        std::memchr(line.data(), '\f', static_cast<size_t>(bufferEnd - line.data()));
    formFeed_ = found ? static_cast<const char*>(found) : bufferEnd;
  }
  formFeed = formFeed_ < line.data() + line.size();
  return true;
}

}  // namespace qb
