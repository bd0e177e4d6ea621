#pragma once
// Files that exist only for a run: the temporary file an output is written under before it
// takes its final name, and the work files of a run, in a folder of the run's own.
//
// Where the file system allows it (ext4, tmpfs, xfs, btrfs: O_TMPFILE) a temporary file has
// no name at all until it is committed, so a run that is killed leaves nothing behind; its
// path() is then the /proc/self/fd link that opens it. Elsewhere it gets a name no other file
// has, and is removed unless it was renamed away.

#include <filesystem>
#include <string_view>

namespace qb {

class TempFile {
 public:
  // An empty file in `folder`, named (where it must be) "<stem><unique part><suffix>",
  // readable and writable as the umask allows. Throws QbError naming `source` when the folder
  // is missing or not writable.
  TempFile(const std::filesystem::path& folder, std::string_view stem, std::string_view suffix,
           std::string_view source);
  // A temporary file beside `target`, hidden, named after it.
  static TempFile Beside(const std::filesystem::path& target, std::string_view source);
  ~TempFile() { Remove(); }
  TempFile(TempFile&& other) noexcept;
  TempFile& operator=(TempFile&&) = delete;
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  // What opens the file (by open(), fopen(), LineReader ...) while it lives.
  const std::filesystem::path& path() const { return path_; }
  // What a message calls it: the target a file beside one is written for, else its folder and
  // the name it has or would have without its unique part.
  const std::filesystem::path& shown() const { return shown_; }

  // Puts the file in place of `target` in one step: a file of that name is replaced whole, or
  // left as it was when this fails. Throws QbError naming `source`.
  void RenameTo(const std::filesystem::path& target, std::string_view source);
  // Removes the file now (harmless when it is gone already).
  void Remove() noexcept;

 private:
  TempFile() = default;

  std::filesystem::path path_;    // empty once removed or renamed
  std::filesystem::path folder_;  // where it lives
  std::string stem_, suffix_;     // for the name it takes when committed
  std::filesystem::path shown_;
  int fd_ = -1;  // an unnamed file: held open, or it is gone
};

// The folder of one run's work files, "qbrun.<unique>" in `parent` (the program folder's
// out/), made when first asked for and removed with everything in it when the run ends.
class RunFolder {
 public:
  explicit RunFolder(std::filesystem::path parent) : parent_(std::move(parent)) {}
  ~RunFolder();
  RunFolder(const RunFolder&) = delete;
  RunFolder& operator=(const RunFolder&) = delete;

  // The folder, made now if it was not (and `parent` too). Throws QbError 76 from `source`
  // when that cannot be done.
  const std::filesystem::path& Path(std::string_view source);

  // Removes the run folders in `parent` older than `age`: what killed runs left behind.
  static void RemoveStale(const std::filesystem::path& parent,
                          std::filesystem::file_time_type::duration age);

 private:
  std::filesystem::path parent_;
  std::filesystem::path path_;
};

}  // namespace qb
