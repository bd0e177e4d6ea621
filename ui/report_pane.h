#pragma once
// The pane beside the fields grid: the report view with its legend and filter, and the
// preview of the first rows a run would write. Both follow the window's report, RDF, grid
// and settings: SetSource when the report or the RDF changes, SourceChanged for the rest.

#include <QTabWidget>
#include <atomic>
#include <memory>
#include <thread>

#include "engine/engine.h"
#include "run/report_tracer.h"
#include "run/row_preview.h"
#include "settings/application.h"

class QCheckBox;
class QLabel;
class QTableWidget;
class QTimer;

namespace qb::ui {

class ReportView;

class ReportPane final : public QTabWidget {
  Q_OBJECT
 public:
  static constexpr size_t kPreviewRows = 200;

  // `app` and `engine` are the window's: the pane copies them each time it starts anew.
  ReportPane(const Application& app, const Engine& engine, QWidget* parent = nullptr);
  ~ReportPane() override;

  // A report or RDF chosen (empty: none): the view reads the report afresh.
  void SetSource(const QString& report, const QString& rdf);
  // The grid, the settings or the loaded RDF changed: the preview follows within a second.
  void SourceChanged();
  // A setting of how the report is read changed (its encoding): the view reads it afresh.
  void ReadAgain();

  ReportView* view() const { return view_; }
  ReportTracer* tracer() const { return tracer_.get(); }
  QTableWidget* previewTable() const { return table_; }
  // The preview shown is of the window's state as it is now.
  bool PreviewCurrent() const { return previewShown_ == previewAsked_ && !previewRunning_; }

 signals:
  void columnsSelected(int start, int length);
  // The preview was refreshed.
  void previewShown();

 private:
  class Preview;
  void StartTracer();
  void StartPreview();
  void ShowPreview(int generation, const PreviewRows& rows);
  void TracerChanged();

  const Application& app_;
  const Engine& engine_;
  QString report_, rdf_;
  std::unique_ptr<ReportTracer> tracer_;
  std::atomic<bool> tracerNews_{false};  // a TracerChanged is on its way
  std::unique_ptr<Preview> preview_;
  int previewAsked_ = 0, previewShown_ = 0;
  bool previewRunning_ = false;

  ReportView* view_;
  QLabel *legend_, *traceStatus_, *previewStatus_;
  QCheckBox* chkUnmatched_;
  QTableWidget* table_;
  QTimer* refresh_;
  QString legendText_;
};

}  // namespace qb::ui
