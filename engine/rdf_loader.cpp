// Loading an RDF: the first line, the header part, the report's layout id, the detail part.

#include "base/bytes.h"
#include "base/line_reader.h"
#include "base/text_encoding.h"
#include "engine/engine.h"
#include "engine/pattern.h"
#include "engine/rdf_codec.h"
#include "engine/rdf_lines.h"
#include "engine/rdf_sections.h"
#include "output/output_options.h"

namespace qb {
namespace {

// The columns of a data line of `section`, split at every comma. A column that cannot be
// read is the loading error its fault always was (9, 13 or 6), with a detail that names
// the column.
class Columns {
 public:
  Columns(const RdfSection& section, std::string_view line, std::string_view procedure)
      : section_(section), cols_(SplitRdfColumns(line)), procedure_(procedure) {}
  // A column the section needs: QbError 9 when the line has too few.
  std::string_view operator[](size_t i) const {
    if (i >= cols_.size()) {
      throw QbError::Runtime(kSubscript, std::string(procedure_))
          .because(TooFewColumnsText(section_, cols_.size()));
    }
    return cols_[i];
  }
  // A trailing column that may be left out.
  std::string_view Optional(size_t i) const {
    return i < cols_.size() ? cols_[i] : std::string_view();
  }
  // A numeric column, of the width the section gives it: QbError 13 or 6 when it is no
  // number of that width.
  int64_t Number(size_t i) const {
    RdfNumber n = ReadRdfNumber(section_, i, i < section_.required ? (*this)[i] : Optional(i));
    if (n.error != 0) throw QbError::Runtime(n.error, std::string(procedure_)).because(n.problem);
    return n.value;
  }

