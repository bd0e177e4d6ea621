// Prints the first PAGES pages of a text report (pages end at form feeds) to a PDF, as a
// report program would: one landscape page a report page, every line in 8-point Courier at
// its columns. The benchmark's PDF report, made without the window's libraries.
//
//   qb_text_pdf REPORT PAGES OUTPUT.pdf

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tests/tools/plain_pdf.h"

namespace {

// A line as a PDF string's contents: the characters that end or escape a string escaped.
std::string Escaped(const std::string& line) {
  std::string out;
  out.reserve(line.size() + 8);
  for (char c : line) {
    if (c == '(' || c == ')' || c == '\\') out += '\\';
    if (c != '\r') out += c;
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: qb_text_pdf REPORT PAGES OUTPUT.pdf\n";
    return 2;
  }
  std::ifstream report(argv[1], std::ios::binary);
  if (!report) {
    std::cerr << "qb_text_pdf: cannot read " << argv[1] << "\n";
    return 1;
  }
  const long wanted = std::stol(argv[2]);

  // Each page's content stream: lines 9.5 points apart from the top margin.
  std::vector<std::string> contents(1);
  int lineOnPage = 0;
  for (std::string line; std::getline(report, line);) {
    if (!line.empty() && line[0] == '\f') {
      if (static_cast<long>(contents.size()) == wanted) break;
      contents.emplace_back();
      lineOnPage = 0;
      line.erase(0, 1);
    }
    if (line.find_first_not_of(" \r") != std::string::npos) {
      contents.back() += "BT /F1 8 Tf 36 " + std::to_string(580 - 9.5 * lineOnPage) + " Td (" +
                         Escaped(line) + ") Tj ET\n";
    }
    ++lineOnPage;
  }

  std::vector<qb::test::PlainPage> pages;
  for (std::string& content : contents) pages.push_back({std::move(content), 792, 612});
  std::ofstream out(argv[3], std::ios::binary);
  out << qb::test::PlainPdf(pages);
  out.close();
  if (!out) {
    std::cerr << "qb_text_pdf: cannot write " << argv[3] << "\n";
    return 1;
  }
  return 0;
}
