// Writes 65,000 rows of 12 columns as an .xls workbook in each buffer mode, the way a run
// does (header cells, then data cells, paste blocks or the turbo import), and prints rows
// per second. The same cells as bench/writeexcel.pl writes.
//
//   bench_xls OUTPUT_FOLDER

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "run/spreadsheet_output.h"

namespace {

constexpr int kRows = 65000;
constexpr int kColumns = 12;
const std::vector<std::string> kTypes = {"c",  "c", "d", "c", "n", "n",
                                         "n0", "c", "n", "c", "n", "c"};

// The value of row r, column c (0-based): text, dates and amounts, as a report gives them.
std::string Value(int r, int c) {
  switch (c) {
    case 0:
      return "C" + std::to_string(100000 + r % 5000);
    case 2:
      return "10/" + std::to_string(10 + r % 18) + "/26";
    case 4:
    case 5:
    case 8:
    case 10:
      return std::to_string((r * 37 + c) % 100000) + "." + std::to_string(10 + r % 90);
    case 6:
      return std::to_string(r % 5000);
    default:
      return "TEXT " + std::to_string(c) + " ROW " + std::to_string(r);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_xls OUTPUT_FOLDER\n");
    return 2;
  }
  const std::filesystem::path out = argv[1];
  std::filesystem::create_directories(out / "home" / "log");
  std::ofstream(out / "home" / "qbsys.txt") << "H\r\nDefault - By Filename,0,1,1,.\r\n";
  qb::SilentUserInterface ui;
  qb::Application app(out / "home", ui);
  app.ResetForm();
  qb::Engine engine(app);
  engine.CreateRecordsets();

  std::vector<std::string> labels;
  for (int c = 0; c < kColumns; ++c) labels.push_back("Column " + std::to_string(c + 1));
  std::vector<std::vector<std::string>> rows(kRows);
  for (int r = 0; r < kRows; ++r) {
    for (int c = 0; c < kColumns; ++c) rows[static_cast<size_t>(r)].push_back(Value(r, c));
  }

  for (int mode : {0, 3, 6}) {
    const auto start = std::chrono::steady_clock::now();
    const std::filesystem::path file = out / ("mode" + std::to_string(mode) + ".xls");
    std::filesystem::remove(file);
    std::vector<std::string_view> values(kColumns);
    std::string joined;
    if (mode != 6) {
      qb::RunState state;
      qb::SpreadsheetRun run(engine, state, kTypes, mode);
      run.CreateSheet();
      for (int r = 0; r < kRows; ++r) {
        state.LinesWritten = r + 1;
        state.LastWriteFlag = r + 1 == kRows;
        if (r == 0) {
          for (int c = 0; c < kColumns; ++c)
            values[static_cast<size_t>(c)] = labels[static_cast<size_t>(c)];
          run.Write({values, "", true});
        }
        joined.clear();
        for (int c = 0; c < kColumns; ++c) {
          values[static_cast<size_t>(c)] = rows[static_cast<size_t>(r)][static_cast<size_t>(c)];
          if (c > 0) joined += '\t';
          joined += values[static_cast<size_t>(c)];
        }
        run.Write({values, joined, false});
      }
      run.SaveTheSheet(file);
      run.CloseSheet();
    } else {
      const std::filesystem::path turbo = out / "turbo.tmp";
      {
        std::ofstream text(turbo, std::ios::binary);
        for (int c = 0; c < kColumns; ++c)
          text << (c ? "\t" : "") << labels[static_cast<size_t>(c)];
        text << "\r\n";
        for (const auto& row : rows) {
          for (int c = 0; c < kColumns; ++c) text << (c ? "\t" : "") << row[static_cast<size_t>(c)];
          text << "\r\n";
        }
      }
      std::optional<qb::QbError> error;
      if (!qb::TurboCreate(engine, kTypes, turbo, file, error)) {
        std::fprintf(stderr, "TurboCreate failed: %s\n", error->describe().c_str());
        return 1;
      }
    }
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("mode %d  %6.2f s  %9.0f rows/s  %s\n", mode, secs, kRows / secs, file.c_str());
  }
  return 0;
}
