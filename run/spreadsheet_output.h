#pragma once
// The .xls side of a run: CreateSheet, the header and data cells, the block paste of buffer
// modes 1 to 5, SaveTheSheet, CloseSheet, TurboCreate for mode 6, and the spreadsheet steps
// of RunEnd with the three launch methods. Log lines and step order follow the procedures
// these replace; the spreadsheet program is our own object model writing the workbook.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/converter.h"
#include "run/spreadsheet.h"

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

// The sheet name: the RDF's "HD" setting record ("Output Fields" without one), cut to 30
// characters; in turbo mode "&&" becomes "&".
std::string SheetName(Engine& engine, bool turbo);

// Buffer modes 0 to 5: the workbook is built while the rows come.
class SpreadsheetRun final : public OutputSink {
 public:
  SpreadsheetRun(Engine& engine, RunState& state, std::vector<std::string> typeCodes, int mode)
      : engine_(engine), state_(state), types_(std::move(typeCodes)), mode_(mode) {}

  bool CreateSheet();
  bool SaveTheSheet(const std::filesystem::path& fileName);
  bool CloseSheet();
  void ClearClipboard() { pasteBuffer_.clear(); }
  const std::optional<QbError>& LastError() const { return lastError_; }
  const xls::Worksheet* Sheet() const { return worksheet_; }

  // The output writer's rows: the header row becomes header cells, a data row data cells
  // (mode 0) or a line of the paste buffer (modes 1 to 5).
  void Write(const OutputRow& row) override;
  void Close() override {}

 private:
  void HeaderCell(int column, std::string_view type, std::string_view label);
  void RowAppendAndPaste(std::string_view rowText);

  Engine& engine_;
  RunState& state_;
  std::vector<std::string> types_;
  int mode_;
  std::unique_ptr<xls::Application> excel_;
  xls::Workbook* workbook_ = nullptr;
  xls::Worksheet* worksheet_ = nullptr;
  std::string pasteBuffer_;
  bool wrapFlag_ = false;
  std::optional<QbError> lastError_;
};

// Mode 6: imports the tab-delimited `turboFile` into a workbook, formats it, saves it as
// `output` and deletes `turboFile`, either way. False on failure (logged).
bool TurboCreate(Engine& engine, const std::vector<std::string>& typeCodes,
                 const std::filesystem::path& turboFile, const std::filesystem::path& output,
                 std::optional<QbError>& lastError);

// The program that opens workbooks: $QUILLBROOK_SPREADSHEET, else the first of
// "libreoffice --calc" and "gnumeric" found on the PATH. Empty when there is none.
std::vector<std::string> SpreadsheetProgram();

// RunEnd's launch by "lmeth": "2" starts the spreadsheet program with the file name alone in
// the file's folder, "3" opens the file with the desktop's program for it, anything else
// starts the spreadsheet program on the file. Logged under "RunEnd"; a failed start of 2
// or 3 shows the "File Open Error" box.
void LaunchSpreadsheet(Engine& engine, std::string_view method, const std::filesystem::path& file);

// Buffer mode from "rmode", read as a number the way the original runtime read one.
int BufferMode(std::string_view rmode);

}  // namespace qb
