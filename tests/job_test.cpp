// The conversion job: every output type either appears whole or leaves the previous output
// as it was, and two jobs in one process share nothing they change.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <thread>

#include "output/spreadsheet.h"
#include "run/conversion_job.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::Count;
using test::Files;
using test::ReadFile;
using test::WriteFile;

constexpr std::string_view kRdf =
    "RDF 0001T Job@JOB\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\n"
    "DET,0,0,2,11,8,=,,\r\nFLD\r\n1,y,c,1,0,Number,\r\n2,y,n,2,0,Amount,\r\n";

// Each output type, as the settings choose it.
struct OutputKind {
  const char* name;
  const char* extension;
  const char* rmode;
};
constexpr OutputKind kKinds[] = {{"txt", ".txt", "6"},
                                 {"csv", ".csv", "6"},
                                 {"xls mode 0", ".xls", "0"},
                                 {"xls mode 3", ".xls", "3"},
                                 {"xls mode 6", ".xls", "6"}};

class ConversionJobTest : public test::EngineTest {
 protected:
  ConversionJobTest() {
    std::string report;
    for (int i = 0; i < kLines; ++i) {
      report += "D " + std::to_string(1000000 + i) + " " + std::to_string(i % 977) + ".25\r\n";
    }
    WriteFile(home_ / "r.txt", report);
    Rdf(kRdf);
    app_.Settings.Item(Key::outdir).Value = home_.path().string();
  }

  JobRequest Request(const OutputKind& kind) const {
    JobRequest r;
    r.report = home_ / "r.txt";
    r.rdf = home_ / "t.rdf";
    r.output = home_ / (std::string("out") + kind.extension);
    r.overrides = {{Key::rmode, kind.rmode}};
    return r;
  }

  // What the home folder should hold after any run: the inputs and one output.
  std::vector<std::string> Expected(const OutputKind& kind) const {
    return {"log", "out", std::string("out") + kind.extension, "qbsys.txt", "r.txt", "t.rdf"};
  }

  static constexpr int kLines = 40000;  // 40,000 rows fit one sheet and pass 256 KiB
};

TEST_F(ConversionJobTest, AFailedRunLeavesThePreviousOutputAndNoTemporaryFile) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  for (const OutputKind& kind : kKinds) {
    const auto output = home_ / (std::string("out") + kind.extension);
    WriteFile(output, "previous output");
    ConversionJob job(app_, ui_, Request(kind));
    ui_.answers = {true};
    ASSERT_EQ(job.Check(), RunDriver::Check::Ready) << kind.name;
    // The disk fills up half-way: at 256 KiB, every output here is larger than that.
    rlimit small = old;
    small.rlim_cur = 256 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool ok = job.Run();
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(ok) << kind.name;
    ASSERT_TRUE(job.LastError()) << kind.name;
    EXPECT_EQ(job.LastError()->number(), kDiskFull) << kind.name;
    // The error names a file the user knows: the output, or a work file in the run's folder,
    // not the descriptor an unnamed file is opened by.
    const std::string named = job.LastError()->file().string();
    EXPECT_TRUE(named == output.string() || named.starts_with((home_ / "out").string()))
        << kind.name << ": " << named;
    EXPECT_EQ(ReadFile(output), "previous output") << kind.name;
    EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
    std::filesystem::remove(output);
  }
}

