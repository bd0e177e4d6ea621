#include "base/text_encoding.h"

#include <iconv.h>
#include <strings.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/errors.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qb {
namespace {

struct EncodingInfo {
  Encoding encoding;
  std::string_view name;  // as settings keep it
  const char* iconvName;  // what iconv calls it
};
constexpr EncodingInfo kEncodings[] = {
    {Encoding::Windows1252, "windows-1252", "WINDOWS-1252"},
    {Encoding::Utf8, "utf-8", "UTF-8"},
    {Encoding::Latin1, "iso-8859-1", "ISO-8859-1"},
    {Encoding::Cp437, "cp437", "CP437"},
    {Encoding::Cp850, "cp850", "CP850"},
    {Encoding::Ebcdic037, "ebcdic-037", "IBM037"},
    {Encoding::Ebcdic500, "ebcdic-500", "IBM500"},
};

// Other spellings users write.
constexpr std::pair<std::string_view, Encoding> kAliases[] = {
    {"cp1252", Encoding::Windows1252}, {"windows1252", Encoding::Windows1252},
    {"utf8", Encoding::Utf8},          {"latin1", Encoding::Latin1},
    {"latin-1", Encoding::Latin1},     {"iso8859-1", Encoding::Latin1},
    {"ibm437", Encoding::Cp437},       {"ibm850", Encoding::Cp850},
    {"cp037", Encoding::Ebcdic037},    {"ibm037", Encoding::Ebcdic037},
    {"cp500", Encoding::Ebcdic500},    {"ibm500", Encoding::Ebcdic500},
};

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Each of the 256 bytes of a single-byte code page as a code point (U+FFFD where iconv
// has none).
std::array<char32_t, 256> CodePageTable(Encoding encoding) {
  const char* name = "";
  for (const EncodingInfo& e : kEncodings) {
    if (e.encoding == encoding) name = e.iconvName;
  }
  iconv_t cd = ::iconv_open("UTF-32LE", name);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    throw QbError(kInvalidCall, "Encoding",
                  std::string("this system's iconv does not know the code page ") + name);
  }
  std::array<char32_t, 256> table{};
  for (unsigned b = 0; b < 256; ++b) {
    char in = static_cast<char>(b);
    unsigned char out[8];
    char* inp = &in;
    char* outp = reinterpret_cast<char*>(out);
    size_t inLeft = 1, outLeft = sizeof out;
    ::iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (::iconv(cd, &inp, &inLeft, &outp, &outLeft) == static_cast<size_t>(-1) ||
        outLeft != sizeof out - 4) {
      table[b] = 0xFFFD;
      continue;
    }
    table[b] = static_cast<char32_t>(out[0] | (out[1] << 8) | (out[2] << 16) |
                                     (static_cast<uint32_t>(out[3]) << 24));
  }
  ::iconv_close(cd);
  return table;
}

// UTF-8 keeps these four at fixed units, so that the numeric clean-up's table never changes
// during a run.
constexpr char32_t kUtf8Fixed[] = {0xFFFD, 0x2212, 0x2013, 0x00A0};

}  // namespace

std::optional<Encoding> EncodingNamed(std::string_view name) {
  while (!name.empty() && name.front() == ' ') name.remove_prefix(1);
  while (!name.empty() && name.back() == ' ') name.remove_suffix(1);
  if (name.empty()) return Encoding::Windows1252;
  for (const EncodingInfo& e : kEncodings) {
    if (SameName(name, e.name)) return e.encoding;
  }
  for (const auto& [alias, encoding] : kAliases) {
    if (SameName(name, alias)) return encoding;
  }
  return std::nullopt;
}

std::string_view EncodingName(Encoding encoding) {
  for (const EncodingInfo& e : kEncodings) {
    if (e.encoding == encoding) return e.name;
  }
  return "windows-1252";
}

std::string EncodingNames() {
  std::string names;
  for (const EncodingInfo& e : kEncodings) {
    if (!names.empty()) names += ", ";
    names += e.name;
  }
  return names;
}

