// The live screen's behaviour without a display: the session it builds from
// the settings and the hand-over, and how each way a session ends reaches
// the main screen, once.
#include <gtest/gtest.h>

#include "live/LiveScreenController.h"
#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/FakeCarrier.h"
#include "tests/support/FakeLifecycle.h"
#include "tests/support/PlainStatusSource.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Calls = std::vector<std::string>;

// The main screen as the live screen sees it: hands over the host and a
// carrier, and records what it is told.
class RecordingOwner final : public LiveScreenOwner {
 public:
  void prepareLiveView(LiveViewChannelTarget& view) override {
    calls.push_back("prepareLiveView");
    view.setHostIP("127.0.0.1");
    view.setHostPort(port);
    if (carrier) view.setCarrier(carrier);
  }
  void liveViewRestart() override { calls.push_back("liveViewRestart"); }
  void liveViewConnectionLost() override { calls.push_back("liveViewConnectionLost"); }
  void liveViewUserClose(bool byUser) override {
    calls.push_back(byUser ? "liveViewUserClose(true)" : "liveViewUserClose(false)");
  }
  void viewWillAppear() override { calls.push_back("viewWillAppear"); }
  void viewDidAppear() override { calls.push_back("viewDidAppear"); }

  long long port = 5899;
  std::shared_ptr<Carrier> carrier;
  Calls calls;
};

class RecordingView final : public LiveScreenView {
 public:
  void liveScreenDidStart(OXLiveSession& session, const LiveSessionConfiguration&) override {
    started.push_back(session.running());
  }
  void liveScreenWillStop(OXLiveSession& session) override { stopped.push_back(session.running()); }
  std::vector<bool> started, stopped;
};

const Calls kPrepared = {"prepareLiveView"};
Calls closedWith(const std::string& reaction) {
  return {"prepareLiveView", reaction, "viewWillAppear", "viewDidAppear"};
}

class LiveScreenControllerTest : public testing::Test {
 protected:
  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(dir_.path());
    UserDefaults::setStandard(defaults_);
    VideoSizeCatalogue::shared().reloadVideoSizes();
    defaults_->setInteger(keys::audioFormat, 0);  // no microphone in the tests
    LiveScreenController::Sources sources;
    // The stream socket's own queue is driven by nobody: the hand-over and
    // the reactions are the main queue's business.
    sources.environment.socket.sendQueue = sendQueue_;
    sources.environment.socket.lifecycle = std::make_shared<FakeLifecycle>();
    sources.environment.statusSource = std::make_shared<PlainStatusSource>();
    owner_->carrier = carrier_;
    sources_ = sources;
    controller_ = LiveScreenController::create(sources, view_);
  }
  void TearDown() override {
    // The socket's tasks wait on a queue that nobody drives and hold the
    // socket, which holds the queue: dropping them ends the cycle.
    sendQueue_->stop();
    UserDefaults::setStandard(nullptr);
  }

  // Opens the screen and lets the session start.
  void openAndStart() {
    controller_->open(owner_);
    env_.drain();
  }
  void error(LiveStreamError code) { controller_->liveSessionErrorCode(nullptr, code); }

  test::ManualMain env_;
  std::shared_ptr<Queue> sendQueue_ = Queue::createDriven("send", env_.clockPtr());
  test::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<test::FakeCarrier> carrier_ = std::make_shared<test::FakeCarrier>();
  std::shared_ptr<RecordingOwner> owner_ = std::make_shared<RecordingOwner>();
  std::shared_ptr<RecordingView> view_ = std::make_shared<RecordingView>();
  LiveScreenController::Sources sources_;
  std::shared_ptr<LiveScreenController> controller_;
};

