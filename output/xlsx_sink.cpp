#include "output/xlsx_sink.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/temp_file.h"
#include "base/text_encoding.h"
#include "output/row_formatter.h"
#include "output/spreadsheet.h"
#include "output/spreadsheet_sink.h"
#include "output/workbook_libraries.h"
#include "settings/run_log.h"

namespace qb::xlsx {
namespace {

static_assert(kMaxRows == LXW_ROW_MAX && kMaxColumns == LXW_COL_MAX);

// A zip member of 4 GiB or more needs the ZIP64 extensions, which the library leaves off
// unless told. A sheet's XML is at most kXmlPerCell bytes a cell plus seven a text character
// (the longest escape, "_x0001_" for a control character), so the workbook asks for them once
// its sheets' XML may come near that size, and small workbooks keep the plainer container.
constexpr uint64_t kXmlPerCell = 96;
constexpr uint64_t kXmlPerCharacter = 7;
constexpr uint64_t kZip64From = (uint64_t{4} << 30) - (uint64_t{64} << 20);

// The name of sheet `number`: the .xls sheet's name for the first, then "<name> (2)" and so
// on, the name cut to leave the number room within the 31 characters a name holds. A name
// may not begin or end with an apostrophe, nor be empty.
std::string SheetNameOf(std::string_view heading, int number) {
  std::string name = SheetName(heading, /*turbo=*/false);
  while (!name.empty() && name.front() == '\'') name.erase(0, 1);
  while (!name.empty() && name.back() == '\'') name.pop_back();
  if (name.empty()) name = "Sheet1";
  if (number == 1) return name;
  const std::string suffix = " (" + std::to_string(number) + ")";
  name.resize(std::min(name.size(), LXW_SHEETNAME_MAX - suffix.size()));
  return name + suffix;
}

// A cell's text reaches the library as a C string, which ends at a NUL. The library writes
// the other control characters but Tab and LF as escapes ("_x0001_" for U+0001), and a reader
// decodes every "_x", four hex digits and "_" in a cell back into one character. So a NUL is
// given as "_x0000_", and a "_" that would begin such an escape in the sheet ("_x0041_", or
// "_x0041" before a NUL or a control character) as "_x005F_", the escape of "_", so that a
// reader reads back the text as it was. "_X" is taken for "_x", for readers that ignore case.
// U+FFFE and U+FFFF, which XML may not hold, are given as escapes too.
bool IsWrittenAsEscape(unsigned char c) {
  return c < 0x20 && c != '\t' && c != '\n';
}

// The escape of the noncharacter U+FFFE or U+FFFF at `at` (in UTF-8), or null.
const char* NoncharacterEscape(std::string_view text, size_t at) {
  if (text.size() - at < 3 || text[at] != '\xEF' || text[at + 1] != '\xBF') return nullptr;
  return text[at + 2] == '\xBE' ? "_xFFFE_" : text[at + 2] == '\xBF' ? "_xFFFF_" : nullptr;
}

bool IsHexDigit(char c) {
  const char lower = static_cast<char>(c | 0x20);
  return (c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'f');
}

bool BeginsEscape(std::string_view text, size_t at) {
  constexpr size_t kEscape = 7;  // "_x0041_"
  if (text.size() - at < kEscape || (text[at + 1] != 'x' && text[at + 1] != 'X')) return false;
  for (size_t i = at + 2; i < at + 6; ++i) {
    if (!IsHexDigit(text[i])) return false;
  }
  const auto end = static_cast<unsigned char>(text[at + 6]);
  return end == '_' || IsWrittenAsEscape(end) || NoncharacterEscape(text, at + 6);
}

bool NeedsEscapes(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return true;
  for (size_t at = text.find('\xEF'); at != std::string_view::npos;
       at = text.find('\xEF', at + 1)) {
    if (NoncharacterEscape(text, at)) return true;
  }
  for (size_t at = text.find('_'); at != std::string_view::npos; at = text.find('_', at + 1)) {
    if (BeginsEscape(text, at)) return true;
  }
  return false;
}

// `text` (UTF-8) with the escapes above, into `out`. The library takes at most kMaxCellText
// characters, escapes counted as their seven: the escaped text is cut there (at a whole
// character or escape). Returns its length in characters before the cut.
size_t Escape(std::string_view text, std::string& out) {
  out.clear();
  size_t characters = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const char* const noncharacter = NoncharacterEscape(text, i);
    const char* const escape = c == '\0'                           ? "_x0000_"
                               : c == '_' && BeginsEscape(text, i) ? "_x005F_"
                                                                   : noncharacter;
    characters += escape ? 7 : (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    if (noncharacter) i += 2;                      // the rest of its sequence
    if (characters > xls::kMaxCellText) continue;  // cut: only counted from here on
    if (escape) {
      out.append(escape);
    } else {
      out.push_back(c);
    }
  }
  return characters;
}

class XlsxSink final : public OutputSink {
 public:
  XlsxSink(const OutputOptions& options, const OutputTarget& target);
  ~XlsxSink() override { Abandon(); }

