#include "shell/HeadlessLiveScreen.h"

#include "media/ConfigurationFromSettings.h"
#include "discovery/MainViewController.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {
// The headless screen has no status bar; it stands as landscape right does.
constexpr int64_t kHeadlessOrientation = 3;
}  // namespace

HeadlessLiveScreen::~HeadlessLiveScreen() {
  if (feeder_) feeder_->stop();
}

void HeadlessLiveScreen::open(std::shared_ptr<MainViewController> mainVC) {
  mainVC_ = mainVC;
  mainVC->prepareLiveView(*this);
  if (!hasChannel()) oxlog("Live - opened with no host and no channel");
  // The screen appears once the step that presented it is over.
  MainQueue::post([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->startLive();
  });
}

void HeadlessLiveScreen::setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) {
  socket_ = std::move(socket);
  oxlog("Live - TCP channel to {}:{} taken over", hostIP_, hostPort_);
}

void HeadlessLiveScreen::setUsbChannel(std::shared_ptr<PTChannel> channel) {
  channel_ = std::move(channel);
  oxlog("Live - USB channel taken over");
}

void HeadlessLiveScreen::startLive() {
  if (closed_ || session_) return;
  auto configuration = configurationFromSettings(kHeadlessOrientation);
  // No camera capture stands behind this screen yet: pictures are pushed in
  // (bit 3), sound comes from the microphone capture (bit 0).
  int64_t captureType = configuration.captureType & kCaptureMaskAudio;
  if (sources_.picture == LivePictureSource::virtualCamera) captureType |= kInputMaskVideo;
  LiveSessionEnvironment environment;
  environment.encoders = sources_.encoders;
  environment.socket.hevcDecodeSupported = sources_.hevcDecodeSupported;
  session_ =
      OXLiveSession::create(configuration.audio, configuration.video, captureType, environment);
  session_->setDelegate(weak_from_this());
  session_->setShowDebugInfo(true);

  auto info = std::make_shared<LFLiveStreamInfo>();
  if (!hostIP_.empty() && hostPort_ != 0) {
    info->host = hostIP_;
    info->port = hostPort_;
  }
  session_->initStreamInfo(info);
  if (socket_) {
    session_->streamSocket()->setAsyncSocket(std::move(socket_));
  } else if (channel_) {
    session_->streamSocket()->setUsbChannel(std::move(channel_));
  }
  socket_.reset();
  channel_.reset();
  session_->setRunning(true);
  session_->startLive();

  auto size = configuration.video->videoSize();
  oxlog("Live - streaming {}x{} at {} fps, {} b/s{}", size.width, size.height,
        configuration.video->videoFrameRate(), configuration.video->videoBitRate(),
        captureTypeHasAudio(captureType) ? " with sound" : "");
  if (sources_.picture != LivePictureSource::virtualCamera) {
    oxlog("Live - no picture source: the stream carries no video");
    return;
  }
  std::weak_ptr<OXLiveSession> weakSession = session_;
  feeder_ = std::make_unique<MovingPictureFeeder>(
      static_cast<int>(size.width), static_cast<int>(size.height),
      static_cast<double>(configuration.video->videoFrameRate()),
      [weakSession](std::shared_ptr<PixelBuffer> picture) {
        if (auto session = weakSession.lock()) session->pushVideo(std::move(picture));
      });
  feeder_->start();
}

void HeadlessLiveScreen::stopStreaming() {
  if (feeder_) {
    feeder_->stop();
    oxlog("Live - {} pictures pushed, {} skipped", feeder_->delivered(), feeder_->skipped());
    feeder_.reset();
  }
  if (!session_) return;
  session_->setRunning(false);
  session_->stopLive();
}

void HeadlessLiveScreen::shutdown() {
  closed_ = true;
  std::shared_ptr<OXStreamSocket> socket = session_ ? session_->streamSocket() : nullptr;
  stopStreaming();
  if (socket) socket->sendQueue()->runSync([] {});
}

void HeadlessLiveScreen::close(const std::function<void(MainViewController&)>& reaction) {
  if (closed_) return;
  closed_ = true;
  auto keep = shared_from_this();  // the main screen lets go of us below
  stopStreaming();
  auto mainVC = mainVC_.lock();
  if (!mainVC) return;
  reaction(*mainVC);
  mainVC->viewWillAppear();
  mainVC->viewDidAppear();
}

void HeadlessLiveScreen::liveSessionLiveStateDidChange(OXLiveSession*, LiveStreamState state) {
  oxlog("Live - state {}", liveStreamStateText(state));
}

void HeadlessLiveScreen::liveSessionDebugInfo(OXLiveSession*, const LFLiveDebug& info) {
  oxlog("Live - {:.0f} kB/s, {} video and {} audio frames a second, {} waiting, {} dropped",
        info.currentBandwidth / 1024.0, info.currentCapturedVideoCount,
        info.currentCapturedAudioCount, info.unSendCount, info.dropFrame);
}

void HeadlessLiveScreen::liveSessionErrorCode(OXLiveSession*, LiveStreamError errorCode) {
  oxlog("Live - error {}", static_cast<int64_t>(errorCode));
  switch (errorCode) {
    case LiveStreamError::ConnectionLost:
      close([](MainViewController& main) { main.liveViewConnectionLost(); });
      return;
    case LiveStreamError::PeerClosed:
      close([](MainViewController& main) { main.liveViewUserClose(false); });
      return;
    case LiveStreamError::PeerRestart: {
      if (session_) session_->stopLive();
      MainQueue::postAfter(kRestartDelay, [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self) return;
        oxlog("Live - restart asked by the host");
        self->close([](MainViewController& main) { main.liveViewRestart(); });
      });
      return;
    }
    case LiveStreamError::ConnectFailed:
      return;
  }
}

std::shared_ptr<LiveViewController> HeadlessLivePresenter::presentLiveScreen(
    std::shared_ptr<MainViewController> mainVC) {
  auto screen = std::make_shared<HeadlessLiveScreen>(sources_);
  current_ = screen;
  screen->open(std::move(mainVC));
  return screen;
}

}  // namespace oxelo
