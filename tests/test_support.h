#pragma once
// Fakes and helpers shared by the tests: a temporary folder, a user interface that records
// what it was told and answers from a script, a pinned clock and file helpers.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "settings/user_interface.h"

namespace qb::test {

class TempDir {
 public:
  TempDir() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "qbtest.XXXXXX").string();
    path_ = ::mkdtemp(tmpl.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

struct RecordedMessage {
  std::string text;
  std::string title;
  MessageIcon icon;
};

class RecordingUI final : public UserInterface {
 public:
  void message(std::string_view text, std::string_view title, MessageIcon icon) override {
    messages.push_back({std::string(text), std::string(title), icon});
  }
  bool question(std::string_view text, std::string_view title, MessageIcon icon) override {
    messages.push_back({std::string(text), std::string(title), icon});
    if (answers.empty()) return false;
    bool a = answers.front();
    answers.pop_front();
    return a;
  }
  void status(std::string_view text) override {
    statuses.emplace_back(text);
    if (onStatus) onStatus(text);
  }
  void progress(int percent) override {
    percents.push_back(percent);
    if (onProgress) onProgress(percent);
  }

  std::function<void(int)> onProgress;
  std::function<void(std::string_view)> onStatus;
  std::vector<RecordedMessage> messages;
  std::deque<bool> answers;
  std::vector<std::string> statuses;
  std::vector<int> percents;
};

// 2009-11-15 14:05 local time, for log lines that compare exactly. Worked out
// once: mktime re-reads the time zone on every call, which races with the
// log's localtime_r on a batch's worker threads.
inline std::chrono::system_clock::time_point PinnedTime() {
  static const auto pinned = [] {
    std::tm tm{};
    tm.tm_year = 109;
    tm.tm_mon = 10;
    tm.tm_mday = 15;
    tm.tm_hour = 14;
    tm.tm_min = 5;
    tm.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&tm));
  }();
  return pinned;
}

inline void WriteFile(const std::filesystem::path& p, std::string_view bytes) {
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out << bytes;
}

inline std::string ReadFile(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// The lines of a file, without their CR LF or LF.
// The names in a folder (hidden ones too), sorted: to see that nothing was left behind.
inline std::vector<std::string> Files(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// How often `what` stands in `text`.
inline size_t Count(std::string_view text, std::string_view what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string_view::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

inline std::vector<std::string> ReadLines(const std::filesystem::path& p) {
  std::vector<std::string> lines;
  std::istringstream in(ReadFile(p));
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// The report and RDF of each sample that `list` (samples.txt) names, in its order.
struct ListedSample {
  std::string report, rdf;
};
inline std::vector<ListedSample> ListedSamples(const std::filesystem::path& list) {
  std::vector<ListedSample> samples;
  for (const std::string& line : ReadLines(list)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    ListedSample s;
    fields >> s.report >> s.rdf;
    samples.push_back(s);
  }
  return samples;
}

}  // namespace qb::test
