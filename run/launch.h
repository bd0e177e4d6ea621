#pragma once
// Opening a finished workbook in the spreadsheet program, the last step of a run that asked
// for it.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "settings/run_log.h"
#include "settings/user_interface.h"

namespace qb {

// The program that opens workbooks: $QUILLBROOK_SPREADSHEET, else the first of
// "libreoffice --calc" and "gnumeric" found on the PATH. Empty when there is none.
std::vector<std::string> SpreadsheetProgram();

// Why launching `workbook` by `method` opens nothing where the launch itself only logs it
// (method 1, the default: no spreadsheet program, or one that cannot be started); empty when
// the launch can go ahead or tells the user itself.
std::string LaunchProblem(std::string_view method, const std::filesystem::path& workbook);

// RunEnd's launch by "lmeth": "2" starts the spreadsheet program with the file name alone in
// the file's folder, "3" opens the file with the desktop's program for it, anything else
// starts the spreadsheet program on the file. Logged under "RunEnd"; a failed start of 2
// or 3 shows the "File Open Error" box.
void LaunchSpreadsheet(const RunLog& log, UserInterface& ui, std::string_view method,
                       const std::filesystem::path& file);

}  // namespace qb
