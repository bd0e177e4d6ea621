#include "ui/report_pane.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "ui/report_view.h"
#include "ui/text.h"

namespace qb::ui {
namespace {

QString Count(int64_t n) {
  return QLocale::system().toString(static_cast<qlonglong>(n));
}

}  // namespace

// One preview run on a thread of its own, with its own copies of the settings and the RDF.
class ReportPane::Preview {
 public:
  Preview(const Application& app, const Engine& engine, JobRequest request)
      : app_(app, silent_, /*logging=*/false), job_(app_, silent_, engine, std::move(request)) {}
  ~Preview() {
    job_.Abandon();
    if (thread_.joinable()) thread_.join();
  }
  template <typename F>
  void Start(F&& done) {
    thread_ =
        std::thread([this, done = std::forward<F>(done)] { done(PreviewRun(job_, kPreviewRows)); });
  }

 private:
  SilentUserInterface silent_;
  Application app_;
  ConversionJob job_;
  std::thread thread_;
};

ReportPane::ReportPane(const Application& app, const Engine& engine, QWidget* parent)
    : QTabWidget(parent), app_(app), engine_(engine) {
  setObjectName("tabReportPane");

  auto* report = new QWidget(this);
  auto* reportLayout = new QVBoxLayout(report);
  reportLayout->setContentsMargins(2, 2, 2, 2);
  auto* top = new QHBoxLayout;
  legend_ = new QLabel(report);
  legend_->setObjectName("lblLegend");
  legend_->setWordWrap(true);
  legend_->setTextFormat(Qt::RichText);
  chkUnmatched_ = new QCheckBox("Unmatched lines only", report);
  chkUnmatched_->setObjectName("chkUnmatched");
  chkUnmatched_->setToolTip("Show only the lines that no marker row matched");
  traceStatus_ = new QLabel(report);
  traceStatus_->setObjectName("lblTraceStatus");
  top->addWidget(legend_, 1);
  top->addWidget(chkUnmatched_);
  view_ = new ReportView(report);
  reportLayout->addLayout(top);
  reportLayout->addWidget(view_, 1);
  reportLayout->addWidget(traceStatus_);
  addTab(report, "Report");

  auto* preview = new QWidget(this);
  auto* previewLayout = new QVBoxLayout(preview);
  previewLayout->setContentsMargins(2, 2, 2, 2);
  previewStatus_ = new QLabel(preview);
  previewStatus_->setObjectName("lblPreviewStatus");
  previewStatus_->setWordWrap(true);
  table_ = new QTableWidget(preview);
  table_->setObjectName("tblPreview");
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 4);
  previewLayout->addWidget(previewStatus_);
  previewLayout->addWidget(table_, 1);
  addTab(preview, "Preview");

  refresh_ = new QTimer(this);
  refresh_->setSingleShot(true);
  refresh_->setInterval(250);
  connect(refresh_, &QTimer::timeout, this, [this] { StartPreview(); });
  connect(chkUnmatched_, &QCheckBox::toggled, view_, &ReportView::SetUnmatchedOnly);
  connect(view_, &ReportView::columnsSelected, this, &ReportPane::columnsSelected);
  SetSource({}, {});
}

ReportPane::~ReportPane() {
  preview_.reset();
  view_->SetTracer(nullptr);
  tracer_.reset();
}

void ReportPane::SetSource(const QString& report, const QString& rdf) {
  report_ = report;
  rdf_ = rdf;
  StartTracer();  // the same names too: the RDF may have been loaded again, changed
  SourceChanged();
}

void ReportPane::ReadAgain() {
  StartTracer();
  SourceChanged();
}

void ReportPane::SourceChanged() {
  ++previewAsked_;
  refresh_->start();
}

// The report view reads the report afresh, with the RDF as it is loaded now.
void ReportPane::StartTracer() {
  view_->SetTracer(nullptr);
  tracer_.reset();
  legendText_.clear();
  if (report_.isEmpty()) {
    legend_->setText("Choose a report: it shows here as the run reads it.");
    traceStatus_->clear();
    return;
  }
  tracer_ = std::make_unique<ReportTracer>(app_, engine_, S(report_), S(rdf_), [this] {
    if (!tracerNews_.exchange(true))
      QMetaObject::invokeMethod(
          this, [this] { TracerChanged(); }, Qt::QueuedConnection);
  });
  view_->SetTracer(tracer_.get());
  TracerChanged();
}

