#pragma once
// The options of a run's output, read from the settings once, by ParseOutputOptions, into the
// struct that the output writer and every sink take. The words a delimiter may be given by
// ("tab", "comma") are read and written here and nowhere else.

#include <optional>
#include <string>
#include <string_view>

#include "settings/settings_store.h"

namespace qb {

enum class OutputFormat { Txt, Csv, Xls, Xlsx };
enum class RecordSelection { All, Details, Totals };

struct OutputOptions {
  OutputFormat format = OutputFormat::Txt;
  std::string delimiter = "|";  // between columns: always "," in .csv and a Tab in workbooks
  std::string qualifier = "\"";
  bool qualify = false;  // text columns of a .txt (and pasted .xls rows) between qualifiers
  RecordSelection selection = RecordSelection::All;
  int bufferMode = 6;              // .xls: 0 cell by cell, 1 to 5 pasted blocks, 6 imported
                                   // (.xlsx rows always go straight into the workbook)
  bool launch = false;             // open the workbook after the run
  std::string launchMethod = "1";  // how: "1", "2" or "3"
  // A text file's rows are formatted and written by a second thread while the run reads on;
  // false keeps them on the run's thread (a batch that already gives every core a run).
  bool writerThread = true;
  // A .txt or .csv of a report read in another encoding than Windows-1252 is UTF-8; this
  // begins it with a byte-order mark, which spreadsheet programs need to read a .csv so.
  bool bom = false;
};

// Reads "opfmt", "delim", "textq", "tqswt", "rtype", "rmode", "exswt", "lmeth" and "bom". Throws
// QbError naming the setting, its value and what it takes, for an output type other than the
// four, an empty delimiter for a .txt output, or a buffer mode outside 0 to 6 for an .xls.
OutputOptions ParseOutputOptions(const clsKeys& settings);

// The output type of an extension (".txt", ".csv", ".xls", ".xlsx" in any case), or nothing.
std::optional<OutputFormat> FormatOfExtension(std::string_view extension);
// ".txt", ".csv", ".xls" or ".xlsx", as the "opfmt" setting keeps it.
std::string_view ExtensionOf(OutputFormat format);
// Whether the output is a workbook (.xls or .xlsx): the run says "Generating Spreadsheet"
// and may open it in the spreadsheet program afterwards.
inline bool IsWorkbook(OutputFormat format) {
  return format == OutputFormat::Xls || format == OutputFormat::Xlsx;
}

// The delimiter a "delim" setting or a delimited-input section names: the words "tab" and
// "comma" (in any case) stand for a Tab and a comma, anything else for itself.
std::string DelimiterOf(std::string_view setting);
// The "delim" setting an RDF's DL record gives: "comma" (in any case) becomes ",", anything
// else is kept as it stands ("tab" stays a word).
std::string DelimiterSettingOfRecord(std::string_view record);
// The DL record that keeps a "delim" setting in a saved RDF: "," is written as "comma".
std::string DelimiterRecordOfSetting(std::string_view setting);

// The buffer mode a "rmode" text gives, read as a number the way the original runtime read
// one: leading digits after blanks, 0 when there are none.
int BufferMode(std::string_view rmode);

}  // namespace qb
