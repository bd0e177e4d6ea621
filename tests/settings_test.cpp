// The settings file, the settings store, the log, the systems list and start-up.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <optional>

#include "base/bytes.h"
#include "base/errors.h"
#include "settings/application.h"
#include "settings/profile_file.h"
#include "settings/run_log.h"
#include "settings/settings_store.h"
#include "settings/systems_list.h"
#include "tests/test_support.h"

namespace qb {
namespace {

using test::ReadFile;
using test::RecordingUI;
using test::TempDir;
using test::WriteFile;

constexpr char kHandEdited[] =
    "; Quillbrook settings, edited by hand\n"
    "[QBPaths]\n"
    "RptDir = /data/reports   \n"
    "rdfdir=/data/rdf\n"
    "\n"
    "[qbdefaults]\n"
    "; delimiter for .txt output\n"
    "delim=;\n"
    "empty=\n"
    "textq=\"\n"
    "quoted=\"a b\"\n"
    "\n"
    "[other]\n"
    "delim=ignored\n";

// Trim works eight characters at a time; it must agree with the plain definition for every
// count of blanks around and inside a value, tabs and other bytes being data.
TEST(Text, TrimRemovesBlanksOnlyAtTheEnds) {
  auto plainRight = [](std::string_view s) {
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
  };
  auto plain = [&](std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    return plainRight(s);
  };
  for (std::string_view body : {"", "a", "a b", "1,234.50CR", "\tx\t", "12345678", "x       y"}) {
    for (size_t before = 0; before <= 17; ++before) {
      for (size_t after = 0; after <= 17; ++after) {
        const std::string s =
            std::string(before, ' ') + std::string(body) + std::string(after, ' ');
        EXPECT_EQ(Trim(s), plain(s)) << '"' << s << '"';
        EXPECT_EQ(TrimRight(s), plainRight(s)) << '"' << s << '"';
      }
    }
  }
}

TEST(ProfileFile, ReadsLikeTheWindowsProfileApi) {
  TempDir dir;
  const auto ini = dir / "qbcfg.ini";
  WriteFile(ini, kHandEdited);

  // Sections and keys match without regard to case; blanks around the value are trimmed.
  EXPECT_EQ(ReadProfileString(ini, "qbpaths", "rptdir", "x", 199), "/data/reports");
  EXPECT_EQ(ReadProfileString(ini, "QBDEFAULTS", "DELIM", "x", 199), ";");
  // Quotes stay; an empty value is "" and not the default.
  EXPECT_EQ(ReadProfileString(ini, "qbdefaults", "textq", "x", 199), "\"");
  EXPECT_EQ(ReadProfileString(ini, "qbdefaults", "quoted", "x", 199), "\"a b\"");
  EXPECT_EQ(ReadProfileString(ini, "qbdefaults", "empty", "x", 199), "");
  // A key of another section, a missing key, section or file give the default.
  EXPECT_EQ(ReadProfileString(ini, "qbpaths", "delim", "dflt", 199), "dflt");
  EXPECT_EQ(ReadProfileString(ini, "nosection", "delim", "dflt", 199), "dflt");
  EXPECT_EQ(ReadProfileString(dir / "missing.ini", "a", "b", "dflt", 199), "dflt");
  EXPECT_FALSE(std::filesystem::exists(dir / "missing.ini"));
  // A comment is never a key.
  EXPECT_EQ(ReadProfileString(ini, "qbdefaults", "; delimiter for .txt output", "d", 199), "d");
  // Values are cut to the reader's length.
  WriteFile(ini, "[s]\nk=" + std::string(250, 'v') + "\n");
  EXPECT_EQ(ReadProfileString(ini, "s", "k", "", 199), std::string(199, 'v'));
  // There is no registry store behind an empty name.
  EXPECT_THROW(ReadProfileString("", "s", "k", "", 199), QbError);
}

TEST(ProfileFile, WritingOneKeyKeepsEveryOtherLine) {
  TempDir dir;
  const auto ini = dir / "qbcfg.ini";
  WriteFile(ini, kHandEdited);

  WriteProfileString(ini, "QBDEFAULTS", "Delim", "tab");      // replaced in place
  WriteProfileString(ini, "qbpaths", "outdir", "/data/out");  // appended to its section
  WriteProfileString(ini, "qbnew", "k", "v");                 // new section at the end

  EXPECT_EQ(ReadFile(ini),
            "; Quillbrook settings, edited by hand\r\n"
            "[QBPaths]\r\n"
            "RptDir = /data/reports   \r\n"
            "rdfdir=/data/rdf\r\n"
            "outdir=/data/out\r\n"
            "\r\n"
            "[qbdefaults]\r\n"
            "; delimiter for .txt output\r\n"
            "Delim=tab\r\n"
            "empty=\r\n"
            "textq=\"\r\n"
            "quoted=\"a b\"\r\n"
            "\r\n"
            "[other]\r\n"
            "delim=ignored\r\n"
            "[qbnew]\r\n"
            "k=v\r\n");
  // No temporary file is left beside it.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);

  // The first write creates the file.
  WriteProfileString(dir / "new.ini", "qbdefaults", "textq", "\"");
  EXPECT_EQ(ReadFile(dir / "new.ini"), "[qbdefaults]\r\ntextq=\"\r\n");
  EXPECT_EQ(ReadProfileString(dir / "new.ini", "qbdefaults", "textq", "x", 199), "\"");

  // A folder that does not exist is an error naming the path, and nothing is written.
  try {
    WriteProfileString(dir / "nofolder" / "q.ini", "s", "k", "v");
    FAIL() << "expected an error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kPathNotFound);
    EXPECT_NE(e.describe().find("nofolder"), std::string::npos);
  }
}

TEST(SettingsStore, LoadsEveryKeyWithItsDefaultInOrder) {
  TempDir dir;
  clsKeys s = LoadSettings(dir.path(), kSettingsFileName);
  ASSERT_EQ(s.Count(), 17);
  const char* names[] = {"rptdir", "rdfdir",   "outdir", "logdir", "pfset", "tqswt",
                         "textq",  "delim",    "opfmt",  "rtype",  "rmode", "exswt",
                         "lmeth",  "encoding", "bom",    "asa",    "reclen"};
  for (int i = 0; i < 17; ++i) EXPECT_EQ(s.Item(i + 1).Name, names[i]);
  EXPECT_EQ(s.Item(1).Section, "qbpaths");
  EXPECT_EQ(s.Item(5).Section, "qbdefaults");
  // Reports and RDFs are looked for at home; what the program writes (work files) and
  // deletes (per-report logs) stays in its own folder.
  EXPECT_EQ(s[Key::rptdir], DefaultFolder());
  EXPECT_EQ(s[Key::rdfdir], DefaultFolder());
  EXPECT_EQ(s[Key::outdir], (dir / "out").string());
  EXPECT_EQ(s[Key::logdir], (dir / "log").string());
  EXPECT_FALSE(std::filesystem::exists(dir / "out"));
  EXPECT_FALSE(std::filesystem::exists(dir / "log"));
  EXPECT_EQ(s[Key::pfset], "Default - By Filename,0,1,1,.");
  EXPECT_EQ(s[Key::textq], "\"");
  EXPECT_EQ(s[Key::delim], "|");
  EXPECT_EQ(s[Key::opfmt], ".txt");
  EXPECT_EQ(s[Key::rtype], "All Records");
  EXPECT_EQ(s[Key::rmode], "6");
  EXPECT_EQ(s[Key::encoding], "");
  EXPECT_EQ(s[Key::bom], "0");
  EXPECT_FALSE(std::filesystem::exists(dir / "qbcfg.ini"));

  // File values win; a value over 199 characters is cut.
  WriteFile(dir / "qbcfg.ini",
            "[qbdefaults]\r\ndelim=,\r\n[qbpaths]\r\nrptdir=" + std::string(300, 'p') + "\r\n");
  s = LoadSettings(dir.path(), kSettingsFileName);
  EXPECT_EQ(s[Key::delim], ",");
  EXPECT_EQ(s[Key::rptdir], std::string(199, 'p'));
}

TEST(SettingsStore, KeysAreUniqueAndAddressable) {
  clsKeys keys;
  keys.Add("rptdir", "/a", "qbpaths");
  keys.Add("delim", "|", "qbdefaults");
  EXPECT_THROW(keys.Add("DELIM", ",", "qbdefaults"), QbError);
  EXPECT_EQ(keys.Count(), 2);
  EXPECT_EQ(keys.Item(2).Value, "|");
  EXPECT_EQ(keys.ItemNamed("Delim").Value, "|");
  keys.Item(Key::delim).Value = "tab";
  EXPECT_EQ(keys[Key::delim], "tab");
  EXPECT_THROW(keys.Item(3), QbError);
  EXPECT_THROW(keys.ItemNamed("nokey"), QbError);
  keys.Remove(1);
  EXPECT_EQ(keys.Item(1).Name, "delim");
  keys.Remove("delim");
  EXPECT_EQ(keys.Count(), 0);
}

TEST(SettingsStore, SaveOptionsWritesOnlyItsThreeKeys) {
  TempDir dir;
  WriteFile(dir / "qbcfg.ini",
            "[qbpaths]\r\nrptdir=/file/reports\r\n[qbdefaults]\r\n; keep me\r\ndelim=;\r\n"
            "rmode=3\r\n");
  clsKeys s = LoadSettings(dir.path(), kSettingsFileName);
  s.Item(Key::rptdir).Value = "/memory/reports";  // changed in memory only
  s.Item(Key::delim).Value = "tab";
  s.Item(Key::pfset).Value = "Harbor Payroll,1,100,10,-";
  s.Item(Key::rmode).Value = "0";
  s.Item(Key::lmeth).Value = "3";
  ASSERT_TRUE(SaveOptions(s, false, dir.path(), kSettingsFileName));

  EXPECT_EQ(ReadFile(dir / "qbcfg.ini"),
            "[qbpaths]\r\nrptdir=/file/reports\r\n[qbdefaults]\r\n; keep me\r\ndelim=;\r\n"
            "rmode=0\r\npfset=Harbor Payroll,1,100,10,-\r\nlmeth=3\r\n");

  // With the folders, rdfdir and rptdir follow.
  ASSERT_TRUE(SaveOptions(s, true, dir.path(), kSettingsFileName));
  EXPECT_EQ(LoadSettings(dir.path(), kSettingsFileName)[Key::rptdir], "/memory/reports");
  EXPECT_EQ(LoadSettings(dir.path(), kSettingsFileName)[Key::delim], ";");
}

TEST(SettingsStore, SaveAllWritesEveryKeyUnderItsSection) {
  TempDir dir;
  clsKeys s = LoadSettings(dir.path(), kSettingsFileName);
  s.Item(Key::textq).Value = "\"";
  s.Item(Key::delim).Value = ",";
  ASSERT_TRUE(SaveAllSettings(s, dir.path(), kSettingsFileName));
  clsKeys back = LoadSettings(dir.path(), kSettingsFileName);
  for (int i = 1; i <= 13; ++i) {
    EXPECT_EQ(
        ReadProfileString(dir / "qbcfg.ini", s.Item(i).Section, s.Item(i).Name, "<none>", 199),
        s.Item(i).Value);
    EXPECT_EQ(back.Item(i).Value, s.Item(i).Value);
  }
  // The encoding's settings are written only once they are set, so a file that never used
  // them stays as it was.
  EXPECT_EQ(ReadFile(dir / "qbcfg.ini").find("encoding"), std::string::npos);
  s.Item(Key::encoding).Value = "utf-8";
  ASSERT_TRUE(SaveAllSettings(s, dir.path(), kSettingsFileName));
  EXPECT_EQ(LoadSettings(dir.path(), kSettingsFileName)[Key::encoding], "utf-8");
  EXPECT_EQ(ReadFile(dir / "qbcfg.ini").find("bom="), std::string::npos);
  // A folder that cannot be written: false with the reason, and the caller goes on.
  std::string why;
  EXPECT_FALSE(SaveAllSettings(s, dir / "missing", kSettingsFileName, &why));
  EXPECT_EQ(why, "Path not found");
  EXPECT_FALSE(SaveAllSettings(s, dir.path(), ""));
  // A folder where the file should be: it cannot be replaced.
  std::filesystem::remove(dir / "qbcfg.ini");
  std::filesystem::create_directory(dir / "qbcfg.ini");
  why.clear();
  EXPECT_FALSE(SaveOptions(s, false, dir.path(), kSettingsFileName, &why));
  EXPECT_EQ(why, "Path/File access error");
}

TEST(RunLog, LinesHaveTheFixedLayout) {
  const auto t = test::PinnedTime();
  EXPECT_EQ(RunLog::FormatLine(t, "Quillbrook", "Started..."),
            "11/15/09 14:05  Quillbrook            --- Started...");
  std::string longSource = RunLog::FormatLine(t, "AVeryLongProcedureNameIndeed", "m");
  std::string shortSource = RunLog::FormatLine(t, "P", "m");
  for (const std::string& line : {longSource, shortSource}) {
    EXPECT_EQ(line.substr(38, 3), "---") << line;  // columns 39 to 41
  }
  EXPECT_EQ(longSource.substr(16, 20), "AVeryLongProcedureNa");
}

TEST(RunLog, WritesAppendsAndShowsErrors) {
  TempDir dir;
  RecordingUI ui;
  std::filesystem::create_directory(dir / "log");
  RunLog log(ui, dir / "log" / "qbuia.log", test::PinnedTime);
  log.WriteLog("Quillbrook", "Started...");
  log.LogError("ResetForm", 513, "Autofind Settings File Does not Exist ", log.AppLogFile());
  EXPECT_EQ(ReadFile(log.AppLogFile()),
            "11/15/09 14:05  Quillbrook            --- Started...\r\n"
            "11/15/09 14:05  ResetForm             --- Error: 513  Autofind Settings File Does "
            "not Exist \r\n");
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "Error: 513\rAutofind Settings File Does not Exist ");
  EXPECT_EQ(ui.messages[0].title, "Quillbrook");
  EXPECT_EQ(ui.messages[0].icon, MessageIcon::Exclamation);

