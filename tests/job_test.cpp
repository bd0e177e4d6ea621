// The conversion job: every output type either appears whole or leaves the previous output
// as it was, and two jobs in one process share nothing they change.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <thread>

#include "output/spreadsheet.h"
#include "run/conversion_job.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

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
    EXPECT_EQ(ReadFile(output), "previous output") << kind.name;
    EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
    std::filesystem::remove(output);
  }
}

TEST_F(ConversionJobTest, AnAbandonedRunWritesNothingAndACancelledOneKeepsItsRows) {
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
    {
      ConversionJob job(app_, ui_, Request(kind));
      ui_.onProgress = [&job](int pct) {
        if (pct >= 40) job.Cancel();
      };
      EXPECT_TRUE(job.Run()) << kind.name;
      EXPECT_TRUE(job.Stats().cancelled) << kind.name;
      EXPECT_NE(ReadFile(output), "previous output") << kind.name;
      if (std::string_view(kind.extension) != ".xls") {
        EXPECT_EQ(test::ReadLines(output).size(), static_cast<size_t>(job.Stats().linesWritten) + 1)
            << kind.name;
      }
      EXPECT_EQ(Files(home_.path()), Expected(kind)) << kind.name;
    }
    ui_.onProgress = nullptr;
    std::filesystem::remove(output);
  }
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

}  // namespace
}  // namespace qb
