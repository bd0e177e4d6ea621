#pragma once
// What the fuzz targets share: a program folder of their own for the process, and writing
// the input's bytes to a file.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace qb::fuzz {

struct Folder {
  Folder() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "qbfuzz.XXXXXX").string();
    path = ::mkdtemp(tmpl.data());
    // No log folder: log lines fail quietly into the silent interface instead of filling disk.
    std::ofstream(path / "qbsys.txt") << "H\r\nDefault - By Filename,0,1,1,.\r\n";
  }
  ~Folder() { std::filesystem::remove_all(path); }
  std::filesystem::path path;
};

inline void Write(const std::filesystem::path& p, std::string_view bytes) {
  std::ofstream(p, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace qb::fuzz