  // An empty path: the box, no line.
  log.LogError("X", 5, "d", "");
  EXPECT_EQ(ui.messages.size(), 2u);
  EXPECT_EQ(test::ReadLines(log.AppLogFile()).size(), 2u);
}

// A log that cannot be written fails at every line: the box says why and names the file the
// first time, and the log (and its copies, the same log) then loses its lines quietly. Another
// file it cannot write is told of in its turn.
TEST(RunLog, AFileThatCannotBeWrittenIsToldOfOnce) {
  TempDir dir;
  RecordingUI ui;
  RunLog broken(ui, dir / "nolog" / "qbuia.log", test::PinnedTime);
  broken.WriteLog("Quillbrook", "Started...");
  broken.WriteLog("Quillbrook", "Closed...");
  RunLog(broken, ui).WriteLog("Job", "Start");
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "An error occurred while Writing To Log :\r76 - Path not found\r" +
                                     (dir / "nolog" / "qbuia.log").string());
  broken.LogError("X", 5, "d", dir / "nolog" / "report.log");
  broken.LogError("X", 5, "d", dir / "nolog" / "report.log");
  ASSERT_EQ(ui.messages.size(), 4u);  // each error's own box, and the new file's failure once
  EXPECT_EQ(ui.messages[2].text, "An error occurred while Writing To Log :\r76 - Path not found\r" +
                                     (dir / "nolog" / "report.log").string());
  EXPECT_FALSE(std::filesystem::exists(dir / "nolog"));
  // A copy shares nothing with its original once made: each tells of a file that fails later.
  RunLog copy(broken, ui);
  broken.WriteLog(dir / "nolog" / "other.log", "X", "y");
  copy.WriteLog(dir / "nolog" / "other.log", "X", "y");
  EXPECT_EQ(ui.messages.size(), 6u);
}

