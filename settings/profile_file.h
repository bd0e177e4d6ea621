#pragma once
// Profile (INI) files read and written with the semantics of the Windows profile API, so a
// hand-edited qbcfg.ini behaves as users expect:
//  - sections and keys match without regard to case;
//  - a value is the text after the first "=", blanks trimmed; quotes are kept as they are;
//  - a missing file, section or key gives the default; a key with an empty value gives "";
//  - writing one key keeps every other line (comments and order too), replaces the key in
//    place, appends a missing key at the end of its section and a missing section at the end
//    of the file; the file is rewritten with CR LF line ends, atomically.
// Reading never creates the file.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace qb {

// Throws QbError 5 for an empty path (there is no registry store behind an empty name).
std::string ReadProfileString(const std::filesystem::path& file, std::string_view section,
                              std::string_view key, std::string_view defaultValue,
                              size_t maxLength);

// Throws QbError when the file cannot be written; the old file is then unchanged.
void WriteProfileString(const std::filesystem::path& file, std::string_view section,
                        std::string_view key, std::string_view value);

}  // namespace qb
