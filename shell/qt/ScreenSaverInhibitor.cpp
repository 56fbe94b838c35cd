#include "shell/qt/ScreenSaverInhibitor.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include "platform/log/Log.h"

namespace oxelo {

namespace {
const QString kService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString kPath = QStringLiteral("/org/freedesktop/ScreenSaver");

void uninhibit(uint32_t cookie) {
  auto call =
      QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("UnInhibit"));
  call << cookie;
  QDBusConnection::sessionBus().asyncCall(call);
}
}  // namespace

ScreenSaverInhibitor::~ScreenSaverInhibitor() { setKeepAwake(false); }

void ScreenSaverInhibitor::setKeepAwake(bool awake) {
  auto& state = *state_;
  state.wanted = awake;
  if (!awake) {
    if (state.cookie != 0) uninhibit(std::exchange(state.cookie, 0));
    return;
  }
  if (state.cookie != 0 || state.asking) return;
  auto bus = QDBusConnection::sessionBus();
  if (!bus.isConnected() || !bus.interface() ||
      !bus.interface()->isServiceRegistered(kService).value()) {
    if (!std::exchange(warned_, true))
      oxlog("Live - no screen saver service on the session bus: the display is left as it is");
    return;
  }
  auto call = QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("Inhibit"));
  call << QStringLiteral("Oxelo") << QStringLiteral("Streaming the camera");
  state.asking = true;
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [state = state_, watcher] {
    QDBusPendingReply<uint32_t> reply = *watcher;
    watcher->deleteLater();
    state->asking = false;
    if (reply.isError()) return;
    if (state->wanted) {
      state->cookie = reply.value();
    } else {
      uninhibit(reply.value());  // let go while the answer was on its way
    }
  });
}

}  // namespace oxelo