// Puts a file-size limit on this process for the life of the guard, with SIGXFSZ ignored
// so that a write past it fails with EFBIG instead of ending the process.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    ::getrlimit(RLIMIT_FSIZE, &old_);
    oldHandler_ = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = old_;
    limit.rlim_cur = bytes;
    ok_ = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &old_);
    std::signal(SIGXFSZ, oldHandler_);
  }
  bool ok() const { return ok_; }

 private:
  rlimit old_{};
  void (*oldHandler_)(int) = nullptr;
  bool ok_ = false;
};

TEST(RunLog, EveryLineIsOneWholeEntry) {
  const auto t = test::PinnedTime();
  TempDir dir;
  RecordingUI ui;
  RunLog log(ui, dir / "qbuia.log", test::PinnedTime);

  // Line breaks inside a source or a message are shown, not written: an output name that
  // holds CR LF cannot put a line of its own into the log.
  log.WriteLog("Out\r\nput", "jan\r\n11/15/09 14:05  Forged                --- x\ry\n");
  EXPECT_EQ(ReadFile(log.AppLogFile()),
            "11/15/09 14:05  Out\\r\\nput            --- "
            "jan\\r\\n11/15/09 14:05  Forged                --- x\\ry\\n\r\n");
  EXPECT_EQ(RunLog::FormatLine(t, "A\rB", "C\nD"),
            "11/15/09 14:05  A\\rB                  --- C\\nD");

  // A full disk, as a file-size limit: entries are written until one does not fit. That
  // entry is lost whole, and what is logged after it starts a line of its own.
  std::vector<std::string> written = {RunLog::FormatLine(
      t, "Out\r\nput", "jan\r\n11/15/09 14:05  Forged                --- x\ry\n")};
  const auto entry = [](int i) { return "entry " + std::to_string(i) + std::string(30, 'x'); };
  const size_t entrySize = RunLog::FormatLine(t, "Filler", entry(0)).size() + 2;
  const auto before = std::filesystem::file_size(log.AppLogFile());
  {
    // Room for three entries and half of a fourth.
    FileSizeLimit limit(before + 3 * entrySize + entrySize / 2);
    ASSERT_TRUE(limit.ok());
    for (int i = 0; i < 6; ++i) {
      const auto size = std::filesystem::file_size(log.AppLogFile());
      log.WriteLog("Filler", entry(i));
      if (std::filesystem::file_size(log.AppLogFile()) != size)
        written.push_back(RunLog::FormatLine(t, "Filler", entry(i)));
    }
  }
  EXPECT_EQ(written.size(), 4u);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "An error occurred while Writing To Log :\r61 - Disk full\r" +
                                     log.AppLogFile().string());
  log.WriteLog("Quillbrook", "Closed...");
  written.push_back(RunLog::FormatLine(t, "Quillbrook", "Closed..."));

  std::string expected;
  for (const std::string& line : written) expected += line + "\r\n";
  EXPECT_EQ(ReadFile(log.AppLogFile()), expected);
}

