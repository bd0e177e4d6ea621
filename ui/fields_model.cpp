#include "ui/fields_model.h"

#include <algorithm>
#include <string>
#include <vector>

#include "base/text_encoding.h"
#include "engine/rdf_tables.h"

namespace qb::ui {

using F = col::Fields;

bool FieldsModel::seek(int row) const {
  if (!fields_.IsOpen() || row < 0) return false;
  fields_.MoveFirst();
  for (int i = 0; i < row && !fields_.IsEOF(); ++i) fields_.MoveNext();
  return !fields_.IsEOF();
}

QString FieldsModel::Label(std::string_view bytes) const {
  if (utf8_) return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
  std::string text;
  AppendWindows1252AsUtf8(text, bytes);
  return QString::fromStdString(text);
}

// A character Windows-1252 lacks is written as "?", as the code page's converters do.
std::string FieldsModel::LabelBytes(const QString& text) const {
  if (utf8_) return text.toStdString();
  return Alphabet().Units(text.toStdString(), /*utf8=*/true);
}

int FieldsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() || !fields_.IsOpen() ? 0 : fields_.RecordCount();
}

QVariant FieldsModel::data(const QModelIndex& index, int role) const {
  if ((role != Qt::DisplayRole && role != Qt::EditRole) || !seek(index.row())) return {};
  switch (index.column()) {
    case 0:
      return fields_.GetBool(F::fldOUT) ? QStringLiteral("Y") : QStringLiteral("N");
    case 1:
      return static_cast<int>(fields_.GetInt(F::fldORD));
    default:
      return Label(fields_.GetText(F::fldLAB));
  }
}

QVariant FieldsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (role != Qt::DisplayRole) return {};
  if (orientation == Qt::Vertical) return section + 1;
  static const char* kTitles[] = {"Output", "Order", "Column Label"};
  return QString::fromLatin1(kTitles[section]);
}

Qt::ItemFlags FieldsModel::flags(const QModelIndex& index) const {
  return QAbstractTableModel::flags(index) | Qt::ItemIsEditable;
}

bool FieldsModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (role != Qt::EditRole || !seek(index.row())) return false;
  const QString text = value.toString().trimmed();
  switch (index.column()) {
    case 0: {
      const QString yn = text.toLower();
      if (yn != "y" && yn != "n") return false;  // only y or n
      fields_.SetBool(F::fldOUT, yn == "y");
      break;
    }
    case 1: {
      bool digits = !text.isEmpty();
      for (QChar c : text) digits = digits && c.isDigit();
      if (!digits) return false;  // digits only
      const int order = text.toInt();
      if (order < 1 || order > 99) {
        refuse_("Invalid Output Order number must be > 0 or <= 99");
        return false;
      }
      fields_.SetInt(F::fldORD, order);
      fields_.SetInt(F::fldTMP, order);
      break;
    }
    default:
      fields_.SetText(F::fldLAB, LabelBytes(text));
      break;
  }
  emit dataChanged(index, index);
  return true;
}

void FieldsModel::Reload() {
  beginResetModel();
  endResetModel();
}

int FieldsModel::Move(int row, int step) {
  if (!seek(row)) return row;
  const int64_t moved = fields_.GetInt(F::fldFLD);
  struct Field {
    int64_t number, order;
    size_t table;  // place in table order, which breaks ties between equal orders
  };
  std::vector<Field> output;
  fields_.Sort("");
  for (fields_.MoveFirst(); !fields_.IsEOF(); fields_.MoveNext()) {
    output.push_back({fields_.GetInt(F::fldFLD), fields_.GetInt(F::fldORD), output.size()});
  }
  // Output order is the run's: by order number, equal numbers in table order.
  std::stable_sort(output.begin(), output.end(),
                   [](const Field& a, const Field& b) { return a.order < b.order; });
  const std::vector<Field> before = output;
  const auto at =
      static_cast<size_t>(std::find_if(output.begin(), output.end(),
                                       [&](const Field& f) { return f.number == moved; }) -
                          output.begin());
  const size_t other = at + static_cast<size_t>(step);
  if (other < output.size()) {
    // The two fields change places and each place keeps its order number. Where that leaves
    // a field with the number of the one before it but earlier in the table (two fields
    // of one order, say), the stable sort would undo the move: such a field is numbered one
    // higher, and so on down while the numbers collide.
    std::swap(output[at].number, output[other].number);
    std::swap(output[at].table, output[other].table);
    for (size_t i = 1; i < output.size(); ++i) {
      const Field& prev = output[i - 1];
      Field& f = output[i];
      if (f.order < prev.order || (f.order == prev.order && f.table < prev.table)) {
        f.order = prev.order + 1;
      }
    }
    for (const Field& f : output) {
      const bool changed = std::none_of(before.begin(), before.end(), [&](const Field& b) {
        return b.number == f.number && b.order == f.order;
      });
      if (!changed) continue;
      fields_.MoveFirst();
      fields_.Find("fldFLD = " + std::to_string(f.number));
      if (fields_.IsEOF()) continue;
      fields_.SetInt(F::fldORD, f.order);
      fields_.SetInt(F::fldTMP, f.order);
    }
  }
  fields_.Sort("fldORD");
  Reload();
  for (int r = 0; r < rowCount(); ++r) {
    if (seek(r) && fields_.GetInt(F::fldFLD) == moved) return r;
  }
  return row;
}

void FieldsModel::SetOutput(const QList<int>& rows, bool output) {
  for (int r = 0; r < rowCount(); ++r) {
    if (!rows.isEmpty() && !rows.contains(r)) continue;
    if (seek(r)) fields_.SetBool(F::fldOUT, output);
  }
  emit dataChanged(index(0, 0), index(rowCount() - 1, 0));
}

void FieldsModel::GroupFields() {
  fields_.Sort("fldOUT DESC,fldORD");
  Reload();
}

}  // namespace qb::ui