// Abandoned, a run writes nothing; cancelled, it keeps its rows so far, unless it was replacing
// an output: that one stays as it was.
TEST_F(ConversionJobTest, AnAbandonedRunWritesNothingAndACancelledOneKeepsItsRows) {
  ::setenv("QUILLBROOK_SPREADSHEET", "/bin/true", 1);  // a launch opens nothing here
  for (const OutputKind& kind : kKinds) {
    const auto output = home_ / (std::string("out") + kind.extension);
    WriteFile(output, "previous output");
    {
      ConversionJob job(app_, ui_, Request(kind));
      ui_.onProgress = [&job](int pct) {
        if (pct >= 40) job.Abandon();
      };
      EXPECT_TRUE(job.Run()) << kind.name;
      EXPECT_TRUE(job.Stats().cancelled) << kind.name;
      EXPECT_LT(job.Stats().linesProcessed, kLines) << kind.name;
      EXPECT_EQ(ReadFile(output), "previous output") << kind.name;
      EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
    }
    for (const bool replacing : {true, false}) {
      if (!replacing) std::filesystem::remove(output);
      // A workbook asked to be opened is opened only when the run wrote it.
      JobRequest request = Request(kind);
      request.launch = true;
      const size_t launches = Count(Log(), "Launch 1");
      ConversionJob job(app_, ui_, request);
      int32_t rowsSeen = 0;  // read through the job while the run goes on
      ui_.onProgress = [&job, &rowsSeen](int pct) {
        if (pct < 40) return;
        if (rowsSeen == 0) rowsSeen = job.RowsWritten();
        job.Cancel();
      };
      EXPECT_TRUE(job.Run()) << kind.name;
      EXPECT_TRUE(job.Stats().cancelled) << kind.name;
      EXPECT_EQ(job.Stats().previousKept, replacing) << kind.name;
      EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
      const bool workbook = std::string_view(kind.extension) == ".xls";
      EXPECT_EQ(Count(Log(), "Launch 1"), launches + (workbook && !replacing ? 1 : 0)) << kind.name;
      if (replacing) {
        EXPECT_EQ(ReadFile(output), "previous output") << kind.name;
        EXPECT_EQ(job.Stats().linesWritten, 0) << kind.name;
        continue;
      }
      EXPECT_GT(job.Stats().linesWritten, 0) << kind.name;
      EXPECT_GT(rowsSeen, 0) << kind.name;
      EXPECT_LE(rowsSeen, job.Stats().linesWritten) << kind.name;
      if (std::string_view(kind.extension) != ".xls") {
        EXPECT_EQ(test::ReadLines(output).size(), static_cast<size_t>(job.Stats().linesWritten) + 1)
            << kind.name;
      }
    }
    ui_.onProgress = nullptr;
    std::filesystem::remove(output);
  }
  ::unsetenv("QUILLBROOK_SPREADSHEET");
}

// Two jobs over one loaded RDF, run at once on two threads while this thread changes the
// loaded tables: each job writes the columns it was made with.
TEST_F(ConversionJobTest, JobsCopyTheRdfAndShareNothing) {
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", home_ / "r.txt"));
  app_.Settings.Item(Key::opfmt).Value = ".csv";
  JobRequest first = Request(kKinds[1]);
  first.output = home_ / "first.csv";
  JobRequest second = Request(kKinds[1]);
  second.output = home_ / "second.csv";
  second.fields = {2, 1};
  test::RecordingUI otherUi;
  ConversionJob a(app_, ui_, engine_, first);
  ConversionJob b(app_, otherUi, engine_, second);
  std::thread ta([&a] { EXPECT_TRUE(a.Run()); });
  std::thread tb([&b] { EXPECT_TRUE(b.Run()); });
  Recordset& fields = engine_.tables.rsFields;
  for (int i = 0; i < 2000; ++i) {  // what the window's grid does while a run goes on
    fields.Sort(i % 2 ? "fldOUT DESC,fldORD" : "");
    for (fields.MoveFirst(); !fields.IsEOF(); fields.MoveNext()) {
      fields.SetInt(col::Fields::fldORD, 3 - fields.GetInt(col::Fields::fldORD));
    }
  }
  ta.join();
  tb.join();
  const auto one = test::ReadLines(home_ / "first.csv");
  const auto two = test::ReadLines(home_ / "second.csv");
  ASSERT_EQ(one.size(), static_cast<size_t>(kLines) + 1);
  ASSERT_EQ(two.size(), one.size());
  EXPECT_EQ(one[0], "Number,Amount");
  EXPECT_EQ(two[0], "Amount,Number");
  EXPECT_EQ(one[1], "1000000,0.25");
  EXPECT_EQ(two[kLines], "919.25,1039999");
}

