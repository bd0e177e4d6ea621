#include "output/xls_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>

#include "base/errors.h"
#include "base/temp_file.h"
#include "output/workbook_libraries.h"

namespace qb::xls {
namespace {

constexpr size_t kMaxRecordData = 8224;  // BIFF8: larger records continue in CONTINUE

enum Record : uint16_t {
  kBof = 0x0809,
  kEof = 0x000A,
  kCodepage = 0x0042,
  kWindow1 = 0x003D,
  kFont = 0x0031,
  kFormat = 0x041E,
  kXf = 0x00E0,
  kStyle = 0x0293,
  kBoundSheet = 0x0085,
  kSst = 0x00FC,
  kContinue = 0x003C,
  kExtSst = 0x00FF,
  kDimensions = 0x0200,
  kColInfo = 0x007D,
  kLabelSst = 0x00FD,
  kNumber = 0x0203,
  kWindow2 = 0x023E,
};

// A BIFF stream built in memory, one record at a time.
class Stream {
 public:
  // Texts' bytes stand for `alphabet`'s characters (Windows-1252 without one).
  explicit Stream(const Alphabet* alphabet) : alphabet_(alphabet) {}

  // A character's UTF-16 unit; one past U+FFFF, which would take two, is U+FFFD.
  uint16_t Unit(char c) const {
    const auto b = static_cast<unsigned char>(c);
    const char32_t cp = alphabet_ ? alphabet_->CodePoint(b) : Windows1252CodePoint(b);
    return cp > 0xFFFF ? 0xFFFD : static_cast<uint16_t>(cp);
  }
  // Whether every character fits BIFF's compressed (one byte a character) form.
  bool Compressible(std::string_view s) const {
    for (char c : s) {
      if (Unit(c) > 0xFF) return false;
    }
    return true;
  }

  void Begin(uint16_t type) {
    start_ = data_.size();
    Put16(type);
    Put16(0);
  }
  void End() {
    const size_t len = data_.size() - start_ - 4;
    data_[start_ + 2] = static_cast<char>(len & 0xFF);
    data_[start_ + 3] = static_cast<char>(len >> 8);
  }
  size_t RecordLength() const { return data_.size() - start_ - 4; }
  size_t RecordStart() const { return start_; }

  void Put8(uint8_t v) { data_ += static_cast<char>(v); }
  void Put16(uint16_t v) {
    Put8(static_cast<uint8_t>(v));
    Put8(static_cast<uint8_t>(v >> 8));
  }
  void Put32(uint32_t v) {
    Put16(static_cast<uint16_t>(v));
    Put16(static_cast<uint16_t>(v >> 16));
  }
  void PutDouble(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    Put32(static_cast<uint32_t>(bits));
    Put32(static_cast<uint32_t>(bits >> 32));
  }
  void PutChars(std::string_view s, bool compressed) {
    for (char c : s) {
      if (compressed)
        Put8(static_cast<uint8_t>(Unit(c)));
      else
        Put16(Unit(c));
    }
  }
  // A string with an 8-bit (sheet names, font names) or 16-bit (formats) length.
  void PutString(std::string_view s, bool longLength) {
    const bool compressed = Compressible(s);
    if (longLength)
      Put16(static_cast<uint16_t>(s.size()));
    else
      Put8(static_cast<uint8_t>(s.size()));
    Put8(compressed ? 0 : 1);
    PutChars(s, compressed);
  }
  void Patch32(size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
      data_[at + static_cast<size_t>(i)] = static_cast<char>(v >> (8 * i));
  }
  size_t Size() const { return data_.size(); }
  const std::string& Data() const { return data_; }
  void Clear() { data_.clear(); }

 private:
  const Alphabet* alphabet_;
  std::string data_;
  size_t start_ = 0;
};

void PutBof(Stream& s, uint16_t kind) {
  s.Begin(kBof);
  s.Put16(0x0600);  // BIFF8
  s.Put16(kind);    // 0x0005 workbook globals, 0x0010 worksheet
  s.Put16(0x0DBB);  // build
  s.Put16(0x07CC);  // year
  s.Put32(0x00000041);
  s.Put32(0x00000006);
  s.End();
}

void PutEof(Stream& s) {
  s.Begin(kEof);
  s.End();
}

// The cell formats in use: number format, bold, wrap and top alignment, deduplicated.
class Styles {
 public:
  explicit Styles(const SheetData& sheet) : sheet_(sheet) {}

