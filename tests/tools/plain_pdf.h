#pragma once
// PDFs of known text written out by hand, for the tests and the benchmark: no printing
// library, every page drawn in the built-in Courier font, which its content stream names /F1.

#include <cstdio>
#include <string>
#include <vector>

namespace qb::test {

struct PlainPage {
  std::string content;            // the page's content stream
  int width = 612, height = 792;  // points; US Letter upright
  int rotate = 0;                 // degrees the page is turned when shown
};

// The PDF's bytes: objects 1 catalog, 2 page tree, 3 font, then each page and its contents.
inline std::string PlainPdf(const std::vector<PlainPage>& pages) {
  std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>", "",
                                      "<< /Type /Font /Subtype /Type1 /BaseFont /Courier >>"};
  std::string kids;
  for (const PlainPage& page : pages) {
    const size_t number = objects.size() + 1;
    kids += std::to_string(number) + " 0 R ";
    objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + std::to_string(page.width) +
                      " " + std::to_string(page.height) + "] /Rotate " +
                      std::to_string(page.rotate) + " /Resources << /Font << /F1 3 0 R >> >> " +
                      "/Contents " + std::to_string(number + 1) + " 0 R >>");
    objects.push_back("<< /Length " + std::to_string(page.content.size()) + " >>\nstream\n" +
                      page.content + "endstream");
  }
  objects[1] =
      "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>";
  std::string pdf = "%PDF-1.4\n";
  std::string xref = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  for (size_t i = 0; i < objects.size(); ++i) {
    char entry[24];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", pdf.size());
    xref += entry;
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const size_t start = pdf.size();
  return pdf + xref + "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
         " /Root 1 0 R >>\nstartxref\n" + std::to_string(start) + "\n%%EOF\n";
}

}  // namespace qb::test