 private:
  const RdfSection& section_;
  std::vector<std::string_view> cols_;
  std::string_view procedure_;
};

// Rule "x" takes an explicit length from `col` when it is given; 0 means the rest of the line.
void ApplyExplicitLength(Recordset& rs, int lengthField, const Columns& c, size_t col,
                         std::string_view rule) {
  if (rule.substr(0, 1) != "x" || c.Optional(col).empty()) return;
  const int64_t len = c.Number(col);
  rs.SetInt(lengthField, len == 0 ? 999 : len);
}

void AppendLine(Recordset& lines, std::string_view text) {
  lines.AddNew();
  lines.SetText(col::Lines::fldRDL, text);
}

bool IsFlagId(std::string_view fid) {
  return fid.size() >= 2 && fid[0] == 'F' && fid[1] >= '0' && fid[1] <= '9';
}

constexpr std::string_view kEmptyRdfText =
    "the RDF is empty: it holds nothing but blanks and line ends, and an RDF begins with its "
    "header part line, as in \"RDF 0001T Invoice register@ARINV01\"";

}  // namespace

bool Engine::GetRDFInfo(const std::filesystem::path& rdfPath) {
  constexpr std::string_view kProc = "GetRDFInfo";
  return Trap(kProc, [&] {
    LineReader reader(rdfPath, kProc);
    std::string_view raw;
    if (!reader.Next(raw)) raw = {};
    flags.RdfUtf8 = raw.starts_with(kUtf8Bom);
    if (flags.RdfUtf8) raw.remove_prefix(kUtf8Bom.size());
    // A file with no text would be taken for a scrambled RDF and fail on its first line's
    // checksum; it is named for what it is instead.
    if (IsBlankRdf(rdfPath, raw, kProc)) {
      throw QbError(kRdfCorruptHeader, std::string(kProc), std::string(kCorruptRdfText))
          .at(rdfPath)
          .because(std::string(kEmptyRdfText));
    }
    flags.Scrambled = IsScrambledFirstLine(raw);
    std::string line;
    if (flags.Scrambled) {
      int16_t status = 0;
      try {
        DecodeRDFLine(1, raw, line, status);
      } catch (QbError& e) {
        throw e.at(rdfPath, 1).because(std::string(kBadChecksumText));
      }
      if (status != 0) {
        throw QbError(kRdfCorruptFirst, std::string(kProc), std::string(kCorruptRdfText))
            .at(rdfPath, 1)
            .because(std::string(kBadChecksumText));
      }
    } else {
      line = std::string(raw);
    }
    std::string_view first = Trim(line);
    size_t at = first.rfind('@');
    if (at == std::string_view::npos) {
      throw QbError(kRdfCorruptHeader, std::string(kProc), std::string(kCorruptRdfText))
          .at(rdfPath, 1)
          .because(std::string(kNoAtSignText));
    }
    rdf = clsRDF();
    const std::string_view count = Mid(first, 7, 2, kProc);
    try {
      rdf.Number = ParseInt16(count, kProc);
    } catch (QbError& e) {
      throw e.at(rdfPath, 1).because(PartCountText(count));
    }
    rdf.Kind = std::string(Mid(first, 9, 1, kProc));
    rdf.Name = at >= 10 ? std::string(Trim(first.substr(10, at - 10))) : std::string();
    rdf.ProgramName = std::string(Trim(first.substr(at + 1)));
  });
}

bool Engine::LoadRDFHeader(const std::filesystem::path& rdfPath) {
  constexpr std::string_view kProc = "LoadRDFHeader";
  flags.PdfRdf = flags.DffRdf = flags.RecordField = false;
  return Trap(kProc, [&] {
    RdfLineSource source(rdfPath, flags.Scrambled, kProc);
    const RdfSection* section = nullptr;  // none before the first section line
    RdfTables& t = tables;
    source.ForEachLine(rdfPath, [&](std::string_view line) {
      if (line.substr(0, 3) == "RDF") {
        if (Mid(line, 5, 2, kProc) != "00") return false;
        section = nullptr;
        std::string kept(line);
        if (kept.size() < 9) {
          throw QbError::Runtime(kInvalidCall, std::string(kProc))
              .because(std::string(kShortFirstLineText));
        }
        kept[8] = 'P';  // an RDF saved from this one is of kind P
        AppendLine(t.rsLines, kept);
        return true;
      }
      if (const RdfSection* s = SectionOfLine(line); s && s->part == RdfPartKind::Header) {
        section = s;
        if (s == &kPDP) flags.PdfRdf = true;
        if (s == &kDFI) flags.DffRdf = true;
        AppendLine(t.rsLines, line);
        return true;
      }
      if (section == nullptr) return true;  // data before any section
      AppendLine(t.rsLines, line);
      const Columns c(*section, line, kProc);
      if (section == &kDIN) {
        t.rsHeader.AddNew();
        t.rsHeader.SetText(col::Header::fldTYP, c[rdfcol::Pair::Key]);
        t.rsHeader.SetText(col::Header::fldVAL, c[rdfcol::Pair::Value]);
      } else if (section == &kRID) {
        using R = rdfcol::RID;
        Recordset& rs = t.rsIdentify;
        rs.AddNew();
        rs.SetText(col::Identify::fldFID, c[R::FlagId]);
        rs.SetText(col::Identify::fldFLG, "0");
        rs.SetInt(col::Identify::fldSTR, c.Number(R::Start));
        rs.SetText(col::Identify::fldRUL, c[R::Rule]);
        rs.SetText(col::Identify::fldMRK, c[R::Marker]);
        rs.SetText(col::Identify::fldACT, c[R::Action]);
        rs.SetInt(col::Identify::fldLEN, static_cast<int64_t>(c[R::Marker].size()));
        ApplyExplicitLength(rs, col::Identify::fldLEN, c, R::Length, c[R::Rule]);
      } else if (section == &kFLG) {
        t.rsReportFlags.AddNew();
        t.rsReportFlags.SetText(col::ReportFlags::fldRID, c[rdfcol::Pair::Key]);
        t.rsReportFlags.SetText(col::ReportFlags::fldFLG, c[rdfcol::Pair::Value]);
      } else if (section == &kPDP) {
        using P = rdfcol::PDP;
        Recordset& rs = t.rsPdfParams;
        std::string_view tls = c[P::BandsOnly];
        rs.AddNew();
        rs.SetBool(col::PdfParams::fldTLS, EqualsNoCase(tls, "Y"));
        rs.SetInt(col::PdfParams::fldRAT, c.Number(P::Pitch));
        rs.SetInt(col::PdfParams::fldXDT, c.Number(P::Margin));
        rs.SetInt(col::PdfParams::fldYLT, c.Number(P::YLimit));
      } else if (section == &kPDC) {
        using P = rdfcol::PDC;
        Recordset& rs = t.rsPdfColumns;
        rs.AddNew();
        rs.SetInt(col::PdfColumns::fldXS1, c.Number(P::XStart1));
        rs.SetInt(col::PdfColumns::fldXS2, c.Number(P::XStart2));
        rs.SetInt(col::PdfColumns::fldXE1, c.Number(P::XEnd1));
        rs.SetInt(col::PdfColumns::fldXE2, c.Number(P::XEnd2));
        rs.SetInt(col::PdfColumns::fldPOS, c.Number(P::Column));
        rs.SetText(col::PdfColumns::fldTAG, c[P::Tag]);
        rs.SetInt(col::PdfColumns::fldTPS, c.Number(P::TagColumn));
        rs.SetText(col::PdfColumns::fldTMK, c[P::TagMarker]);
      } else if (section == &kDFI) {
        const std::string dlm = DelimiterOf(c[rdfcol::Pair::Key]);
        if (dlm.empty()) {  // the input would be split at nothing and read as blanks
          throw QbError(kInvalidCall, "LoadRDFHeader",
                        "The DFI line names no delimiter: give the character that separates "
                        "the input's fields, or the word tab or comma")
              .because(NoDelimiterText());
        }
        t.rsDelimited.AddNew();
        t.rsDelimited.SetText(col::Delimited::fldDLM, dlm);
        t.rsDelimited.SetText(col::Delimited::fldTXQ, c[rdfcol::Pair::Value]);
      } else if (section == &kDFC) {
        using D = rdfcol::DFC;
        Recordset& rs = t.rsDelimitedCols;
        rs.AddNew();
        rs.SetInt(col::DelimitedCols::fldFLD, c.Number(D::InputField));
        rs.SetInt(col::DelimitedCols::fldPOS, c.Number(D::Column));
        rs.SetText(col::DelimitedCols::fldTAG, c[D::Tag]);
        rs.SetInt(col::DelimitedCols::fldTPS, c.Number(D::TagColumn));
        rs.SetText(col::DelimitedCols::fldTMK, c[D::TagMarker]);
      }
      return true;
    });
    if (flags.PdfReport && !flags.PdfRdf) {
      throw QbError(kRdfNotForPdf, std::string(kProc), std::string(kRdfNotForPdfText)).at(rdfPath);
    }
    if (!flags.PdfReport && flags.PdfRdf) {
      throw QbError(kRdfNotForText, std::string(kProc), std::string(kRdfNotForTextText))
          .at(rdfPath);
    }
  });
}

std::optional<std::string> Engine::GetReportID(const std::filesystem::path& reportPath) {
  constexpr std::string_view kProc = "GetReportID";
  std::string id = "01";
  std::string flagText;
  reportIdMatched_ = false;
  bool ok = Trap(kProc, [&] {
    LineReader reader(reportPath, kProc);
    Recordset& rs = tables.rsIdentify;
    std::string buffer;
    std::string_view line;
    bool stop = false;
    for (bool first = true; !stop && reader.Next(line); first = false) {
      if (first) line = WithoutBom(line);  // the mark is not text
      buffer.assign(line.substr(0, kIdentifyWidth));
      buffer.resize(kIdentifyWidth, ' ');
      for (rs.MoveFirst(); !rs.IsEOF(); rs.MoveNext()) {
        std::string_view rule = rs.GetText(col::Identify::fldRUL);
        std::string_view marker = rs.GetText(col::Identify::fldMRK);
        std::string_view text =
            Mid(buffer, rs.GetInt(col::Identify::fldSTR), rs.GetInt(col::Identify::fldLEN), kProc);
        bool met;
        if (rule == "=")
          met = text == marker;
        else if (rule == "p" || rule == "x")
          met = text.find(marker) != std::string_view::npos;
        else
          met = MatchesClass(rule.front(), text);
        if (!met) continue;
        if (IsFlagId(rs.GetText(col::Identify::fldFID))) rs.SetText(col::Identify::fldFLG, "1");
        if (Trim(rs.GetText(col::Identify::fldACT)) == "stop") {
          stop = true;
          break;
        }
      }
    }
    for (rs.MoveFirst(); !rs.IsEOF(); rs.MoveNext()) flagText += rs.GetText(col::Identify::fldFLG);
    Recordset& flagsRs = tables.rsReportFlags;
    for (flagsRs.MoveFirst(); !flagsRs.IsEOF(); flagsRs.MoveNext()) {
      if (flagsRs.GetText(col::ReportFlags::fldFLG).substr(0, flagText.size()) == flagText) {
        id = std::string(flagsRs.GetText(col::ReportFlags::fldRID));
        reportIdMatched_ = true;
        break;
      }
    }
    app_.Log().WriteLog(kProc, "RID=" + id + "   Flags=" + flagText);
  });
  if (!ok) return std::nullopt;
  return id;
}

bool Engine::LoadRDFDetail(std::string_view reportId, const std::filesystem::path& rdfPath) {
  constexpr std::string_view kProc = "LoadRDFDetail";
  return Trap(kProc, [&] {
    RdfLineSource source(rdfPath, flags.Scrambled, kProc);
    bool inPart = false;
    const RdfSection* section = nullptr;  // none before the part's first section line
    std::string partsSeen;                // the detail parts passed over, for the error
    RdfTables& t = tables;
    std::string fldSectionLine;
    bool haveFldSection = false;
    source.ForEachLine(rdfPath, [&](std::string_view line) {
      if (line.substr(0, 3) == "RDF") {
        if (inPart) return false;  // the next part ends ours
        const std::string_view id = Mid(line, 5, 2, kProc);
        if (id == reportId) {
          inPart = true;
          AppendLine(t.rsLines, line);
        } else if (id != "00") {
          partsSeen += (partsSeen.empty() ? "" : ", ") + std::string(id);
        }
        return true;
      }
      if (!inPart) return true;
      if (const RdfSection* s = SectionOfLine(line); s && s->part == RdfPartKind::Detail) {
        section = s;
        if (s == &kFLD) {
          // Kept last, so the FLD lines that saving writes after rsLines fall under it.
          fldSectionLine = line;
          haveFldSection = true;
        } else if (s != &kRLF) {
          AppendLine(t.rsLines, line);
        }
        return true;
      }
      if (section == nullptr) return true;  // data before any section
      if (section == &kDLM || section == &kDLC) AppendLine(t.rsLines, line);
      const Columns c(*section, line, kProc);
      if (section == &kDLM) {
        using M = rdfcol::DLM;
        Recordset& rs = t.rsMarkers;
        rs.AddNew();
        rs.SetInt(col::Markers::fldSTR, c.Number(M::Start));
        rs.SetText(col::Markers::fldRUL, c[M::Rule]);
        rs.SetText(col::Markers::fldMRK, c[M::Marker]);
        rs.SetInt(col::Markers::fldLEN, static_cast<int64_t>(c[M::Marker].size()));
        rs.SetInt(col::Markers::fldGRP, c.Number(M::Group));
        rs.SetInt(col::Markers::fldWTS, c.Number(M::WaitSlot));
        rs.SetText(col::Markers::fldACT, c[M::Action]);
        rs.SetBool(col::Markers::fldSGR, c.Optional(M::SubGroup) == "y");
        ApplyExplicitLength(rs, col::Markers::fldLEN, c, M::Length, c[M::Rule]);
        rs.SetInt(col::Markers::fldLIN, source.Line());
      } else if (section == &kDLC) {
        using P = rdfcol::DLC;
        Recordset& rs = t.rsPickups;
        rs.AddNew();
        rs.SetText(col::Pickups::fldMRK, c[P::Record]);
        rs.SetInt(col::Pickups::fldGRP, c.Number(P::Group));
        rs.SetInt(col::Pickups::fldSEQ, c.Number(P::Sequence));
        rs.SetInt(col::Pickups::fldFLD, c.Number(P::Field));
        rs.SetInt(col::Pickups::fldSTR, c.Number(P::Start));
        rs.SetInt(col::Pickups::fldLEN, c.Number(P::Length));
        rs.SetText(col::Pickups::fldRUL, c[P::Rule]);
        rs.SetText(col::Pickups::fldVAL, Trim(c[P::Value]));
        rs.SetText(col::Pickups::fldACT, c.Optional(P::Action));
        rs.SetInt(col::Pickups::fldLIN, source.Line());
      } else if (section == &kFLD) {
        using F = rdfcol::FLD;
        Recordset& rs = t.rsFields;
        const int64_t number = c.Number(F::Field);
        const int64_t order = c.Number(F::Order);
        const int64_t dlb = c.Number(F::LabelFlag);
        rs.AddNew();
        rs.SetInt(col::Fields::fldFLD, number);
        rs.SetBool(col::Fields::fldOUT, c[F::Output] == "y");
        rs.SetText(col::Fields::fldTYP, c[F::Type]);
        rs.SetInt(col::Fields::fldORD, order);
        rs.SetInt(col::Fields::fldTMP, order);
        rs.SetInt(col::Fields::fldDLB, dlb);
        rs.SetText(col::Fields::fldLAB,
                   dlb > 0 ? "[ " + std::string(c[F::Label]) + " ]" : std::string(c[F::Label]));
        rs.SetText(col::Fields::fldACT, c.Optional(F::Action));
        rs.SetInt(col::Fields::fldLIN, source.Line());
        if (number == 1 && c[F::Type] == "r") flags.RecordField = true;
      } else if (section == &kRLF) {
        t.rsSettings.AddNew();
        t.rsSettings.SetText(col::Settings::fldTYP, c[rdfcol::Pair::Key]);
        t.rsSettings.SetText(col::Settings::fldVAL, c[rdfcol::Pair::Value]);
      }
      return true;
    });
    if (!inPart) {
      throw QbError(kSubscript, std::string(kProc),
                    "The RDF has no detail part for report layout " + std::string(reportId))
          .at(rdfPath)
          .because(MissingPartText(reportId, partsSeen));
    }
    if (haveFldSection) AppendLine(t.rsLines, fldSectionLine);
  });
}

}  // namespace qb
