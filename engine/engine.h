#pragma once
// The conversion engine's RDF side: a loaded RDF as twelve tables, with the procedures that
// load it, identify the report's layout and save it again.
//
// Each procedure traps its own errors the way the rest of the system expects: it logs them
// under its own name through the application's log (which also tells the user), keeps them
// as LastError() and returns failure.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "engine/rdf_tables.h"
#include "settings/application.h"

namespace qb {

// What an RDF's first line says about it.
struct clsRDF {
  int16_t Number = 0;       // number of detail parts (report layouts)
  std::string Kind;         // one letter
  std::string Name;         // the RDF's description
  std::string ProgramName;  // the program that prints the report
};

class Engine {
 public:
  explicit Engine(Application& app) : app_(app) {}
  // A copy of `loaded`'s RDF (tables, flags, first line) for `app`: nothing of it is shared,
  // so each can be read and changed while the other is in use.
  Engine(Application& app, const Engine& loaded);

  void CreateRecordsets() { tables.CreateRecordsets(); }
  void DestroyRecordsets() { tables.DestroyRecordsets(); }

  // Reads the first line into `rdf`. Errors 517/518 "Corrupted RDF".
  bool GetRDFInfo(const std::filesystem::path& rdfPath);
  // The header part into rsHeader, rsIdentify, rsReportFlags, the PDF and delimited tables
  // and rsLines. Errors 519, 515 and 516.
  bool LoadRDFHeader(const std::filesystem::path& rdfPath);
  // The report's layout id ("01" unless an identification rule decides otherwise), or
  // nothing when the report cannot be read.
  std::optional<std::string> GetReportID(const std::filesystem::path& reportPath);

  // Whether this RDF tells `reportPath` for its own by the report's text: its identification
  // rules find a layout for it because the report met one of their tests (not the "01" that
  // none gives, nor a layout for reports that meet no test), and, where "pfset" names a
  // line of the report, the program printed there is the RDF's. Where neither test says
  // yes, the RDF does not identify the report; where either says no, neither. Loads the
  // RDF's first line and header part in place of what was loaded.
  bool Identifies(const std::filesystem::path& rdfPath, const std::filesystem::path& reportPath);
  // The detail part of `reportId` into rsMarkers, rsPickups, rsFields, rsSettings, rsLines.
  bool LoadRDFDetail(std::string_view reportId, const std::filesystem::path& rdfPath);

  // The whole load: fresh tables, first line, the report/RDF program check (text reports),
  // header, layout id, detail part and the RDF's settings. Shows "Error loading RDF" on
  // failure; the tables stay as far as they were filled. `reportPath` may be empty when no
  // report is chosen (layout "01", no program check).
  bool LoadRDF(const std::filesystem::path& rdfPath, const std::filesystem::path& reportPath);

  // Restores the six output settings when the previous RDF changed them, then applies this
  // RDF's setting records (DL, TQ, QS, OF, ES, RT).
  void ApplyRDFSettings();

  // Writes the loaded RDF, plain, with the current fields and output settings.
  bool BuildRDF(const std::filesystem::path& path);

  const std::optional<QbError>& LastError() const { return lastError_; }
  Application& app() const { return app_; }

  RdfTables tables;
  EngineFlags flags;
  clsRDF rdf;

 private:
  bool Trap(std::string_view procedure, const std::function<void()>& body) {
    return RunTrapped(app_.Log(), procedure, lastError_, body);
  }

  Application& app_;
  // The program check of a text report: nothing when there is nothing to compare (pfset
  // names no line, the line is blank, the report cannot be read).
  std::optional<bool> ProgramMatches(const std::filesystem::path& reportPath) const;
  void CountMarkersInCharacters();

  std::optional<QbError> lastError_;
  bool reportIdMatched_ = false;  // the last GetReportID found its layout in the flags table
};

// The RDF's heading (its "HD" setting record), or "Output Fields" without one.
std::string RdfHeading(RdfTables& tables);

// RDF auto-find. The report's identifier for a source system: row 0 takes the report's
// file name; row 1 or more the text at Start and Length on that line (the last line read
// when the report is shorter). Trimmed, then cut before the system's end marker.
std::string ReportIdentifier(const std::filesystem::path& report, const clsSystem& system);
// "rdfdir" / identifier + ".rdf", or nothing when the identifier is empty or could lead
// outside the RDF folder (a path separator, "..", a character not allowed in file names), or
// when the file found is a link to a file outside the folder. An RDF that is there comes
// back as its real path.
std::optional<std::filesystem::path> FindRdf(const std::filesystem::path& report,
                                             const clsSystem& system,
                                             const std::filesystem::path& rdfFolder);

}  // namespace qb
