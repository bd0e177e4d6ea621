#include "engine/rdf_lines.h"

#include "base/text_encoding.h"

#include "base/bytes.h"
#include "engine/rdf_codec.h"
#include "engine/rdf_sections.h"

namespace qb {

bool IsScrambledFirstLine(std::string_view firstLine) {
  return !StartsWith(Trim(firstLine), "RDF");
}

bool IsBlankRdf(const std::filesystem::path& path, std::string_view firstLine,
                std::string_view procedure) {
  auto blank = [](std::string_view line) {
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
  };
  if (!blank(firstLine)) return false;
  LineReader reader(path, procedure);
  std::string_view line;
  reader.Next(line);  // the first, blank
  while (reader.Next(line)) {
    if (!blank(line)) return false;
  }
  return true;
}

bool RdfLineSource::Next(std::string_view& line) {
  std::string_view raw;
  for (;;) {
    if (!reader_.Next(raw)) return false;
    ++physical_;
    if (physical_ == 1) raw = WithoutBom(raw);
    if (!scrambled_ && (raw.empty() || raw.front() == ' ' || raw.front() == '[')) continue;
    break;
  }
  ++counted_;
  if (!scrambled_) {
    line = Trim(raw);
    return true;
  }
  if (counted_ > INT16_MAX) {
    throw QbError::Runtime(kOverflow, std::string(procedure_))
        .because("a scrambled RDF can hold at most 32,767 lines");
  }
  int16_t status = 0;
  try {
    DecodeRDFLine(static_cast<int16_t>(counted_), raw, plain_, status);
  } catch (QbError& e) {
    // Only line 1 carries a checksum to fail; any line may be too long to unscramble.
    throw e.because(counted_ == 1 ? std::string(kBadChecksumText)
                                  : "the scrambled line is too long: its number and its length "
                                    "together must stay within 32,767");
  }
  if (status != 0) {
    throw QbError(kRdfCorruptLine, std::string(procedure_), std::string(kCorruptRdfText))
        .because(std::string(kBadChecksumText));
  }
  line = Trim(plain_);
  return true;
}

}  // namespace qb
