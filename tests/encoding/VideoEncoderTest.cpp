// The encoder's own rules against a codec session that does what it is told.
#include <gtest/gtest.h>

#include "encoding/LFHardwareVideoEncoder.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/encoding/EncodingTestSupport.h"
#include "tests/support/FakeLifecycle.h"

namespace oxelo {
namespace {

using test::ScopedDefaults;

struct EncodeCall {
  int64_t presentationFrames;
  bool forceKeyFrame;
  uint64_t userValue;
};

// Records what the encoder asks; answers at once, a key frame (with sets) where forced.
struct FakeSessionLog {
  std::vector<VideoCodecSettings> created;
  std::vector<EncodeCall> calls;
  std::vector<std::tuple<int64_t, int64_t, double>> rates;
  int completes = 0;
  bool keyFramesCarrySets = true;
  bool failCreation = false;
  bool nextIsUnforcedKey = false;
};

class FakeSession final : public VideoCodecSession {
 public:
  FakeSession(FakeSessionLog& log, const VideoCodecSettings& settings, Output output)
      : log_(log), settings_(settings), output_(std::move(output)) {}
  const std::string& encoderName() const override { return name_; }
  PixelFormat preferredPixelFormat() const override { return PixelFormat::nv12; }
  bool encodeFrame(const std::shared_ptr<PixelBuffer>&, int64_t pts, bool force,
                   uint64_t userValue) override {
    log_.calls.push_back({pts, force, userValue});
    CodedSample sample;
    sample.isSync = force || std::exchange(log_.nextIsUnforcedKey, false);
    sample.userValue = userValue;
    sample.data = {0, 0, 0, 2, static_cast<uint8_t>(sample.isSync ? 0x65 : 0x41), 0x80};
    if (sample.isSync && log_.keyFramesCarrySets) {
      if (settings_.codec == VideoCodec::hevc) sample.parameterSets.vps = {0x40, 0x01};
      sample.parameterSets.sps = {0x67, static_cast<uint8_t>(log_.created.size())};
      sample.parameterSets.pps = {0x68, 0xce};
    }
    output_(std::move(sample));
    return true;
  }
  void completeFrames() override { ++log_.completes; }
  void setBitRate(int64_t rate, int64_t bytes, double seconds) override {
    log_.rates.emplace_back(rate, bytes, seconds);
  }
  RateControl rateControl() const override { return {}; }

 private:
  FakeSessionLog& log_;
  VideoCodecSettings settings_;
  Output output_;
  std::string name_ = "fake";
};

class VideoEncoderTest : public testing::Test {
 protected:
  std::shared_ptr<LFHardwareVideoEncoder> makeEncoder(uint64_t interval = 30) {
    configuration_ = test::smallVideoConfiguration(320, 240, 30, 4608000);
    configuration_->setVideoMaxKeyframeInterval(interval);
    auto factory = [this](const VideoCodecSettings& settings,
                          VideoCodecSession::Output output) -> std::unique_ptr<VideoCodecSession> {
      if (log_.failCreation) return nullptr;
      log_.created.push_back(settings);
      return std::make_unique<FakeSession>(log_, settings, std::move(output));
    };
    auto encoder = LFHardwareVideoEncoder::create(configuration_, factory, lifecycle_);
    encoder->setDelegate(recorder_);
    return encoder;
  }
  void encode(LFHardwareVideoEncoder& encoder, int count, uint64_t firstTimestamp = 1000) {
    for (int i = 0; i < count; ++i) encoder.encodeVideoData(picture_, firstTimestamp + i);
  }

