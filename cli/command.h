#pragma once
// qbconvert as a function: the arguments in, the exit status out.

#include <span>

namespace qb::cli {

enum ExitStatus : int {
  kExitOk = 0,
  kExitFailed = 1,
  kExitUsage = 2,
  kExitDropped = 3,  // completed, but report lines were dropped
  kExitCancelled = 130,
};

int RunCommand(std::span<const char* const> args);

}  // namespace qb::cli