// A report through a pipe can be read once. Where loading the RDF reads it to tell the
// report's layout (here the mark on its last line picks the second), the job copies it first:
// the run converts every line, as from the file, and the copy goes with the job.
TEST_F(ConversionJobTest, AReportThroughAPipeIsIdentifiedAndConvertedWhole) {
  constexpr std::string_view kDetail =
      "DLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\nDET,0,0,2,11,8,=,,\r\nFLD\r\n";
  const std::string twoLayouts =
      std::string("RDF 0002T Two@TWO\r\nRID\r\nF1,1,x,MARK,stop,0\r\nFLG\r\n02,1\r\n01,0\r\n") +
      "RDF 01 Unmarked\r\n" + std::string(kDetail) + "1,y,c,1,0,Number,\r\n" + "RDF 02 Marked\r\n" +
      std::string(kDetail) + "1,y,c,1,0,Marked,\r\n";
  Rdf(twoLayouts, "two.rdf");
  // Auto-find reads the RDF's name from the report too: "D" from line 1, columns 1-8, up to
  // a blank ("Ledgerline Financials" in the systems list).
  std::filesystem::create_directories(home_ / "rdfs");
  WriteFile(home_ / "rdfs" / "D.rdf", twoLayouts);
  const std::string report = ReadFile(home_ / "r.txt") + "MARK\r\n";
  const auto pipe = home_ / "pipe.txt";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const bool autoFind : {false, true}) {
    std::thread feed([&] {
      std::ofstream(pipe, std::ios::binary) << report;  // blocks until the job opens the pipe
    });
    JobRequest request = Request(kKinds[1]);
    request.report = pipe;
    request.rdf = autoFind ? std::filesystem::path() : home_ / "two.rdf";
    if (autoFind) {
      request.overrides.push_back({Key::pfset, "Ledgerline Financials,1,1,8, "});
      request.overrides.push_back({Key::rdfdir, (home_ / "rdfs").string()});
    }
    ui_.answers = {true};
    {
      std::optional<ConversionJob> job;
      try {
        job.emplace(app_, ui_, request);
      } catch (const JobError& e) {
        ADD_FAILURE() << e.what();
        std::ifstream drain(pipe, std::ios::binary);  // lets the feed end
        std::string rest((std::istreambuf_iterator<char>(drain)), {});
      }
      feed.join();
      ASSERT_TRUE(job);
      EXPECT_EQ(job->Request().rdf.filename(), autoFind ? "D.rdf" : "two.rdf");
      ASSERT_EQ(job->Check(), RunDriver::Check::Ready);
      ASSERT_TRUE(job->Run());
    }
    const auto rows = test::ReadLines(home_ / "out.csv");
    ASSERT_EQ(rows.size(), static_cast<size_t>(kLines) + 1) << autoFind;
    EXPECT_EQ(rows[0], "Marked");
    EXPECT_EQ(rows[1], "1000000");
    EXPECT_EQ(rows[kLines], "1039999");
    EXPECT_TRUE(Files(home_ / "out").empty());
  }
}

// Cancelled while a PDF's text is still being read, a run ends as cancelled (not failed),
// having written nothing; the previous output stays.
TEST_F(ConversionJobTest, ARunCancelledWhileAPdfIsReadIsCancelledNotFailed) {
  JobRequest request = Request(kKinds[1]);
  request.report = test::Sample("pdf/ARINV01_fixed.pdf");
  request.rdf = test::Sample("ARINV01P.rdf");
  WriteFile(request.output, "previous output");
  ui_.answers = {true};
  ConversionJob job(app_, ui_, request);
  ui_.onStatus = [&job](std::string_view text) {
    if (text.starts_with("Scanning PDF")) job.Cancel();
  };
  ASSERT_EQ(job.Check(), RunDriver::Check::Ready);
  EXPECT_TRUE(job.Run());
  ui_.onStatus = nullptr;
  EXPECT_TRUE(job.Stats().cancelled);
  EXPECT_FALSE(job.LastError());
  EXPECT_EQ(job.Stats().linesWritten, 0);
  EXPECT_EQ(ReadFile(request.output), "previous output");
  EXPECT_TRUE(Files(home_ / "out").empty());
}

