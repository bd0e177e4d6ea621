#pragma once
// Reads a file as lines of bytes, one byte a character, through one reused buffer.
// A line ends at LF; a CR just before the LF is dropped; a lone CR stays in the line; a last
// line without LF is still a line; a file ending with LF has no empty line after it.
// Every line is followed in memory by at least kLineSlack readable bytes (of any value), so
// its fields can be read in whole 16-byte blocks.
//
// A reader may be told to keep only the first `keep` characters of each piece of a line (a
// piece ends at a form feed): a line longer than the buffer then costs no more memory than
// the buffer, however long it is, and comes back with each piece cut to `keep` characters
// and its form feeds where they were.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

namespace qb {

class LineReader {
 public:
  static constexpr size_t kLineSlack = 16;

  // Throws QbError 53 when the file does not exist, or the errno error, naming `source`.
  // `keep`: see above; 0 keeps whole lines.
  LineReader(const std::filesystem::path& path, std::string_view source, size_t keep = 0);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // The next line, valid until the next call; false at the end of the file.
  bool Next(std::string_view& line);
  // The same, and whether the line holds a form feed: the buffer is searched for form feeds
  // once, not each line.
  bool Next(std::string_view& line, bool& formFeed);

  // Reading goes on from byte `offset` of the file, which must be where a line starts (an
  // Offset() taken earlier).
  void Seek(int64_t offset);
  // Where in the file the next line starts.
  int64_t Offset() const { return readPos_ - static_cast<int64_t>(end_ - begin_); }

  // Size of the file in bytes when it was opened.
  int64_t FileSize() const { return size_; }
  // How many bytes the last line had in the file, before any piece of it was cut (its line
  // end not counted).
  size_t LineBytes() const { return lineBytes_; }

 private:
  bool fill();
  void compact();
  // Cuts the pieces of the bytes from `from` to `to` of a line being cut, in place; returns
  // where the kept bytes end.
  size_t Compact(size_t from, size_t to);
  // The current line, from begin_ up to `end` (its CR left out), with a cut line's rest cut
  // too; sets lineBytes_.
  std::string_view Finish(size_t end);

  int fd_ = -1;
  int64_t size_ = 0;
  std::unique_ptr<char[]> buf_;  // capacity_ + kLineSlack bytes, not zero-filled
  size_t capacity_ = 0;
  size_t begin_ = 0, end_ = 0;
  bool eof_ = false;
  int64_t readPos_ = 0;  // the file offset after the last read
  size_t scanFrom_ = 0;  // where the search for the line's end goes on after a fill
  // Keeping pieces short: the limit, how much of the current line was compacted, how long
  // its last piece is so far, and how many of its bytes were dropped.
  size_t keep_ = 0;
  size_t compacted_ = 0;
  size_t pieceLength_ = 0;
  size_t dropped_ = 0;
  bool keptLast_ = false;  // the byte before was kept: a UTF-8 character it began stays whole
  size_t lineBytes_ = 0;
  // The next form feed at or after some line start, or the buffer's end when there is
  // none; null when not yet searched since the buffer last changed.
  const char* formFeed_ = nullptr;
  std::string_view source_;
};

}  // namespace qb
