#pragma once
// Turns a record's column values into an output line: the numeric clean-up of "n" columns,
// qualifying (.txt) or quoting (.csv) of text columns, and joining with the delimiter.
//
// A text file's rows are formatted column by column straight into the file's buffer
// (ColumnBound, PutColumn); the spreadsheet takes the cleaned-up values and the joined line
// (Clean, Join), which live in this formatter's own buffers.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/text_encoding.h"
#include "output/output_options.h"
#include "output/sheet_text.h"

namespace qb {

class RowFormatter {
 public:
  struct Column {
    bool numeric;  // type "n...": cleaned up
    bool text;     // "c", "r", "w...": qualified or quoted
  };

  RowFormatter() = default;
  RowFormatter(OutputFormat format, std::string delimiter, std::string qualifier, bool qualify,
               std::vector<Column> columns);
  // The formatting of a run's rows: its options, and columns of these type codes. With an
  // alphabet other than Windows-1252, numeric values read its minus signs, en dashes and
  // no-break spaces as "-" and blanks before they are cleaned up.
  RowFormatter(const OutputOptions& options, std::span<const std::string> typeCodes,
               const Alphabet* alphabet = nullptr);

  // How a column of type `code` is written: "n..." cleaned up, "c", "r" and "w..." as text.
  static Column KindOf(std::string_view code) {
    return {!code.empty() && code.front() == 'n',
            code == "c" || code == "r" || (!code.empty() && code.front() == 'w')};
  }

  // The most bytes PutColumn can write for `value`: every character doubled by qualifying,
  // two qualifiers and the delimiter, and a copy block of slack that lets the value be
  // copied in whole blocks and the comma test read whole words.
  size_t ColumnBound(std::string_view value) const { return 2 * value.size() + extra_; }
  // The sum of ColumnBound over `columns` values of `bytes` characters in all.
  size_t RowBound(size_t columns, size_t bytes) const { return 2 * bytes + columns * extra_; }

  // Writes column `c` at `p` (after the delimiter, unless it is the first column) and returns
  // the end; `p` has ColumnBound(value) bytes of room, and `value` can be read a copy block
  // past its end (CopyBlocks). A row's numeric values are cleaned up on the way; a header's
  // labels are not, and in .csv they are all text.
  char* PutColumn(char* p, size_t c, std::string_view value, bool header) const {
    if (c > 0) p = PutDelimiter(p);
    char* const end = Put<true>(p, header ? columns_[c].headerKind : columns_[c].rowKind, value);
    return sheet_ ? xls::EscapeInPlace(p, end) : end;
  }

  // Replaces numeric values by their cleaned-up text (views into this formatter's buffers,
  // valid until the next call).
  void Clean(std::vector<std::string_view>& values);
  // The joined line of values already cleaned up (valid until the next call).
  std::string_view Join(const std::vector<std::string_view>& values, bool header);

  // "1,234.50CR" -> "-1234.50", "(12.00)" -> "-12.00": a value holding "(", "-" or "cr" is
  // negative; the characters of "()%#*$,+-cdr" (any case) go; blanks at both ends go.
  // Writes the result at `out` (room for value.size() + 1 bytes) and returns its length.
  static size_t CleanNumber(std::string_view value, char* out);

  // Whether the `n` bytes at `p` (followed by a copy block of readable bytes) hold a
  // character a .csv value is quoted for: a block at a time with SSE2, and the word-wise way
  // that other processors use, built everywhere so that tests compare the two.
  static bool HasCsvSpecialAt(const char* p, size_t n);
  static bool HasCsvSpecialByWords(const char* p, size_t n);

 private:
  // How a value is written.
  enum class Kind : uint8_t {
    Plain,      // as it stands
    Numeric,    // cleaned up
    CsvText,    // in double quotes when it holds a comma, a double quote, a CR or an LF
    Qualified,  // .txt with qualifying on: between qualifiers, inner qualifiers doubled
  };
  struct ColumnKinds {
    Kind rowKind, headerKind;
  };

  // `kBlocks`: the value may be block-copied (it is readable a block past its end).
  template <bool kBlocks>
  char* Put(char* p, Kind kind, std::string_view value) const {
    auto copy = [&] {
      return kBlocks ? CopyBlocks(p, value.data(), value.size()) : PutBytes(p, value);
    };
    switch (kind) {
      case Kind::Plain:
        break;
      case Kind::Numeric:
        if (fold_) [[unlikely]]
          value = Folded(value);
        return p + (kBlocks ? CleanNumberBlock(value, p) : CleanNumber(value, p));
      case Kind::CsvText: {
        char* end = copy();
        return HasCsvSpecialAt(p, value.size()) ? PutCsvQuoted(p, value) : end;
      }
      case Kind::Qualified:
        return PutQualified(p, value);
    }
    return copy();
  }
  // `value` with its bytes read through fold_ (followed by a block of slack).
  std::string_view Folded(std::string_view value) const;
  // CleanNumber for a value readable a block past its end, written where a block fits.
  static size_t CleanNumberBlock(std::string_view value, char* out);
  static char* PutCsvQuoted(char* p, std::string_view value);
  char* PutQualified(char* p, std::string_view value) const;
  char* PutDelimiter(char* p) const {
    if (delimiter_.size() == 1) {
      *p = delimiter_[0];
      return p + 1;
    }
    return PutBytes(p, delimiter_);
  }
  static char* PutBytes(char* p, std::string_view v) { return CopyBytes(p, v.data(), v.size()); }

  std::string delimiter_;
  std::string qualifier_;
  bool sheet_ = false;  // .xls: a value's Tab, CR and LF travel escaped (output/sheet_text.h)
  size_t extra_ = 0;
  std::vector<ColumnKinds> columns_;
  std::vector<std::string> cleaned_;
  std::string line_;                             // sized to the longest line so far
  const std::array<char, 256>* fold_ = nullptr;  // Alphabet::NumericFold
  mutable std::string folded_;
};

}  // namespace qb
