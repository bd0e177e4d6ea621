#include "engine/rdf_tables.h"

namespace qb {
namespace {

FieldDef Text(const char* name, int width) {
  return {name, FieldType::Text, width};
}
FieldDef Str(const char* name) {
  return {name, FieldType::String, 0};
}
FieldDef I32(const char* name) {
  return {name, FieldType::Int32, 0};
}
FieldDef I64(const char* name) {
  return {name, FieldType::Int64, 0};
}
FieldDef Bool(const char* name) {
  return {name, FieldType::Bool, 0};
}

// The twelve tables, for what is done to each of them alike.
constexpr Recordset RdfTables::*kTables[] = {
    &RdfTables::rsHeader,    &RdfTables::rsIdentify,  &RdfTables::rsReportFlags,
    &RdfTables::rsMarkers,   &RdfTables::rsPickups,   &RdfTables::rsSettings,
    &RdfTables::rsFields,    &RdfTables::rsLines,     &RdfTables::rsPdfColumns,
    &RdfTables::rsPdfParams, &RdfTables::rsDelimited, &RdfTables::rsDelimitedCols};

}  // namespace

void RdfTables::CreateRecordsets() {
  rsHeader = Recordset({Text("fldTYP", 2), Str("fldVAL")});
  rsIdentify = Recordset({Text("fldFID", 2), Text("fldFLG", 1), I32("fldSTR"), I32("fldLEN"),
                          Text("fldRUL", 1), Str("fldMRK"), Text("fldACT", 4)});
  rsReportFlags = Recordset({Text("fldRID", 2), Text("fldFLG", 16)});
  rsMarkers =
      Recordset({I32("fldSTR"), I32("fldLEN"), Text("fldRUL", 1), Str("fldMRK"), I32("fldGRP"),
                 I32("fldWTS"), Text("fldACT", 4), I32("fldSEQ"), Bool("fldSGR"), I32("fldLIN")});
  rsPickups =
      Recordset({Str("fldMRK"), I32("fldGRP"), I32("fldSEQ"), I32("fldFLD"), I32("fldSTR"),
                 I32("fldLEN"), Str("fldRUL"), Str("fldVAL"), Str("fldACT"), I32("fldLIN")});
  rsSettings = Recordset({Text("fldTYP", 2), Str("fldVAL")});
  rsFields = Recordset({I32("fldFLD"), Bool("fldOUT"), Str("fldTYP"), I32("fldORD"), I32("fldTMP"),
                        I32("fldDLB"), Str("fldLAB"), Str("fldRDE"), Str("fldACT"), Str("fldPDE"),
                        Str("fldHDE"), I32("fldLIN")});
  rsLines = Recordset({Str("fldRDL")});
  rsPdfColumns = Recordset({I64("fldXS1"), I64("fldXS2"), I64("fldXE1"), I64("fldXE2"),
                            I32("fldPOS"), Str("fldTAG"), I32("fldTPS"), Str("fldTMK")});
  rsPdfParams = Recordset({Bool("fldTLS"), I64("fldRAT"), I64("fldXDT"), I64("fldYLT")});
  rsDelimited = Recordset({Text("fldDLM", 1), Str("fldTXQ")});
  rsDelimitedCols =
      Recordset({I32("fldFLD"), I32("fldPOS"), Str("fldTAG"), I32("fldTPS"), Str("fldTMK")});
}

RdfTables RdfTables::Copy() const {
  RdfTables t;
  for (auto member : kTables) t.*member = (this->*member).Copy();
  return t;
}

void RdfTables::DestroyRecordsets() {
  *this = RdfTables();
}

}  // namespace qb
