// Build tool: prints a Markdown file to PDF with Qt's text document.
//   qb_make_manual MANUAL.md OUTPUT.pdf

#include <QFile>
#include <QGuiApplication>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextDocument>
#include <cstdio>

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: qb_make_manual MANUAL.md OUTPUT.pdf\n");
    return 2;
  }
  QFile in(QString::fromLocal8Bit(argv[1]));
  if (!in.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "qb_make_manual: cannot read %s\n", argv[1]);
    return 1;
  }
  QTextDocument doc;
  doc.setMarkdown(QString::fromUtf8(in.readAll()));
  QPdfWriter pdf(QString::fromLocal8Bit(argv[2]));
  pdf.setPageSize(QPageSize(QPageSize::A4));
  pdf.setTitle("Quillbrook Manual");
  pdf.setCreator("Quillbrook");
  doc.print(&pdf);
  return 0;
}
