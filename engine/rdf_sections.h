#pragma once
// The sections of an RDF and the columns of their data lines: one description that the
// loader reads lines by and the checker checks them against, so that both name a column the
// same way ("DLM column 4, the group") and agree on which columns a line needs.
//
// Columns are counted from 1 in every message, as users count them in docs/rdf-format.md;
// the indices below count from 0, as the code does.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

enum class RdfColumnKind : uint8_t {
  Text,   // any text
  Word,   // a rule, an action, a name or a switch: a number there means shifted columns
  Int16,  // a whole number from -32,768 to 32,767
  Int32,  // a whole number from -2,147,483,648 to 2,147,483,647
};

struct RdfColumn {
  std::string_view name;
  RdfColumnKind kind;
  // The explicit length of rule "x": loading converts it only for that rule.
  bool forRuleX = false;
};

enum class RdfPartKind : uint8_t { Header, Detail };

struct RdfSection {
  std::string_view code;
  RdfPartKind part;
  std::span<const RdfColumn> columns;  // all the columns a line may have, in order
  size_t required;                     // the leading columns every line must have
};

// Column indices, by section.
namespace rdfcol {
struct RID {
  enum : size_t { FlagId, Start, Rule, Marker, Action, Length };
};
struct PDC {
  enum : size_t { XStart1, XStart2, XEnd1, XEnd2, Column, Tag, TagColumn, TagMarker };
};
struct PDP {
  enum : size_t { BandsOnly, Pitch, Margin, YLimit };
};
struct DFC {
  enum : size_t { InputField, Column, Tag, TagColumn, TagMarker };
};
struct DLM {
  enum : size_t { Start, Rule, Marker, Group, WaitSlot, Action, Length, SubGroup };
};
struct DLC {
  enum : size_t { Record, Group, Sequence, Field, Start, Length, Rule, Value, Action };
};
struct FLD {
  enum : size_t { Field, Output, Type, Order, LabelFlag, Label, Action };
};
// DIN, FLG, DFI and RLF: a code or key, then its value.
struct Pair {
  enum : size_t { Key, Value };
};
}  // namespace rdfcol

namespace rdf_sections_detail {
using K = RdfColumnKind;
inline constexpr RdfColumn kDIN[] = {{"code", K::Text}, {"value", K::Text}};
inline constexpr RdfColumn kRID[] = {{"flag id", K::Word}, {"start", K::Int16},
                                     {"rule", K::Word},    {"marker", K::Text},
                                     {"action", K::Word},  {"length", K::Int16, true}};
inline constexpr RdfColumn kFLG[] = {{"layout id", K::Text}, {"flags", K::Text}};
inline constexpr RdfColumn kPDP[] = {
    {"bands only", K::Word}, {"pitch", K::Int32}, {"margin", K::Int32}, {"y limit", K::Int32}};
inline constexpr RdfColumn kPDC[] = {{"x start 1", K::Int32},  {"x start 2", K::Int32},
                                     {"x end 1", K::Int32},    {"x end 2", K::Int32},
                                     {"column", K::Int16},     {"tag", K::Text},
                                     {"tag column", K::Int16}, {"tag marker", K::Text}};
inline constexpr RdfColumn kDFI[] = {{"delimiter", K::Text}, {"text qualifier", K::Text}};
inline constexpr RdfColumn kDFC[] = {{"input field", K::Int32},
                                     {"column", K::Int16},
                                     {"tag", K::Text},
                                     {"tag column", K::Int16},
                                     {"tag marker", K::Text}};
inline constexpr RdfColumn kDLM[] = {{"start", K::Int16},        {"rule", K::Word},
                                     {"marker", K::Text},        {"group", K::Int16},
                                     {"wait slot", K::Int16},    {"action", K::Word},
                                     {"length", K::Int16, true}, {"sub-group", K::Word}};
inline constexpr RdfColumn kDLC[] = {
    {"record name", K::Word}, {"group", K::Int16}, {"sequence", K::Int16},
    {"field", K::Int16},      {"start", K::Int16}, {"length", K::Int16},
    {"rule", K::Word},        {"value", K::Text},  {"action", K::Word}};
inline constexpr RdfColumn kFLD[] = {
    {"field", K::Int16},      {"output", K::Word}, {"type", K::Word},  {"order", K::Int16},
    {"label flag", K::Int16}, {"label", K::Text},  {"action", K::Text}};
inline constexpr RdfColumn kRLF[] = {{"code", K::Word}, {"value", K::Text}};
static_assert(std::size(kRID) == rdfcol::RID::Length + 1);
static_assert(std::size(kPDP) == rdfcol::PDP::YLimit + 1);
static_assert(std::size(kPDC) == rdfcol::PDC::TagMarker + 1);
static_assert(std::size(kDFC) == rdfcol::DFC::TagMarker + 1);
static_assert(std::size(kDLM) == rdfcol::DLM::SubGroup + 1);
static_assert(std::size(kDLC) == rdfcol::DLC::Action + 1);
static_assert(std::size(kFLD) == rdfcol::FLD::Action + 1);
}  // namespace rdf_sections_detail

