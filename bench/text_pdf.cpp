// Prints the first PAGES pages of a text report (pages end at form feeds) to a PDF, as a
// report program would: one landscape page a report page, every line in 8-point Courier at
// its columns. The benchmark's PDF report, made without the window's libraries.
//
//   qb_text_pdf REPORT PAGES OUTPUT.pdf

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

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

  // Objects: 1 catalog, 2 page tree, 3 font, then each page and its content stream.
  std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>", "",
                                      "<< /Type /Font /Subtype /Type1 /BaseFont /Courier >>"};
  std::string kids;
  for (const std::string& content : contents) {
    const size_t page = objects.size() + 1;
    kids += std::to_string(page) + " 0 R ";
    objects.push_back(
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 792 612] /Resources << /Font << /F1 3 0 R "
        ">> >> /Contents " +
        std::to_string(page + 1) + " 0 R >>");
    objects.push_back("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
                      "endstream");
  }
  objects[1] =
      "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(contents.size()) + " >>";

  std::ofstream out(argv[3], std::ios::binary);
  std::string xref = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  size_t offset = 0;
  auto put = [&](const std::string& text) {
    out << text;
    offset += text.size();
  };
  put("%PDF-1.4\n");
  for (size_t i = 0; i < objects.size(); ++i) {
    char entry[24];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
    xref += entry;
    put(std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n");
  }
  const size_t start = offset;
  put(xref + "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
      " /Root 1 0 R >>\nstartxref\n" + std::to_string(start) + "\n%%EOF\n");
  out.close();
  if (!out) {
    std::cerr << "qb_text_pdf: cannot write " << argv[3] << "\n";
    return 1;
  }
  return 0;
}
