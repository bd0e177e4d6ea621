#pragma once
// A file under a name no other file has, removed again unless it was renamed away: the
// temporary file an output is written under before it takes its final name, or a work file.

#include <filesystem>
#include <string_view>

namespace qb {

class TempFile {
 public:
  // Creates "<folder>/<stem><unique part><suffix>", empty, readable and writable as the
  // umask allows. Throws QbError naming `source` when the folder is missing or not writable.
  TempFile(const std::filesystem::path& folder, std::string_view stem, std::string_view suffix,
           std::string_view source);
  // A temporary file beside `target`, hidden, named after it.
  static TempFile Beside(const std::filesystem::path& target, std::string_view source);
  ~TempFile() { Remove(); }
  TempFile(TempFile&& other) noexcept;
  TempFile& operator=(TempFile&&) = delete;
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Renames the file over `target` in one step: a file of that name is replaced whole, or
  // left as it was when the rename fails. Throws QbError naming `source`.
  void RenameTo(const std::filesystem::path& target, std::string_view source);
  // Removes the file now (harmless when it is gone already).
  void Remove() noexcept;

 private:
  std::filesystem::path path_;  // empty once removed or renamed
};

}  // namespace qb
