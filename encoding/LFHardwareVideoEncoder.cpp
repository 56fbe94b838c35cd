#include "encoding/LFHardwareVideoEncoder.h"

#include "encoding/LibavVideoCodecSession.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

std::shared_ptr<const Bytes> shared(const std::vector<uint8_t>& bytes) {
  return std::make_shared<const Bytes>(bytes);
}

}  // namespace

std::shared_ptr<LFHardwareVideoEncoder> LFHardwareVideoEncoder::create(
    std::shared_ptr<LFLiveVideoConfiguration> configuration,
    VideoCodecSessionFactory sessionFactory, std::shared_ptr<AppLifecycle> lifecycle) {
  if (!sessionFactory) sessionFactory = LibavVideoCodecSession::factory();
  std::shared_ptr<LFHardwareVideoEncoder> encoder(
      new LFHardwareVideoEncoder(std::move(configuration), std::move(sessionFactory)));
  Frames none;  // a new session has nothing in flight
  {
    std::lock_guard lock(encoder->mutex_);
    encoder->initCompressionSession(none);
  }
  if (lifecycle) {
    std::weak_ptr<LFHardwareVideoEncoder> weak = encoder;
    encoder->lifecycleSubscription_ = lifecycle->addListener([weak](LifecycleEvent event) {
      auto self = weak.lock();
      if (!self) return;
      if (event == LifecycleEvent::willResignActive) self->willEnterBackground();
      if (event == LifecycleEvent::didBecomeActive) self->willEnterForeground();
    });
  }
  return encoder;
}

LFHardwareVideoEncoder::LFHardwareVideoEncoder(
    std::shared_ptr<LFLiveVideoConfiguration> configuration,
    VideoCodecSessionFactory sessionFactory)
    : configuration_(std::move(configuration)), sessionFactory_(std::move(sessionFactory)) {}

LFHardwareVideoEncoder::~LFHardwareVideoEncoder() {
  lifecycleSubscription_.reset();
  std::lock_guard lock(mutex_);
  compressionSession_.reset();  // frames still in flight are dropped with it
}

void LFHardwareVideoEncoder::initCompressionSession(Frames& out, std::optional<bool> cameraBT601) {
  if (compressionSession_) {
    collecting_ = &out;
    compressionSession_->completeFrames();
    collecting_ = nullptr;
    compressionSession_.reset();
  }
  frameCount_ = 0;
  currentVideoBitRate_ = static_cast<int64_t>(configuration_->videoBitRate());
  auto defaults = UserDefaults::standard();
  useH265_ = defaults->integerForKey(keys::videoEncoder) == 1;
  colour_ = colourTagsFor(defaults->stringForKey(keys::colorspace),
                          cameraBT601.value_or(defaults->boolForKey(keys::isCamBT601)));

  const VideoSize size = configuration_->videoSize();
  const auto bitRate = static_cast<int64_t>(configuration_->videoBitRate());
  VideoCodecSettings settings;
  settings.codec = useH265_ ? VideoCodec::hevc : VideoCodec::h264;
  settings.width = static_cast<int>(size.width);
  settings.height = static_cast<int>(size.height);
  settings.expectedFrameRate = static_cast<int64_t>(configuration_->videoFrameRate());
  settings.maxKeyFrameInterval = static_cast<int64_t>(configuration_->videoMaxKeyframeInterval());
  settings.maxKeyFrameIntervalDuration = 2;
  settings.averageBitRate = bitRate;
  settings.dataRateLimitBytes = bitRate * 5 / 8;
  settings.dataRateLimitSeconds = 1;
  settings.colour = colour_;
  compressionSession_ = sessionFactory_(
      settings, [this](CodedSample&& sample) { outputCallback(std::move(sample)); });
}

void LFHardwareVideoEncoder::encodeVideoData(std::shared_ptr<PixelBuffer> pixelBuffer,
                                             uint64_t timeStamp) {
  if (isBackGround_ || !pixelBuffer) return;
  Frames frames;
  {
    std::lock_guard lock(mutex_);
    if (frameCount_ == 0 && compressionSession_) followCameraMatrix(*pixelBuffer, frames);
    ++frameCount_;
    if (!compressionSession_) return;  // no session: the picture vanishes
    const auto interval = static_cast<int64_t>(configuration_->videoMaxKeyframeInterval());
    const bool forceKeyFrame = interval > 0 && frameCount_ % interval == 1;
    collecting_ = &frames;
    const bool taken =
        compressionSession_->encodeFrame(pixelBuffer, frameCount_, forceKeyFrame, timeStamp);
    collecting_ = nullptr;
    if (!taken) oxlog("VideoEncoder Dropped one frame {}", timeStamp);
  }
  deliver(frames);
}

