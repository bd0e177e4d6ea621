#pragma once
// The PDF reader (the module libqb_pdf.so): poppler behind a small C interface, so that only
// a run that reads a PDF loads poppler and the dozens of libraries it brings. The module
// gives each page's words with their boxes; pdf.cpp lays them out.

#include <cstddef>

extern "C" {

// A word: its box in points from the page's top left corner as the page is shown, the turn
// of its text in quarter turns clockwise (1 runs down the page, 2 upside down, 3 up the
// page), and its text in UTF-8 (`size` bytes, not NUL-terminated).
struct QbPdfWord {
  double left, top, right, bottom;
  int rotation;
  const char* text;
  size_t size;
};

// A page, numbered from 1, its size as shown (a page the PDF turns a quarter shows sideways),
// and its words in poppler's reading order. Valid during the callback only.
struct QbPdfPage {
  int number;
  double width, height;
  const QbPdfWord* words;
  size_t count;
};

// Called for each page in order; a nonzero result stops the reading.
typedef int (*QbPdfPageCallback)(void* context, const QbPdfPage* page);

enum QbPdfResult {
  kQbPdfRead = 0,        // every page was given
  kQbPdfUnreadable = 1,  // damaged, or not a PDF
  kQbPdfLocked = 2,      // protected by a password
  kQbPdfBadPage = 3,     // page *page cannot be read
  kQbPdfStopped = 4,     // the callback stopped it
  kQbPdfFailed = 5,      // poppler failed otherwise (out of memory, say)
};

// Reads the PDF at `path` page by page. Never throws.
int qb_pdf_read(const char* path, QbPdfPageCallback callback, void* context, int* page);
}
