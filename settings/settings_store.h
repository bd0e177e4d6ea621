#pragma once
// The keyed settings store: string settings loaded from qbcfg.ini in the program folder,
// changed in memory by the front ends and written back only when the user saves. Thirteen
// have always been there; the report encoding's four came later and are written to the file
// only when they differ from their defaults, so a settings file that never used them stays
// as it was.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

// The settings, in load order. Code names a setting by one of these, so a misspelt
// key does not compile; the names in the settings file are KeyName's.
enum class Key : uint8_t {
  rptdir,  // the report picker's folder
  rdfdir,  // the RDF picker's folder, and where auto-find looks
  outdir,  // the output picker's folder, and where buffer mode 6 keeps its work file
  logdir,  // where per-report log files go (and are deleted when a report is chosen)
  pfset,   // the current source system entry
  tqswt,   // "1": text values between qualifiers
  textq,   // the text qualifier
  delim,   // the output delimiter ("tab" and "comma" as words)
  opfmt,   // the output type: ".txt", ".csv", ".xls" or ".xlsx"
  rtype,   // "All Records", "Details Only" or "Totals Only"
  rmode,   // the workbook's buffer mode, 0 to 6
  exswt,   // "1": open the workbook after the run
  lmeth,   // how the workbook is opened, 1 to 3
  // How the report is read.
  encoding,  // the report's encoding ("utf-8", "cp437", ...); empty: Windows-1252 or a BOM's
  bom,       // "1": a UTF-8 .txt or .csv output begins with a byte-order mark
  asa,       // "1": column 1 of a text report holds carriage-control characters
  reclen,    // an EBCDIC report of fixed-length records: their length; "0": lines end at NL
};
inline constexpr size_t kKeyCount = 17;

// The values of "rtype", which records a run writes.
inline constexpr std::string_view kRecordSelections[] = {"All Records", "Details Only",
                                                         "Totals Only"};

// The name of a setting in the settings file and in --set ("delim").
std::string_view KeyName(Key key);
// The setting of that name, without regard to case, or nothing.
std::optional<Key> KeyNamed(std::string_view name);

// One setting.
class clsKey {
 public:
  clsKey(std::string name, std::string value, std::string section)
      : Name(std::move(name)), Value(std::move(value)), Section(std::move(section)) {}
  std::string Name;
  std::string Value;
  std::string Section;  // "qbpaths" or "qbdefaults"
};

// An ordered collection of settings looked up by 1-based position or by name. Names are
// unique without regard to case, like the keys of the collection it replaces.
class clsKeys {
 public:
  int16_t Count() const { return static_cast<int16_t>(keys_.size()); }

  // Appends a key. Throws QbError 457 when the name is already present.
  clsKey& Add(std::string name, std::string value, std::string section);

  // Throws QbError 9 for a position outside 1..Count, 5 for an unknown name.
  void Remove(int position);
  void Remove(std::string_view name);
  clsKey& Item(int position);
  const clsKey& Item(int position) const;
  clsKey& Item(Key key) { return ItemNamed(KeyName(key)); }
  const clsKey& Item(Key key) const { return ItemNamed(KeyName(key)); }
  // By a name only known at run time (a settings file's key): throws QbError 5 when absent.
  clsKey& ItemNamed(std::string_view name);
  const clsKey& ItemNamed(std::string_view name) const;

  // The value of a setting, as every reader takes it.
  const std::string& operator[](Key key) const { return Item(key).Value; }

  auto begin() const { return keys_.begin(); }
  auto end() const { return keys_.end(); }

 private:
  int indexOf(std::string_view name) const;  // -1 when absent
  std::vector<clsKey> keys_;
};

// The settings in load order, with their sections and defaults.
struct SettingDefinition {
  Key key;
  std::string_view section;
  std::string_view name;
  // Empty for the four folders: see DefaultFolder, kOutSubfolder and kLogSubfolder.
  std::string_view defaultValue;
  // Written to the settings file only when it differs from the default.
  bool writtenWhenSet = false;
};
std::span<const SettingDefinition> SettingDefinitions();

// The default of "rptdir" and "rdfdir", where the user's reports and RDFs are looked for:
// the user's home directory ("C:\" on Windows).
std::string DefaultFolder();

// "outdir" and "logdir" default to these folders of the program folder, never to the home
// directory: the program writes work files there and deletes per-report logs from logdir,
// which must not touch the user's own files.
inline constexpr std::string_view kOutSubfolder = "out";
inline constexpr std::string_view kLogSubfolder = "log";

// The settings file name every caller passes.
inline constexpr std::string_view kSettingsFileName = "qbcfg.ini";

// Reads the settings from `fileName` in `programFolder`; missing keys take their
// defaults ("outdir" and "logdir" the program folder's out and log), values are cut to 199
// characters. Never creates the file or a folder.
clsKeys LoadSettings(const std::filesystem::path& programFolder, std::string_view fileName);

// Writes every key of `settings`, in order. False when the file could not be written; keys
// written before the failure stay written, and `why`, when given, gets the reason ("Path not
// found") for the caller's message.
bool SaveAllSettings(const clsKeys& settings, const std::filesystem::path& programFolder,
                     std::string_view fileName, std::string* why = nullptr);

// Writes "pfset", "rmode" and "lmeth", then "rdfdir" and "rptdir" when `saveFolders`.
bool SaveOptions(const clsKeys& settings, bool saveFolders,
                 const std::filesystem::path& programFolder, std::string_view fileName,
                 std::string* why = nullptr);

}  // namespace qb
