#include "shell/qt/QtOptions.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlContext>

#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/log/Log.h"
#include "shell/options/AppLanguages.h"
#include "shell/qt/QtUrlOpener.h"
#include "shell/web/BuiltInPage.h"

namespace oxelo {

namespace {

// The rows' names as the pages use them for their items.
const char* rowName(OptionsRow row) {
  switch (row) {
    case OptionsRow::orientation:
      return "orientation";
    case OptionsRow::videoSize:
      return "videoSize";
    case OptionsRow::frameRate:
      return "frameRate";
    case OptionsRow::quality:
      return "quality";
    case OptionsRow::encoder:
      return "encoder";
    case OptionsRow::audio:
      return "audio";
    case OptionsRow::backCamera:
      return "backCamera";
    case OptionsRow::grid:
      return "grid";
    case OptionsRow::autoConnect:
      return "autoConnect";
    case OptionsRow::language:
      return "language";
    case OptionsRow::help:
      return "help";
    case OptionsRow::contact:
      return "contact";
    case OptionsRow::share:
      return "share";
  }
  return "";
}

const char* kindName(OptionsRowKind kind) {
  switch (kind) {
    case OptionsRowKind::sheet:
      return "sheet";
    case OptionsRowKind::toggle:
      return "toggle";
    case OptionsRowKind::action:
      return "action";
  }
  return "";
}

// The header's title of a group; the general group has no header.
const char* groupTitleKey(OptionsGroup group) {
  return group == OptionsGroup::video ? "O_GROUP_VIDEO" : "O_GROUP_ABOUT";
}

std::optional<OptionsRow> rowAt(int row) {
  const auto& rows = optionsRows();
  if (row < 0 || static_cast<size_t>(row) >= rows.size()) return std::nullopt;
  return rows[static_cast<size_t>(row)].row;
}

QStringList textList(const std::vector<std::string>& texts, auto translate) {
  QStringList list;
  for (const auto& text : texts) list.append(translate(text));
  return list;
}

}  // namespace

QtOptions::QtOptions(Sources sources, QObject* parent)
    : QObject(parent), sources_(std::move(sources)), advanced_(sources_.defaults, *this) {
  if (!sources_.haptics) sources_.haptics = std::make_shared<Haptics>();
  if (!sources_.opener) sources_.opener = std::make_shared<QtUrlOpener>();
  auto& catalogue = sources_.catalogue ? *sources_.catalogue : VideoSizeCatalogue::shared();
  screen_ = std::make_unique<OptionsScreen>(sources_.defaults, catalogue, sources_.device, *this,
                                            *sources_.haptics, *sources_.opener);
  screen_->onDismissed = [this] { emit dismissed(); };
  footer_ = QString::fromStdString(aboutFooterText(sources_.about));
}

QtOptions::~QtOptions() = default;

QString QtOptions::translated(const std::string& key) { return qtTrId(key.c_str()); }

std::string QtOptions::text(const std::string& key) { return translated(key).toStdString(); }

void QtOptions::load() {
  screen_->load();
  loaded_ = true;
  emit tableReloaded();
}

QVariantList QtOptions::rows() const {
  QVariantList list;
  if (!loaded_) return list;
  std::optional<OptionsGroup> group;
  for (size_t i = 0; i < optionsRows().size(); ++i) {
    const auto& info = optionsRows()[i];
    QVariantMap row{
        {"row", static_cast<int>(i)},
        {"name", rowName(info.row)},
        {"kind", kindName(info.kind)},
        {"title", translated(info.titleKey)},
        {"value", translated(screen_->shownValue(info.row))},
        {"on", screen_->switchValue(info.row)},
        {"hidden", screen_->isHidden(info.row)},
    };
    if (group != info.group && screen_->headerHeight(info.group) > 0) {
      row.insert("header", screen_->headerHeight(info.group));
      row.insert("headerTitle", translated(groupTitleKey(info.group)));
    }
    group = info.group;
    list.append(row);
  }
  return list;
}

QVariantList QtOptions::advancedRows() const {
  QVariantList list;
  for (size_t i = 0; i < advanced_.rowCount(); ++i) {
    const std::string key = oxelo::advancedRows()[i].key;
    list.append(QVariantMap{
        {"key", QString::fromStdString(key)},
        {"title", translated("O_ROW_" + key)},
        {"checked", advanced_.isChecked(i)},
        {"detail", QString::fromStdString(advanced_.detailText(i))},
        {"sheet", !oxelo::advancedRows()[i].values.empty()},
    });
  }
  return list;
}

QString QtOptions::helpPage() const {
  BuiltInPageInput input;
  input.helpText = translated("S_HELP").toStdString();
  input.tablet = sources_.device.tablet;
  input.firstLanguage = preferredFirstLanguage(*sources_.defaults);
  return QString::fromStdString(builtInPage(input));
}

QStringList QtOptions::choices(int row) const {
  auto r = rowAt(row);
  if (!r || !loaded_) return {};
  return textList(screen_->choices(*r), translated);
}

bool QtOptions::select(int row, int index) {
  auto r = rowAt(row);
  return r && loaded_ && index >= 0 && screen_->select(*r, static_cast<size_t>(index));
}

void QtOptions::setSwitch(int row, bool on) {
  if (auto r = rowAt(row)) screen_->setSwitch(*r, on);
}

void QtOptions::activate(int row) {
  if (auto r = rowAt(row)) screen_->activate(*r);
}

bool QtOptions::longPress(int row) {
  auto r = rowAt(row);
  return r && screen_->longPress(*r, /*state=*/1);
}

void QtOptions::done() { screen_->done(); }

QStringList QtOptions::tapAdvanced(int row) {
  if (row < 0) return {};
  auto values = advanced_.tap(static_cast<size_t>(row));
  if (!values) return {};
  return textList(*values, [](const std::string& v) { return QString::fromStdString(v); });
}

bool QtOptions::chooseAdvanced(int row, int index) {
  return row >= 0 && index >= 0 &&
         advanced_.choose(static_cast<size_t>(row), static_cast<size_t>(index));
}

void QtOptions::showAlert(const LiveAlert& alert) {
  alert_ = alert;
  auto shown = [&](const std::string& text) {
    return alert.keys ? translated(text) : QString::fromStdString(text);
  };
  QStringList buttons;
  for (const auto& button : alert.buttons) buttons.append(translated(button.key));
  emit alertRequested(shown(alert.title), shown(alert.message), buttons);
}

void QtOptions::answerAlert(int index) {
  if (!alert_) return;
  auto alert = std::move(*alert_);
  alert_.reset();
  if (index < 0 || static_cast<size_t>(index) >= alert.buttons.size()) return;
  if (auto& action = alert.buttons[static_cast<size_t>(index)].action) action();
}

bool QtOptions::openLink(const QString& url) { return sources_.opener->openUrl(url.toStdString()); }

void QtOptions::share(const ShareItems& items) {
  // The desktop has no share sheet: the text and the address go to the
  // clipboard, for the user to paste where they like.
  QGuiApplication::clipboard()->setText(QString::fromStdString(items.text + "\n" + items.url));
  emit notice(translated("O_SHARE_COPIED"));
}

void QtOptions::quit(int status) {
  oxlog("Options - the program ends for the new language");
  QCoreApplication::exit(status);
}

QtOptions* registerOptions(QQmlApplicationEngine& engine, QtOptions::Sources sources) {
  auto* options = new QtOptions(std::move(sources), &engine);
  engine.rootContext()->setContextProperty(QStringLiteral("options"), options);
  return options;
}

}  // namespace oxelo