  void Header(std::span<const std::string_view> labels) override;
  void Row(std::span<const ValueBuffer* const> values) override;
  void RejectedLastRow() override {}
  void Finish() override;
  void Abandon() noexcept override;

 private:
  struct Column {
    lxw_format* cell = nullptr;    // number format, wrap and alignment
    lxw_format* header = nullptr;  // the same, bold
    std::string numberFormat;
    bool text = false;   // "@": values stay text
    bool date = false;   // dates are read as dates
    double width = -1;   // a wrap column's width; below 0: fitted to its longest text
    size_t longest = 0;  // characters of the longest cell on the current sheet
  };

  void AddColumn(std::string_view typeCode);
  void BeginSheet();
  void FitColumns();
  void WriteHeader();
  // Puts `text` in column `c` of the current row as typed input.
  void Put(size_t c, std::string_view text, bool header);
  // `text` as the library takes it: UTF-8, escaped as above, ending in a NUL (valid until the
  // next call). Sets `escaped` to its length with its escapes when they made it too long for
  // a cell and it was cut.
  const char* LibraryText(std::string_view text, size_t& escaped);
  void Check(lxw_error error) const;

  // Appends `units` to `out` as UTF-8.
  void AppendUtf8(std::string& out, std::string_view units) const {
    if (alphabet_) return alphabet_->AppendUtf8(out, units);
    AppendWindows1252AsUtf8(out, units);
  }

