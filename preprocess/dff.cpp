#include "preprocess/dff.h"

#include <algorithm>
#include <system_error>

#include "base/buffered_file.h"
#include "base/line_reader.h"
#include "engine/progress.h"

namespace qb {

constexpr size_t kWidth = 500;

void PlaceFields(std::string_view piece, char delimiter, const std::vector<int32_t>& positions,
                 std::string& line) {
  line.assign(kWidth, ' ');
  for (size_t n = 0; n < positions.size(); ++n) {
    const size_t cut = piece.find(delimiter);
    const std::string_view field = piece.substr(0, cut);
    const int32_t pos = positions[n];
    if (pos < 1 || pos > static_cast<int32_t>(kWidth)) {
      throw QbError(kInvalidCall, "ProcessDFF",
                    "Invalid procedure call or argument: the DFC section places field " +
                        std::to_string(n + 1) + " at column " + std::to_string(pos) +
                        "; columns run from 1 to 500");
    }
    const size_t at = static_cast<size_t>(pos - 1);
    line.replace(at, std::min(field.size(), kWidth - at), field.substr(0, kWidth - at));
    if (cut == std::string_view::npos) break;  // fewer fields than DFC rows: the rest blank
    piece.remove_prefix(cut + 1);
  }
  line.erase(line.find_last_not_of(' ') + 1);
}

TempFile ProcessDFF(Engine& engine, const std::atomic<bool>& cancel,
                    const std::filesystem::path& report, RunFolder& work) {
  constexpr std::string_view kProc = "ProcessDFF";
  UserInterface& ui = engine.app().ui();
  ui.status("Reformatting DFF file ...");
  TempFile output(work.Path(kProc), report.stem().string(), ".qbr", kProc);

  char delimiter = ',';
  std::vector<int32_t> positions;
  Recordset& dfi = engine.tables.rsDelimited;
  dfi.MoveFirst();
  if (!dfi.IsEOF()) delimiter = dfi.GetText(col::Delimited::fldDLM).front();
  Recordset& dfc = engine.tables.rsDelimitedCols;
  for (dfc.MoveFirst(); !dfc.IsEOF(); dfc.MoveNext()) {
    positions.push_back(static_cast<int32_t>(dfc.GetInt(col::DelimitedCols::fldPOS)));
  }

  LineReader reader(report, kProc);
  BufferedFile sink(output.path(), kProc);
  ByteProgress progress(ui, reader.FileSize());
  std::string placed;
  int64_t lineNumber = 0;
  auto place = [&](std::string_view piece) {
    try {
      PlaceFields(piece, delimiter, positions, placed);
    } catch (QbError& e) {
      throw e.at(report, lineNumber);  // the input line that reached the bad row
    }
    sink.WriteLine(placed);
  };
  std::string_view line;
  while (!cancel && reader.Next(line)) {
    ++lineNumber;
    progress.AddLine(line.size());
    for (size_t ff; (ff = line.find('\f')) != std::string_view::npos;) {
      place(line.substr(0, ff));
      line.remove_prefix(ff + 1);
    }
    place(line);
  }
  sink.WriteLine(" ");
  sink.Close();
  if (cancel) throw QbError(kUserInterrupt, std::string(kProc), "Reformatting Report file");
  return output;
}

}  // namespace qb
