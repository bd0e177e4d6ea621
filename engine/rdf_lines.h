#pragma once
// Reads an RDF's lines as loading does, for the loader and the checker alike: a plain file
// skips its comment lines (empty, or beginning with a blank or "["); a scrambled file
// unscrambles every line with its counted number; each line comes back trimmed.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/line_reader.h"

namespace qb {

// True when the RDF is scrambled: its first line, trimmed, does not begin "RDF".
bool IsScrambledFirstLine(std::string_view firstLine);

// True when the RDF at `path`, whose first line (its byte-order mark taken off) is
// `firstLine`, holds nothing but blanks and line ends: an empty RDF, which loading would
// otherwise take for a scrambled one. Reads on only when the first line is blank.
bool IsBlankRdf(const std::filesystem::path& path, std::string_view firstLine,
                std::string_view procedure);

class RdfLineSource {
 public:
  RdfLineSource(const std::filesystem::path& path, bool scrambled, std::string_view procedure)
      : reader_(path, procedure), scrambled_(scrambled), procedure_(procedure) {}

  // The next line, or false at the end. Throws QbError 519 for a damaged first line, with
  // a detail that says so.
  bool Next(std::string_view& line);

  // The physical line of the file that Next returned last, counted from 1.
  int64_t Line() const { return physical_; }

  // Calls `handle` with each line until it returns false or the file ends. An error from
  // either is given this file and the line where it happened.
  template <typename Handle>
  void ForEachLine(const std::filesystem::path& path, Handle&& handle) {
    std::string_view line;
    try {
      while (Next(line) && handle(line)) {
      }
    } catch (QbError& e) {
      if (e.file().empty()) e.at(path, physical_);
      throw;
    }
  }

 private:
  LineReader reader_;
  bool scrambled_;
  std::string_view procedure_;
  std::string plain_;
  int64_t physical_ = 0;
  int64_t counted_ = 0;
};

}  // namespace qb