TEST_F(LiveScreenControllerTest, TheSessionStartsAfterTheHandOverWithTheHostAndTheCarrier) {
  controller_->open(owner_);
  EXPECT_EQ(owner_->calls, kPrepared);
  EXPECT_TRUE(controller_->hasCarrier());
  EXPECT_EQ(controller_->session(), nullptr);  // not yet: from a task of its own
  std::weak_ptr<test::FakeCarrier> handed = carrier_;
  owner_->carrier.reset();
  carrier_.reset();
  env_.drain();
  auto session = controller_->session();
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(session->running());
  EXPECT_EQ(session->streamInfo()->host, "127.0.0.1");
  EXPECT_EQ(session->streamInfo()->port, 5899);
  EXPECT_EQ(session->captureType(), kCaptureMaskVideo);  // the camera, no microphone
  // The carrier now belongs to the session's socket alone.
  EXPECT_FALSE(controller_->hasCarrier());
  EXPECT_FALSE(handed.expired());
  EXPECT_EQ(view_->started, std::vector<bool>{true});
}

// The camera state the user left reaches the new session's capture.
struct CameraStateCase {
  const char* name;
  bool faceBeautify;
  int64_t beautyMethod;
  bool horizontalFlip;
  int64_t expectedMethod;  // switching beauty off clears the method
};
class CameraStateTest : public LiveScreenControllerTest,
                        public testing::WithParamInterface<CameraStateCase> {};

TEST_P(CameraStateTest, TheStoredStateReachesTheNewSession) {
  const auto& c = GetParam();
  defaults_->setBool(keys::faceBeautify, c.faceBeautify);
  defaults_->setInteger(keys::beautyMethod, c.beautyMethod);
  defaults_->setBool(keys::horizontalFlip, c.horizontalFlip);
  openAndStart();
  auto session = controller_->session();
  ASSERT_TRUE(session && session->videoCapture());
  auto capture = session->videoCapture();
  EXPECT_EQ(capture->beautyFace(), c.faceBeautify);
  EXPECT_EQ(capture->beautyMethod(), c.expectedMethod);
  EXPECT_EQ(capture->mirror(), c.horizontalFlip);
}

INSTANTIATE_TEST_SUITE_P(Stored, CameraStateTest,
                         testing::Values(CameraStateCase{"BeautifyMirrored", true, 1, true, 1},
                                         CameraStateCase{"BeautyPlain", true, 2, false, 2},
                                         CameraStateCase{"BeautyOffClearsMethod", false, 1, true,
                                                         0}),
                         [](const auto& info) { return std::string(info.param.name); });

// What a session leaves when it ends is where the next one starts: kept in
// the settings durably, single precision where the settings say so, and
// applied with the torch and the zoom following later.
TEST_F(LiveScreenControllerTest, TheCameraStateSurvivesIntoTheNextSession) {
  CameraSystem::setCurrent(test::defaultVirtualCameraSystem());
  struct Restore {
    ~Restore() { CameraSystem::setCurrent(nullptr); }
  } restore;
  openAndStart();
  auto session = controller_->session();
  auto capture = session->videoCapture();
  ASSERT_TRUE(capture && capture->device() && capture->device()->isTorchAvailable());
  session->setTorch(2);
  session->setZoomScale(2.2);
  session->setMirror(false);
  capture->setAfLock(true);
  capture->setLensPosition(0.3);
  capture->setAwbLock(true);
  capture->setWbTempAndTint(5000.0f, 0.0f);
  controller_->userClose();
  capture->setTorch(0);  // the lamp goes out with the camera

  auto stored = UserDefaults(dir_.path());
  EXPECT_EQ(stored.integerForKey(keys::torchLevel), 2);
  EXPECT_EQ(stored.doubleForKey(keys::zoomScale), static_cast<double>(2.2f));
  EXPECT_EQ(stored.doubleForKey(keys::lensPosition), static_cast<double>(0.3f));
  EXPECT_TRUE(stored.stringForKey(keys::deviceType).has_value());

  controller_ = LiveScreenController::create(sources_, view_);
  owner_->carrier = std::make_shared<test::FakeCarrier>();
  openAndStart();
  auto next = controller_->session();
  ASSERT_NE(next, session);
  auto nextCapture = next->videoCapture();
  EXPECT_FALSE(next->mirror());
  EXPECT_TRUE(nextCapture->afLock() && nextCapture->awbLock());
  EXPECT_NEAR(nextCapture->lensPosition(), 0.3, 1e-6);
  EXPECT_NEAR(nextCapture->wbTempAndTint().temperature, 5000.0f, 1.0f);
  EXPECT_EQ(next->torch(), 0);
  env_.advance(1.0);
  EXPECT_EQ(next->torch(), 2);
  EXPECT_NEAR(next->zoomScale(), 2.2, 1e-6);
}

