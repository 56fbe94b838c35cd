#pragma once

#include <functional>
#include <memory>
#include <string>

#include "discovery/LiveScreen.h"
#include "media/ConfigurationFromSettings.h"
#include "transport/OXLiveSession.h"

namespace oxelo {

class Carrier;

// The drawing half of a live screen as the controller drives it: the
// headless screen, later the Qt one. Main queue; every operation optional.
class LiveScreenView {
 public:
  virtual ~LiveScreenView() = default;
  // The session is built, has the connection and runs: the camera and the
  // microphone deliver from here on.
  virtual void liveScreenDidStart(OXLiveSession& /*session*/,
                                  const LiveSessionConfiguration& /*configuration*/) {}
  // The session is about to stop.
  virtual void liveScreenWillStop(OXLiveSession& /*session*/) {}
  virtual void liveScreenStateDidChange(LiveStreamState /*state*/) {}
  virtual void liveScreenDebugInfo(const LFLiveDebug& /*info*/) {}
  // The host's focus point, both coordinates 0.0 to 1.0.
  virtual void liveScreenClientSetFocusPoint(double /*x*/, double /*y*/) {}
  // The host switched a panel item (0 exposure, 3 white balance, 4 focus)
  // back to automatic.
  virtual void liveScreenClientSetAutoStatusForItem(int64_t /*item*/) {}
};

// The live screen's behaviour, whatever draws it. It takes the greeted
// connection over from the main screen, builds the live session from the
// settings (the camera always, the microphone as `audioFormat` says), applies
// the camera state the last session left, sets it running, hands it the host's address and
// the carrier and starts it; then
// it answers the session's errors: 205 tells the main screen that the
// connection was lost, 206 (the session has stopped itself) that the host
// closed, 207 stops the session and 250 ms later asks for a restart. Each
// time the screen then closes, once, and the main screen appears again. Whenever the session
// stops, its camera state is kept for the next one.
//
// Main queue, all of it (the session's delegate calls arrive there). Held
// by shared pointer (create()); the main screen and the view are held
// weakly: the view owns this object, and the main screen owns the view
// while the live screen exists.
class LiveScreenController final : public LiveViewChannelTarget,
                                   public OXLiveSessionDelegate,
                                   public std::enable_shared_from_this<LiveScreenController> {
 public:
  static constexpr double kRestartDelay = 0.25;  // seconds after error 207

  struct Sources {
    // Encoders, the socket's environment, status values, microphone.
    LiveSessionEnvironment environment;
    // The status bar orientation the configuration is built for.
    int64_t orientation = 3;
    // open() starts the session from a task of its own; otherwise the
    // screen calls startLive() when it first appears.
    bool startOnOpen = true;
    // startLive() sets the session running (the camera and the microphone);
    // otherwise the screen does, once the user has granted them.
    bool runOnStart = true;
  };

  static std::shared_ptr<LiveScreenController> create(Sources sources,
                                                      std::weak_ptr<LiveScreenView> view);

  // viewDidLoad: asks the main screen for the connection; with startOnOpen
  // the session starts from a task of its own, once the step that presented
  // the screen is over.
  void open(std::shared_ptr<LiveScreenOwner> owner);
  // The session, built on first use from the settings, with the camera
  // state the last session left applied and this object as its delegate.
  // Not running until startLive() (runOnStart) or the screen says so.
  std::shared_ptr<OXLiveSession> liveSession();
  // Starts the session with the host's address and the carrier; once, and
  // not after a close.
  void startLive();
  // The close button: the user ended the session.
  void userClose();
  // The program is ending: stops the stream (the USB stop notice included)
  // and waits until the socket has let its carrier go. No report to the
  // main screen.
  void shutdown();

  // LiveViewChannelTarget.
  void setHostIP(const std::string& ip) override { hostIP_ = ip; }
  void setHostPort(long long port) override { hostPort_ = port; }
  void setCarrier(std::shared_ptr<Carrier> carrier) override;

  const std::string& hostIP() const { return hostIP_; }
  long long hostPort() const { return hostPort_; }
  bool hasCarrier() const { return carrier_ != nullptr; }
  bool isClosed() const { return closed_; }
  bool isStarted() const { return started_; }
  // The session if it was built; null otherwise.
  const std::shared_ptr<OXLiveSession>& session() const { return session_; }

  // OXLiveSessionDelegate.
  void liveSessionLiveStateDidChange(OXLiveSession* session, LiveStreamState state) override;
  void liveSessionErrorCode(OXLiveSession* session, LiveStreamError errorCode) override;
  void liveSessionDebugInfo(OXLiveSession* session, const LFLiveDebug& info) override;
  void liveSessionClientSetFocusPoint(OXLiveSession* session, double x, double y) override;
  void liveSessionClientSetAutoStatusForItem(OXLiveSession* session, int64_t item) override;

 private:
  LiveScreenController(Sources sources, std::weak_ptr<LiveScreenView> view)
      : sources_(std::move(sources)), view_(std::move(view)) {}
  // The camera state the user left (torch, beauty, mirror, zoom, focus,
  // exposure, white balance) applied as a preset, with its delays; the
  // microphone follows the camera. Before any delegate is attached.
  void loadCameraState();
  // Keeps the session's camera state in the settings for the next session,
  // durably. Before the session stops.
  void saveCameraState();
  void stopStreaming();
  // Stops the session, tells the main screen how it ended, and lets the
  // main screen appear again. Once.
  void close(const std::function<void(LiveScreenOwner&)>& reaction);

  Sources sources_;
  std::weak_ptr<LiveScreenView> view_;
  std::weak_ptr<LiveScreenOwner> owner_;
  std::string hostIP_;
  long long hostPort_ = 0;
  std::shared_ptr<Carrier> carrier_;
  std::shared_ptr<OXLiveSession> session_;
  LiveSessionConfiguration configuration_;  // what session_ was built with
  bool started_ = false;
  bool stopped_ = false;  // the session's view has been told to stop
  bool closed_ = false;
};

}  // namespace oxelo
