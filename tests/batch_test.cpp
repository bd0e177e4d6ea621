// The batch: each report gets its RDF (given, by auto-find, by identification), a report
// that fails stops no other, the outputs are those of single runs, and the manifest reads
// back as it was written.

#include <gtest/gtest.h>

#include "run/batch.h"
#include "run/conversion_job.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadFile;
using test::Sample;
using test::WriteFile;
namespace fs = std::filesystem;

class BatchTest : public test::EngineTest {
 protected:
  BatchTest() {
    fs::create_directories(home_ / "in");
    fs::create_directories(home_ / "rdfs");
    fs::create_directories(home_ / "empty");
    for (const char* rdf : {"ARINV01.rdf", "ARAGE02.rdf", "APCHK01.rdf"})
      fs::copy_file(Sample(rdf), home_ / "rdfs" / rdf);
  }
  void Copy(const char* sample, const std::string& as) {
    fs::copy_file(Sample(sample), home_ / "in" / as);
  }
  // What a single run of `report` with `rdf` writes.
  std::string SingleRun(const fs::path& report, const fs::path& rdf) {
    JobRequest r;
    r.report = report;
    r.rdf = rdf;
    r.output = home_ / "single.csv";
    fs::remove(r.output);
    ConversionJob job(app_, ui_, r);
    EXPECT_EQ(job.Check(), RunDriver::Check::Ready);
    EXPECT_TRUE(job.Run());
    return ReadFile(r.output);
  }
  static const BatchItem& Item(const Batch& b, const std::string& name) {
    for (const BatchItem& i : b.Items()) {
      if (i.report.filename() == name) return i;
    }
    throw std::runtime_error("no item " + name);
  }
};

TEST_F(BatchTest, EachReportGetsItsRdfAndAFailureStopsNoOther) {
  // By file name, in the RDF folder of the settings; a report no RDF is named for fails.
  Copy("ARINV01.txt", "ARINV01.txt");
  Copy("ARAGE02.txt", "ARAGE02.txt");
  WriteFile(home_ / "in" / "notes.txt", "nothing a marker knows\r\n");
  app_.Settings.Item(Key::rdfdir).Value = (home_ / "rdfs").string();
  BatchRequest request;
  request.inputs = {(home_ / "in").string()};
  request.outputType = ".csv";
  request.jobs = 2;
  Batch batch(app_, request);
  batch.Plan();
  ASSERT_EQ(batch.Items().size(), 3u);
  EXPECT_EQ(batch.Items()[0].report.filename(), "ARAGE02.txt");  // in name order
  EXPECT_EQ(Item(batch, "ARINV01.txt").rdfChosenBy, "auto-find");
  EXPECT_EQ(Item(batch, "notes.txt").result, BatchItem::Result::Failed);
  EXPECT_NE(Item(batch, "notes.txt").message.find("notes.rdf"), std::string::npos);
  batch.Run();
  EXPECT_EQ(batch.ExitStatus(), 1);
  for (const char* name : {"ARINV01", "ARAGE02"}) {
    const BatchItem& item = Item(batch, std::string(name) + ".txt");
    EXPECT_EQ(item.result, BatchItem::Result::Done) << item.message;
    EXPECT_GT(item.rows, 0);
    EXPECT_EQ(ReadFile(item.output), SingleRun(item.report, item.rdf)) << name;
  }
  // Planned again, the outputs are there: refused, skipped or overwritten as asked.
  Batch again(app_, request);
  again.Plan();
  EXPECT_EQ(Item(again, "ARINV01.txt").result, BatchItem::Result::Failed);
  request.existing = BatchRequest::Existing::Skip;
  Batch skipping(app_, request);
  skipping.Plan();
  EXPECT_EQ(Item(skipping, "ARINV01.txt").result, BatchItem::Result::Skipped);
  EXPECT_EQ(skipping.Items().size(), 3u);  // the outputs beside their reports are no reports

  // The manifest reads back as it was written.
  for (const BatchItem& item : batch.Items()) {
    const BatchItem back = ParseManifestLine(ManifestLine(item));
    EXPECT_EQ(back.report, item.report);
    EXPECT_EQ(back.rdf, item.rdf);
    EXPECT_EQ(back.output, item.output);
    EXPECT_EQ(back.result, item.result);
    EXPECT_EQ(back.rows, item.rows);
    EXPECT_EQ(back.message, item.message);
  }
  EXPECT_THROW(ParseManifestLine("{\"report\":\"a\",\"result\":\"maybe\"}"), QbError);
  // A file name that is not UTF-8 comes back as the bytes it was.
  BatchItem latin;
  latin.report = "in/caf\xE9.txt";
  EXPECT_EQ(ParseManifestLine(ManifestLine(latin)).report, latin.report);
}

