#include "ui/settings_dialogs.h"
#include "ui/text.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <iterator>
#include <string>

namespace qb::ui {
namespace {

QLabel* Label(const char* name, const QString& text, QWidget* parent) {
  auto* l = new QLabel(text, parent);
  l->setObjectName(name);
  return l;
}

QComboBox* List(const char* name, const QStringList& items, const char* tip, QWidget* parent) {
  auto* c = new QComboBox(parent);
  c->setObjectName(name);
  c->addItems(items);
  c->setToolTip(tip);
  return c;
}

// The box for a save that failed: the user must not take the settings as saved.
void ShowNotSaved(Dialogs& dialogs, QWidget* parent, const Application& app,
                  const std::string& why) {
  const std::filesystem::path file = app.ProgramFolder() / kSettingsFileName;
  dialogs.message(parent,
                  "The settings file " + Q(file.string()) + " could not be written" +
                      (why.empty() ? QString() : ": " + Q(why)) + ".\rThe settings were not saved.",
                  "Settings Not Saved", MessageIcon::Exclamation);
}

}  // namespace

ConfigOptionsDialog::ConfigOptionsDialog(Application& app, Dialogs& dialogs, QWidget* parent)
    : QDialog(parent), app_(app), dialogs_(dialogs), systems_(app.ProgramFolder(), app.Log()) {
  setObjectName("frmConfigOptions");
  setWindowTitle("Configuration Options");
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(Label("lblWelcome", "Welcome to the Quillbrook", this));
  QLabel* heading = Label("lblRunTime", "<b>Quillbrook Settings</b>", this);
  heading->hide();
  layout->addWidget(heading);

  auto* form = new QFormLayout;
  QStringList names;
  for (const clsSystem& s : systems_) names << Q(s.System);
  cboSystem_ = List("cboSystem", names, "Select an Autofind option", this);
  form->addRow(Label("lblSystem", "RDF AutoFind:", this), cboSystem_);
  layout->addLayout(form);

  fraExcelSettings_ = new QGroupBox("Excel Settings", this);
  fraExcelSettings_->setObjectName("fraExcelSettings");
  auto* excel = new QFormLayout(fraExcelSettings_);
  cboBuffer_ = List("cboBuffer", {"0", "1", "2", "3", "4", "5", "6"}, "Select a Buffer Size", this);
  cboLaunch_ = List("cboLaunch", {"1", "2", "3"}, "Select a Launch Type", this);
  excel->addRow(Label("lblBuffer", "Buffer:", this), cboBuffer_);
  excel->addRow(Label("lblLaunch", "Launch:", this), cboLaunch_);
  layout->addWidget(fraExcelSettings_);

  auto* buttons = new QHBoxLayout;
  btnSave_ = new QPushButton("&Save", this);
  btnSave_->setObjectName("btnSave");
  btnSave_->setToolTip("Save Settings");
  auto* btnClose = new QPushButton("&Close", this);
  btnClose->setObjectName("btnClose");
  btnClose->setToolTip("Close");
  buttons->addStretch();
  buttons->addWidget(btnSave_);
  buttons->addWidget(btnClose);
  layout->addLayout(buttons);

  // Show the settings.
  const std::string& pfset = app_.Settings[Key::pfset];
  cboSystem_->setCurrentIndex(-1);
  if (!pfset.empty())
    cboSystem_->setCurrentIndex(cboSystem_->findText(Q(pfset.substr(0, pfset.find(',')))));
  cboLaunch_->setCurrentText(Q(app_.Settings[Key::lmeth]));
  cboBuffer_->setCurrentText(Q(app_.Settings[Key::rmode]));
  btnSave_->setEnabled(false);
  heading->show();
  if (cboSystem_->currentText().isEmpty()) fraExcelSettings_->hide();

  for (QComboBox* list : {cboSystem_, cboBuffer_, cboLaunch_}) {
    connect(list, &QComboBox::activated, this, [this] { btnSave_->setEnabled(true); });
  }
  auto* chord = new QShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_F12), this);
  connect(chord, &QShortcut::activated, this, [this] { fraExcelSettings_->show(); });
  connect(btnSave_, &QPushButton::clicked, this, [this] { Save(); });
  connect(btnClose, &QPushButton::clicked, this, &QDialog::reject);
}

