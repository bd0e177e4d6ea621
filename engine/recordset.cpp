#include "engine/recordset.h"

#include <limits>
#include <unordered_map>
#include <utility>

#include "base/bytes.h"
#include "base/errors.h"

namespace qb {

struct Record {
  struct Cell {
    std::string text;
    int64_t number = 0;
  };
  std::vector<Cell> cells;
};

namespace {

enum class Op { Eq, Ne, Gt, Lt, Ge, Le };

char Lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Three-way comparison without regard to case; trailing blanks are not significant.
int CompareText(std::string_view a, std::string_view b) {
  a = TrimRight(a);
  b = TrimRight(b);
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    unsigned char x = static_cast<unsigned char>(Lower(a[i]));
    unsigned char y = static_cast<unsigned char>(Lower(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

bool Holds(Op op, int cmp) {
  switch (op) {
    case Op::Eq:
      return cmp == 0;
    case Op::Ne:
      return cmp != 0;
    case Op::Gt:
      return cmp > 0;
    case Op::Lt:
      return cmp < 0;
    case Op::Ge:
      return cmp >= 0;
    case Op::Le:
      return cmp <= 0;
  }
  return false;
}

bool IsTextType(FieldType t) {
  return t == FieldType::Text || t == FieldType::String;
}

struct StringHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};

}  // namespace

struct Recordset::Compiled {
  struct Node {
    enum Kind { And, Or, Compare } kind = Compare;
    int left = -1, right = -1;  // And, Or
    int field = -1;             // Compare
    Op op = Op::Eq;
    bool text = false;
    std::string value;
    int64_t number = 0;
  };
  std::vector<Node> nodes;
  int root = -1;  // -1: no condition (every record)

  // The records this filter matched, valid while the table's generation is unchanged, so
  // a table that does not change (the pickup rows during a run) is scanned once per text.
  uint64_t matchedGeneration = ~uint64_t{0};
  std::vector<uint32_t> matched;

  struct Key {
    int field;
    bool descending;
  };
  std::vector<Key> keys;

  bool Matches(const Record& r, int node) const {
    const Node& n = nodes[static_cast<size_t>(node)];
    switch (n.kind) {
      case Node::And:
        return Matches(r, n.left) && Matches(r, n.right);
      case Node::Or:
        return Matches(r, n.left) || Matches(r, n.right);
      case Node::Compare: {
        const Record::Cell& c = r.cells[static_cast<size_t>(n.field)];
        int cmp = n.text ? CompareText(c.text, n.value)
                         : (c.number < n.number ? -1 : (c.number > n.number ? 1 : 0));
        return Holds(n.op, cmp);
      }
    }
    return false;
  }
  bool Matches(const Record& r) const { return root < 0 || Matches(r, root); }
};

struct Recordset::Store {
  uint64_t generation = 0;  // bumped by every change of records or field values
  std::vector<FieldDef> fields;
  std::vector<Record> records;  // never shrinks: deleted records leave the live list only
  std::vector<uint32_t> live;
  std::unordered_map<std::string, std::unique_ptr<Compiled>, StringHash, std::equal_to<>> filters;
  std::unordered_map<std::string, std::unique_ptr<Compiled>, StringHash, std::equal_to<>> sorts;

  // The compiled form of a filter or sort text, parsed on first use only.
  template <typename ParseFn>
  Compiled* Compile(std::unordered_map<std::string, std::unique_ptr<Compiled>, StringHash,
                                       std::equal_to<>>& cache,
                    std::string_view text, ParseFn parse) {
    auto it = cache.find(text);
    if (it == cache.end()) {
      auto compiled = std::make_unique<Compiled>();
      parse(text, fields, *compiled);
      it = cache.emplace(std::string(text), std::move(compiled)).first;
    }
    return it->second.get();
  }
};

namespace {

// Parses a filter text into a compiled condition.
class FilterParser {
 public:
  FilterParser(std::string_view text, const std::vector<FieldDef>& fields, Recordset::Compiled& out)
      : text_(text), rest_(text), fields_(fields), out_(out) {}

  void Parse() {
    skipBlanks();
    if (rest_.empty()) return;  // empty filter: every record
    out_.root = parseOr();
    skipBlanks();
    if (!rest_.empty()) fail("unexpected text at \"" + std::string(rest_.substr(0, 20)) + "\"");
  }

 private:
  using Node = Recordset::Compiled::Node;

  [[noreturn]] void fail(const std::string& why) const {
    throw QbError(kBadArguments, "Filter", "Invalid filter \"" + std::string(text_) + "\": " + why);
  }

  void skipBlanks() {
    while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\t'))
      rest_.remove_prefix(1);
  }

  // Takes a keyword (And, Or) when it stands next, as a whole word.
  bool takeWord(std::string_view word) {
    skipBlanks();
    if (rest_.size() < word.size() || !EqualsNoCase(rest_.substr(0, word.size()), word)) {
      return false;
    }
    if (rest_.size() > word.size() && IsIdentChar(rest_[word.size()])) return false;
    rest_.remove_prefix(word.size());
    return true;
  }

  static bool IsIdentChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  }

  int add(Node n) {
    out_.nodes.push_back(std::move(n));
    return static_cast<int>(out_.nodes.size() - 1);
  }

  int branch(Node::Kind kind, int left, int right) {
    Node n;
    n.kind = kind;
    n.left = left;
    n.right = right;
    return add(std::move(n));
  }

  int parseOr() {
    int left = parseAnd();
    while (takeWord("Or")) left = branch(Node::Or, left, parseAnd());
    return left;
  }

  int parseAnd() {
    int left = parsePrimary();
    while (takeWord("And")) left = branch(Node::And, left, parsePrimary());
    return left;
  }

  int parsePrimary() {
    skipBlanks();
    if (!rest_.empty() && rest_.front() == '(') {
      rest_.remove_prefix(1);
      int inner = parseOr();
      skipBlanks();
      if (rest_.empty() || rest_.front() != ')') fail("a parenthesis is not closed");
      rest_.remove_prefix(1);
      return inner;
    }
    return parseComparison();
  }

  int parseComparison() {
    skipBlanks();
    size_t n = 0;
    while (n < rest_.size() && IsIdentChar(rest_[n])) ++n;
    if (n == 0) fail("a field name is missing");
    std::string_view name = rest_.substr(0, n);
    rest_.remove_prefix(n);
    Node node;
    node.kind = Node::Compare;
    for (size_t i = 0; i < fields_.size(); ++i) {
      if (EqualsNoCase(fields_[i].name, name)) node.field = static_cast<int>(i);
    }
    if (node.field < 0) fail("unknown field '" + std::string(name) + "'");
    const FieldDef& def = fields_[static_cast<size_t>(node.field)];

    skipBlanks();
    static constexpr std::pair<std::string_view, Op> kOps[] = {{"<>", Op::Ne}, {">=", Op::Ge},
                                                               {"<=", Op::Le}, {"=", Op::Eq},
                                                               {">", Op::Gt},  {"<", Op::Lt}};
    bool haveOp = false;
    for (auto [text, op] : kOps) {
      if (rest_.substr(0, text.size()) == text) {
        node.op = op;
        rest_.remove_prefix(text.size());
        haveOp = true;
        break;
      }
    }
    if (!haveOp) fail("a comparison operator is missing after '" + std::string(name) + "'");

    skipBlanks();
    node.text = IsTextType(def.type);
    if (!rest_.empty() && rest_.front() == '\'') {
      if (!node.text) fail("field '" + def.name + "' is not text");
      node.value = parseQuoted();
      if (def.type == FieldType::Text)
        node.value = node.value.substr(0, static_cast<size_t>(def.width));
    } else if (bool isTrue = takeWord("True"); isTrue || takeWord("False")) {
      if (def.type != FieldType::Bool) fail("field '" + def.name + "' is not a boolean");
      node.number = isTrue ? 1 : 0;
    } else {
      if (node.text) fail("a text value in single quotes is needed for '" + def.name + "'");
      size_t len = 0;
      if (len < rest_.size() && (rest_[len] == '-' || rest_[len] == '+')) ++len;
      while (len < rest_.size() && rest_[len] >= '0' && rest_[len] <= '9') ++len;
      std::string_view digits = rest_.substr(0, len);
      if (digits.empty() || digits == "-" || digits == "+")
        fail("a value is missing after '" + def.name + "'");
      try {
        node.number = ParseInt32(digits, "Filter");
      } catch (const QbError&) {
        fail("the number " + std::string(digits) + " is out of range");
      }
      if (def.type == FieldType::Bool) node.number = node.number != 0 ? 1 : 0;
      rest_.remove_prefix(len);
    }
    return add(std::move(node));
  }

  std::string parseQuoted() {
    rest_.remove_prefix(1);
    std::string value;
    for (;;) {
      if (rest_.empty()) fail("a quoted value is not closed");
      char c = rest_.front();
      rest_.remove_prefix(1);
      if (c == '\'') {
        if (!rest_.empty() && rest_.front() == '\'') {
          value += '\'';
          rest_.remove_prefix(1);
          continue;
        }
        return value;
      }
      value += c;
    }
  }

  std::string_view text_;
  std::string_view rest_;
  const std::vector<FieldDef>& fields_;
  Recordset::Compiled& out_;
};

void ParseFilter(std::string_view text, const std::vector<FieldDef>& fields,
                 Recordset::Compiled& out) {
  FilterParser(text, fields, out).Parse();
}

void ParseSort(std::string_view text, const std::vector<FieldDef>& fields,
               Recordset::Compiled& out) {
  auto fail = [&](const std::string& why) {
    throw QbError(kBadArguments, "Sort", "Invalid sort \"" + std::string(text) + "\": " + why);
  };
  std::string_view rest = text;
  while (!Trim(rest).empty()) {
    size_t comma = rest.find(',');
    std::string_view item = Trim(rest.substr(0, comma));
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    bool descending = false;
    if (size_t blank = item.find(' '); blank != std::string_view::npos) {
      std::string_view dir = Trim(item.substr(blank + 1));
      item = item.substr(0, blank);
      if (EqualsNoCase(dir, "DESC"))
        descending = true;
      else if (!EqualsNoCase(dir, "ASC"))
        fail("unknown direction '" + std::string(dir) + "'");
    }
    int field = -1;
    for (size_t i = 0; i < fields.size(); ++i) {
      if (EqualsNoCase(fields[i].name, item)) field = static_cast<int>(i);
    }
    if (field < 0) fail("unknown field '" + std::string(item) + "'");
    out.keys.push_back({field, descending});
  }
}

}  // namespace

Recordset::Recordset(std::vector<FieldDef> fields) : store_(std::make_shared<Store>()) {
  store_->fields = std::move(fields);
}

Recordset Recordset::Clone() const {
  Recordset r;
  r.store_ = store_;
  return r;
}

Recordset Recordset::Copy() const {
  Recordset r;
  if (!store_) return r;
  r.store_ = std::make_shared<Store>();
  r.store_->fields = store_->fields;
  r.store_->records = store_->records;
  r.store_->live = store_->live;
  r.rebuildView();
  r.MoveFirst();
  return r;
}

const std::vector<FieldDef>& Recordset::Fields() const {
  return store_->fields;
}

int Recordset::FieldIndex(std::string_view name) const {
  for (size_t i = 0; i < store_->fields.size(); ++i) {
    if (EqualsNoCase(store_->fields[i].name, name)) return static_cast<int>(i);
  }
  throw QbError(kItemNotFound, "Recordset", "No field named '" + std::string(name) + "'");
}

const std::vector<uint32_t>& Recordset::view() const {
  static const std::vector<uint32_t> kEmpty;
  if (!store_) return kEmpty;
  return allRecords_ ? store_->live : view_;
}

void Recordset::MoveFirst() {
  pos_ = 0;
}
void Recordset::MoveLast() {
  pos_ = static_cast<int>(view().size()) - 1;
}
void Recordset::MoveNext() {
  if (pos_ < static_cast<int>(view().size())) ++pos_;
}
void Recordset::MovePrevious() {
  if (pos_ >= 0) --pos_;
}

const Record& Recordset::current() const {
  const auto& v = view();
  if (pos_ < 0 || pos_ >= static_cast<int>(v.size())) {
    throw QbError(kNoCurrentRecord, "Recordset",
                  "Either BOF or EOF is True, or the current record has been deleted");
  }
  return store_->records[v[static_cast<size_t>(pos_)]];
}

Record& Recordset::current() {
  return const_cast<Record&>(std::as_const(*this).current());
}

void Recordset::AddNew() {
  Record r;
  r.cells.resize(store_->fields.size());
  for (size_t i = 0; i < store_->fields.size(); ++i) {
    const FieldDef& f = store_->fields[i];
    if (f.type == FieldType::Text) r.cells[i].text.assign(static_cast<size_t>(f.width), ' ');
  }
  ++store_->generation;
  store_->records.push_back(std::move(r));
  uint32_t id = static_cast<uint32_t>(store_->records.size() - 1);
  store_->live.push_back(id);
  if (!allRecords_) view_.push_back(id);
  pos_ = static_cast<int>(view().size()) - 1;
}

void Recordset::Delete() {
  current();  // validates the position
  uint32_t id = view()[static_cast<size_t>(pos_)];
  ++store_->generation;
  std::erase(store_->live, id);
  if (!allRecords_) std::erase(view_, id);
}

std::string_view Recordset::GetText(int field) const {
  const FieldDef& f = store_->fields.at(static_cast<size_t>(field));
  if (!IsTextType(f.type)) throw QbError::Runtime(kTypeMismatch, "Recordset");
  return current().cells[static_cast<size_t>(field)].text;
}

int64_t Recordset::GetInt(int field) const {
  const FieldDef& f = store_->fields.at(static_cast<size_t>(field));
  if (IsTextType(f.type)) throw QbError::Runtime(kTypeMismatch, "Recordset");
  return current().cells[static_cast<size_t>(field)].number;
}

bool Recordset::GetBool(int field) const {
  return GetInt(field) != 0;
}

void Recordset::SetText(int field, std::string_view value) {
  const FieldDef& f = store_->fields.at(static_cast<size_t>(field));
  if (!IsTextType(f.type)) throw QbError::Runtime(kTypeMismatch, "Recordset");
  std::string& cell = current().cells[static_cast<size_t>(field)].text;
  ++store_->generation;
  if (f.type == FieldType::Text) {
    size_t width = static_cast<size_t>(f.width);
    cell.assign(value.substr(0, width));
    cell.resize(width, ' ');
  } else {
    cell.assign(value);
  }
}

void Recordset::SetInt(int field, int64_t value) {
  const FieldDef& f = store_->fields.at(static_cast<size_t>(field));
  if (IsTextType(f.type)) throw QbError::Runtime(kTypeMismatch, "Recordset");
  if (f.type == FieldType::Int32 && (value < std::numeric_limits<int32_t>::min() ||
                                     value > std::numeric_limits<int32_t>::max())) {
    throw QbError::Runtime(kOverflow, "Recordset");
  }
  if (f.type == FieldType::Bool) value = value != 0;
  current().cells[static_cast<size_t>(field)].number = value;
  ++store_->generation;
}

void Recordset::SetBool(int field, bool value) {
  SetInt(field, value ? 1 : 0);
}

void Recordset::Filter(std::string_view text) {
  filter_ = Trim(text).empty() ? nullptr : store_->Compile(store_->filters, text, ParseFilter);
  rebuildView();
}

void Recordset::Sort(std::string_view text) {
  sort_ = Trim(text).empty() ? nullptr : store_->Compile(store_->sorts, text, ParseSort);
  rebuildView();
}

void Recordset::rebuildView() {
  pos_ = 0;
  allRecords_ = filter_ == nullptr && sort_ == nullptr;
  if (allRecords_) return;
  if (filter_) {
    Compiled& f = *filter_;
    if (f.matchedGeneration != store_->generation) {
      f.matched.clear();
      for (uint32_t id : store_->live) {
        if (f.Matches(store_->records[id])) f.matched.push_back(id);
      }
      f.matchedGeneration = store_->generation;
    }
    view_.assign(f.matched.begin(), f.matched.end());
  } else {
    view_.assign(store_->live.begin(), store_->live.end());
  }
  if (!sort_) return;
  // Insertion sort: stable, in place, and quick for tables of a few dozen records.
  auto less = [this](uint32_t a, uint32_t b) {
    const Record& x = store_->records[a];
    const Record& y = store_->records[b];
    for (const Compiled::Key& k : sort_->keys) {
      const auto& cx = x.cells[static_cast<size_t>(k.field)];
      const auto& cy = y.cells[static_cast<size_t>(k.field)];
      int cmp = IsTextType(store_->fields[static_cast<size_t>(k.field)].type)
                    ? CompareText(cx.text, cy.text)
                    : (cx.number < cy.number ? -1 : (cx.number > cy.number ? 1 : 0));
      if (cmp != 0) return k.descending ? cmp > 0 : cmp < 0;
    }
    return false;
  };
  for (size_t i = 1; i < view_.size(); ++i) {
    uint32_t id = view_[i];
    size_t j = i;
    while (j > 0 && less(id, view_[j - 1])) {
      view_[j] = view_[j - 1];
      --j;
    }
    view_[j] = id;
  }
}

void Recordset::Find(std::string_view criterion) {
  const Compiled& c = *store_->Compile(store_->filters, criterion, ParseFilter);
  const auto& v = view();
  if (pos_ < 0) pos_ = 0;
  while (pos_ < static_cast<int>(v.size()) &&
         !c.Matches(store_->records[v[static_cast<size_t>(pos_)]])) {
    ++pos_;
  }
}

}  // namespace qb