TEST_F(BatchTest, IdentificationByTheReportsOwnTextAndAmbiguityNamesBoth) {
  // The RDF folder's RDFs are not named after the programs, so auto-find (the systems-list
  // line names the program printed at the top of each report) finds none of them there, and
  // each RDF comes from identification.
  fs::create_directories(home_ / "ids");
  fs::copy_file(Sample("APCHK01.rdf"), home_ / "ids" / "checks.rdf");
  fs::copy_file(Sample("ARAGE02.rdf"), home_ / "ids" / "aging.rdf");
  fs::copy_file(Sample("ARINV01.rdf"), home_ / "ids" / "invoices.rdf");
  Copy("APCHK01.txt", "march-checks.txt");
  Copy("APCHK01D.txt", "march-check-detail.txt");
  Copy("ARAGE02.txt", "march-aging.txt");
  app_.Settings.Item(Key::pfset).Value = "Ledgerline Financials,1,1,8, ";
  BatchRequest request;
  request.inputs = {(home_ / "in" / "march-*.txt").string()};
  request.rdfDir = home_ / "ids";
  request.outputType = ".csv";
  Batch batch(app_, request);
  batch.Plan();
  ASSERT_EQ(batch.Items().size(), 3u);
  for (const auto& [report, rdf] : {std::pair("march-checks.txt", "checks.rdf"),
                                    std::pair("march-check-detail.txt", "checks.rdf"),
                                    std::pair("march-aging.txt", "aging.rdf")}) {
    EXPECT_EQ(Item(batch, report).rdf.filename(), rdf) << report;
    EXPECT_EQ(Item(batch, report).rdfChosenBy, "identification");
  }
  batch.Run();
  EXPECT_EQ(batch.ExitStatus(), 0);
  EXPECT_NE(ReadFile(Item(batch, "march-check-detail.txt").output),
            ReadFile(Item(batch, "march-checks.txt").output));  // each its own layout

  // A second RDF for the same program: neither is chosen, and the message names both.
  fs::copy_file(Sample("APCHK01.rdf"), home_ / "ids" / "checks-copy.rdf");
  request.existing = BatchRequest::Existing::Overwrite;
  Batch ambiguous(app_, request);
  ambiguous.Plan();
  const BatchItem& checks = Item(ambiguous, "march-checks.txt");
  EXPECT_EQ(checks.result, BatchItem::Result::Failed);
  EXPECT_NE(checks.message.find("checks-copy.rdf, checks.rdf"), std::string::npos)
      << checks.message;
  EXPECT_EQ(Item(ambiguous, "march-aging.txt").result, BatchItem::Result::Planned);
  fs::remove(home_ / "ids" / "checks-copy.rdf");

  // By file name, auto-find looks in the RDF folder of the batch. Without the program line,
  // only a test the report meets identifies it: the check RDF's layout for reports without
  // "DETAIL" claims no other report.
  Copy("ARINV01.txt", "invoices.txt");
  app_.Settings.Item(Key::pfset).Value = "Default - By Filename,0,1,1,.";
  request.inputs.push_back((home_ / "in" / "invoices.txt").string());
  Batch byName(app_, request);
  byName.Plan();
  EXPECT_EQ(Item(byName, "invoices.txt").rdfChosenBy, "auto-find");
  EXPECT_EQ(Item(byName, "march-check-detail.txt").rdf.filename(), "checks.rdf");
  for (const char* report : {"march-checks.txt", "march-aging.txt"}) {
    EXPECT_EQ(Item(byName, report).result, BatchItem::Result::Failed) << report;
    EXPECT_NE(Item(byName, report).message.find("identifies it"), std::string::npos);
  }

  request.inputs = {(home_ / "in" / "april-*.txt").string()};
  EXPECT_THROW(Batch(app_, request).Plan(), QbError);
  request.inputs = {(home_ / "empty").string()};
  EXPECT_THROW(Batch(app_, request).Plan(), QbError);
}

