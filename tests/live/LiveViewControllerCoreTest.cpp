// The live screen controller's own behaviour: the first appearance, the
// volume keys, the idle cover, and the four ways of ending reported to the
// main screen.
#include "live/LiveViewControllerCore.h"
#include "tests/live/LiveViewFixture.h"
#include "tests/support/FakeCarrier.h"

namespace oxelo {
namespace {

class MainScreen final : public LiveScreenOwner {
 public:
  void prepareLiveView(LiveViewChannelTarget& view) override {
    view.setHostIP("127.0.0.1");
    view.setHostPort(5895);
    view.setCarrier(std::make_shared<test::FakeCarrier>());
  }
  void liveViewRestart() override { calls.push_back("restart"); }
  void liveViewConnectionLost() override { calls.push_back("lost"); }
  void liveViewUserClose(bool byUser) override { calls.push_back(byUser ? "user" : "host"); }
  void viewWillAppear() override { calls.push_back("appear"); }
  void viewDidAppear() override {}
  std::vector<std::string> calls;
};

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

  std::shared_ptr<MainScreen> main_ = std::make_shared<MainScreen>();
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

TEST_F(CoreTest, EachEndingReachesTheMainScreenAndClosesTheScreenOnce) {
  // ConnectFailed stands for the close button.
  const std::pair<LiveStreamError, const char*> endings[] = {
      {LiveStreamError::ConnectionLost, "lost"},
      {LiveStreamError::PeerClosed, "host"},
      {LiveStreamError::PeerRestart, "restart"},
      {LiveStreamError::ConnectFailed, "user"}};
  for (const auto& [error, reaction] : endings) {
    main_->calls.clear();
    awake_->states.clear();
    const int closedBefore = closed_;
    auto core = makeCore();
    auto view = core->liveView();
    if (error == LiveStreamError::ConnectFailed)
      view->pressButton(LiveButton::close);
    else
      view->controller()->liveSessionErrorCode(view->session().get(), error);
    env_.advance(0.5);
    EXPECT_EQ(main_->calls, (std::vector<std::string>{reaction, "appear"})) << reaction;
    EXPECT_EQ(closed_, closedBefore + 1) << reaction;
    EXPECT_FALSE(view->session()->running()) << reaction;
    EXPECT_EQ(awake_->states, (std::vector<bool>{true, false})) << reaction;
  }
}

}  // namespace
}  // namespace oxelo
