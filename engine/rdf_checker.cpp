#include "engine/rdf_checker.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>

#include "base/bytes.h"
#include "base/errors.h"
#include "base/line_reader.h"
#include "base/text_encoding.h"
#include "engine/converter.h"
#include "engine/pattern.h"
#include "engine/rdf_lines.h"
#include "engine/rdf_sections.h"
#include "output/output_options.h"

namespace qb {
namespace {

using Severity = RdfDiagnostic::Severity;
constexpr std::string_view kProc = "CheckRdf";
constexpr int64_t kLineWidth = static_cast<int64_t>(Converter::kLineWidth);
// A letter-size page, in hundredths of a point: the widest page a PDF report is assumed to
// have when a pitch is weighed against the 500 columns of a line.
constexpr int64_t kPageWidth = 61200;

// The field type codes, as the output writer and the workbook know them.
constexpr std::string_view kTypeCodes[] = {"c",  "r",  "n", "n0", "n1", "n2", "n3", "n4", "n5",
                                           "n6", "nf", "d", "w",  "w1", "w4", "w6", "w8"};
// The pickup actions of rule "a", and those of them that never read the line's text.
constexpr std::string_view kActionsOfA[] = {"set",  "seth", "cat",  "catv", "get",
                                            "getc", "getz", "hold", "keep"};
constexpr std::string_view kActionsWithoutText[] = {"set", "seth", "catv", "get", "getc", "getz"};
constexpr std::string_view kSettingCodes[] = {"HD", "OF", "QS", "TQ", "DL", "RT", "ES", "EN"};

template <size_t N>
bool OneOf(std::string_view word, const std::string_view (&words)[N]) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

std::string Quoted(std::string_view s) {
  return "\"" + std::string(s) + "\"";
}

// Record names as the run compares them: a DLM action keeps four characters, and a pickup
// row's name matches it ignoring case and trailing blanks.
std::string_view RecordOfAction(std::string_view action) {
  return TrimRight(action.substr(0, 4));
}
bool NamesRecord(std::string_view pickupName, std::string_view action) {
  return EqualsNoCase(TrimRight(pickupName), RecordOfAction(action));
}
bool IsSkip(std::string_view action) {
  return action.substr(0, 4) == "skip";
}
bool IsStop(std::string_view action) {
  return action.substr(0, 4) == "stop";
}
// Markers whose action begins with a capital S count their lines (sequences).
bool CountsLines(std::string_view action) {
  return !action.empty() && action.front() == 'S';
}

// True when `word` is one edit (a letter changed, left out, added or two swapped) or only
// case away from `target`: "skp", "Skip", "STOP", "sotp".
bool NearMiss(std::string_view word, std::string_view target) {
  if (word == target) return false;
  if (EqualsNoCase(word, target)) return true;
  std::string a(word);
  for (char& c : a) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  const std::string_view b = target;
  if (a.size() == b.size()) {
    size_t diff = 0, first = 0;
    for (size_t i = 0; i < a.size(); ++i) {
      if (a[i] != b[i] && diff++ == 0) first = i;
    }
    if (diff == 1) return true;
    return diff == 2 && first + 1 < a.size() && a[first] == b[first + 1] &&
           a[first + 1] == b[first];
  }
  const std::string_view longer = a.size() > b.size() ? std::string_view(a) : b;
  const std::string_view shorter = a.size() > b.size() ? b : std::string_view(a);
  if (longer.size() != shorter.size() + 1) return false;
  for (size_t i = 0; i <= shorter.size(); ++i) {
    if (longer.substr(0, i) == shorter.substr(0, i) && longer.substr(i + 1) == shorter.substr(i))
      return true;
  }
  return false;
}

// A section line for a section that does not exist: three capital letters, alone or
// before a blank, and no comma (a data line of one column has no comma either, but its
// value is seldom three capitals).
bool LooksLikeSectionLine(std::string_view line) {
  if (line.size() < 3 || (line.size() > 3 && line[3] != ' ')) return false;
  if (line.find(',') != std::string_view::npos) return false;
  return std::all_of(line.begin(), line.begin() + 3, [](char c) { return c >= 'A' && c <= 'Z'; });
}

std::string SectionCodes(RdfPartKind part) {
  std::string s;
  for (const RdfSection* section : kRdfSections) {
    if (section->part != part) continue;
    if (!s.empty()) s += ", ";
    s += section->code;
  }
  return s;
}

std::string LineList(const std::vector<int64_t>& lines) {
  std::string s;
  for (int64_t l : lines) s += (s.empty() ? "" : ", ") + std::to_string(l);
  return s;
}

struct Line {
  int64_t number;
  std::string text;
};

// A data line, split into its columns, with the numbers of its numeric columns.
struct Row {
  int64_t line = 0;
  std::vector<std::string> cols;
  std::vector<std::optional<int64_t>> nums;
  bool loads = true;  // enough columns, and every number converts

  std::string_view Col(size_t i) const {
    return i < cols.size() ? std::string_view(cols[i]) : std::string_view();
  }
  bool Has(size_t i) const { return i < cols.size() && !cols[i].empty(); }
  // A numeric column that converted, or nothing.
  std::optional<int64_t> Opt(size_t i) const { return i < nums.size() ? nums[i] : std::nullopt; }
  // The same, 0 when it did not (rows that load have them all).
  int64_t Num(size_t i) const { return Opt(i).value_or(0); }
};

struct Section {
  const RdfSection* info;
  int64_t line;
  std::vector<Row> rows;
};

struct Part {
  int64_t line = 0;
  std::string id;  // characters 5-6 of the part line
  std::vector<Section> sections;

  // Every data line of the part's sections of this kind, in file order.
  std::vector<const Row*> Rows(const RdfSection& kind) const {
    std::vector<const Row*> rows;
    for (const Section& s : sections) {
      if (s.info != &kind) continue;
      for (const Row& r : s.rows) rows.push_back(&r);
    }
    return rows;
  }
  int64_t SectionLine(const RdfSection& kind) const {
    for (const Section& s : sections) {
      if (s.info == &kind) return s.line;
    }
    return line;
  }
};

class Checker {
 public:
  explicit Checker(const std::filesystem::path& file) { result_.file = file; }

  RdfCheckResult Run() {
    if (ReadLines()) {
      Structure();
      CheckPartCount();
      CheckIdentification();
      CheckPdf();
      CheckDelimited();
      for (const Part& part : details_) {
        CheckMarkers(part);
        CheckPickups(part);
        CheckSequences(part);
        CheckFields(part);
        CheckSettings(part);
      }
    }
    std::stable_sort(
        result_.diagnostics.begin(), result_.diagnostics.end(),
        [](const RdfDiagnostic& a, const RdfDiagnostic& b) { return a.line < b.line; });
    return std::move(result_);
  }

 private:
  void Report(int64_t line, Severity severity, std::string message) {
    if (!message.empty() && message[0] >= 'a' && message[0] <= 'z') message[0] -= 'a' - 'A';
    (severity == Severity::Error ? result_.errors : result_.warnings)++;
    result_.diagnostics.push_back({result_.file, line, severity, std::move(message)});
  }
  void Error(int64_t line, std::string message) {
    Report(line, Severity::Error, std::move(message));
  }
  void Warn(int64_t line, std::string message) {
    Report(line, Severity::Warning, std::move(message));
  }