// An output named by a symbolic link is written where the link points, and the link stays:
// one to a file replaces that file, one that dangles makes it.
TEST_F(ConversionJobTest, AnOutputNamedByALinkIsWrittenWhereItPoints) {
  std::filesystem::create_directories(home_ / "real");
  for (const bool dangling : {false, true}) {
    const auto target = home_ / "real" / (dangling ? "new.csv" : "old.csv");
    const auto link = home_ / (dangling ? "dangling.csv" : "link.csv");
    if (!dangling) WriteFile(target, "previous output");
    std::filesystem::create_symlink(std::filesystem::path("real") / target.filename(), link);
    JobRequest request = Request(kKinds[1]);
    request.output = link;
    ui_.answers = {true};
    ConversionJob job(app_, ui_, request);
    ASSERT_EQ(job.Check(), RunDriver::Check::Ready);
    ASSERT_TRUE(job.Run());
    EXPECT_TRUE(std::filesystem::is_symlink(link)) << link;
    EXPECT_EQ(test::ReadLines(target).size(), static_cast<size_t>(kLines) + 1) << target;
    const std::vector<std::string> real = dangling ? std::vector<std::string>{"new.csv", "old.csv"}
                                                   : std::vector<std::string>{"old.csv"};
    EXPECT_EQ(Files(home_ / "real"), real);  // no temporary file left beside them
  }
}

// The report and the RDF are never written: an output that is one of them, by its name, a
// link or a second name of the same file, is refused before anything is opened.
TEST_F(ConversionJobTest, TheReportAndTheRdfAreNeverTheOutput) {
  const std::string report = ReadFile(home_ / "r.txt");
  std::filesystem::create_symlink(home_ / "r.txt", home_ / "link.txt");
  std::filesystem::create_hard_link(home_ / "r.txt", home_ / "second.txt");
  for (const char* name : {"r.txt", "link.txt", "second.txt", "t.rdf"}) {
    JobRequest request = Request(kKinds[0]);
    request.output = home_ / name;
    ConversionJob job(app_, ui_, request);
    ui_.messages.clear();
    ui_.answers = {true, true};  // overwrite it, if asked
    EXPECT_EQ(job.Check(), RunDriver::Check::OutputIsAnInput) << name;
    ASSERT_FALSE(ui_.messages.empty()) << name;
    const std::string& said = ui_.messages.front().text;
    EXPECT_NE(said.find((home_ / name).string()), std::string::npos) << said;
    EXPECT_NE(said.find(std::string_view(name) == "t.rdf" ? "RDF" : "report"), std::string::npos)
        << said;
  }
  EXPECT_EQ(ReadFile(home_ / "r.txt"), report);
}

// Settings the output cannot use are refused with the setting, its value and what it takes,
// and the previous output stays as it was.
TEST_F(ConversionJobTest, SettingsOutsideTheirRangeAreRefused) {
  struct Case {
    const char* output;
    std::vector<std::pair<Key, std::string>> overrides;
    const char* says;
  } cases[] = {
      {"out.xls",
       {{Key::rmode, "7"}},
       "The setting rmode is \"7\"; the workbook's buffer mode is 0"},
      {"out.xls", {{Key::rmode, ""}}, "The setting rmode is \"\""},
      {"out.txt", {{Key::delim, ""}}, "The setting delim is \"\"; a .txt output needs a delimiter"},
      {"out.txt", {{Key::opfmt, ".pdf"}}, "The setting opfmt is \".pdf\""},
      {"out.xls", {{Key::opfmt, ".csv"}}, "is named .xls but the output type (opfmt) is .csv"},
  };
  for (const Case& c : cases) {
    WriteFile(home_ / c.output, "previous output");
    JobRequest request = Request(kKinds[0]);
    request.output = home_ / c.output;
    request.overrides = c.overrides;
    try {
      ConversionJob job(app_, ui_, request);
      ADD_FAILURE() << c.says << ": not refused";
    } catch (const JobError& e) {
      EXPECT_NE(std::string(e.what()).find(c.says), std::string::npos) << e.what();
    }
    EXPECT_EQ(ReadFile(home_ / c.output), "previous output");
    std::filesystem::remove(home_ / c.output);
  }
}

