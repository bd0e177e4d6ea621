// The PDF reader module: each page's words from poppler-cpp, in UTF-8, with their boxes.
//
// A long PDF is read by several threads, each with a document of its own, a page at a time;
// the pages are handed to the caller in order on the calling thread. Almost all of a PDF
// run's time is poppler drawing each page's text, and pages do not depend on each other.

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "base/utf8.h"
#include "preprocess/pdf_reader.h"

namespace {

// One page's words, their texts one after another in `chars` (`words`' text pointers are set
// from `starts` when the page is handed over), or why the page could not be read.
struct PageWords {
  double width = 0, height = 0;
  std::string chars;
  std::vector<QbPdfWord> words;
  std::vector<size_t> starts;
  int result = kQbPdfRead;  // kQbPdfBadPage or kQbPdfFailed
};

// Appends UTF-16 `text` to `out` as UTF-8; a lone surrogate becomes U+FFFD. poppler-cpp's
// own to_utf8 opens an iconv conversion for every word.
void AppendUtf16(const poppler::ustring& text, std::string& out) {
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDFFF) {
      const char32_t low = i + 1 < text.size() ? text[i + 1] : 0;
      if (cp <= 0xDBFF && low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      } else {
        cp = 0xFFFD;
      }
    }
    qb::AppendUtf8(out, cp);
  }
}

void ReadPage(poppler::document& doc, int index, PageWords& out) {
  out.chars.clear();
  out.words.clear();
  out.starts.clear();
  out.result = kQbPdfRead;
  try {
    std::unique_ptr<poppler::page> p(doc.create_page(index));
    if (!p) {
      out.result = kQbPdfBadPage;
      return;
    }
    const std::vector<poppler::text_box> boxes = p->text_list();
    out.words.reserve(boxes.size());
    for (const poppler::text_box& box : boxes) {
      const size_t start = out.chars.size();
      AppendUtf16(box.text(), out.chars);
      const poppler::rectf r = box.bbox();
      out.words.push_back({r.left(), r.top(), r.right(), r.bottom(), box.rotation() & 3, nullptr,
                           out.chars.size() - start});
      out.starts.push_back(start);
    }
    const poppler::rectf size = p->page_rect();
    const bool sideways =
        p->orientation() == poppler::page::landscape || p->orientation() == poppler::page::seascape;
    out.width = sideways ? size.height() : size.width();
    out.height = sideways ? size.width() : size.height();
  } catch (...) {
    out.result = kQbPdfFailed;
  }
}

// Hands page `index` to the callback; the result qb_pdf_read returns, or -1 to go on.
int Deliver(PageWords& page, int index, QbPdfPageCallback callback, void* context, int* number) {
  if (page.result != kQbPdfRead) {
    if (number) *number = index + 1;
    return page.result;
  }
  for (size_t w = 0; w < page.words.size(); ++w)
    page.words[w].text = page.chars.data() + page.starts[w];
  const QbPdfPage shown{index + 1, page.width, page.height, page.words.data(), page.words.size()};
  return callback(context, &shown) != 0 ? kQbPdfStopped : -1;
}

// Pages read ahead by worker threads into a ring of slots, page p in slot p % size; a worker
// takes a page only when its slot is free, so at most `size` pages wait in memory.
class PageRing {
 public:
  PageRing(size_t slots, int pages) : slots_(slots), ready_(slots, false), pages_(pages) {}

  // A worker's loop: reads the pages it takes from `doc` until none is left or Stop.
  void Work(poppler::document& doc) {
    PageWords page;
    for (;;) {
      int index;
      {
        std::unique_lock lock(mutex_);
        room_.wait(lock, [&] { return stop_ || next_ >= pages_ || next_ < delivered_ + Size(); });
        if (stop_ || next_ >= pages_) return;
        index = next_++;
      }
      ReadPage(doc, index, page);
      {
        std::lock_guard lock(mutex_);
        std::swap(slots_[Slot(index)], page);
        ready_[Slot(index)] = true;
      }
      filled_.notify_all();
    }
  }

