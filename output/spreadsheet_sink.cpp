#include "output/spreadsheet_sink.h"

#include <array>

namespace qb {
namespace {

constexpr std::array<std::pair<std::string_view, TypeFormat>, 17> kTypeCodes{{
    {"c", {"@", false, 0, xls::kImportText, false}},
    {"r", {"@", false, 0, xls::kImportText, false}},
    {"n", {"0.00", false, 0, xls::kImportGeneral, true}},
    {"n0", {"0", false, 0, xls::kImportGeneral, true}},
    {"n1", {"0.0", false, 0, xls::kImportGeneral, true}},
    {"n2", {"0.00", false, 0, xls::kImportGeneral, true}},
    {"n3", {"0.000", false, 0, xls::kImportGeneral, true}},
    {"n4", {"0.0000", false, 0, xls::kImportGeneral, true}},
    {"n5", {"0.00000", false, 0, xls::kImportGeneral, true}},
    {"n6", {"0.000000", false, 0, xls::kImportGeneral, true}},
    {"nf", {"0.0#####", false, 0, xls::kImportGeneral, true}},
    {"d", {"mm/dd/yy", false, 0, xls::kImportMDY, true}},
    {"w", {"General", true, 50, xls::kImportGeneral, false}},
    {"w4", {"General", true, 40, xls::kImportGeneral, false}},
    {"w6", {"General", true, 60, xls::kImportGeneral, false}},
    {"w8", {"General", true, 80, xls::kImportGeneral, false}},
    {"w1", {"General", true, 100, xls::kImportGeneral, false}},
}};
constexpr TypeFormat kOtherCode{"General", false, 0, xls::kImportGeneral, false};

// Sheet names may not hold these characters; they become "_".
std::string CleanSheetName(std::string name) {
  for (char& c : name) {
    if (std::string_view("[]:*?/\\").find(c) != std::string_view::npos) c = '_';
  }
  return name;
}

}  // namespace

const TypeFormat& LookupTypeCode(std::string_view code) {
  for (const auto& [name, format] : kTypeCodes) {
    if (name == code) return format;
  }
  return kOtherCode;
}

std::string SheetName(std::string_view heading, bool turbo) {
  std::string name(heading.substr(0, 30));
  if (turbo) {
    for (size_t at; (at = name.find("&&")) != std::string::npos;) name.replace(at, 2, "&");
  }
  return CleanSheetName(name);
}

SpreadsheetRun::SpreadsheetRun(const OutputOptions& options, const OutputTarget& target)
    : types_(target.columnTypes),
      mode_(options.bufferMode),
      output_(target.path),
      log_(*target.log),
      formatter_(options, target.columnTypes, target.alphabet),
      values_(target.columnTypes.size()) {
  try {
    excel_ = std::make_unique<xls::Application>();
    workbook_ = &excel_->Workbooks.Add();
    worksheet_ = &workbook_->Worksheets(1);
    worksheet_->SetAlphabet(target.alphabet);
    worksheet_->Name = SheetName(target.heading, false);
    worksheet_->SpillTo(target.workFolder.empty() ? target.path.parent_path() : target.workFolder);
  } catch (QbError& e) {
    throw e.withSource("CreateSheet");
  }
}

void SpreadsheetRun::HeaderCell(int column, std::string_view type, std::string_view label) {
  const TypeFormat& f = LookupTypeCode(type);
  xls::ColumnSpec& col = worksheet_->Columns(column);
  if (f.wrap) {
    col.numberFormat = "General";
    col.wrap = true;
    col.width = f.width;
    wrapFlag_ = true;
  } else {
    col.numberFormat = std::string(f.numberFormat);
  }
  worksheet_->Cells(1, column).FontBold(true);
  worksheet_->Cells(1, column).Value(label);
}

void SpreadsheetRun::Header(std::span<const std::string_view> labels) {
  for (size_t c = 0; c < labels.size(); ++c) {
    HeaderCell(static_cast<int>(c) + 1, c < types_.size() ? types_[c] : "", labels[c]);
  }
}

// Mode 0 puts each cleaned-up value in its cell; modes 1 to 5 gather joined lines and paste
// them every `mode_` rows.
void SpreadsheetRun::Row(std::span<const ValueBuffer* const> values) {
  ++rows_;
  for (size_t c = 0; c < values.size(); ++c) values_[c] = values[c]->view();
  formatter_.Clean(values_);
  if (mode_ == 0) {
    for (size_t c = 0; c < values_.size(); ++c) {
      worksheet_->Cells(rows_ + 1, static_cast<int>(c) + 1).Value(values_[c]);
    }
    worksheet_->SealRowsBefore(rows_ + 1);
    return;
  }
  if (mode_ > 5) return;
  AppendRow(formatter_.Join(values_, false));
  if (rows_ % mode_ == 0) Paste(rows_ - mode_ + 2);
}

void SpreadsheetRun::RejectedLastRow() {
  if (mode_ > 0 && mode_ <= 5) AppendRow({});
}

// The final write pastes whatever is left.
void SpreadsheetRun::EndOfRows() {
  if (mode_ <= 0 || mode_ > 5) return;
  const int m = rows_ % mode_;
  if (m != 0) Paste(rows_ - m + 2);
}

void SpreadsheetRun::AppendRow(std::string_view rowText) {
  if (pasteBuffer_.empty()) {
    pasteBuffer_ = rowText;
  } else {
    pasteBuffer_ += "\r\n";
    pasteBuffer_ += rowText;
  }
}

// Pastes the buffer from row `first` down to the last row written. The pasted range is read
// back: anything that did not land in it (a Tab inside a value, a row too many) is error 521.
void SpreadsheetRun::Paste(int first) {
  if (pasteBuffer_.empty()) return;
  if (rows_ + 1 > xls::kMaxRows) worksheet_->Cells(rows_ + 1, 1);  // says the sheet is full
  const int columns = static_cast<int>(types_.size());
  const std::string readBack = worksheet_->PasteText(first, 1, rows_ + 1, columns, pasteBuffer_);
  // An empty last line (the final write of a rejected record) pastes nothing.
  std::string_view expected = pasteBuffer_;
  while (expected.size() >= 2 && expected.substr(expected.size() - 2) == "\r\n") {
    expected.remove_suffix(2);
  }
  std::string_view got = readBack;
  while (got.size() >= 2 && got.substr(got.size() - 2) == "\r\n") got.remove_suffix(2);
  if (got != expected) throw QbError(kMatchError, "WriteLine", std::string(kMatchErrorText));
  pasteBuffer_.clear();
  worksheet_->SealRowsBefore(rows_ + 1);
}

void SpreadsheetRun::Finish() {
  log_.WriteLog("Process", "XLS");
  if (mode_ > 0) pasteBuffer_.clear();  // the clipboard
  SaveTheSheet(output_);
  log_.WriteLog("Process", "After SAVEAS");
  CloseSheet();
  log_.WriteLog("Process", "After CloseSheet");
}

void SpreadsheetRun::SaveTheSheet(const std::filesystem::path& fileName) {
  try {
    log_.WriteLog("SaveAs", "Start");
    if (wrapFlag_) worksheet_->ColumnsVerticalAlignment(xls::xlTop);
    worksheet_->ColumnsAutoFit();
    log_.WriteLog("SaveAs", "After AutoFit");
    log_.WriteLog("SaveAs", "After Select cell 1");
    log_.WriteLog("SaveAs", fileName.string());
    worksheet_->LogCutCells(log_, "SaveAs");
    // The workbook is written beside the output and takes its name only when whole, so a
    // previous output is never lost and needs no backup.
    workbook_->SaveAs(fileName, xls::xlWorkbookNormal, /*createBackup=*/false);
    log_.WriteLog("SaveAs", "End");
  } catch (QbError& e) {
    log_.WriteLog("SaveAs", "Error");
    CloseSheet();
    throw e.withSource("SaveTheSheet");
  }
}

void SpreadsheetRun::CloseSheet() noexcept {
  if (workbook_) workbook_->Close();
  if (excel_) excel_->Quit();
  worksheet_ = nullptr;
  workbook_ = nullptr;
  excel_.reset();
}

void TurboCreate(const RunLog& log, const Alphabet* alphabet,
                 const std::vector<std::string>& typeCodes, std::string_view heading,
                 const std::filesystem::path& turboFile, const std::filesystem::path& output,
                 const std::filesystem::path& workFolder) {
  log.WriteLog("TurboCreate", "Started");
  std::unique_ptr<xls::Application> excel;
  try {
    std::vector<std::pair<int, int>> fieldInfo;
    for (size_t c = 0; c < typeCodes.size(); ++c) {
      fieldInfo.emplace_back(static_cast<int>(c) + 1, LookupTypeCode(typeCodes[c]).importType);
    }
    excel = std::make_unique<xls::Application>();
    xls::Workbook& book =
        excel->Workbooks.OpenText(turboFile, xls::xlDelimited, true, fieldInfo, workFolder);
    xls::Worksheet& sheet = book.Worksheets(1);
    sheet.SetAlphabet(alphabet);
    bool wrapColumn = false;
    for (size_t c = 0; c < typeCodes.size(); ++c) {
      const int column = static_cast<int>(c) + 1;
      const TypeFormat& f = LookupTypeCode(typeCodes[c]);
      if (f.turboFormat) sheet.Columns(column).numberFormat = std::string(f.numberFormat);
      if (f.wrap) {
        sheet.Columns(column).wrap = true;
        sheet.Columns(column).width = f.width;
        wrapColumn = true;
      }
      sheet.Cells(1, column).FontBold(true);
    }
    if (wrapColumn) sheet.ColumnsVerticalAlignment(xls::xlTop);
    sheet.ColumnsAutoFit();
    sheet.Name = SheetName(heading, true);
    sheet.LogCutCells(log, "TurboCreate");
    book.SaveAs(output, xls::xlWorkbookNormal, /*createBackup=*/false);
    book.Close();
    excel->Quit();
    log.WriteLog("TurboCreate", "Completed");
  } catch (QbError& e) {
    if (excel) excel->Quit();
    log.WriteLog("TurboCreate",
                 "Failed - Error: " + std::to_string(e.number()) + " - " + e.description());
    throw e.withSource("TurboCreate");
  }
}

TurboSink::TurboSink(const OutputOptions& options, const OutputTarget& target)
    : types_(target.columnTypes),
      heading_(target.heading),
      alphabet_(target.alphabet),
      output_(target.path),
      workFolder_(target.workFolder),
      log_(*target.log),
      turboFile_(target.workFolder, "qb", ".tmp", "Process"),
      rows_(turboFile_.path(), "Process",
            RowFormatter(options, target.columnTypes, target.alphabet), options.writerThread,
            nullptr, false, turboFile_.shown()) {}

void TurboSink::Finish() {
  rows_.Close();
  TurboCreate(log_, alphabet_, types_, heading_, turboFile_.path(), output_, workFolder_);
  turboFile_.Remove();
}

void TurboSink::Abandon() noexcept {
  rows_.Abandon();
  turboFile_.Remove();
}

}  // namespace qb
