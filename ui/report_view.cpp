#include "ui/report_view.h"

#include <QFontDatabase>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QToolTip>
#include <algorithm>
#include <array>
#include <cmath>

namespace qb::ui {
namespace {

constexpr int kGutterPad = 6;
constexpr int kTextReadAround = 200;  // lines read beyond those shown, both ways
constexpr size_t kBlocksHeld = 4;
const QColor kDroppedColour(255, 205, 205);
const QColor kStopColour(200, 30, 30);

// A line as the run reads it: one character a column, control characters as blanks, form
// feeds (drawn as page breaks) left out.
QString Shown(const std::string& line, const Alphabet& alphabet) {
  QString text;
  if (alphabet.encoding() == Encoding::Utf8) {
    text = QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
    text.remove(QChar(0xFEFF));  // a byte-order mark
    text.remove(QChar('\f'));
    for (QChar& c : text) {
      if (c.unicode() < 0x20 || c.unicode() == 0x7F) c = ' ';
    }
    return text;
  }
  text.reserve(static_cast<qsizetype>(line.size()));
  for (char c : line) {
    const char32_t u = alphabet.CodePoint(static_cast<unsigned char>(c));
    if (c == '\f') continue;
    text += u < 0x20 || u == 0x7F ? QChar(' ') : u > 0xFFFF ? QChar(0xFFFD) : QChar(u);
  }
  return text;
}

}  // namespace

ReportView::ReportView(QWidget* parent) : QAbstractScrollArea(parent) {
  setObjectName("rptView");
  // Every character a whole number of pixels wide, so that the ruler, the outlines and the
  // mouse's columns stay on the text however far the line goes.
  QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  const qreal advance = QFontMetricsF(fixed).horizontalAdvance(QLatin1Char('M'));
  charWidth_ = std::max(1, static_cast<int>(std::ceil(advance)));
  fixed.setLetterSpacing(QFont::AbsoluteSpacing, charWidth_ - advance);
  setFont(fixed);
  const QFontMetrics metrics(fixed);
  lineHeight_ = metrics.height() + 2;
  rulerHeight_ = 2 * metrics.height() - 2;
  viewport()->setMouseTracking(false);
  viewport()->setCursor(Qt::IBeamCursor);
  horizontalScrollBar()->setSingleStep(1);
  verticalScrollBar()->setSingleStep(1);
  UpdateScrollBars();
}

ReportView::~ReportView() = default;

void ReportView::SetTracer(ReportTracer* tracer) {
  tracer_ = tracer;
  selectFrom_ = selectTo_ = 0;
  text_.clear();
  textFirst_ = 0;
  blocks_.clear();
  unmatched_.clear();
  verticalScrollBar()->setValue(0);
  Refresh();
}

void ReportView::SetUnmatchedOnly(bool on) {
  if (on == unmatchedOnly_) return;
  const int64_t at = FirstShownLine();
  unmatchedOnly_ = on;
  text_.clear();
  if (on && tracer_) tracer_->TraceAll();
  Refresh();
  ShowLine(at);
}

void ReportView::Refresh() {
  if (tracer_ && unmatchedOnly_) {
    const std::vector<int64_t> more = tracer_->Unmatched(unmatched_.size(), size_t{1} << 20);
    unmatched_.insert(unmatched_.end(), more.begin(), more.end());
  }
  // Blocks traced since are taken afresh; the text read stays.
  blocks_.clear();
  UpdateScrollBars();
  AskForShown();
  viewport()->update();
}

QColor ReportView::MarkerColour(int index) {
  // Light tints that tell apart at a glance, none of them the red of a dropped line or the
  // grey of a skipped one; an RDF with more marker rows than tints reuses them in turn.
  static constexpr std::array<std::array<int, 3>, 10> kTints{{{190, 215, 255},
                                                              {190, 240, 190},
                                                              {255, 235, 160},
                                                              {220, 200, 255},
                                                              {180, 235, 235},
                                                              {255, 215, 170},
                                                              {225, 245, 170},
                                                              {240, 200, 240},
                                                              {200, 225, 210},
                                                              {235, 225, 205}}};
  const auto& t = kTints[static_cast<size_t>(index) % kTints.size()];
  return QColor(t[0], t[1], t[2]);
}

int64_t ReportView::RowCount() const {
  if (!tracer_) return 0;
  return unmatchedOnly_ ? static_cast<int64_t>(unmatched_.size()) : tracer_->Status().lines;
}

int64_t ReportView::LineAt(int row) const {
  const int64_t r = verticalScrollBar()->value() + static_cast<int64_t>(row);
  if (r < 0 || r >= RowCount()) return 0;
  return unmatchedOnly_ ? unmatched_[static_cast<size_t>(r)] : r + 1;
}

void ReportView::ShowLine(int64_t line) {
  int64_t row = line - 1;
  if (unmatchedOnly_) {
    row = std::lower_bound(unmatched_.begin(), unmatched_.end(), line) - unmatched_.begin();
  }
  verticalScrollBar()->setValue(static_cast<int>(std::min<int64_t>(row, INT32_MAX)));
}

int ReportView::RowsShown() const {
  return std::max(1, (viewport()->height() - rulerHeight_) / lineHeight_);
}

int ReportView::GutterWidth() const {
  const int64_t lines = tracer_ ? std::max<int64_t>(tracer_->Status().lines, 1) : 1;
  const int digits = static_cast<int>(std::log10(static_cast<double>(lines))) + 1;
  return std::max(digits, 4) * charWidth_ + 2 * kGutterPad;
}

int ReportView::ColumnAt(int x) const {
  return std::max(1, horizontalScrollBar()->value() + (x - GutterWidth()) / charWidth_ + 1);
}

void ReportView::UpdateScrollBars() {
  const int64_t rows = RowCount();
  QScrollBar* v = verticalScrollBar();
  v->setRange(0, static_cast<int>(std::clamp<int64_t>(rows - RowsShown(), 0, INT32_MAX)));
  v->setPageStep(RowsShown());
  const int columns = std::max(1, (viewport()->width() - GutterWidth()) / charWidth_);
  QScrollBar* h = horizontalScrollBar();
  h->setRange(0, std::max(0, static_cast<int>(Converter::kLineWidth) + 1 - columns));
  h->setPageStep(columns);
}

void ReportView::AskForShown() {
  if (!tracer_) return;
  const int64_t first = LineAt(0);
  if (first == 0) return;
  // The unmatched lines are far apart: the first is traced in full, the others are known
  // to have matched nothing.
  const int64_t last = unmatchedOnly_ ? first : std::max(first, LineAt(RowsShown() - 1));
  tracer_->Want(first, last == 0 ? first + RowsShown() : last);
}

const std::string* ReportView::Text(int64_t line) {
  if (!tracer_ || line <= 0) return nullptr;
  const auto held = static_cast<int64_t>(text_.size());
  if (line < textFirst_ || line >= textFirst_ + held) {
    int64_t first = std::max<int64_t>(1, line - kTextReadAround);
    int64_t count = RowsShown() + 2 * kTextReadAround;
    if (unmatchedOnly_) {
      // Read what is shown in one piece when it is close together, else this line alone
      // (not every line between the lines shown, which may be most of the report).
      const int64_t last = std::max(line, LineAt(RowsShown() - 1));
      const bool close = LineAt(0) > 0 && last - LineAt(0) < 4 * kTextReadAround;
      first = close ? LineAt(0) : line;
      count = close ? std::max<int64_t>(last - first + 1, 1) : 1;
    }
    text_ = tracer_->Text(first, count);
    textFirst_ = first;
    if (line >= textFirst_ + static_cast<int64_t>(text_.size())) return nullptr;
  }
  return &text_[static_cast<size_t>(line - textFirst_)];
}

const LineTrace* ReportView::Trace(int64_t line) const {
  if (!tracer_ || line <= 0) return nullptr;
  for (const auto& block : blocks_) {
    if (const LineTrace* t = block->At(line)) return t;
  }
  std::shared_ptr<const TracedBlock> block = tracer_->Block(line);
  if (!block) return nullptr;
  if (blocks_.size() >= kBlocksHeld) blocks_.erase(blocks_.begin());
  blocks_.push_back(std::move(block));
  return blocks_.back()->At(line);
}

QColor ReportView::LineTint(int64_t line) const {
  const LineTrace* trace = Trace(line);
  if (!trace) return {};
  for (const PieceTrace& piece : trace->pieces) {
    if (piece.did == PieceTrace::Did::Dropped) return kDroppedColour;
    if (piece.marker < 0) continue;
    return piece.did == PieceTrace::Did::Skip ? SkipColour() : MarkerColour(piece.marker);
  }
  return {};
}

std::vector<PieceTrace::Segment> ReportView::LineOutlines(int64_t line) const {
  std::vector<PieceTrace::Segment> outlines;
  const LineTrace* trace = Trace(line);
  if (!trace) return outlines;
  // A piece after a form feed is painted after the pieces before it.
  int32_t offset = 0;
  const std::string* text = nullptr;
  if (const auto i = line - textFirst_; i >= 0 && i < static_cast<int64_t>(text_.size()))
    text = &text_[static_cast<size_t>(i)];
  size_t from = 0;
  for (const PieceTrace& piece : trace->pieces) {
    for (const PieceTrace::Segment& s : piece.pickups)
      outlines.push_back({s.start + offset, s.length});
    if (!text) continue;
    const size_t ff = text->find('\f', from);
    if (ff == std::string::npos) break;
    offset += static_cast<int32_t>(ff - from);
    from = ff + 1;
  }
  return outlines;
}

QString ReportView::LineDetail(int64_t line) const {
  if (!tracer_ || line <= 0) return {};
  const LineTrace* trace = Trace(line);
  if (!trace) {
    if (unmatchedOnly_) return QString("Line %1: no marker row matched it.").arg(line);
    tracer_->Want(line, line);
    return QString("Line %1 is being traced ...").arg(line);
  }
  if (trace->pieces.empty()) {
    return QString("Line %1: the run stopped at line %2 and reads no further.")
        .arg(line)
        .arg(tracer_->Status().stopLine);
  }
  // The trace's words hold the report's text as UTF-8, or, in a Windows-1252 run, as its bytes.
  const Alphabet& alphabet = tracer_->TextAlphabet();
  QString detail;
  for (const PieceTrace& piece : trace->pieces) {
    if (!alphabet.Native()) {
      detail += QString::fromUtf8(piece.detail.data(), static_cast<qsizetype>(piece.detail.size()));
      continue;
    }
    for (char c : piece.detail) detail += QChar(alphabet.CodePoint(static_cast<unsigned char>(c)));
  }
  return detail.trimmed();
}

void ReportView::SelectColumns(int first, int last) {
  selectFrom_ = std::max(1, std::min(first, last));
  selectTo_ = std::max(first, last);
  viewport()->update();
  emit columnsSelected(selectFrom_, selectTo_ - selectFrom_ + 1);
}

void ReportView::paintEvent(QPaintEvent*) {
  QPainter p(viewport());
  const QRect area = viewport()->rect();
  p.fillRect(area, palette().base());
  const int gutter = GutterWidth();
  const int scroll = horizontalScrollBar()->value();
  const int columns = (area.width() - gutter) / charWidth_ + 1;
  const QFontMetrics metrics(font());
  auto columnX = [&](int column) { return gutter + (column - 1 - scroll) * charWidth_; };

  // The ruler: a tick a column, a longer one every five, the number every ten.
  p.fillRect(QRect(0, 0, area.width(), rulerHeight_), palette().window());
  p.setPen(palette().color(QPalette::WindowText));
  for (int c = scroll + 1; c <= scroll + columns; ++c) {
    const int x = columnX(c) + charWidth_ / 2;
    const int tick = c % 10 == 0 ? rulerHeight_ / 2 : c % 5 == 0 ? rulerHeight_ / 3 : 3;
    p.drawLine(x, rulerHeight_ - tick, x, rulerHeight_ - 1);
    if (c % 10 == 0) {
      const QString n = QString::number(c);
      p.drawText(x - metrics.horizontalAdvance(n) / 2, metrics.ascent(), n);
    }
  }
  if (selectFrom_ > 0) {
    const int lo = std::min(selectFrom_, selectTo_), hi = std::max(selectFrom_, selectTo_);
    const QRect band(columnX(lo), 0, (hi - lo + 1) * charWidth_, area.height());
    p.fillRect(band.intersected(QRect(gutter, 0, area.width(), area.height())),
               QColor(70, 130, 220, 60));
  }

  const int rows = RowsShown() + 1;
  for (int r = 0; r < rows; ++r) {
    const int64_t line = LineAt(r);
    if (line == 0) break;
    const int y = rulerHeight_ + r * lineHeight_;
    const QRect row(gutter, y, area.width() - gutter, lineHeight_);
    if (const QColor tint = LineTint(line); tint.isValid()) p.fillRect(row, tint);
    p.setPen(palette().color(QPalette::PlaceholderText));
    const QString number = QString::number(line);
    p.drawText(gutter - kGutterPad - metrics.horizontalAdvance(number), y + metrics.ascent() + 1,
               number);
    const std::string* text = Text(line);
    if (!text) continue;
    p.save();
    p.setClipRect(QRect(gutter, y, area.width() - gutter, lineHeight_));
    p.setPen(palette().color(QPalette::Text));
    p.drawText(gutter, y + metrics.ascent() + 1,
               Shown(*text, tracer_->TextAlphabet()).mid(scroll, columns));
    p.setPen(QPen(QColor(40, 40, 40), 1));
    for (const PieceTrace::Segment& s : LineOutlines(line))
      p.drawRect(columnX(s.start), y, s.length * charWidth_ - 1, lineHeight_ - 1);
    p.restore();
    if (text->find('\f') != std::string::npos) {  // a page break above the line
      p.setPen(QPen(palette().color(QPalette::Mid), 1, Qt::DashLine));
      p.drawLine(0, y, area.width(), y);
    }
    if (const LineTrace* trace = Trace(line)) {
      const bool stop =
          std::any_of(trace->pieces.begin(), trace->pieces.end(),
                      [](const PieceTrace& t) { return t.did == PieceTrace::Did::Stop; });
      if (stop) p.fillRect(QRect(0, y + lineHeight_ - 2, area.width(), 2), kStopColour);
    }
  }
  p.setPen(palette().color(QPalette::Mid));
  p.drawLine(gutter - kGutterPad / 2, rulerHeight_, gutter - kGutterPad / 2, area.height());
}

void ReportView::resizeEvent(QResizeEvent* event) {
  QAbstractScrollArea::resizeEvent(event);
  UpdateScrollBars();
  AskForShown();
}

void ReportView::scrollContentsBy(int, int) {
  AskForShown();
  viewport()->update();
}

void ReportView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return QAbstractScrollArea::mousePressEvent(event);
  selecting_ = true;
  selectFrom_ = selectTo_ = ColumnAt(event->position().toPoint().x());
  viewport()->update();
}

void ReportView::mouseMoveEvent(QMouseEvent* event) {
  if (!selecting_) return;
  selectTo_ = ColumnAt(event->position().toPoint().x());
  viewport()->update();
}

void ReportView::mouseReleaseEvent(QMouseEvent* event) {
  if (!selecting_ || event->button() != Qt::LeftButton) return;
  selecting_ = false;
  const int anchor = selectFrom_;
  SelectColumns(anchor, ColumnAt(event->position().toPoint().x()));
}

bool ReportView::viewportEvent(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    auto* help = static_cast<QHelpEvent*>(event);
    const int y = help->pos().y();
    QString tip;
    if (y < rulerHeight_) {
      tip = QString("Column %1").arg(ColumnAt(help->pos().x()));
    } else {
      tip = LineDetail(LineAt((y - rulerHeight_) / lineHeight_));
    }
    if (tip.isEmpty()) {
      QToolTip::hideText();
    } else {
      // Monospaced, so the trace's columns line up.
      QToolTip::showText(help->globalPos(), "<pre>" + tip.toHtmlEscaped() + "</pre>", viewport());
    }
    return true;
  }
  return QAbstractScrollArea::viewportEvent(event);
}

}  // namespace qb::ui