  // Waits for page `index`, the next in order, and lends it to `use`.
  template <class F>
  int Take(int index, F&& use) {
    std::unique_lock lock(mutex_);
    filled_.wait(lock, [&] { return ready_[Slot(index)]; });
    lock.unlock();
    const int result = use(slots_[Slot(index)]);
    lock.lock();
    ready_[Slot(index)] = false;
    ++delivered_;
    lock.unlock();
    room_.notify_all();
    return result;
  }

  void Stop() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    room_.notify_all();
  }

 private:
  int Size() const { return static_cast<int>(slots_.size()); }
  size_t Slot(int index) const { return static_cast<size_t>(index) % slots_.size(); }

  std::mutex mutex_;
  std::condition_variable room_, filled_;
  std::vector<PageWords> slots_;
  std::vector<bool> ready_;
  const int pages_;
  int next_ = 0;       // the next page a worker takes
  int delivered_ = 0;  // pages handed to the caller
  bool stop_ = false;
};

// How many threads read a PDF of `pages` pages: one for a short one, else one a core, at
// most four.
size_t Readers(int pages) {
  constexpr int kPagesForThreads = 16;
  if (pages < kPagesForThreads) return 1;
  return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 4);
}

// poppler-cpp prints what it finds wrong in a damaged file on standard error ("poppler/error:
// Couldn't read xref table"), beside the caller's own message about the same failure. Its hook
// for those texts is process-wide and unguarded, so it is set once, by the thread-safe
// initialisation of a static, to a function that drops them, before this module opens its
// first document; nothing sets it again.
void DropPopplerMessages() {
  [[maybe_unused]] static const bool dropped = [] {
    poppler::set_debug_error_function([](const std::string&, void*) {}, nullptr);
    return true;
  }();
}

int ReadInOrder(poppler::document& doc, QbPdfPageCallback callback, void* context, int* page) {
  PageWords words;
  for (int i = 0; i < doc.pages(); ++i) {
    ReadPage(doc, i, words);
    if (const int result = Deliver(words, i, callback, context, page); result >= 0) return result;
  }
  return kQbPdfRead;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int qb_pdf_read(const char* path,
                                                                  QbPdfPageCallback callback,
                                                                  void* context, int* page) {
  try {
    DropPopplerMessages();
    std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(path));
    if (!doc) return kQbPdfUnreadable;
    if (doc->is_locked()) return kQbPdfLocked;
    const int pages = doc->pages();
    const size_t n = Readers(pages);
    if (n == 1) return ReadInOrder(*doc, callback, context, page);

    PageRing ring(n * 4, pages);
    std::vector<std::thread> readers;
    // However this ends, the readers stop and are waited for before their documents go.
    struct Join {
      PageRing& ring;
      std::vector<std::thread>& readers;
      ~Join() {
        ring.Stop();
        for (std::thread& t : readers) t.join();
      }
    } join{ring, readers};
    // The first reader uses this document; each other one opens the file again on its own
    // thread, and one that cannot leaves the pages to the others.
    try {
      readers.emplace_back([&ring, &doc] { ring.Work(*doc); });
      const std::string file(path);
      while (readers.size() < n) {
        readers.emplace_back([&ring, file] {
          std::unique_ptr<poppler::document> own;
          try {
            own.reset(poppler::document::load_from_file(file));
          } catch (...) {
          }
          if (own && !own->is_locked()) ring.Work(*own);
        });
      }
    } catch (const std::system_error&) {
      if (readers.empty()) return ReadInOrder(*doc, callback, context, page);
    }
    for (int i = 0; i < pages; ++i) {
      const int result = ring.Take(
          i, [&](PageWords& words) { return Deliver(words, i, callback, context, page); });
      if (result >= 0) return result;
    }
    return kQbPdfRead;
  } catch (...) {
    return kQbPdfFailed;
  }
}
