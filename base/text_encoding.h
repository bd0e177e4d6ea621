#pragma once
// A report's encoding, and the one-byte-a-character text ("units") the run reads it as.
//
// The engine counts columns in bytes: a marker at column 30 and a pickup of 10 characters are
// byte offsets into a line. So every report is read as units, one byte a character. A report
// in a single-byte code page is its own units; what each unit above 0x7F stands for is the
// run's Alphabet. A UTF-8 line that holds more than ASCII is decoded into units, each
// character the run has not met before taking the next free unit of the alphabet, so that
// an "Ö" in column 3 moves nothing after it. Outputs turn units back into Unicode through the
// same alphabet. Windows-1252, the default, is read and written byte for byte as it always
// was.

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/utf8.h"

namespace qb {

enum class Encoding : uint8_t { Windows1252, Utf8, Latin1, Cp437, Cp850, Ebcdic037, Ebcdic500 };

// The encoding of a setting's value ("utf-8", "cp437", "ebcdic-037", ... in any case, a few
// common spellings too); an empty value is the default, Windows-1252.
std::optional<Encoding> EncodingNamed(std::string_view name);
// The name settings keep: "windows-1252", "utf-8", "iso-8859-1", "cp437", "cp850",
// "ebcdic-037", "ebcdic-500".
std::string_view EncodingName(Encoding encoding);
// Every name, for messages and help: "windows-1252, utf-8, ...".
std::string EncodingNames();
inline bool IsEbcdic(Encoding e) {
  return e == Encoding::Ebcdic037 || e == Encoding::Ebcdic500;
}

// The UTF-8 byte-order mark, which selects UTF-8 for a report and an RDF.
inline constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
// `text` without a byte-order mark it begins with: a file's first line as text.
inline std::string_view WithoutBom(std::string_view text) {
  return text.starts_with(kUtf8Bom) ? text.substr(kUtf8Bom.size()) : text;
}

// UTF-8 text as code points, each sequence that is not valid UTF-8 one U+FFFD; and back.
std::u32string CodePoints(std::string_view utf8);
std::string Utf8(std::u32string_view text);

// The character a Windows-1252 byte stands for. The five bytes the code page leaves undefined
// stand for the control characters of the same number, so that no byte is lost.
inline char32_t Windows1252CodePoint(unsigned char b) {
  // Bytes 0x80 to 0x9F; the rest of the code page is Latin-1.
  static constexpr char32_t kHigh[32] = {
      0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
      0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
  return b >= 0x80 && b < 0xA0 ? kHigh[b - 0x80] : b;
}
// Appends Windows-1252 `bytes` as UTF-8.
inline void AppendWindows1252AsUtf8(std::string& out, std::string_view bytes) {
  for (char c : bytes) AppendUtf8(out, Windows1252CodePoint(static_cast<unsigned char>(c)));
}

// What each unit of a run's text stands for. Units below 0x80 are ASCII. The run's reading
// thread may add characters (UnitOf) while an output's writing thread reads them (CodePoint):
// a unit is set once, before any text holding it is handed on, and never changes.
class Alphabet {
 public:
  // Throws QbError when the system's iconv lacks the code page.
  explicit Alphabet(Encoding encoding = Encoding::Windows1252);
  Alphabet(const Alphabet&) = delete;
  Alphabet& operator=(const Alphabet&) = delete;

  Encoding encoding() const { return encoding_; }
  // Windows-1252: outputs take the units as they are, as they always did.
  bool Native() const { return encoding_ == Encoding::Windows1252; }

  char32_t CodePoint(unsigned char unit) const {
    return unit < 0x80 ? unit : high_[unit - 0x80].load(std::memory_order_relaxed);
  }
  // The unit of `cp`. A UTF-8 alphabet gives a character it has not met the next free unit;
  // nothing when the alphabet cannot hold it (a code page without it, or a UTF-8 alphabet
  // whose units are all taken).
  std::optional<unsigned char> UnitOf(char32_t cp);
  // The unit a character takes that the alphabet cannot hold or the source did not encode
  // validly: U+FFFD where the alphabet has it, else "?".
  unsigned char Replacement() const { return replacement_; }

  // Appends `units` as UTF-8.
  void AppendUtf8(std::string& out, std::string_view units) const;
  // Text of an RDF, UTF-8 when `utf8` and Windows-1252 otherwise, in this alphabet's units;
  // `complete` (when given) is false when some character could not be held and became the
  // replacement unit.
  std::string Units(std::string_view text, bool utf8, bool* complete = nullptr);

  // Per unit, what the numeric clean-up reads it as: a minus sign (U+2212) and an en dash
  // (U+2013) as "-", a no-break space as a blank, the rest as themselves. Fixed for the
  // alphabet's life; null for Windows-1252, whose clean-up is unchanged.
  const std::array<char, 256>* NumericFold() const { return Native() ? nullptr : &numericFold_; }

  // UTF-8: how many different characters the run met after every unit was taken (each read
  // as the replacement unit).
  int64_t Unheld() const { return unheld_; }

 private:
  Encoding encoding_;
  std::array<std::atomic<char32_t>, 128> high_{};
  std::unordered_map<char32_t, unsigned char> units_;  // the reverse of high_
  unsigned next_ = 0x80;                               // UTF-8: the next free unit
  unsigned char replacement_ = '?';
  int64_t unheld_ = 0;
  std::array<char, 256> numericFold_{};
};

// Reads UTF-8 lines as units of an alphabet: an ASCII line as it stands, any other decoded
// into a buffer of the decoder's own. A byte sequence that is not UTF-8 (a stray continuation
// byte, a lead byte without its continuation bytes, an overlong form, a surrogate) is one
// replacement unit, and counted.
class Utf8Decoder {
 public:
  explicit Utf8Decoder(Alphabet& alphabet) : alphabet_(alphabet) {}

  // `line` as units, valid until the next call; followed by `slack` readable bytes when
  // decoded (an ASCII line comes back as it was given, with whatever slack it had).
  std::string_view Decode(std::string_view line, size_t slack);
  int64_t Invalid() const { return invalid_; }
  // Characters the alphabet could not hold (read as the replacement unit).
  int64_t Missing() const { return missing_; }

 private:
  static constexpr char32_t kCached = 0x10000;
  Alphabet& alphabet_;
  // Per code point of the first plane, its unit or 0; made when a line first needs it.
  std::vector<unsigned char> cached_;
  std::string units_;
  int64_t invalid_ = 0;
  int64_t missing_ = 0;
};

// Whether `text` is all ASCII, eight bytes at a time.
bool IsAscii(std::string_view text);

// The 256 bytes of an EBCDIC code page as ISO-8859-1 bytes (both code pages hold the same
// characters), from iconv.
std::array<unsigned char, 256> EbcdicToLatin1(Encoding ebcdic);

}  // namespace qb
