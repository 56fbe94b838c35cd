#include "shell/qt/QtWindow.h"

#include <QGuiApplication>
#include <QLocale>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QTranslator>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/log/Log.h"
#include "shell/qt/PreviewItem.h"

namespace oxelo {

void QtMainScreen::update_ui_for_discover(bool discovering) {
  discovering_ = discovering;
  emit changed();
}

void QtMainScreen::showInfo(const std::string& text) {
  stateText_ = QString::fromStdString(text);
  stateIsError_ = false;
  emit changed();
}

void QtMainScreen::showError(const std::string& text) {
  stateText_ = QString::fromStdString(text);
  stateIsError_ = true;
  emit changed();
}

void QtMainScreen::hudShowWithTitleAndIcon(const std::string& title, const std::string&) {
  showInfo(title);
}

void QtMainScreen::chooseHost(const std::vector<HostRecord>& hosts,
                              std::function<void(std::optional<size_t>)> choice) {
  std::optional<size_t> first;
  if (!hosts.empty()) first = 0;
  MainQueue::post([choice = std::move(choice), first] { choice(first); });
}

namespace {

// Passes every call on to the main screen, and tells the shell when the main
// screen appears again: the live screen has closed.
class ClosingOwner final : public LiveScreenOwner {
 public:
  ClosingOwner(std::weak_ptr<LiveScreenOwner> owner, QtShell* shell)
      : owner_(std::move(owner)), shell_(shell) {}
  void prepareLiveView(LiveViewChannelTarget& view) override {
    if (auto owner = owner_.lock()) owner->prepareLiveView(view);
  }
  void liveViewRestart() override {
    if (auto owner = owner_.lock()) owner->liveViewRestart();
  }
  void liveViewConnectionLost() override {
    if (auto owner = owner_.lock()) owner->liveViewConnectionLost();
  }
  void liveViewUserClose(bool byUser) override {
    if (auto owner = owner_.lock()) owner->liveViewUserClose(byUser);
  }
  void viewWillAppear() override {
    shell_->liveScreenClosed();
    if (auto owner = owner_.lock()) owner->viewWillAppear();
  }
  void viewDidAppear() override {
    if (auto owner = owner_.lock()) owner->viewDidAppear();
  }

 private:
  std::weak_ptr<LiveScreenOwner> owner_;
  QtShell* shell_;  // outlives every live screen
};

}  // namespace

QtShell::QtShell(std::shared_ptr<QtMainScreen> screen, QtLiveScreen::Sources sources,
                 std::function<void(const QString&, const QString&)> connect)
    : screen_(std::move(screen)), sources_(std::move(sources)), connect_(std::move(connect)) {}

QtShell::~QtShell() = default;

void QtShell::connectTo(const QString& address, const QString& instance) {
  if (connect_) connect_(address.trimmed(), instance.trimmed());
}

std::shared_ptr<LiveViewController> QtShell::presentLiveScreen(
    std::shared_ptr<LiveScreenOwner> owner) {
  auto live = QtLiveScreen::create(sources_);
  live->setOwner(std::make_shared<ClosingOwner>(owner, this));
  live_ = live;
  screen_->setShowing(false);
  emit liveScreenChanged();
  live->open();
  return live;
}

void QtShell::liveScreenClosed() {
  screen_->setShowing(true);
  // The screen is still on the stack of its own close: it goes once that
  // step is over, and the QML item before it.
  auto closing = std::move(live_);
  emit liveScreenChanged();
  MainQueue::post([closing] {});
}

void installTranslations(QGuiApplication& app) {
  auto* english = new QTranslator(&app);
  if (english->load(QStringLiteral(":/i18n/oxelo_en.qm"))) app.installTranslator(english);
  auto* local = new QTranslator(&app);
  if (local->load(QLocale(), QStringLiteral("oxelo"), QStringLiteral("_"),
                  QStringLiteral(":/i18n")) &&
      !local->isEmpty() && local->language() != QStringLiteral("en"))
    app.installTranslator(local);
}

bool loadWindow(QQmlApplicationEngine& engine, QtShell& shell) {
  qmlRegisterType<PreviewItem>("Oxelo", 1, 0, "PreviewItem");
  engine.rootContext()->setContextProperty(QStringLiteral("app"), &shell);
  engine.load(QUrl(QStringLiteral("qrc:/shell/qml/Main.qml")));
  return !engine.rootObjects().isEmpty();
}

}  // namespace oxelo