  test::ManualMain main_;
  ScopedDefaults defaults_;
  std::shared_ptr<FakeLifecycle> lifecycle_ = std::make_shared<FakeLifecycle>();
  std::shared_ptr<LFLiveVideoConfiguration> configuration_;
  FakeSessionLog log_;
  std::shared_ptr<test::VideoFrameRecorder> recorder_ =
      std::make_shared<test::VideoFrameRecorder>();
  std::shared_ptr<PixelBuffer> picture_ = PixelBuffer::create(320, 240);
};

TEST_F(VideoEncoderTest, ForcesKeyFramesByFrameCount) {
  auto encoder = makeEncoder(30);
  encode(*encoder, 61);
  ASSERT_EQ(log_.calls.size(), 61u);
  std::vector<int64_t> forced;
  for (const auto& call : log_.calls)
    if (call.forceKeyFrame) forced.push_back(call.presentationFrames);
  EXPECT_EQ(forced, (std::vector<int64_t>{1, 31, 61}));
  for (size_t i = 0; i < log_.calls.size(); ++i) {
    EXPECT_EQ(log_.calls[i].presentationFrames, static_cast<int64_t>(i + 1));
    EXPECT_EQ(log_.calls[i].userValue, 1000 + i);
  }
  recorder_.reset();  // a gone delegate is skipped
  encode(*encoder, 2);
  EXPECT_EQ(log_.calls.size(), 63u);
}

TEST_F(VideoEncoderTest, CreatesTheSessionFromTheConfigurationAndChangesItsRate) {
  auto encoder = makeEncoder(30);
  EXPECT_EQ(encoder->preferredPixelFormat(), PixelFormat::nv12) << "the session's";
  ASSERT_EQ(log_.created.size(), 1u);
  const auto& s = log_.created[0];
  EXPECT_EQ(std::tuple(s.codec, s.width, s.height, s.expectedFrameRate, s.maxKeyFrameInterval),
            std::tuple(VideoCodec::h264, 320, 240, 30, 30));
  EXPECT_EQ(std::tuple(s.maxKeyFrameIntervalDuration, s.averageBitRate, s.dataRateLimitBytes,
                       s.dataRateLimitSeconds),
            std::tuple(2.0, 4608000, 2880000, 1.0));
  // A rate change sets the average and five times the byte rate.
  encoder->setVideoBitRate(4608000);
  ASSERT_EQ(log_.rates.size(), 1u);
  EXPECT_EQ(log_.rates[0], std::make_tuple(int64_t{4608000}, int64_t{2880000}, 1.0));
  encoder->setVideoBitRate(1000001);  // 625000.625 bytes, cut toward zero
  EXPECT_EQ(std::get<1>(log_.rates[1]), 625000);
  EXPECT_EQ(encoder->videoBitRate(), 1000001);
  EXPECT_EQ(configuration_->videoBitRate(), 4608000u) << "the configuration keeps its rate";
}

TEST_F(VideoEncoderTest, FramesBeforeTheFirstKeyFrameWithSetsHaveNone) {
  log_.keyFramesCarrySets = false;
  auto encoder = makeEncoder(2);
  encode(*encoder, 2);  // a key frame without sets, then a plain frame
  log_.keyFramesCarrySets = true;
  encode(*encoder, 2);  // frame 3 is the next forced key frame, with sets
  ASSERT_EQ(recorder_->frames.size(), 4u);
  EXPECT_TRUE(recorder_->frames[0]->isKeyFrame);
  EXPECT_EQ(recorder_->frames[0]->sps, nullptr);
  EXPECT_EQ(recorder_->frames[1]->sps, nullptr);
  EXPECT_EQ(recorder_->frames[1]->pps, nullptr);
  EXPECT_TRUE(hasBytes(recorder_->frames[2]->sps));
  EXPECT_TRUE(hasBytes(recorder_->frames[3]->sps));

  encoder = makeEncoder(0);  // no interval: nothing forced, a key frame of the codec's own
  encode(*encoder, 1);
  EXPECT_EQ(recorder_->frames.at(4)->sps, nullptr);
  log_.nextIsUnforcedKey = true;
  encode(*encoder, 1);
  EXPECT_TRUE(recorder_->frames.at(5)->isKeyFrame);
  EXPECT_TRUE(hasBytes(recorder_->frames.at(5)->sps));
  EXPECT_FALSE(log_.calls[4].forceKeyFrame || log_.calls[5].forceKeyFrame);
}

TEST_F(VideoEncoderTest, BackgroundRefusesPicturesAndRatesAndTheReturnReplacesTheSession) {
  auto encoder = makeEncoder(30);
  encode(*encoder, 10);
  encoder->setVideoBitRate(3000000);
  const auto firstSps = recorder_->frames[0]->sps;
  lifecycle_->sendEvent(LifecycleEvent::willResignActive);
  main_.drain();
  EXPECT_TRUE(encoder->isBackGround());
  encoder->setVideoBitRate(2000000);
  encode(*encoder, 3);
  EXPECT_EQ(encoder->videoBitRate(), 3000000);
  EXPECT_EQ(log_.rates.size(), 1u);
  EXPECT_EQ(log_.calls.size(), 10u);
  EXPECT_EQ(encoder->frameCount(), 10);
  lifecycle_->sendEvent(LifecycleEvent::didBecomeActive);
  main_.drain();
  EXPECT_FALSE(encoder->isBackGround());
  ASSERT_EQ(log_.created.size(), 2u);
  EXPECT_EQ(log_.completes, 1) << "the old session completes its frames";
  EXPECT_EQ(encoder->frameCount(), 0);
  EXPECT_EQ(encoder->videoBitRate(), 4608000) << "an adapted rate is forgotten";
  encode(*encoder, 1);
  EXPECT_TRUE(log_.calls.back().forceKeyFrame);
  EXPECT_EQ(log_.calls.back().presentationFrames, 1);
  // The new session's key frame brings other sets, but the first ones stay.
  EXPECT_EQ(recorder_->frames.back()->sps, firstSps);
}

TEST_F(VideoEncoderTest, WithoutASessionPicturesVanishUntilTheNextReturn) {
  log_.failCreation = true;
  auto encoder = makeEncoder();
  EXPECT_FALSE(encoder->hasCompressionSession());
  EXPECT_EQ(encoder->preferredPixelFormat(), PixelFormat::bgra);
  encode(*encoder, 3);
  EXPECT_TRUE(recorder_->frames.empty());
  log_.failCreation = false;
  lifecycle_->sendEvent(LifecycleEvent::willResignActive);
  lifecycle_->sendEvent(LifecycleEvent::didBecomeActive);
  main_.drain();
  encode(*encoder, 1);
  EXPECT_EQ(recorder_->frames.size(), 1u);
}

// "Auto" tags the camera's matrix, which the setting only guesses: a first camera picture
// in the other matrix makes the session again; later ones, BGRA or fixed tags do not.
TEST_F(VideoEncoderTest, AutoTagsFollowTheFirstCameraPicturesMatrix) {
  defaults_->setString(keys::colorspace, "Auto");
  defaults_->setBool(keys::isCamBT601, true);
  auto bt709 = PixelBuffer::createYuv(PixelFormat::nv12, 320, 240, YuvMatrix::bt709, false);
  auto bt601 = PixelBuffer::createYuv(PixelFormat::nv12, 320, 240, YuvMatrix::bt601, false);
  auto encoder = makeEncoder();
  EXPECT_EQ(log_.created.at(0).colour.matrixTag, YCbCrMatrix::bt601) << "the setting's guess";
  encoder->encodeVideoData(bt709, 1000);
  encoder->encodeVideoData(bt601, 1033);
  ASSERT_EQ(log_.created.size(), 2u);
  EXPECT_EQ(log_.created[1].colour.matrixTag, YCbCrMatrix::bt709);
  ASSERT_EQ(log_.calls.size(), 2u);
  EXPECT_EQ(std::tuple(log_.calls[0].presentationFrames, log_.calls[0].forceKeyFrame),
            std::tuple(int64_t{1}, true))
      << "the new session's first picture";

  encoder = makeEncoder();  // BGRA first: the setting's guess stays
  encode(*encoder, 1);
  encoder->encodeVideoData(bt709, 1033);
  EXPECT_EQ(log_.created.size(), 3u);

  defaults_->setString(keys::colorspace, "BT.601");
  encoder = makeEncoder();
  encoder->encodeVideoData(bt709, 1000);
  EXPECT_EQ(log_.created.size(), 4u) << "fixed tags: the picture is converted";
}

}  // namespace
}  // namespace oxelo
