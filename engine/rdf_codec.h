#pragma once
// The line encoding of scrambled RDF files. Quillbrook reads scrambled RDFs and writes only
// plain ones, so there is no scrambler here.

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

// Sum of the character codes modulo 1000 (0 to 999); 0 for an empty text.
int16_t LineChecksum(std::string_view text);

// Unscrambles one line. `lineNo` is the line's 1-based number as the loader counts it; line 1
// also carries a three-digit checksum, which is verified and cut off. `status` is set to 5
// when line 1 fails its checksum and left alone otherwise. Throws QbError 6 when line number
// plus length leaves the 16-bit range, 5 when line 1 is shorter than its checksum, 13 when
// its checksum is not a number.
void DecodeRDFLine(int16_t lineNo, std::string_view scrambled, std::string& plain, int16_t& status);

}  // namespace qb
