#pragma once
// The keyed settings store: thirteen string settings loaded from qbcfg.ini in the program
// folder, changed in memory by the front ends and written back only when the user saves.

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

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
  clsKey& Item(std::string_view name);
  const clsKey& Item(std::string_view name) const;

  // The value of a setting, as every reader takes it.
  const std::string& operator[](std::string_view name) const { return Item(name).Value; }

  auto begin() const { return keys_.begin(); }
  auto end() const { return keys_.end(); }

 private:
  int indexOf(std::string_view name) const;  // -1 when absent
  std::vector<clsKey> keys_;
};

// The thirteen settings in load order, with their sections and defaults.
struct SettingDefinition {
  std::string_view section;
  std::string_view name;
  std::string_view defaultValue;  // empty for the folders, which default to DefaultFolder()
};
std::span<const SettingDefinition> SettingDefinitions();

// The default of the four folder settings: the user's home directory ("C:\" on Windows).
std::string DefaultFolder();

// The settings file name every caller passes.
inline constexpr std::string_view kSettingsFileName = "qbcfg.ini";

// Reads the thirteen keys from `fileName` in `programFolder`; missing keys take their
// defaults, values are cut to 199 characters. Never creates the file.
clsKeys LoadSettings(const std::filesystem::path& programFolder, std::string_view fileName);

// Writes every key of `settings`, in order. False when the file could not be written; keys
// written before the failure stay written.
bool SaveAllSettings(const clsKeys& settings, const std::filesystem::path& programFolder,
                     std::string_view fileName);

// Writes "pfset", "rmode" and "lmeth", then "rdfdir" and "rptdir" when `saveFolders`.
bool SaveOptions(const clsKeys& settings, bool saveFolders,
                 const std::filesystem::path& programFolder, std::string_view fileName);

}  // namespace qb
