// Delimited input: field placement and the reformat of a whole file.

#include <gtest/gtest.h>

#include "preprocess/dff.h"
#include "tests/engine_fixture.h"

namespace qb {
namespace {

using test::ReadFile;
using test::WriteFile;

TEST(DffPlacement, FieldsGoToTheirColumns) {
  std::string line;
  PlaceFields("a,bb,ccc", ',', {1, 10, 20}, line);
  EXPECT_EQ(line, "a        bb        ccc");
  PlaceFields("a,bb", ',', {1, 10, 20}, line);  // fewer fields: the rest stays blank
  EXPECT_EQ(line, "a        bb");
  PlaceFields("", ',', {1, 10}, line);
  EXPECT_EQ(line, "");
  PlaceFields("a,b,c,d", ',', {5, 1}, line);  // surplus fields are dropped
  EXPECT_EQ(line, "b   a");
  PlaceFields("\"x,y\",z", ',', {1, 10, 20}, line);  // no quoting: the comma splits
  EXPECT_EQ(line, "\"x       y\"        z");
  PlaceFields("longvalue,12", ',', {1, 3}, line);  // a later field overwrites an earlier one
  EXPECT_EQ(line, "lo12value");
  PlaceFields(std::string(20, 'x'), ',', {490}, line);  // cut at column 500
  EXPECT_EQ(line.size(), 500u);
  for (int32_t bad : {0, -1, 501}) EXPECT_THROW(PlaceFields("a", ',', {bad}, line), QbError) << bad;
}

class DffTest : public test::EngineTest {};

TEST_F(DffTest, ReformatsLinesAndFormFeedsAndEndsWithABlankLine) {
  Rdf("RDF 0001D T@T\r\nDFI\r\nTAB,\"\r\nDFC\r\n1,1,,0,\r\n2,8,,0,\r\nRDF 01 D\r\n");
  ASSERT_TRUE(engine_.LoadRDF(home_ / "t.rdf", ""));
  WriteFile(home_ / "in.tsv", "A\tone\r\nB\ttwo\fC\tthree\r\n\r\n");
  std::atomic<bool> cancel{false};
  const auto out = ProcessDFF(engine_, cancel, home_ / "in.tsv");
  EXPECT_EQ(out, home_ / "out" / "in.qbr");
  EXPECT_EQ(ReadFile(out), "A      one\r\nB      two\r\nC      three\r\n\r\n \r\n");
  EXPECT_EQ(ui_.statuses.front(), "Reformatting DFF file ...");

  cancel = true;
  try {
    ProcessDFF(engine_, cancel, home_ / "in.tsv");
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_EQ(e.source(), "ProcessDFF");
    EXPECT_EQ(e.description(), "Reformatting Report file");
  }
  cancel = false;
  std::filesystem::remove_all(home_ / "out");
  try {
    ProcessDFF(engine_, cancel, home_ / "in.tsv");
    FAIL() << "no error";
  } catch (const QbError& e) {
    EXPECT_NE(e.description().find((home_ / "out").string()), std::string::npos);
  }
}

}  // namespace
}  // namespace qb