TEST_F(LiveScreenControllerTest, WithoutAPortTheStreamInfoNamesNoHost) {
  owner_->port = 0;
  openAndStart();
  ASSERT_NE(controller_->session(), nullptr);
  EXPECT_EQ(controller_->session()->streamInfo()->host, "");
  EXPECT_EQ(controller_->session()->streamInfo()->port, 0);
}

struct EndCase {
  const char* name;
  LiveStreamError error;
  Calls atOnce;  // what the main screen hears at the error
  Calls after;   // and 250 ms later
};
class SessionEndTest : public LiveScreenControllerTest,
                       public testing::WithParamInterface<EndCase> {};

TEST_P(SessionEndTest, EachErrorCodeReachesTheMainScreenOnce) {
  openAndStart();
  error(GetParam().error);
  EXPECT_EQ(owner_->calls, GetParam().atOnce);
  env_.advance(1.0);
  EXPECT_EQ(owner_->calls, GetParam().after);
  // A later report of the same kind changes nothing.
  error(GetParam().error);
  env_.advance(1.0);
  EXPECT_EQ(owner_->calls, GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Codes, SessionEndTest,
    testing::Values(
        EndCase("ConnectionLost205", LiveStreamError::ConnectionLost,
                closedWith("liveViewConnectionLost"), closedWith("liveViewConnectionLost")),
        EndCase("PeerClosed206", LiveStreamError::PeerClosed,
                closedWith("liveViewUserClose(false)"), closedWith("liveViewUserClose(false)")),
        EndCase("PeerRestart207", LiveStreamError::PeerRestart, kPrepared,
                closedWith("liveViewRestart")),
        EndCase("ConnectFailed203", LiveStreamError::ConnectFailed, kPrepared, kPrepared)),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LiveScreenControllerTest, RestartStopsTheSessionAtOnceAndAsksExactly250MsLater) {
  openAndStart();
  auto session = controller_->session();
  ASSERT_TRUE(session->running());
  const auto socket = session->streamSocket();
  const double t0 = env_.clock().now();
  error(LiveStreamError::PeerRestart);
  EXPECT_NE(session->streamSocket(), socket);  // stopped: the socket was dropped
  env_.clock().set(t0 + 0.249);
  env_.drain();
  EXPECT_EQ(owner_->calls, kPrepared);
  EXPECT_FALSE(controller_->isClosed());
  env_.clock().set(t0 + 0.25);
  env_.drain();
  EXPECT_EQ(owner_->calls, closedWith("liveViewRestart"));
  EXPECT_FALSE(session->running());
  EXPECT_EQ(view_->stopped, std::vector<bool>{true});  // told before the session stopped
}

TEST_F(LiveScreenControllerTest, ALossBeforeThePendingRestartClosesOnceAsALoss) {
  openAndStart();
  error(LiveStreamError::PeerRestart);
  env_.advance(0.1);
  error(LiveStreamError::ConnectionLost);
  env_.advance(0.5);
  EXPECT_EQ(owner_->calls, closedWith("liveViewConnectionLost"));
  EXPECT_EQ(view_->stopped.size(), 1u);
}

TEST_F(LiveScreenControllerTest, TheCloseButtonTellsTheUserClosedAndNoSessionStartsAfterIt) {
  controller_->open(owner_);
  controller_->userClose();
  env_.drain();  // the start task finds the screen closed
  EXPECT_EQ(owner_->calls, closedWith("liveViewUserClose(true)"));
  EXPECT_EQ(controller_->session(), nullptr);
  EXPECT_TRUE(view_->started.empty());
}

TEST_F(LiveScreenControllerTest, AMainScreenThatIsGoneGetsNoReportAndTheSessionStillStops) {
  openAndStart();
  auto session = controller_->session();
  owner_.reset();
  error(LiveStreamError::ConnectionLost);
  EXPECT_TRUE(controller_->isClosed());
  EXPECT_FALSE(session->running());
}

}  // namespace
}  // namespace oxelo
