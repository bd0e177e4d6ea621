#include "base/temp_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>  // renameat2
#include <string>
#include <utility>

#include "base/errors.h"

namespace qb {
namespace {

constexpr std::string_view kRunFolderPrefix = "qbrun.";

// The unique part of a name: the process and 48 random bits, so that two runs in one process
// or in two are all but sure to pick different names (O_EXCL settles the rest).
std::string UniquePart() {
  uint64_t random = 0;
  if (::getrandom(&random, sizeof random, 0) != sizeof random) {
    random = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  char text[48];
  std::snprintf(text, sizeof text, ".%ld.%012llx", static_cast<long>(::getpid()),
                static_cast<unsigned long long>(random & 0xffffffffffffULL));
  return text;
}

// A run's folder holds this file from the start: only such folders are removed as stale,
// not one a user named "qbrun.backup".
constexpr std::string_view kRunFolderMark = ".qbrun";

// A name RunFolder::Path gives: the prefix and the six letters and digits mkdtemp puts in.
bool IsRunFolderName(std::string_view name) {
  if (name.size() != kRunFolderPrefix.size() + 6 || !name.starts_with(kRunFolderPrefix)) {
    return false;
  }
  for (char c : name.substr(kRunFolderPrefix.size())) {
    if (!std::isalnum(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::string ProcLink(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace

TempFile::TempFile(const std::filesystem::path& folder, std::string_view stem,
                   std::string_view suffix, std::string_view source)
    : folder_(folder.empty() ? "." : folder),
      stem_(stem),
      suffix_(suffix),
      shown_(folder_ / (stem_ + suffix_)) {
  fd_ = ::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (fd_ >= 0) {
    path_ = ProcLink(fd_);
    return;
  }
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
    throw ErrorFromErrno(errno, std::string(source)).at(folder_);
  }
  for (int attempt = 0;; ++attempt) {  // no unnamed files here: a name of its own
    std::filesystem::path candidate = folder_ / (stem_ + UniquePart() + suffix_);
    const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      ::close(fd);
      path_ = std::move(candidate);
      return;
    }
    if (errno != EEXIST || attempt >= 100) {
      throw ErrorFromErrno(errno, std::string(source)).at(folder_);
    }
  }
}

TempFile TempFile::Beside(const std::filesystem::path& target, std::string_view source) {
  const std::filesystem::path folder = target.has_parent_path() ? target.parent_path() : ".";
  TempFile file(folder, "." + target.filename().string(), ".part", source);
  file.shown_ = target;
  return file;
}

TempFile::TempFile(TempFile&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      folder_(std::move(other.folder_)),
      stem_(std::move(other.stem_)),
      suffix_(std::move(other.suffix_)),
      shown_(std::move(other.shown_)),
      fd_(std::exchange(other.fd_, -1)) {}

void TempFile::RenameTo(const std::filesystem::path& target, std::string_view source) {
  std::filesystem::path named = path_;
  if (fd_ >= 0) {
    // An unnamed file gets a hidden name beside the target for the moment of the rename.
    for (int attempt = 0;; ++attempt) {
      named = folder_ / (stem_ + UniquePart() + suffix_);
      if (::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, named.c_str(), AT_SYMLINK_FOLLOW) == 0) break;
      if (errno != EEXIST || attempt >= 100) {
        throw ErrorFromErrno(errno, std::string(source)).at(target);
      }
    }
    Remove();  // the descriptor; the file lives on under its name
  }
  // Over an existing file the two are exchanged in one step and the old one is removed after:
  // ext4 writes a file out at once when it is renamed over another (its auto_da_alloc), which
  // cost a 100 MB output a quarter of its run time, while an exchange leaves the write-back to
  // its usual pace. Where there is nothing to exchange with, or the file system cannot, the
  // plain rename does the same.
  struct stat st {};
  if (::lstat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
      ::renameat2(AT_FDCWD, named.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
    ::unlink(named.c_str());  // the previous output, now under the temporary name
    path_.clear();
    return;
  }
  if (::rename(named.c_str(), target.c_str()) != 0) {
    const int err = errno;
    ::unlink(named.c_str());
    path_.clear();
    throw ErrorFromErrno(err, std::string(source)).at(target);
  }
  path_.clear();
}

void TempFile::Remove() noexcept {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  } else if (!path_.empty()) {
    ::unlink(path_.c_str());
  }
  path_.clear();
}

RunFolder::~RunFolder() {
  if (path_.empty()) return;
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

const std::filesystem::path& RunFolder::Path(std::string_view source) {
  if (!path_.empty()) return path_;
  std::error_code ec;
  if (!std::filesystem::is_directory(parent_, ec) &&
      !std::filesystem::create_directories(parent_, ec)) {
    throw QbError(kPathNotFound, std::string(source),
                  "The folder for intermediate files cannot be made: " + parent_.string() + " (" +
                      (ec ? ec.message() : std::string("a file has its name")) + ")");
  }
  std::string name = (parent_ / kRunFolderPrefix).string() + "XXXXXX";
  if (::mkdtemp(name.data()) == nullptr)
    throw ErrorFromErrno(errno, std::string(source)).at(parent_);
  path_ = name;
  const int mark =
      ::open((path_ / kRunFolderMark).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (mark < 0) throw ErrorFromErrno(errno, std::string(source)).at(path_);
  ::close(mark);
  return path_;
}

void RunFolder::RemoveStale(const std::filesystem::path& parent,
                            std::filesystem::file_time_type::duration age) {
  std::error_code ec;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& entry : std::filesystem::directory_iterator(parent, ec)) {
    if (!IsRunFolderName(entry.path().filename().string()) || !entry.is_directory(ec) ||
        entry.is_symlink(ec) || !std::filesystem::exists(entry.path() / kRunFolderMark, ec)) {
      continue;
    }
    const auto changed = std::filesystem::last_write_time(entry.path(), ec);
    if (!ec && now - changed > age) std::filesystem::remove_all(entry.path(), ec);
  }
}

}  // namespace qb
