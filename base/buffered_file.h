#pragma once
// A file written through one buffer, for outputs and work files that are written in one pass.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace qb {

class BufferedFile {
 public:
  // Creates the file (replacing one of that name). Throws QbError naming `source` and
  // `shown` (by default `path`): the file as the user knows it.
  BufferedFile(const std::filesystem::path& path, std::string_view source,
               const std::filesystem::path& shown = {});
  // Closes the file; bytes not yet written out are lost (only a failed pass gets here
  // without Close).
  ~BufferedFile();
  BufferedFile(const BufferedFile&) = delete;
  BufferedFile& operator=(const BufferedFile&) = delete;

  // `line` and CR LF. Throws QbError when writing out fails.
  void WriteLine(std::string_view line);
  // Writes out what is pending and closes the file. Throws QbError on failure.
  void Close();

  // Writing in place: Cursor is where the next byte goes; Reserve returns a cursor with room
  // for `n` more bytes, writing out the pending ones first when the buffer is full; Commit
  // makes everything before `cursor` pending. Throws QbError when writing out fails.
  char* Cursor() { return buffer_.get() + used_; }
  char* Reserve(char* cursor, size_t n) {
    if (static_cast<size_t>(buffer_.get() + size_ - cursor) >= n) [[likely]]
      return cursor;
    return MakeRoom(cursor, n);
  }
  void Commit(char* cursor) { used_ = static_cast<size_t>(cursor - buffer_.get()); }

 private:
  char* MakeRoom(char* cursor, size_t n);
  void flush();

  int fd_ = -1;
  std::filesystem::path shown_;  // what errors name
  // A staging area of size_ bytes, used_ of them pending. Not zero-filled: a small output
  // touches only the pages it writes.
  std::unique_ptr<char[]> buffer_;
  size_t size_ = 0;
  size_t used_ = 0;
  std::string source_;
};

}  // namespace qb
