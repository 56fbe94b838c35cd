#include "shell/qt/FeedbackdFeedback.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

#include "platform/log/Log.h"

namespace oxelo {

namespace {
const QString kService = QStringLiteral("org.sigxcpu.Feedback");
const QString kPath = QStringLiteral("/org/sigxcpu/Feedback");

void warnOnce(bool& warned, const QString& why) {
  if (std::exchange(warned, true)) return;
  oxlog("Live - no feedback daemon ({}): no haptics and no event sounds", why.toStdString());
}
}  // namespace

FeedbackdFeedback::FeedbackdFeedback(QDBusConnection bus) : bus_(std::move(bus)) {}

QString FeedbackdFeedback::impactEvent(int style) {
  switch (style) {
    case 0:
      return QStringLiteral("button-pressed");
    case 1:
      return QStringLiteral("button-released");
    case 2:
      return QStringLiteral("timeout-completed");
    default:
      return {};
  }
}

QString FeedbackdFeedback::soundEvent(int soundId) {
  switch (soundId) {
    case 1108:
      return QStringLiteral("camera-shutter");
    case 1117:
      return QStringLiteral("camera-focus");
    case 1118:
      return QStringLiteral("timeout-completed");
    default:
      return {};
  }
}

void FeedbackdFeedback::impact(int style) { trigger(impactEvent(style), /*hapticOnly=*/true); }

void FeedbackdFeedback::play(int soundId) { trigger(soundEvent(soundId), /*hapticOnly=*/false); }

void FeedbackdFeedback::trigger(const QString& event, bool hapticOnly) {
  if (event.isEmpty()) return;
  if (!bus_.isConnected()) {
    warnOnce(*warned_, QStringLiteral("no session bus"));
    return;
  }
  QVariantMap hints;
  if (hapticOnly) hints.insert(QStringLiteral("profile"), QStringLiteral("quiet"));
  auto call =
      QDBusMessage::createMethodCall(kService, kPath, kService, QStringLiteral("TriggerFeedback"));
  call << QString::fromLatin1(kAppId) << event << hints << /*timeout=*/-1;
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call));
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [warned = warned_, watcher] {
    QDBusPendingReply<uint32_t> reply = *watcher;
    watcher->deleteLater();
    if (reply.isError()) warnOnce(*warned, reply.error().name());
  });
}

}  // namespace oxelo
