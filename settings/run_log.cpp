#include "settings/run_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "base/errors.h"

namespace qb {
namespace {

// A CR or LF in a logged text would start a line that is no entry (an output name can hold
// them); shown as \r and \n, the entry stays on its line and the text can still be read.
void AppendShown(std::string& line, std::string_view text) {
  for (char c : text) {
    if (c == '\r')
      line += "\\r";
    else if (c == '\n')
      line += "\\n";
    else
      line += c;
  }
}

// Appends one whole entry, `line` with its CR LF, so that every line of the log is an entry:
//  - O_APPEND and one write() of the whole line, so appends of other threads and programs
//    never fall inside it;
//  - the advisory lock, taken by every writer of the log, so that nobody appends behind an
//    entry that a full disk or the file-size limit cut short before it is taken back;
//  - a cut entry is taken back (truncated away): ending it with CR LF instead would leave a
//    line that is no whole entry, and on a full disk that second write fails as well.
// Throws QbError (path not found, access, disk full) under "WriteLog".
void AppendEntry(const std::filesystem::path& logFile, std::string_view line) {
  const int fd = ::open(logFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) throw ErrorFromErrno(errno, "WriteLog").at(logFile);
  // A file system without locks still gets the single write; only the take-back below then
  // checks for itself that nothing was appended behind the cut entry.
  while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
  }
  ssize_t n;
  do {
    n = ::write(fd, line.data(), line.size());
  } while (n < 0 && errno == EINTR);
  int err = n < 0 ? errno : 0;
  if (n >= 0 && static_cast<size_t>(n) < line.size()) {
    // A short write to a file means no room: a full disk or the file-size limit.
    err = ENOSPC;
    if (n > 0) {
      const off_t end = ::lseek(fd, 0, SEEK_CUR);  // O_APPEND left it just after our bytes
      struct stat st;
      const bool lastInFile = end >= n && ::fstat(fd, &st) == 0 && st.st_size == end;
      if (!lastInFile || ::ftruncate(fd, end - n) != 0) {
        // Cannot take it back: at least end its line, so the next entry starts its own.
        [[maybe_unused]] const ssize_t ended = ::write(fd, "\r\n", 2);
      }
    }
  }
  if (::close(fd) != 0 && err == 0) err = errno;  // also drops the lock
  if (err != 0) throw ErrorFromErrno(err, "WriteLog").at(logFile);
}

}  // namespace

std::vector<std::filesystem::path> RunLog::FailedFiles() const {
  const std::lock_guard lock(failedMutex_);
  return failedFiles_;
}

RunLog::RunLog(UserInterface& ui, std::filesystem::path appLogFile, Clock clock)
    : ui_(ui), appLogFile_(std::move(appLogFile)), clock_(std::move(clock)) {
  if (!clock_) clock_ = [] { return std::chrono::system_clock::now(); };
}

std::string RunLog::FormatLine(std::chrono::system_clock::time_point when, std::string_view source,
                               std::string_view message) {
  std::time_t t = std::chrono::system_clock::to_time_t(when);
  std::tm tm{};
  localtime_r(&t, &tm);
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%02d/%02d/%02d %02d:%02d", tm.tm_mon + 1, tm.tm_mday,
                tm.tm_year % 100, tm.tm_hour, tm.tm_min);
  std::string line = stamp;
  line += "  ";
  std::string src;
  AppendShown(src, source);
  if (src.size() > 20) src.resize(20);
  line += src;
  line.append(20 - src.size(), ' ');
  line += "  --- ";
  AppendShown(line, message);
  return line;
}

void RunLog::WriteLog(const std::filesystem::path& logFile, std::string_view source,
                      std::string_view message) const {
  if (!writes_) return;
  std::string line = FormatLine(clock_(), source, message);
  line += "\r\n";
  try {
    AppendEntry(logFile, line);
  } catch (const QbError& e) {
    {
      const std::lock_guard lock(failedMutex_);
      if (std::find(failedFiles_.begin(), failedFiles_.end(), logFile) != failedFiles_.end())
        return;
      failedFiles_.push_back(logFile);
    }
    ui_.message("An error occurred while Writing To Log :\r" + std::to_string(e.number()) + " - " +
                    e.description() + "\r" + logFile.string(),
                "Quillbrook", MessageIcon::None);
  }
}

void RunLog::LogError(std::string_view procedure, int32_t number, std::string_view description,
                      const std::filesystem::path& logFile) const {
  const std::string n = std::to_string(number);
  ui_.message("Error: " + n + "\r" + std::string(description), "Quillbrook",
              MessageIcon::Exclamation);
  if (!logFile.empty())
    WriteLog(logFile, procedure, "Error: " + n + "  " + std::string(description));
}

void RunLog::LogError(const QbError& error) const {
  // The place: the detail where it is, else the file the error is about.
  const std::string place = error.detail().empty() ? error.file().string() : error.Place();
  if (place.empty())
    return LogError(error.source(), error.number(), error.description(), appLogFile_);
  const std::string n = std::to_string(error.number());
  ui_.message("Error: " + n + "\r" + error.description() + "\r" + place, "Quillbrook",
              MessageIcon::Exclamation);
  WriteLog(appLogFile_, error.source(), "Error: " + n + "  " + error.description());
  WriteLog(appLogFile_, error.source(), place);
}

bool RunTrapped(const RunLog& log, std::string_view procedure, std::optional<QbError>& lastError,
                const std::function<void()>& body) {
  try {
    body();
    return true;
  } catch (QbError& e) {
    e.withSource(std::string(procedure));
    lastError = e;
  } catch (const std::bad_alloc&) {
    lastError = QbError::Runtime(kOutOfMemory, std::string(procedure));
  } catch (const std::exception& e) {
    lastError = QbError(kInternalError, std::string(procedure), e.what());
  }
  log.LogError(*lastError);
  return false;
}

}  // namespace qb
