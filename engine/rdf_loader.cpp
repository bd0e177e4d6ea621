// Loading an RDF: the first line, the header part, the report's layout id, the detail part.

#include <array>

#include "base/bytes.h"
#include "base/line_reader.h"
#include "engine/engine.h"
#include "engine/pattern.h"
#include "engine/rdf_codec.h"
#include "output/output_options.h"

namespace qb {
namespace {

// Reads RDF lines in the loaders' way: plain files skip comment lines, scrambled files
// unscramble every line with its counted number; the result is trimmed.
class RdfLineSource {
 public:
  RdfLineSource(const std::filesystem::path& path, bool scrambled, std::string_view procedure)
      : reader_(path, procedure), scrambled_(scrambled), procedure_(procedure) {}

  // The next line, or false at the end. Throws QbError 519 for a damaged first line.
  bool Next(std::string_view& line) {
    std::string_view raw;
    for (;;) {
      if (!reader_.Next(raw)) return false;
      ++physical_;
      if (!scrambled_ && (raw.empty() || raw.front() == ' ' || raw.front() == '[')) continue;
      break;
    }
    ++counted_;
    if (scrambled_) {
      if (counted_ > INT16_MAX) throw QbError::Runtime(kOverflow, std::string(procedure_));
      int16_t status = 0;
      DecodeRDFLine(static_cast<int16_t>(counted_), raw, plain_, status);
      if (status != 0)
        throw QbError(kRdfCorruptLine, std::string(procedure_), std::string(kCorruptRdfText));
      line = Trim(plain_);
    } else {
      line = Trim(raw);
    }
    return true;
  }

  // The physical line of the file that Next returned last, counted from 1.
  int64_t Line() const { return physical_; }

  // Calls `handle` with each line until it returns false or the file ends. An error from
  // either is given this file and the line where it happened.
  template <typename Handle>
  void ForEachLine(const std::filesystem::path& path, Handle&& handle) {
    std::string_view line;
    try {
      while (Next(line) && handle(line)) {
      }
    } catch (QbError& e) {
      if (e.file().empty()) e.at(path, physical_);
      throw;
    }
  }

 private:
  LineReader reader_;
  bool scrambled_;
  std::string_view procedure_;
  std::string plain_;
  int64_t physical_ = 0;
  int64_t counted_ = 0;
};

// The columns of a data line, split at every comma.
class Columns {
 public:
  Columns(std::string_view line, std::string_view procedure) : procedure_(procedure) {
    for (;;) {
      size_t comma = line.find(',');
      cols_.push_back(line.substr(0, comma));
      if (comma == std::string_view::npos) break;
      line.remove_prefix(comma + 1);
    }
  }
  // A column the section needs: QbError 9 when the line has too few.
  std::string_view operator[](size_t i) const {
    if (i >= cols_.size()) throw QbError::Runtime(kSubscript, std::string(procedure_));
    return cols_[i];
  }
  // A trailing column that may be left out.
  std::string_view Optional(size_t i) const {
    return i < cols_.size() ? cols_[i] : std::string_view();
  }
  int16_t Int16(size_t i) const { return ParseInt16((*this)[i], procedure_); }
  int32_t Int32(size_t i) const { return ParseInt32((*this)[i], procedure_); }