  uint16_t Xf(const std::string& format, bool bold, bool wrap) {
    const uint16_t fmt = FormatIndex(format);
    auto key = std::make_tuple(fmt, bold, wrap);
    auto it = xfs_.find(key);
    if (it != xfs_.end()) return it->second;
    const uint16_t index = static_cast<uint16_t>(kFirstCellXf + order_.size());
    order_.push_back(key);
    xfs_.emplace(key, index);
    return index;
  }

  void WriteGlobals(Stream& s) const {
    for (int i = 0; i < 4; ++i) PutFont(s, i == 1);
    for (const auto& [code, index] : customFormats_) {
      s.Begin(kFormat);
      s.Put16(index);
      s.PutString(code, true);
      s.End();
    }
    for (int i = 0; i < kFirstCellXf; ++i) PutXf(s, 0, 0, false, false, true);
    for (const auto& [fmt, bold, wrap] : order_)
      PutXf(s, bold ? 1 : 0, fmt, wrap, sheet_.alignTop, false);
    s.Begin(kStyle);  // "Normal", the built-in style on XF 0
    s.Put16(0x8000);
    s.Put8(0);
    s.Put8(0xFF);
    s.End();
  }

  static constexpr int kFirstCellXf = 15;

 private:
  uint16_t FormatIndex(const std::string& code) {
    static const std::map<std::string, uint16_t, std::less<>> kBuiltIn = {
        {"General", 0}, {"0", 1}, {"0.00", 2}, {"@", 49}};
    if (auto it = kBuiltIn.find(code); it != kBuiltIn.end()) return it->second;
    for (const auto& [c, index] : customFormats_) {
      if (c == code) return index;
    }
    const uint16_t index = static_cast<uint16_t>(164 + customFormats_.size());
    customFormats_.emplace_back(code, index);
    return index;
  }

  static void PutFont(Stream& s, bool bold) {
    s.Begin(kFont);
    s.Put16(200);           // 10 points, in twentieths
    s.Put16(bold ? 1 : 0);  // the old bold flag, which some readers still look at
    s.Put16(0x7FFF);        // automatic colour
    s.Put16(bold ? 700 : 400);
    s.Put16(0);  // no super/subscript
    s.Put8(0);   // no underline
    s.Put8(0);   // family
    s.Put8(0);   // character set
    s.Put8(0);
    s.PutString("Arial", false);
    s.End();
  }

  static void PutXf(Stream& s, uint16_t font, uint16_t format, bool wrap, bool top, bool style) {
    s.Begin(kXf);
    s.Put16(font);
    s.Put16(format);
    s.Put16(style ? 0xFFF5 : 0x0001);  // style XF, or a locked cell XF on parent 0
    s.Put8(
        static_cast<uint8_t>((wrap ? 0x08 : 0) | ((top ? 0 : 2) << 4)));  // vertical: top or bottom
    s.Put8(0);                                                            // rotation
    s.Put8(0);                 // indent, shrink, reading order
    s.Put8(style ? 0 : 0xFC);  // the cell XF's own attributes are used
    s.Put32(0);                // borders
    s.Put32(0);
    s.Put16(0x20C0);  // pattern colours: automatic foreground and background
    s.End();
  }

