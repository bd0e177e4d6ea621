#include "settings/settings_store.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "base/bytes.h"
#include "base/errors.h"
#include "settings/profile_file.h"

namespace qb {
namespace {

constexpr size_t kMaxValueLength = 199;  // the profile reader's 200-character buffer

constexpr std::array<SettingDefinition, kKeyCount> kDefinitions{{
    {Key::rptdir, "qbpaths", "rptdir", ""},
    {Key::rdfdir, "qbpaths", "rdfdir", ""},
    {Key::outdir, "qbpaths", "outdir", ""},
    {Key::logdir, "qbpaths", "logdir", ""},
    {Key::pfset, "qbdefaults", "pfset", "Default - By Filename,0,1,1,."},
    {Key::tqswt, "qbdefaults", "tqswt", "0"},
    {Key::textq, "qbdefaults", "textq", "\""},
    {Key::delim, "qbdefaults", "delim", "|"},
    {Key::opfmt, "qbdefaults", "opfmt", ".txt"},
    {Key::rtype, "qbdefaults", "rtype", "All Records"},
    {Key::rmode, "qbdefaults", "rmode", "6"},
    {Key::exswt, "qbdefaults", "exswt", "1"},
    {Key::lmeth, "qbdefaults", "lmeth", "1"},
    {Key::encoding, "qbdefaults", "encoding", "", true},
    {Key::bom, "qbdefaults", "bom", "0", true},
    {Key::asa, "qbdefaults", "asa", "", true},
    {Key::reclen, "qbdefaults", "reclen", "0", true},
}};

bool IsFolder(Key key) {
  return key == Key::rptdir || key == Key::rdfdir || key == Key::outdir || key == Key::logdir;
}
constexpr bool InKeyOrder() {
  for (size_t i = 0; i < kDefinitions.size(); ++i) {
    if (static_cast<size_t>(kDefinitions[i].key) != i) return false;
  }
  return true;
}
static_assert(InKeyOrder(), "kDefinitions lists the settings in the order of Key");

bool WriteKeys(const clsKeys& settings, std::span<const std::string_view> names,
               const std::filesystem::path& file, std::string* why) {
  try {
    for (std::string_view name : names) {
      const clsKey& key = settings.ItemNamed(name);
      WriteProfileString(file, key.Section, key.Name, key.Value);
    }
    return true;
  } catch (const QbError& e) {
    // The settings procedures end quietly; the caller sees false and tells the user.
    if (why) *why = e.description();
    return false;
  }
}

}  // namespace

clsKey& clsKeys::Add(std::string name, std::string value, std::string section) {
  if (indexOf(name) >= 0) throw QbError::Runtime(kDuplicateKey, "clsKeys");
  keys_.emplace_back(std::move(name), std::move(value), std::move(section));
  return keys_.back();
}

int clsKeys::indexOf(std::string_view name) const {
  for (size_t i = 0; i < keys_.size(); ++i) {
    if (EqualsNoCase(keys_[i].Name, name)) return static_cast<int>(i);
  }
  return -1;
}

void clsKeys::Remove(int position) {
  Item(position);  // validates
  keys_.erase(keys_.begin() + (position - 1));
}

void clsKeys::Remove(std::string_view name) {
  int i = indexOf(name);
  if (i < 0) throw QbError::Runtime(kInvalidCall, "clsKeys");
  keys_.erase(keys_.begin() + i);
}

clsKey& clsKeys::Item(int position) {
  return const_cast<clsKey&>(std::as_const(*this).Item(position));
}

const clsKey& clsKeys::Item(int position) const {
  if (position < 1 || position > static_cast<int>(keys_.size())) {
    throw QbError::Runtime(kSubscript, "clsKeys");
  }
  return keys_[static_cast<size_t>(position - 1)];
}

clsKey& clsKeys::ItemNamed(std::string_view name) {
  return const_cast<clsKey&>(std::as_const(*this).ItemNamed(name));
}

const clsKey& clsKeys::ItemNamed(std::string_view name) const {
  int i = indexOf(name);
  if (i < 0)
    throw QbError(kInvalidCall, "clsKeys", "No setting named \"" + std::string(name) + "\"");
  return keys_[static_cast<size_t>(i)];
}

std::string_view KeyName(Key key) {
  return kDefinitions[static_cast<size_t>(key)].name;
}

std::optional<Key> KeyNamed(std::string_view name) {
  for (const SettingDefinition& d : kDefinitions) {
    if (EqualsNoCase(d.name, name)) return d.key;
  }
  return std::nullopt;
}

std::span<const SettingDefinition> SettingDefinitions() {
  return kDefinitions;
}

std::string DefaultFolder() {
#ifdef _WIN32
  return "C:\\";
#else
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
#endif
}

clsKeys LoadSettings(const std::filesystem::path& programFolder, std::string_view fileName) {
  const std::filesystem::path file =
      fileName.empty() ? std::filesystem::path() : programFolder / fileName;
  const std::string home = DefaultFolder();
  const std::string out = (programFolder / kOutSubfolder).string();
  const std::string log = (programFolder / kLogSubfolder).string();
  clsKeys keys;
  for (const SettingDefinition& d : kDefinitions) {
    std::string_view def = d.defaultValue;
    if (d.key == Key::outdir)
      def = out;
    else if (d.key == Key::logdir)
      def = log;
    else if (IsFolder(d.key))
      def = home;
    keys.Add(std::string(d.name), ReadProfileString(file, d.section, d.name, def, kMaxValueLength),
             std::string(d.section));
  }
  return keys;
}

bool SaveAllSettings(const clsKeys& settings, const std::filesystem::path& programFolder,
                     std::string_view fileName, std::string* why) {
  if (fileName.empty()) {
    if (why) *why = "No settings file name";
    return false;
  }
  std::vector<std::string_view> names;
  for (const clsKey& k : settings) {
    const std::optional<Key> key = KeyNamed(k.Name);
    if (key && kDefinitions[static_cast<size_t>(*key)].writtenWhenSet &&
        k.Value == kDefinitions[static_cast<size_t>(*key)].defaultValue) {
      continue;
    }
    names.push_back(k.Name);
  }
  return WriteKeys(settings, names, programFolder / fileName, why);
}

bool SaveOptions(const clsKeys& settings, bool saveFolders,
                 const std::filesystem::path& programFolder, std::string_view fileName,
                 std::string* why) {
  if (fileName.empty()) {
    if (why) *why = "No settings file name";
    return false;
  }
  static constexpr std::array<Key, 5> kOptionKeys{Key::pfset, Key::rmode, Key::lmeth, Key::rdfdir,
                                                  Key::rptdir};
  std::vector<std::string_view> names;
  for (Key k : std::span(kOptionKeys).first(saveFolders ? 5 : 3)) names.push_back(KeyName(k));
  return WriteKeys(settings, names, programFolder / fileName, why);
}

}  // namespace qb
