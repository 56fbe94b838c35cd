#include "transport/OXLiveSession.h"

#include <utility>

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"
#include "transport/InitError.h"

namespace oxelo {

namespace {
constexpr const char* kInitErrorName = "OXLiveSession init error";
constexpr double kRaiseStep = 1.05;
constexpr double kLowerStep = 0.8;
}  // namespace

std::shared_ptr<OXLiveSession> OXLiveSession::create(
    std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration,
    std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration, int64_t captureType,
    Environment environment) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!audioConfiguration && captureTypeHasAudio(captureType))
    throw InitError(kInitErrorName, "audioConfiguration is nil ");
  if (!videoConfiguration && captureTypeHasVideo(captureType))
    throw InitError(kInitErrorName, "videoConfiguration is nil ");
  return std::shared_ptr<OXLiveSession>(new OXLiveSession(std::move(audioConfiguration),
                                                          std::move(videoConfiguration),
                                                          captureType, std::move(environment)));
}

OXLiveSession::OXLiveSession(std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration,
                             std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration,
                             int64_t captureType, Environment environment)
    : audioConfiguration_(std::move(audioConfiguration)),
      videoConfiguration_(std::move(videoConfiguration)),
      captureType_(captureType),
      env_(std::move(environment)) {
  statusSource_ = env_.statusSource;
  if (!statusSource_) {
    cameraStatus_ = std::make_shared<CameraStatusSource>(CameraStatusSource::deviceFromSettings(),
                                                         BatteryMonitor::shared());
    statusSource_ = cameraStatus_;
  }
  adaptiveBitrate_ = UserDefaults::standard()->boolForKey(keys::adaptiveBitrate);
}

OXLiveSession::~OXLiveSession() {
  std::shared_ptr<LFAudioCapture> audio;
  std::shared_ptr<LFVideoCapture> video;
  {
    std::lock_guard lock(mutex_);
    audio = audioCaptureSource_;
    video = videoCaptureSource_;
  }
  if (video) video->setRunning(false);
  if (audio) audio->setRunning(false);
}

void OXLiveSession::postToMain(std::function<void(OXLiveSession&)> task) {
  postWeak(*MainQueue::get(), weak_from_this(), std::move(task));
}

// ---- Collaborators, created on first use ----

void OXLiveSession::initStreamInfo(std::shared_ptr<LFLiveStreamInfo> streamInfo) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!streamInfo) return;
  streamInfo->audioConfiguration = audioConfiguration_;
  streamInfo->videoConfiguration = videoConfiguration_;
  if (auto video = videoCapture(); video && streamInfo->videoConfiguration) {
    if (int32_t rate = video->videoFrameRate(); rate >= 1)
      streamInfo->videoConfiguration->setVideoFrameRate(static_cast<uint64_t>(rate));
  }
  std::lock_guard lock(mutex_);
  streamInfo_ = std::move(streamInfo);
}

std::shared_ptr<LFLiveStreamInfo> OXLiveSession::streamInfo() {
  OX_ASSERT_ON_MAIN_QUEUE();
  std::lock_guard lock(mutex_);
  if (!streamInfo_) {
    streamInfo_ = std::make_shared<LFLiveStreamInfo>();
    streamInfo_->audioConfiguration = audioConfiguration_;
    streamInfo_->videoConfiguration = videoConfiguration_;
  }
  return streamInfo_;
}

std::shared_ptr<OXStreamSocket> OXLiveSession::streamSocket() {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto info = streamInfo();
  std::lock_guard lock(mutex_);
  if (!socket_) {
    socket_ = OXStreamSocket::create(std::move(info), /*reconnectInterval=*/0,
                                     /*reconnectCount=*/0, env_.socket);
    socket_->setDelegate(weak_from_this());
  }
  return socket_;
}

