// The table facility: fields, cursor, filters, sorts and clones, on the RDF tables.

#include <gtest/gtest.h>

#include "base/errors.h"
#include "engine/rdf_tables.h"

namespace qb {
namespace {

using F = col::Fields;
using P = col::Pickups;

void AddPickup(Recordset& rs, std::string_view marker, int group, int seq, int field) {
  rs.AddNew();
  rs.SetText(P::fldMRK, marker);
  rs.SetInt(P::fldGRP, group);
  rs.SetInt(P::fldSEQ, seq);
  rs.SetInt(P::fldFLD, field);
}

std::vector<int64_t> Column(Recordset& rs, int field) {
  std::vector<int64_t> out;
  for (rs.MoveFirst(); !rs.IsEOF(); rs.MoveNext()) out.push_back(rs.GetInt(field));
  return out;
}

TEST(Recordset, TablesHaveTheirFieldsInOrder) {
  RdfTables t;
  t.CreateRecordsets();
  const char* fields[] = {"fldFLD", "fldOUT", "fldTYP", "fldORD", "fldTMP", "fldDLB",
                          "fldLAB", "fldRDE", "fldACT", "fldPDE", "fldHDE"};
  for (int i = 0; i < 11; ++i) EXPECT_EQ(t.rsFields.FieldIndex(fields[i]), i);
  EXPECT_EQ(t.rsMarkers.FieldIndex("fldSGR"), col::Markers::fldSGR);
  EXPECT_EQ(t.rsDelimitedCols.FieldIndex("fldTMK"), col::DelimitedCols::fldTMK);
  EXPECT_THROW(t.rsFields.FieldIndex("fldXYZ"), QbError);

  // text(n) is padded and cut; one character in a text(2) reads back with a blank.
  t.rsHeader.AddNew();
  t.rsHeader.SetText(col::Header::fldTYP, "C");
  EXPECT_EQ(t.rsHeader.GetText(col::Header::fldTYP), "C ");
  t.rsHeader.SetText(col::Header::fldTYP, "CRX");
  EXPECT_EQ(t.rsHeader.GetText(col::Header::fldTYP), "CR");
  EXPECT_THROW(t.rsHeader.GetInt(col::Header::fldTYP), QbError);
  t.rsFields.AddNew();
  EXPECT_THROW(t.rsFields.SetInt(F::fldFLD, int64_t{1} << 40), QbError);  // int32 overflow

  // Destroying twice, or before creating, does nothing.
  t.DestroyRecordsets();
  t.DestroyRecordsets();
  EXPECT_FALSE(t.rsFields.IsOpen());
  RdfTables never;
  never.DestroyRecordsets();
}

TEST(Recordset, CursorMovesAndDeletes) {
  RdfTables t;
  t.CreateRecordsets();
  Recordset& rs = t.rsFields;
  rs.MoveFirst();
  EXPECT_TRUE(rs.IsBOF() && rs.IsEOF());
  EXPECT_THROW(rs.GetInt(F::fldFLD), QbError);
  for (int i = 1; i <= 4; ++i) {
    rs.AddNew();
    rs.SetInt(F::fldFLD, i);
  }
  rs.MoveLast();
  EXPECT_EQ(rs.GetInt(F::fldFLD), 4);
  rs.MovePrevious();
  rs.MovePrevious();
  EXPECT_EQ(rs.GetInt(F::fldFLD), 2);
  rs.Delete();  // the cursor goes on to the next record
  EXPECT_EQ(rs.GetInt(F::fldFLD), 3);
  EXPECT_EQ(rs.RecordCount(), 3);
  EXPECT_EQ(Column(rs, F::fldFLD), (std::vector<int64_t>{1, 3, 4}));
  rs.MoveFirst();
  rs.MovePrevious();
  EXPECT_TRUE(rs.IsBOF());
  EXPECT_FALSE(rs.IsEOF());
}

TEST(Recordset, FiltersAcceptTheTextsTheEngineBuilds) {
  RdfTables t;
  t.CreateRecordsets();
  Recordset& rs = t.rsPickups;
  AddPickup(rs, "INV", 0, 1, 1);
  AddPickup(rs, "INV", 2, 1, 2);
  AddPickup(rs, "INV", 3, 1, 3);
  AddPickup(rs, "INV", 0, 2, 4);
  AddPickup(rs, "CUST", 0, 1, 5);
  AddPickup(rs, "O'NEIL", 0, 0, 6);

  rs.Filter(
      "((fldMRK = 'INV' And fldSEQ = 1 And fldGRP = 0)  Or (fldMRK = 'INV' And fldSEQ = 1 "
      "And fldGRP = 2))");
  EXPECT_EQ(Column(rs, P::fldFLD), (std::vector<int64_t>{1, 2}));
  // Keywords in any case; text without regard to case and trailing blanks.
  rs.Filter("fldmrk = 'inv ' AND fldGRP > 0 or fldFLD = 5");
  EXPECT_EQ(Column(rs, P::fldFLD), (std::vector<int64_t>{2, 3, 5}));
  rs.Filter("fldMRK = 'O''NEIL'");
  EXPECT_EQ(Column(rs, P::fldFLD), (std::vector<int64_t>{6}));
  rs.Filter("fldFLD >= 3 And fldFLD <= 4 Or fldFLD < 2 And fldFLD <> 0");
  EXPECT_EQ(Column(rs, P::fldFLD), (std::vector<int64_t>{1, 3, 4}));
  rs.Filter("fldGRP = -1");
  EXPECT_EQ(rs.RecordCount(), 0);
  rs.Filter("");
  EXPECT_EQ(rs.RecordCount(), 6);

  // A text(4) field matches its value without the padding.
  t.rsMarkers.AddNew();
  t.rsMarkers.SetText(col::Markers::fldACT, "INV");
  t.rsMarkers.Filter("fldACT = 'INV'");
  EXPECT_EQ(t.rsMarkers.RecordCount(), 1);

  // Malformed texts and unknown fields are errors that quote the text.
  for (const char* bad : {"fldNOPE = 1", "fldFLD = ", "(fldFLD = 1", "fldFLD 1", "fldMRK = 3",
                          "fldFLD = 'x'", "fldMRK = 'open", "fldFLD = 1 Xor fldFLD = 2"}) {
    try {
      rs.Filter(bad);
      ADD_FAILURE() << "accepted: " << bad;
    } catch (const QbError& e) {
      EXPECT_EQ(e.number(), 3001);
      EXPECT_NE(e.description().find(bad), std::string::npos) << e.description();
    }
  }
}

TEST(Recordset, SortsAreStableAndClonesShareRecords) {
  RdfTables t;
  t.CreateRecordsets();
  Recordset& rs = t.rsFields;
  const struct {
    int fld, order;
    bool out;
  } rows[] = {{1, 3, false}, {2, 2, true}, {3, 0, false},
              {4, 1, true},  {5, 2, true}, {6, 3, false}};
  for (const auto& r : rows) {
    rs.AddNew();
    rs.SetInt(F::fldFLD, r.fld);
    rs.SetInt(F::fldORD, r.order);
    rs.SetBool(F::fldOUT, r.out);
  }
  rs.Sort("fldOUT DESC,fldORD");
  EXPECT_EQ(Column(rs, F::fldFLD), (std::vector<int64_t>{4, 2, 5, 3, 1, 6}));
  rs.Sort("fldORD DESC");
  EXPECT_EQ(Column(rs, F::fldFLD), (std::vector<int64_t>{1, 6, 2, 5, 4, 3}));
  EXPECT_THROW(rs.Sort("fldORD UP"), QbError);

  // A clone walks the same records in table order, with its own cursor; edits are shared.
  Recordset clone = rs.Clone();
  clone.Find("fldFLD = 5");
  ASSERT_FALSE(clone.IsEOF());
  clone.SetText(F::fldRDE, "picked");
  rs.Filter("fldFLD = 5");
  EXPECT_EQ(rs.GetText(F::fldRDE), "picked");
  clone.Find("fldFLD = 2");  // searches forward only
  EXPECT_TRUE(clone.IsEOF());
  rs.Sort("");
  rs.Filter("");
  EXPECT_EQ(Column(rs, F::fldFLD), (std::vector<int64_t>{1, 2, 3, 4, 5, 6}));
}

}  // namespace
}  // namespace qb
