#pragma once
// Text from one encoding into another, through glibc's iconv. A character the target
// encoding lacks, or a byte sequence that is not valid in the source, becomes a replacement
// text, so recoding never fails on the text itself.

#include <iconv.h>

#include <string>
#include <string_view>

namespace qb {

class Recoder {
 public:
  // Encodings by iconv's names ("UTF-8", "WINDOWS-1252", "CP437", ...). Throws QbError from
  // `source` when iconv knows either not.
  Recoder(const char* to, const char* from, std::string_view source);
  ~Recoder();
  Recoder(const Recoder&) = delete;
  Recoder& operator=(const Recoder&) = delete;

  // `text` recoded; each character that cannot be recoded is `replacement` (in the target
  // encoding) instead.
  std::string operator()(std::string_view text, std::string_view replacement = "?");

 private:
  iconv_t cd_;
  bool utf8Source_;  // a character to skip may be several bytes
};

}  // namespace qb
