#include "engine/report_text.h"

#include <charconv>
#include <fstream>

#include "base/bytes.h"
#include "base/errors.h"

namespace qb {
namespace {

// Only a file is looked at: what a pipe gives is read once, by the run.
bool BeginsWithBom(const std::filesystem::path& report) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(report, ec)) return false;
  std::ifstream in(report, std::ios::binary);
  char head[3] = {};
  return in.read(head, sizeof head) && std::string_view(head, 3) == kUtf8Bom;
}

QbError BadSetting(Key key, std::string_view value, std::string_view takes) {
  return QbError(kInvalidCall, "Encoding",
                 "The setting " + std::string(KeyName(key)) + " is \"" + std::string(value) +
                     "\"; it takes " + std::string(takes));
}

bool Switch(const clsKeys& settings, Key key) {
  const std::string_view value = Trim(settings[key]);
  if (value.empty() || value == "0") return false;
  if (value == "1") return true;
  throw BadSetting(key, value, "0 or 1");
}

}  // namespace

ReportEncoding ParseReportEncoding(const clsKeys& settings, const std::filesystem::path& report,
                                   bool pdf) {
  ReportEncoding how;
  const std::string& name = settings[Key::encoding];
  const std::optional<Encoding> encoding = EncodingNamed(name);
  if (!encoding) throw BadSetting(Key::encoding, name, EncodingNames());
  how.encoding = *encoding;
  if (pdf) {
    // A PDF's text is Unicode; it is laid out in UTF-8 unless the setting names a code page.
    if (IsEbcdic(how.encoding)) {
      throw BadSetting(Key::encoding, name,
                       "windows-1252, utf-8, iso-8859-1, cp437 or cp850 for a PDF report "
                       "(nothing: utf-8)");
    }
    if (Trim(name).empty()) how.encoding = Encoding::Utf8;
    return how;
  }
  if (Trim(name).empty() && BeginsWithBom(report)) how.encoding = Encoding::Utf8;
  // Carriage control is read from EBCDIC print files unless "asa" says 0, and from other
  // reports when it says 1.
  const std::string_view asa = Trim(settings[Key::asa]);
  how.asa = asa.empty() ? IsEbcdic(how.encoding) : Switch(settings, Key::asa);
  const std::string_view reclen = Trim(settings[Key::reclen]);
  if (!reclen.empty()) {
    const auto [end, ec] =
        std::from_chars(reclen.data(), reclen.data() + reclen.size(), how.recordLength);
    if (ec != std::errc() || end != reclen.data() + reclen.size() || how.recordLength < 0 ||
        how.recordLength > 32760) {
      throw BadSetting(Key::reclen, reclen, "a record length from 1 to 32760, or 0 for lines");
    }
  }
  return how;
}

}  // namespace qb