Alphabet::Alphabet(Encoding encoding) : encoding_(encoding) {
  auto set = [this](unsigned unit, char32_t cp) {
    high_[unit - 0x80].store(cp, std::memory_order_relaxed);
    units_.emplace(cp, static_cast<unsigned char>(unit));
  };
  if (encoding == Encoding::Windows1252) {
    for (unsigned u = 0x80; u < 0x100; ++u)
      set(u, Windows1252CodePoint(static_cast<unsigned char>(u)));
  } else if (encoding == Encoding::Utf8) {
    for (char32_t cp : kUtf8Fixed) set(next_++, cp);
  } else {
    // An EBCDIC report is read as ISO-8859-1 units (EbcdicToLatin1).
    const std::array<char32_t, 256> table =
        CodePageTable(IsEbcdic(encoding) ? Encoding::Latin1 : encoding);
    for (unsigned u = 0x80; u < 0x100; ++u) set(u, table[u]);
  }
  if (auto r = units_.find(0xFFFD); r != units_.end()) replacement_ = r->second;
  for (unsigned u = 0; u < 256; ++u) {
    const char32_t cp = CodePoint(static_cast<unsigned char>(u));
    numericFold_[u] = cp == 0x2212 || cp == 0x2013 ? '-'
                      : cp == 0x00A0               ? ' '
                                                   : static_cast<char>(u);
  }
}

std::optional<unsigned char> Alphabet::UnitOf(char32_t cp) {
  if (cp < 0x80) return static_cast<unsigned char>(cp);
  if (auto found = units_.find(cp); found != units_.end()) return found->second;
  if (encoding_ != Encoding::Utf8) return std::nullopt;
  if (next_ > 0xFF) {
    ++unheld_;
    units_.emplace(cp, replacement_);  // counted once
    return std::nullopt;
  }
  const auto unit = static_cast<unsigned char>(next_++);
  high_[unit - 0x80].store(cp, std::memory_order_relaxed);
  units_.emplace(cp, unit);
  return unit;
}

void Alphabet::AppendUtf8(std::string& out, std::string_view units) const {
  for (char c : units) qb::AppendUtf8(out, CodePoint(static_cast<unsigned char>(c)));
}

std::string Alphabet::Units(std::string_view text, bool utf8, bool* complete) {
  if (complete) *complete = true;
  auto put = [&](std::string& out, char32_t cp) {
    std::optional<unsigned char> unit = UnitOf(cp);
    if (!unit && complete) *complete = false;
    out += static_cast<char>(unit ? *unit : replacement_);
  };
  std::string out;
  out.reserve(text.size());
  if (!utf8) {
    if (Native()) return std::string(text);
    for (char c : text) put(out, Windows1252CodePoint(static_cast<unsigned char>(c)));
    return out;
  }
  // Decoded the way report lines are, into this alphabet.
  Utf8Decoder decoder(*this);
  const std::string_view units = decoder.Decode(text, 0);
  if (complete && (decoder.Invalid() > 0 || decoder.Missing() > 0)) *complete = false;
  return std::string(units);
}

// The code point of the UTF-8 sequence at `p` (which is past ASCII), `p` moved past it.
// `valid` is false for a stray continuation byte, a lead byte without its continuation bytes,
// an overlong form or a surrogate; then `p` has moved past the bytes that were taken.
static inline char32_t NextCodePoint(const unsigned char*& p, const unsigned char* end,
                                     bool& valid) {
  const unsigned char b = *p;
  size_t length = 0;
  char32_t cp = 0, least = 0;
  if (b >= 0xC2 && b <= 0xDF) {
    length = 2, cp = b & 0x1F, least = 0x80;
  } else if (b >= 0xE0 && b <= 0xEF) {
    length = 3, cp = b & 0x0F, least = 0x800;
  } else if (b >= 0xF0 && b <= 0xF4) {
    length = 4, cp = b & 0x07, least = 0x10000;
  }
  size_t taken = 1;
  while (length > 0 && taken < length && p + taken < end && (p[taken] & 0xC0) == 0x80) {
    cp = (cp << 6) | (p[taken] & 0x3F);
    ++taken;
  }
  valid = length > 0 && taken == length && cp >= least && cp <= 0x10FFFF &&
          (cp < 0xD800 || cp > 0xDFFF);
  p += taken;
  return cp;
}

