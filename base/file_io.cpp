#include "base/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "base/errors.h"

// cachestat(2) came with Linux 6.5, after the C library and kernel headers we build with; its
// number is the same on x86-64 and ARM64. Elsewhere, unnamed, it is not asked.
#if !defined(__NR_cachestat) && (defined(__x86_64__) || defined(__aarch64__)) && !defined(__ILP32__)
#define __NR_cachestat 451
#endif

namespace qb {
namespace {

// Whether some of the file's cached pages are dirty or being written; false when the kernel
// cannot say.
bool HasUnwrittenPages(int fd) {
#ifndef __NR_cachestat
  (void)fd;
  return false;
#else
  struct {
    uint64_t offset = 0, length = 0;  // the whole file
  } range;
  struct {
    uint64_t cached, dirty, writeback, evicted, recentlyEvicted;
  } stat{};
  if (::syscall(__NR_cachestat, fd, &range, &stat, 0) != 0) return false;
  return stat.dirty > 0 || stat.writeback > 0;
#endif
}

// Writes all of `data` to `fd`; returns 0 or the errno of the failure.
int WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return 0;
}

}  // namespace

std::string ReadWholeFile(const std::filesystem::path& path, std::string_view source) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int err = errno;
    if (err == ENOENT) throw QbError::Runtime(kFileNotFound, std::string(source)).at(path);
    throw ErrorFromErrno(err, std::string(source)).at(path);
  }
  std::string out;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      int err = errno;
      ::close(fd);
      throw ErrorFromErrno(err, std::string(source)).at(path);
    }
    if (n == 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

void WriteFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::string_view source) {
  std::string tmpl = path.string() + ".XXXXXX";
  int fd = ::mkstemp(tmpl.data());
  if (fd < 0) throw ErrorFromErrno(errno, std::string(source)).at(path);
  int err = WriteAll(fd, contents);
  if (err == 0 && ::fsync(fd) != 0) err = errno;
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err == 0) {
    // Keep the permissions an existing file had; a new one gets the usual 0644.
    struct stat st;
    ::fchmodat(AT_FDCWD, tmpl.c_str(), ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0644,
               0);
    if (::rename(tmpl.c_str(), path.c_str()) != 0) err = errno;
  }
  if (err != 0) {
    ::unlink(tmpl.c_str());
    throw ErrorFromErrno(err, std::string(source)).at(path);
  }
}

void AppendToFile(const std::filesystem::path& path, std::string_view contents,
                  std::string_view source) {
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) throw ErrorFromErrno(errno, std::string(source)).at(path);
  int err = WriteAll(fd, contents);
  if (::close(fd) != 0 && err == 0) err = errno;
  if (err != 0) throw ErrorFromErrno(err, std::string(source)).at(path);
}

void DropCachedPages(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  if (!HasUnwrittenPages(fd)) ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  ::close(fd);
}

}  // namespace qb