// Two runs that write one output at once: it ends up whole, one run's or the other's, never
// a mix of both, and no temporary file stays.
TEST_F(ConversionJobTest, TwoRunsOnOneOutputLeaveOneWholeOutput) {
  std::string other;
  for (int i = 0; i < kLines; ++i) other += "D " + std::to_string(2000000 + i) + " 1.00\r\n";
  WriteFile(home_ / "other.txt", other);
  JobRequest first = Request(kKinds[1]);
  JobRequest second = Request(kKinds[1]);
  second.report = home_ / "other.txt";
  test::RecordingUI otherUi;
  ConversionJob a(app_, ui_, first);
  ConversionJob b(app_, otherUi, second);
  std::thread ta([&a] { EXPECT_TRUE(a.Run()); });
  std::thread tb([&b] { EXPECT_TRUE(b.Run()); });
  ta.join();
  tb.join();
  const auto lines = test::ReadLines(home_ / "out.csv");
  ASSERT_EQ(lines.size(), static_cast<size_t>(kLines) + 1);
  const std::string firstNumber = lines[1].substr(0, 7);
  EXPECT_TRUE(firstNumber == "1000000" || firstNumber == "2000000") << lines[1];
  for (size_t i = 1; i < lines.size(); ++i) {
    ASSERT_EQ(lines[i].substr(0, 7), std::to_string(std::stoi(firstNumber) + i - 1)) << i;
  }
  EXPECT_EQ(Files(home_.path()), (std::vector<std::string>{"log", "other.txt", "out", "out.csv",
                                                           "qbsys.txt", "r.txt", "t.rdf"}));
}

// An output name that is a folder is refused for every output type; the folder and what it
// holds stay as they were.
TEST_F(ConversionJobTest, AFolderIsNeverTakenForTheOutput) {
  for (const OutputKind& kind : kKinds) {
    const auto output = home_ / (std::string("out") + kind.extension);
    std::filesystem::create_directories(output);
    WriteFile(output / "keep.txt", "kept");
    ConversionJob job(app_, ui_, Request(kind));
    EXPECT_FALSE(job.Run()) << kind.name;
    ASSERT_TRUE(job.LastError()) << kind.name;
    EXPECT_EQ(job.LastError()->number(), kPathFileAccess) << kind.name;
    EXPECT_NE(job.LastError()->description().find("not a file"), std::string::npos);
    EXPECT_EQ(ReadFile(output / "keep.txt"), "kept") << kind.name;
    EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
    std::filesystem::remove_all(output);
  }
}

// More output columns than a sheet holds: the run ends before writing, and says how many
// columns there are, how many fit and what to do.
TEST_F(ConversionJobTest, MoreColumnsThanASheetHoldsAreNamed) {
  std::string fields;
  for (int n = 1; n <= 257; ++n) {
    fields += std::to_string(n) + ",y,c," + std::to_string(n % 99 + 1) + ",0,F" +
              std::to_string(n) + ",\r\n";
  }
  Rdf("RDF 0001T Wide@W\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,7,=,,\r\n"
      "FLD\r\n" +
      fields);
  for (const OutputKind& kind : {kKinds[2], kKinds[4]}) {
    ConversionJob job(app_, ui_, Request(kind));
    EXPECT_FALSE(job.Run()) << kind.name;
    ASSERT_TRUE(job.LastError()) << kind.name;
    EXPECT_EQ(job.LastError()->description(),
              "The RDF writes 257 columns and an .xls sheet holds 256: output fewer fields, or "
              "write .csv or .txt");
    EXPECT_EQ(Files(home_.path()),
              (std::vector<std::string>{"log", "out", "qbsys.txt", "r.txt", "t.rdf"}));
  }
}

}  // namespace
}  // namespace qb