std::u32string CodePoints(std::string_view utf8) {
  std::u32string out;
  out.reserve(utf8.size());
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* const end = p + utf8.size();
  while (p < end) {
    if (*p < 0x80) {
      out += static_cast<char32_t>(*p++);
      continue;
    }
    bool valid;
    const char32_t cp = NextCodePoint(p, end, valid);
    out += valid ? cp : U'\uFFFD';
  }
  return out;
}

std::string Utf8(std::u32string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char32_t cp : text) AppendUtf8(out, cp);
  return out;
}

// Where the first byte past ASCII is in `text` (its size when there is none), eight bytes at
// a time.
static size_t AsciiPrefix(std::string_view text) {
  const char* const p = text.data();
  size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    uint64_t w;
    std::memcpy(&w, p + i, 8);
    if (const uint64_t high = w & 0x8080808080808080ULL) {
      return i + static_cast<size_t>(std::countr_zero(high)) / 8;  // little-endian
    }
  }
  while (i < text.size() && static_cast<unsigned char>(p[i]) < 0x80) ++i;
  return i;
}

// The same for a line that can be read a block past its end: a block at a time with SSE2.
static size_t AsciiPrefixOfLine(std::string_view line, size_t slack) {
#if defined(__SSE2__)
  if (slack >= 16) {
    const char* const p = line.data();
    for (size_t i = 0; i < line.size(); i += 16) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
      if (const auto high = static_cast<unsigned>(_mm_movemask_epi8(block))) {
        return std::min(line.size(), i + static_cast<size_t>(std::countr_zero(high)));
      }
    }
    return line.size();
  }
#endif
  return AsciiPrefix(line);
}

std::string_view Utf8Decoder::Decode(std::string_view line, size_t slack) {
  const size_t ascii = AsciiPrefixOfLine(line, slack);
  if (ascii == line.size()) return line;
  // Never more units than bytes: the buffer is sized once, and the ASCII start copied whole.
  if (units_.size() < line.size() + slack) units_.resize(line.size() + slack);
  if (cached_.empty()) cached_.assign(kCached, 0);
  char* const out = units_.data();
  std::memcpy(out, line.data(), ascii);
  size_t o = ascii;
  const auto* p = reinterpret_cast<const unsigned char*>(line.data()) + ascii;
  const auto* const end = reinterpret_cast<const unsigned char*>(line.data()) + line.size();
  while (p < end) {
    const unsigned char b = *p;
    if (b < 0x80) {
      out[o++] = static_cast<char>(b);
      ++p;
      continue;
    }
    bool valid;
    char32_t cp = NextCodePoint(p, end, valid);
    if (!valid) {
      ++invalid_;
      cp = 0xFFFD;
    }
    // Characters of the first plane are remembered here, the rest asked of the alphabet.
    // A code page (an RDF's UTF-8 text for a Windows-1252 report, say) holds what it holds;
    // the replacement unit stands for the rest.
    unsigned char unit = cp < kCached ? cached_[cp] : 0;
    if (unit == 0) {
      const std::optional<unsigned char> found = alphabet_.UnitOf(cp);
      if (!found) ++missing_;
      unit = found ? *found : alphabet_.Replacement();
      if (cp < kCached && found) cached_[cp] = unit;
    }
    out[o++] = static_cast<char>(unit);
  }
  return std::string_view(out, o);
}

bool IsAscii(std::string_view text) {
  return AsciiPrefix(text) == text.size();
}

std::array<unsigned char, 256> EbcdicToLatin1(Encoding ebcdic) {
  const std::array<char32_t, 256> table = CodePageTable(ebcdic);
  std::array<unsigned char, 256> bytes{};
  for (unsigned b = 0; b < 256; ++b) {
    bytes[b] = table[b] < 0x100 ? static_cast<unsigned char>(table[b]) : '?';
  }
  return bytes;
}

}  // namespace qb
