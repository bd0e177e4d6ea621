#pragma once
// Where WriteLine's rows go: a text file for .txt and .csv, the spreadsheet for .xls.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"

namespace qb {

enum class OutputFormat { Txt, Csv, Xls };

// One output row: the column texts (after the numeric clean-up, before qualifying) and the
// line as joined for a text file.
struct OutputRow {
  std::span<const std::string_view> columns;
  std::string_view joined;
  bool header = false;
};

class OutputSink {
 public:
  virtual ~OutputSink() = default;
  // Throws QbError when the row cannot be written (disk full, ...).
  virtual void Write(const OutputRow& row) = 0;
  // Flushes and closes. Throws QbError on failure.
  virtual void Close() = 0;
  // True when the sink formats rows itself: it then gets a record's values as they stand
  // through WriteValues, and the header's labels through Write without a joined line.
  virtual bool WantsRawValues() const { return false; }
  // A record's values, in column order. Throws QbError as Write does.
  virtual void WriteValues(std::span<const ValueBuffer* const> values) {
    std::vector<std::string_view> columns;
    for (const ValueBuffer* v : values) columns.push_back(v->view());
    Write({columns, {}, false});
  }
};

// A text file written through one buffer; each row is the joined text and CR LF.
class TextFileSink final : public OutputSink {
 public:
  // Creates the file (replacing one of that name). Throws QbError naming `source`.
  TextFileSink(const std::filesystem::path& path, std::string_view source);
  ~TextFileSink() override;

  void Write(const OutputRow& row) override;
  void Close() override;

  // Writing in place: Cursor is where the next byte goes; Reserve returns a cursor with room
  // for `n` more bytes, writing out the pending ones first when the buffer is full; Commit
  // makes everything before `cursor` pending. Throws QbError when writing out fails.
  char* Cursor() { return buffer_.data() + used_; }
  char* Reserve(char* cursor, size_t n) {
    if (static_cast<size_t>(buffer_.data() + buffer_.size() - cursor) >= n) [[likely]]
      return cursor;
    return MakeRoom(cursor, n);
  }
  void Commit(char* cursor) { used_ = static_cast<size_t>(cursor - buffer_.data()); }

 private:
  char* MakeRoom(char* cursor, size_t n);
  void flush();

  int fd_ = -1;
  std::filesystem::path path_;
  std::string buffer_;  // a fixed-size staging area; used_ bytes of it are pending
  size_t used_ = 0;
  std::string source_;
};

}  // namespace qb
