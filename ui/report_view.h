#pragma once
// The report view: the report as the run reads it, each line tinted by the marker row that
// matched it, each picked-up segment outlined, a column ruler and the line numbers. It reads
// only the lines it shows and asks a ReportTracer for their traces; the tracer works on its
// own thread and the view repaints when it has more.

#include <QAbstractScrollArea>
#include <QColor>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "run/report_tracer.h"

namespace qb::ui {

class ReportView final : public QAbstractScrollArea {
  Q_OBJECT
 public:
  explicit ReportView(QWidget* parent = nullptr);
  ~ReportView() override;

  // Shows `tracer`'s report (null: nothing). The view does not own it.
  void SetTracer(ReportTracer* tracer);
  // Only the lines that no marker row matched.
  void SetUnmatchedOnly(bool on);
  bool UnmatchedOnly() const { return unmatchedOnly_; }
  // The tracer has more: look again.
  void Refresh();

  // The colour of marker row `index` (its tint), the same in the legend.
  static QColor MarkerColour(int index);
  static QColor SkipColour() { return QColor(222, 222, 222); }

  // What the view shows at `row` of its rows: the report line, or 0.
  int64_t LineAt(int row) const;
  int64_t FirstShownLine() const { return LineAt(0); }
  // Scrolls so that `line` is the first shown (in the unmatched list: the nearest after it).
  void ShowLine(int64_t line);
  // The tooltip of `line`: the trace's words for it.
  QString LineDetail(int64_t line) const;
  // For tests and pictures: the tint of `line` (invalid when plain) and its outlines, in
  // columns from 1, as painted.
  QColor LineTint(int64_t line) const;
  std::vector<PieceTrace::Segment> LineOutlines(int64_t line) const;
  // The column (from 1) under `x` of the viewport, the ruler's scrolling counted.
  int ColumnAt(int x) const;
  // Selects columns first to last (from 1), as a drag with the mouse does.
  void SelectColumns(int first, int last);

 signals:
  // A span of columns was selected: the numbers an RDF needs.
  void columnsSelected(int start, int length);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void scrollContentsBy(int dx, int dy) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  bool viewportEvent(QEvent* event) override;

 private:
  int RowsShown() const;
  int GutterWidth() const;
  int64_t RowCount() const;
  void UpdateScrollBars();
  // The text of the lines shown, read again when the view moved past what it holds.
  const std::string* Text(int64_t line);
  const LineTrace* Trace(int64_t line) const;
  void AskForShown();

  ReportTracer* tracer_ = nullptr;
  bool unmatchedOnly_ = false;
  int charWidth_ = 8, lineHeight_ = 16, rulerHeight_ = 20;
  // The lines read, from textFirst_.
  int64_t textFirst_ = 0;
  std::vector<std::string> text_;
  // Traced blocks held while they are shown.
  mutable std::vector<std::shared_ptr<const TracedBlock>> blocks_;
  std::vector<int64_t> unmatched_;     // the filter's lines, as far as the tracer has them
  int selectFrom_ = 0, selectTo_ = 0;  // columns from 1; 0: none
  bool selecting_ = false;
};

}  // namespace qb::ui
