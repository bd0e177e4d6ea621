#include <span>

#include "cli/command.h"

int main(int argc, char** argv) {
  return qb::cli::RunCommand(std::span<const char* const>(argv + 1, static_cast<size_t>(argc - 1)));
}
