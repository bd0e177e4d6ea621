#include "settings/systems_list.h"

#include "base/bytes.h"
#include "base/errors.h"
#include "base/file_io.h"
#include "settings/run_log.h"

namespace qb {

std::string clsSystem::PfsetText() const {
  return System + "," + std::to_string(Row) + "," + std::to_string(Start) + "," +
         std::to_string(Length) + "," + Extension;
}

clsSystem ParseSystemEntry(std::string_view text, std::string_view source) {
  std::string_view piece[5];
  size_t n = 0;
  for (;;) {
    size_t comma = text.find(',');
    if (n < 5) piece[n] = text.substr(0, comma);
    ++n;
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  if (n < 5) throw QbError::Runtime(kSubscript, std::string(source));
  clsSystem s;
  s.System = std::string(piece[0]);
  s.Row = ParseInt16(piece[1], source);
  s.Start = ParseInt16(piece[2], source);
  s.Length = ParseInt16(piece[3], source);
  s.Extension = std::string(piece[4]);
  return s;
}

clsSystems::clsSystems(std::filesystem::path programFolder, const RunLog& log)
    : folder_(std::move(programFolder)) {
  ReadSystems(log);
}

clsSystem& clsSystems::Add(std::string system, int16_t row, int16_t start, int16_t length,
                           std::string extension) {
  for (const clsSystem& s : systems_) {
    if (EqualsNoCase(s.System, system)) throw QbError::Runtime(kDuplicateKey, "ReadSystems");
  }
  systems_.push_back(clsSystem{row, start, length, std::move(system), std::move(extension)});
  return systems_.back();
}

void clsSystems::Remove(int position) {
  Item(position);
  systems_.erase(systems_.begin() + (position - 1));
}

const clsSystem& clsSystems::Item(int position) const {
  if (position < 1 || position > static_cast<int>(systems_.size())) {
    throw QbError::Runtime(kSubscript, "clsSystems");
  }
  return systems_[static_cast<size_t>(position - 1)];
}

const clsSystem& clsSystems::Item(std::string_view system) const {
  for (const clsSystem& s : systems_) {
    if (EqualsNoCase(s.System, system)) return s;
  }
  throw QbError::Runtime(kInvalidCall, "clsSystems");
}

std::string clsSystems::LoadSystems() const {
  return ReadWholeFile(folder_ / "qbsys.txt", "ReadSystems");
}

void clsSystems::ReadSystems(const RunLog& log) {
  try {
    std::string text = LoadSystems();
    std::string_view rest = text;
    // Line 0 is the heading; whatever follows the last CR LF is never an entry.
    size_t end = rest.find("\r\n");
    if (end == std::string_view::npos) return;
    rest.remove_prefix(end + 2);
    while ((end = rest.find("\r\n")) != std::string_view::npos) {
      std::string_view line = rest.substr(0, end);
      rest.remove_prefix(end + 2);
      if (line.empty()) continue;
      clsSystem s = ParseSystemEntry(line, "ReadSystems");
      Add(std::move(s.System), s.Row, s.Start, s.Length, std::move(s.Extension));
    }
  } catch (const QbError& e) {
    log.LogError("ReadSystems", e.number(), e.description(), log.AppLogFile());
  }
}

}  // namespace qb
