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
}

TEST_F(BatchTest, IdentificationByTheReportsOwnTextAndAmbiguityNamesBoth) {
  // The systems-list line names the program printed at the top of each report; auto-find
  // looks in an empty folder, so each RDF comes from identification in the RDF folder.
  Copy("APCHK01.txt", "march-checks.txt");
  Copy("APCHK01D.txt", "march-check-detail.txt");
  Copy("ARAGE02.txt", "march-aging.txt");
  app_.Settings.Item(Key::pfset).Value = "Ledgerline Financials,1,1,8, ";
  app_.Settings.Item(Key::rdfdir).Value = (home_ / "empty").string();
  BatchRequest request;
  request.inputs = {(home_ / "in" / "march-*.txt").string()};
  request.rdfDir = home_ / "rdfs";
  request.outputType = ".txt";
  request.outputDir = home_ / "out";  // beside the reports, a .txt output would be the report
  fs::create_directories(request.outputDir);
  Batch batch(app_, request);
  batch.Plan();
  ASSERT_EQ(batch.Items().size(), 3u);
  for (const auto& [report, rdf] : {std::pair("march-checks.txt", "APCHK01.rdf"),
                                    std::pair("march-check-detail.txt", "APCHK01.rdf"),
                                    std::pair("march-aging.txt", "ARAGE02.rdf")}) {
    EXPECT_EQ(Item(batch, report).rdf.filename(), rdf) << report;
    EXPECT_EQ(Item(batch, report).rdfChosenBy, "identification");
  }
  batch.Run();
  EXPECT_EQ(batch.ExitStatus(), 0);
  EXPECT_NE(ReadFile(Item(batch, "march-check-detail.txt").output),
            ReadFile(Item(batch, "march-checks.txt").output));  // each its own layout

  // A second RDF for the same program: neither is chosen, and the message names both.
  fs::copy_file(Sample("APCHK01.rdf"), home_ / "rdfs" / "APCHK99.rdf");
  request.existing = BatchRequest::Existing::Overwrite;
  Batch ambiguous(app_, request);
  ambiguous.Plan();
  const BatchItem& checks = Item(ambiguous, "march-checks.txt");
  EXPECT_EQ(checks.result, BatchItem::Result::Failed);
  EXPECT_NE(checks.message.find("APCHK01.rdf, APCHK99.rdf"), std::string::npos) << checks.message;
  EXPECT_EQ(Item(ambiguous, "march-aging.txt").result, BatchItem::Result::Planned);

  request.inputs = {(home_ / "in" / "april-*.txt").string()};
  EXPECT_THROW(Batch(app_, request).Plan(), QbError);
}

}  // namespace
}  // namespace qb
