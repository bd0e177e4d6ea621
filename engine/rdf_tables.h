#pragma once
// The twelve tables that hold a loaded RDF, and the engine flags that loading sets.
// Column indices are fixed by the order in which CreateRecordsets declares the fields, so
// hot code reads rsFields.GetText(col::Fields::fldRDE) without looking names up.
//
// rsMarkers, rsPickups and rsFields end with fldLIN: the line of the RDF file the record was
// read from (0 for a record made otherwise), so that messages and the trace can name it.

#include "engine/recordset.h"

namespace qb {

namespace col {
struct Header {
  enum : int { fldTYP, fldVAL };
};
struct Identify {
  enum : int { fldFID, fldFLG, fldSTR, fldLEN, fldRUL, fldMRK, fldACT };
};
struct ReportFlags {
  enum : int { fldRID, fldFLG };
};
struct Markers {
  enum : int { fldSTR, fldLEN, fldRUL, fldMRK, fldGRP, fldWTS, fldACT, fldSEQ, fldSGR, fldLIN };
};
struct Pickups {
  enum : int { fldMRK, fldGRP, fldSEQ, fldFLD, fldSTR, fldLEN, fldRUL, fldVAL, fldACT, fldLIN };
};
struct Settings {
  enum : int { fldTYP, fldVAL };
};
struct Fields {
  enum : int {
    fldFLD,
    fldOUT,
    fldTYP,
    fldORD,
    fldTMP,
    fldDLB,
    fldLAB,
    fldRDE,
    fldACT,
    fldPDE,
    fldHDE,
    fldLIN
  };
};
struct Lines {
  enum : int { fldRDL };
};
struct PdfColumns {
  enum : int { fldXS1, fldXS2, fldXE1, fldXE2, fldPOS, fldTAG, fldTPS, fldTMK };
};
struct PdfParams {
  enum : int { fldTLS, fldRAT, fldXDT, fldYLT };
};
struct Delimited {
  enum : int { fldDLM, fldTXQ };
};
struct DelimitedCols {
  enum : int { fldFLD, fldPOS, fldTAG, fldTPS, fldTMK };
};
}  // namespace col

struct RdfTables {
  // Creates the twelve tables, empty, in their order. Any earlier tables are released.
  void CreateRecordsets();
  // Releases all twelve; harmless when repeated or before any creation.
  void DestroyRecordsets();
  // The twelve tables copied (Recordset::Copy): nothing is shared with these.
  RdfTables Copy() const;

  Recordset rsHeader;         // DIN
  Recordset rsIdentify;       // RID
  Recordset rsReportFlags;    // FLG
  Recordset rsMarkers;        // DLM
  Recordset rsPickups;        // DLC
  Recordset rsSettings;       // RLF
  Recordset rsFields;         // FLD
  Recordset rsLines;          // every RDF line kept for saving
  Recordset rsPdfColumns;     // PDC
  Recordset rsPdfParams;      // PDP
  Recordset rsDelimited;      // DFI
  Recordset rsDelimitedCols;  // DFC
};

struct EngineFlags {
  bool Scrambled = false;        // the RDF's first line does not begin "RDF"
  bool PdfRdf = false;           // the header part has a PDP section
  bool DffRdf = false;           // the header part has a DFI section
  bool RecordField = false;      // field 1 has type "r"
  bool PdfReport = false;        // the selected report is a PDF
  bool DffReport = false;        // the selected report is delimited input
  bool SettingsRestore = false;  // the last RDF applied settings: restore before the next
  // The RDF's texts are UTF-8: it begins with a byte-order mark or its settings say EN,utf-8
  // (else they are Windows-1252).
  bool RdfUtf8 = false;
};

}  // namespace qb