class SystemsListTest : public ::testing::Test {
 protected:
  SystemsListTest() : log_(ui_, dir_ / "qbuia.log", test::PinnedTime) {}
  clsSystems Read(std::string_view text) {
    WriteFile(dir_ / "qbsys.txt", text);
    return clsSystems(dir_.path(), log_);
  }
  TempDir dir_;
  RecordingUI ui_;
  RunLog log_;
};

TEST_F(SystemsListTest, ReadsEntriesAfterTheHeading) {
  clsSystems s = Read("Heading\r\nDefault - By Filename,0,1,1,.\r\n\r\nLedger, 2 ,-5,8,\r\n");
  ASSERT_EQ(s.Count(), 2);
  EXPECT_EQ(s.Item(1).System, "Default - By Filename");
  EXPECT_EQ(s.Item(1).Row, 0);
  EXPECT_EQ(s.Item(1).Start, 1);
  EXPECT_EQ(s.Item(1).Length, 1);
  EXPECT_EQ(s.Item(1).Extension, ".");
  EXPECT_EQ(s.Item("ledger").Row, 2);
  EXPECT_EQ(s.Item(2).Start, -5);
  EXPECT_EQ(s.Item(2).PfsetText(), "Ledger,2,-5,8,");
  EXPECT_TRUE(ui_.messages.empty());

  EXPECT_EQ(Read("Heading only\r\n").Count(), 0);
  EXPECT_EQ(Read("Heading only, no line end").Count(), 0);
  // The last entry without its line end is never read; LF alone is no line end.
  EXPECT_EQ(Read("H\r\nA,1,1,1,.\r\nB,1,1,1,.").Count(), 1);
  EXPECT_EQ(Read("H\nA,1,1,1,.\nB,1,1,1,.\n").Count(), 0);
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(SystemsListTest, FirstBadEntryEndsTheReadingAndNamesFileLineAndReason) {
  const std::string file = (dir_ / "qbsys.txt").string();
  struct Case {
    const char* text;
    int kept;
    int32_t error;
    int64_t line;
    std::string reason;  // the line after the runtime's text
  } cases[] = {
      {"H\r\nA,1,1,1,.\r\na,2,2,2,.\r\nC,1,1,1,.\r\n", 1, kDuplicateKey, 3,
       file + " line 3: the system \"a\" is listed twice (first on line 2)"},
      {"H\r\nA,1,1,1,.\r\n\r\nB,1,1\r\nC,1,1,1,.\r\n", 1, kSubscript, 4,
       file + " line 4 has 3 fields; a system entry needs 5: name, row, start, length, end marker"},
      {"H\r\nA,x,1,1,.\r\n", 0, kTypeMismatch, 2,
       file + " line 2: the row (field 2) \"x\" is not a whole number"},
      {"H\r\nA,1,1,,.\r\n", 0, kTypeMismatch, 2,
       file + " line 2: the length (field 4) \"\" is not a whole number"},
      {"H\r\nA,1,1,1,.\r\nB,1,40000,1,.\r\n", 1, kOverflow, 3,
       file + " line 3: the start (field 3) 40000 is outside -32768 to 32767"},
  };
  for (const Case& c : cases) {
    ui_.messages.clear();
    std::filesystem::remove(dir_ / "qbuia.log");
    EXPECT_EQ(Read(c.text).Count(), c.kept) << c.text;
    // The box keeps the number and the runtime's text, and says where and what on a line of
    // its own.
    const std::string shown = "Error: " + std::to_string(c.error) + "\r" +
                              std::string(RuntimeErrorText(c.error)) + "\r" + c.reason;
    ASSERT_EQ(ui_.messages.size(), 1u) << c.text;
    EXPECT_EQ(ui_.messages[0].text, shown);
    // The log has the same as one entry.
    const std::vector<std::string> lines = test::ReadLines(dir_ / "qbuia.log");
    ASSERT_EQ(lines.size(), 1u) << c.text;
    EXPECT_EQ(lines[0],
              RunLog::FormatLine(test::PinnedTime(), "ReadSystems",
                                 "Error: " + std::to_string(c.error) + "  " +
                                     std::string(RuntimeErrorText(c.error)) + "\r" + c.reason));
  }

  // A list that cannot be read says which file.
  std::filesystem::remove(dir_ / "qbsys.txt");
  ui_.messages.clear();
  EXPECT_EQ(clsSystems(dir_.path(), log_).Count(), 0);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, "Error: 53\rFile not found\r" + file + " cannot be read");

  // The "pfset" setting holds one entry; its errors name the field too.
  try {
    ParseSystemEntry("Ledger,1,one,8, ", "LoadRDF");
    FAIL() << "expected an error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.number(), kTypeMismatch);
    EXPECT_EQ(e.source(), "LoadRDF");
    EXPECT_EQ(e.description(),
              "Type mismatch\rthe system entry \"Ledger,1,one,8, \": the start "
              "(field 3) \"one\" is not a whole number");
  }
}

