// The PDF reader module: each page's words from poppler-cpp, in UTF-8, with their boxes.

#include <poppler-document.h>
#include <poppler-page.h>

#include <memory>
#include <string>
#include <vector>

#include "preprocess/pdf_reader.h"

extern "C" __attribute__((visibility("default"))) int qb_pdf_read(const char* path,
                                                                  QbPdfPageCallback callback,
                                                                  void* context, int* page) {
  try {
    std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(path));
    if (!doc) return kQbPdfUnreadable;
    if (doc->is_locked()) return kQbPdfLocked;
    std::vector<std::string> texts;
    std::vector<QbPdfWord> words;
    for (int i = 0; i < doc->pages(); ++i) {
      std::unique_ptr<poppler::page> p(doc->create_page(i));
      if (!p) {
        if (page) *page = i + 1;
        return kQbPdfBadPage;
      }
      const std::vector<poppler::text_box> boxes = p->text_list();
      texts.clear();
      texts.reserve(boxes.size());
      words.clear();
      for (const poppler::text_box& box : boxes) {
        const std::vector<char> utf8 = box.text().to_utf8();
        const std::string& text = texts.emplace_back(utf8.begin(), utf8.end());
        const poppler::rectf r = box.bbox();
        words.push_back({r.left(), r.top(), r.right(), r.bottom(), box.rotation() & 3, text.data(),
                         text.size()});
      }
      const poppler::rectf size = p->page_rect();
      const bool sideways = p->orientation() == poppler::page::landscape ||
                            p->orientation() == poppler::page::seascape;
      const QbPdfPage shown{i + 1, sideways ? size.height() : size.width(),
                            sideways ? size.width() : size.height(), words.data(), words.size()};
      if (callback(context, &shown) != 0) return kQbPdfStopped;
    }
    return kQbPdfRead;
  } catch (...) {
    return kQbPdfFailed;
  }
}