inline constexpr RdfSection kDIN{"DIN", RdfPartKind::Header, rdf_sections_detail::kDIN, 2};
inline constexpr RdfSection kRID{"RID", RdfPartKind::Header, rdf_sections_detail::kRID, 5};
inline constexpr RdfSection kFLG{"FLG", RdfPartKind::Header, rdf_sections_detail::kFLG, 2};
inline constexpr RdfSection kPDP{"PDP", RdfPartKind::Header, rdf_sections_detail::kPDP, 4};
inline constexpr RdfSection kPDC{"PDC", RdfPartKind::Header, rdf_sections_detail::kPDC, 8};
inline constexpr RdfSection kDFI{"DFI", RdfPartKind::Header, rdf_sections_detail::kDFI, 2};
inline constexpr RdfSection kDFC{"DFC", RdfPartKind::Header, rdf_sections_detail::kDFC, 5};
inline constexpr RdfSection kDLM{"DLM", RdfPartKind::Detail, rdf_sections_detail::kDLM, 6};
inline constexpr RdfSection kDLC{"DLC", RdfPartKind::Detail, rdf_sections_detail::kDLC, 8};
inline constexpr RdfSection kFLD{"FLD", RdfPartKind::Detail, rdf_sections_detail::kFLD, 6};
inline constexpr RdfSection kRLF{"RLF", RdfPartKind::Detail, rdf_sections_detail::kRLF, 2};

// Every section, header sections first, each part's in the order an RDF writes them.
inline constexpr std::array<const RdfSection*, 11> kRdfSections{
    &kDIN, &kRID, &kFLG, &kPDP, &kPDC, &kDFI, &kDFC, &kDLM, &kDLC, &kFLD, &kRLF};

// Report lines are read 500 characters wide for the run; identification (RID) tests
// their first 600.
inline constexpr int64_t kIdentifyWidth = 600;

// The section a line starts: loading looks only at a line's first three characters, so
// "RLF SECTION" starts RLF. Null for any other line.
const RdfSection* SectionOfLine(std::string_view line);

// A data line's columns: split at every comma (there is no quoting), not trimmed.
std::vector<std::string_view> SplitRdfColumns(std::string_view line);

// "DLC line has 5 columns; 8 are needed: record name, group, ..., value".
std::string TooFewColumnsText(const RdfSection& section, size_t have);
// "DLC line has 11 columns; at most 9 are read: ...".
std::string TooManyColumnsText(const RdfSection& section, size_t have);
// "DLM column 4, the group, is "x1"": the start of every message about one column.
std::string ColumnText(const RdfSection& section, size_t column, std::string_view value);

// A numeric column converted as loading converts it. `error` is 0, or the error loading
// raises (13 for text, 6 for a number out of range) with `problem` saying why, as in
// "FLD column 1, the field, is 40000; it must be at most 32,767".
struct RdfNumber {
  int64_t value = 0;
  int32_t error = 0;
  std::string problem;
};
// REQUIRES: the column's kind is Int16 or Int32.
RdfNumber ReadRdfNumber(const RdfSection& section, size_t column, std::string_view text);

// True when `text` reads as a whole number (optional blanks and sign, then digits).
bool LooksLikeNumber(std::string_view text);

// The details of the "Corrupted RDF" errors and of the first line's other faults, in the
// words both loading and the checker use.
inline constexpr std::string_view kBadChecksumText =
    "the file is read as scrambled, because its first line does not begin with RDF, and the "
    "unscrambled first line does not end with the checksum of its text: the file was changed "
    "after it was scrambled, or it is not an RDF";
inline constexpr std::string_view kShortFirstLineText =
    "the first line is too short: characters 7-8 must give the number of detail parts and "
    "character 9 the kind, as in \"RDF 0001T Invoice register@ARINV01\"";
// Characters 7-8 of the first line are not a number.
std::string PartCountText(std::string_view chars);
// The DFI line's delimiter is empty.
std::string NoDelimiterText();
// Loading wanted detail part `id`; `seen` lists the detail parts the file has.
std::string MissingPartText(std::string_view id, std::string_view seen);
inline constexpr std::string_view kNoAtSignText =
    "the first line has no \"@\": it must end with \"@\" and the name of the program that "
    "prints the report, as in \"RDF 0001T Invoice register@ARINV01\"";

}  // namespace qb
