#pragma once

#include <functional>
#include <memory>
#include <string>

#include "discovery/LiveScreen.h"
#include "live/IdleTimer.h"
#include "live/LiveServices.h"
#include "live/OXLiveView.h"
#include "platform/device/AppLifecycle.h"
#include "platform/device/Battery.h"

namespace oxelo {

// The cover over the live screen, as the screen draws it: none, or black
// with the image named `image` centred (empty once the image has been
// removed); `fadeIn` asks for alpha 0.0 to 1.0 over 0.5 s.
struct LiveCoverState {
  bool shown = false;
  std::string image;
  bool operator==(const LiveCoverState&) const = default;
};

// The plain half of the live screen controller: it creates the live view,
// passes the main screen's hand-over to it, starts the stream at the first
// appearance, and stands between the live view and the main screen when the
// session ends (connection lost, closed by the host, restart wanted, the
// close button): it tells the main screen the cause, then closes itself
// (onClosed). It turns the volume keys into snapshots after the first 3.0
// seconds, covers the preview on the idle time-out while the application is
// active, shows the cover (its image removed after 15 seconds, a tap takes
// it away), keeps the display awake while it is up, and passes battery
// changes on. The Qt layer's LiveViewController owns one and forwards its
// window's events.
//
// Main queue, all of it. Held by shared pointer (create()); the main screen
// is held weakly.
class LiveViewControllerCore final : public LiveViewController,
                                     public OXLiveViewDelegate,
                                     public std::enable_shared_from_this<LiveViewControllerCore> {
 public:
  static constexpr double kVolumeGrace = 3.0;      // seconds after the first appearance
  static constexpr double kCoverImageTime = 15.0;  // the cover's image is removed after this

  struct Services {
    OXLiveView::Services view;
    std::shared_ptr<DisplayAwake> displayAwake;  // default: none
    std::shared_ptr<AppLifecycle> lifecycle;     // default: AppLifecycle::shared()
    std::shared_ptr<IdleTimer> idleTimer;        // "AppTimeOut"; none: no idle cover
    // The screen closes (unanimated); the Qt layer removes it.
    std::function<void()> onClosed;
  };

  // viewDidLoad: the live view at the screen's size, the hand-over from
  // `mainScreen` (may be null: the view then runs without a channel), the
  // notification observers.
  static std::shared_ptr<LiveViewControllerCore> create(double width, double height,
                                                        std::shared_ptr<LiveScreenOwner> mainScreen,
                                                        Services services);
  ~LiveViewControllerCore() override;

  const std::shared_ptr<OXLiveView>& liveView() const { return liveView_; }

  // viewWillAppear: at the first appearance only, the stream starts and the
  // display is kept awake; later appearances (a sheet closed) do nothing.
  void screenWillAppear();
  // viewWillDisappear when the screen is dismissed: the live view is shut
  // down and the display may sleep again. Also run by every way of closing.
  void screenWillDisappear();
  // One press of a volume key, up or down.
  void volumeKeyPressed();
  // A tap on the cover.
  void coverTapped();
  Observable<LiveCoverState>& cover() { return cover_; }
  bool isClosed() const { return closed_; }

  // OXLiveViewDelegate.
  void showFullImage(const std::string& image, std::function<void()> completion) override;

  // The four ways of ending, as the live view's controller reports them:
  // each is passed to the main screen, then the screen closes.
  enum class Ending { restart, connectionLost, peerClose, userClose };
  void liveViewDidEnd(Ending ending);

 private:
  class Relay;  // the main screen as the live view's controller sees it
  LiveViewControllerCore(std::shared_ptr<LiveScreenOwner> mainScreen, Services services);
  void closeScreen();
  void removeCover();
  void onIdleTimeout();

  Services services_;
  std::weak_ptr<LiveScreenOwner> mainScreen_;
  std::shared_ptr<Relay> relay_;
  std::shared_ptr<OXLiveView> liveView_;
  double liveStartTime_ = 0;  // media clock at the first appearance
  bool appeared_ = false;
  bool closed_ = false;
  bool shutDown_ = false;
  Observable<LiveCoverState> cover_;
  std::function<void()> coverCompletion_;
  TimerHandle coverTimer_;
  Subscription idleSubscription_;
  Subscription batterySubscription_;
};

}  // namespace oxelo