std::shared_ptr<LFVideoEncoding> OXLiveSession::videoEncoder() {
  std::lock_guard lock(mutex_);
  if (!videoEncoder_ && env_.encoders && videoConfiguration_)
    videoEncoder_ = env_.encoders->makeVideoEncoder(videoConfiguration_);
  return videoEncoder_;
}

std::shared_ptr<LFAudioEncoding> OXLiveSession::audioEncoder() {
  std::lock_guard lock(mutex_);
  if (!audioEncoder_ && env_.encoders && audioConfiguration_)
    audioEncoder_ = env_.encoders->makeAudioEncoder(audioConfiguration_);
  return audioEncoder_;
}

std::shared_ptr<LFVideoEncoding> OXLiveSession::currentVideoEncoder() const {
  std::lock_guard lock(mutex_);
  return videoEncoder_;
}

std::shared_ptr<LFAudioEncoding> OXLiveSession::currentAudioEncoder() const {
  std::lock_guard lock(mutex_);
  return audioEncoder_;
}

std::shared_ptr<OXStreamSocket> OXLiveSession::currentSocket() const {
  std::lock_guard lock(mutex_);
  return socket_;
}

std::shared_ptr<LFAudioCapture> OXLiveSession::audioCaptureSource() {
  if (!(captureType_ & kCaptureMaskAudio)) return nullptr;
  std::lock_guard lock(mutex_);
  if (!audioCaptureSource_) {
    audioCaptureSource_ = LFAudioCapture::create(audioConfiguration_, env_.audioBackend);
    audioCaptureSource_->setDelegate(weak_from_this());
  }
  return audioCaptureSource_;
}

std::shared_ptr<LFVideoCapture> OXLiveSession::videoCapture() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!(captureType_ & kCaptureMaskVideo)) return nullptr;
  if (auto existing = currentVideoCapture()) return existing;
  // Made outside the lock: making the camera and setting the receiver wait
  // for the video processing queue, where pictures take the lock on their
  // way to the encoder. Only the main queue creates it.
  auto capture = LFVideoCapture::create(videoConfiguration_);
  if (!capture) return nullptr;
  capture->setDelegate(weak_from_this());
  {
    std::lock_guard lock(mutex_);
    videoCaptureSource_ = capture;
  }
  // The properties start from the source's values: a first write that
  // changes one is told.
  positionNotice_.setSilently(capture->captureDevicePosition());
  mirrorNotice_.setSilently(capture->mirror());
  beautyFaceNotice_.setSilently(capture->beautyFace());
  beautyMethodNotice_.setSilently(capture->beautyMethod());
  autoRotateNotice_.setSilently(capture->autoRotate());
  torchNotice_.setSilently(capture->torch());
  zoomNotice_.setSilently(capture->zoomScale());
  aeafLockNotice_.setSilently(aeafLockOf(*capture));
  if (cameraStatus_) {
    cameraStatus_->followCapture(capture);
    cameraStatus_->setMirror(capture->mirror());
  }
  return capture;
}

std::shared_ptr<LFVideoCapture> OXLiveSession::currentVideoCapture() const {
  std::lock_guard lock(mutex_);
  return videoCaptureSource_;
}

// ---- Start and stop ----

void OXLiveSession::startLive() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto encoder = videoEncoder()) encoder->setDelegate(weak_from_this());
  if (auto encoder = audioEncoder()) encoder->setDelegate(weak_from_this());
  streamSocket()->start();
}

void OXLiveSession::stopLive() {
  OX_ASSERT_ON_MAIN_QUEUE();
  uploading_ = false;
  std::shared_ptr<OXStreamSocket> socket;
  std::shared_ptr<LFVideoEncoding> video;
  std::shared_ptr<LFAudioEncoding> audio;
  {
    std::lock_guard lock(mutex_);
    socket = std::move(socket_);
    video = std::move(videoEncoder_);
    audio = std::move(audioEncoder_);
    socket_.reset();
    videoEncoder_.reset();
    audioEncoder_.reset();
  }
  if (socket) socket->stop();
  if (video) video->stopEncoder();
  if (audio) audio->stopEncoder();
}

