#pragma once
// A file written through one buffer, for outputs and work files that are written in one pass.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace qb {

class BufferedFile {
 public:
  // Creates the file (replacing one of that name). Throws QbError naming `source`.
  BufferedFile(const std::filesystem::path& path, std::string_view source);
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
