#pragma once
// Turns a record's column values into an output line: the numeric clean-up of "n" columns,
// qualifying (.txt) or quoting (.csv) of text columns, and joining with the delimiter. It
// owns its scratch buffers, so each thread that formats rows has its own.

#include <string>
#include <string_view>
#include <vector>

#include "engine/output_sink.h"

namespace qb {

class RowFormatter {
 public:
  struct Column {
    bool numeric;  // type "n...": cleaned up
    bool text;     // "c", "r", "w...": qualified or quoted
  };

  RowFormatter() = default;
  RowFormatter(OutputFormat format, std::string delimiter, std::string qualifier, bool qualify,
               std::vector<Column> columns);

  // Replaces numeric values by their cleaned-up text (views into this formatter's buffers,
  // valid until the next call).
  void Clean(std::vector<std::string_view>& values);
  // The joined line (valid until the next call). A header's labels are all text in .csv.
  std::string_view Join(const std::vector<std::string_view>& values, bool header);

  // "1,234.50CR" -> "-1234.50", "(12.00)" -> "-12.00": a value holding "(", "-" or "cr" is
  // negative; the characters of "()%#*$,+-cdr" (any case) go; blanks at both ends go.
  static std::string_view NumericCleanUp(std::string_view value, std::string& scratch);

 private:
  char* PutQualified(char* p, std::string_view value, bool text) const;

  OutputFormat format_ = OutputFormat::Txt;
  std::string delimiter_;
  std::string qualifier_;
  bool qualify_ = false;
  std::vector<Column> columns_;
  std::vector<std::string> cleaned_;
  std::string line_;  // sized to the longest line so far
};

}  // namespace qb
