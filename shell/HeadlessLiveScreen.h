#pragma once

#include <memory>
#include <string>

#include "capture/MovingPicture.h"
#include "discovery/LiveScreen.h"
#include "transport/OXLiveSession.h"

namespace oxelo {

// Where the headless live screen takes its pictures from.
enum class LivePictureSource {
  virtualCamera,  // the virtual camera's moving picture, pushed at the configured rate
  none,           // no video: the stream carries sound only
};

// The live screen with no display. It takes the greeted channel over from the
// main screen, builds the live session from the settings, hands it the
// channel and starts it; pictures and sound are then streamed until the host
// or the program ends it. Its answers to the session's errors are those of
// the live view and its screen controller: 205 tells the main screen that the
// connection was lost, 206 (the session has stopped itself) that the host
// closed, 207 stops the session and 250 ms later asks for a restart; then the
// screen closes and the main screen appears again.
//
// Main queue, all of it; the picture feeder runs on a thread of its own and
// only pushes into the session.
class HeadlessLiveScreen final : public LiveViewController,
                                 public LiveViewChannelTarget,
                                 public OXLiveSessionDelegate,
                                 public std::enable_shared_from_this<HeadlessLiveScreen> {
 public:
  static constexpr double kRestartDelay = 0.25;  // seconds after error 207

  struct Sources {
    LivePictureSource picture = LivePictureSource::virtualCamera;
    std::shared_ptr<EncoderFactory> encoders;  // required for anything to be coded
    bool hevcDecodeSupported = false;
  };

  explicit HeadlessLiveScreen(Sources sources) : sources_(std::move(sources)) {}
  ~HeadlessLiveScreen() override;

  // viewDidLoad: asks the main screen for the channel, then starts the
  // session from a task of its own.
  void open(std::shared_ptr<MainViewController> mainVC);
  // The program is ending: stops the stream (the USB stop notice included)
  // and waits until the socket has let its carrier go.
  void shutdown();

  void setHostIP(const std::string& ip) override { hostIP_ = ip; }
  void setHostPort(long long port) override { hostPort_ = port; }
  void setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) override;
  void setUsbChannel(std::shared_ptr<PTChannel> channel) override;

  const std::string& hostIP() const { return hostIP_; }
  long long hostPort() const { return hostPort_; }
  bool hasChannel() const { return socket_ || channel_; }
  const std::shared_ptr<OXLiveSession>& session() const { return session_; }

  // OXLiveSessionDelegate.
  void liveSessionLiveStateDidChange(OXLiveSession* session, LiveStreamState state) override;
  void liveSessionErrorCode(OXLiveSession* session, LiveStreamError errorCode) override;
  void liveSessionDebugInfo(OXLiveSession* session, const LFLiveDebug& info) override;

 private:
  void startLive();
  void stopStreaming();
  // Stops everything, tells the main screen how the session ended, and lets
  // the main screen appear again.
  void close(const std::function<void(MainViewController&)>& reaction);

  Sources sources_;
  std::weak_ptr<MainViewController> mainVC_;
  std::string hostIP_;
  long long hostPort_ = 0;
  std::shared_ptr<GCDAsyncSocket> socket_;
  std::shared_ptr<PTChannel> channel_;
  std::shared_ptr<OXLiveSession> session_;
  std::unique_ptr<MovingPictureFeeder> feeder_;
  bool closed_ = false;
};

// Presents the headless live screen.
class HeadlessLivePresenter final : public LiveScreenPresenter {
 public:
  explicit HeadlessLivePresenter(HeadlessLiveScreen::Sources sources)
      : sources_(std::move(sources)) {}
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<MainViewController> mainVC) override;
  std::shared_ptr<HeadlessLiveScreen> current() const { return current_.lock(); }

 private:
  HeadlessLiveScreen::Sources sources_;
  std::weak_ptr<HeadlessLiveScreen> current_;
};

}  // namespace oxelo