// ---- Properties ----

void OXLiveSession::setRunning(bool running) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (running_.get() == running) return;
  running_.set(running);
  if (auto video = videoCapture()) video->setRunning(running);
  if (auto audio = audioCaptureSource()) audio->setRunning(running);
}

void OXLiveSession::setDim(bool dim) {
  OX_ASSERT_ON_MAIN_QUEUE();
  dim_.set(dim);
  if (cameraStatus_) cameraStatus_->setDim(dim);
}

bool OXLiveSession::muted() const {
  std::lock_guard lock(mutex_);
  return audioCaptureSource_ && audioCaptureSource_->muted();
}

void OXLiveSession::setMuted(bool muted) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto audio = audioCaptureSource()) audio->setMuted(muted);
  mutedNotice_.set(this->muted());
}

bool OXLiveSession::useBackMic() const {
  std::lock_guard lock(mutex_);
  return audioCaptureSource_ && audioCaptureSource_->useBackMic();
}

void OXLiveSession::setUseBackMic(bool useBackMic) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto audio = audioCaptureSource()) audio->setUseBackMic(useBackMic);
  useBackMicNotice_.set(this->useBackMic());
}

void OXLiveSession::setCaptureDevicePosition(int64_t position) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto video = videoCapture();
  if (video) video->setCaptureDevicePosition(static_cast<AVCaptureDevicePosition>(position));
  setUseBackMic(captureDevicePosition() != AVCaptureDevicePositionFront);
  deviceChanged_ = true;
  positionNotice_.set(captureDevicePosition());
  refreshCameraProperties();  // the torch, the zoom and the locks are the new camera's
}

int64_t OXLiveSession::captureDevicePosition() const {
  auto video = currentVideoCapture();
  return video ? static_cast<int64_t>(video->captureDevicePosition()) : 0;
}

std::string OXLiveSession::captureDeviceType() const {
  auto video = currentVideoCapture();
  return video ? video->captureDeviceType() : std::string();
}

bool OXLiveSession::mirror() const {
  auto video = currentVideoCapture();
  return video && video->mirror();
}

void OXLiveSession::setMirror(bool mirror) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setMirror(mirror);
  if (cameraStatus_) cameraStatus_->setMirror(this->mirror());
  mirrorNotice_.set(this->mirror());
}

bool OXLiveSession::beautyFace() const {
  auto video = currentVideoCapture();
  return video && video->beautyFace();
}

void OXLiveSession::setBeautyFace(bool beautyFace) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setBeautyFace(beautyFace);
  if (cameraStatus_) cameraStatus_->setBeauty(this->beautyFace(), beautyMethod());
  beautyFaceNotice_.set(this->beautyFace());
  beautyMethodNotice_.set(beautyMethod());  // switching beauty off clears the method
}

int64_t OXLiveSession::beautyMethod() const {
  auto video = currentVideoCapture();
  return video ? video->beautyMethod() : 0;
}

void OXLiveSession::setBeautyMethod(int64_t beautyMethod) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setBeautyMethod(beautyMethod);
  if (cameraStatus_) cameraStatus_->setBeauty(beautyFace(), this->beautyMethod());
  beautyMethodNotice_.set(this->beautyMethod());
}

double OXLiveSession::beautyLevel() const {
  auto video = currentVideoCapture();
  return video ? video->beautyLevel() : 0.0;
}

void OXLiveSession::setBeautyLevel(double level) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setBeautyLevel(level);
  beautyLevelNotice_.set(beautyLevel());
}

double OXLiveSession::brightLevel() const {
  auto video = currentVideoCapture();
  return video ? video->brightLevel() : 0.0;
}

void OXLiveSession::setBrightLevel(double level) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setBrightLevel(level);
  brightLevelNotice_.set(brightLevel());
}

