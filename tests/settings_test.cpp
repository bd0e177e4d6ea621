// The settings file, the settings store, the log, the systems list and start-up.

#include <gtest/gtest.h>

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

TEST(SettingsStore, LoadsThirteenKeysWithDefaultsInOrder) {
  TempDir dir;
  clsKeys s = LoadSettings(dir.path(), kSettingsFileName);
  ASSERT_EQ(s.Count(), 13);
  const char* names[] = {"rptdir", "rdfdir", "outdir", "logdir", "pfset", "tqswt", "textq",
                         "delim",  "opfmt",  "rtype",  "rmode",  "exswt", "lmeth"};
  for (int i = 0; i < 13; ++i) EXPECT_EQ(s.Item(i + 1).Name, names[i]);
  EXPECT_EQ(s.Item(1).Section, "qbpaths");
  EXPECT_EQ(s.Item(5).Section, "qbdefaults");
  EXPECT_EQ(s[Key::rptdir], DefaultFolder());
  EXPECT_EQ(s[Key::pfset], "Default - By Filename,0,1,1,.");
  EXPECT_EQ(s[Key::textq], "\"");
  EXPECT_EQ(s[Key::delim], "|");
  EXPECT_EQ(s[Key::opfmt], ".txt");
  EXPECT_EQ(s[Key::rtype], "All Records");
  EXPECT_EQ(s[Key::rmode], "6");
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
  // A folder that cannot be written: false, and the caller goes on.
  EXPECT_FALSE(SaveAllSettings(s, dir / "missing", kSettingsFileName));
  EXPECT_FALSE(SaveAllSettings(s, dir.path(), ""));
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

TEST(RunLog, WritesAppendsAndReportsFailures) {
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

  // No log folder: the line is lost with a box that says why.
  RunLog broken(ui, dir / "nolog" / "qbuia.log", test::PinnedTime);
  broken.WriteLog("Quillbrook", "Started...");
  ASSERT_EQ(ui.messages.size(), 3u);
  EXPECT_EQ(ui.messages[2].text, "An error occurred while Writing To Log :\r76 - Path not found");
  EXPECT_FALSE(std::filesystem::exists(dir / "nolog"));
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

TEST_F(SystemsListTest, FirstBadEntryEndsTheReadingAndIsLogged) {
  struct Case {
    const char* text;
    int kept;
    int32_t error;
  } cases[] = {
      {"H\r\nA,1,1,1,.\r\nA,2,2,2,.\r\nC,1,1,1,.\r\n", 1, kDuplicateKey},
      {"H\r\nA,1,1,1,.\r\nB,1,1\r\nC,1,1,1,.\r\n", 1, kSubscript},
      {"H\r\nA,x,1,1,.\r\n", 0, kTypeMismatch},
      {"H\r\nA,1,1,1,.\r\nB,40000,1,1,.\r\n", 1, kOverflow},
  };
  for (const Case& c : cases) {
    ui_.messages.clear();
    std::filesystem::remove(dir_ / "qbuia.log");
    EXPECT_EQ(Read(c.text).Count(), c.kept) << c.text;
    ASSERT_EQ(ui_.messages.size(), 1u) << c.text;
    EXPECT_EQ(ui_.messages[0].text.substr(0, 7 + std::to_string(c.error).size()),
              "Error: " + std::to_string(c.error));
    EXPECT_EQ(ReadFile(dir_ / "qbuia.log").substr(16, 11), "ReadSystems") << c.text;
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

}  // namespace
}  // namespace qb
