#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <memory>
#include <optional>

#include "shell/options/AdvancedScreen.h"
#include "shell/options/OptionsScreen.h"

class QQmlApplicationEngine;

namespace oxelo {

class UserDefaults;
class VideoSizeCatalogue;

// The options screen, its advanced screen and the help page in the window
// (QML sees it as `options`): a thin edge over OptionsScreen and
// AdvancedScreen, which decide every value and write the settings. Rows are
// plain maps that QML lists; taps, switches, long presses and sheet choices
// come back as calls by row number. What the screens ask of their window
// (OptionsView) becomes signals for the pages: a table to show again, an
// alert, the advanced page, the page closing. Sharing copies the
// recommendation to the clipboard and says so. Texts are the keys' texts in
// the installed translations (qtTrId).
//
// GUI thread (the main queue), all of it. The pages only borrow it.
class QtOptions final : public QObject, public OptionsView {
  Q_OBJECT
  // Options rows in screen order: row (OptionsRow's number), name, kind
  // ("sheet", "toggle", "action"), title, value, on, hidden, and before the
  // first row of a group with a header: header (its height) and
  // headerTitle. Empty until load().
  Q_PROPERTY(QVariantList rows READ rows NOTIFY tableReloaded)
  // Advanced rows: key, title, checked, detail, sheet (whether a tap offers values).
  Q_PROPERTY(QVariantList advancedRows READ advancedRows NOTIFY tableReloaded)
  Q_PROPERTY(QString footer READ footer CONSTANT)
  Q_PROPERTY(QString helpTitle READ helpTitle CONSTANT)
  Q_PROPERTY(QString helpPage READ helpPage CONSTANT)  // rich text

 public:
  struct Sources {
    std::shared_ptr<UserDefaults> defaults;  // required
    OptionsDevice device;
    std::shared_ptr<Haptics> haptics;         // none: no feedback
    std::shared_ptr<UrlOpener> opener;        // none: QtUrlOpener
    VideoSizeCatalogue* catalogue = nullptr;  // none: VideoSizeCatalogue::shared()
    AboutInfo about = AboutInfo::current();
  };

  explicit QtOptions(Sources sources, QObject* parent = nullptr);
  ~QtOptions() override;

  QVariantList rows() const;
  QVariantList advancedRows() const;
  QString footer() const { return footer_; }
  QString helpTitle() const { return translated("O_HELP"); }
  QString helpPage() const;

  // The options page builds its lists as it opens: the catalogue as it
  // stands then.
  Q_INVOKABLE void load();
  // The entries of a row's sheet, as texts.
  Q_INVOKABLE QStringList choices(int row) const;
  Q_INVOKABLE bool select(int row, int index);
  Q_INVOKABLE void setSwitch(int row, bool on);
  Q_INVOKABLE void activate(int row);
  Q_INVOKABLE bool longPress(int row);
  Q_INVOKABLE void done();
  // A tap on an advanced row: a check-mark row turns over and answers no
  // values; a text row answers the values of its sheet.
  Q_INVOKABLE QStringList tapAdvanced(int row);
  Q_INVOKABLE bool chooseAdvanced(int row, int index);
  // The user's answer to the alert shown last: button `index` runs its action.
  Q_INVOKABLE void answerAlert(int index);
  // A link of the help page: to the system's browser.
  Q_INVOKABLE bool openLink(const QString& url);

  // OptionsView
  std::string text(const std::string& key) override;
  void reloadTable() override { emit tableReloaded(); }
  void showAlert(const LiveAlert& alert) override;
  void openAdvanced() override { emit advancedRequested(); }
  void share(const ShareItems& items) override;
  void dismiss() override { emit dismissRequested(); }
  void quit(int status) override;

 signals:
  void tableReloaded();
  void alertRequested(const QString& title, const QString& message, const QStringList& buttons);
  void advancedRequested();
  void dismissRequested();
  // The options page is closing by its done button (the main screen's cue).
  void dismissed();
  // A short message for the user (the recommendation was copied).
  void notice(const QString& text);

 private:
  static QString translated(const std::string& key);

  Sources sources_;
  std::unique_ptr<OptionsScreen> screen_;
  AdvancedScreen advanced_;
  bool loaded_ = false;
  QString footer_;
  std::optional<LiveAlert> alert_;  // the one on screen
};

// Makes the options for the window's pages and names it `options` in the
// engine's root context; the engine owns it.
QtOptions* registerOptions(QQmlApplicationEngine& engine, QtOptions::Sources sources);

}  // namespace oxelo
