#include "cli/console_ui.h"

#include <unistd.h>

#include <algorithm>

namespace qb::cli {
namespace {

// Message boxes use CR for their line breaks; a terminal wants LF.
std::string ToLines(std::string_view text) {
  std::string s(text);
  for (char& c : s) {
    if (c == '\r') c = '\n';
  }
  return s;
}

// A message's lines shorter than this are headings ("Error: 5"), which say nothing alone.
constexpr size_t kToldLine = 16;

}  // namespace

ConsoleUI::ConsoleUI(std::FILE* err)
    : err_(err), tty_(::isatty(::fileno(err)) != 0), start_(std::chrono::steady_clock::now()) {}

void ConsoleUI::clearBar() {
  if (barShown_) {
    std::fputs("\r\033[K", err_);
    barShown_ = false;
  }
}

void ConsoleUI::message(std::string_view text, std::string_view title, MessageIcon) {
  clearBar();
  std::string body = ToLines(text);
  if (!title.empty() && title != "Quillbrook") body = std::string(title) + ": " + body;
  std::fprintf(err_, "%s\n", body.c_str());
  std::fflush(err_);
  for (size_t start = 0; start < body.size();) {
    const size_t end = std::min(body.find('\n', start), body.size());
    if (end - start >= kToldLine) told_.push_back(body.substr(start, end - start));
    start = end + 1;
  }
}

bool ConsoleUI::Told(std::string_view text) const {
  return std::any_of(told_.begin(), told_.end(), [text](const std::string& line) {
    return text.find(line) != std::string_view::npos;
  });
}

bool ConsoleUI::question(std::string_view text, std::string_view title, MessageIcon icon) {
  if (!answer_) message(std::string(text) + " (answered No)", title, icon);
  return answer_;
}

void ConsoleUI::status(std::string_view text) {
  status_ = text;
}

void ConsoleUI::progress(int percent) {
  if (!tty_) return;
  constexpr int kWidth = 30;
  const int filled = percent * kWidth / 100;
  const auto secs =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_)
          .count();
  std::string bar(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(kWidth - filled), '.');
  const std::string detail = detail_ ? detail_() : std::string();
  std::fprintf(err_, "\r\033[K%s [%s] %3d%%  %s  %lld:%02lld", status_.c_str(), bar.c_str(),
               percent, detail.c_str(), static_cast<long long>(secs / 60),
               static_cast<long long>(secs % 60));
  std::fflush(err_);
  barShown_ = true;
}

void ConsoleUI::finishProgress() {
  clearBar();
}

}  // namespace qb::cli
