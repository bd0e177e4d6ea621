#pragma once
// qbconvert as a function: the arguments in, the exit status out.

#include <span>

namespace qb::cli {

enum ExitStatus : int {
  kExitOk = 0,
  kExitFailed = 1,
  kExitUsage = 2,
  kExitCancelled = 130,
};

int RunCommand(std::span<const char* const> args);

}  // namespace qb::cli
