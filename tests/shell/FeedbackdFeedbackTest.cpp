#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QProcess>

#include "shell/qt/FeedbackdFeedback.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// The test's own feedback daemon: answers TriggerFeedback (of exactly its
// signature) and notes "app event profile timeout" for each call.
struct FakeFeedbackd : QDBusVirtualObject {
  bool handleMessage(const QDBusMessage& m, const QDBusConnection& bus) override {
    if (m.member() != "TriggerFeedback" || m.signature() != "ssa{sv}i") return false;
    auto a = m.arguments();
    auto hints = qdbus_cast<QVariantMap>(a[2]);
    calls << QStringList{a[0].toString(), a[1].toString(), hints.value("profile").toString(),
                         QString::number(hints.size()), a[3].toString()}
                 .join(' ');
    return bus.send(m.createReply(QVariant::fromValue(uint(calls.size()))));
  }
  QString introspect(const QString&) const override { return {}; }
  QStringList calls;
};

// A private session bus for the suite, so that nothing reaches the user's.
class FeedbackdFeedbackTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    static int argc = 1;
    static char name[] = "feedbackd-test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);
    daemon_ = new QProcess;
    daemon_->start("dbus-daemon", {"--session", "--print-address", "--nofork"});
    while (!daemon_->canReadLine() && daemon_->waitForReadyRead(5000)) {
    }
    address_ = QString::fromUtf8(daemon_->readLine()).trimmed();
    ASSERT_FALSE(address_.isEmpty()) << "dbus-daemon gave no address";
    qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
  }
  static void TearDownTestSuite() {
    daemon_->kill();
    daemon_->waitForFinished();
  }
  // Runs the loop until `done` or `ms` milliseconds.
  static bool spin(const std::function<bool()>& done, int ms = 5000) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return done();
  }
  static inline QProcess* daemon_ = nullptr;
  static inline QString address_;
};

TEST_F(FeedbackdFeedbackTest, EachImpactAndSoundTriggersItsEventOnceForTheApp) {
  test::LogCapture log;
  auto service = QDBusConnection::connectToBus(address_, "feedbackd");
  FakeFeedbackd fake;
  ASSERT_TRUE(service.registerService("org.sigxcpu.Feedback"));
  ASSERT_TRUE(service.registerVirtualObject("/org/sigxcpu/Feedback", &fake));
  FeedbackdFeedback feedback(QDBusConnection::connectToBus(address_, "oxelo"));
  for (int style : {0, 1, 2}) feedback.impact(style);
  for (int sound : {1108, 1117, 1118, 4095}) feedback.play(sound);  // 4095: none such
  spin([&] { return fake.calls.size() > 6; }, 200);
  EXPECT_EQ(fake.calls.join('\n').toStdString(),
            "oxelo button-pressed quiet 1 -1\n"
            "oxelo button-released quiet 1 -1\n"
            "oxelo timeout-completed quiet 1 -1\n"
            "oxelo camera-shutter  0 -1\n"
            "oxelo camera-focus  0 -1\n"
            "oxelo timeout-completed  0 -1");
  EXPECT_EQ(log.count("no feedback daemon"), 0u);
  QDBusConnection::disconnectFromBus("feedbackd");
}

TEST_F(FeedbackdFeedbackTest, WithoutTheDaemonOrTheBusItLogsOnceAndGoesOn) {
  for (auto bus : {QDBusConnection::connectToBus(address_, "no-daemon"),
                   QDBusConnection::connectToBus(QString("unix:path=/nonexistent"), "no-bus")}) {
    SCOPED_TRACE(bus.name().toStdString());
    test::LogCapture log;
    FeedbackdFeedback feedback(bus);
    for (int i = 0; i < 3; ++i) feedback.heavyVibrate(), feedback.play(1108);
    ASSERT_TRUE(spin([&] { return log.count("no feedback daemon") > 0; }));
    spin([] { return false; }, 100);
    EXPECT_EQ(log.count("no feedback daemon"), 1u);
  }
}

}  // namespace
}  // namespace oxelo
