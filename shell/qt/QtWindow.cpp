#include "shell/qt/QtWindow.h"

#include <QGuiApplication>
#include <QLocale>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QTranslator>

#include "live/IdleTimer.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"
#include "shell/qt/PreviewItem.h"

namespace oxelo {

QtShell::QtShell(std::shared_ptr<QtMainScreen> screen, QtLiveScreen::Sources sources)
    : screen_(std::move(screen)), sources_(std::move(sources)) {}

QtShell::~QtShell() = default;

void QtShell::setViewSize(double width, double height) {
  if (width <= 0 || height <= 0) return;
  width_ = width;
  height_ = height;
}

std::shared_ptr<LiveViewController> QtShell::presentLiveScreen(
    std::shared_ptr<LiveScreenOwner> owner) {
  auto live = QtLiveScreen::create(width_, height_, std::move(owner), sources_,
                                   [this] { liveScreenClosed(); });
  live_ = live;
  screen_->setShowing(false);
  emit liveScreenChanged();
  std::weak_ptr<QtLiveScreen> weak = live;
  MainQueue::post([weak] {
    if (auto screen = weak.lock()) screen->screenWillAppear();
  });
  return live;
}

bool IdleInputFilter::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::TouchBegin:
    case QEvent::MouseButtonPress:
      timer_->sendEvent(true);
      break;
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease:
    case QEvent::KeyPress:
    case QEvent::Wheel:
      timer_->sendEvent(false);
      break;
    default:
      break;
  }
  return QObject::eventFilter(watched, event);
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
