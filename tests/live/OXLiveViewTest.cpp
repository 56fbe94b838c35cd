// The live view without a display: permission, restored state, cover, buttons.
#include "tests/live/LiveViewFixture.h"

namespace oxelo {
namespace {

using test::FakeAccess;
using test::LiveViewFixture;

struct PermissionCase {
  const char* name;
  int status;
  bool runningAtOnce;
  size_t alerts;
};
class PermissionTest : public test::LiveViewFixture,
                       public testing::WithParamInterface<PermissionCase> {};

TEST_P(PermissionTest, TheCameraRunsOnlyOnceGranted) {
  const auto& c = GetParam();
  access_->status[0] = c.status;
  auto view = makeView();
  view->startLive();
  env_.drain();
  EXPECT_EQ(view->session()->running(), c.runningAtOnce);
  ASSERT_EQ(recorder_->alerts.size(), c.alerts);
  if (c.alerts) {
    const LiveAlert& alert = recorder_->alerts[0];
    EXPECT_EQ(alert.title, "Oxelo");
    EXPECT_EQ(alert.message,
              "Oxelo needs to use your camera to record video, enable it now?\n\n"
              "/dev/video0: Permission denied");
    EXPECT_EQ(alert.buttons.size(), 2u);
  }
  if (c.status != FakeAccess::notDetermined) return;
  access_->pending[0](true);  // the grant may come on any thread: it hops
  EXPECT_FALSE(view->session()->running());
  env_.drain();
  EXPECT_TRUE(view->session()->running());
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, PermissionTest,
    testing::Values(PermissionCase{"NotDetermined", FakeAccess::notDetermined, false, 0},
                    PermissionCase{"Denied", FakeAccess::denied, false, 1},
                    PermissionCase{"Authorized", FakeAccess::authorized, true, 0},
                    PermissionCase{"NoCamera", -1, false, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LiveViewFixture, StoredTorchComesHalfASecondAfterTheSessionAndZeroLeavesItAlone) {
  for (int64_t level : {0, 3}) {
    cameras_.defaults().setInteger(keys::torchLevel, level);
    auto view = makeView();
    auto session = view->session();
    session->setTorch(1);
    env_.advance(0.45);
    EXPECT_EQ(session->torch(), 1) << level;
    env_.advance(0.1);
    EXPECT_EQ(session->torch(), level == 0 ? 1 : level) << level;
    if (level == 3) {
      EXPECT_TRUE(view->button(LiveButton::torch).get().selected);
      EXPECT_DOUBLE_EQ(view->button(LiveButton::torch).get().alpha, 0.6);
    }
    shutDown(*view);
  }
}

TEST_F(LiveViewFixture, AStoredZoomEqualToTheCapturesSchedulesNothingAndShutDownKeepsTheZoom) {
  cameras_.defaults().setFloat(keys::zoomScale, 1.0f);
  auto view = makeView();
  view->session()->setZoomScale(2.0);
  env_.advance(1.5);
  EXPECT_DOUBLE_EQ(view->session()->zoomScale(), 2.0);
  shutDown(*view);
  EXPECT_FALSE(view->session()->running());

  auto next = makeView();  // the saved 2.0 comes back 1.0 s later
  EXPECT_DOUBLE_EQ(next->currentZoom(), 2.0);
  env_.advance(1.05);
  EXPECT_DOUBLE_EQ(next->session()->zoomScale(), 2.0);
}

TEST_F(LiveViewFixture, TheCoverComesOnceUntilTheHostOrAnUpperLeftLongPressResetsIt) {
  auto view = makeView();
  auto session = view->session();
  view->hideVideo();
  EXPECT_EQ(cover_->images, std::vector<std::string>{"watermark"});
  EXPECT_EQ(session->preView(), nullptr);
  EXPECT_TRUE(session->dim());
  cover_->completion();  // a tap on the cover
  env_.drain();
  EXPECT_EQ(session->preView(), preview_);
  EXPECT_FALSE(session->dim());

  view->hideVideo();
  EXPECT_EQ(cover_->images.size(), 1u);
  view->handleLongPress(1, 600, 10);  // not the upper left quarter
  view->hideVideo();
  EXPECT_EQ(cover_->images.size(), 1u);
  view->handleLongPress(1, 10, 10);
  view->hideVideo();
  EXPECT_EQ(cover_->images.size(), 2u);
  cover_->completion();
  env_.drain();

  session->setDim(true);  // the host dims: counter reset, covered again
  env_.drain();
  EXPECT_EQ(cover_->images.size(), 3u);
  EXPECT_EQ(session->preView(), nullptr);
  session->setDim(false);  // and takes the cover away
  env_.drain();
  EXPECT_EQ(cover_->images.back(), "");
}

TEST_F(LiveViewFixture, ButtonsFollowTheSessionWhoeverChangesIt) {
  auto view = makeView();
  EXPECT_FALSE(view->hasInfoLabel());  // the signal icon changes without the statistics line
  EXPECT_EQ(view->button(LiveButton::wifi).get().image, "wifi_5");
  view->liveScreenDebugInfo({});  // nothing sent: level 0
  EXPECT_EQ(view->wifiStrength(), 0);
  EXPECT_EQ(view->button(LiveButton::wifi).get().image, "wifi_0");
  EXPECT_EQ(view->infoText().get(), "");
  auto session = view->session();
  auto torch = [&] { return view->button(LiveButton::torch).get(); };
  session->setTorch(5);
  view->pressButton(LiveButton::torch);
  env_.drain();
  EXPECT_EQ(session->torch(), 0);
  EXPECT_FALSE(torch().selected);
  EXPECT_EQ(torch().alpha, 1.0);
  view->pressButton(LiveButton::torch);
  env_.drain();
  EXPECT_TRUE(torch().selected);
  EXPECT_DOUBLE_EQ(torch().alpha, 0.2);

  session->setMirror(true);  // as a host command would
  session->setAeafLock(2);
  session->setRecording(true);
  env_.drain();
  EXPECT_TRUE(view->button(LiveButton::mirror).get().selected);
  EXPECT_EQ(view->lockLabel().get(), (LockLabelState{.hidden = false, .level = 2}));
  EXPECT_TRUE(view->button(LiveButton::record).get().selected);
  session->setRecording(false);
  session->setAeafLock(0);
  env_.drain();
  EXPECT_TRUE(view->lockLabel().get().hidden);
  EXPECT_EQ(recorder_->count("sound 1117"), 1);
  EXPECT_EQ(recorder_->count("sound 1118"), 1);

  // Beauty steps off, on with method 0, on with method 1, off.
  for (auto [face, method] : {std::pair{true, 0}, {true, 1}, {false, 0}}) {
    view->pressButton(LiveButton::beauty);
    EXPECT_EQ(session->beautyFace(), face);
    EXPECT_EQ(session->beautyMethod(), method);
  }
}

TEST_F(LiveViewFixture, TheFrontCameraTurnsTheTorchOffAndDisablesItsButton) {
  auto view = makeView();
  auto session = view->session();
  ASSERT_EQ(session->captureDevicePosition(), 1);
  session->setTorch(3);
  // The back cameras come first (wide, then the others), then the front one.
  auto pressUntil = [&](int64_t position) {
    for (int i = 0; i < 4 && session->captureDevicePosition() != position; ++i)
      view->pressButton(LiveButton::camera);
    return session->captureDevicePosition();
  };
  ASSERT_EQ(pressUntil(2), 2);
  EXPECT_EQ(session->torch(), 0);
  EXPECT_FALSE(view->button(LiveButton::torch).get().enabled);
  ASSERT_EQ(pressUntil(1), 1);
  EXPECT_TRUE(view->button(LiveButton::torch).get().enabled);
  EXPECT_EQ(session->torch(), 0);
  EXPECT_EQ(view->currentZoom(), 1.0);
}

TEST_F(LiveViewFixture, TapsAndTheHostsPointFollowTheLocksAndAPinchStartsFromItsZoom) {
  auto view = makeView();
  auto session = view->session();
  auto capture = session->videoCapture();
  ASSERT_TRUE(capture && capture->customFocusSupported());
  session->setAeafLock(2);
  view->handleTap(100, 100);
  view->liveScreenClientSetFocusPoint(0.5, 0.5);
  EXPECT_EQ(view->focusSquare(), nullptr);  // not even the square

  session->setAeafLock(0);
  view->handleTap(100, 100);
  ASSERT_NE(view->focusSquare(), nullptr);
  EXPECT_EQ(view->focusSquare()->state().phase, CameraFocusSquare::Phase::shrinking);
  // Drawn under the finger, in the view's coordinates.
  EXPECT_NEAR(view->focusSquare()->state().centerX, 100 + view->layout().video.x, 1e-9);

  capture->setAfLock(true);
  view->liveScreenClientSetFocusPoint(0.25, 0.25);
  EXPECT_EQ(view->focusSquare()->state().phase, CameraFocusSquare::Phase::fading);

  view->handlePinch(1, 1.0);
  view->handlePinch(2, 2.0);
  EXPECT_DOUBLE_EQ(session->zoomScale(), 2.0);
  view->handlePinch(3, 3.0);  // still from 1.0, not from 2.0
  EXPECT_DOUBLE_EQ(session->zoomScale(), 3.0);
}

}  // namespace
}  // namespace oxelo
