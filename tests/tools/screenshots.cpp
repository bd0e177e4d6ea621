// Test tool: pictures of the window before and after a run of a sample, and of both
// settings dialogs, for the README.
//   QT_QPA_PLATFORM=offscreen qb_screenshots SOURCE_DIR OUTPUT_DIR

#include <QApplication>
#include <QEventLoop>
#include <QTimer>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "ui/main_window.h"
#include "ui/settings_dialogs.h"

namespace {

// Answers nothing and shows nothing: the pictures need no interaction.
class NoDialogs final : public qb::ui::Dialogs {
 public:
  void message(QWidget*, const QString& text, const QString&, qb::MessageIcon) override {
    std::fprintf(stderr, "message: %s\n", text.toLocal8Bit().constData());
  }
  bool question(QWidget*, const QString&, const QString&, qb::MessageIcon) override { return true; }
  QString openFile(QWidget*, const QString&, const QString&, int, const QString&) override {
    return {};
  }
  QString saveFile(QWidget*, const QString&, const QString&, int, const QString&) override {
    return {};
  }
};

bool Save(QWidget& w, const std::filesystem::path& file) {
  const bool ok = w.grab().save(QString::fromStdString(file.string()));
  std::printf("%s %s\n", ok ? "wrote" : "could not write", file.c_str());
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: qb_screenshots SOURCE_DIR OUTPUT_DIR\n");
    return 2;
  }
  const std::filesystem::path source = argv[1], out = argv[2];
  const std::filesystem::path home = out / "home";
  std::filesystem::create_directories(home / "log");
  std::filesystem::copy_file(source / "settings" / "qbsys.txt", home / "qbsys.txt",
                             std::filesystem::copy_options::overwrite_existing);
  std::ofstream(home / "qbcfg.ini")
      << "[qbpaths]\r\nrdfdir=" << (source / "samples").string() << "\r\n";

  NoDialogs dialogs;
  qb::ui::MainWindow window(home, dialogs);
  if (!window.Startup()) return 1;
  window.resize(1280, 800);
  window.show();
  window.ChooseReport(QString::fromStdString((source / "samples" / "ARINV01.txt").string()));
  window.ChooseOutput(QString::fromStdString((out / "ARINV01.xls").string()));
  bool ok = Save(window, out / "main-before-run.png");

  QEventLoop loop;
  QObject::connect(&window, &qb::ui::MainWindow::runFinished, &loop, &QEventLoop::quit);
  window.Run();
  if (window.RunActive()) loop.exec();
  ok = Save(window, out / "main-after-run.png") && ok;

  qb::ui::ConfigOptionsDialog config(window.app(), dialogs, &window);
  config.show();
  ok = Save(config, out / "configuration-options.png") && ok;
  qb::ui::CurrentSettingsDialog current(window.app(), dialogs, &window);
  current.show();
  ok = Save(current, out / "save-current-settings.png") && ok;
  return ok ? 0 : 1;
}
