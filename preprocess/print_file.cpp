#include "preprocess/print_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>

#include "base/buffered_file.h"
#include "base/errors.h"
#include "engine/progress.h"

namespace qb {
namespace {

constexpr std::string_view kProc = "ProcessPrintFile";

// A file's bytes a chunk at a time.
class ChunkReader {
 public:
  explicit ChunkReader(const std::filesystem::path& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
      const int err = errno;
      if (err == ENOENT) throw QbError::Runtime(kFileNotFound, std::string(kProc)).at(path);
      throw ErrorFromErrno(err, std::string(kProc)).at(path);
    }
  }
  ~ChunkReader() { ::close(fd_); }
  ChunkReader(const ChunkReader&) = delete;
  ChunkReader& operator=(const ChunkReader&) = delete;

  // The next chunk; empty at the end.
  std::string_view Next() {
    for (;;) {
      const ssize_t n = ::read(fd_, buffer_.get(), kSize);
      if (n >= 0) return {buffer_.get(), static_cast<size_t>(n)};
      if (errno != EINTR) throw ErrorFromErrno(errno, std::string(kProc));
    }
  }

 private:
  static constexpr size_t kSize = 1 << 20;
  int fd_ = -1;
  std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(kSize);
};

// Writes records as lines, carriage control applied.
class Printer {
 public:
  Printer(BufferedFile& out, bool asa, PrintFileCounts& counts)
      : out_(out), asa_(asa), counts_(counts) {}

  void Record(std::string_view record) {
    ++counts_.records;
    if (!asa_ || record.empty()) return out_.WriteLine(record);
    const char control = record.front();
    record.remove_prefix(1);
    switch (control) {
      case '+':
        ++counts_.overprinted;
        return;
      case '-':
        out_.WriteLine("");
        [[fallthrough]];
      case '0':
        out_.WriteLine("");
        break;
      case '1':
        line_.assign(1, '\f');
        line_.append(record);
        return out_.WriteLine(line_);
      default:
        break;
    }
    out_.WriteLine(record);
  }

 private:
  BufferedFile& out_;
  bool asa_;
  PrintFileCounts& counts_;
  std::string line_;
};

}  // namespace

TempFile ProcessPrintFile(Engine& engine, const std::atomic<bool>& cancel,
                          const std::filesystem::path& report, RunFolder& work,
                          const ReportEncoding& how, PrintFileCounts& counts) {
  UserInterface& ui = engine.app().ui();
  ui.status("Reading print file ...");
  TempFile output(work.Path(kProc), report.stem().string(), ".qbr", kProc);
  BufferedFile sink(output.path(), kProc, output.shown());
  Printer printer(sink, how.asa, counts);

  if (!IsEbcdic(how.encoding)) {
    // Text lines already: only the carriage control is applied.
    LineReader reader(report, kProc, kMaxPrintRecord);
    ByteProgress progress(ui, reader.FileSize());
    std::string_view line;
    for (int64_t number = 1; !cancel && reader.Next(line); ++number) {
      progress.AddLine(reader.LineBytes());
      if (number == 1) line = WithoutBom(line);
      printer.Record(line);
    }
  } else {
    const std::array<unsigned char, 256> latin1 = EbcdicToLatin1(how.encoding);
    std::error_code ec;
    const auto size = static_cast<int64_t>(std::filesystem::file_size(report, ec));
    ByteProgress progress(ui, ec ? 0 : size);
    ChunkReader reader(report);
    const auto fixed = static_cast<size_t>(how.recordLength);
    std::string record;
    bool pending = false;  // bytes read since the last record ended
    bool cutting = false;  // the record reached kMaxPrintRecord: the rest of it is dropped
    for (std::string_view chunk; !cancel && !(chunk = reader.Next()).empty();) {
      progress.AddLine(chunk.size() - 2);
      for (char c : chunk) {
        const auto b = static_cast<unsigned char>(c);
        if (fixed == 0 && (b == 0x15 || b == 0x25)) {  // NL and LF end a record
          if (!record.empty() && record.back() == '\r') record.pop_back();
          printer.Record(record);
          record.clear();
          pending = cutting = false;
          continue;
        }
        if (record.size() == kMaxPrintRecord) {  // only records without a length grow so
          if (!cutting) ++counts.cut;
          cutting = true;
          continue;
        }
        // A line end inside a fixed-length record would split it: it reads as a blank.
        const unsigned char l = latin1[b];
        record += static_cast<char>(fixed > 0 && (l == '\n' || l == 0x85) ? ' ' : l);
        pending = true;
        if (fixed > 0 && record.size() == fixed) {
          printer.Record(record);
          record.clear();
          pending = false;
        }
      }
    }
    if (pending) printer.Record(record);
  }
  sink.Close();
  if (cancel) throw QbError(kUserInterrupt, std::string(kProc), "Reading print file");
  return output;
}

}  // namespace qb
