#include "output/output_options.h"

#include "base/bytes.h"

namespace qb {

OutputOptions ParseOutputOptions(const clsKeys& settings) {
  OutputOptions o;
  o.format = FormatOfExtension(settings[Key::opfmt]).value_or(OutputFormat::Txt);
  switch (o.format) {
    case OutputFormat::Csv:
      o.delimiter = ",";
      break;
    case OutputFormat::Xls:
      o.delimiter = "\t";
      break;
    case OutputFormat::Txt:
      o.delimiter = DelimiterOf(settings[Key::delim]);
      break;
  }
  o.qualifier = settings[Key::textq];
  o.qualify = settings[Key::tqswt] == "1";
  const std::string& rtype = settings[Key::rtype];
  o.selection = rtype == "Details Only"  ? RecordSelection::Details
                : rtype == "Totals Only" ? RecordSelection::Totals
                                         : RecordSelection::All;
  o.bufferMode = BufferMode(settings[Key::rmode]);
  o.launch = settings[Key::exswt] == "1";
  o.launchMethod = settings[Key::lmeth];
  return o;
}

std::optional<OutputFormat> FormatOfExtension(std::string_view extension) {
  for (OutputFormat f : {OutputFormat::Txt, OutputFormat::Csv, OutputFormat::Xls}) {
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
