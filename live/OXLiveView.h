#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live/CameraAccess.h"
#include "live/CameraFocusSquare.h"
#include "live/LiveLayout.h"
#include "live/LiveScreenController.h"
#include "live/LiveServices.h"
#include "platform/device/Battery.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

class GPUImageView;

// The camera settings panel as the live view uses it: opened and closed by
// the view, told of camera changes and of the host's items. Main queue.
class LiveSettingsPanel {
 public:
  virtual ~LiveSettingsPanel() = default;
  virtual bool visible() const = 0;
  // The panel's top edge in containerView coordinates while it is visible.
  virtual double top() const = 0;
  virtual void slideUp() {}
  // Ignored on a hidden panel; `completion(finished)` after the slide.
  virtual void slideDown(std::function<void(bool)> completion) {
    if (completion) completion(false);
  }
  virtual void autoStatusChanged(int64_t /*item*/) {}
  virtual void videoDeviceWillChange() {}
  virtual void videoDeviceDidChange() {}
  virtual void shutDown() {}
};

// What the live view asks of the live screen controller. Main queue.
class OXLiveViewDelegate {
 public:
  virtual ~OXLiveViewDelegate() = default;
  // Covers the screen with the image named `image`, or removes the cover when
  // `image` is empty; `completion` runs when the cover goes away. Required.
  virtual void showFullImage(const std::string& image, std::function<void()> completion) = 0;
};

// One button as the screen draws it: the image names are the icon font's
// (or an asset's, "wifi_N"), the Qt layer picks the glyphs.
struct LiveButtonState {
  bool hidden = false;
  bool enabled = true;
  bool selected = false;
  double alpha = 1.0;
  std::string image;  // normal state
  bool operator==(const LiveButtonState&) const = default;
};

// The lock label: hidden, or "V_AEAF_LOCK" on yellow (level 1) or orange (2).
// `fadeIn` asks for the spring fade from alpha 0.0 to 1.0 over 0.5 s.
struct LockLabelState {
  bool hidden = true;
  int64_t level = 1;
  bool fadeIn = false;
  bool operator==(const LockLabelState&) const = default;
};

// The bottom row: hidden while the panel is open; `fadeIn` as above.
struct BottomRowState {
  bool hidden = false;
  bool fadeIn = false;
  bool operator==(const BottomRowState&) const = default;
};

// The battery icon: hidden, or class 0 charging (white), 1 empty (red), 2
// low (white).
struct BatteryIconState {
  bool hidden = false;
  int iconClass = -1;  // the class last drawn; -1 before the first
  bool operator==(const BatteryIconState&) const = default;
};

