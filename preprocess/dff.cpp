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
    if (pos < 1 || pos > static_cast<int32_t>(kWidth))
      throw QbError::Runtime(kInvalidCall, "ProcessDFF");
    const size_t at = static_cast<size_t>(pos - 1);
    line.replace(at, std::min(field.size(), kWidth - at), field.substr(0, kWidth - at));
    if (cut == std::string_view::npos) break;  // fewer fields than DFC rows: the rest blank
    piece.remove_prefix(cut + 1);
  }
  line.erase(line.find_last_not_of(' ') + 1);
}

std::filesystem::path ProcessDFF(Engine& engine, const std::atomic<bool>& cancel,
                                 const std::filesystem::path& report) {
  constexpr std::string_view kProc = "ProcessDFF";
  UserInterface& ui = engine.app().ui();
  ui.status("Reformatting DFF file ...");
  const std::filesystem::path out = engine.app().ProgramFolder() / "out";
  std::error_code ec;
  if (!std::filesystem::is_directory(out, ec)) {
    throw QbError(kPathNotFound, std::string(kProc),
                  "The folder for intermediate files does not exist: create " + out.string());
  }
  const std::filesystem::path output = out / (report.stem().string() + ".qbr");
  std::filesystem::remove(output, ec);

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
  BufferedFile sink(output, kProc);
  ByteProgress progress(ui, reader.FileSize());
  std::string placed;
  auto place = [&](std::string_view piece) {
    PlaceFields(piece, delimiter, positions, placed);
    sink.WriteLine(placed);
  };
  std::string_view line;
  while (!cancel && reader.Next(line)) {
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