  const SheetData& sheet_;
  std::vector<std::pair<std::string, uint16_t>> customFormats_;
  std::map<std::tuple<uint16_t, bool, bool>, uint16_t> xfs_;
  std::vector<std::tuple<uint16_t, bool, bool>> order_;
};

// The shared string table, continued into CONTINUE records where it outgrows one record;
// a string that is split starts its continuation with a fresh option byte.
void PutSst(Stream& s, const SheetData& sheet, uint32_t totalRefs) {
  const uint32_t count = static_cast<uint32_t>(sheet.strings.size());
  const uint32_t bucket = std::max<uint32_t>(8, count / 128 + 1);
  std::vector<std::pair<uint32_t, uint16_t>> ext;  // stream position, offset in its record

  s.Begin(kSst);
  s.Put32(totalRefs);
  s.Put32(count);
  auto room = [&s] { return kMaxRecordData - s.RecordLength(); };
  auto next = [&s] {
    s.End();
    s.Begin(kContinue);
  };
  for (uint32_t i = 0; i < count; ++i) {
    std::string_view str = sheet.strings[i];
    const bool compressed = s.Compressible(str);
    const size_t charSize = compressed ? 1 : 2;
    if (room() < 3 + charSize) next();
    if (i % bucket == 0) {
      ext.emplace_back(static_cast<uint32_t>(s.Size()),
                       static_cast<uint16_t>(s.Size() - s.RecordStart()));
    }
    s.Put16(static_cast<uint16_t>(str.size()));
    s.Put8(compressed ? 0 : 1);
    while (!str.empty()) {
      size_t fit = room() / charSize;
      if (fit == 0) {
        next();
        s.Put8(compressed ? 0 : 1);
        fit = room() / charSize;
      }
      const size_t n = std::min(fit, str.size());
      s.PutChars(str.substr(0, n), compressed);
      str.remove_prefix(n);
    }
  }
  s.End();

  s.Begin(kExtSst);
  s.Put16(static_cast<uint16_t>(bucket));
  for (const auto& [pos, offset] : ext) {
    s.Put32(pos);
    s.Put16(offset);
    s.Put16(0);
  }
  s.End();
}

// Writes the workbook stream to `out` a part at a time: the globals (with the shared string
// table) whole, then the sheet in pieces of about a megabyte as its cells are read.
void WriteStream(const SheetData& sheet, const std::function<void(const std::string&)>& out) {
  Styles styles(sheet);
  // Cell formats: a column's default, and bold for the header cells.
  std::vector<uint16_t> columnXf(sheet.columns.size()), boldXf(sheet.columns.size());
  for (size_t c = 0; c < sheet.columns.size(); ++c) {
    columnXf[c] = styles.Xf(sheet.columns[c].numberFormat, false, sheet.columns[c].wrap);
    boldXf[c] = styles.Xf(sheet.columns[c].numberFormat, true, sheet.columns[c].wrap);
  }
  const uint16_t generalXf = styles.Xf("General", false, false);
  const uint16_t generalBoldXf = styles.Xf("General", true, false);
  uint32_t textRefs = 0;
  uint16_t lastColumn = 0;
  sheet.ForEachCell([&](uint32_t, const CellData& cell) {
    textRefs += cell.kind == CellData::Kind::Text;
    lastColumn = std::max<uint16_t>(lastColumn, static_cast<uint16_t>(cell.column + 1));
  });

  Stream s(sheet.alphabet);
  PutBof(s, 0x0005);
  s.Begin(kCodepage);
  s.Put16(1200);  // strings are UTF-16 (compressed where they fit in a byte)
  s.End();
  s.Begin(kWindow1);
  for (uint16_t v : {0, 0, 0x4000, 0x2000, 0x0038, 0, 0, 1, 600}) s.Put16(v);
  s.End();
  styles.WriteGlobals(s);
  s.Begin(kBoundSheet);
  const size_t sheetOffsetAt = s.Size();
  s.Put32(0);  // patched below: where the sheet's BOF record starts
  s.Put16(0);  // visible worksheet
  s.PutString(sheet.name, false);
  s.End();
  PutSst(s, sheet, textRefs);
  PutEof(s);
  s.Patch32(sheetOffsetAt, static_cast<uint32_t>(s.Size()));
  out(s.Data());
  s.Clear();

  PutBof(s, 0x0010);
  s.Begin(kDimensions);
  s.Put32(0);
  s.Put32(static_cast<uint32_t>(sheet.rows.size()));
  s.Put16(0);
  s.Put16(lastColumn);
  s.Put16(0);
  s.End();
  for (size_t c = 0; c < sheet.columns.size(); ++c) {
    const ColumnSpec& col = sheet.columns[c];
    const double width = col.width >= 0 ? col.width : 8.43;
    s.Begin(kColInfo);
    s.Put16(static_cast<uint16_t>(c));
    s.Put16(static_cast<uint16_t>(c));
    s.Put16(static_cast<uint16_t>(std::lround(std::min(255.0, width) * 256.0 + 182.0)));
    s.Put16(columnXf[c]);
    s.Put16(0);
    s.Put16(0);
    s.End();
  }
  constexpr size_t kPiece = size_t{1} << 20;
  sheet.ForEachCell([&](uint32_t row, const CellData& cell) {
    const bool known = cell.column < sheet.columns.size();
    const uint16_t xf = cell.bold ? (known ? boldXf[cell.column] : generalBoldXf)
                                  : (known ? columnXf[cell.column] : generalXf);
    if (cell.kind == CellData::Kind::Text) {
      s.Begin(kLabelSst);
      s.Put16(static_cast<uint16_t>(row));
      s.Put16(cell.column);
      s.Put16(xf);
      s.Put32(cell.text);
    } else {
      s.Begin(kNumber);
      s.Put16(static_cast<uint16_t>(row));
      s.Put16(cell.column);
      s.Put16(xf);
      s.PutDouble(cell.number);
    }
    s.End();
    if (s.Size() >= kPiece) {
      out(s.Data());
      s.Clear();
    }
  });
  s.Begin(kWindow2);
  s.Put16(0x06B6);  // gridlines, headings, zeros, selected and active sheet
  for (int i = 0; i < 8; ++i) s.Put16(i == 2 ? 64 : 0);  // top row, left column, header colour
  s.End();
  PutEof(s);
  out(s.Data());
}

[[noreturn]] void Fail(const std::filesystem::path& path, const std::string& why) {
  throw QbError(kPathFileAccess, "SaveAs", "Cannot write the workbook: " + why).at(path);
}

// A spilled cell: row and column (16 bits each), kind and bold, three zero bytes, and the
// number's bits or the text's index.
constexpr size_t kSpilledCell = 16;
constexpr size_t kSpillBuffer = size_t{1} << 20;

void PutSpilled(char* at, uint32_t row, const CellData& cell) {
  const auto row16 = static_cast<uint16_t>(row);
  std::memcpy(at, &row16, 2);
  std::memcpy(at + 2, &cell.column, 2);
  at[4] = static_cast<char>((cell.kind == CellData::Kind::Text ? 1 : 0) | (cell.bold ? 2 : 0));
  at[5] = at[6] = at[7] = 0;
  uint64_t value = cell.text;
  if (cell.kind == CellData::Kind::Number) std::memcpy(&value, &cell.number, 8);
  std::memcpy(at + 8, &value, 8);
}

uint32_t GetSpilled(const char* at, CellData& cell) {
  uint16_t row16;
  std::memcpy(&row16, at, 2);
  std::memcpy(&cell.column, at + 2, 2);
  cell.kind = (at[4] & 1) ? CellData::Kind::Text : CellData::Kind::Number;
  cell.bold = (at[4] & 2) != 0;
  uint64_t value;
  std::memcpy(&value, at + 8, 8);
  if (cell.kind == CellData::Kind::Number) {
    std::memcpy(&cell.number, &value, 8);
    cell.text = 0;
  } else {
    cell.text = static_cast<uint32_t>(value);
    cell.number = 0;
  }
  return row16;
}

}  // namespace

SpilledRows::SpilledRows(const std::filesystem::path& folder, std::string_view source)
    : file_(folder, "qbxls", ".tmp", source), buffer_(new char[kSpillBuffer]), source_(source) {
  fd_ = ::open(file_.path().c_str(), O_RDWR | O_CLOEXEC);
  if (fd_ < 0) throw ErrorFromErrno(errno, source_).at(file_.shown());
}

SpilledRows::~SpilledRows() {
  if (fd_ >= 0) ::close(fd_);
}

void SpilledRows::Add(uint32_t row, std::span<const CellData> cells) {
  for (const CellData& cell : cells) {
    if (used_ + kSpilledCell > kSpillBuffer) WriteOut();
    PutSpilled(buffer_.get() + used_, row, cell);
    used_ += kSpilledCell;
  }
  end_ = row + 1;
}

void SpilledRows::WriteOut() {
  for (size_t done = 0; done < used_;) {
    const ssize_t n =
        ::pwrite(fd_, buffer_.get() + done, used_ - done, static_cast<off_t>(written_ + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw ErrorFromErrno(n < 0 ? errno : ENOSPC, source_).at(file_.shown());
    done += static_cast<size_t>(n);
  }
  written_ += used_;
  used_ = 0;
}

void SpilledRows::ForEach(const std::function<void(uint32_t row, const CellData&)>& f) const {
  CellData cell;
  auto each = [&](const char* from, size_t bytes) {
    for (size_t at = 0; at + kSpilledCell <= bytes; at += kSpilledCell) {
      const uint32_t row = GetSpilled(from + at, cell);
      f(row, cell);
    }
  };
  // What is in the file, read back a buffer at a time, then what is still pending.
  std::unique_ptr<char[]> chunk(new char[kSpillBuffer]);
  for (uint64_t offset = 0; offset < written_;) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(kSpillBuffer, written_ - offset));
    const ssize_t n = ::pread(fd_, chunk.get(), want, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw ErrorFromErrno(errno, source_).at(file_.shown());
    if (n == 0 || static_cast<size_t>(n) % kSpilledCell != 0) {
      throw QbError(kPathFileAccess, source_, "A work file of the sheet came back short")
          .at(file_.shown());
    }
    each(chunk.get(), static_cast<size_t>(n));
    offset += static_cast<uint64_t>(n);
  }
  each(buffer_.get(), used_);
}

uint32_t SheetData::Intern(std::string_view text) {
  if (slots_.empty()) slots_.assign(1024, 0);
  const uint64_t hash = std::hash<std::string_view>{}(text);
  const uint64_t tag = hash >> 32;
  const size_t mask = slots_.size() - 1;
  for (size_t i = hash & mask;; i = (i + 1) & mask) {
    const uint64_t slot = slots_[i];
    if (slot == 0) {
      const auto index = static_cast<uint32_t>(strings.size());
      strings.emplace_back(text);
      slots_[i] = tag << 32 | (uint64_t{index} + 1);
      if (strings.size() * 2 > slots_.size()) Grow();
      return index;
    }
    const auto index = static_cast<uint32_t>(slot) - 1;
    if (slot >> 32 == tag && strings[index] == text) return index;
  }
}

void SheetData::Grow() {
  std::vector<uint64_t> slots(slots_.size() * 2, 0);
  const size_t mask = slots.size() - 1;
  for (uint32_t index = 0; index < strings.size(); ++index) {
    const uint64_t hash = std::hash<std::string_view>{}(strings[index]);
    size_t i = hash & mask;
    while (slots[i] != 0) i = (i + 1) & mask;
    slots[i] = (hash >> 32) << 32 | (uint64_t{index} + 1);
  }
  slots_ = std::move(slots);
}

void WriteWorkbook(const SheetData& sheet, const std::filesystem::path& path) {
  const GsfLibrary& gsf = Gsf("SaveAs");

  // Written under a name of its own beside the output, and renamed over it when whole.
  // libgsf is handed the open file: writing by name, it would make a temporary file of its
  // own beside that name, and the temporary file here may have none.
  TempFile partial = TempFile::Beside(path, "SaveAs");
  FILE* file = std::fopen(partial.path().c_str(), "wb");
  if (!file) throw ErrorFromErrno(errno, "SaveAs").at(path);
  GsfOutput* sink = gsf.output_stdio_new_FILE(path.c_str(), file, /*keep_open=*/FALSE);
  if (!sink) {
    std::fclose(file);
    Fail(path, "cannot create the file");
  }
  GsfOutfile* ole = gsf.outfile_msole_new(sink);
  gsf.object_unref(sink);
  GsfOutput* workbook = gsf.outfile_new_child(ole, "Workbook", FALSE);
  errno = 0;
  bool ok = true;
  try {
    WriteStream(sheet, [&](const std::string& part) {
      ok = ok &&
           gsf.output_write(workbook, part.size(), reinterpret_cast<const guint8*>(part.data()));
    });
  } catch (...) {
    gsf.output_close(workbook);
    gsf.object_unref(workbook);
    gsf.output_close(reinterpret_cast<GsfOutput*>(ole));
    gsf.object_unref(ole);
    throw;
  }
  ok = gsf.output_close(workbook) && ok;
  gsf.object_unref(workbook);
  // An outfile is an output (its first member): a plain cast, as GSF_OUTPUT's checked cast
  // would call into the library by name.
  ok = gsf.output_close(reinterpret_cast<GsfOutput*>(ole)) && ok;
  gsf.object_unref(ole);
  if (!ok) {
    // libgsf says only that writing failed; the write's errno tells a full disk apart.
    const int err = errno;
    if (err == ENOSPC || err == EDQUOT || err == EFBIG)
      throw ErrorFromErrno(err, "SaveAs").at(path);
    Fail(path, "the disk may be full or the folder not writable");
  }
  partial.RenameTo(path, "SaveAs");
}

}  // namespace qb::xls