 private:
  std::vector<std::string_view> cols_;
  std::string_view procedure_;
};

// Rule "x" takes an explicit length from `col` when it is given; 0 means the rest of the line.
void ApplyExplicitLength(Recordset& rs, int lengthField, const Columns& c, size_t col,
                         std::string_view rule, std::string_view procedure) {
  if (rule.substr(0, 1) != "x" || c.Optional(col).empty()) return;
  int16_t len = ParseInt16(c.Optional(col), procedure);
  rs.SetInt(lengthField, len == 0 ? 999 : len);
}

void AppendLine(Recordset& lines, std::string_view text) {
  lines.AddNew();
  lines.SetText(col::Lines::fldRDL, text);
}

bool IsFlagId(std::string_view fid) {
  return fid.size() >= 2 && fid[0] == 'F' && fid[1] >= '0' && fid[1] <= '9';
}

}  // namespace

bool Engine::GetRDFInfo(const std::filesystem::path& rdfPath) {
  return Trap("GetRDFInfo", [&] {
    LineReader reader(rdfPath, "GetRDFInfo");
    std::string_view raw;
    if (!reader.Next(raw)) raw = {};
    flags.Scrambled = !StartsWith(Trim(raw), "RDF");
    std::string line;
    if (flags.Scrambled) {
      int16_t status = 0;
      DecodeRDFLine(1, raw, line, status);
      if (status != 0)
        throw QbError(kRdfCorruptFirst, "GetRDFInfo", std::string(kCorruptRdfText)).at(rdfPath, 1);
    } else {
      line = std::string(raw);
    }
    std::string_view first = Trim(line);
    size_t at = first.rfind('@');
    if (at == std::string_view::npos)
      throw QbError(kRdfCorruptHeader, "GetRDFInfo", std::string(kCorruptRdfText)).at(rdfPath, 1);
    rdf = clsRDF();
    rdf.Number = ParseInt16(Mid(first, 7, 2, "GetRDFInfo"), "GetRDFInfo");
    rdf.Kind = std::string(Mid(first, 9, 1, "GetRDFInfo"));
    rdf.Name = at >= 10 ? std::string(Trim(first.substr(10, at - 10))) : std::string();
    rdf.ProgramName = std::string(Trim(first.substr(at + 1)));
  });
}

bool Engine::LoadRDFHeader(const std::filesystem::path& rdfPath) {
  constexpr std::string_view kProc = "LoadRDFHeader";
  flags.PdfRdf = flags.DffRdf = flags.RecordField = false;
  return Trap(kProc, [&] {
    RdfLineSource source(rdfPath, flags.Scrambled, kProc);
    enum State { None, Part, DIN, RID, FLG, PDP, PDC, DFI, DFC } state = None;
    static constexpr std::array<std::pair<std::string_view, State>, 7> kSections{{{"DIN", DIN},
                                                                                  {"RID", RID},
                                                                                  {"FLG", FLG},
                                                                                  {"PDP", PDP},
                                                                                  {"PDC", PDC},
                                                                                  {"DFI", DFI},
                                                                                  {"DFC", DFC}}};
    RdfTables& t = tables;
    source.ForEachLine(rdfPath, [&](std::string_view line) {
      std::string_view code = line.substr(0, 3);
      if (code == "RDF") {
        if (Mid(line, 5, 2, kProc) != "00") return false;
        state = Part;
        std::string kept(line);
        if (kept.size() < 9) throw QbError::Runtime(kInvalidCall, std::string(kProc));
        kept[8] = 'P';  // an RDF saved from this one is of kind P
        AppendLine(t.rsLines, kept);
        return true;
      }
      bool isSection = false;
      for (auto [name, s] : kSections) {
        if (code == name) {
          state = s;
          isSection = true;
        }
      }
      if (isSection) {
        if (state == PDP) flags.PdfRdf = true;
        if (state == DFI) flags.DffRdf = true;
        AppendLine(t.rsLines, line);
        return true;
      }
      if (state == None || state == Part) return true;  // data before any section
      AppendLine(t.rsLines, line);
      Columns c(line, kProc);
      switch (state) {
        case DIN:
          t.rsHeader.AddNew();
          t.rsHeader.SetText(col::Header::fldTYP, c[0]);
          t.rsHeader.SetText(col::Header::fldVAL, c[1]);
          break;
        case RID: {
          Recordset& rs = t.rsIdentify;
          rs.AddNew();
          rs.SetText(col::Identify::fldFID, c[0]);
          rs.SetText(col::Identify::fldFLG, "0");
          rs.SetInt(col::Identify::fldSTR, c.Int16(1));
          rs.SetText(col::Identify::fldRUL, c[2]);
          rs.SetText(col::Identify::fldMRK, c[3]);
          rs.SetText(col::Identify::fldACT, c[4]);
          rs.SetInt(col::Identify::fldLEN, static_cast<int64_t>(c[3].size()));
          ApplyExplicitLength(rs, col::Identify::fldLEN, c, 5, c[2], kProc);
          break;
        }
        case FLG:
          t.rsReportFlags.AddNew();
          t.rsReportFlags.SetText(col::ReportFlags::fldRID, c[0]);
          t.rsReportFlags.SetText(col::ReportFlags::fldFLG, c[1]);
          break;
        case PDP: {
          Recordset& rs = t.rsPdfParams;
          std::string_view tls = c[0];
          rs.AddNew();
          rs.SetBool(col::PdfParams::fldTLS, EqualsNoCase(tls, "Y"));
          rs.SetInt(col::PdfParams::fldRAT, c.Int32(1));
          rs.SetInt(col::PdfParams::fldXDT, c.Int32(2));
          rs.SetInt(col::PdfParams::fldYLT, c.Int32(3));
          break;
        }
        case PDC: {
          Recordset& rs = t.rsPdfColumns;
          rs.AddNew();
          rs.SetInt(col::PdfColumns::fldXS1, c.Int32(0));
          rs.SetInt(col::PdfColumns::fldXS2, c.Int32(1));
          rs.SetInt(col::PdfColumns::fldXE1, c.Int32(2));
          rs.SetInt(col::PdfColumns::fldXE2, c.Int32(3));
          rs.SetInt(col::PdfColumns::fldPOS, c.Int16(4));
          rs.SetText(col::PdfColumns::fldTAG, c[5]);
          rs.SetInt(col::PdfColumns::fldTPS, c.Int16(6));
          rs.SetText(col::PdfColumns::fldTMK, c[7]);
          break;
        }
        case DFI: {
          const std::string dlm = DelimiterOf(c[0]);
          if (dlm.empty()) {  // the input would be split at nothing and read as blanks
            throw QbError(kInvalidCall, "LoadRDFHeader",
                          "The DFI line names no delimiter: give the character that separates "
                          "the input's fields, or the word tab or comma");
          }
          t.rsDelimited.AddNew();
          t.rsDelimited.SetText(col::Delimited::fldDLM, dlm);
          t.rsDelimited.SetText(col::Delimited::fldTXQ, c[1]);
          break;
        }
        case DFC: {
          Recordset& rs = t.rsDelimitedCols;
          rs.AddNew();
          rs.SetInt(col::DelimitedCols::fldFLD, c.Int32(0));
          rs.SetInt(col::DelimitedCols::fldPOS, c.Int16(1));
          rs.SetText(col::DelimitedCols::fldTAG, c[2]);
          rs.SetInt(col::DelimitedCols::fldTPS, c.Int16(3));
          rs.SetText(col::DelimitedCols::fldTMK, c[4]);
          break;
        }
        case None:
        case Part:
          break;
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
  bool ok = Trap(kProc, [&] {
    LineReader reader(reportPath, kProc);
    Recordset& rs = tables.rsIdentify;
    std::string buffer;
    std::string_view line;
    bool stop = false;
    while (!stop && reader.Next(line)) {
      buffer.assign(line.substr(0, 600));
      buffer.resize(600, ' ');
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
    enum State { Outside, Part, DLM, DLC, FLD, RLF } state = Outside;
    RdfTables& t = tables;
    std::string fldSectionLine;
    bool haveFldSection = false;
    source.ForEachLine(rdfPath, [&](std::string_view line) {
      std::string_view code = line.substr(0, 3);
      if (code == "RDF") {
        if (state != Outside) return false;  // the next part ends ours
        if (Mid(line, 5, 2, kProc) == reportId) {
          state = Part;
          AppendLine(t.rsLines, line);
        }
        return true;
      }
      if (state == Outside) return true;
      if (code == "DLM" || code == "DLC" || code == "FLD" || code == "RLF") {
        state = code == "DLM" ? DLM : code == "DLC" ? DLC : code == "FLD" ? FLD : RLF;
        if (state == FLD) {
          // Kept last, so the FLD lines that saving writes after rsLines fall under it.
          fldSectionLine = line;
          haveFldSection = true;
        } else if (state != RLF) {
          AppendLine(t.rsLines, line);
        }
        return true;
      }
      if (state == Part) return true;  // data before any section
      if (state == DLM || state == DLC) AppendLine(t.rsLines, line);
      Columns c(line, kProc);
      switch (state) {
        case DLM: {
          Recordset& rs = t.rsMarkers;
          rs.AddNew();
          rs.SetInt(col::Markers::fldSTR, c.Int16(0));
          rs.SetText(col::Markers::fldRUL, c[1]);
          rs.SetText(col::Markers::fldMRK, c[2]);
          rs.SetInt(col::Markers::fldLEN, static_cast<int64_t>(c[2].size()));
          rs.SetInt(col::Markers::fldGRP, c.Int16(3));
          rs.SetInt(col::Markers::fldWTS, c.Int16(4));
          rs.SetText(col::Markers::fldACT, c[5]);
          rs.SetBool(col::Markers::fldSGR, c.Optional(7) == "y");
          ApplyExplicitLength(rs, col::Markers::fldLEN, c, 6, c[1], kProc);
          rs.SetInt(col::Markers::fldLIN, source.Line());
          break;
        }
        case DLC: {
          Recordset& rs = t.rsPickups;
          rs.AddNew();
          rs.SetText(col::Pickups::fldMRK, c[0]);
          rs.SetInt(col::Pickups::fldGRP, c.Int16(1));
          rs.SetInt(col::Pickups::fldSEQ, c.Int16(2));
          rs.SetInt(col::Pickups::fldFLD, c.Int16(3));
          rs.SetInt(col::Pickups::fldSTR, c.Int16(4));
          rs.SetInt(col::Pickups::fldLEN, c.Int16(5));
          rs.SetText(col::Pickups::fldRUL, c[6]);
          rs.SetText(col::Pickups::fldVAL, Trim(c[7]));
          rs.SetText(col::Pickups::fldACT, c.Optional(8));
          rs.SetInt(col::Pickups::fldLIN, source.Line());
          break;
        }
        case FLD: {
          Recordset& rs = t.rsFields;
          int16_t number = c.Int16(0);
          int16_t order = c.Int16(3);
          int16_t dlb = c.Int16(4);
          rs.AddNew();
          rs.SetInt(col::Fields::fldFLD, number);
          rs.SetBool(col::Fields::fldOUT, c[1] == "y");
          rs.SetText(col::Fields::fldTYP, c[2]);
          rs.SetInt(col::Fields::fldORD, order);
          rs.SetInt(col::Fields::fldTMP, order);
          rs.SetInt(col::Fields::fldDLB, dlb);
          rs.SetText(col::Fields::fldLAB,
                     dlb > 0 ? "[ " + std::string(c[5]) + " ]" : std::string(c[5]));
          rs.SetText(col::Fields::fldACT, c.Optional(6));
          rs.SetInt(col::Fields::fldLIN, source.Line());
          if (number == 1 && c[2] == "r") flags.RecordField = true;
          break;
        }
        case RLF:
          t.rsSettings.AddNew();
          t.rsSettings.SetText(col::Settings::fldTYP, c[0]);
          t.rsSettings.SetText(col::Settings::fldVAL, c[1]);
          break;
        case Outside:
        case Part:
          break;
      }
      return true;
    });
    if (state == Outside) {
      throw QbError(kSubscript, std::string(kProc),
                    "The RDF has no detail part for report layout " + std::string(reportId))
          .at(rdfPath);
    }
    if (haveFldSection) AppendLine(t.rsLines, fldSectionLine);
  });
}

}  // namespace qb
