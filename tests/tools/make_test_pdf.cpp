// Test tool: prints a text report to PDF, one PDF page for each page of the report (pages
// begin at form feeds), in a fixed-pitch font or in a proportional one.
//   QT_QPA_PLATFORM=offscreen qb_make_test_pdf fixed|proportional REPORT.txt OUTPUT.pdf
//
// Fixed: each line is drawn as it stands, so the columns come from the font's pitch.
// Proportional: each word is drawn at the x of its column on a 4.8-point grid, the way
// report writers that position their text print, so words start on the grid but their
// widths follow the font.

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

void DrawLine(QPainter& p, const QByteArray& line, double y, bool proportional) {
  if (!proportional) {
    p.drawText(QPointF(kLeft, y), QString::fromLatin1(line));
    return;
  }
  int i = 0;
  while (i < line.size()) {
    while (i < line.size() && line[i] == ' ') ++i;
    const int start = i;
    while (i < line.size() && line[i] != ' ') ++i;
    if (i > start)
      p.drawText(QPointF(kLeft + start * kPitch, y),
                 QString::fromLatin1(line.mid(start, i - start)));
  }
}

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 4) {
    std::fprintf(stderr, "usage: qb_make_test_pdf fixed|proportional REPORT.txt OUTPUT.pdf\n");
    return 2;
  }
  const bool proportional = QByteArray(argv[1]) == "proportional";
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
  for (QByteArray line : lines) {
    if (line.endsWith('\r')) line.chop(1);
    if (line.startsWith('\f')) {
      line.remove(0, 1);
      if (!first) {
        pdf.newPage();
        y = kTop;
      }
    }
    first = false;
    DrawLine(painter, line, y, proportional);
    y += kLine;
  }
  return painter.end() ? 0 : 1;
}
