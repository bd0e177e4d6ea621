// Writes 65,000 rows of 12 columns as an .xls workbook in each buffer mode through the output
// sink a run uses (header cells, then data cells, paste blocks, or the work file and the
// turbo import), and prints rows per second. The same cells as bench/writeexcel.pl writes.
// Then the same rows as .xlsx, and 1,100,000 of them (the 65,000 over and over), which fill
// one sheet and go on on a second: the cells bench/xlsx_plain.c writes.
//
//   bench_xls OUTPUT_FOLDER

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "output/output_sink.h"
#include "settings/run_log.h"

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
  qb::SilentUserInterface ui;
  const qb::RunLog log(ui, out / "home" / "log" / "qbuia.log");

  std::vector<std::string> labels;
  for (int c = 0; c < kColumns; ++c) labels.push_back("Column " + std::to_string(c + 1));
  std::vector<std::vector<qb::ValueBuffer>> rows(kRows);
  for (int r = 0; r < kRows; ++r) {
    for (int c = 0; c < kColumns; ++c) {
      rows[static_cast<size_t>(r)].emplace_back().assign(Value(r, c));
    }
  }

  // Writes `count` rows (row r is rows[r % kRows]) in `options`' format into `file`.
  auto write = [&](const std::string& name, const qb::OutputOptions& options, int count) {
    const std::filesystem::path file = out / name;
    std::filesystem::remove(file);
    const auto start = std::chrono::steady_clock::now();
    const qb::OutputTarget target{file, out, kTypes, "Bench", &log};
    try {
      std::unique_ptr<qb::OutputSink> sink = qb::OpenOutputSink(options, target);
      std::vector<std::string_view> header(labels.begin(), labels.end());
      std::vector<const qb::ValueBuffer*> values(kColumns);
      sink->Header(header);
      for (int r = 0; r < count; ++r) {
        const auto& row = rows[static_cast<size_t>(r % kRows)];
        for (int c = 0; c < kColumns; ++c)
          values[static_cast<size_t>(c)] = &row[static_cast<size_t>(c)];
        sink->Row(values);
      }
      sink->EndOfRows();
      sink->Finish();
    } catch (const qb::QbError& e) {
      std::fprintf(stderr, "%s failed: %s\n", name.c_str(), e.describe().c_str());
      return false;
    }
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("%-12s %9d rows  %6.2f s  %9.0f rows/s  %s\n", name.c_str(), count, secs,
                count / secs, file.c_str());
    return true;
  };

  for (int mode : {0, 3, 6}) {
    qb::OutputOptions options;
    options.format = qb::OutputFormat::Xls;
    options.delimiter = "\t";
    options.bufferMode = mode;
    if (!write("mode" + std::to_string(mode) + ".xls", options, kRows)) return 1;
  }
  qb::OutputOptions xlsx;
  xlsx.format = qb::OutputFormat::Xlsx;
  xlsx.delimiter = "\t";
  if (!write("rows.xlsx", xlsx, kRows) || !write("split.xlsx", xlsx, 1100000)) return 1;
  return 0;
}
