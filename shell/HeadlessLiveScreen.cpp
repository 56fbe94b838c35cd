#include "shell/HeadlessLiveScreen.h"

#include "platform/log/Log.h"

namespace oxelo {

namespace {
// The headless screen has no status bar; it stands as landscape right does.
constexpr int64_t kHeadlessOrientation = 3;
}  // namespace

std::shared_ptr<HeadlessLiveScreen> HeadlessLiveScreen::create(Sources sources) {
  return std::shared_ptr<HeadlessLiveScreen>(new HeadlessLiveScreen(std::move(sources)));
}

HeadlessLiveScreen::~HeadlessLiveScreen() {
  if (feeder_) feeder_->stop();
}

void HeadlessLiveScreen::open(std::shared_ptr<LiveScreenOwner> owner) {
  LiveScreenController::Sources sources;
  sources.environment.encoders = sources_.encoders;
  sources.environment.socket.hevcDecodeSupported = sources_.hevcDecodeSupported;
  sources.picturesPushed = sources_.picture == LivePictureSource::virtualCamera;
  sources.orientation = kHeadlessOrientation;
  controller_ = LiveScreenController::create(std::move(sources), weak_from_this());
  controller_->open(std::move(owner));
}

void HeadlessLiveScreen::shutdown() {
  if (controller_) controller_->shutdown();
  stopFeeder();
}

void HeadlessLiveScreen::liveScreenDidStart(OXLiveSession& session,
                                            const LiveSessionConfiguration& configuration) {
  auto size = configuration.video->videoSize();
  oxlog("Live - streaming {}x{} at {} fps, {} b/s{}", size.width, size.height,
        configuration.video->videoFrameRate(), configuration.video->videoBitRate(),
        captureTypeHasAudio(session.captureType()) ? " with sound" : "");
  if (sources_.picture != LivePictureSource::virtualCamera) {
    oxlog("Live - no picture source: the stream carries no video");
    return;
  }
  std::weak_ptr<OXLiveSession> weakSession = session.shared_from_this();
  feeder_ = std::make_unique<MovingPictureFeeder>(
      static_cast<int>(size.width), static_cast<int>(size.height),
      static_cast<double>(configuration.video->videoFrameRate()),
      [weakSession](std::shared_ptr<PixelBuffer> picture) {
        if (auto live = weakSession.lock()) live->pushVideo(std::move(picture));
      });
  feeder_->start();
}

void HeadlessLiveScreen::stopFeeder() {
  if (!feeder_) return;
  feeder_->stop();
  oxlog("Live - {} pictures pushed, {} skipped", feeder_->delivered(), feeder_->skipped());
  feeder_.reset();
}

void HeadlessLiveScreen::liveScreenWillStop(OXLiveSession&) { stopFeeder(); }

void HeadlessLiveScreen::liveScreenStateDidChange(LiveStreamState state) {
  oxlog("Live - state {}", liveStreamStateText(state));
}

void HeadlessLiveScreen::liveScreenDebugInfo(const LFLiveDebug& info) {
  oxlog("Live - {:.0f} kB/s, {} video and {} audio frames a second, {} waiting, {} dropped",
        info.currentBandwidth / 1024.0, info.currentCapturedVideoCount,
        info.currentCapturedAudioCount, info.unSendCount, info.dropFrame);
}

std::shared_ptr<LiveViewController> HeadlessLivePresenter::presentLiveScreen(
    std::shared_ptr<LiveScreenOwner> owner) {
  auto screen = HeadlessLiveScreen::create(sources_);
  current_ = screen;
  screen->open(std::move(owner));
  return screen;
}

}  // namespace oxelo