void ReportPane::TracerChanged() {
  tracerNews_ = false;
  if (!tracer_) return;
  view_->Refresh();
  const TracerStatus status = tracer_->Status();
  if (!status.error.empty()) {
    traceStatus_->setText("<span style='color:#b00000'>The report cannot be shown: " +
                          Q(status.error).toHtmlEscaped() + "</span>");
  } else if (!status.untraced.empty()) {
    traceStatus_->setText(
        "<span style='color:#b00000'>Shown plain: the run cannot start with "
        "these settings: " +
        Q(status.untraced).toHtmlEscaped() + "</span>");
  } else if (!status.textReady) {
    traceStatus_->setText("Reading the report ...");
  } else if (!status.indexed) {
    traceStatus_->setText("Counting lines: " + Count(status.lines) + " so far ...");
  } else if (!status.complete) {
    traceStatus_->setText(Count(status.lines) + " lines; traced to line " + Count(status.traced) +
                          (chkUnmatched_->isChecked() ? " (unmatched lines so far)" : ""));
  } else {
    traceStatus_->setText(
        Count(status.lines) + " lines, all traced" +
        (status.stopLine ? "; the run stops at line " + Count(status.stopLine) : QString()));
  }
  // The legend: each marker row's colour, its action and its count so far.
  QString legend;
  const std::vector<MarkerTally> markers = tracer_->Markers();
  for (size_t i = 0; i < markers.size(); ++i) {
    const MarkerTally& m = markers[i];
    const QColor colour = m.action == "skip" ? ReportView::SkipColour()
                                             : ReportView::MarkerColour(static_cast<int>(i));
    legend += QString(
                  "<span style='background:%1'>&nbsp;%2&nbsp;</span>&nbsp;%3 "
                  "<span style='color:gray'>(line %4)</span>&nbsp;&nbsp; ")
                  .arg(colour.name(), Q(m.action).toHtmlEscaped(), Count(m.pieces))
                  .arg(m.rdfLine);
  }
  if (markers.empty())
    legend = "No marker rows yet: every line shows plain.";
  else
    legend += "no marker: " + Count(static_cast<int64_t>(tracer_->UnmatchedCount()));
  if (legend != legendText_) {
    legendText_ = legend;
    legend_->setText(legend);
  }
}

// The preview runs again with the grid and settings as they are now; a run still going is
// abandoned.
void ReportPane::StartPreview() {
  preview_.reset();
  previewRunning_ = false;
  const int generation = previewAsked_;
  if (report_.isEmpty() || rdf_.isEmpty()) {
    table_->clear();
    table_->setRowCount(0);
    table_->setColumnCount(0);
    previewStatus_->setText("Choose a report and an RDF: the first rows they give show here.");
    previewShown_ = generation;
    emit previewShown();
    return;
  }
  JobRequest request;
  request.report = S(report_);
  request.rdf = S(rdf_);
  request.noOutput = true;
  try {
    preview_ = std::make_unique<Preview>(app_, engine_, std::move(request));
  } catch (const JobError& e) {
    PreviewRows failed;
    failed.error = e.what();
    ShowPreview(generation, failed);
    return;
  }
  previewRunning_ = true;
  previewStatus_->setText("Reading the first rows ...");
  preview_->Start([this, generation](PreviewRows rows) {
    QMetaObject::invokeMethod(
        this, [this, generation, rows = std::move(rows)] { ShowPreview(generation, rows); },
        Qt::QueuedConnection);
  });
}

void ReportPane::ShowPreview(int generation, const PreviewRows& rows) {
  if (generation != previewAsked_) return;  // the window changed since: another is coming
  previewRunning_ = false;
  previewShown_ = generation;
  table_->clear();
  table_->setColumnCount(static_cast<int>(rows.header.size()));
  table_->setRowCount(static_cast<int>(rows.rows.size()));
  QStringList labels;
  for (const std::string& label : rows.header) labels << QString::fromStdString(label);
  table_->setHorizontalHeaderLabels(labels);
  for (size_t r = 0; r < rows.rows.size(); ++r) {
    for (size_t c = 0; c < rows.rows[r].size(); ++c) {
      auto* item = new QTableWidgetItem(QString::fromStdString(rows.rows[r][c]));
      if (c < rows.numeric.size() && rows.numeric[c])
        item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
      table_->setItem(static_cast<int>(r), static_cast<int>(c), item);
    }
  }
  if (!rows.error.empty()) {
    previewStatus_->setText(
        "<span style='color:#b00000'>The run fails: " + Q(rows.error).toHtmlEscaped() + "</span>");
  } else if (rows.rows.empty()) {
    previewStatus_->setText(
        "The run writes no rows: no record is completed. Check the markers "
        "on the Report tab.");
  } else if (rows.whole) {
    previewStatus_->setText("All " + Count(static_cast<int64_t>(rows.rows.size())) +
                            " rows the run writes.");
  } else {
    previewStatus_->setText("The first " + Count(static_cast<int64_t>(rows.rows.size())) +
                            " rows the run writes.");
  }
  table_->resizeColumnsToContents();
  emit previewShown();
}

}  // namespace qb::ui
