#pragma once
// A text file written by a second thread. The run hands over each row's values, copied into
// batches; the writer thread formats them (numeric clean-up, quoting, joining) and writes the
// file, while the run's own thread goes on recognising lines and picking up values. Without
// the thread (`threaded` false) the run's thread writes each batch when it is full.

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <vector>

#include "base/buffered_file.h"
#include "base/bytes.h"
#include "base/errors.h"
#include "output/row_formatter.h"

namespace qb {

class PipedTextSink {
 public:
  // Creates the file (replacing one of that name) and starts the writer. Throws QbError
  // naming `source`. With `utf8`, an alphabet other than Windows-1252, each line is written
  // in UTF-8 (after a byte-order mark when `bom`); else its bytes are written as they are.
  PipedTextSink(const std::filesystem::path& path, std::string_view source, RowFormatter formatter,
                bool threaded = true, const Alphabet* utf8 = nullptr, bool bom = false,
                const std::filesystem::path& shown = {});
  // Stops the writer. Rows not yet written are dropped: only a failed run gets here without
  // Close.
  ~PipedTextSink();
  PipedTextSink(const PipedTextSink&) = delete;
  PipedTextSink& operator=(const PipedTextSink&) = delete;

  // Each of these copies a row for the writer, and throws the QbError that writing the file
  // failed with, if it has. The header's labels:
  void Labels(std::span<const std::string_view> labels);
  // A record's values, copied straight from where the run keeps them:
  void Values(std::span<const ValueBuffer* const> values);
  // An empty line:
  void EmptyLine();
  // Waits until every row is written, then closes the file. Throws QbError on failure.
  void Close();
  // Stops the writer and closes the file; rows not yet written are dropped.
  void Abandon() noexcept { Stop(/*drop=*/true); }

 private:
  struct Batch {
    std::unique_ptr<char[]> data;
    size_t capacity = 0;
    size_t used = 0;
  };
  // A cursor with room for `need` bytes in the current batch, submitting it first when full.
  char* Room(size_t need);
  void Submit();
  void Stop(bool drop);
  void WriterLoop();
  void WriteBatch(const Batch& batch);
  // Formats a row of `columns` values (`bytes` in all; `value(c)` gives column c's) at `p`, a
  // cursor in the file's buffer, with its line end; returns the cursor after it.
  template <class Value>
  char* PutRow(char* p, size_t columns, size_t bytes, bool labels, Value&& value);

  BufferedFile file_;
  const RowFormatter formatter_;
  const Alphabet* utf8_;
  std::string units_, encoded_;  // the writer's: a line on its way to UTF-8

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Batch> batches_;
  std::vector<Batch*> full_;  // in order, oldest first
  std::vector<Batch*> free_;
  bool stopping_ = false;
  bool drop_ = false;
  std::optional<QbError> error_;
  std::thread writer_;
  const bool threaded_;
  bool closed_ = false;

  Batch* current_ = nullptr;  // filled by the run's thread, outside the lock
};

}  // namespace qb
