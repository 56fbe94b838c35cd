// The live screen without a display: the session it builds, and how it ends.
#include "live/LiveScreenController.h"
#include "media/VideoSizeCatalogue.h"
#include "tests/live/LiveViewFixture.h"

namespace oxelo {
namespace {

using test::closedWith;
const std::vector<std::string> kPrepared = {"prepare"};

class RecordingView final : public LiveScreenView {
 public:
  void liveScreenDidStart(OXLiveSession& session, const LiveSessionConfiguration&) override {
    started.push_back(session.running());
  }
  void liveScreenWillStop(OXLiveSession& session) override { stopped.push_back(session.running()); }
  std::vector<bool> started, stopped;
};

class LiveScreenControllerTest : public test::LiveViewFixture {
 protected:
  void SetUp() override {
    VideoSizeCatalogue::shared().reloadVideoSizes();
    owner_->carrier = carrier_;
    controller_ = LiveScreenController::create(services().sources, view_);
  }
  void openAndStart() {
    controller_->open(owner_);
    env_.drain();
  }
  // A new screen with a carrier of its own, not yet opened.
  void reopen() {
    controller_ = LiveScreenController::create(services().sources, view_);
    owner_->carrier = std::make_shared<test::FakeCarrier>();
  }
  void error(LiveStreamError code) { controller_->liveSessionErrorCode(nullptr, code); }

  std::shared_ptr<test::FakeCarrier> carrier_ = std::make_shared<test::FakeCarrier>();
  std::shared_ptr<test::RecordingOwner> owner_ = std::make_shared<test::RecordingOwner>();
  std::shared_ptr<RecordingView> view_ = std::make_shared<RecordingView>();
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

TEST_F(LiveScreenControllerTest, TheStoredBeautyAndMirrorReachTheNewSession) {
  // Stored beauty, method and mirror; the method the capture gets.
  const std::tuple<bool, int64_t, bool, int64_t> cases[] = {
      {true, 1, true, 1}, {true, 2, false, 2}, {false, 1, true, 0}};  // off clears the method
  for (auto [beauty, method, mirror, expected] : cases) {
    if (controller_->session()) {
      controller_->userClose();
      reopen();
    }
    cameras_.defaults().setBool(keys::faceBeautify, beauty);
    cameras_.defaults().setInteger(keys::beautyMethod, method);
    cameras_.defaults().setBool(keys::horizontalFlip, mirror);
    openAndStart();
    auto session = controller_->session();
    ASSERT_TRUE(session && session->videoCapture());
    auto capture = session->videoCapture();
    EXPECT_EQ(capture->beautyFace(), beauty) << method;
    EXPECT_EQ(capture->beautyMethod(), expected) << method;
    EXPECT_EQ(capture->mirror(), mirror) << method;
  }
}

// What a session leaves is stored (single precision where the settings say so) and is
// where the next one starts, the torch and the zoom following later.
TEST_F(LiveScreenControllerTest, TheCameraStateSurvivesIntoTheNextSession) {
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

  auto stored = UserDefaults(cameras_.directory());
  EXPECT_EQ(stored.integerForKey(keys::torchLevel), 2);
  EXPECT_EQ(stored.doubleForKey(keys::zoomScale), static_cast<double>(2.2f));
  EXPECT_EQ(stored.doubleForKey(keys::lensPosition), static_cast<double>(0.3f));
  EXPECT_TRUE(stored.stringForKey(keys::deviceType).has_value());

  reopen();
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
  EXPECT_EQ(owner_->calls, closedWith("restart"));
  EXPECT_FALSE(session->running());
  EXPECT_EQ(view_->stopped, std::vector<bool>{true});  // told before the session stopped
}

TEST_F(LiveScreenControllerTest, ALossBeforeThePendingRestartClosesOnceAsALoss) {
  openAndStart();
  error(LiveStreamError::PeerRestart);
  env_.advance(0.1);
  error(LiveStreamError::ConnectionLost);
  env_.advance(0.5);
  EXPECT_EQ(owner_->calls, closedWith("lost"));
  EXPECT_EQ(view_->stopped.size(), 1u);
}

TEST_F(LiveScreenControllerTest, TheCloseButtonTellsTheUserClosedAndNoSessionStartsAfterIt) {
  controller_->open(owner_);
  controller_->userClose();
  env_.drain();  // the start task finds the screen closed
  EXPECT_EQ(owner_->calls, closedWith("user"));
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