// The root of the live screen as a controller: it owns the live screen
// controller (which builds the session, takes the connection over, keeps the
// camera state and answers the session's errors) and adds what the screen
// shows and what the user does on it: the camera and microphone permission,
// the statistics line and the signal icon, the buttons and labels following
// the session's properties, the idle cover with its counter, the gestures
// on the picture, the focus square, the battery icon, camera changes.
//
// Order of use: create() builds it (the permission requests first, so the
// session is normally created and running before the stream starts); the
// main screen hands the connection over through controller() (open());
// setDelegate() and startLive() at the first appearance; shut_down() when the
// screen goes away.
//
// Main queue, all of it; the session's observed changes hop to it. Held by
// shared pointer; the delegate is held weakly.
class OXLiveView final : public LiveScreenView,
                         public LFVideoCaptureViewDelegate,
                         public std::enable_shared_from_this<OXLiveView> {
 public:
  struct Services {
    LiveScreenController::Sources sources;       // how the session is built
    std::shared_ptr<CameraAccess> cameraAccess;  // default: LinuxMediaAccess
    std::shared_ptr<Haptics> haptics;            // default: none
    std::shared_ptr<SystemSounds> sounds;        // default: none
    std::shared_ptr<LiveMessages> messages;      // default: none
    std::shared_ptr<BatteryMonitor> battery;     // default: BatteryMonitor::shared()
    // Makes the settings panel at its first use; none: no panel.
    std::function<std::shared_ptr<LiveSettingsPanel>()> makeSettingsPanel;
    // The preview surface the screen presents; none headless.
    std::shared_ptr<GPUImageView> preview;
    bool tablet = false;
    // Whether the back wide-angle camera has a torch; unset: asked of the
    // current camera system.
    std::optional<bool> backCameraHasTorch;
    // Title of the permission alert in English ("CFBundleDisplayName").
    std::string displayName = "Oxelo";
  };

  static constexpr const char* kCoverImage = "watermark";

  // initWithFrame: with the view's size in points.
  static std::shared_ptr<OXLiveView> create(double width, double height, Services services);
  ~OXLiveView() override;

  // The hand-over target and the session's builder.
  const std::shared_ptr<LiveScreenController>& controller() const { return controller_; }
  // The session, created on first use.
  std::shared_ptr<OXLiveSession> session();

  void setDelegate(std::weak_ptr<OXLiveViewDelegate> delegate) { delegate_ = std::move(delegate); }
  bool hasDelegate() const { return !delegate_.expired(); }
  // Refreshes the battery icon, sets the signal to 5, starts the stream.
  void startLive();
  // Covers the preview once until the counter is reset (the host's dim, a
  // long press in the upper left quarter).
  void hideVideo();
  void on_battery_level_changed();
  // The snapshot button's action, as if pressed.
  void on_volume_button_tapped();
  // Saves the camera state and stops the session; the panel is shut down.
  void shut_down();

  // ---- What the screen shows ----
  const LiveLayout& layout() const { return layout_; }
  Observable<LiveButtonState>& button(LiveButton which) { return buttons_[index(which)]; }
  Observable<LockLabelState>& lockLabel() { return lockLabel_; }
  Observable<BottomRowState>& bottomRow() { return bottomRow_; }
  Observable<BatteryIconState>& batteryIcon() { return batteryIcon_; }
  // The statistics line; only when the setting showDebugInfo was on at creation.
  bool hasInfoLabel() const { return hasInfoLabel_; }
  Observable<std::string>& infoText() { return infoText_; }
  bool showsGrid() const { return showGrid_; }
  int64_t wifiStrength() const { return wifiStrength_; }
  int64_t videoHideTimes() const { return videoHideTimes_; }
  double currentZoom() const { return currentZoom_; }
  // The focus square, once the first focus event made it; told when made.
  std::shared_ptr<CameraFocusSquare> focusSquare() const { return focusSquare_; }
  [[nodiscard]] Subscription onFocusSquareCreated(std::function<void()> listener) {
    return focusSquareCreated_.add([listener = std::move(listener)] { listener(); });
  }

  // ---- What the user does (containerView coordinates) ----
  void pressButton(LiveButton which);
  void handleTap(double x, double y);
  // state 1 began, 2 changed, 3 ended, 4 cancelled.
  void handleLongPress(int state, double x, double y);
  void handlePinch(int state, double scale);
  // The drag on the panel, its translation in the panel.
  void handleSwipe(int state, double dx, double dy);
  // The focus point with its animation (tap, host).
  void setFocusPoint(double x, double y, bool animated);

  // LiveScreenView.
  void liveScreenStateDidChange(LiveStreamState state) override;
  void liveScreenDebugInfo(const LFLiveDebug& info) override;
  void liveScreenClientSetFocusPoint(double x, double y) override;
  void liveScreenClientSetAutoStatusForItem(int64_t item) override;

  // LFVideoCaptureViewDelegate.
  void videoDeviceWillChange() override;
  void videoDeviceDidChange() override;
  void subjectAreaDidChange() override;

 private:
  OXLiveView(double width, double height, Services services);
  void build();
  static size_t index(LiveButton which) { return static_cast<size_t>(which); }
  void requestAccess(CameraAccess::Media media);
  void showPermissionAlert(CameraAccess::Media media);
  void observeSession();
  void observeDevice();
  void onAeafLock(int64_t value);
  void onTorch(int64_t value);
  void onDim(bool dim);
  void onRecording(bool recording);
  void editButton(LiveButton which, const std::function<void(LiveButtonState&)>& edit);
  std::shared_ptr<LiveSettingsPanel> settingsView();
  bool panelVisible() const { return settingsView_ && settingsView_->visible(); }
  void cameraPressed();
  void beautyPressed();
  void settingsPressed();
  void wifiPressed();

  const double width_, height_;
  Services services_;
  std::shared_ptr<LiveScreenController> controller_;
  std::weak_ptr<OXLiveViewDelegate> delegate_;
  LiveLayout layout_;

  int64_t wifiStrength_ = 5;
  int64_t videoHideTimes_ = 0;
  double currentZoom_ = 1.0;
  bool hasInfoLabel_ = false;
  bool showGrid_ = false;
  bool shutDown_ = false;

  std::array<Observable<LiveButtonState>, kLiveButtonCount> buttons_;
  Observable<LockLabelState> lockLabel_;
  Observable<BottomRowState> bottomRow_;
  Observable<BatteryIconState> batteryIcon_;
  Observable<std::string> infoText_;
  std::shared_ptr<CameraFocusSquare> focusSquare_;
  Observers<> focusSquareCreated_;
  std::shared_ptr<LiveSettingsPanel> settingsView_;

  std::vector<Subscription>
      sessionObservers_;         // aeafLock, torch, beautyFace, mirror, dim, recording
  Subscription deviceObserver_;  // subjectAreaChangeMonitoringEnabled
};

}  // namespace oxelo
