#include "output/output_options.h"

#include "base/bytes.h"
#include "base/errors.h"

namespace qb {

namespace {

// A setting the run cannot use: names the setting, its value and what it takes.
[[noreturn]] void Refuse(Key key, const std::string& value, std::string_view allowed) {
  throw QbError(kInvalidCall, "Settings",
                "The setting " + std::string(KeyName(key)) + " is \"" + value + "\"; " +
                    std::string(allowed));
}

}  // namespace

OutputOptions ParseOutputOptions(const clsKeys& settings) {
  OutputOptions o;
  const std::string& opfmt = settings[Key::opfmt];
  if (!FormatOfExtension(opfmt))
    Refuse(Key::opfmt, opfmt, "the output type is .txt, .csv, .xls or .xlsx");
  o.format = *FormatOfExtension(opfmt);
  switch (o.format) {
    case OutputFormat::Csv:
      o.delimiter = ",";
      break;
    case OutputFormat::Xls:
    case OutputFormat::Xlsx:
      o.delimiter = "\t";
      break;
    case OutputFormat::Txt:
      o.delimiter = DelimiterOf(settings[Key::delim]);
      if (o.delimiter.empty()) {
        Refuse(Key::delim, settings[Key::delim],
               "a .txt output needs a delimiter between its columns, such as |, ;, tab or comma");
      }
      break;
  }
  o.qualifier = settings[Key::textq];
  o.qualify = settings[Key::tqswt] == "1";
  const std::string& rtype = settings[Key::rtype];
  o.selection = rtype == "Details Only"  ? RecordSelection::Details
                : rtype == "Totals Only" ? RecordSelection::Totals
                                         : RecordSelection::All;
  o.bufferMode = BufferMode(settings[Key::rmode]);
  if (o.format == OutputFormat::Xls) {
    const std::string_view rmode = Trim(settings[Key::rmode]);
    if (rmode.size() != 1 || rmode[0] < '0' || rmode[0] > '6') {
      Refuse(Key::rmode, settings[Key::rmode],
             "the workbook's buffer mode is 0 (cell by cell), 1 to 5 (rows pasted in blocks of "
             "that many) or 6 (imported at the end)");
    }
  }
  o.launch = settings[Key::exswt] == "1";
  o.launchMethod = settings[Key::lmeth];
  const std::string_view bom = Trim(settings[Key::bom]);
  if (!bom.empty() && bom != "0" && bom != "1") {
    Refuse(Key::bom, settings[Key::bom],
           "it takes 0 or 1 (1: a UTF-8 output begins with a byte-order mark)");
  }
  o.bom = bom == "1";
  return o;
}

std::optional<OutputFormat> FormatOfExtension(std::string_view extension) {
  for (OutputFormat f :
       {OutputFormat::Txt, OutputFormat::Csv, OutputFormat::Xls, OutputFormat::Xlsx}) {
    if (EqualsNoCase(extension, ExtensionOf(f))) return f;
  }
  return std::nullopt;
}

std::string_view ExtensionOf(OutputFormat format) {
  switch (format) {
    case OutputFormat::Csv:
      return ".csv";
    case OutputFormat::Xls:
      return ".xls";
    case OutputFormat::Xlsx:
      return ".xlsx";
    case OutputFormat::Txt:
      break;
  }
  return ".txt";
}

std::string DelimiterOf(std::string_view setting) {
  if (EqualsNoCase(setting, "tab")) return "\t";
  if (EqualsNoCase(setting, "comma")) return ",";
  return std::string(setting);
}

std::string DelimiterSettingOfRecord(std::string_view record) {
  return EqualsNoCase(record, "comma") ? "," : std::string(record);
}

std::string DelimiterRecordOfSetting(std::string_view setting) {
  return setting == "," ? "comma" : std::string(setting);
}

int BufferMode(std::string_view rmode) {
  rmode = Trim(rmode);
  int value = 0;
  for (char c : rmode) {
    if (c < '0' || c > '9') break;
    value = value * 10 + (c - '0');
    if (value > 1000) break;
  }
  return value;
}

}  // namespace qb
