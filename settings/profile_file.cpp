#include "settings/profile_file.h"

#include <optional>
#include <system_error>
#include <vector>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/file_io.h"

namespace qb {
namespace {

constexpr std::string_view kSource = "Profile";

std::string_view TrimBlanks(std::string_view s) {
  auto blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

// The section name of a "[name]" line, or nothing for any other line.
std::optional<std::string_view> SectionOf(std::string_view line) {
  line = TrimBlanks(line);
  if (line.empty() || line.front() != '[') return std::nullopt;
  line.remove_prefix(1);
  size_t close = line.find(']');
  return TrimBlanks(line.substr(0, close));
}

bool IsComment(std::string_view line) {
  line = TrimBlanks(line);
  return !line.empty() && line.front() == ';';
}

// For a "key=value" line, its key; otherwise nothing.
std::optional<std::string_view> KeyOf(std::string_view line) {
  if (IsComment(line)) return std::nullopt;
  size_t eq = line.find('=');
  if (eq == std::string_view::npos) return std::nullopt;
  return TrimBlanks(line.substr(0, eq));
}

void RequirePath(const std::filesystem::path& file) {
  if (file.empty()) {
    throw QbError(kInvalidCall, std::string(kSource),
                  "No settings file named: the settings are kept only in a profile file");
  }
}

}  // namespace

std::string ReadProfileString(const std::filesystem::path& file, std::string_view section,
                              std::string_view key, std::string_view defaultValue,
                              size_t maxLength) {
  RequirePath(file);
  std::string text;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(file, ec))
    return std::string(defaultValue.substr(0, maxLength));
  try {
    text = ReadWholeFile(file, kSource);
  } catch (const QbError&) {
    return std::string(defaultValue.substr(0, maxLength));  // unreadable: defaults, as missing
  }
  bool inSection = false;
  for (std::string_view line : SplitLines(text)) {
    if (auto name = SectionOf(line)) {
      inSection = EqualsNoCase(*name, section);
      continue;
    }
    if (!inSection) continue;
    auto k = KeyOf(line);
    if (k && EqualsNoCase(*k, key)) {
      std::string_view value = TrimBlanks(line.substr(line.find('=') + 1));
      return std::string(value.substr(0, maxLength));
    }
  }
  return std::string(defaultValue.substr(0, maxLength));
}

void WriteProfileString(const std::filesystem::path& file, std::string_view section,
                        std::string_view key, std::string_view value) {
  RequirePath(file);
  std::string text;
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) text = ReadWholeFile(file, kSource);
  std::vector<std::string_view> lines = SplitLines(text);

  const std::string keyLine = std::string(key) + "=" + std::string(value);
  const std::string sectionLine = "[" + std::string(section) + "]";

  // Find the section, the key inside it, and the last non-empty line of the section.
  std::optional<size_t> sectionAt, keyAt, lastFilled;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (auto name = SectionOf(lines[i])) {
      if (sectionAt) break;  // the next section: ours is over
      if (EqualsNoCase(*name, section)) {
        sectionAt = i;
        lastFilled = i;
      }
      continue;
    }
    if (!sectionAt) continue;
    if (!TrimBlanks(lines[i]).empty()) lastFilled = i;
    auto k = KeyOf(lines[i]);
    if (k && EqualsNoCase(*k, key) && !keyAt) keyAt = i;
  }

  std::vector<std::string_view> out(lines.begin(), lines.end());
  if (keyAt) {
    out[*keyAt] = keyLine;
  } else if (sectionAt) {
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(*lastFilled + 1), keyLine);
  } else {
    out.push_back(sectionLine);
    out.push_back(keyLine);
  }

  std::string result;
  for (std::string_view line : out) {
    result.append(line);
    result.append("\r\n");
  }
  WriteFileAtomically(file, result, kSource);
}

}  // namespace qb