// No report of a batch is ever written, and no output is written by two reports.
TEST_F(BatchTest, NoReportIsReplacedAndNoOutputWrittenTwice) {
  Copy("ARINV01.txt", "JAN.txt");
  Copy("ARINV01.txt", "JAN.prn");
  const std::string report = ReadFile(home_ / "in" / "JAN.txt");
  const auto now = fs::last_write_time(home_ / "in" / "JAN.prn");
  fs::last_write_time(home_ / "in" / "JAN.txt", now - std::chrono::hours(1));
  BatchRequest request;
  request.inputs = {(home_ / "in").string()};
  request.rdf = home_ / "rdfs" / "ARINV01.rdf";
  request.outputType = ".txt";
  request.existing = BatchRequest::Existing::Overwrite;
  // JAN.txt is older than JAN.prn, so no output of it: both are reports, and JAN.prn's
  // output would replace JAN.txt. Nothing is converted, and the messages say what to do.
  Batch beside(app_, request);
  beside.Plan();
  ASSERT_EQ(beside.Items().size(), 2u);
  EXPECT_NE(Item(beside, "JAN.prn").message.find("if it is an earlier output, delete it"),
            std::string::npos)
      << Item(beside, "JAN.prn").message;
  EXPECT_NE(
      Item(beside, "JAN.txt").message.find("older than " + (home_ / "in" / "JAN.prn").string()),
      std::string::npos)
      << Item(beside, "JAN.txt").message;
  beside.Run();
  EXPECT_EQ(beside.ExitStatus(), 1);
  EXPECT_EQ(ReadFile(home_ / "in" / "JAN.txt"), report);

  // Written after JAN.prn, JAN.txt is taken for its output of an earlier batch, also when
  // the outputs are sent to the reports' own folder by name.
  fs::last_write_time(home_ / "in" / "JAN.txt", now + std::chrono::hours(1));
  for (const fs::path& dir : {fs::path(), home_ / "in" / ".." / "in"}) {
    request.outputDir = dir;
    Batch again(app_, request);
    again.Plan();
    ASSERT_EQ(again.Items().size(), 1u) << dir;
    EXPECT_EQ(again.Items()[0].result, BatchItem::Result::Planned) << dir;
  }

  // With the outputs in another folder, a file of the output type named as a report is that
  // report's earlier output, whatever its age: it is not written again. Two links to one
  // report are two reports; one report named twice, however spelt, is one.
  fs::last_write_time(home_ / "in" / "JAN.txt", now - std::chrono::hours(1));
  fs::create_symlink("JAN.prn", home_ / "in" / "FEB.prn");
  request.outputDir = home_ / "out";
  fs::create_directories(request.outputDir);
  request.inputs = {(home_ / "in").string(), (home_ / "in" / "." / "JAN.prn").string()};
  Batch elsewhere(app_, request);
  elsewhere.Plan();
  ASSERT_EQ(elsewhere.Items().size(), 2u);
  EXPECT_EQ(Item(elsewhere, "FEB.prn").result, BatchItem::Result::Planned);
  EXPECT_EQ(Item(elsewhere, "JAN.prn").result, BatchItem::Result::Planned);

  // Two reports that would write one output: neither runs.
  fs::create_directories(home_ / "in2");
  fs::copy_file(home_ / "in" / "JAN.prn", home_ / "in2" / "JAN.prn");
  request.inputs = {(home_ / "in" / "JAN.prn").string(), (home_ / "in2").string()};
  Batch clash(app_, request);
  clash.Plan();
  ASSERT_EQ(clash.Items().size(), 2u);
  for (const BatchItem& item : clash.Items()) {
    EXPECT_EQ(item.result, BatchItem::Result::Failed) << item.report;
    EXPECT_NE(item.message.find("JAN.prn, "), std::string::npos) << item.message;
  }
  clash.Run();
  EXPECT_TRUE(fs::is_empty(request.outputDir));

  // The reports' folder spelt through a link and "..", as the file system reads it (the
  // link's target, then up): JAN.txt, older than JAN.prn, is still kept from being written,
  // and JAN.prn named again in that spelling is the same report.
  fs::create_directories(home_ / "in" / "deep");
  fs::create_directory_symlink(home_ / "in" / "deep", home_ / "link");
  request.outputDir = home_ / "link" / "..";
  request.inputs = {(home_ / "in").string(), (home_ / "link" / ".." / "JAN.prn").string()};
  Batch linked(app_, request);
  linked.Plan();
  ASSERT_EQ(linked.Items().size(), 3u);  // FEB.prn, JAN.prn, JAN.txt
  EXPECT_EQ(Item(linked, "JAN.prn").result, BatchItem::Result::Failed);
  linked.Run();
  EXPECT_EQ(ReadFile(home_ / "in" / "JAN.txt"), report);

  // Outputs written into a folder below the reports are no reports the next time.
  fs::create_directories(home_ / "tree" / "out");
  fs::copy_file(Sample("ARINV01.txt"), home_ / "tree" / "ARINV01.txt");
  request.inputs = {(home_ / "tree").string()};
  request.outputDir = home_ / "tree" / "out";
  request.outputType = ".csv";
  request.recursive = true;
  Batch first(app_, request);
  first.Plan();
  first.Run();
  ASSERT_EQ(first.ExitStatus(), 0);
  Batch rerun(app_, request);
  rerun.Plan();
  ASSERT_EQ(rerun.Items().size(), 1u);
  EXPECT_EQ(rerun.Items()[0].result, BatchItem::Result::Planned) << rerun.Items()[0].message;
}

}  // namespace
}  // namespace qb
