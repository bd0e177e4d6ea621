// Test tool: prints a text report (ASCII or UTF-8) to PDF, one PDF page for each page of the
// report (pages begin at form feeds), in a fixed-pitch font or in a proportional one.
//   QT_QPA_PLATFORM=offscreen qb_make_test_pdf MODE REPORT.txt OUTPUT.pdf
// where MODE is fixed, proportional or proportional-title.
//
// Fixed: each line is drawn as it stands, so the columns come from the font's pitch.
// Proportional: each word is drawn at the x of its column on a 4.8-point grid, the way
// report writers that position their text print, so words start on the grid but their
// widths follow the font. Proportional-title: the same, but the first line of each page, the
// title, is drawn as one text, its words spaced by the font, not by the grid.

#include <QFile>
#include <QFont>
#include <QGuiApplication>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <cstdio>

namespace {

constexpr double kLeft = 36.0;  // points
constexpr double kTop = 40.0;
constexpr double kLine = 11.0;  // leading
constexpr double kPitch = 4.8;  // an 8-point fixed-pitch character

// A column is a character (a UTF-8 line's "ü" is one), every one of the first plane.
void DrawLine(QPainter& p, const QByteArray& bytes, double y, bool proportional) {
  const QString line = QString::fromUtf8(bytes);
  if (!proportional) {
    p.drawText(QPointF(kLeft, y), line);
    return;
  }
  qsizetype i = 0;
  while (i < line.size()) {
    while (i < line.size() && line[i] == u' ') ++i;
    const qsizetype start = i;
    while (i < line.size() && line[i] != u' ') ++i;
    if (i > start)
      p.drawText(QPointF(kLeft + static_cast<double>(start) * kPitch, y),
                 line.mid(start, i - start));
  }
}

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 4) {
    std::fprintf(stderr,
                 "usage: qb_make_test_pdf fixed|proportional|proportional-title REPORT.txt "
                 "OUTPUT.pdf\n");
    return 2;
  }
  const QByteArray mode = argv[1];
  const bool titled = mode == "proportional-title";
  const bool proportional = titled || mode == "proportional";
  QFile in(QString::fromLocal8Bit(argv[2]));
  if (!in.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "cannot read %s\n", argv[2]);
    return 1;
  }
  QList<QByteArray> lines = in.readAll().split('\n');
  QPdfWriter pdf(QString::fromLocal8Bit(argv[3]));
  pdf.setPageSize(QPageSize(QPageSize::A4));
  pdf.setPageOrientation(QPageLayout::Landscape);
  pdf.setPageMargins(QMarginsF(0, 0, 0, 0));
  pdf.setResolution(72);  // one unit, one point
  pdf.setCreator("Quillbrook test PDF generator");
  QPainter painter(&pdf);
  QFont font(proportional ? "DejaVu Sans" : "DejaVu Sans Mono");
  // Proportional words must fit their grid cells, or the PDF's words run together.
  font.setPointSizeF(proportional ? 5.5 : 8);
  painter.setFont(font);
  double y = kTop;
  bool first = true;
  bool pageStart = true;
  for (QByteArray line : lines) {
    if (line.endsWith('\r')) line.chop(1);
    if (line.startsWith('\f')) {
      line.remove(0, 1);
      if (!first) {
        pdf.newPage();
        y = kTop;
      }
      pageStart = true;
    }
    first = false;
    DrawLine(painter, line, y, proportional && !(titled && pageStart));
    pageStart = false;
    y += kLine;
  }
  return painter.end() ? 0 : 1;
}
