#include "settings/run_log.h"

#include <ctime>

#include "base/errors.h"
#include "base/file_io.h"

namespace qb {

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
  std::string_view src = source.substr(0, 20);
  line += src;
  line.append(20 - src.size(), ' ');
  line += "  --- ";
  line += message;
  return line;
}

void RunLog::WriteLog(const std::filesystem::path& logFile, std::string_view source,
                      std::string_view message) const {
  std::string line = FormatLine(clock_(), source, message);
  line += "\r\n";
  try {
    AppendToFile(logFile, line, "WriteLog");
  } catch (const QbError& e) {
    ui_.message("An error occurred while Writing To Log :\r" + std::to_string(e.number()) + " - " +
                    e.description(),
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
  LogError(error.source(), error.number(), error.description(), appLogFile_);
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
  log.LogError(procedure, lastError->number(), lastError->description(), log.AppLogFile());
  return false;
}

}  // namespace qb