bool OXLiveSession::autoRotate() const {
  auto video = currentVideoCapture();
  return video && video->autoRotate();
}

void OXLiveSession::setAutoRotate(bool autoRotate) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setAutoRotate(autoRotate);
  autoRotateNotice_.set(this->autoRotate());
}

void OXLiveSession::setCaptureDelegate(std::weak_ptr<LFVideoCaptureViewDelegate> delegate) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setCaptureDelegate(std::move(delegate));
}

std::shared_ptr<GPUImageView> OXLiveSession::preView() const {
  auto video = currentVideoCapture();
  return video ? video->preView() : nullptr;
}

void OXLiveSession::setPreView(std::shared_ptr<GPUImageView> view) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setPreView(std::move(view));
}

int32_t OXLiveSession::videoFrameRate() const {
  auto video = currentVideoCapture();
  return video ? video->videoFrameRate() : 0;
}

LFLiveDebug OXLiveSession::lastDebugInfo() const {
  std::lock_guard lock(mutex_);
  return debugInfo_;
}

int64_t OXLiveSession::videoBitrate() const {
  auto encoder = currentVideoEncoder();
  return encoder ? encoder->videoBitRate() : 0;
}

// ---- Commands to the host ----

void OXLiveSession::sendCommandPacketWithParameter(uint32_t command, uint32_t parameter) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto socket = currentSocket()) socket->sendCommand(command, parameter);
}

void OXLiveSession::remoteSnapshot() {
  sendCommandPacketWithParameter(wire::kCommandRemoteSnapshot, 0);
}

void OXLiveSession::remoteRecord(bool record) {
  sendCommandPacketWithParameter(wire::kCommandRemoteRecord,
                                 record ? wire::kRemoteRecordStart : wire::kRemoteRecordStop);
}

// ---- Frames in ----

void OXLiveSession::pushVideo(std::shared_ptr<PixelBuffer> pixelBuffer) {
  if (!uploading_ || !pixelBuffer) return;
  // A picture that carries its capture time keeps it; the media clock stands
  // in for the others.
  double captured = pixelBuffer->presentationTime();
  uint64_t timeStamp = captured > 0 ? static_cast<uint64_t>(captured * 1000.0) : mediaTimeMillis();
  if (auto encoder = currentVideoEncoder())
    encoder->encodeVideoData(std::move(pixelBuffer), timeStamp);
}

void OXLiveSession::captureOutput(LFVideoCapture&, const std::shared_ptr<PixelBuffer>& buffer,
                                  const LFVideoColourTags*) {
  ++capturedPictures_;
  if (!uploading_ || !buffer) return;
  auto encoder = currentVideoEncoder();
  if (!encoder) return;
  ++encodedPictures_;
  encoder->encodeVideoData(buffer, mediaTimeMillis());
}

void OXLiveSession::pushAudio(const Bytes& audioData) { encodeAudio(audioData); }

void OXLiveSession::captureOutputAudioData(LFAudioCapture*, const std::vector<uint8_t>& audioData,
                                           const AudioTimeStamp*) {
  encodeAudio(audioData);
}

void OXLiveSession::encodeAudio(const Bytes& audioData) {
  if (!uploading_) return;
  if (auto encoder = currentAudioEncoder()) encoder->encodeAudioData(audioData, mediaTimeMillis());
}

// ---- Frames out ----

bool OXLiveSession::AVAlignment() const {
  if (!captureTypeHasAudio(captureType_)) return true;
  if (!captureTypeHasVideo(captureType_)) return true;
  return hasCaptureAudio_ && hasKeyFrameVideo_;
}

void OXLiveSession::audioEncoderAudioFrame(LFAudioEncoding*, std::shared_ptr<LFAudioFrame> frame) {
  if (!uploading_ || !frame) return;
  hasCaptureAudio_ = true;
  if (AVAlignment()) pushSendBuffer(std::move(frame));
}

