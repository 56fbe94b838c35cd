#pragma once

#include <functional>
#include <memory>

#include "discovery/LiveScreen.h"
#include "live/LiveScreenController.h"

namespace oxelo {

// The live screen with no display: a thin user of LiveScreenController,
// which holds the behaviour. What is its own are the log lines: what the
// session streams when it starts (the camera, the size and the rate, or that
// there is no picture), its state and statistics, and how many pictures
// went out when it stops.
//
// Main queue, all of it. Held by shared pointer (create()).
class HeadlessLiveScreen final : public LiveViewController,
                                 public LiveScreenView,
                                 public LFVideoCaptureViewDelegate,
                                 public std::enable_shared_from_this<HeadlessLiveScreen> {
 public:
  struct Sources {
    std::shared_ptr<EncoderFactory> encoders;  // required for anything to be coded
    bool hevcDecodeSupported = false;
    // Called once the host has ended the session: by its close command, or
    // by a connection that stayed lost through the socket's retries. A
    // restart the host asked for is no end.
    std::function<void()> hostEnded;
  };

  static std::shared_ptr<HeadlessLiveScreen> create(Sources sources);
  ~HeadlessLiveScreen() override;

  // viewDidLoad: the controller takes the connection over and starts.
  void open(std::shared_ptr<LiveScreenOwner> owner);
  // The program is ending.
  void shutdown();

  const std::shared_ptr<LiveScreenController>& controller() const { return controller_; }

  // LiveScreenView.
  void liveScreenDidStart(OXLiveSession& session,
                          const LiveSessionConfiguration& configuration) override;
  void liveScreenWillStop(OXLiveSession& session) override;
  void liveScreenStateDidChange(LiveStreamState state) override;
  void liveScreenDebugInfo(const LFLiveDebug& info) override;

  // LFVideoCaptureViewDelegate: a camera that stops streaming ends the
  // picture, not the stream.
  void videoDeviceDidFail(const CameraError& error) override;

 private:
  explicit HeadlessLiveScreen(Sources sources) : sources_(std::move(sources)) {}

  Sources sources_;
  // Between the controller and the main screen when hostEnded is set.
  std::shared_ptr<LiveScreenOwner> endWatch_;
  std::shared_ptr<LiveScreenController> controller_;
};

// Presents the headless live screen.
class HeadlessLivePresenter final : public LiveScreenPresenter {
 public:
  explicit HeadlessLivePresenter(HeadlessLiveScreen::Sources sources)
      : sources_(std::move(sources)) {}
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<LiveScreenOwner> owner) override;
  std::shared_ptr<HeadlessLiveScreen> current() const { return current_.lock(); }

 private:
  HeadlessLiveScreen::Sources sources_;
  std::weak_ptr<HeadlessLiveScreen> current_;
};

}  // namespace oxelo
