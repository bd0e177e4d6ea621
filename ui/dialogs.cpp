#include "ui/dialogs.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QStringList>

namespace qb::ui {
namespace {

QMessageBox::Icon ToQt(MessageIcon icon) {
  switch (icon) {
    case MessageIcon::Information:
      return QMessageBox::Information;
    case MessageIcon::Exclamation:
      return QMessageBox::Warning;
    case MessageIcon::Critical:
      return QMessageBox::Critical;
    case MessageIcon::None:
      break;
  }
  return QMessageBox::NoIcon;
}

// Message texts use CR for their line breaks.
QString Lines(QString text) {
  return text.replace('\r', '\n');
}

}  // namespace

QString QtFilters(const QString& pairs) {
  const QStringList parts = pairs.split('|');
  QStringList filters;
  for (int i = 0; i + 1 < parts.size(); i += 2) filters << parts[i];
  return filters.join(";;");
}

void QtDialogs::message(QWidget* parent, const QString& text, const QString& title,
                        MessageIcon icon) {
  QMessageBox box(ToQt(icon), title.isEmpty() ? QStringLiteral("Quillbrook") : title, Lines(text),
                  QMessageBox::Ok, parent);
  box.exec();
}

bool QtDialogs::question(QWidget* parent, const QString& text, const QString& title,
                         MessageIcon icon) {
  QMessageBox box(ToQt(icon), title, Lines(text), QMessageBox::Yes | QMessageBox::No, parent);
  return box.exec() == QMessageBox::Yes;
}

QString QtDialogs::openFile(QWidget* parent, const QString& title, const QString& filters,
                            int selected, const QString& folder) {
  QString chosen = filters.split(";;").value(selected - 1);
  return QFileDialog::getOpenFileName(parent, title, folder, filters, &chosen);
}

QString QtDialogs::saveFile(QWidget* parent, const QString& title, const QString& filters,
                            int selected, const QString& folder) {
  QString chosen = filters.split(";;").value(selected - 1);
  return QFileDialog::getSaveFileName(parent, title, folder, filters, &chosen);
}

QStringList QtDialogs::openFiles(QWidget* parent, const QString& title, const QString& filters,
                                 int selected, const QString& folder) {
  QString chosen = filters.split(";;").value(selected - 1);
  return QFileDialog::getOpenFileNames(parent, title, folder, filters, &chosen);
}

QString QtDialogs::openFolder(QWidget* parent, const QString& title, const QString& folder) {
  return QFileDialog::getExistingDirectory(parent, title, folder);
}

}  // namespace qb::ui