  const XlsxLibrary& lib_;
  std::string heading_;
  const Alphabet* alphabet_;  // Windows-1252 when null
  std::filesystem::path output_;
  const RunLog& log_;
  RowFormatter formatter_;
  std::vector<std::string_view> values_;
  std::vector<std::string> labels_;
  std::vector<Column> columns_;
  bool alignTop_ = false;  // every column aligned to the top, as when a column wraps
  TempFile temp_;
  std::string tmpdir_;  // where the library keeps each sheet's rows until it packs them
  lxw_workbook* workbook_ = nullptr;
  lxw_worksheet* sheet_ = nullptr;
  int sheets_ = 0;
  lxw_row_t row_ = 0;  // the next row on the current sheet, 0-based
  uint64_t xmlBound_ = 0;
  std::vector<xls::CutCell> cut_;  // the first that are logged
  size_t cutCount_ = 0;
  std::string text_;
  std::string escaped_;  // text_ escaped, for the texts that need it
};

XlsxSink::XlsxSink(const OutputOptions& options, const OutputTarget& target)
    : lib_(Xlsx("CreateSheet")),
      heading_(target.heading),
      alphabet_(target.alphabet),
      output_(target.path),
      log_(*target.log),
      formatter_(options, target.columnTypes, target.alphabet),
      values_(target.columnTypes.size()),
      temp_(TempFile::Beside(target.path, "CreateSheet")),
      tmpdir_((target.workFolder.empty()
                   ? (target.path.has_parent_path() ? target.path.parent_path() : ".")
                   : target.workFolder)
                  .string()) {
  lxw_workbook_options library{};
  library.constant_memory = LXW_TRUE;
  library.tmpdir = tmpdir_.data();
  workbook_ = lib_.workbook_new_opt(temp_.path().c_str(), &library);
  if (!workbook_) throw QbError::Runtime(kOutOfMemory, "CreateSheet");
  try {
    for (const std::string& code : target.columnTypes)
      alignTop_ = alignTop_ || LookupTypeCode(code).wrap;
    for (const std::string& code : target.columnTypes) AddColumn(code);
    BeginSheet();
  } catch (const QbError&) {
    Abandon();  // the destructor of a sink not made does not run
    throw;
  }
}

void XlsxSink::AddColumn(std::string_view typeCode) {
  const TypeFormat& type = LookupTypeCode(typeCode);
  Column& column = columns_.emplace_back();
  column.numberFormat = std::string(type.numberFormat);
  column.text = column.numberFormat == "@";
  column.date = xls::IsDateFormat(column.numberFormat);
  if (type.wrap) column.width = type.width;
  for (lxw_format** format : {&column.cell, &column.header}) {
    *format = lib_.workbook_add_format(workbook_);
    if (!*format) throw QbError::Runtime(kOutOfMemory, "CreateSheet");
    if (column.numberFormat != "General")
      lib_.format_set_num_format(*format, column.numberFormat.c_str());
    if (type.wrap) lib_.format_set_text_wrap(*format);
    if (alignTop_) lib_.format_set_align(*format, LXW_ALIGN_VERTICAL_TOP);
  }
  lib_.format_set_bold(column.header);
}

// A new sheet, begun with the header row once there is one.
void XlsxSink::BeginSheet() {
  const std::string name = SheetNameOf(heading_, ++sheets_);
  text_.clear();
  AppendUtf8(text_, name);
  sheet_ = lib_.workbook_add_worksheet(workbook_, text_.c_str());
  if (!sheet_) {
    throw QbError(kAppDefined, "CreateSheet",
                  "Cannot add the sheet \"" + name + "\" to the workbook");
  }
  row_ = 0;
  for (Column& column : columns_) column.longest = 0;
  if (!labels_.empty()) WriteHeader();
}

void XlsxSink::Header(std::span<const std::string_view> labels) {
  labels_.assign(labels.begin(), labels.end());
  while (columns_.size() < labels_.size()) AddColumn("");
  WriteHeader();
}

void XlsxSink::WriteHeader() {
  for (size_t c = 0; c < labels_.size(); ++c) Put(c, labels_[c], /*header=*/true);
  ++row_;
}

void XlsxSink::Row(std::span<const ValueBuffer* const> values) {
  if (row_ == static_cast<lxw_row_t>(kMaxRows)) {
    const std::string full = SheetNameOf(heading_, sheets_);
    FitColumns();
    BeginSheet();
    const std::string next = SheetNameOf(heading_, sheets_);
    log_.WriteLog("Process", "Sheet \"" + full + "\" holds 1,048,576 rows, as many as a sheet " +
                                 "holds: the rows go on on sheet \"" + next + "\"");
  }
  for (size_t c = 0; c < values.size(); ++c) values_[c] = values[c]->view();
  formatter_.Clean(values_);
  for (size_t c = 0; c < values.size(); ++c) Put(c, values_[c], /*header=*/false);
  ++row_;
}

void XlsxSink::Put(size_t c, std::string_view text, bool header) {
  if (text.empty()) return;  // an empty value leaves no cell, as in .xls
  Column& column = columns_[c];
  lxw_format* const format = header ? column.header : column.cell;
  const auto col = static_cast<lxw_col_t>(c);
  xmlBound_ += kXmlPerCell;
  if (const std::optional<double> number = xls::TypedNumber(text, column.text, column.date)) {
    Check(lib_.worksheet_write_number(sheet_, row_, col, *number, format));
    column.longest = std::max(column.longest, xls::DisplayWidth(*number, column.numberFormat));
    return;
  }
  const size_t length = text.size();
  bool cut = length > xls::kMaxCellText;
  if (cut) text = text.substr(0, xls::kMaxCellText);
  xmlBound_ += kXmlPerCharacter * text.size();
  column.longest = std::max(column.longest, text.size());
  size_t escaped = 0;
  const char* const given = LibraryText(text, escaped);
  if (cut || escaped > 0) {
    if (cut_.size() < 20) {
      cut_.push_back({static_cast<int>(row_) + 1, static_cast<int>(c) + 1, length, sheets_,
                      cut ? 0 : escaped});
    }
    ++cutCount_;
  }
  Check(lib_.worksheet_write_string(sheet_, row_, col, given, format));
}

const char* XlsxSink::LibraryText(std::string_view text, size_t& escaped) {
  text_.clear();
  unsigned char high = 0;
  bool special = false;  // a NUL or a "_", which may need an escape
  for (char c : text) {
    high |= static_cast<unsigned char>(c);
    special |= c == '\0' || c == '_';
  }
  if (high < 0x80) {
    text_.append(text);  // plain ASCII, most texts
    if (!special) return text_.c_str();
  } else {
    AppendUtf8(text_, text);
  }
  if (!NeedsEscapes(text_)) return text_.c_str();
  if (const size_t length = Escape(text_, escaped_); length > xls::kMaxCellText) escaped = length;
  return escaped_.c_str();
}

void XlsxSink::Check(lxw_error error) const {
  if (error != LXW_NO_ERROR) {
    throw QbError(kAppDefined, "WriteLine",
                  std::string("The workbook refused a cell: ") + lib_.strerror(error));
  }
}

// Each column as wide as AutoFit makes it in an .xls: its longest text and a character more;
// a wrap column as wide as its type code says; a column with no cell as it is.
void XlsxSink::FitColumns() {
  for (size_t c = 0; c < columns_.size(); ++c) {
    const Column& column = columns_[c];
    const double width = column.width >= 0    ? column.width
                         : column.longest > 0 ? xls::AutoFitWidth(column.longest)
                                              : LXW_DEF_COL_WIDTH;
    const auto col = static_cast<lxw_col_t>(c);
    Check(lib_.worksheet_set_column(sheet_, col, col, width, column.cell));
  }
}

void XlsxSink::Finish() {
  try {
    log_.WriteLog("SaveAs", "Start");
    FitColumns();
    log_.WriteLog("SaveAs", output_.string());
    xls::LogCutCells(log_, "SaveAs", cut_, cutCount_);
    if (xmlBound_ >= kZip64From) workbook_->options.use_zip64 = LXW_TRUE;
    errno = 0;
    const lxw_error error = lib_.workbook_close(std::exchange(workbook_, nullptr));
    if (error != LXW_NO_ERROR) {
      // The library names the step that failed; the errno of its writes tells a full disk.
      const int err = errno;
      if (err == ENOSPC || err == EDQUOT || err == EFBIG) {
        throw ErrorFromErrno(err, "SaveAs").at(output_);
      }
      throw QbError(kPathFileAccess, "SaveAs",
                    std::string("Cannot write the workbook: ") + lib_.strerror(error))
          .at(output_);
    }
    temp_.RenameTo(output_, "SaveAs");
    log_.WriteLog("SaveAs", "End");
  } catch (const QbError&) {
    log_.WriteLog("SaveAs", "Error");
    Abandon();
    throw;
  }
}

void XlsxSink::Abandon() noexcept {
  if (workbook_) lib_.workbook_free(std::exchange(workbook_, nullptr));
  sheet_ = nullptr;
  temp_.Remove();
}

}  // namespace

std::unique_ptr<OutputSink> OpenSink(const OutputOptions& options, const OutputTarget& target) {
  return std::make_unique<XlsxSink>(options, target);
}

}  // namespace qb::xlsx
