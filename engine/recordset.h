#pragma once
// A small in-memory table of typed records with a movable cursor, filters and sorts: the
// facility behind the twelve RDF tables.
//
// Records keep insertion order. A Recordset is a cursor over shared storage; Clone() gives
// a second, independent cursor over the same records (edits through one are seen by the
// other). Filter and Sort take texts:
//
//   Filter("((fldMRK = 'INV' And fldSEQ = 1 And fldGRP = 0)  Or (fldMRK = 'INV' And ..."))
//   Sort("fldOUT DESC,fldORD")
//
// A filter is Or/And (any case) over comparisons `field op value` with = <> > < >= <=, and
// parentheses; numbers bare, strings in single quotes ('' for a quote), True and False for
// booleans. Text comparisons ignore case and trailing blanks, so "INV" in a text(4) field
// (stored "INV ") matches 'INV'. Booleans order False before True. Sorts are stable.
//
// Each distinct text is parsed once per table and kept compiled; applying it again costs no
// parsing and, once the view has grown to the table's size, no allocation.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qb {

enum class FieldType { Text, String, Int32, Int64, Bool };

struct FieldDef {
  std::string name;
  FieldType type;
  int width = 0;  // characters, for Text only
};

class Recordset {
 public:
  Recordset() = default;
  explicit Recordset(std::vector<FieldDef> fields);

  // A second cursor over the same records, positioned at the first record, unfiltered.
  Recordset Clone() const;
  // A table of its own with the same fields and records (a deep copy), positioned at the
  // first record, unfiltered and in table order.
  Recordset Copy() const;

  bool IsOpen() const { return static_cast<bool>(store_); }
  const std::vector<FieldDef>& Fields() const;
  // The index of a field by name (case-insensitive). Throws QbError 3265 when unknown.
  int FieldIndex(std::string_view name) const;

  // Cursor. BOF is before the first record, EOF after the last; both at once when empty.
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  bool IsBOF() const { return pos_ < 0 || view().empty(); }
  bool IsEOF() const { return pos_ >= static_cast<int>(view().size()) || view().empty(); }
  // Records the cursor can reach (after the filter).
  int RecordCount() const { return static_cast<int>(view().size()); }

  // Appends a record (blank text, empty strings, zeros, False) and makes it current.
  void AddNew();
  // Deletes the current record; the cursor then stands on the next one.
  void Delete();

  // Fields of the current record. Throw QbError 3021 when there is none, 13 for a type that
  // does not fit the field.
  std::string_view GetText(int field) const;  // text(n) comes back blank-padded to n
  int64_t GetInt(int field) const;
  bool GetBool(int field) const;
  void SetText(int field, std::string_view value);  // text(n): padded or cut to n
  void SetInt(int field, int64_t value);            // int32: QbError 6 outside its range
  void SetBool(int field, bool value);

  // Restricts the cursor to matching records and moves to the first; "" shows all.
  // Throws QbError 3001 (quoting the text) for a malformed text or an unknown field.
  void Filter(std::string_view text);
  // Orders the cursor's records and moves to the first; "" restores table order.
  void Sort(std::string_view text);
  // Moves forward from the current record (included) to the first that meets a one-field
  // criterion such as "fldFLD = 3"; EOF when none does. The filter is not changed.
  void Find(std::string_view criterion);

  struct Store;  // records and compiled texts, shared by clones
  struct Compiled;

 private:
  const std::vector<uint32_t>& view() const;
  void rebuildView();
  const struct Record& current() const;
  struct Record& current();

  std::shared_ptr<Store> store_;
  Compiled* filter_ = nullptr;  // owned by the store's cache
  Compiled* sort_ = nullptr;
  bool allRecords_ = true;  // no filter and no sort: the view is every live record
  std::vector<uint32_t> view_;
  int pos_ = 0;
};

}  // namespace qb
