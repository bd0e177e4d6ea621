#pragma once
// What a front end owns for its whole life: the program folder, the working and saved
// settings, the systems list and the log. The window and qbconvert each create one; nothing
// here is global, so two of them can live in one process.

#include <filesystem>
#include <optional>
#include <string>

#include "settings/run_log.h"
#include "settings/settings_store.h"
#include "settings/systems_list.h"
#include "settings/user_interface.h"

namespace qb {

// The program folder: `homeOption` (--home) when given, else $QUILLBROOK_HOME when set,
// else the folder that holds the running executable.
std::filesystem::path ResolveProgramFolder(const std::optional<std::string>& homeOption);

class Application {
 public:
  Application(std::filesystem::path programFolder, UserInterface& ui, Clock clock = {});
  // A copy of `front` (folder, settings, snapshot, systems, log) that talks to `ui`: what a
  // conversion job runs with, so that it shares nothing it changes with the front end.
  // With `logging` false the copy's log writes nothing.
  Application(const Application& front, UserInterface& ui, bool logging = true);

  const std::filesystem::path& ProgramFolder() const { return folder_; }
  const RunLog& Log() const { return log_; }
  UserInterface& ui() const { return log_.ui(); }

  // Start-up: checks that qbsys.txt exists (error 513 otherwise, logged under "ResetForm"),
  // loads the settings, reads the systems list and takes the snapshot. False on failure;
  // the front end then ends.
  bool ResetForm();

  // SavedSettings := a copy of Settings.
  void SnapshotSettings() { SavedSettings = Settings; }

  // The per-report log path: "logdir" / the report's base name + ".log". An existing file of
  // that name is deleted; nothing is ever written to it. A base name that could lead out of
  // logdir (empty, ".", "..", one holding a path separator) or an empty "logdir" gives no
  // per-report log (an empty path) and deletes nothing.
  void SetReportLogFile(const std::filesystem::path& report);
  const std::filesystem::path& ReportLogFile() const { return reportLogFile_; }

  clsKeys Settings;
  clsKeys SavedSettings;
  clsSystems Systems;

 private:
  std::filesystem::path folder_;
  RunLog log_;
  std::filesystem::path reportLogFile_;
};

}  // namespace qb
