// quillbrook: the desktop window.

#include <QApplication>
#include <QCommandLineParser>
#include <csignal>

#include "settings/application.h"
#include "ui/main_window.h"

int main(int argc, char** argv) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file-size limit fails the write, as a full disk does
  QApplication qapp(argc, argv);
  QApplication::setApplicationName("Quillbrook");
  QApplication::setApplicationVersion(QB_VERSION);
  QCommandLineParser parser;
  parser.setApplicationDescription("Quillbrook turns printed business reports into rows of data.");
  parser.addHelpOption();
  parser.addVersionOption();
  QCommandLineOption home("home", "The program folder (qbcfg.ini, qbsys.txt, log/, out/).", "DIR");
  parser.addOption(home);
  parser.process(qapp);

  std::optional<std::string> folder;
  if (parser.isSet(home)) folder = parser.value(home).toStdString();
  qb::ui::QtDialogs dialogs;
  qb::ui::MainWindow window(qb::ResolveProgramFolder(folder), dialogs);
  if (!window.Startup()) {
    window.app().Log().WriteLog("Quillbrook", "Closed...");
    return 1;
  }
  window.show();
  return QApplication::exec();
}
