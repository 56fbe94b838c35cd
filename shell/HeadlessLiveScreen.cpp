#include "shell/HeadlessLiveScreen.h"

#include "platform/log/Log.h"

namespace oxelo {

namespace {
// The headless screen has no status bar; it stands as landscape right does.
constexpr int64_t kHeadlessOrientation = 3;

// Passes every call on to the main screen and tells `ended` when the host
// ended the session. Holds the main screen weakly: the main screen owns the
// live screen, which owns this.
class EndWatchingOwner final : public LiveScreenOwner {
 public:
  EndWatchingOwner(std::weak_ptr<LiveScreenOwner> owner, std::function<void()> ended)
      : owner_(std::move(owner)), ended_(std::move(ended)) {}

  void prepareLiveView(LiveViewChannelTarget& view) override {
    if (auto owner = owner_.lock()) owner->prepareLiveView(view);
  }
  void liveViewRestart() override {
    if (auto owner = owner_.lock()) owner->liveViewRestart();
  }
  void liveViewConnectionLost() override {
    if (auto owner = owner_.lock()) owner->liveViewConnectionLost();
    ended_();
  }
  void liveViewUserClose(bool byUser) override {
    if (auto owner = owner_.lock()) owner->liveViewUserClose(byUser);
    if (!byUser) ended_();
  }
  void viewWillAppear() override {
    if (auto owner = owner_.lock()) owner->viewWillAppear();
  }
  void viewDidAppear() override {
    if (auto owner = owner_.lock()) owner->viewDidAppear();
  }

 private:
  std::weak_ptr<LiveScreenOwner> owner_;
  std::function<void()> ended_;
};

}  // namespace

std::shared_ptr<HeadlessLiveScreen> HeadlessLiveScreen::create(Sources sources) {
  return std::shared_ptr<HeadlessLiveScreen>(new HeadlessLiveScreen(std::move(sources)));
}

HeadlessLiveScreen::~HeadlessLiveScreen() = default;

void HeadlessLiveScreen::open(std::shared_ptr<LiveScreenOwner> owner) {
  LiveScreenController::Sources sources;
  sources.environment.encoders = sources_.encoders;
  sources.environment.socket.hevcDecodeSupported = sources_.hevcDecodeSupported;
  sources.orientation = kHeadlessOrientation;
  controller_ = LiveScreenController::create(std::move(sources), weak_from_this());
  if (sources_.hostEnded) {
    endWatch_ = std::make_shared<EndWatchingOwner>(owner, sources_.hostEnded);
    owner = endWatch_;
  }
  controller_->open(std::move(owner));
}

void HeadlessLiveScreen::shutdown() {
  if (controller_) controller_->shutdown();
}

void HeadlessLiveScreen::liveScreenDidStart(OXLiveSession& session,
                                            const LiveSessionConfiguration& configuration) {
  auto size = configuration.video->videoSize();
  oxlog("Live - streaming {}x{} at {} fps, {} b/s{}", size.width, size.height,
        configuration.video->videoFrameRate(), configuration.video->videoBitRate(),
        captureTypeHasAudio(session.captureType()) ? " with sound" : "");
  auto capture = session.videoCapture();
  auto camera = capture ? capture->device() : nullptr;
  if (!camera) {
    oxlog("Live - no camera input: the stream carries sound only");
    return;
  }
  session.setCaptureDelegate(weak_from_this());
  auto format = camera->activeFormat();
  oxlog("Live - camera \"{}\" ({}), {}x{} at {} fps", camera->localizedName(), camera->uniqueID(),
        format ? format->width : 0, format ? format->height : 0, session.videoFrameRate());
}

void HeadlessLiveScreen::liveScreenWillStop(OXLiveSession& session) {
  if (!session.videoCapture()) return;
  oxlog("Live - {} pictures captured, {} encoded", session.capturedPictureCount(),
        session.encodedPictureCount());
}

void HeadlessLiveScreen::videoDeviceDidFail(const CameraError& error) {
  oxlog("Live - camera stopped: {}; the stream goes on with sound only", error.message);
}

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
