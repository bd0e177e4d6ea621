#pragma once
// Small file helpers with errors the user can act on.

#include <filesystem>
#include <string>
#include <string_view>

namespace qb {

// The whole file as bytes. Throws QbError 53 when it does not exist, or the errno error.
std::string ReadWholeFile(const std::filesystem::path& path, std::string_view source);

// Writes `contents` to a temporary file beside `path`, flushes it to disk and renames it
// over `path`, so a crash or a full disk never leaves a half-written file behind.
// Throws QbError (path not found, access, disk full) naming `source`.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::string_view source);

// Appends `contents` to `path` (created when absent; its folder is not) and closes it again,
// so the bytes are in the file when this returns. Throws QbError on failure.
void AppendToFile(const std::filesystem::path& path, std::string_view contents,
                  std::string_view source);

// Asks the kernel to drop the cached pages of an existing file (it stays on disk as it is),
// unless some of them are not on disk yet: dropping those would first write them out. Where
// the kernel cannot tell (before Linux 6.5) the pages are dropped all the same. Harmless when
// the file does not exist.
void DropCachedPages(const std::filesystem::path& path);

}  // namespace qb
