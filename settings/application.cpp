#include "settings/application.h"

#include <cstdlib>
#include <system_error>

#include "base/errors.h"

namespace qb {

std::filesystem::path ResolveProgramFolder(const std::optional<std::string>& homeOption) {
  if (homeOption) return std::filesystem::absolute(*homeOption);
  if (const char* env = std::getenv("QUILLBROOK_HOME"); env && *env) {
    return std::filesystem::absolute(env);
  }
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) return exe.parent_path();
  return std::filesystem::current_path();
}

Application::Application(std::filesystem::path programFolder, UserInterface& ui, Clock clock)
    : folder_(std::move(programFolder)),
      log_(ui, folder_ / "log" / "qbuia.log", std::move(clock)) {}

Application::Application(const Application& front, UserInterface& ui, bool logging)
    : Settings(front.Settings),
      SavedSettings(front.SavedSettings),
      Systems(front.Systems),
      folder_(front.folder_),
      log_(front.log_, ui, logging),
      reportLogFile_(front.reportLogFile_) {}

bool Application::ResetForm() {
  try {
    std::error_code ec;
    if (!std::filesystem::exists(folder_ / "qbsys.txt", ec)) {
      throw QbError(kAutofindMissing, "ResetForm", std::string(kAutofindMissingText));
    }
    Systems = clsSystems();
    Settings = LoadSettings(folder_, kSettingsFileName);
    Systems = clsSystems(folder_, log_);
    SnapshotSettings();
    return true;
  } catch (const QbError& e) {
    log_.LogError("ResetForm", e.number(), e.description(), log_.AppLogFile());
    return false;
  }
}

void Application::SetReportLogFile(const std::filesystem::path& report) {
  reportLogFile_.clear();
  // The delete below must reach nothing outside logdir: an empty logdir would mean the
  // working folder, a separator in the name would lead into another folder (a backslash
  // counts, for names from a Windows folder), and "." and ".." name folders, not reports.
  const std::string& logdir = Settings[Key::logdir];
  const std::string stem = report.stem().string();
  if (logdir.empty() || stem.empty() || stem == "." || stem == ".." ||
      stem.find_first_of("/\\") != std::string::npos) {
    return;
  }
  reportLogFile_ = std::filesystem::path(logdir) / (stem + ".log");
  // Only a file is an old log; a folder of that name is the user's.
  std::error_code ec;
  if (!std::filesystem::is_directory(std::filesystem::symlink_status(reportLogFile_, ec)))
    std::filesystem::remove(reportLogFile_, ec);
}

}  // namespace qb
