// The live screen controller: appearing, the volume keys, the idle cover, the endings.
#include "live/LiveViewControllerCore.h"
#include "tests/live/LiveViewFixture.h"

namespace oxelo {
namespace {

class Awake final : public DisplayAwake {
 public:
  void setKeepAwake(bool awake) override { states.push_back(awake); }
  std::vector<bool> states;
};

class CoreTest : public test::LiveViewFixture {
 protected:
  std::shared_ptr<LiveViewControllerCore> makeCore() {
    LiveViewControllerCore::Services s;
    s.view = services();
    s.displayAwake = awake_;
    s.lifecycle = lifecycle_;
    s.idleTimer = idle_;
    s.onClosed = [this] { ++closed_; };
    auto core = LiveViewControllerCore::create(844, 390, main_, s);
    core->screenWillAppear();
    return core;
  }
  int snapshots() const { return recorder_->count("sound 1108"); }

  std::shared_ptr<test::RecordingOwner> main_ = std::make_shared<test::RecordingOwner>();
  std::shared_ptr<Awake> awake_ = std::make_shared<Awake>();
  std::shared_ptr<IdleTimer> idle_ = IdleTimer::create();
  int closed_ = 0;
};

TEST_F(CoreTest, AppearingStartsOnceAndVolumeKeysSnapOnlyAfterThreeSeconds) {
  auto core = makeCore();
  const auto socket = core->liveView()->session()->streamSocket();
  core->screenWillAppear();  // a sheet on top went away: no new start
  EXPECT_EQ(core->liveView()->session()->streamSocket(), socket);
  EXPECT_EQ(awake_->states, std::vector<bool>{true});
  env_.advance(3.0);
  core->volumeKeyPressed();
  EXPECT_EQ(snapshots(), 0);
  env_.advance(0.05);
  core->volumeKeyPressed();
  core->volumeKeyPressed();
  EXPECT_EQ(snapshots(), 2);
}

TEST_F(CoreTest, TheIdleCoverOnlyWhileActiveLosesItsImageAfter15SecondsAndATapRemovesIt) {
  auto core = makeCore();
  auto session = core->liveView()->session();
  lifecycle_->enterBackground();
  idle_->sendEvent(true);
  env_.advance(16.0);
  EXPECT_FALSE(core->cover().get().shown);  // in the background nothing is covered
  lifecycle_->enterForeground();
  idle_->sendEvent(true);
  env_.advance(15.0);
  EXPECT_EQ(core->cover().get(), (LiveCoverState{.shown = true, .image = "watermark"}));
  EXPECT_EQ(session->preView(), nullptr);
  env_.advance(15.0);
  EXPECT_EQ(core->cover().get(), (LiveCoverState{.shown = true, .image = ""}));
  core->coverTapped();
  EXPECT_FALSE(core->cover().get().shown);
  EXPECT_EQ(session->preView(), preview_);
  EXPECT_FALSE(session->dim());
  idle_->sendEvent(true);  // the counter was not reset: no second cover
  env_.advance(16.0);
  EXPECT_FALSE(core->cover().get().shown);
}

// Each ending reaches the main screen once: a loss or the host's close at
// once, a restart 250 ms later; a failed connect alone ends nothing.
TEST_F(CoreTest, EachEndingReachesTheMainScreenAndClosesTheScreenOnce) {
  const std::pair<LiveStreamError, const char*> endings[] = {
      {LiveStreamError::ConnectionLost, "lost"},
      {LiveStreamError::PeerClosed, "host"},
      {LiveStreamError::PeerRestart, "restart"},
      {LiveStreamError::ConnectFailed, "user"}};  // then the close button
  for (const auto& [error, reaction] : endings) {
    main_->calls.clear();
    awake_->states.clear();
    const int closedBefore = closed_;
    auto core = makeCore();
    auto view = core->liveView();
    auto report = [&] { view->controller()->liveSessionErrorCode(view->session().get(), error); };
    report();
    const bool atOnce =
        error == LiveStreamError::ConnectionLost || error == LiveStreamError::PeerClosed;
    EXPECT_EQ(main_->calls.size(), atOnce ? 4u : 1u) << reaction;
    env_.advance(0.5);
    if (error == LiveStreamError::ConnectFailed) {
      EXPECT_EQ(main_->calls.size(), 1u);
      view->pressButton(LiveButton::close);
      env_.advance(0.5);
    }
    report();  // a later report of the same kind changes nothing
    env_.advance(0.5);
    EXPECT_EQ(main_->calls, test::closedWith(reaction)) << reaction;
    EXPECT_EQ(closed_, closedBefore + 1) << reaction;
    EXPECT_FALSE(view->session()->running()) << reaction;
    EXPECT_EQ(awake_->states, (std::vector<bool>{true, false})) << reaction;
  }
}

}  // namespace
}  // namespace oxelo