void OXLiveSession::videoEncoderVideoFrame(LFVideoEncoding*, std::shared_ptr<LFVideoFrame> frame) {
  if (!uploading_ || !frame) return;
  if (frame->isKeyFrame && hasCaptureAudio_) hasKeyFrameVideo_ = true;
  if (AVAlignment()) pushSendBuffer(std::move(frame));
}

uint64_t OXLiveSession::uploadTimestamp(uint64_t timestamp) {
  lock_.wait();
  uint64_t relative = timestamp - relativeTimestamps_;
  lock_.signal();
  return relative;
}

void OXLiveSession::pushSendBuffer(std::shared_ptr<LFFrame> frame) {
  // The audio and the video thread both come here: whichever frame of the
  // connection is first sets the reference, once.
  uint64_t unset = 0;
#ifdef OXELO_QUEUE_CHECKS
  if (relativeTimestamps_ == 0 && referenceClaimHook_)
    std::exchange(referenceClaimHook_, nullptr)();
#endif
  relativeTimestamps_.compare_exchange_strong(unset, frame->timestamp);
  frame->timestamp = uploadTimestamp(frame->timestamp);
  if (auto socket = currentSocket()) socket->sendFrame(std::move(frame));
}

// ---- Socket reports ----

void OXLiveSession::socketStatus(LFStreamSocket*, LiveStreamState status) {
  if (status == LiveStreamState::Connected) {
    if (!uploading_) {
      hasCaptureAudio_ = false;
      hasKeyFrameVideo_ = false;
      relativeTimestamps_ = 0;
      uploading_ = true;
    }
  } else if (status == LiveStreamState::Stopped || status == LiveStreamState::Failed) {
    uploading_ = false;
  }
  postToMain([status](OXLiveSession& self) {
    OX_ASSERT_ON_MAIN_QUEUE();
    self.state_ = status;
    if (auto d = self.delegate()) d->liveSessionLiveStateDidChange(&self, status);
  });
}

void OXLiveSession::socketDidError(LFStreamSocket*, LiveStreamError errorCode) {
  postToMain([errorCode](OXLiveSession& self) {
    OX_ASSERT_ON_MAIN_QUEUE();
    if (errorCode == LiveStreamError::PeerClosed) self.stopLive();
    if (auto d = self.delegate()) d->liveSessionErrorCode(&self, errorCode);
  });
}

void OXLiveSession::socketDebug(LFStreamSocket*, const LFLiveDebug& debugInfo) {
  {
    std::lock_guard lock(mutex_);
    debugInfo_ = debugInfo;
  }
  if (!showDebugInfo_) return;
  postToMain([debugInfo](OXLiveSession& self) {
    OX_ASSERT_ON_MAIN_QUEUE();
    if (auto d = self.delegate()) d->liveSessionDebugInfo(&self, debugInfo);
  });
}

void OXLiveSession::socketBufferStatus(LFStreamSocket*, BufferVerdict status) {
  if (state_ != LiveStreamState::Connected || !captureTypeHasVideo(captureType_) ||
      !adaptiveBitrate_)
    return;
  auto encoder = currentVideoEncoder();
  if (!encoder || !videoConfiguration_) return;
  if (status != BufferVerdict::RaiseBitrate && status != BufferVerdict::LowerBitrate) return;
  const bool raise = status == BufferVerdict::RaiseBitrate;
  double rate = static_cast<double>(encoder->videoBitRate());
  auto next = static_cast<int64_t>(rate * (raise ? kRaiseStep : kLowerStep));
  // A step that would leave the bounds is refused whole.
  if (raise ? next > static_cast<int64_t>(videoConfiguration_->videoMaxBitRate())
            : next < static_cast<int64_t>(videoConfiguration_->videoMinBitRate()))
    return;
  encoder->setVideoBitRate(next);
  oxlog("{}: {:.1f}KB", raise ? "增加码率至" : "降低码率至", next / 1024.0);
}

}  // namespace oxelo