void ConfigOptionsDialog::Save() {
  const int chosen = cboSystem_->currentIndex();
  if (chosen < 0) return;  // no system chosen: nothing is written
  static constexpr Key kSaved[] = {Key::lmeth, Key::rmode, Key::pfset};
  std::string before[std::size(kSaved)];
  for (size_t i = 0; i < std::size(kSaved); ++i) before[i] = app_.Settings[kSaved[i]];
  app_.Settings.Item(Key::lmeth).Value = cboLaunch_->currentText().toStdString();
  app_.Settings.Item(Key::rmode).Value = cboBuffer_->currentText().toStdString();
  app_.Settings.Item(Key::pfset).Value = systems_.Item(chosen + 1).PfsetText();
  std::string why;
  if (!SaveOptions(app_.Settings, false, app_.ProgramFolder(), kSettingsFileName, &why)) {
    // A failed save changes nothing: the working settings go back, Save stays enabled for
    // another try, and closing says "Changes Cancelled", which is then true.
    for (size_t i = 0; i < std::size(kSaved); ++i) app_.Settings.Item(kSaved[i]).Value = before[i];
    ShowNotSaved(dialogs_, this, app_, why);
    return;
  }
  app_.SnapshotSettings();
  btnSave_->setEnabled(false);
}

void ConfigOptionsDialog::done(int result) {
  if (btnSave_->isEnabled()) {
    dialogs_.message(this, "Changes Cancelled", "Quillbrook", MessageIcon::Information);
  }
  QDialog::done(result);
}

CurrentSettingsDialog::CurrentSettingsDialog(Application& app, Dialogs& dialogs, QWidget* parent)
    : QDialog(parent) {
  setObjectName("frmCurrentSettings");
  setWindowTitle("Save Current Settings");
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(
      Label("lblCurrentSettings", "Saves Current Settings as Default Work Settings", this));
  auto* form = new QFormLayout;
  const auto yesNo = [](const std::string& v) { return QString(v == "1" ? "yes" : "no"); };
  const clsKeys& s = app.Settings;
  const struct {
    const char* label;
    const char* box;
    QString value;
  } rows[] = {
      {"Report Path:", "txtRptdir", Q(s[Key::rptdir])},
      {"RDF Path:", "txtRDFdir", Q(s[Key::rdfdir])},
      {"Output Path:", "txtOutdir", Q(s[Key::outdir])},
      {"Launch Excel:", "txtExcelSwitch", yesNo(s[Key::exswt])},
      {"Use Text Qualifier:", "txtTQSwitch", yesNo(s[Key::tqswt])},
      {"Output File Type:", "txtOutputType", Q(s[Key::opfmt])},
      {"Delimiter:", "txtDelimiter", Q(s[Key::delim])},
      {"Write:", "txtRecType", Q(s[Key::rtype])},
      {"Text Qualifier:", "txtTQ", Q(s[Key::textq])},
      {"Encoding:", "txtEncoding", s[Key::encoding].empty() ? "automatic" : Q(s[Key::encoding])},
  };
  for (const auto& row : rows) {
    auto* box = new QLineEdit(row.value, this);
    box->setObjectName(row.box);
    box->setReadOnly(true);
    box->setMinimumWidth(320);
    form->addRow(row.label, box);
  }
  layout->addLayout(form);
  auto* buttons = new QHBoxLayout;
  auto* cmdSave = new QPushButton("&Save", this);
  cmdSave->setObjectName("cmdSave");
  auto* cmdCancel = new QPushButton("&Cancel", this);
  cmdCancel->setObjectName("cmdCancel");
  buttons->addStretch();
  buttons->addWidget(cmdSave);
  buttons->addWidget(cmdCancel);
  layout->addLayout(buttons);
  connect(cmdSave, &QPushButton::clicked, this, [this, &app, &dialogs] {
    std::string why;
    if (!SaveAllSettings(app.Settings, app.ProgramFolder(), kSettingsFileName, &why)) {
      // The dialog stays open: the user can try again or cancel.
      ShowNotSaved(dialogs, this, app, why);
      return;
    }
    app.SnapshotSettings();
    dialogs.message(this, "Current Settings Saved", "Settings Saved", MessageIcon::None);
    accept();
  });
  connect(cmdCancel, &QPushButton::clicked, this, &QDialog::reject);
}

}  // namespace qb::ui
