#pragma once
// The list of source systems (qbsys.txt): for each system, where its reports print the
// identifier that names their RDF.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

class RunLog;

class clsSystem {
 public:
  int16_t Row = 0;        // report line of the identifier; 0: found by file name
  int16_t Start = 0;      // 1-based column
  int16_t Length = 0;     // characters taken
  std::string System;     // display name and lookup key
  std::string Extension;  // end marker: the identifier is cut before it

  // The five-field text that the "pfset" setting keeps.
  std::string PfsetText() const;
};

// One entry from its five comma-separated fields ("Default - By Filename,0,1,1,.").
// Throws QbError 9 when a field is missing, 13 or 6 for a bad number; `source` names the
// caller for the error. The description is the runtime's text and, on a following line (after
// a CR), what is wrong: how many fields there are, or which number does not read.
clsSystem ParseSystemEntry(std::string_view text, std::string_view source);

class clsSystems {
 public:
  clsSystems() = default;

  // A new list is a loaded list: reads `programFolder`/qbsys.txt at once. Errors end the
  // reading at the bad line and go to `log` under "ReadSystems" (see ReadSystems).
  clsSystems(std::filesystem::path programFolder, const RunLog& log);

  int16_t Count() const { return static_cast<int16_t>(systems_.size()); }
  // Throws QbError 457 when the name is already in the list.
  clsSystem& Add(std::string system, int16_t row, int16_t start, int16_t length,
                 std::string extension);
  void Remove(int position);
  // By 1-based position (QbError 9 outside) or by system name (QbError 5 when unknown).
  const clsSystem& Item(int position) const;
  const clsSystem& Item(std::string_view system) const;

  auto begin() const { return systems_.begin(); }
  auto end() const { return systems_.end(); }

  // The whole text of qbsys.txt.
  std::string LoadSystems() const;
  // Fills the list from LoadSystems: CR LF lines, the heading and the piece after the last
  // CR LF left out, empty lines skipped. The first bad entry ends the reading; its error
  // keeps its number (9 a missing field, 13 or 6 a bad number, 457 a name listed twice) and
  // text, adds a line naming the file, the line and what is wrong, and carries the file and
  // line (QbError::at) too.
  void ReadSystems(const RunLog& log);

 private:
  std::filesystem::path folder_;
  std::vector<clsSystem> systems_;
};

}  // namespace qb