void LFHardwareVideoEncoder::followCameraMatrix(const PixelBuffer& picture, Frames& out) {
  // Only "Auto" tags the camera's matrix and converts with none of its own.
  const bool followsCamera =
      colour_.conversionMatrix == YCbCrMatrix::unset && colour_.matrixTag != YCbCrMatrix::unset;
  if (!followsCamera || !picture.isYuv()) return;
  const bool pictureBT601 = picture.matrix() == YuvMatrix::bt601;
  if (pictureBT601 == (colour_.matrixTag == YCbCrMatrix::bt601)) return;
  oxlog("VideoEncoder: the camera's pictures are {}: the session follows them",
        pictureBT601 ? "BT.601" : "BT.709");
  initCompressionSession(out, pictureBT601);
}

void LFHardwareVideoEncoder::outputCallback(CodedSample&& sample) {
  const bool keyFrame = sample.isSync;
  const uint64_t timestamp = sample.userValue;
  if (sample.status != 0) return;  // lost without a report
  if (keyFrame && !hasBytes(sps_)) takeParameterSets(sample.parameterSets);
  if (sample.data.empty()) return;
  auto frame = std::make_shared<LFVideoFrame>();
  frame->timestamp = timestamp;
  frame->isKeyFrame = keyFrame;
  frame->sps = sps_;
  frame->pps = pps_;
  frame->vps = vps_;
  frame->data = std::move(sample.data);
  if (collecting_) collecting_->push_back(std::move(frame));
}

void LFHardwareVideoEncoder::takeParameterSets(const ParameterSets& sets) {
  // H.264 needs its two sets, HEVC the first and the last of its three;
  // otherwise the next key frame tries again.
  const auto& first = useH265_ ? sets.vps : sets.sps;
  if (first.empty() || sets.pps.empty()) return;
  if (useH265_) {
    if (sets.sps.empty()) return;
    vps_ = shared(sets.vps);
  }
  sps_ = shared(sets.sps);
  pps_ = shared(sets.pps);
  oxlog("ColorPrimaries: {}", primariesName(colour_));
  oxlog("YCbCrMatrix: {}", matrixName(colour_.matrixTag));
  oxlog("TransferFunction: {}", transferFunctionName(colour_));
}

void LFHardwareVideoEncoder::deliver(const Frames& frames) {
  if (frames.empty()) return;
  std::shared_ptr<LFVideoEncodingDelegate> delegate;
  {
    std::lock_guard lock(mutex_);
    delegate = encoderDelegate_.lock();
  }
  if (!delegate) return;
  for (const auto& frame : frames) delegate->videoEncoderVideoFrame(this, frame);
}

void LFHardwareVideoEncoder::setDelegate(std::weak_ptr<LFVideoEncodingDelegate> delegate) {
  std::lock_guard lock(mutex_);
  encoderDelegate_ = std::move(delegate);
}

void LFHardwareVideoEncoder::stopEncoder() {
  Frames frames;
  {
    std::lock_guard lock(mutex_);
    if (!compressionSession_) return;
    collecting_ = &frames;
    compressionSession_->completeFrames();
    collecting_ = nullptr;
  }
  deliver(frames);
}

void LFHardwareVideoEncoder::setVideoBitRate(int64_t videoBitRate) {
  if (isBackGround_) return;
  std::lock_guard lock(mutex_);
  if (compressionSession_) {
    compressionSession_->setBitRate(videoBitRate, videoBitRate * 5 / 8, /*seconds=*/1.0);
  }
  currentVideoBitRate_ = videoBitRate;
}

void LFHardwareVideoEncoder::willEnterBackground() { isBackGround_ = true; }

void LFHardwareVideoEncoder::willEnterForeground() {
  Frames frames;
  {
    std::lock_guard lock(mutex_);
    initCompressionSession(frames);
  }
  isBackGround_ = false;
  deliver(frames);
}

PixelFormat LFHardwareVideoEncoder::preferredPixelFormat() const {
  std::lock_guard lock(mutex_);
  return compressionSession_ ? compressionSession_->preferredPixelFormat() : PixelFormat::bgra;
}

bool LFHardwareVideoEncoder::useH265() const {
  std::lock_guard lock(mutex_);
  return useH265_;
}

int64_t LFHardwareVideoEncoder::frameCount() const {
  std::lock_guard lock(mutex_);
  return frameCount_;
}

bool LFHardwareVideoEncoder::hasCompressionSession() const {
  std::lock_guard lock(mutex_);
  return compressionSession_ != nullptr;
}

std::string LFHardwareVideoEncoder::encoderName() const {
  std::lock_guard lock(mutex_);
  return compressionSession_ ? compressionSession_->encoderName() : std::string();
}

RateControl LFHardwareVideoEncoder::rateControl() const {
  std::lock_guard lock(mutex_);
  return compressionSession_ ? compressionSession_->rateControl() : RateControl{};
}

ColourTags LFHardwareVideoEncoder::colourTags() const {
  std::lock_guard lock(mutex_);
  return colour_;
}

}  // namespace oxelo
