#include "base/buffered_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/errors.h"

namespace qb {
namespace {
constexpr size_t kBufferSize = 1 << 20;
}

BufferedFile::BufferedFile(const std::filesystem::path& path, std::string_view source,
                           const std::filesystem::path& shown)
    : shown_(shown.empty() ? path : shown), source_(source) {
  // An empty file (a temporary file just made) is not truncated: ext4 takes a truncation to
  // nothing as a file being replaced in place and writes it out at close (auto_da_alloc),
  // which held a 100 MB output's run up by a fifth.
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd_ < 0) throw ErrorFromErrno(errno, source_).at(shown_);
  struct stat st {};
  if (::fstat(fd_, &st) != 0 || (st.st_size > 0 && ::ftruncate(fd_, 0) != 0)) {
    const int err = errno;
    ::close(fd_);
    fd_ = -1;
    throw ErrorFromErrno(err, source_).at(shown_);
  }
  buffer_ = std::make_unique_for_overwrite<char[]>(kBufferSize);
  size_ = kBufferSize;
}

BufferedFile::~BufferedFile() {
  if (fd_ >= 0) ::close(fd_);
}

void BufferedFile::WriteLine(std::string_view line) {
  char* p = Reserve(Cursor(), line.size() + 2);
  if (!line.empty()) {  // an empty line may have no data pointer at all
    std::memcpy(p, line.data(), line.size());
  }
  p += line.size();
  *p++ = '\r';
  *p++ = '\n';
  Commit(p);
}

char* BufferedFile::MakeRoom(char* cursor, size_t n) {
  Commit(cursor);
  flush();
  if (n > size_) {
    buffer_ = std::make_unique_for_overwrite<char[]>(n);
    size_ = n;
  }
  return Cursor();
}

void BufferedFile::flush() {
  std::string_view data(buffer_.get(), used_);
  while (!data.empty()) {
    ssize_t n = ::write(fd_, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      throw ErrorFromErrno(errno, source_).at(shown_);
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  used_ = 0;
}

void BufferedFile::Close() {
  if (fd_ < 0) return;
  flush();
  int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) throw ErrorFromErrno(errno, source_).at(shown_);
}

}  // namespace qb
