// Build tool: prints a Markdown file to PDF with Qt's text document.
//   qb_make_manual MANUAL.md OUTPUT.pdf
// Pictures are found beside the Markdown file, as a Markdown viewer finds them, and shrunk
// to the page's width; code blocks wrap rather than run off the page.

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QUrl>
#include <cstdio>

namespace {

// Pictures wider than `width` shrink to it; fixed-pitch text gets a smaller size so that a
// terminal's line mostly fits. Returns how many pictures could not be found.
int FitToPage(QTextDocument& doc, qreal width) {
  int missing = 0;
  for (QTextBlock block = doc.begin(); block.isValid(); block = block.next()) {
    QTextBlockFormat wrapping = block.blockFormat();
    if (wrapping.nonBreakableLines()) {
      wrapping.setNonBreakableLines(false);
      QTextCursor(block).setBlockFormat(wrapping);
    }
    for (auto it = block.begin(); !it.atEnd(); ++it) {
      const QTextFragment fragment = it.fragment();
      QTextCharFormat format = fragment.charFormat();
      QTextCursor cursor(&doc);
      cursor.setPosition(fragment.position());
      cursor.setPosition(fragment.position() + fragment.length(), QTextCursor::KeepAnchor);
      if (format.isImageFormat()) {
        QTextImageFormat image = format.toImageFormat();
        const QImage picture =
            doc.resource(QTextDocument::ImageResource, QUrl(image.name())).value<QImage>();
        if (picture.isNull()) {
          std::fprintf(stderr, "qb_make_manual: no picture %s\n", qPrintable(image.name()));
          ++missing;
          continue;
        }
        if (picture.width() > width) {
          image.setWidth(width);
          image.setHeight(picture.height() * width / picture.width());
          cursor.setCharFormat(image);
        }
      } else if (format.fontFixedPitch() ||
                 format.fontFamilies().toStringList().contains(QStringLiteral("monospace"))) {
        format.setFontPointSize(7.5);
        cursor.setCharFormat(format);
      }
    }
  }
  return missing;
}

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: qb_make_manual MANUAL.md OUTPUT.pdf\n");
    return 2;
  }
  const QString source = QString::fromLocal8Bit(argv[1]);
  QFile in(source);
  if (!in.open(QIODevice::ReadOnly)) {
    std::fprintf(stderr, "qb_make_manual: cannot read %s\n", argv[1]);
    return 1;
  }
  QTextDocument doc;
  doc.setBaseUrl(QUrl::fromLocalFile(QFileInfo(source).absolutePath() + "/"));
  doc.setMarkdown(QString::fromUtf8(in.readAll()));
  QPdfWriter pdf(QString::fromLocal8Bit(argv[2]));
  pdf.setPageSize(QPageSize(QPageSize::A4));
  pdf.setTitle("Quillbrook Manual");
  pdf.setCreator("Quillbrook");
  // The page as print() lays the document out on it: A4 in points, less its margins.
  doc.setPageSize(QPageSize(QPageSize::A4).size(QPageSize::Point));
  const qreal width = doc.pageSize().width() - 2 * doc.documentMargin() - 8;
  if (const int missing = FitToPage(doc, width); missing > 0) return 1;
  doc.print(&pdf);
  return 0;
}
