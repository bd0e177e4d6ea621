#pragma once
// The .xls outputs: SpreadsheetRun builds the workbook while the rows come (buffer modes 0 to
// 5: cell by cell, or pasted in blocks of `mode` rows) and saves it in Finish; TurboSink
// (mode 6) writes the rows to a tab-delimited work file that Finish imports in one go
// (TurboCreate). Log lines and step order follow the procedures these replace; the
// spreadsheet program is our own object model writing the workbook.

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/temp_file.h"
#include "output/output_sink.h"
#include "output/piped_text_sink.h"
#include "output/row_formatter.h"
#include "output/spreadsheet.h"
#include "settings/run_log.h"

namespace qb {

// One row of the type-code table: how a column of that code is formatted.
struct TypeFormat {
  std::string_view numberFormat;  // for cell-by-cell and paste modes
  bool wrap;
  double width;      // for wrap codes
  int importType;    // turbo import column type
  bool turboFormat;  // the turbo import sets numberFormat afterwards ("n..." and "d")
};
const TypeFormat& LookupTypeCode(std::string_view code);

// The sheet name: the RDF's heading cut to 30 characters; in turbo mode "&&" becomes "&".
std::string SheetName(std::string_view heading, bool turbo);

// Buffer modes 0 to 5.
class SpreadsheetRun final : public OutputSink {
 public:
  // CreateSheet: a new workbook with one sheet. Throws QbError from "CreateSheet".
  SpreadsheetRun(const OutputOptions& options, const OutputTarget& target);

  // The header row becomes bold header cells that also set each column's format.
  void Header(std::span<const std::string_view> labels) override;
  // Mode 0: the cleaned-up values as cells; modes 1 to 5: a line of the paste buffer, pasted
  // every `mode` rows. Error 521 when a paste did not land as sent.
  void Row(std::span<const ValueBuffer* const> values) override;
  void RejectedLastRow() override;
  void EndOfRows() override;
  // SaveTheSheet, then CloseSheet. Throws QbError from "SaveTheSheet".
  void Finish() override;
  void Abandon() noexcept override { CloseSheet(); }

  const xls::Worksheet* Sheet() const { return worksheet_; }

 private:
  void HeaderCell(int column, std::string_view type, std::string_view label);
  void AppendRow(std::string_view rowText);
  void Paste(int first);
  void SaveTheSheet(const std::filesystem::path& fileName);
  void CloseSheet() noexcept;

  std::vector<std::string> types_;
  int mode_;
  std::filesystem::path output_;
  const RunLog& log_;
  RowFormatter formatter_;
  std::vector<std::string_view> values_;
  int rows_ = 0;  // data rows written
  std::unique_ptr<xls::Application> excel_;
  xls::Workbook* workbook_ = nullptr;
  xls::Worksheet* worksheet_ = nullptr;
  std::string pasteBuffer_;
  bool wrapFlag_ = false;
};

// Mode 6's import: reads the tab-delimited `turboFile` into a workbook, formats it and saves
// it as `output`; the sheet's rows wait in a work file in `workFolder`. Throws QbError from
// "TurboCreate" (logged) on failure.
void TurboCreate(const RunLog& log, const Alphabet* alphabet,
                 const std::vector<std::string>& typeCodes, std::string_view heading,
                 const std::filesystem::path& turboFile, const std::filesystem::path& output,
                 const std::filesystem::path& workFolder);

// Buffer mode 6: the rows go through the text writer's thread into a work file in the target's
// work folder; Finish imports it with TurboCreate. The work file is removed either way.
class TurboSink final : public OutputSink {
 public:
  TurboSink(const OutputOptions& options, const OutputTarget& target);

  void Header(std::span<const std::string_view> labels) override { rows_.Labels(labels); }
  void Row(std::span<const ValueBuffer* const> values) override { rows_.Values(values); }
  void RejectedLastRow() override { rows_.EmptyLine(); }
  void Finish() override;
  void Abandon() noexcept override;

 private:
  std::vector<std::string> types_;
  std::string heading_;
  const Alphabet* alphabet_;
  std::filesystem::path output_;
  std::filesystem::path workFolder_;
  const RunLog& log_;
  TempFile turboFile_;
  PipedTextSink rows_;
};

}  // namespace qb
