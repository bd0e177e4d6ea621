#include "base/recode.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>

#include "base/errors.h"

namespace qb {

Recoder::Recoder(const char* to, const char* from, std::string_view source)
    : cd_(::iconv_open(to, from)), utf8Source_(::strcasecmp(from, "UTF-8") == 0) {
  if (cd_ == reinterpret_cast<iconv_t>(-1)) {
    throw QbError(kInvalidCall, std::string(source),
                  std::string("the encodings ") + from + " and " + to + " cannot be recoded");
  }
}

Recoder::~Recoder() {
  ::iconv_close(cd_);
}

std::string Recoder::operator()(std::string_view text, std::string_view replacement) {
  std::string out;
  out.reserve(text.size() + 16);
  ::iconv(cd_, nullptr, nullptr, nullptr, nullptr);  // a fresh start
  char* in = const_cast<char*>(text.data());         // iconv's signature; it does not write there
  size_t inLeft = text.size();
  char buffer[256];
  while (inLeft > 0) {
    char* at = buffer;
    size_t room = sizeof buffer;
    const size_t n = ::iconv(cd_, &in, &inLeft, &at, &room);
    out.append(buffer, static_cast<size_t>(at - buffer));
    if (n != static_cast<size_t>(-1) || errno == E2BIG) continue;
    // EILSEQ (a character the target lacks, or an invalid sequence) or EINVAL (a sequence cut
    // short at the end): the replacement, then on after the source character.
    out.append(replacement);
    size_t skip = 1;
    const auto lead = static_cast<unsigned char>(*in);
    if (utf8Source_ && lead >= 0xC0) {
      skip = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;  // the rest of a UTF-8 character
      for (size_t i = 1; i < skip && i < inLeft; ++i) {
        if ((static_cast<unsigned char>(in[i]) & 0xC0) != 0x80) skip = i;
      }
    }
    skip = std::min(skip, inLeft);
    in += skip;
    inLeft -= skip;
  }
  char* at = buffer;
  size_t room = sizeof buffer;
  ::iconv(cd_, nullptr, nullptr, &at, &room);  // a stateful target's closing bytes
  out.append(buffer, static_cast<size_t>(at - buffer));
  return out;
}

}  // namespace qb