TEST(Application, StartUpNeedsTheSystemsList) {
  TempDir dir;
  RecordingUI ui;
  std::filesystem::create_directory(dir / "log");
  Application app(dir.path(), ui, test::PinnedTime);
  EXPECT_FALSE(app.ResetForm());
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "Error: 513\rAutofind Settings File Does not Exist ");
  EXPECT_EQ(ReadFile(dir / "log" / "qbuia.log"),
            "11/15/09 14:05  ResetForm             --- Error: 513  Autofind Settings File Does "
            "not Exist \r\n");

  WriteFile(dir / "qbsys.txt", "H\r\nLedger,1,1,8, \r\n");
  WriteFile(dir / "qbcfg.ini",
            "[qbdefaults]\r\ndelim=tab\r\n[qbpaths]\r\nlogdir=" + dir.path().string() + "\r\n");
  ASSERT_TRUE(app.ResetForm());
  EXPECT_EQ(app.Settings[Key::delim], "tab");
  EXPECT_EQ(app.SavedSettings[Key::delim], "tab");
  EXPECT_EQ(app.Systems.Count(), 1);
  app.Settings.Item(Key::delim).Value = ",";
  EXPECT_EQ(app.SavedSettings[Key::delim], "tab");  // a snapshot, not a view

  // Choosing a report clears its per-report log and writes nothing to it.
  WriteFile(dir / "ARAGING.log", "old");
  app.SetReportLogFile("/reports/ARAGING.prn");
  EXPECT_EQ(app.ReportLogFile(), dir / "ARAGING.log");
  EXPECT_FALSE(std::filesystem::exists(dir / "ARAGING.log"));
}

