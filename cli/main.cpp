#include <csignal>
#include <span>

#include "cli/command.h"

int main(int argc, char** argv) {
  // Past a file-size limit a write fails with EFBIG and the run ends with "Disk full", its
  // previous output kept, instead of the signal ending the program mid-write.
  std::signal(SIGXFSZ, SIG_IGN);
  return qb::cli::RunCommand(std::span<const char* const>(argv + 1, static_cast<size_t>(argc - 1)));
}
