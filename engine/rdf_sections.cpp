#include "engine/rdf_sections.h"

#include "base/bytes.h"
#include "base/errors.h"

namespace qb {
namespace {

std::string Names(const RdfSection& section, size_t count) {
  std::string s;
  for (size_t i = 0; i < count && i < section.columns.size(); ++i) {
    if (i > 0) s += ", ";
    s += section.columns[i].name;
  }
  return s;
}

std::string Columns(size_t n) {
  return std::to_string(n) + (n == 1 ? " column" : " columns");
}

// 32767 as "32,767", as the docs write large numbers.
std::string Grouped(int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
  return n < 0 ? "-" + digits : digits;
}

}  // namespace

const RdfSection* SectionOfLine(std::string_view line) {
  const std::string_view code = line.substr(0, 3);
  for (const RdfSection* s : kRdfSections) {
    if (s->code == code) return s;
  }
  return nullptr;
}

std::vector<std::string_view> SplitRdfColumns(std::string_view line) {
  std::vector<std::string_view> cols;
  for (;;) {
    const size_t comma = line.find(',');
    cols.push_back(line.substr(0, comma));
    if (comma == std::string_view::npos) return cols;
    line.remove_prefix(comma + 1);
  }
}

std::string TooFewColumnsText(const RdfSection& section, size_t have) {
  return std::string(section.code) + " line has " + Columns(have) + "; " +
         std::to_string(section.required) + " are needed: " + Names(section, section.required);
}

std::string TooManyColumnsText(const RdfSection& section, size_t have) {
  return std::string(section.code) + " line has " + Columns(have) + "; at most " +
         std::to_string(section.columns.size()) +
         " are read: " + Names(section, section.columns.size()) +
         ". A comma always starts a new column, so no value can hold one";
}

std::string ColumnText(const RdfSection& section, size_t column, std::string_view value) {
  std::string s = std::string(section.code) + " column " + std::to_string(column + 1) + ", the " +
                  std::string(section.columns[column].name) + ", is ";
  const std::string_view v = Trim(value);
  if (v.empty()) return s + "empty";
  if (LooksLikeNumber(v)) return s + std::string(v);
  return s + "\"" + std::string(value) + "\"";
}

RdfNumber ReadRdfNumber(const RdfSection& section, size_t column, std::string_view text) {
  const bool wide = section.columns[column].kind == RdfColumnKind::Int32;
  RdfNumber n;
  try {
    n.value = wide ? ParseInt32(text, section.code) : ParseInt16(text, section.code);
    return n;
  } catch (const QbError& e) {
    n.error = e.number();
  }
  n.problem = ColumnText(section, column, text);
  if (n.error == kOverflow) {
    const bool negative = Trim(text).substr(0, 1) == "-";
    const int64_t limit =
        negative ? (wide ? INT32_MIN : INT16_MIN) : (wide ? INT32_MAX : INT16_MAX);
    n.problem += (negative ? "; it must be at least " : "; it must be at most ") + Grouped(limit);
  } else {
    n.problem += "; it must be a whole number";
  }
  return n;
}

std::string PartCountText(std::string_view chars) {
  return "characters 7-8 of the first line, the number of detail parts, are \"" +
         std::string(chars) + "\"; they must be two digits, such as 01";
}

std::string NoDelimiterText() {
  return ColumnText(kDFI, rdfcol::Pair::Key, "") +
         "; write tab, comma, or the character that separates the input's fields";
}

std::string MissingPartText(std::string_view id, std::string_view seen) {
  return "no part line begins \"RDF " + std::string(id) + "\"" +
         (seen.empty() ? std::string("; the file has no detail part at all")
                       : "; the file's detail parts are " + std::string(seen)) +
         ". Add the part, or correct what chose layout " + std::string(id) +
         ": the FLG rows, or the count of detail parts in characters 7-8 of the first line";
}

bool LooksLikeNumber(std::string_view text) {
  std::string_view t = Trim(text);
  if (!t.empty() && (t.front() == '+' || t.front() == '-')) t.remove_prefix(1);
  if (t.empty()) return false;
  for (char c : t) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

}  // namespace qb
