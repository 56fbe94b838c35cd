#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QMouseEvent>
#include <QQuickItem>
#include <QQuickWindow>
#include <string>

namespace oxelo::test {

// What the window tests share: the offscreen application, waiting on the Qt
// loop, finding items by object name, a finger's tap and the grabbed image.

// Makes the application once, on the offscreen platform with the software
// renderer; `setUp` runs on it the first time (translations, say).
template <typename SetUp>
void ensureOffscreenApp(SetUp setUp) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  static int argc = 1;
  static char name[] = "oxelo-window-test";
  static char* argv[] = {name, nullptr};
  if (!QCoreApplication::instance()) {
    setUp(*new QGuiApplication(argc, argv));
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  }
}

// Runs the Qt loop until `done` or the time is up; answers `done()`.
template <typename Done>
bool spinUntil(Done done, int milliseconds = 10000) {
  QElapsedTimer timer;
  timer.start();
  while (!done() && timer.elapsed() < milliseconds)
    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  return done();
}

// Lets the loop run a few rounds, for changes that carry no sign of their end.
inline void settle(int milliseconds = 150) {
  QElapsedTimer timer;
  timer.start();
  while (timer.elapsed() < milliseconds) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

// By object name, anywhere in the scene (a Repeater's items have no object
// parent, only their place in the scene).
inline QQuickItem* findItem(QQuickItem* from, const char* name) {
  if (!from) return nullptr;
  if (from->objectName() == QLatin1String(name)) return from;
  for (auto* child : from->childItems())
    if (auto* found = findItem(child, name)) return found;
  return nullptr;
}

// A press and a release at `at` in the window's coordinates, as a finger would.
inline void tapAt(QQuickWindow* window, QPointF at) {
  for (auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
    QMouseEvent event(type, at, at, window->mapToGlobal(at), Qt::LeftButton,
                      type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(window, &event);
  }
}

// A tap at the middle of `target`.
inline void tap(QQuickWindow* window, QQuickItem* target) {
  tapAt(window, target->mapToScene(QPointF(target->width() / 2, target->height() / 2)));
}

// On the options page: taps the row `cell`, then the sheet's entry whose
// text is `entry`; false when the sheet does not come or offers no such entry.
inline bool chooseSheetEntry(QQuickWindow* window, const char* cell, const QString& entry) {
  auto* root = window->contentItem();
  tap(window, findItem(root, cell));
  if (!spinUntil([&] { return findItem(root, "sheetEntry0"); })) return false;
  settle();  // the sheet lays itself out as it is drawn
  for (int i = 0; auto* e = findItem(root, ("sheetEntry" + std::to_string(i)).c_str()); ++i) {
    if (e->property("text").toString() != entry) continue;
    tap(window, e);
    if (!spinUntil([&] { return !findItem(root, "sheetEntry0"); })) return false;
    settle();  // the rows are made again with the new values
    return true;
  }
  return false;
}

// The window as an image; with OXELO_SCREENSHOT_DIR set, also written there
// as `shotName`.png (scripts/screenshots).
inline QImage grabShot(QQuickWindow* window, const char* shotName) {
  QImage image = window->grabWindow();
  if (auto dir = qgetenv("OXELO_SCREENSHOT_DIR"); !dir.isEmpty()) {
    QDir().mkpath(QString::fromLocal8Bit(dir));
    image.save(QString::fromLocal8Bit(dir) + "/" + shotName + ".png");
  }
  return image;
}

}  // namespace oxelo::test
