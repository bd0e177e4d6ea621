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
  char* const buf = buf_.get();
  size_t out = compacted_;
  for (size_t in = compacted_; in < end_; ++in) {
    const char c = buf[in];
    if (c == '\f') {
      pieceLength_ = 0;
    } else if (pieceLength_ < keep_) {
      ++pieceLength_;
    } else {
      ++dropped_;
      continue;
    }
    buf[out++] = c;
  }
  end_ = compacted_ = out;
}

bool LineReader::Next(std::string_view& line) {
  size_t scanFrom = begin_;
  for (;;) {
    const char* start = buf_.get() + scanFrom;
    const void* lf = std::memchr(start, '\n', end_ - scanFrom);
    if (lf) {
      size_t at = static_cast<size_t>(static_cast<const char*>(lf) - buf_.get());
      size_t len = at - begin_;
      lineBytes_ = len + dropped_;
      if (len > 0 && buf_[at - 1] == '\r') {
        --len;
        --lineBytes_;
      }
      line = std::string_view(buf_.get() + begin_, len);
      begin_ = at + 1;
      compacted_ = pieceLength_ = dropped_ = 0;
      return true;
    }
    if (!fill()) {
      if (begin_ == end_) return false;
      line = std::string_view(buf_.get() + begin_, end_ - begin_);  // last line, no LF
      lineBytes_ = line.size() + dropped_;
      begin_ = end_;
      compacted_ = pieceLength_ = dropped_ = 0;
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
