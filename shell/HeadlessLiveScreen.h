#pragma once

#include <functional>
#include <memory>

#include "capture/MovingPicture.h"
#include "discovery/LiveScreen.h"
#include "live/LiveScreenController.h"

namespace oxelo {

// Where the headless live screen takes its pictures from.
enum class LivePictureSource {
  virtualCamera,  // the virtual camera's moving picture, pushed at the configured rate
  none,           // no video: the stream carries sound only
};

// The live screen with no display: a thin user of LiveScreenController,
// which holds the behaviour. What is its own is the picture feeder, started
// when the session runs and stopped before it stops, and the log lines of
// the session's state and statistics.
//
// Main queue, all of it; the picture feeder runs on a thread of its own and
// only pushes into the session. Held by shared pointer (create()).
class HeadlessLiveScreen final : public LiveViewController,
                                 public LiveScreenView,
                                 public std::enable_shared_from_this<HeadlessLiveScreen> {
 public:
  struct Sources {
    LivePictureSource picture = LivePictureSource::virtualCamera;
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

 private:
  explicit HeadlessLiveScreen(Sources sources) : sources_(std::move(sources)) {}
  void stopFeeder();

  Sources sources_;
  // Between the controller and the main screen when hostEnded is set.
  std::shared_ptr<LiveScreenOwner> endWatch_;
  std::shared_ptr<LiveScreenController> controller_;
  std::unique_ptr<MovingPictureFeeder> feeder_;
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
