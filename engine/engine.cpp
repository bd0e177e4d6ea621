// Loading orchestration, RDF settings, auto-find and saving.

#include "engine/engine.h"

#include <array>

#include "base/bytes.h"
#include "base/file_io.h"
#include "base/line_reader.h"
#include "base/text_encoding.h"
#include "output/output_options.h"

namespace qb {

namespace {

// The RDF setting records and the settings they set, in the order they are saved.
// "EN", the report's encoding, came later: an RDF without it reads its report by the
// settings, and one is saved with it only when the encoding is set.
constexpr std::array<std::pair<std::string_view, Key>, 7> kRdfSettingKeys{{{"OF", Key::opfmt},
                                                                           {"QS", Key::tqswt},
                                                                           {"TQ", Key::textq},
                                                                           {"DL", Key::delim},
                                                                           {"RT", Key::rtype},
                                                                           {"ES", Key::exswt},
                                                                           {"EN", Key::encoding}}};

// The settings put back to the saved values before an RDF applies its own.
constexpr std::array<Key, 7> kRestoredKeys{Key::delim, Key::textq, Key::tqswt,   Key::opfmt,
                                           Key::exswt, Key::rtype, Key::encoding};

// Text at `start`/`length` on line `row` of the report (the last line read when the report
// is shorter), or "" for an empty report. A UTF-8 byte-order mark is not part of line 1.
std::string ReportText(const std::filesystem::path& report, const clsSystem& system,
                       std::string_view procedure) {
  LineReader reader(report, procedure);
  std::string last;
  std::string_view line;
  for (int row = 0; row < system.Row && reader.Next(line); ++row) {
    if (row == 0) line = WithoutBom(line);
    last.assign(line);
  }
  return std::string(Mid(last, system.Start, system.Length, procedure));
}

}  // namespace

Engine::Engine(Application& app, const Engine& loaded)
    : tables(loaded.tables.Copy()), flags(loaded.flags), rdf(loaded.rdf), app_(app) {}

std::string RdfHeading(RdfTables& tables) {
  std::string heading = "Output Fields";
  Recordset& s = tables.rsSettings;
  if (!s.IsOpen()) return heading;
  s.Filter("fldTYP = 'HD'");
  if (!s.IsEOF()) heading = s.GetText(col::Settings::fldVAL);
  s.Filter("");
  return heading;
}

bool Engine::LoadRDF(const std::filesystem::path& rdfPath,
                     const std::filesystem::path& reportPath) {
  lastError_.reset();
  DestroyRecordsets();
  CreateRecordsets();
  bool ok = GetRDFInfo(rdfPath);
  if (ok && !flags.PdfReport && !reportPath.empty()) {
    // The report/RDF program check: a warning only, loading goes on.
    if (ProgramMatches(reportPath) == false) {
      app_.ui().message("Report and RDF Program names don't match.", "Report / RDF MisMatch",
                        MessageIcon::Exclamation);
    }
  }
  std::string reportId = "01";
  if (ok) ok = LoadRDFHeader(rdfPath);
  if (ok && rdf.Number > 1 && !reportPath.empty()) {
    std::optional<std::string> id = GetReportID(reportPath);
    ok = id.has_value();
    if (ok) reportId = *id;
  }
  if (ok && reportId != "00") {
    ok = LoadRDFDetail(reportId, rdfPath);
    if (ok) ApplyRDFSettings();
  }
  flags.DffReport = flags.DffRdf;
  if (!ok) app_.ui().message("Error loading RDF", "Quillbrook", MessageIcon::Exclamation);
  return ok;
}

std::optional<bool> Engine::ProgramMatches(const std::filesystem::path& reportPath) const {
  try {
    const clsSystem system = ParseSystemEntry(app_.Settings[Key::pfset], "LoadRDF");
    if (system.Row < 1) return std::nullopt;
    const std::string program(Trim(ReportText(reportPath, system, "LoadRDF")));
    if (program.empty()) return std::nullopt;
    std::string rdfProgram = rdf.ProgramName;
    if (size_t dot = rdfProgram.find('.'); dot != std::string::npos && dot >= 1) {
      rdfProgram.resize(dot);
    }
    return rdfProgram.find(program) != std::string::npos;
  } catch (const QbError&) {
    return std::nullopt;  // no usable system entry or an unreadable report: nothing to compare
  }
}

bool Engine::Identifies(const std::filesystem::path& rdfPath,
                        const std::filesystem::path& reportPath) {
  DestroyRecordsets();
  CreateRecordsets();
  if (!GetRDFInfo(rdfPath) || !LoadRDFHeader(rdfPath)) return false;
  bool tested = false;
  if (Recordset& rs = tables.rsIdentify; rs.RecordCount() > 0) {
    if (!GetReportID(reportPath) || !reportIdMatched_) return false;
    // Only a test the report met tells it apart: the layout for reports that meet none
    // (flags all 0) would claim every report.
    for (rs.MoveFirst(); !rs.IsEOF() && !tested; rs.MoveNext())
      tested = rs.GetText(col::Identify::fldFLG) == "1";
  }
  if (const std::optional<bool> program = ProgramMatches(reportPath)) {
    if (!*program) return false;
    tested = true;
  }
  return tested;
}

void Engine::ApplyRDFSettings() {
  clsKeys& settings = app_.Settings;
  if (flags.SettingsRestore) {
    for (Key key : kRestoredKeys) {
      settings.Item(key).Value = app_.SavedSettings[key];
    }
    flags.SettingsRestore = false;
  }
  Recordset& rs = tables.rsSettings;
  for (rs.MoveFirst(); !rs.IsEOF(); rs.MoveNext()) {
    std::string_view code = rs.GetText(col::Settings::fldTYP);
    std::string_view value = rs.GetText(col::Settings::fldVAL);
    for (auto [rdfCode, key] : kRdfSettingKeys) {
      if (code != rdfCode) continue;
      settings.Item(key).Value =
          key == Key::delim ? DelimiterSettingOfRecord(value) : std::string(value);
      flags.SettingsRestore = true;
      if (key == Key::encoding && EncodingNamed(value) == Encoding::Utf8) flags.RdfUtf8 = true;
    }
  }
  if (flags.RdfUtf8) CountMarkersInCharacters();
}

// A marker's length, worked out from its text when the RDF was read, counts bytes; in a UTF-8
// RDF it counts characters, as the report's columns do.
void Engine::CountMarkersInCharacters() {
  Recordset& m = tables.rsMarkers;
  for (m.MoveFirst(); !m.IsEOF(); m.MoveNext()) {
    const std::string_view text = m.GetText(col::Markers::fldMRK);
    if (m.GetInt(col::Markers::fldLEN) != static_cast<int64_t>(text.size())) continue;
    m.SetInt(col::Markers::fldLEN, static_cast<int64_t>(Utf8Characters(text)));
  }
  m.MoveFirst();
}

bool Engine::BuildRDF(const std::filesystem::path& path) {
  return Trap("BuildRDF", [&] {
    std::string out;
    auto line = [&out](std::string_view text) {
      out.append(text);
      out.append("\r\n");
    };
    Recordset& lines = tables.rsLines;
    for (lines.MoveFirst(); !lines.IsEOF(); lines.MoveNext())
      line(lines.GetText(col::Lines::fldRDL));

    Recordset& f = tables.rsFields;
    f.Sort("fldFLD");
    for (f.MoveFirst(); !f.IsEOF(); f.MoveNext()) {
      std::string label(f.GetText(col::Fields::fldLAB));
      for (char& c : label) {
        if (c == ',' || c == '[' || c == ']') c = ' ';
      }
      line(std::to_string(f.GetInt(col::Fields::fldFLD)) + "," +
           (f.GetBool(col::Fields::fldOUT) ? "y" : "n") + "," +
           std::string(f.GetText(col::Fields::fldTYP)) + "," +
           std::to_string(f.GetInt(col::Fields::fldORD)) + "," +
           std::to_string(f.GetInt(col::Fields::fldDLB)) + "," + std::string(Trim(label)) + "," +
           std::string(f.GetText(col::Fields::fldACT)));
    }
    f.Sort("fldORD");

    const std::string heading = RdfHeading(tables);
    const clsKeys& settings = app_.Settings;
    line("RLF SECTION");
    line("HD," + heading);
    for (auto [code, key] : kRdfSettingKeys) {
      if (key == Key::encoding && settings[key].empty()) continue;
      const std::string value =
          key == Key::delim ? DelimiterRecordOfSetting(settings[key]) : settings[key];
      line(std::string(code) + "," + value);
    }
    // The texts are the RDF's own bytes: UTF-8 when it was read so, else Windows-1252. A file
    // whose "EN" record says UTF-8 is read so: its Windows-1252 texts are written in UTF-8.
    // A UTF-8 file begins with a byte-order mark, which says so before any record is read.
    const bool utf8 = flags.RdfUtf8 || EncodingNamed(settings[Key::encoding]) == Encoding::Utf8;
    if (utf8 && !flags.RdfUtf8 && !IsAscii(out)) {
      std::string converted;
      AppendWindows1252AsUtf8(converted, out);
      out = std::move(converted);
    }
    if (utf8) out.insert(0, kUtf8Bom);
    WriteFileAtomically(path, out, "BuildRDF");
  });
}

std::string ReportIdentifier(const std::filesystem::path& report, const clsSystem& system) {
  std::string id =
      system.Row == 0 ? report.filename().string() : ReportText(report, system, "ReportIdentifier");
  id = std::string(Trim(id));
  if (!system.Extension.empty()) {
    if (size_t at = id.find(system.Extension); at != std::string::npos) id.resize(at);
  }
  return id;
}

std::optional<std::filesystem::path> FindRdf(const std::filesystem::path& report,
                                             const clsSystem& system,
                                             const std::filesystem::path& rdfFolder) {
  std::string id;
  try {
    id = ReportIdentifier(report, system);
  } catch (const QbError&) {
    return std::nullopt;
  }
  if (id.empty() || id.find("..") != std::string::npos) return std::nullopt;
  for (unsigned char c : id) {
    if (c < 32 || c == 127 ||
        std::string_view("/\\:*?\"<>|").find(static_cast<char>(c)) != std::string_view::npos) {
      return std::nullopt;
    }
  }
  const std::filesystem::path found = rdfFolder / (id + ".rdf");
  // A link in the RDF folder is followed only to a file that is in the folder too.
  std::error_code ec;
  const std::filesystem::path real = std::filesystem::canonical(found, ec);
  if (ec) return found;  // not there: the caller says so
  if (real.parent_path() != std::filesystem::canonical(rdfFolder, ec)) return std::nullopt;
  return real;
}

}  // namespace qb
