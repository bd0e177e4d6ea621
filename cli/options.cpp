#include "cli/options.h"

#include <array>

#include "base/text_encoding.h"

namespace qb::cli {
namespace {

constexpr std::array<OptionInfo, 27> kOptions{{
    {Opt::Report, "report", "FILE", false,
     "the report to convert (.txt, .prn, .rpt print image; .pdf; a delimited file)"},
    {Opt::Rdf, "rdf", "FILE", false,
     "the Report Description File; found from the report when left out"},
    {Opt::Output, "output", "FILE", false,
     "the output file; its extension (.txt, .csv, .xls, .xlsx) sets the output type"},
    {Opt::Home, "home", "DIR", false,
     "the program folder (qbcfg.ini, qbsys.txt, log/, out/); default: $QUILLBROOK_HOME, "
     "else the folder of this program"},
    {Opt::Set, "set", "KEY=VALUE", true,
     "override one setting for this run (delim, textq, tqswt, rtype, rmode, ...; "
     "encoding=NAME reads a report in that encoding, with asa=1, reclen=N and bom=1; pfset "
     "takes a line of qbsys.txt or its system's name); may be repeated"},
    {Opt::Fields, "fields", "N,N,...", false, "output only these field numbers, in this order"},
    {Opt::Overwrite, "overwrite", "", false,
     "replace an existing output file (once the run has written the new one whole; a run that "
     "fails, or is stopped by Ctrl-C, leaves it as it was), or the file of "
     "--save-rdf"},
    {Opt::Quiet, "quiet", "", false,
     "print nothing on success (a batch still prints its table, without the progress line)"},
    {Opt::Launch, "launch", "", false,
     "open an .xls or .xlsx output in the spreadsheet program afterwards (launch method "
     "from lmeth)"},
    {Opt::ListFields, "list-fields", "", false,
     "print the RDF's output fields (number, output, order, type, label) and stop"},
    {Opt::SaveRdf, "save-rdf", "FILE", false,
     "write the loaded RDF, with the field choices and settings, as a plain RDF"},
    {Opt::Trace, "trace", "", false,
     "print what the RDF does to each report line: the marker row that matched, the pickups, "
     "the rows written (--output is then optional)"},
    {Opt::Lines, "lines", "FROM-TO", false,
     "trace only these report lines (the run still reads from the first line)"},
    {Opt::Unmatched, "unmatched", "", false, "trace only the lines that matched no marker row"},
    {Opt::TraceFormat, "trace-format", "text|jsonl", false,
     "text (the default) or jsonl: one JSON object a line, for programs"},
    {Opt::Check, "check", "", false,
     "check the RDF and print every problem as FILE:LINE: error|warning: ...; with --report, "
     "also how the RDF meets that report"},
    {Opt::Batch, "batch", "", false,
     "convert every REPORT given after the options (files, folders, quoted globs), each with "
     "its RDF, on several threads; a table of results at the end"},
    {Opt::Jobs, "jobs", "N", false, "--batch: reports converted at once (default: one a core)"},
    {Opt::OutputDir, "output-dir", "DIR", false,
     "--batch: where the outputs go (default: beside each report)"},
    {Opt::To, "to", ".csv|.txt|.xls|.xlsx", false,
     "--batch: the output type (default: the opfmt setting)"},
    {Opt::RdfDir, "rdf-dir", "DIR", false,
     "--batch: the RDF folder: auto-find looks for each report's RDF there, and a report it "
     "gives none for gets the RDF of DIR that identifies it (its RID rules and the program "
     "line pfset names)"},
    {Opt::Manifest, "manifest", "FILE", false,
     "--batch, --merge-manifests: the results as JSON Lines, one object a report"},
    {Opt::SkipExisting, "skip-existing", "", false,
     "--batch: leave a report whose output exists (--overwrite replaces it)"},
    {Opt::Recursive, "recursive", "", false, "--batch: a folder's subfolders too"},
    {Opt::MergeManifests, "merge-manifests", "", false,
     "join the manifest FILEs given after the options (batches run apart) into one table"},
    {Opt::Help, "help", "", false, "show this help and exit"},
    {Opt::Version, "version", "", false, "show the version and exit"},
}};

const OptionInfo* Find(std::string_view name) {
  for (const OptionInfo& o : kOptions) {
    if (o.name == name) return &o;
  }
  return nullptr;
}

// A value left out, or given empty (--rdf ""), which would otherwise read as no option.
UsageError NeedsValue(const OptionInfo& option) {
  const std::string name = "--" + std::string(option.name);
  if (option.valueName == "FILE") return UsageError(name + " needs a file name");
  if (option.valueName == "DIR") return UsageError(name + " needs a folder name");
  return UsageError(name + " needs a value: " + std::string(option.valueName));
}

}  // namespace

std::span<const OptionInfo> Options() {
  return kOptions;
}

std::optional<std::string> ParsedOptions::value(Opt o) const {
  auto it = values_.find(o);
  if (it == values_.end() || it->second.empty()) return std::nullopt;
  return it->second.front();
}

const std::vector<std::string>& ParsedOptions::values(Opt o) const {
  static const std::vector<std::string> kNone;
  auto it = values_.find(o);
  return it == values_.end() ? kNone : it->second;
}

ParsedOptions ParseCommandLine(std::span<const char* const> args) {
  ParsedOptions parsed;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string_view arg = args[i];
    if (arg == "--") {  // the end of the options: a report may be named "--x.txt"
      parsed.positional.insert(parsed.positional.end(), args.begin() + i + 1, args.end());
      break;
    }
    if (arg.substr(0, 2) != "--") {
      parsed.positional.emplace_back(arg);
      continue;
    }
    arg.remove_prefix(2);
    std::optional<std::string> inlineValue;
    if (size_t eq = arg.find('='); eq != std::string_view::npos) {
      inlineValue = std::string(arg.substr(eq + 1));
      arg = arg.substr(0, eq);
    }
    const OptionInfo* option = Find(arg);
    if (!option) throw UsageError("unknown option '--" + std::string(arg) + "'");
    auto& slot = parsed.values_[option->id];
    if (!slot.empty() && !option->repeatable) {
      throw UsageError("--" + std::string(option->name) + " is given more than once");
    }
    if (option->valueName.empty()) {
      if (inlineValue) throw UsageError("--" + std::string(option->name) + " takes no value");
      slot.emplace_back();
      continue;
    }
    if (!inlineValue) {
      if (i + 1 >= args.size()) throw NeedsValue(*option);
      inlineValue = args[++i];
    }
    if (inlineValue->empty()) throw NeedsValue(*option);
    slot.push_back(std::move(*inlineValue));
  }
  return parsed;
}

