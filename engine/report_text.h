#pragma once
// How a report's bytes become the text a run reads: its encoding (and with it the alphabet
// of the run's units), whether column 1 carries printer carriage control, and the record
// length of an EBCDIC file.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>

#include "base/line_reader.h"
#include "base/text_encoding.h"
#include "settings/settings_store.h"

namespace qb {

struct ReportEncoding {
  Encoding encoding = Encoding::Windows1252;
  // Column 1 of each line is a carriage-control character: "1" a new page, "0" and "-" one
  // and two blank lines before, "+" prints over the line before. So for EBCDIC unless the
  // setting says otherwise.
  bool asa = false;
  int64_t recordLength = 0;  // EBCDIC: fixed-length records of this many bytes; 0: lines
  // The report is first rewritten as text lines (EBCDIC records, carriage control).
  bool Rewritten() const { return asa || IsEbcdic(encoding); }
};

// Reads "encoding", "asa" and "reclen" for `report`: an empty "encoding" is UTF-8 when the
// report begins with a UTF-8 byte-order mark, else Windows-1252. A PDF's text (`pdf`) is
// laid out in the code page "encoding" names, or in UTF-8 when it names none; "asa" and
// "reclen" do not apply to it. Throws QbError naming the setting, its value and what it
// takes.
ReportEncoding ParseReportEncoding(const clsKeys& settings, const std::filesystem::path& report,
                                   bool pdf);

// A run's text as units (see base/text_encoding.h): the alphabet, and each line of the text
// the run reads decoded into it. Lines of a single-byte code page are their own units.
class ReportText {
 public:
  // Throws QbError when the system cannot read the encoding.
  explicit ReportText(Encoding encoding)
      : alphabet_(std::make_unique<Alphabet>(encoding)),
        decoder_(*alphabet_),
        utf8_(encoding == Encoding::Utf8) {}

  Alphabet& alphabet() { return *alphabet_; }
  const Alphabet& alphabet() const { return *alphabet_; }

  // Line `number` (from 1) of the text as units, valid until the next call and followed by
  // LineReader::kLineSlack readable bytes as `line` was. Line 1 loses a byte-order mark.
  std::string_view Units(std::string_view line, int64_t number) {
    if (!utf8_) [[likely]]
      return line;
    if (number == 1) line = WithoutBom(line);
    return decoder_.Decode(line, LineReader::kLineSlack);
  }

  // Byte sequences that were not valid UTF-8, each read as one replacement character.
  int64_t InvalidSequences() const { return decoder_.Invalid(); }
  // The most bytes `characters` characters of a line take: four each in UTF-8 (its BOM too).
  size_t BytesFor(size_t characters) const {
    return utf8_ ? 4 * characters + kUtf8Bom.size() : characters;
  }

 private:
  std::unique_ptr<Alphabet> alphabet_;
  Utf8Decoder decoder_;
  bool utf8_;
};

}  // namespace qb
