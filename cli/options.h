#pragma once
// qbconvert's command line: one table gives parsing, --help and validation.

#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace qb::cli {

enum class Opt {
  Report,
  Rdf,
  Output,
  Home,
  Set,
  Fields,
  Overwrite,
  Quiet,
  Launch,
  ListFields,
  SaveRdf,
  Trace,
  Lines,
  Unmatched,
  TraceFormat,
  Check,
  Batch,
  Jobs,
  OutputDir,
  To,
  RdfDir,
  Manifest,
  SkipExisting,
  Recursive,
  MergeManifests,
  Help,
  Version,
};

struct OptionInfo {
  Opt id;
  std::string_view name;       // without the leading "--"
  std::string_view valueName;  // empty for a switch
  bool repeatable;
  std::string_view help;
};

std::span<const OptionInfo> Options();

// A command-line mistake: qbconvert prints it with a hint to --help and exits 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class ParsedOptions {
 public:
  bool has(Opt o) const { return values_.count(o) != 0; }
  // The value of a single-valued option, or nothing.
  std::optional<std::string> value(Opt o) const;
  // Every value of a repeatable option, in the order given.
  const std::vector<std::string>& values(Opt o) const;

  std::map<Opt, std::vector<std::string>> values_;
  // The arguments that belong to no option: --batch's reports, --merge-manifests' files.
  std::vector<std::string> positional;
};

// Accepts "--name value" and "--name=value"; other arguments, and every argument after "--",
// are kept as positional. Throws UsageError for unknown options, missing or empty values and
// repeated single options.
ParsedOptions ParseCommandLine(std::span<const char* const> args);

std::string HelpText();

}  // namespace qb::cli