std::string HelpText() {
  std::string s =
      "qbconvert: turns a printed business report into rows of data, as its Report\n"
      "Description File (RDF) says.\n\n"
      "Usage:\n"
      "  qbconvert --report FILE [--rdf FILE] --output FILE [options]\n"
      "  qbconvert --report FILE [--rdf FILE] [--output FILE] --trace [--lines FROM-TO]\n"
      "            [--unmatched] [--trace-format text|jsonl]\n"
      "  qbconvert --check --rdf FILE [--report FILE] [--set KEY=VALUE]...\n"
      "  qbconvert --batch [--jobs N] [--output-dir DIR] [--to TYPE] [--rdf FILE | --rdf-dir DIR]\n"
      "            [--manifest FILE] [--overwrite | --skip-existing] [--recursive] [--]\n"
      "            REPORT...\n"
      "  qbconvert --merge-manifests [--manifest FILE] [--] MANIFEST...\n"
      "  qbconvert --rdf FILE [--report FILE] --list-fields\n"
      "  qbconvert --rdf FILE [--report FILE] --save-rdf FILE [--overwrite] [--set KEY=VALUE]...\n"
      "            [--fields N,...]\n"
      "  qbconvert [--home DIR]          check the program folder and show its settings\n"
      "  qbconvert --help | --version\n\n"
      "Options:\n";
  for (const OptionInfo& o : kOptions) {
    std::string left = "  --" + std::string(o.name);
    if (!o.valueName.empty()) left += " " + std::string(o.valueName);
    if (left.size() < 24)
      left.append(24 - left.size(), ' ');
    else
      left += "\n" + std::string(24, ' ');
    s += left + std::string(o.help) + "\n";
    if (o.id == Opt::Set) {
      const std::string indent(24, ' ');
      s += indent + "encodings: " + EncodingNames() + "\n";
      s += indent +
           "rmode: the buffer mode of .xls output (6, the default, builds the workbook from a "
           "work file at the end)\n";
    }
  }
  s += "\nExit status: 0 done, 1 the run or the RDF failed (standard error says why; for\n"
       "--check: the RDF has errors), 2 a usage error, 3 completed, but report lines were\n"
       "dropped (or no line matched a marker; standard error says which), 130 cancelled\n"
       "with Ctrl-C (the rows so far are kept). --batch: 0 every report converted cleanly,\n"
       "3 some dropped lines or matched nothing, 1 any failed, 130 cancelled (the outputs\n"
       "finished before are kept).\n";
  return s;
}

}  // namespace qb::cli
