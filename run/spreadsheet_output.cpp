#include "run/spreadsheet_output.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

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

std::string SheetName(Engine& engine, bool turbo) {
  std::string name = "Output Fields";
  Recordset& s = engine.tables.rsSettings;
  if (s.IsOpen()) {
    s.Filter("fldTYP = 'HD'");
    if (!s.IsEOF()) name = s.GetText(col::Settings::fldVAL);
    s.Filter("");
  }
  name = name.substr(0, 30);
  if (turbo) {
    for (size_t at; (at = name.find("&&")) != std::string::npos;) name.replace(at, 2, "&");
  }
  return CleanSheetName(name);
}

bool SpreadsheetRun::CreateSheet() {
  try {
    excel_ = std::make_unique<xls::Application>();
    workbook_ = &excel_->Workbooks.Add();
    worksheet_ = &workbook_->Worksheets(1);
    worksheet_->Name = SheetName(engine_, false);
    return true;
  } catch (const QbError& e) {
    lastError_ = e;
    return false;
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

void SpreadsheetRun::Write(const OutputRow& row) {
  if (row.header) {
    for (size_t c = 0; c < row.columns.size(); ++c) {
      HeaderCell(static_cast<int>(c) + 1, c < types_.size() ? types_[c] : "", row.columns[c]);
    }
    return;
  }
  const bool produced = !row.columns.empty();
  if (mode_ == 0) {
    for (size_t c = 0; produced && c < row.columns.size(); ++c) {
      worksheet_->Cells(state_.LinesWritten + 1, static_cast<int>(c) + 1).Value(row.columns[c]);
    }
    return;
  }
  if (mode_ > 0 && mode_ <= 5 && (produced || state_.LastWriteFlag)) RowAppendAndPaste(row.joined);
}

// Rows gather in the paste buffer and go to the sheet every `mode_` rows, and in the final
// call whatever is left. The pasted range is read back: anything that did not land in it
// (a Tab inside a value, a row too many) is error 521.
void SpreadsheetRun::RowAppendAndPaste(std::string_view rowText) {
  if (pasteBuffer_.empty()) {
    pasteBuffer_ = rowText;
  } else {
    pasteBuffer_ += "\r\n";
    pasteBuffer_ += rowText;
  }
  const int rows = state_.LinesWritten;
  const int m = rows % mode_;
  int first;
  if (m != 0) {
    if (!state_.LastWriteFlag) return;
    first = rows - m + 2;
  } else {
    if (pasteBuffer_.empty()) return;
    first = rows - mode_ + 2;
  }
  if (rows + 1 > xls::kMaxRows) worksheet_->Cells(rows + 1, 1);  // says the sheet is full
  const int columns = static_cast<int>(types_.size());
  const std::string readBack = worksheet_->PasteText(first, 1, rows + 1, columns, pasteBuffer_);
  // An empty last line (the final write of a rejected record) pastes nothing.
  std::string_view expected = pasteBuffer_;
  while (expected.size() >= 2 && expected.substr(expected.size() - 2) == "\r\n") {
    expected.remove_suffix(2);
  }
  std::string_view got = readBack;
  while (got.size() >= 2 && got.substr(got.size() - 2) == "\r\n") got.remove_suffix(2);
  if (got != expected) throw QbError(kMatchError, "WriteLine", std::string(kMatchErrorText));
  pasteBuffer_.clear();
}

bool SpreadsheetRun::SaveTheSheet(const std::filesystem::path& fileName) {
  const RunLog& log = engine_.app().Log();
  try {
    log.WriteLog("SaveAs", "Start");
    if (wrapFlag_) worksheet_->ColumnsVerticalAlignment(xls::xlTop);
    worksheet_->ColumnsAutoFit();
    log.WriteLog("SaveAs", "After AutoFit");
    log.WriteLog("SaveAs", "After Select cell 1");
    log.WriteLog("SaveAs", fileName.string());
    workbook_->SaveAs(fileName, xls::xlWorkbookNormal, /*createBackup=*/true);
    log.WriteLog("SaveAs", "End");
    return true;
  } catch (const QbError& e) {
    lastError_ = e;
    log.WriteLog("SaveAs", "Error");
    return false;
  }
}

bool SpreadsheetRun::CloseSheet() {
  if (workbook_) workbook_->Close();
  if (excel_) excel_->Quit();
  worksheet_ = nullptr;
  workbook_ = nullptr;
  excel_.reset();
  return true;
}

bool TurboCreate(Engine& engine, const std::vector<std::string>& typeCodes,
                 const std::filesystem::path& turboFile, const std::filesystem::path& output,
                 std::optional<QbError>& lastError) {
  const RunLog& log = engine.app().Log();
  log.WriteLog("TurboCreate", "Started");
  std::unique_ptr<xls::Application> excel;
  std::error_code ec;
  try {
    std::vector<std::pair<int, int>> fieldInfo;
    for (size_t c = 0; c < typeCodes.size(); ++c) {
      fieldInfo.emplace_back(static_cast<int>(c) + 1, LookupTypeCode(typeCodes[c]).importType);
    }
    excel = std::make_unique<xls::Application>();
    xls::Workbook& book = excel->Workbooks.OpenText(turboFile, xls::xlDelimited, true, fieldInfo);
    xls::Worksheet& sheet = book.Worksheets(1);
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
    sheet.Name = SheetName(engine, true);
    book.SaveAs(output, xls::xlWorkbookNormal, /*createBackup=*/false);
    book.Close();
    excel->Quit();
    std::filesystem::remove(turboFile, ec);
    log.WriteLog("TurboCreate", "Completed");
    return true;
  } catch (const QbError& e) {
    lastError = e;
    if (excel) excel->Quit();
    std::filesystem::remove(turboFile, ec);
    log.WriteLog("TurboCreate",
                 "Failed - Error: " + std::to_string(e.number()) + " - " + e.description());
    return false;
  }
}

std::vector<std::string> SpreadsheetProgram() {
  if (const char* named = std::getenv("QUILLBROOK_SPREADSHEET"); named && *named) return {named};
  const char* path = std::getenv("PATH");
  auto onPath = [path](const std::string& name) {
    std::string_view rest = path ? path : "/usr/bin:/bin";
    while (!rest.empty()) {
      const size_t colon = rest.find(':');
      const std::filesystem::path candidate = std::filesystem::path(rest.substr(0, colon)) / name;
      if (::access(candidate.c_str(), X_OK) == 0) return true;
      if (colon == std::string_view::npos) break;
      rest.remove_prefix(colon + 1);
    }
    return false;
  };
  if (onPath("libreoffice")) return {"libreoffice", "--calc"};
  if (onPath("gnumeric")) return {"gnumeric"};
  return {};
}

namespace {

// Starts `argv` detached from us (its own session, not our child), in `folder` when given.
// Returns 0, or the errno of a start that failed.
int StartDetached(const std::vector<std::string>& argv, const std::filesystem::path& folder) {
  if (argv.empty()) return ENOENT;
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return errno;
  const pid_t child = ::fork();
  if (child < 0) {
    const int err = errno;
    ::close(fds[0]);
    ::close(fds[1]);
    return err;
  }
  if (child == 0) {
    ::close(fds[0]);
    ::setsid();
    if (::fork() != 0) ::_exit(0);  // the grandchild runs on, adopted by init
    int err = 0;
    if (!folder.empty() && ::chdir(folder.c_str()) != 0) err = errno;
    if (err == 0) {
      std::vector<char*> args;
      for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
      args.push_back(nullptr);
      ::execvp(args[0], args.data());
      err = errno;
    }
    (void)!::write(fds[1], &err, sizeof err);
    ::_exit(127);
  }
  ::close(fds[1]);
  ::waitpid(child, nullptr, 0);
  int err = 0;
  const ssize_t n = ::read(fds[0], &err, sizeof err);  // nothing: exec succeeded
  ::close(fds[0]);
  return n == static_cast<ssize_t>(sizeof err) ? err : 0;
}

}  // namespace

void LaunchSpreadsheet(Engine& engine, std::string_view method, const std::filesystem::path& file) {
  const RunLog& log = engine.app().Log();
  UserInterface& ui = engine.app().ui();
  auto fileOpenError = [&ui](int err) {
    ui.message("Error " + std::to_string(err) + "\nOpening Output File.", "File Open Error",
               MessageIcon::Critical);
  };
  std::vector<std::string> program = SpreadsheetProgram();
  if (method == "2") {
    log.WriteLog("RunEnd", "Launch 2");
    program.push_back(file.filename().string());
    const int err = program.size() > 1 ? StartDetached(program, file.parent_path()) : ENOENT;
    log.WriteLog("RunEnd", "Open Complete");
    if (err != 0) fileOpenError(err);
  } else if (method == "3") {
    log.WriteLog("RunEnd", "Launch 3");
    const int err = StartDetached({"xdg-open", file.string()}, {});
    log.WriteLog("RunEnd", "Open Complete");
    if (err != 0) fileOpenError(err);
  } else {
    log.WriteLog("RunEnd", "Launch 1");
    if (program.empty()) {
      log.WriteLog("RunEnd", "Launch Error " + std::to_string(kNoAutomation) +
                                 "  No spreadsheet program found: set QUILLBROOK_SPREADSHEET");
      return;
    }
    log.WriteLog("RunEnd", "Create App Complete");
    program.push_back(std::filesystem::absolute(file).string());
    const int err = StartDetached(program, {});
    if (err != 0) {
      log.WriteLog("RunEnd", "Launch Error " + std::to_string(err) + "  " + std::strerror(err));
      return;
    }
    log.WriteLog("RunEnd", "Open Complete");
    log.WriteLog("RunEnd", "App Visible");
  }
  log.WriteLog("RunEnd", "Launch Complete");
}

}  // namespace qb
