#pragma once
// The first rows a run would write, as the window's preview shows them: the header's labels
// and each row's values in UTF-8, numeric columns cleaned up as every output writes them. The rows
// come from a real run of the job (its output discarded), stopped once it has enough.

#include <cstddef>
#include <string>
#include <vector>

#include "run/conversion_job.h"

namespace qb {

struct PreviewRows {
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;
  std::vector<bool> numeric;  // per column: cleaned up
  bool whole = false;         // the report ended before `max` rows: these are all of them
  std::string error;          // why the run failed, in words for the user
};

// Runs `job` (made with noOutput) until it has written `max` rows or the report ends. May go
// on any thread; the job's Abandon stops it from another.
PreviewRows PreviewRun(ConversionJob& job, size_t max);

}  // namespace qb
