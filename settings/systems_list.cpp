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

namespace {

constexpr std::string_view kFieldNames[] = {"name", "row", "start", "length", "end marker"};

// The error as the user knows it, its number and the runtime's text, with on a following
// line what is wrong and where: the text alone ("Subscript out of range") names neither.
QbError EntryError(int32_t number, std::string_view source, const std::string& reason) {
  return QbError(number, std::string(source),
                 std::string(RuntimeErrorText(number)) + "\r" + reason);
}

// `where` names the entry for the reasons: "<file> line 3", or the entry's own text.
clsSystem ParseEntry(std::string_view text, std::string_view source, const std::string& where) {
  std::string_view piece[5];
  size_t n = 0;
  for (;;) {
    size_t comma = text.find(',');
    if (n < 5) piece[n] = text.substr(0, comma);
    ++n;
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  if (n < 5) {
    throw EntryError(kSubscript, source,
                     where + " has " + std::to_string(n) + (n == 1 ? " field" : " fields") +
                         "; a system entry needs 5: name, row, start, length, end marker");
  }
  clsSystem s;
  int16_t* numbers[] = {&s.Row, &s.Start, &s.Length};
  for (size_t i = 1; i <= 3; ++i) {
    try {
      *numbers[i - 1] = ParseInt16(piece[i], source);
    } catch (const QbError& e) {
      const std::string field =
          std::string(kFieldNames[i]) + " (field " + std::to_string(i + 1) + ")";
      const std::string value(Trim(piece[i]));
      throw EntryError(e.number(), source,
                       e.number() == kOverflow
                           ? where + ": the " + field + " " + value + " is outside -32768 to 32767"
                           : where + ": the " + field + " \"" + value + "\" is not a whole number");
    }
  }
  s.System = std::string(piece[0]);
  s.Extension = std::string(piece[4]);
  return s;
}

}  // namespace

clsSystem ParseSystemEntry(std::string_view text, std::string_view source) {
  return ParseEntry(text, source, "the system entry \"" + std::string(text) + "\"");
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
  const std::filesystem::path file = folder_ / "qbsys.txt";
  try {
    std::string text;
    try {
      text = LoadSystems();
    } catch (const QbError& e) {
      throw QbError(e.number(), "ReadSystems",
                    e.description() + "\r" + file.string() + " cannot be read")
          .at(file);
    }
    std::string_view rest = text;
    // Line 1 is the heading; whatever follows the last CR LF is never an entry.
    size_t end = rest.find("\r\n");
    if (end == std::string_view::npos) return;
    rest.remove_prefix(end + 2);
    const size_t before = systems_.size();
    std::vector<int64_t> lineOf;  // the line of each system this reading adds
    for (int64_t number = 2; (end = rest.find("\r\n")) != std::string_view::npos; ++number) {
      std::string_view line = rest.substr(0, end);
      rest.remove_prefix(end + 2);
      if (line.empty()) continue;
      const std::string where = file.string() + " line " + std::to_string(number);
      try {
        clsSystem s = ParseEntry(line, "ReadSystems", where);
        for (size_t i = 0; i < systems_.size(); ++i) {
          if (EqualsNoCase(systems_[i].System, s.System)) {
            std::string reason = where + ": the system \"" + s.System + "\" is listed twice";
            if (i >= before)
              reason += " (first on line " + std::to_string(lineOf[i - before]) + ")";
            throw EntryError(kDuplicateKey, "ReadSystems", reason);
          }
        }
        Add(std::move(s.System), s.Row, s.Start, s.Length, std::move(s.Extension));
        lineOf.push_back(number);
      } catch (QbError& e) {
        throw e.at(file, number);
      }
    }
  } catch (const QbError& e) {
    log.LogError("ReadSystems", e.number(), e.description(), log.AppLogFile());
  }
}

}  // namespace qb
