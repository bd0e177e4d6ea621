#include "cli/command.h"

#include <cstdio>
#include <string>

#include "cli/console_ui.h"
#include "cli/options.h"
#include "settings/application.h"
#include "settings/errors.h"

namespace qb::cli {
namespace {

constexpr std::string_view kSource = "qbconvert";

// Without a job: the start-up summary, so a user sees which folder and settings are used.
void ShowStartup(const Application& app) {
  std::printf("Program folder: %s\n", app.ProgramFolder().c_str());
  std::printf("Settings file:  %s%s\n", (app.ProgramFolder() / kSettingsFileName).c_str(),
              std::filesystem::exists(app.ProgramFolder() / kSettingsFileName)
                  ? ""
                  : " (not present: defaults in use)");
  std::printf("Log:            %s\n", app.Log().AppLogFile().c_str());
  std::printf("Source systems: %d\n", app.Systems.Count());
  for (const clsSystem& s : app.Systems) std::printf("  %s\n", s.PfsetText().c_str());
  std::printf("Settings:\n");
  for (const clsKey& k : app.Settings) {
    std::printf("  [%s] %s=%s\n", k.Section.c_str(), k.Name.c_str(), k.Value.c_str());
  }
}

}  // namespace

int RunCommand(std::span<const char* const> args) {
  ParsedOptions opts;
  try {
    opts = ParseCommandLine(args);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "qbconvert: %s\nTry 'qbconvert --help'.\n", e.what());
    return kExitUsage;
  }
  if (opts.has(Opt::Help)) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitOk;
  }
  if (opts.has(Opt::Version)) {
    std::printf("qbconvert %s\n", QB_VERSION);
    return kExitOk;
  }

  ConsoleUI ui;
  Application app(ResolveProgramFolder(opts.value(Opt::Home)), ui);
  app.Log().WriteLog(kSource, "Started...");
  int status = kExitOk;
  if (!app.ResetForm()) {
    status = kExitFailed;
  } else {
    ShowStartup(app);
  }
  app.Log().WriteLog(kSource, "Closed...");
  return status;
}

}  // namespace qb::cli
