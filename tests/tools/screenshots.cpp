// Test tool: the pictures of the README and the manual, and of the window's dialogs.
//   QT_QPA_PLATFORM=offscreen qb_screenshots SOURCE_DIR OUTPUT_DIR
// The reports and RDFs are copied to a neutral folder first (/tmp/quillbrook-demo), so the
// pictures show no folder of the machine they were made on.

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QStatusBar>
#include <QTest>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "run/report_tracer.h"
#include "ui/main_window.h"
#include "ui/report_pane.h"
#include "ui/report_view.h"
#include "ui/settings_dialogs.h"

namespace {

namespace fs = std::filesystem;

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

bool Save(QWidget& w, const fs::path& file) {
  const bool ok = w.grab().save(QString::fromStdString(file.string()));
  std::printf("%s %s\n", ok ? "wrote" : "could not write", file.c_str());
  return ok;
}

// Runs the event loop until `done`, a minute at most.
template <typename P>
bool Until(P done) {
  QElapsedTimer clock;
  clock.start();
  while (!done() && clock.elapsed() < 60000) QTest::qWait(20);
  return done();
}

QString Q(const fs::path& p) {
  return QString::fromStdString(p.string());
}

// The report view has traced what it shows and the preview is of the window as it is.
bool Settled(qb::ui::ReportPane& pane) {
  return Until([&] {
    const qb::ReportTracer* tracer = pane.tracer();
    return tracer && tracer->Status().complete && pane.PreviewCurrent() &&
           tracer->Block(pane.view()->FirstShownLine()) != nullptr;
  });
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: qb_screenshots SOURCE_DIR OUTPUT_DIR\n");
    return 2;
  }
  const fs::path source = argv[1], out = argv[2];
  const fs::path demo = "/tmp/quillbrook-demo";
  fs::remove_all(demo);
  const fs::path home = demo / "program", reports = demo / "reports";
  fs::create_directories(home / "log");
  fs::create_directories(reports);
  fs::create_directories(out);
  fs::copy_file(source / "settings" / "qbsys.txt", home / "qbsys.txt");
  for (const char* name : {"ARAGE02.txt", "ARINV01.txt"})
    fs::copy_file(source / "samples" / name, reports / name);
  for (const char* name : {"step1.rdf", "final.rdf"})
    fs::copy_file(source / "docs" / "first-rdf" / name, reports / name);
  // AutoFind looks for ARAGE02.rdf in the reports folder and finds none: the RDF is chosen.
  std::ofstream(home / "qbcfg.ini") << "[qbpaths]\r\nrdfdir=" << reports.string() << "\r\n";

  NoDialogs dialogs;
  qb::ui::MainWindow window(home, dialogs);
  if (!window.Startup()) return 1;
  window.resize(1280, 800);
  window.show();
  auto* pane = window.findChild<qb::ui::ReportPane*>();
  bool ok = pane != nullptr;

  // The first RDF, before its first marker row: a column span picked on the report.
  window.ChooseReport(Q(reports / "ARAGE02.txt"));
  window.ChooseRdf(Q(reports / "step1.rdf"));
  ok = ok && Until([&] { return pane->tracer() && pane->tracer()->Status().complete; });
  pane->view()->SelectColumns(1, 7);
  QTest::qWait(50);
  ok = Save(window, out / "first-rdf-columns.png") && ok;

  // Its findings, in the Check RDF window.
  window.findChild<QAction*>("mnuCheckRDF")->trigger();
  if (auto* check = window.findChild<QDialog*>("frmCheckRdf")) {
    check->resize(900, 300);
    QTest::qWait(50);
    ok = Save(*check, out / "check-rdf.png") && ok;
    check->close();
  } else {
    ok = false;
  }

  // The finished RDF: the tinted report and its legend, then the preview, then a run.
  window.ChooseRdf(Q(reports / "final.rdf"));
  window.ChooseOutput(Q(demo / "ARAGE02.xls"));
  window.statusBar()->clearMessage();
  ok = ok && Settled(*pane);
  ok = Save(window, out / "window-report-view.png") && ok;
  pane->setCurrentIndex(1);
  QTest::qWait(50);
  ok = Save(window, out / "window-preview.png") && ok;
  pane->setCurrentIndex(0);

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
  fs::remove_all(demo);
  return ok ? 0 : 1;
}
