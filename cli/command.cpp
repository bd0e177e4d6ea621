#include "cli/command.h"

#include <cstdio>
#include <string>

#include <algorithm>
#include <vector>

#include "cli/console_ui.h"
#include "cli/options.h"
#include "engine/engine.h"
#include "settings/application.h"
#include "settings/errors.h"

namespace qb::cli {
namespace {

constexpr std::string_view kSource = "qbconvert";

// Without a job: the start-up summary, so a user sees which folder and settings are used.
void ShowStartup(const Application& app) {
  std::printf("Program folder: %s\n", app.ProgramFolder().c_str());
  std::printf("Settings file:  %s%s\n", (app.ProgramFolder() / kSettingsFileName).c_str(),
              std::filesystem::exists(app.ProgramFolder() / kSettingsFileName)
                  ? ""
                  : " (not present: defaults in use)");
  std::printf("Log:            %s\n", app.Log().AppLogFile().c_str());
  std::printf("Source systems: %d\n", app.Systems.Count());
  for (const clsSystem& s : app.Systems) std::printf("  %s\n", s.PfsetText().c_str());
  std::printf("Settings:\n");
  for (const clsKey& k : app.Settings) {
    std::printf("  [%s] %s=%s\n", k.Section.c_str(), k.Name.c_str(), k.Value.c_str());
  }
}

// --set KEY=VALUE, checked against the thirteen settings before anything starts.
std::vector<std::pair<std::string, std::string>> ParseSets(const ParsedOptions& opts) {
  std::vector<std::pair<std::string, std::string>> sets;
  for (const std::string& s : opts.values(Opt::Set)) {
    size_t eq = s.find('=');
    if (eq == std::string::npos) throw UsageError("--set needs KEY=VALUE, not '" + s + "'");
    std::string key = s.substr(0, eq);
    bool known = false;
    for (const SettingDefinition& d : SettingDefinitions()) known = known || EqualsNoCase(d.name, key);
    if (!known) {
      std::string names;
      for (const SettingDefinition& d : SettingDefinitions()) names += " " + std::string(d.name);
      throw UsageError("--set: unknown setting '" + key + "'; the settings are:" + names);
    }
    sets.emplace_back(key, s.substr(eq + 1));
  }
  return sets;
}

std::vector<int> ParseFieldList(const ParsedOptions& opts) {
  std::vector<int> fields;
  std::optional<std::string> text = opts.value(Opt::Fields);
  if (!text) return fields;
  std::string_view rest = *text;
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string_view item = Trim(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    try {
      int n = ParseInt16(item, "qbconvert");
      if (n < 1) throw QbError::Runtime(kOverflow, "qbconvert");
      if (std::find(fields.begin(), fields.end(), n) != fields.end()) {
        throw UsageError("--fields names field " + std::to_string(n) + " twice");
      }
      fields.push_back(n);
    } catch (const QbError&) {
      throw UsageError("--fields takes field numbers such as 3,1,7, not '" + std::string(item) + "'");
    }
  }
  if (fields.empty()) throw UsageError("--fields needs at least one field number");
  if (fields.size() > 99) throw UsageError("--fields takes at most 99 fields");
  return fields;
}

// Those fields are output in that order; every other field is not output.
void ApplyFieldList(Recordset& rs, const std::vector<int>& fields) {
  if (fields.empty()) return;
  for (int n : fields) {
    rs.Filter("");
    rs.Find("fldFLD = " + std::to_string(n));
    if (rs.IsEOF()) throw UsageError("--fields: the RDF has no field " + std::to_string(n));
  }
  for (rs.Filter(""); !rs.IsEOF(); rs.MoveNext()) {
    const int n = static_cast<int>(rs.GetInt(col::Fields::fldFLD));
    auto at = std::find(fields.begin(), fields.end(), n);
    rs.SetBool(col::Fields::fldOUT, at != fields.end());
    const int order = at != fields.end() ? static_cast<int>(at - fields.begin()) + 1 : 0;
    rs.SetInt(col::Fields::fldORD, order);
    rs.SetInt(col::Fields::fldTMP, order);
  }
  rs.MoveFirst();
}

void ListFields(Recordset& rs) {
  rs.Sort("fldFLD");
  std::printf("%5s  %-6s  %5s  %-5s  %s\n", "Field", "Output", "Order", "Type", "Label");
  for (; !rs.IsEOF(); rs.MoveNext()) {
    std::printf("%5lld  %-6s  %5lld  %-5s  %s\n",
                static_cast<long long>(rs.GetInt(col::Fields::fldFLD)),
                rs.GetBool(col::Fields::fldOUT) ? "y" : "n",
                static_cast<long long>(rs.GetInt(col::Fields::fldORD)),
                std::string(rs.GetText(col::Fields::fldTYP)).c_str(),
                std::string(rs.GetText(col::Fields::fldLAB)).c_str());
  }
  rs.Sort("");
}

// Loads the RDF (found from the report when not named) and applies the command line's
// settings and field choices. Throws UsageError; returns false when loading failed.
bool LoadForJob(const ParsedOptions& opts, Engine& engine) {
  Application& app = engine.app();
  std::filesystem::path report = opts.value(Opt::Report).value_or("");
  std::filesystem::path rdf;
  if (auto named = opts.value(Opt::Rdf)) {
    rdf = *named;
  } else {
    clsSystem system;
    try {
      system = ParseSystemEntry(app.Settings["pfset"], "qbconvert");
    } catch (const QbError&) {
      std::fprintf(stderr, "qbconvert: the \"pfset\" setting '%s' is not a source system entry; "
                   "name the RDF with --rdf\n", app.Settings["pfset"].c_str());
      return false;
    }
    std::optional<std::filesystem::path> found = FindRdf(report, system, app.Settings["rdfdir"]);
    if (!found || !std::filesystem::exists(*found)) {
      std::fprintf(stderr,
                   "qbconvert: no RDF found for %s: source system \"%s\" gives %s. Name the RDF "
                   "with --rdf, or set rdfdir and pfset (qbcfg.ini or --set).\n",
                   report.c_str(), system.System.c_str(),
                   found ? found->c_str() : "no usable identifier");
      return false;
    }
    rdf = *found;
  }
  engine.flags.PdfReport = report.extension() == ".pdf";
  if (!engine.LoadRDF(rdf, report)) {
    std::string why = engine.LastError() ? engine.LastError()->describe() : "unknown error";
    std::fprintf(stderr, "qbconvert: cannot load RDF %s: %s\n", rdf.c_str(), why.c_str());
    return false;
  }
  for (const auto& [key, value] : ParseSets(opts)) app.Settings.Item(key).Value = value;
  ApplyFieldList(engine.tables.rsFields, ParseFieldList(opts));
  return true;
}

// The command line's combinations, checked before start-up.
void Validate(const ParsedOptions& opts) {
  const bool list = opts.has(Opt::ListFields), save = opts.has(Opt::SaveRdf);
  if ((list || save) && !opts.has(Opt::Rdf)) {
    throw UsageError(std::string(list ? "--list-fields" : "--save-rdf") + " needs --rdf FILE");
  }
  if (list && save) throw UsageError("--list-fields and --save-rdf do not go together");
  if ((list || save) && opts.has(Opt::Output)) {
    throw UsageError("--output does not go with --list-fields or --save-rdf");
  }
  if (!list && !save && !opts.has(Opt::Output) &&
      (opts.has(Opt::Report) || opts.has(Opt::Rdf) || opts.has(Opt::Fields) || opts.has(Opt::Set))) {
    throw UsageError("nothing to do: give --output FILE, --list-fields or --save-rdf FILE");
  }
  ParseSets(opts);
  ParseFieldList(opts);
}

}  // namespace

int RunCommand(std::span<const char* const> args) {
  ParsedOptions opts;
  try {
    opts = ParseCommandLine(args);
    if (!opts.has(Opt::Help) && !opts.has(Opt::Version)) Validate(opts);
  } catch (const UsageError& e) {
    std::fprintf(stderr, "qbconvert: %s\nTry 'qbconvert --help'.\n", e.what());
    return kExitUsage;
  }
  if (opts.has(Opt::Help)) {
    std::fputs(HelpText().c_str(), stdout);
    return kExitOk;
  }
  if (opts.has(Opt::Version)) {
    std::printf("qbconvert %s\n", QB_VERSION);
    return kExitOk;
  }

  ConsoleUI ui;
  Application app(ResolveProgramFolder(opts.value(Opt::Home)), ui);
  app.Log().WriteLog(kSource, "Started...");
  int status = kExitOk;
  if (!app.ResetForm()) {
    status = kExitFailed;
  } else if (opts.has(Opt::ListFields) || opts.has(Opt::SaveRdf)) {
    Engine engine(app);
    try {
      if (!LoadForJob(opts, engine)) {
        status = kExitFailed;
      } else if (opts.has(Opt::ListFields)) {
        ListFields(engine.tables.rsFields);
      } else if (!engine.BuildRDF(*opts.value(Opt::SaveRdf))) {
        std::fprintf(stderr, "qbconvert: cannot write %s: %s\n", opts.value(Opt::SaveRdf)->c_str(),
                     engine.LastError()->describe().c_str());
        status = kExitFailed;
      }
    } catch (const UsageError& e) {
      std::fprintf(stderr, "qbconvert: %s\n", e.what());
      status = kExitUsage;
    }
  } else {
    ShowStartup(app);
  }
  app.Log().WriteLog(kSource, "Closed...");
  return status;
}

}  // namespace qb::cli
