#include "live/LiveViewControllerCore.h"

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

// Stands for the main screen towards the live view's controller: the
// hand-over goes through, each ending is reported by the core, and the main
// screen's appearing again follows the screen's closing.
class LiveViewControllerCore::Relay final : public LiveScreenOwner {
 public:
  explicit Relay(std::weak_ptr<LiveViewControllerCore> core) : core_(std::move(core)) {}
  void prepareLiveView(LiveViewChannelTarget& view) override {
    if (auto main = mainScreen()) main->prepareLiveView(view);
  }
  void liveViewRestart() override { end(Ending::restart); }
  void liveViewConnectionLost() override { end(Ending::connectionLost); }
  void liveViewUserClose(bool byUser) override {
    end(byUser ? Ending::userClose : Ending::peerClose);
  }
  void viewWillAppear() override {
    if (auto main = mainScreen()) main->viewWillAppear();
  }
  void viewDidAppear() override {
    if (auto main = mainScreen()) main->viewDidAppear();
  }

 private:
  std::shared_ptr<LiveScreenOwner> mainScreen() const {
    auto core = core_.lock();
    return core ? core->mainScreen_.lock() : nullptr;
  }
  void end(Ending ending) {
    if (auto core = core_.lock()) core->liveViewDidEnd(ending);
  }
  std::weak_ptr<LiveViewControllerCore> core_;
};

std::shared_ptr<LiveViewControllerCore> LiveViewControllerCore::create(
    double width, double height, std::shared_ptr<LiveScreenOwner> mainScreen, Services services) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto core = std::shared_ptr<LiveViewControllerCore>(
      new LiveViewControllerCore(mainScreen, std::move(services)));
  core->relay_ = std::make_shared<Relay>(core);
  core->liveView_ = OXLiveView::create(width, height, core->services_.view);
  // The hand-over (Relay passes it to the main screen when there is one).
  if (mainScreen) core->liveView_->controller()->open(core->relay_);

  std::weak_ptr<LiveViewControllerCore> weak = core;
  if (core->services_.idleTimer) {
    core->idleSubscription_ = core->services_.idleTimer->addListener([weak] {
      if (auto self = weak.lock()) self->onIdleTimeout();
    });
  }
  auto battery =
      core->services_.view.battery ? core->services_.view.battery : BatteryMonitor::shared();
  core->batterySubscription_ = battery->addListener([weak](BatteryEvent) {
    if (auto self = weak.lock()) self->liveView_->on_battery_level_changed();
  });
  return core;
}

LiveViewControllerCore::LiveViewControllerCore(std::shared_ptr<LiveScreenOwner> mainScreen,
                                               Services services)
    : services_(std::move(services)), mainScreen_(mainScreen) {
  if (!services_.displayAwake) services_.displayAwake = std::make_shared<DisplayAwake>();
  if (!services_.lifecycle) services_.lifecycle = AppLifecycle::shared();
}

LiveViewControllerCore::~LiveViewControllerCore() { coverTimer_.cancel(); }

void LiveViewControllerCore::screenWillAppear() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (appeared_ || closed_) return;
  appeared_ = true;
  liveView_->setDelegate(weak_from_this());
  liveView_->startLive();
  liveStartTime_ = mediaTime();
  services_.displayAwake->setKeepAwake(true);
}

void LiveViewControllerCore::screenWillDisappear() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (shutDown_) return;
  shutDown_ = true;
  liveView_->setDelegate({});
  liveView_->shut_down();
  services_.displayAwake->setKeepAwake(false);
}

void LiveViewControllerCore::volumeKeyPressed() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!appeared_ || closed_) return;
  if (mediaTime() - liveStartTime_ > kVolumeGrace) liveView_->on_volume_button_tapped();
}

void LiveViewControllerCore::onIdleTimeout() {
  if (closed_ || services_.lifecycle->applicationState() != ApplicationState::active) return;
  liveView_->hideVideo();
}

void LiveViewControllerCore::showFullImage(const std::string& image,
                                           std::function<void()> completion) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (image.empty()) {
    removeCover();
    return;
  }
  cover_.set({.shown = true, .image = image});
  coverCompletion_ = std::move(completion);
  coverTimer_.cancel();
  coverTimer_ = postAfterWeak(*MainQueue::get(), kCoverImageTime, weak_from_this(),
                              [](LiveViewControllerCore& self) {
                                if (self.cover_.get().shown)
                                  self.cover_.set({.shown = true, .image = {}});
                              });
}

void LiveViewControllerCore::coverTapped() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!cover_.get().shown) return;
  removeCover();
}

void LiveViewControllerCore::removeCover() {
  coverTimer_.cancel();
  cover_.set({});
  if (auto completion = std::exchange(coverCompletion_, nullptr)) completion();
}

void LiveViewControllerCore::liveViewDidEnd(Ending ending) {
  OX_ASSERT_ON_MAIN_QUEUE();
  static constexpr const char* kNames[] = {"restart", "connection lost", "closed by the host",
                                           "closed by the user"};
  oxlog("Live - screen closes: {}", kNames[static_cast<int>(ending)]);
  if (auto main = mainScreen_.lock()) {
    switch (ending) {
      case Ending::restart:
        main->liveViewRestart();
        break;
      case Ending::connectionLost:
        main->liveViewConnectionLost();
        break;
      case Ending::peerClose:
        main->liveViewUserClose(false);
        break;
      case Ending::userClose:
        main->liveViewUserClose(true);
        break;
    }
  }
  closeScreen();
}

void LiveViewControllerCore::closeScreen() {
  if (closed_) return;
  closed_ = true;
  screenWillDisappear();
  if (services_.onClosed) services_.onClosed();
}

}  // namespace oxelo
