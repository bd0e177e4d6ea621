#include "run/launch.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"

namespace qb {

namespace {

// Whether `name` can be started: a path as it stands, a bare name from a folder of PATH.
bool Startable(const std::string& name) {
  if (name.find('/') != std::string::npos) return ::access(name.c_str(), X_OK) == 0;
  const char* path = std::getenv("PATH");
  std::string_view rest = path ? path : "/usr/bin:/bin";
  while (!rest.empty()) {
    const size_t colon = rest.find(':');
    const std::filesystem::path candidate = std::filesystem::path(rest.substr(0, colon)) / name;
    if (::access(candidate.c_str(), X_OK) == 0) return true;
    if (colon == std::string_view::npos) break;
    rest.remove_prefix(colon + 1);
  }
  return false;
}

}  // namespace

std::vector<std::string> SpreadsheetProgram() {
  if (const char* named = std::getenv("QUILLBROOK_SPREADSHEET"); named && *named) return {named};
  if (Startable("libreoffice")) return {"libreoffice", "--calc"};
  if (Startable("gnumeric")) return {"gnumeric"};
  return {};
}

std::string LaunchProblem(std::string_view method, const std::filesystem::path& workbook) {
  if (method == "2" || method == "3") return {};  // these show "File Open Error" themselves
  const std::vector<std::string> program = SpreadsheetProgram();
  if (program.empty()) {
    return "The workbook " + workbook.string() +
           " was written, but no spreadsheet program was found to open it (libreoffice or "
           "gnumeric): set QUILLBROOK_SPREADSHEET to one.";
  }
  if (!Startable(program.front())) {
    return "The workbook " + workbook.string() + " was written, but the spreadsheet program " +
           program.front() + " cannot be started: set QUILLBROOK_SPREADSHEET to one that can.";
  }
  return {};
}

namespace {

// Starts `argv` detached from us (its own session, not our child), in `folder` when given.
// Returns 0, or the errno of a start that failed.
int StartDetached(const std::vector<std::string>& argv, const std::filesystem::path& folder) {
  if (argv.empty()) return ENOENT;
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return errno;
  const pid_t child = ::fork();
  if (child < 0) {
    const int err = errno;
    ::close(fds[0]);
    ::close(fds[1]);
    return err;
  }
  if (child == 0) {
    ::close(fds[0]);
    ::setsid();
    if (::fork() != 0) ::_exit(0);  // the grandchild runs on, adopted by init
    int err = 0;
    if (!folder.empty() && ::chdir(folder.c_str()) != 0) err = errno;
    if (err == 0) {
      std::vector<char*> args;
      for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      ::execvp(args[0], args.data());
      err = errno;
    }
    (void)!::write(fds[1], &err, sizeof err);
    ::_exit(127);
  }
  ::close(fds[1]);
  ::waitpid(child, nullptr, 0);
  int err = 0;
  const ssize_t n = ::read(fds[0], &err, sizeof err);  // nothing: exec succeeded
  ::close(fds[0]);
  return n == static_cast<ssize_t>(sizeof err) ? err : 0;
}

}  // namespace

void LaunchSpreadsheet(const RunLog& log, UserInterface& ui, std::string_view method,
                       const std::filesystem::path& file) {
  auto fileOpenError = [&ui](int err) {
    ui.message("Error " + std::to_string(err) + "\nOpening Output File.", "File Open Error",
               MessageIcon::Critical);
  };
  std::vector<std::string> program = SpreadsheetProgram();
  if (method == "2") {
    log.WriteLog("RunEnd", "Launch 2");
    program.push_back(file.filename().string());
    const int err = program.size() > 1 ? StartDetached(program, file.parent_path()) : ENOENT;
    log.WriteLog("RunEnd", "Open Complete");
    if (err != 0) fileOpenError(err);
  } else if (method == "3") {
    log.WriteLog("RunEnd", "Launch 3");
    const int err = StartDetached({"xdg-open", file.string()}, {});
    log.WriteLog("RunEnd", "Open Complete");
    if (err != 0) fileOpenError(err);
  } else {
    log.WriteLog("RunEnd", "Launch 1");
    if (program.empty()) {
      log.WriteLog("RunEnd", "Launch Error " + std::to_string(kNoAutomation) +
                                 "  No spreadsheet program found: set QUILLBROOK_SPREADSHEET");
      return;
    }
    log.WriteLog("RunEnd", "Create App Complete");
    program.push_back(std::filesystem::absolute(file).string());
    const int err = StartDetached(program, {});
    if (err != 0) {
      log.WriteLog("RunEnd", "Launch Error " + std::to_string(err) + "  " + std::strerror(err));
      return;
    }
    log.WriteLog("RunEnd", "Open Complete");
    log.WriteLog("RunEnd", "App Visible");
  }
  log.WriteLog("RunEnd", "Launch Complete");
}

}  // namespace qb
