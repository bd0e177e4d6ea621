#pragma once
// The application log: one time-stamped line per event, appended and closed at once so
// another program can read the log at any moment.
//
//   11/15/09 14:05  Quillbrook            --- Started...
//   <time stamp>  <source, 20 wide>  --- <message>
//
// Every line is one whole entry: CR and LF inside a source or message are shown as the two
// characters \r and \n, and an entry that cannot be written whole is not left in the log in
// part, so readers that split the log at line ends always see whole entries.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "settings/user_interface.h"

namespace qb {

class QbError;

// The clock behind the time stamps; tests pin it.
using Clock = std::function<std::chrono::system_clock::time_point()>;

class RunLog {
 public:
  RunLog(UserInterface& ui, std::filesystem::path appLogFile, Clock clock = {});
  // The same log, telling `ui` of its failures and errors; with `writes` false, one that
  // writes nothing (a run that only looks at a report, again and again, as the report view's).
  // Only such a copy, which names its own user interface, is made.
  RunLog(const RunLog& other, UserInterface& ui, bool writes = true)
      : ui_(ui),
        appLogFile_(other.appLogFile_),
        clock_(other.clock_),
        writes_(other.writes_ && writes),
        failedFiles_(other.FailedFiles()) {}

  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;

  // The program folder's log\qbuia.log.
  const std::filesystem::path& AppLogFile() const { return appLogFile_; }

  // Appends one line. A failure (a full disk, no log folder) loses the line, none of it kept,
  // and the caller goes on. The first failure on a file shows the "An error occurred while
  // Writing To Log :" box, naming the file; later ones on that file show nothing, as a log
  // that cannot be written fails at every line. A copy knows the files its original had
  // failed on when it was made, and shares nothing with it after.
  void WriteLog(const std::filesystem::path& logFile, std::string_view source,
                std::string_view message) const;
  void WriteLog(std::string_view source, std::string_view message) const {
    WriteLog(appLogFile_, source, message);
  }

  // Shows "Error: <n>" and the description in a box, then logs it under `procedure` when
  // `logFile` is not empty (a description of several lines being one entry, its line breaks
  // shown as \r and \n).
  void LogError(std::string_view procedure, int32_t number, std::string_view description,
                const std::filesystem::path& logFile) const;
  // The same for a trapped error, into the application log, under the error's source.
  void LogError(const QbError& error) const;

  // The line as written, without its CR LF: CR and LF in `source` and `message` as \r and \n,
  // the source then cut or padded to 20 characters.
  static std::string FormatLine(std::chrono::system_clock::time_point when, std::string_view source,
                                std::string_view message);

  UserInterface& ui() const { return ui_; }

 private:
  UserInterface& ui_;
  std::filesystem::path appLogFile_;
  Clock clock_;
  bool writes_ = true;
  // The files this log has told the user it could not write, each once.
  std::vector<std::filesystem::path> FailedFiles() const;
  mutable std::mutex failedMutex_;
  mutable std::vector<std::filesystem::path> failedFiles_;  // guarded by failedMutex_
};

// Runs `body` under an error trap, the common end of every trapped procedure: an error is
// logged under `procedure` through LogError (which also tells the user), kept in
// `lastError` with `procedure` as its source, and false is returned.
bool RunTrapped(const RunLog& log, std::string_view procedure, std::optional<QbError>& lastError,
                const std::function<void()>& body);

}  // namespace qb