// Sets an environment variable for the life of the guard.
class EnvGuard {
 public:
  EnvGuard(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~EnvGuard() {
    if (old_)
      ::setenv(name_, old_->c_str(), 1);
    else
      ::unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// Changes the working folder for the life of the guard.
class WorkingFolderGuard {
 public:
  explicit WorkingFolderGuard(const std::filesystem::path& folder)
      : old_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~WorkingFolderGuard() { std::filesystem::current_path(old_); }

 private:
  std::filesystem::path old_;
};

TEST(Application, ChoosingAReportDeletesOnlyItsOwnLogInsideLogdir) {
  TempDir program, home, work;
  EnvGuard homeGuard("HOME", home.path().string());
  RecordingUI ui;
  std::filesystem::create_directory(program / "log");
  WriteFile(program / "qbsys.txt", "H\r\nLedger,1,1,8, \r\n");
  Application app(program.path(), ui, test::PinnedTime);
  ASSERT_TRUE(app.ResetForm());

  // With no settings file the per-report logs are the program's, never the user's files.
  WriteFile(home / "notes.log", "the user's own notes");
  WriteFile(program / "log" / "notes.log", "old");
  app.SetReportLogFile(home / "notes.txt");
  EXPECT_EQ(app.ReportLogFile(), program / "log" / "notes.log");
  EXPECT_FALSE(std::filesystem::exists(program / "log" / "notes.log"));
  EXPECT_EQ(ReadFile(home / "notes.log"), "the user's own notes");

  // Names that are no report's, and a folder of the log's name, are left alone.
  WriteFile(program / "log" / "...log", "kept");
  WriteFile(program / "log" / "..log", "kept");
  WriteFile(program / "log" / ".log", "kept");
  std::filesystem::create_directory(program / "log" / "folder.log");
  for (const char* report : {"/reports/..", "/reports/.", "/reports/", ""}) {
    app.SetReportLogFile(report);
    EXPECT_TRUE(app.ReportLogFile().empty()) << report;
  }
  app.SetReportLogFile("/reports/folder.txt");
  EXPECT_TRUE(std::filesystem::is_directory(program / "log" / "folder.log"));
  EXPECT_EQ(test::Files(program / "log"),
            (std::vector<std::string>{"...log", "..log", ".log", "folder.log"}));

  // An empty logdir is no folder: nothing in the working folder is deleted.
  app.Settings.Item(Key::logdir).Value = "";
  WriteFile(work / "notes.log", "kept");
  {
    WorkingFolderGuard inWork(work.path());
    app.SetReportLogFile("/reports/notes.txt");
  }
  EXPECT_TRUE(app.ReportLogFile().empty());
  EXPECT_EQ(ReadFile(work / "notes.log"), "kept");
}

}  // namespace
}  // namespace qb