  bool ReadLines();
  void IndentedRows();
  void Structure();
  void FirstLine(const Line& line);
  void PartLine(const Line& line);
  void DataLine(Section& section, const Line& line);
  void CheckPartCount();
  void CheckIdentification();
  void CheckFlags(const std::vector<const Row*>& rid, const std::vector<const Row*>& flg);
  void CheckPdf();
  void CheckDelimited();
  void CheckMarkers(const Part& part);
  void CheckPickups(const Part& part);
  void CheckSequences(const Part& part);
  void CheckFields(const Part& part);
  void CheckSettings(const Part& part);
  // The warnings every start and length pair can draw; `end` is its last column, or
  // nothing for "to the end of the line".
  void CheckSegment(const RdfSection& s, const Row& r, size_t start, std::optional<int64_t> end,
                    int64_t width, std::string_view consequence);
  void CheckRuleXLength(const RdfSection& s, const Row& r, size_t startColumn, size_t markerColumn,
                        size_t lengthColumn, int64_t width, bool characters);
  const Part* DetailPart(std::string_view id) const {
    for (const Part& p : details_) {
      if (p.id == id) return &p;
    }
    return nullptr;
  }

  RdfCheckResult result_;
  std::vector<Line> lines_;
  bool utf8_ = false;  // the RDF's texts are UTF-8
  Part header_;
  std::vector<Part> details_;
  std::optional<int64_t> announced_;  // characters 7-8 of the first line
};

bool Checker::ReadLines() {
  const std::filesystem::path& file = result_.file;
  // Checking, as loading, reads the file more than once: a pipe gives its lines once.
  if (std::error_code ec;
      std::filesystem::exists(file, ec) && !std::filesystem::is_regular_file(file, ec)) {
    Error(0, std::filesystem::is_directory(file, ec)
                 ? "this is a folder: name an RDF file"
                 : "this is not a file: an RDF is read more than once, so it cannot come "
                   "through a pipe; save it to a file and name that");
    return false;
  }
  try {
    std::string first;
    {
      LineReader reader(file, kProc);
      std::string_view raw;
      const bool read = reader.Next(raw);
      first = read ? raw : std::string_view();
      // Blanks and line ends alone are an empty file too, as loading calls it.
      const std::string_view head = WithoutBom(first);
      if (!read || IsBlankRdf(file, head, kProc)) {
        Error(0,
              "the file is empty: an RDF begins with its header part line, as in \"RDF 0001T "
              "Invoice register@ARINV01\"");
        return false;
      }
    }
    // A UTF-8 byte-order mark says the RDF's texts are UTF-8; loading reads past it.
    utf8_ = first.starts_with(kUtf8Bom);
    if (utf8_) first.erase(0, kUtf8Bom.size());
    const bool scrambled = IsScrambledFirstLine(first);
    if (!scrambled && !first.starts_with("RDF")) {
      Error(1,
            "the first line begins with blanks: loading reads the RDF, but not this line as its "
            "header part line, so a saved copy loses it and the rest cannot be checked. Begin "
            "the line with \"RDF\"");
      return false;
    }
    if (scrambled && (Trim(first).empty() || first.front() == '[')) {
      Error(1,
            "the first line must be the header part line, as in \"RDF 0001T Invoice "
            "register@ARINV01\": with a comment or an empty line first, loading takes the file "
            "for a scrambled RDF and fails");
      return false;
    }
    RdfLineSource source(file, scrambled, kProc);
    source.ForEachLine(file, [&](std::string_view line) {
      lines_.push_back({source.Line(), std::string(line)});
      return true;
    });
    if (!scrambled) IndentedRows();
    // An "EN" record naming UTF-8 makes the texts UTF-8 too, wherever it stands.
    for (const Line& l : lines_) {
      if (l.text.starts_with("EN,") && EncodingNamed(Trim(l.text.substr(3))) == Encoding::Utf8)
        utf8_ = true;
    }
  } catch (const QbError& e) {
    if (!e.detail().empty()) {
      // A damaged first line is met first by GetRDFInfo, which names it 517.
      const int32_t number =
          e.number() == kRdfCorruptLine && e.line() == 1 ? kRdfCorruptFirst : e.number();
      Error(e.line(), e.detail() + " (loading fails with error " + std::to_string(number) + ", " +
                          std::string(Trim(e.description())) + ")");
    } else {
      Error(e.line(), "the file cannot be read: " + std::string(Trim(e.description())) +
                          " (error " + std::to_string(e.number()) + ")");
    }
    return false;
  }
  return true;
}

// A line that begins with a blank is a comment, and loading skips it without a word; one
// that reads like a row or a section line was most likely indented to set it off.
void Checker::IndentedRows() {
  LineReader reader(result_.file, kProc);
  std::string_view line;
  for (int64_t number = 1; reader.Next(line); ++number) {
    if (number == 1 || line.empty() || line.front() != ' ') continue;
    const std::string_view text = Trim(line);
    const bool section = text.size() == 3 && std::all_of(text.begin(), text.end(), [](char c) {
                           return c >= 'A' && c <= 'Z';
                         });
    if (text.empty() || text.front() == '[' ||
        !(section || text.starts_with("RDF ") || text.find(',') != std::string_view::npos))
      continue;
    Warn(number, "this line begins with a blank, so loading skips it as a comment; if it is a " +
                     std::string(section ? "section line" : "row") + ", take the blanks away");
  }
}

void Checker::Structure() {
  Part* part = &header_;
  Section* section = nullptr;
  bool skipping = false;  // under a section line that loading does not know here
  for (const Line& l : lines_) {
    const std::string_view text = l.text;
    if (text.substr(0, 3) == "RDF") {
      if (&l == &lines_.front()) {
        FirstLine(l);
      } else {
        PartLine(l);
        part = &details_.back();
      }
      section = nullptr;
      skipping = false;
      continue;
    }
    const RdfPartKind kind = part == &header_ ? RdfPartKind::Header : RdfPartKind::Detail;
    if (const RdfSection* s = SectionOfLine(text)) {
      if (text.size() > 3 && text[3] != ' ') {
        Warn(l.number, "this line starts a " + std::string(s->code) +
                           " section, because loading looks only at a line's first three "
                           "characters: a data line may not begin with a section code, and a "
                           "section line is the code alone or followed by a blank");
      }
      if (s->part != kind) {
        Error(l.number,
              std::string(s->code) + " is a section of " +
                  (s->part == RdfPartKind::Header ? "the header part" : "a detail part") +
                  ", so in this part loading " +
                  (section ? "reads it as a data line of the " + std::string(section->info->code) +
                                 " section"
                           : std::string("ignores it")) +
                  ". The sections of " +
                  (kind == RdfPartKind::Header ? "the header part are " : "a detail part are ") +
                  SectionCodes(kind));
        skipping = true;
        continue;
      }
      part->sections.push_back({s, l.number, {}});
      section = &part->sections.back();
      skipping = false;
      continue;
    }
    if (LooksLikeSectionLine(text)) {
      Error(l.number, Quoted(text.substr(0, 3)) +
                          " is not a section code. The sections of the header part are " +
                          SectionCodes(RdfPartKind::Header) + "; those of a detail part are " +
                          SectionCodes(RdfPartKind::Detail));
      skipping = true;
      continue;
    }
    if (skipping) continue;
    if (section == nullptr) {
      Warn(l.number,
           "this data line comes before any section line of its part, so loading ignores it: "
           "put it under the section line it belongs to");
      continue;
    }
    DataLine(*section, l);
  }
}

void Checker::FirstLine(const Line& l) {
  const std::string_view text = l.text;
  header_.line = l.number;
  header_.id = "00";
  const std::string_view id = Mid(text, 5, 2, kProc);
  if (id != "00") {
    Error(l.number,
          "the first line must be the header part line, with 00 in characters 5-6; "
          "they are " +
              Quoted(id) + ". Begin the file with a line such as \"RDF 0001T " +
              "Invoice register@ARINV01\"");
  }
  if (text.size() < 9) {
    Error(l.number, std::string(kShortFirstLineText));
  } else {
    const std::string_view count = Mid(text, 7, 2, kProc);
    try {
      announced_ = ParseInt16(count, kProc);
    } catch (const QbError&) {
      Error(l.number, PartCountText(count));
    }
  }
  if (text.rfind('@') == std::string_view::npos) Error(l.number, std::string(kNoAtSignText));
}

void Checker::PartLine(const Line& l) {
  const std::string id(Mid(l.text, 5, 2, kProc));
  const bool digits = id.size() == 2 && std::isdigit(static_cast<unsigned char>(id[0])) &&
                      std::isdigit(static_cast<unsigned char>(id[1]));
  if (id == "00") {
    Error(l.number,
          "only the first line may be the header part line (00 in characters 5-6): loading "
          "never reads a detail part numbered 00. Number the part 01, 02 and so on");
  } else if (!digits) {
    Error(l.number,
          "characters 5-6 of a part line are its two-digit layout id, such as 01; they are " +
              Quoted(id));
  } else if (const Part* same = DetailPart(id)) {
    Error(l.number, "detail part " + id + " is already on line " + std::to_string(same->line) +
                        ": loading reads only the first. Give each part its own layout id");
  }
  details_.push_back({l.number, id, {}});
}

void Checker::DataLine(Section& section, const Line& l) {
  const RdfSection& s = *section.info;
  Row row;
  row.line = l.number;
  for (std::string_view c : SplitRdfColumns(l.text)) row.cols.emplace_back(c);
  row.nums.resize(row.cols.size());
  if (row.cols.size() < s.required) {
    Error(l.number, TooFewColumnsText(s, row.cols.size()));
    row.loads = false;
  } else if (row.cols.size() > s.columns.size()) {
    Error(l.number, TooManyColumnsText(s, row.cols.size()));
  }
  for (size_t i = 0; i < row.cols.size() && i < s.columns.size(); ++i) {
    const RdfColumn& column = s.columns[i];
    const std::string_view value = row.cols[i];
    if (column.kind == RdfColumnKind::Text) continue;
    if (column.kind == RdfColumnKind::Word) {
      if (LooksLikeNumber(value)) {
        Error(l.number, ColumnText(s, i, value) +
                            "; it must be a word, not a number: a number here usually means "
                            "that a column is missing or extra before it");
      }
      continue;
    }
    if (column.forRuleX) {
      if (value.empty()) continue;
      const auto rule = std::find_if(s.columns.begin(), s.columns.end(),
                                     [](const RdfColumn& c) { return c.name == "rule"; });
      if (row.Col(static_cast<size_t>(rule - s.columns.begin())).substr(0, 1) != "x") {
        Warn(l.number, ColumnText(s, i, value) + "; only rule x reads a length, so it is ignored");
        continue;
      }
    }
    RdfNumber n = ReadRdfNumber(s, i, value);
    if (n.error != 0) {
      Error(l.number, n.problem + " (loading fails with error " + std::to_string(n.error) + ")");
      row.loads = false;
    } else {
      row.nums[i] = n.value;
    }
  }
  section.rows.push_back(std::move(row));
}

void Checker::CheckPartCount() {
  const int64_t line = header_.line;
  if (details_.empty()) {
    Error(line,
          "the file has no detail part: add a part line such as \"RDF 01 Invoice lines\", "
          "followed by its DLM, DLC and FLD sections");
    return;
  }
  std::vector<std::string_view> ids;  // each detail part once
  for (const Part& p : details_) {
    if (p.id != "00" && std::find(ids.begin(), ids.end(), p.id) == ids.end()) ids.push_back(p.id);
  }
  const auto parts = static_cast<int64_t>(ids.size());
  if (announced_ && *announced_ != parts) {
    std::string m = "characters 7-8 of the first line announce " + std::to_string(*announced_) +
                    " detail part" + (*announced_ == 1 ? "" : "s") + ", but the file has " +
                    std::to_string(parts);
    if (*announced_ <= 1) {
      m +=
          ": with fewer than two, loading neither tests the RID rows nor reads FLG, and part 01 is "
          "always the one loaded";
    }
    Error(line, m + ". Write " + (parts < 10 ? "0" : "") + std::to_string(parts));
  }
  if (!DetailPart("01")) {
    if (announced_ && *announced_ >= 2) {
      Warn(line,
           "the file has no detail part 01, the layout loaded when no FLG row matches the "
           "report: loading then fails. Number one of the parts 01");
    } else {
      Error(line,
            "the file has no detail part 01, the layout loaded when the first line "
            "announces one detail part: number the part 01");
    }
  }
}

// How a start and a length column fare: a start before column 1 or a negative length fails
// when the row is used; a segment past `width` is read only up to it.
void Checker::CheckSegment(const RdfSection& s, const Row& r, size_t start,
                           std::optional<int64_t> end, int64_t width,
                           std::string_view consequence) {
  if (r.Num(start) < 1) {
    Error(r.line, ColumnText(s, start, r.Col(start)) + "; columns are counted from 1, and " +
                      std::string(consequence));
    return;
  }
  if (end && *end > width) {
    Warn(r.line, "this " + std::string(s.code) + " row reads up to column " + std::to_string(*end) +
                     ", but only the first " + std::to_string(width) +
                     " characters of a report line are read");
  }
}

// Rule "x" searches, without an explicit length, only as many characters as the marker
// has; with one, that many (0: the rest of the line).
// `characters`: the marker is as long as its UTF-8 characters (a DLM row of a UTF-8 RDF).
void Checker::CheckRuleXLength(const RdfSection& s, const Row& r, size_t startColumn,
                               size_t markerColumn, size_t lengthColumn, int64_t width,
                               bool characters) {
  const auto marker = static_cast<int64_t>(characters ? Utf8Characters(r.Col(markerColumn))
                                                      : r.Col(markerColumn).size());
  const int64_t length = r.Num(lengthColumn);
  if (!r.Has(lengthColumn)) {
    Warn(r.line, "rule x finds the marker anywhere within the length given in column " +
                     std::to_string(lengthColumn + 1) + ", but this row gives none, so it " +
                     "searches only the " + std::to_string(r.Col(markerColumn).size()) +
                     " characters from its start: give the length to search, or 0 for the " +
                     "rest of the line");
  } else if (length < 0) {
    Error(r.line, ColumnText(s, lengthColumn, r.Col(lengthColumn)) +
                      "; a length cannot be negative (0 searches the rest of the line)");
  } else if (length > 0 && length < marker) {
    Warn(r.line, ColumnText(s, lengthColumn, r.Col(lengthColumn)) + ", shorter than the " +
                     std::to_string(marker) +
                     " characters of the marker, so this row never matches: give at least " +
                     std::to_string(marker) + ", or 0 for the rest of the line");
  } else if (const int64_t start = r.Num(startColumn);
             length == 0 && start >= 1 && start + marker - 1 > width) {
    Warn(r.line, "rule x with length 0 searches from column " + std::to_string(start) +
                     " to the end of the line, column " + std::to_string(width) +
                     ", fewer than the " + std::to_string(marker) +
                     " characters of the marker, so this row never matches");
  }
}

// The last column a marker reads, or nothing for rule "x" to the end of the line. A UTF-8
// RDF's DLM markers are as long as their characters, as the run counts them (`characters`).
std::optional<int64_t> MarkerEnd(const Row& r, size_t start, size_t rule, size_t marker,
                                 size_t length, bool characters = false) {
  const std::string_view text = r.Col(marker);
  auto count = static_cast<int64_t>(characters ? Utf8Characters(text) : text.size());
  if (r.Col(rule).substr(0, 1) == "x" && r.Has(length)) {
    if (r.Num(length) == 0) return std::nullopt;
    count = r.Num(length);
  }
  return r.Num(start) + count - 1;
}

void Checker::CheckIdentification() {
  using R = rdfcol::RID;
  const std::vector<const Row*> rid = header_.Rows(kRID);
  const std::vector<const Row*> flg = header_.Rows(kFLG);
  for (const Row* r : rid) {
    if (!r->loads) continue;
    CheckSegment(kRID, *r, R::Start, MarkerEnd(*r, R::Start, R::Rule, R::Marker, R::Length),
                 kIdentifyWidth, "identification stops with error 5 at the first report line");
    const std::string_view rule = r->Col(R::Rule);
    // "=" equals, "p" and "x" contain; any other character is a class that every character
    // of the text must pass, and one that is no class lets every text pass.
    const bool known =
        !rule.empty() && (std::string_view("=pxbnsd./").find(rule[0]) != std::string_view::npos ||
                          kPatternPunctuation.find(rule[0]) != std::string_view::npos);
    if (known && rule.size() > 1) {
      Warn(r->line, ColumnText(kRID, R::Rule, rule) + "; a rule is one character, so only " +
                        Quoted(rule.substr(0, 1)) + " counts: write it alone");
    } else if (!known && !LooksLikeNumber(rule)) {
      Error(r->line,
            ColumnText(kRID, R::Rule, rule) +
                "; it must be = (the text equals the marker), p or x (the text contains "
                "it), or a class every character must pass: n (digits), b (blanks), s (not "
                "all blanks), d (a dot somewhere), . or /. With any other rule every report line "
                "passes the test");
    }
    if (rule.substr(0, 1) == "x")
      CheckRuleXLength(kRID, *r, R::Start, R::Marker, R::Length, kIdentifyWidth, false);
    const std::string_view action = Trim(r->Col(R::Action));
    if (action.substr(0, 4) != "stop" && NearMiss(action, "stop")) {
      Warn(r->line, ColumnText(kRID, R::Action, r->Col(R::Action)) +
                        "; only stop, in lower case, ends the identification: write stop, or "
                        "leave the action empty");
    }
  }
  if ((!rid.empty() || !flg.empty()) && announced_ && *announced_ < 2) {
    Warn(rid.empty() ? header_.SectionLine(kFLG) : header_.SectionLine(kRID),
         "the first line announces fewer than two detail parts, so loading neither tests the "
         "RID rows nor reads FLG: part 01 is always loaded");
  }
  CheckFlags(rid, flg);
  if (!announced_ || *announced_ < 2) return;
  for (const Part& p : details_) {
    if (p.id == "01" || p.id == "00") continue;
    const bool chosen = std::any_of(flg.begin(), flg.end(), [&](const Row* f) {
      std::string id(f->Col(rdfcol::Pair::Key).substr(0, 2));
      id.resize(2, ' ');
      return id == p.id;
    });
    if (!chosen) {
      Warn(p.line, "no FLG row chooses layout " + p.id + ", so this part is never loaded");
    }
  }
}

void Checker::CheckFlags(const std::vector<const Row*>& rid, const std::vector<const Row*>& flg) {
  // The flag string has one character for each RID row: 1 when a test with a flag id of F
  // and a digit was met, else 0. A FLG row's flags are kept in 16 characters, blank-padded,
  // and the first row whose flags begin with the flag string chooses the layout.
  const size_t n = rid.size();
  std::vector<std::pair<std::string, int64_t>> chosen;  // flags that can match, and their line
  for (size_t k = 0; k < flg.size(); ++k) {
    const Row& f = *flg[k];
    if (!f.loads) continue;
    std::string id(f.Col(rdfcol::Pair::Key).substr(0, 2));
    id.resize(2, ' ');
    if (!DetailPart(id)) {
      Error(f.line, "this FLG row chooses layout " + Quoted(id) + ", but no part line begins " +
                        Quoted("RDF " + id) + ": loading fails with error 9 for a report it " +
                        "chooses. Correct the layout id, or add the part");
    }
    if (n == 0) {
      if (k == 0 && announced_ && *announced_ >= 2) {
        Warn(f.line,
             "there are no RID rows, so the flag string is empty and this first FLG "
             "row always chooses the layout");
      }
      continue;
    }
    std::string stored(f.Col(rdfcol::Pair::Value).substr(0, 16));
    stored.resize(16, ' ');
    const std::string prefix = stored.substr(0, std::min<size_t>(n, 16));
    std::string why;
    const std::string_view flags = f.Col(rdfcol::Pair::Value);
    if (n > 16 || flags.size() < n) {
      why = "the flags " + Quoted(flags) + " have " + std::to_string(flags.size()) +
            (flags.size() == 1 ? " character" : " characters") +
            ", but the flag string has one for each of the " + std::to_string(n) + " RID rows";
    }
    for (size_t i = 0; i < n && i < flags.size() && why.empty(); ++i) {
      const std::string_view fid = rid[i]->Col(rdfcol::RID::FlagId);
      const bool flagged = fid.size() >= 2 && fid[0] == 'F' && fid[1] >= '0' && fid[1] <= '9';
      if (flags[i] != '0' && flags[i] != '1') {
        why = "character " + std::to_string(i + 1) + " of the flags is " +
              Quoted(flags.substr(i, 1)) + ", and the flag string holds only 0 and 1";
      } else if (flags[i] == '1' && !flagged) {
        why = "character " + std::to_string(i + 1) +
              " of the flags is 1, but the RID row on line " + std::to_string(rid[i]->line) +
              " has the flag id " + Quoted(fid) + ", not F and a digit, so its flag is always 0";
      }
    }
    if (!why.empty()) {
      Error(f.line, "this FLG row never matches: " + why +
                        ". Write a 0 or 1 for each RID row, "
                        "in their order");
      continue;
    }
    const auto same = std::find_if(chosen.begin(), chosen.end(),
                                   [&](const auto& c) { return c.first == prefix; });
    if (same != chosen.end()) {
      Warn(f.line, "this FLG row is never chosen: the row on line " + std::to_string(same->second) +
                       " has the same flags and comes first");
    } else {
      chosen.emplace_back(prefix, f.line);
    }
  }
}

void Checker::CheckPdf() {
  using P = rdfcol::PDP;
  using C = rdfcol::PDC;
  const std::vector<const Row*> pdp = header_.Rows(kPDP);
  const std::vector<const Row*> pdc = header_.Rows(kPDC);
  if (pdp.size() > 1) Warn(pdp[1]->line, "only the first PDP row is read; this one is ignored");
  if (!pdp.empty() && pdp[0]->loads) {
    const Row& r = *pdp[0];
    const std::string_view bands = r.Col(P::BandsOnly);
    if (!bands.empty() && !EqualsNoCase(bands, "Y") && !EqualsNoCase(bands, "N") &&
        !LooksLikeNumber(bands)) {
      Warn(r.line, ColumnText(kPDP, P::BandsOnly, bands) +
                       "; only Y drops the text outside the PDC bands, anything else places it "
                       "by the pitch, as N does: write Y or N");
    }
    for (size_t i : {P::Pitch, P::Margin, P::YLimit}) {
      if (r.Num(i) < 0) {
        Warn(r.line, ColumnText(kPDP, i, r.Col(i)) +
                         "; a negative value counts as 0, which takes it from the page");
      }
    }
    const int64_t pitch = r.Num(P::Pitch), margin = std::max<int64_t>(0, r.Num(P::Margin));
    if (pitch >= 1 && pitch <= 60) {
      Warn(r.line, ColumnText(kPDP, P::Pitch, r.Col(P::Pitch)) +
                       "; the pitch is in hundredths of a point (480 is 4.8 points), so this is "
                       "too narrow for a column of text: it looks like points. Write it times "
                       "100");
    } else if (pitch > 60 && (kPageWidth - margin) > pitch * kLineWidth) {
      Warn(r.line, ColumnText(kPDP, P::Pitch, r.Col(P::Pitch)) +
                       "; at this pitch the right edge of a letter-size page (612 points) falls "
                       "at column " +
                       std::to_string((kPageWidth - margin) / pitch + 1) +
                       ", but a line keeps only 500 columns, so text right of " +
                       std::to_string((margin + pitch * kLineWidth) / 100) +
                       " points is lost. A pitch of at least " +
                       std::to_string((kPageWidth - margin + kLineWidth - 1) / kLineWidth) +
                       " fits the page");
    }
    if (r.Num(P::Margin) >= 1 && r.Num(P::Margin) <= 99) {
      Warn(r.line, ColumnText(kPDP, P::Margin, r.Col(P::Margin)) +
                       "; the margin is in hundredths of a point, so this is less than a point "
                       "from the page's edge: it looks like points. Write it times 100 (3600 for "
                       "36 points)");
    }
  }
  if (pdc.empty()) return;
  if (pdp.empty()) {
    Warn(header_.SectionLine(kPDC),
         "PDC bands are used only for PDF reports, and this RDF has no PDP section: nothing "
         "reads them");
  }
  bool anyX = false, allSmall = true;
  for (const Row* r : pdc) {
    if (!r->loads) continue;
    for (size_t i : {C::XStart1, C::XStart2, C::XEnd1, C::XEnd2}) {
      if (r->Num(i) == 0) continue;
      anyX = true;
      allSmall = allSmall && r->Num(i) < 1000;
    }
    if (r->Num(C::XStart1) > r->Num(C::XStart2)) {
      Warn(r->line, "x start 1 (" + std::to_string(r->Num(C::XStart1)) +
                        ") is greater than x start 2 (" + std::to_string(r->Num(C::XStart2)) +
                        "), so no piece's left edge falls in this band: give the window's left "
                        "end first");
    }
    if (r->Num(C::XEnd2) > 0 && r->Num(C::XEnd1) > r->Num(C::XEnd2)) {
      Warn(r->line, "x end 1 (" + std::to_string(r->Num(C::XEnd1)) + ") is greater than x end 2 (" +
                        std::to_string(r->Num(C::XEnd2)) +
                        "), so no piece's right edge falls in this band: give the window's left "
                        "end first");
    }
    if (r->Num(C::Column) < 1 || r->Num(C::Column) > kLineWidth) {
      Warn(r->line, ColumnText(kPDC, C::Column, r->Col(C::Column)) +
                        "; the band's text is written from this column, and a line has columns "
                        "1 to 500, so the text is lost");
    }
    if (!r->Col(C::Tag).empty() &&
        (r->Num(C::TagColumn) < 1 || r->Num(C::TagColumn) > kLineWidth)) {
      Warn(r->line, ColumnText(kPDC, C::TagColumn, r->Col(C::TagColumn)) +
                        "; a line has columns 1 to 500, so the tag is never written");
    }
  }
  if (anyX && allSmall) {
    Warn(header_.SectionLine(kPDC),
         "every x position in PDC is below 1000, that is within 10 points of the page's left "
         "edge: positions are in hundredths of a point, so these look like points. Write them "
         "times 100 (36 points is 3600)");
  }
}

void Checker::CheckDelimited() {
  using D = rdfcol::DFC;
  const std::vector<const Row*> dfi = header_.Rows(kDFI);
  const std::vector<const Row*> dfc = header_.Rows(kDFC);
  if (dfi.size() > 1) Warn(dfi[1]->line, "only the first DFI row is read; this one is ignored");
  if (!dfi.empty() && dfi[0]->loads) {
    const std::string delimiter = DelimiterOf(dfi[0]->Col(rdfcol::Pair::Key));
    if (delimiter.empty()) {
      Error(dfi[0]->line, NoDelimiterText() + " (loading fails with error 5)");
    } else if (delimiter.size() > 1) {
      Warn(dfi[0]->line, ColumnText(kDFI, rdfcol::Pair::Key, delimiter) +
                             "; only its first character, " + Quoted(delimiter.substr(0, 1)) +
                             ", separates the input's fields");
    }
  }
  if (!dfc.empty() && dfi.empty()) {
    Warn(header_.SectionLine(kDFC),
         "DFC is used only for delimited input, and this RDF has no DFI section: nothing "
         "reads it");
  }
  for (size_t k = 0; k < dfc.size(); ++k) {
    const Row& r = *dfc[k];
    if (!r.loads) continue;
    if (r.Num(D::Column) < 1 || r.Num(D::Column) > kLineWidth) {
      Error(r.line, ColumnText(kDFC, D::Column, r.Col(D::Column)) +
                        "; columns run from 1 to 500: the run stops with error 5 at the first "
                        "input line");
    }
    if (r.Num(D::InputField) != static_cast<int64_t>(k + 1)) {
      Warn(r.line, ColumnText(kDFC, D::InputField, r.Col(D::InputField)) +
                       "; DFC rows are taken in order, so this row, the " + std::to_string(k + 1) +
                       (k == 0   ? "st"
                        : k == 1 ? "nd"
                        : k == 2 ? "rd"
                                 : "th") +
                       ", places input field " + std::to_string(k + 1) +
                       " whatever this column says. Keep the rows in the order of the input's "
                       "fields, numbered 1, 2, 3 and so on");
    }
  }
}

// "skip" or "stop" when the marker row's action looks like one of them misspelt, and the
// row does nothing that a record of that name would: no DLC row reads it, and (unless
// only the case differs) it has neither a wait slot nor a group. Else "".
std::string_view MisspeltAction(const Row& r, const std::vector<const Row*>& dlc) {
  using M = rdfcol::DLM;
  const std::string_view action = r.Col(M::Action);
  if (IsSkip(action) || IsStop(action)) return {};
  const bool used = std::any_of(dlc.begin(), dlc.end(), [&](const Row* p) {
    return NamesRecord(p->Col(rdfcol::DLC::Record), action);
  });
  const bool idle = r.Num(M::WaitSlot) == 0 && r.Num(M::Group) == 0;
  for (std::string_view word : {"skip", "stop"}) {
    if (!used && NearMiss(action, word) && (idle || EqualsNoCase(action, word))) return word;
  }
  return {};
}

void Checker::CheckMarkers(const Part& part) {
  using M = rdfcol::DLM;
  const std::vector<const Row*> dlm = part.Rows(kDLM);
  const std::vector<const Row*> dlc = part.Rows(kDLC);
  for (size_t j = 0; j < dlm.size(); ++j) {
    const Row& r = *dlm[j];
    if (!r.loads) continue;
    const std::string_view rule = r.Col(M::Rule);
    const bool known =
        !rule.empty() && std::string_view("=px").find(rule[0]) != std::string_view::npos;
    const std::string_view action = r.Col(M::Action);
    const bool skipOrStop = IsSkip(action) || IsStop(action);
    // Rules "=" and "p" past the end are worse than cut short: see below.
    CheckSegment(kDLM, r, M::Start,
                 known && rule[0] != '=' && rule[0] != 'p'
                     ? MarkerEnd(r, M::Start, M::Rule, M::Marker, M::Length, utf8_)
                     : std::nullopt,
                 kLineWidth, "the run fails with error 5 at the first line that reaches this row");
    if (!known && !LooksLikeNumber(rule)) {
      const size_t hidden = dlm.size() - j - 1;
      Error(r.line, ColumnText(kDLM, M::Rule, rule) +
                        "; it must be = (equals), p (pattern) or x (contains). Any other rule "
                        "ends the search for a marker at this row, so no line ever matches it" +
                        (hidden == 0 ? std::string()
                                     : " or the " + std::to_string(hidden) + " row" +
                                           (hidden == 1 ? "" : "s") + " after it (to line " +
                                           std::to_string(dlm.back()->line) + ")"));
    } else if (known && rule.size() > 1) {
      Warn(r.line, ColumnText(kDLM, M::Rule, rule) + "; a rule is one character, so it acts as " +
                       Quoted(rule.substr(0, 1)) + ": write that alone");
    }
    if (known && rule[0] == 'x')
      CheckRuleXLength(kDLM, r, M::Start, M::Marker, M::Length, kLineWidth, utf8_);
    if (known && (rule[0] == '=' || rule[0] == 'p') && r.Num(M::Start) >= 1) {
      if (const auto end = MarkerEnd(r, M::Start, M::Rule, M::Marker, M::Length, utf8_);
          end && *end > kLineWidth) {
        Warn(r.line,
             "this marker reaches column " + std::to_string(*end) +
                 ", but only the first 500 characters of a report line are read, " +
                 (rule[0] == '=' ? "and rule = compares the whole marker, so this row never matches"
                                 : "and its pattern finds no character past column 500, which "
                                   "b and punctuation refuse and every other pattern character "
                                   "accepts: a pattern wholly past it matches every line"));
      }
    }
    const int64_t wait = r.Num(M::WaitSlot);
    if (skipOrStop && wait != 0) {
      Warn(r.line, ColumnText(kDLM, M::WaitSlot, r.Col(M::WaitSlot)) + "; a " +
                       std::string(action.substr(0, 4)) +
                       " row writes no record, so its wait slot is not used: write 0");
    } else if (wait < 0 || wait > 10) {
      Error(r.line, ColumnText(kDLM, M::WaitSlot, r.Col(M::WaitSlot)) +
                        "; a wait slot is 1 to 10, or 0 for none: the run fails with error 9 at "
                        "every line this row matches");
    }
    const std::string_view sub = r.Col(M::SubGroup);
    if (!sub.empty() && sub != "y" && !LooksLikeNumber(sub)) {
      Warn(r.line, ColumnText(kDLM, M::SubGroup, sub) +
                       "; only a lower-case y counts repeated groups, so this reads as no");
    }
    if (Trim(action).empty()) {
      Warn(r.line, ColumnText(kDLM, M::Action, action) +
                       "; write skip to pass over the lines this row matches, stop to end the "
                       "conversion there, or the name of the record whose DLC rows read them");
    } else if (skipOrStop && action.size() > 4) {
      Warn(r.line, ColumnText(kDLM, M::Action, action) +
                       "; only its first four characters count, so it acts as " +
                       std::string(action.substr(0, 4)) + ": write that alone");
    } else if (const std::string_view meant = MisspeltAction(r, dlc); !meant.empty()) {
      Error(r.line, ColumnText(kDLM, M::Action, action) + "; it looks like a misspelt " +
                        std::string(meant) +
                        ": only skip and stop, in lower case, are actions, and as written the "
                        "lines this row matches make a record of that name that no DLC row "
                        "reads. Write " +
                        std::string(meant));
    } else if (!skipOrStop && action.size() > 4 && !LooksLikeNumber(action)) {
      Warn(r.line, ColumnText(kDLM, M::Action, action) +
                       "; a record name keeps only its first four characters, so this record is " +
                       Quoted(RecordOfAction(action)) + " and its DLC rows must use that name");
    }
    if (!known) continue;
    // The first row that matches a line wins: an earlier row that matches every line this
    // one would hides it.
    for (size_t i = 0; i < j; ++i) {
      const Row& e = *dlm[i];
      if (!e.loads) continue;
      const std::string_view earlierRule = e.Col(M::Rule);
      if (earlierRule.empty() ||
          std::string_view("=px").find(earlierRule[0]) == std::string_view::npos)
        break;  // reported as an unknown rule
      if (e.Num(M::Start) < 1) continue;
      const bool same = earlierRule[0] == rule[0] && e.Num(M::Start) == r.Num(M::Start) &&
                        e.Col(M::Marker) == r.Col(M::Marker) &&
                        MarkerEnd(e, M::Start, M::Rule, M::Marker, M::Length, utf8_) ==
                            MarkerEnd(r, M::Start, M::Rule, M::Marker, M::Length, utf8_);
      if (same || e.Col(M::Marker).empty()) {
        Warn(r.line, "this DLM row never matches: the row on line " + std::to_string(e.line) +
                         (same ? " has the same rule, start, length and marker"
                               : " has an empty marker, so it matches every line") +
                         ", and the first row that matches a line wins");
        break;
      }
    }
  }
}

void Checker::CheckPickups(const Part& part) {
  using P = rdfcol::DLC;
  using M = rdfcol::DLM;
  const std::vector<const Row*> dlm = part.Rows(kDLM);
  const std::vector<const Row*> dlc = part.Rows(kDLC);
  const std::vector<const Row*> fld = part.Rows(kFLD);
  auto groupStarted = [&](int64_t group) {
    return std::any_of(dlm.begin(), dlm.end(), [&](const Row* m) {
      const int64_t g = m->Num(M::Group) < 0 ? -m->Num(M::Group) : m->Num(M::Group);
      return g == group || (g != 0 && g < group && m->Col(M::SubGroup) == "y");
    });
  };
  for (const Row* rp : dlc) {
    const Row& r = *rp;
    if (!r.loads) continue;
    const std::string_view name = r.Col(P::Record);
    std::vector<const Row*> markers;
    const Row* skipping = nullptr;
    const Row* longName = nullptr;
    for (const Row* m : dlm) {
      const std::string_view action = m->Col(M::Action);
      if (!NamesRecord(name, action)) {
        if (TrimRight(name).size() > 4 && NamesRecord(name.substr(0, 4), action)) longName = m;
        continue;
      }
      if (IsSkip(action) || IsStop(action)) {
        skipping = m;
      } else {
        markers.push_back(m);
      }
    }
    if (markers.empty() && !LooksLikeNumber(name)) {
      std::string m = ColumnText(kDLC, P::Record, name);
      if (longName) {
        m += "; a record name keeps only four characters, so the DLM row on line " +
             std::to_string(longName->line) + " names the record " +
             Quoted(RecordOfAction(longName->Col(M::Action))) +
             ", and this row, which compares the whole name, never applies. Use a name of at "
             "most four characters in both places";
      } else if (skipping) {
        m += "; the DLM row on line " + std::to_string(skipping->line) + " " +
             (IsSkip(skipping->Col(M::Action)) ? "passes over" : "stops at") +
             " these lines and picks up nothing, so this row never applies";
      } else {
        m += "; no DLM row has this action, so this row never applies. The record name must be "
             "the action of the DLM row whose lines it reads";
      }
      Error(r.line, m);
    }
    const std::string_view rule = r.Col(P::Rule);
    const std::string_view action = r.Col(P::Action);
    if (rule != "=" && rule != "a" && rule != "=p") {
      if (!LooksLikeNumber(rule)) {
        Error(r.line, ColumnText(kDLC, P::Rule, rule) +
                          "; it must be =, a or =p: with any other rule the text is stored as it "
                          "stands, as with =");
      }
    } else if (!LooksLikeNumber(action)) {
      std::string problem;
      if (rule == "=" && !action.empty() && action != "skip" && action != "prev") {
        problem =
            "; with rule = the action is empty (store the text), skip (store it unless it "
            "equals the value) or prev (the previous record's value when the text equals "
            "the value)";
      } else if (rule == "a" && !OneOf(action, kActionsOfA)) {
        problem =
            "; with rule a the action is one of set, seth, cat, catv, get, getc, getz, "
            "hold and keep, in lower case";
      } else if (rule == "=p" && !action.empty() && action != "set") {
        problem = "; with rule =p the action is set, or empty to keep what the field has";
      }
      if (!problem.empty()) {
        Error(r.line, ColumnText(kDLC, P::Action, action) + problem +
                          ". Anything else stores the text as it stands");
      }
    }
    const bool readsText = rule != "=p" && !(rule == "a" && OneOf(action, kActionsWithoutText));
    if (r.Num(P::Length) < 0) {
      Error(r.line, ColumnText(kDLC, P::Length, r.Col(P::Length)) +
                        "; a length cannot be negative: the run reports Pickup Data Error at "
                        "every line this row reads");
    } else if (readsText && r.Num(P::Length) == 0) {
      Warn(r.line, ColumnText(kDLC, P::Length, r.Col(P::Length)) +
                       "; this row always picks up an empty text");
    }
    CheckSegment(
        kDLC, r, P::Start,
        readsText ? std::optional<int64_t>(r.Num(P::Start) + r.Num(P::Length) - 1) : std::nullopt,
        kLineWidth, "the run reports Pickup Data Error at every line this row reads");
    const int64_t field = r.Num(P::Field);
    if (std::none_of(fld.begin(), fld.end(),
                     [&](const Row* f) { return f->Opt(rdfcol::FLD::Field) == field; })) {
      Error(r.line, ColumnText(kDLC, P::Field, r.Col(P::Field)) + ", but FLD defines no field " +
                        std::to_string(field) +
                        ": the run reports Pickup Data Error at every line this row reads. Add "
                        "the field to FLD, or correct the number");
    }
    if (rule == "=p") {
      for (const Row* m : markers) {
        if (m->Num(M::WaitSlot) != 0) continue;
        Error(r.line,
              "rule =p needs the wait slot of its record's marker, but the DLM row on "
              "line " +
                  std::to_string(m->line) +
                  " has wait slot 0: the run reports Pickup Data Error at every line "
                  "it matches. Give that row a wait slot from 1 to 10");
        break;
      }
    }
    const int64_t group = r.Num(P::Group);
    if (group < 0) {
      Warn(r.line, ColumnText(kDLC, P::Group, r.Col(P::Group)) +
                       "; the current group is never negative (a DLM row with group -" +
                       std::to_string(-group) + " starts group " + std::to_string(-group) +
                       "), so this row never applies");
    } else if (group > 0 && !groupStarted(group)) {
      Warn(r.line, ColumnText(kDLC, P::Group, r.Col(P::Group)) +
                       "; no DLM row starts this group, so this row never applies");
    }
  }
}

void Checker::CheckSequences(const Part& part) {
  using P = rdfcol::DLC;
  const std::vector<const Row*> dlm = part.Rows(kDLM);
  const std::vector<const Row*> dlc = part.Rows(kDLC);
  std::vector<std::string> done;
  for (const Row* first : dlc) {
    const std::string_view name = TrimRight(first->Col(P::Record));
    if (!first->loads || std::any_of(done.begin(), done.end(),
                                     [&](const std::string& d) { return EqualsNoCase(d, name); }))
      continue;
    done.emplace_back(name);
    bool counted = false, uncounted = false;
    std::string_view action;
    for (const Row* m : dlm) {
      const std::string_view a = m->Col(rdfcol::DLM::Action);
      if (!NamesRecord(name, a) || IsSkip(a) || IsStop(a)) continue;
      (CountsLines(a) ? counted : uncounted) = true;
      action = RecordOfAction(a);
    }
    if (counted == uncounted) continue;  // no marker, or both kinds: nothing certain
    std::vector<const Row*> rows;
    for (const Row* r : dlc) {
      if (r->loads && EqualsNoCase(TrimRight(r->Col(P::Record)), name)) rows.push_back(r);
    }
    std::vector<int64_t> dead;
    for (const Row* r : rows) {
      if (counted ? r->Num(P::Sequence) <= 0 : r->Num(P::Sequence) != 0) dead.push_back(r->line);
    }
    if (dead.empty()) continue;
    const std::string record = "record " + Quoted(action);
    if (uncounted) {
      Warn(dead.front(),
           record +
               " does not begin with a capital S, so its lines are not counted and are all "
               "sequence 0: its DLC rows with another sequence (line" +
               (dead.size() == 1 ? " " : "s ") + LineList(dead) +
               ") never apply. Set their sequence to 0, or, if the lines are to be counted, give "
               "the record a name that begins with S in DLM and DLC");
    } else if (dead.size() == rows.size()) {
      Warn(dead.front(),
           record +
               " begins with a capital S, so its lines are counted: the first such line of "
               "a record is sequence 1, the next 2, and so on, counting again after each "
               "record written and at every DLM row with a group; only the DLC rows of a "
               "line's sequence apply to it. All its DLC rows have sequence 0, so none ever "
               "applies: give each row the sequence of the line it reads, or rename the "
               "record so that it does not begin with S");
    } else {
      for (int64_t line : dead) {
        Warn(line, record +
                       " begins with a capital S, so its lines are counted from 1 and a DLC "
                       "row with sequence 0 never applies: give this row the sequence of "
                       "the line it reads");
      }
    }
  }
}

void Checker::CheckFields(const Part& part) {
  using F = rdfcol::FLD;
  using P = rdfcol::DLC;
  const std::vector<const Row*> fld = part.Rows(kFLD);
  const std::vector<const Row*> dlc = part.Rows(kDLC);
  if (fld.empty()) {
    Warn(part.line, "detail part " + part.id + " has no FLD rows, so a run has no field to write");
    return;
  }
  bool anyWritten = false;
  for (size_t k = 0; k < fld.size(); ++k) {
    const Row& r = *fld[k];
    if (!r.loads) continue;
    const int64_t number = r.Num(F::Field);
    const std::string_view type = r.Col(F::Type);
    const bool written = r.Col(F::Output) == "y";
    anyWritten = anyWritten || written;
    for (size_t i = 0; i < k; ++i) {
      if (fld[i]->Opt(F::Field) != number) continue;
      Error(r.line, ColumnText(kFLD, F::Field, r.Col(F::Field)) + "; field " +
                        std::to_string(number) + " is already defined on line " +
                        std::to_string(fld[i]->line) +
                        ", and pickups fill only the first, so this one stays empty");
      break;
    }
    if (!OneOf(type, kTypeCodes) && !LooksLikeNumber(type)) {
      const bool caseOnly = std::any_of(std::begin(kTypeCodes), std::end(kTypeCodes),
                                        [&](std::string_view t) { return EqualsNoCase(t, type); });
      Error(r.line, ColumnText(kFLD, F::Type, type) +
                        (caseOnly ? "; type codes are lower case"
                                  : "; it must be a type code: c (text), r (record type, on "
                                    "field 1), n, n0 to n6 or nf (numbers), d (date), or w, w1, "
                                    "w4, w6 or w8 (wrapped text)"));
    } else if (type == "r" && number != 1) {
      Warn(r.line, ColumnText(kFLD, F::Type, type) +
                       "; type r marks the record type only on field 1, so this field is "
                       "written as text, as with c: write c");
    }
    const std::string_view output = r.Col(F::Output);
    if (output != "y" && output != "n" && !LooksLikeNumber(output)) {
      Warn(r.line, ColumnText(kFLD, F::Output, output) +
                       "; only a lower-case y writes the field, so this one is not written: "
                       "write y or n");
    }
    const int64_t label = r.Num(F::LabelFlag);
    if (label > 0 && std::none_of(fld.begin(), fld.end(),
                                  [&](const Row* f) { return f->Opt(F::Field) == label; })) {
      Warn(r.line, ColumnText(kFLD, F::LabelFlag, r.Col(F::LabelFlag)) +
                       "; it names the field whose first value becomes the label, but FLD "
                       "defines no such field");
    }
    if (!written) continue;
    for (size_t i = 0; i < k; ++i) {
      const Row& e = *fld[i];
      if (!e.loads || e.Col(F::Output) != "y" || e.Num(F::Order) != r.Num(F::Order)) continue;
      Warn(r.line, ColumnText(kFLD, F::Order, r.Col(F::Order)) + ", as for field " +
                       std::to_string(e.Num(F::Field)) + " on line " + std::to_string(e.line) +
                       ": give each written field its own place");
      break;
    }
    const bool filled = std::any_of(dlc.begin(), dlc.end(), [&](const Row* p) {
      return p->Opt(P::Field) == number &&
             !(p->Col(P::Rule) == "a" &&
               (p->Col(P::Action) == "hold" || p->Col(P::Action) == "seth"));
    });
    if (!filled) {
      Warn(r.line, "field " + std::to_string(number) + " (" + std::string(Trim(r.Col(F::Label))) +
                       ") is written, but no DLC row fills it, so its column is always empty");
    }
  }
  if (!anyWritten) {
    Warn(part.SectionLine(kFLD),
         "no field of detail part " + part.id +
             " is written (output y), so a run refuses to start (\"At least one Output field "
             "must be selected.\") until fields are chosen: in the grid, or with --fields");
  }
}

void Checker::CheckSettings(const Part& part) {
  using S = rdfcol::Pair;
  const std::vector<const Row*> fld = part.Rows(kFLD);
  const bool recordField = std::any_of(fld.begin(), fld.end(), [](const Row* f) {
    return f->Opt(rdfcol::FLD::Field) == 1 && f->Col(rdfcol::FLD::Type) == "r";
  });
  for (const Row* r : part.Rows(kRLF)) {
    if (!r->loads) continue;
    const std::string_view code = r->Col(S::Key).substr(0, 2);
    const std::string_view value = r->Col(S::Value);
    if (!OneOf(code, kSettingCodes)) {
      if (!LooksLikeNumber(r->Col(S::Key))) {
        Warn(r->line, ColumnText(kRLF, S::Key, r->Col(S::Key)) +
                          "; loading ignores it: the codes are HD, OF, QS, TQ, DL, RT, ES and EN");
      }
    } else if (code == "OF" && !FormatOfExtension(value)) {
      Warn(r->line, ColumnText(kRLF, S::Value, value) +
                        "; the output type is .txt, .csv, .xls or .xlsx, and a run whose output "
                        "type this record gives (no output name gives another) refuses any other");
    } else if (code == "EN" && !EncodingNamed(value)) {
      Warn(r->line, ColumnText(kRLF, S::Value, value) + "; the encodings are " + EncodingNames() +
                        ", and a run with this RDF refuses any other unless its encoding is set "
                        "for the run (--set encoding=NAME)");
    } else if (code == "DL" && Trim(value).empty()) {
      Warn(r->line,
           "the delimiter is empty, and a .txt output needs one: a run that writes a "
           ".txt with this RDF fails (write \"comma\" or the character)");
    } else if (code == "RT" && !OneOf(value, kRecordSelections)) {
      Warn(r->line, ColumnText(kRLF, S::Value, value) +
                        "; the record selections are All Records, Details Only and Totals Only, "
                        "and anything else writes every record");
    } else if (code == "RT" && value != "All Records" && !recordField) {
      Warn(r->line, Quoted(value) +
                        " chooses records by field 1 of type r, and field 1 here is not of type "
                        "r, so every record is written");
    }
  }
}

}  // namespace

RdfCheckResult CheckRdf(const std::filesystem::path& rdf) {
  return Checker(rdf).Run();
}

std::string FormatDiagnostic(const RdfDiagnostic& d) {
  std::string s = d.file.string();
  if (d.line > 0) s += ":" + std::to_string(d.line);
  s += d.severity == RdfDiagnostic::Severity::Error ? ": error: " : ": warning: ";
  return s + d.message;
}

std::string CheckSummary(const RdfCheckResult& result) {
  auto count = [](int n, std::string_view what) {
    return std::to_string(n) + " " + std::string(what) + (n == 1 ? "" : "s");
  };
  return result.file.filename().string() + ": " + count(result.errors, "error") + ", " +
         count(result.warnings, "warning");
}

}  // namespace qb
