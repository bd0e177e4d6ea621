#pragma once
// The output-fields grid: a table model over the engine's rsFields, in the table's current
// order: as the RDF lists the fields once it is loaded, in output order after a move, output
// fields first after Group Fields. Columns "Output" (y/n, shown Y/N), "Order" (1 to 99) and
// "Column Label".

#include <QAbstractTableModel>
#include <functional>
#include <string>
#include <string_view>

#include "engine/recordset.h"

namespace qb::ui {

class FieldsModel final : public QAbstractTableModel {
  Q_OBJECT
 public:
  // `refuse` shows a message when an edit is refused. `utf8` says whether the RDF's texts
  // (the labels) are UTF-8, as the engine's flag says for the RDF loaded; else they are
  // Windows-1252.
  FieldsModel(Recordset& fields, const bool& utf8, std::function<void(const QString&)> refuse,
              QObject* parent = nullptr)
      : QAbstractTableModel(parent), fields_(fields), utf8_(utf8), refuse_(std::move(refuse)) {}

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& = {}) const override { return 3; }
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;

  // Table changed under the model (a new RDF, a sort): show it afresh.
  void Reload();
  // Moves a row's field up (-1) or down (+1) one place in output order (by order number,
  // equal numbers in table order, as a run writes the columns): it changes places with its
  // neighbour there, whatever rows the grid shows around it. The grid then shows the fields
  // in output order. Returns the row's new position.
  int Move(int row, int step);
  // Output on or off for the given rows (all rows when empty).
  void SetOutput(const QList<int>& rows, bool output);
  // Fields to output first, each group by order.
  void GroupFields();

 private:
  bool seek(int row) const;
  // A label's bytes as text, and back.
  QString Label(std::string_view bytes) const;
  std::string LabelBytes(const QString& text) const;

  Recordset& fields_;
  const bool& utf8_;
  std::function<void(const QString&)> refuse_;
};

}  // namespace qb::ui
