// The encoder on the real software codecs: what the host receives must decode.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "encoding/LFHardwareVideoEncoder.h"
#include "encoding/LibavVideoCodecSession.h"
#include "encoding/PictureConverter.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/encoding/EncodingTestSupport.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace oxelo {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

struct CodecCase {
  const char* name;
  const char* encoder;
  bool hevc;
};

class LibavVideoEncoderTest : public testing::TestWithParam<CodecCase> {
 protected:
  std::shared_ptr<LFHardwareVideoEncoder> makeEncoder(uint64_t bitRate = 400000,
                                                      uint64_t keyFrameInterval = 30) {
    defaults_->setInteger(keys::videoEncoder, GetParam().hevc ? 1 : 0);
    configuration_ = test::smallVideoConfiguration(kWidth, kHeight, 30, bitRate);
    configuration_->setVideoMaxKeyframeInterval(keyFrameInterval);
    auto encoder = LFHardwareVideoEncoder::create(
        configuration_, LibavVideoCodecSession::factory({GetParam().encoder}), nullptr);
    encoder->setDelegate(recorder_);
    return encoder;
  }
  void encode(LFHardwareVideoEncoder& encoder, int from, int count) {
    for (int i = from; i < from + count; ++i)
      encoder.encodeVideoData(test::movingPicture(kWidth, kHeight, i), 7000 + i * 33);
  }
  bool isParameterSet(const std::vector<uint8_t>& unit) const {
    const auto kind = nalKind(GetParam().hevc ? VideoCodec::hevc : VideoCodec::h264, unit);
    return kind == NalKind::vps || kind == NalKind::sps || kind == NalKind::pps;
  }

  test::ScopedDefaults defaults_;
  std::shared_ptr<LFLiveVideoConfiguration> configuration_;
  std::shared_ptr<test::VideoFrameRecorder> recorder_ =
      std::make_shared<test::VideoFrameRecorder>();
};

// Every picture in order with its time, key frames only where forced, bodies of
// length-prefixed units without the sets, which come apart; the stream decodes.
TEST_P(LibavVideoEncoderTest, StreamDecodesWithKeyFramesOnlyWhereForced) {
  auto encoder = makeEncoder();
  ASSERT_EQ(encoder->encoderName(), GetParam().encoder);
  encode(*encoder, 0, 61);
  encoder->stopEncoder();
  ASSERT_EQ(recorder_->frames.size(), 61u) << "no frame is held back or dropped";
  const VideoCodec codec = GetParam().hevc ? VideoCodec::hevc : VideoCodec::h264;
  const auto& first = recorder_->frames[0];
  std::vector<uint8_t> stream;  // the sets, each of its kind; a VPS for HEVC only
  for (auto [set, kind] : {std::pair{first->vps, NalKind::vps},
                           {first->sps, NalKind::sps},
                           {first->pps, NalKind::pps}}) {
    ASSERT_EQ(hasBytes(set), kind != NalKind::vps || GetParam().hevc);
    if (!set) continue;
    EXPECT_EQ(nalKind(codec, *set), kind);
    test::TestDecoder::appendAnnexB(stream, *set);
  }
  test::TestDecoder decoder(GetParam().hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
  std::vector<size_t> keys;
  std::vector<std::pair<int, int>> sizes;
  for (size_t i = 0; i < recorder_->frames.size(); ++i) {
    const auto& frame = recorder_->frames[i];
    EXPECT_EQ(frame->timestamp, 7000 + i * 33) << "in order, with capture time";
    EXPECT_EQ(frame->sps, first->sps);
    if (frame->isKeyFrame) keys.push_back(i + 1);
    auto units = test::lengthPrefixedUnits(frame->data);
    ASSERT_TRUE(units && !units->empty()) << "frame " << i << ": lengths do not cover the body";
    for (const auto& unit : *units) {
      EXPECT_FALSE(isParameterSet(unit)) << "frame " << i;
      EXPECT_NE(unit.back(), 0) << "no trailing zero bytes of the start code";
      test::TestDecoder::appendAnnexB(stream, unit);
    }
    auto out = decoder.decode(stream);
    sizes.insert(sizes.end(), out.begin(), out.end());
    stream.clear();
  }
  EXPECT_EQ(keys, (std::vector<size_t>{1, 31, 61}));
  EXPECT_EQ(decoder.errors(), 0);
  EXPECT_GE(sizes.size(), 60u) << "a decoder may hold one picture back";
  for (const auto& size : sizes) EXPECT_EQ(size, std::make_pair(kWidth, kHeight));
}

// A rate change adds no key frame: libx264 takes it at once, libx265 (opened again
// for it) at the next scheduled key frame.
TEST_P(LibavVideoEncoderTest, RateChangeAddsNoKeyFrame) {
  auto encoder = makeEncoder(400000, /*keyFrameInterval=*/10);
  const bool inPlace = !GetParam().hevc;
  encode(*encoder, 0, 14);
  encoder->setVideoBitRate(800000);  // mid-interval: frames 11 to 20
  const int64_t untilNextKey = inPlace ? 800000 : 400000;
  for (int i = 14; i < 20; ++i) {
    encode(*encoder, i, 1);
    EXPECT_EQ(encoder->rateControl().averageBitRate, untilNextKey) << "frame " << i + 1;
  }
  encode(*encoder, 20, 1);
  const RateControl now = encoder->rateControl();
  EXPECT_EQ(now.averageBitRate, 800000) << "in force from frame 21";
  // Drained at the average: any second holds at most 500000 bytes.
  EXPECT_EQ(now.maxBitRate, 800000);
  EXPECT_EQ((now.bufferBits + now.maxBitRate) / 8, 500000);
  encode(*encoder, 21, 14);
  encoder->stopEncoder();
  ASSERT_EQ(recorder_->frames.size(), 35u);
  std::vector<size_t> keys;
  for (size_t i = 0; i < recorder_->frames.size(); ++i)
    if (recorder_->frames[i]->isKeyFrame) keys.push_back(i + 1);
  EXPECT_EQ(keys, (std::vector<size_t>{1, 11, 21, 31}));
  EXPECT_EQ(encoder->encoderName(), GetParam().encoder);
}

INSTANTIATE_TEST_SUITE_P(Codecs, LibavVideoEncoderTest,
                         testing::Values(CodecCase{"H264", "libx264", false},
                                         CodecCase{"Hevc", "libx265", true}),
                         [](const auto& info) { return std::string(info.param.name); });

struct RateCase {
  const char* name;
  const char* encoder;
  int64_t firstRate, secondRate;  // bits per second; the second one lower
  int limitTimesAverage;          // the byte limit per second, in average byte rates
};

class LibavRateTest : public testing::TestWithParam<RateCase> {};

// 4 s at one average, lowered mid-interval, 4 s more: each stretch near its average,
// no second above the limit in force, no key frame of the change's own.
TEST_P(LibavRateTest, FollowsTheAverageWithinTheLimit) {
  const auto& c = GetParam();
  constexpr int kFps = 30;
  VideoCodecSettings settings;
  settings.codec = std::string(c.encoder) == "libx265" ? VideoCodec::hevc : VideoCodec::h264;
  settings.width = kWidth;
  settings.height = kHeight;
  settings.expectedFrameRate = kFps;
  settings.maxKeyFrameInterval = kFps;
  settings.averageBitRate = c.firstRate;
  settings.dataRateLimitBytes = c.firstRate * c.limitTimesAverage / 8;
  settings.dataRateLimitSeconds = 1;
  std::vector<CodedSample> samples;
  auto session = LibavVideoCodecSession::open(
      settings, [&](CodedSample&& s) { samples.push_back(std::move(s)); }, {c.encoder});
  ASSERT_TRUE(session);
  for (int i = 0; i < 8 * kFps; ++i) {
    if (i == 4 * kFps + kFps / 2) {
      session->setBitRate(c.secondRate, c.secondRate * c.limitTimesAverage / 8, 1.0);
    }
    session->encodeFrame(test::movingPicture(kWidth, kHeight, i), i + 1, i % kFps == 0,
                         static_cast<uint64_t>(i));
  }
  session->completeFrames();
  ASSERT_EQ(samples.size(), size_t{8 * kFps});

  std::vector<size_t> bytes;
  for (size_t i = 0; i < samples.size(); ++i) {
    bytes.push_back(samples[i].data.size());
    EXPECT_EQ(samples[i].isSync, i % kFps == 0) << "picture " << i;
  }
  auto bytesOf = [&](size_t from, size_t to) {
    return static_cast<double>(std::accumulate(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                                               bytes.begin() + static_cast<std::ptrdiff_t>(to),
                                               size_t{0}));
  };
  EXPECT_NEAR(bytesOf(0, 4 * kFps) * 8 / 4, c.firstRate, c.firstRate * 0.25);
  EXPECT_NEAR(bytesOf(6 * kFps, 8 * kFps) * 8 / 2, c.secondRate, c.secondRate * 0.25);
  for (size_t i = 0; i + kFps <= bytes.size(); ++i) {
    const int64_t rate = i < 4 * kFps + kFps / 2 ? c.firstRate : c.secondRate;
    EXPECT_LE(bytesOf(i, i + kFps), static_cast<double>(rate * c.limitTimesAverage / 8))
        << "the second from picture " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, LibavRateTest,
                         testing::Values(RateCase{"H264", "libx264", 900000, 300000, 5},
                                         RateCase{"H264TightLimit", "libx264", 300000, 150000, 2},
                                         RateCase{"Hevc", "libx265", 800000, 300000, 5}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(LibavSessionTest, NoEncoderOpensGivesNoSessionAndALogLine) {
  test::LogCapture log;
  VideoCodecSettings settings;
  settings.width = kWidth;
  settings.height = kHeight;
  settings.expectedFrameRate = 30;
  EXPECT_EQ(
      LibavVideoCodecSession::open(settings, [](CodedSample&&) {}, {"no_such_encoder", "libx265"}),
      nullptr)
      << "libx265 is not an H.264 encoder";
  EXPECT_EQ(log.count("VideoEncoder: no H.264 encoder could be opened"), 1u);
}

// Pure red through each matrix, limited range: Y = 16 + 219 Kr,
// Cb = 128 - 112 Kr / (1 - Kb).
TEST(PictureConverterTest, ConvertsWithTheMatrixAsked) {
  auto red = PixelBuffer::create(16, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) std::memcpy(red->row(y) + 4 * x, "\x00\x00\xff\xff", 4);
  // BT.601: Kr 0.299, Kb 0.114 -> Y 81.5, Cb 90.2;
  // BT.709: Kr 0.2126, Kb 0.0722 -> Y 62.6, Cb 102.3.
  for (auto [matrix, luma, cb] :
       {std::tuple{YCbCrMatrix::bt601, 81, 90}, std::tuple{YCbCrMatrix::bt709, 63, 102}}) {
    PictureConverter converter(16, 16, AV_PIX_FMT_YUV420P, matrix);
    ASSERT_TRUE(converter.valid());
    AVFrame* frame = av_frame_alloc();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = frame->height = 16;
    ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
    ASSERT_TRUE(converter.convert(*red, frame));
    EXPECT_NEAR(frame->data[0][8 * frame->linesize[0] + 8], luma, 2);
    EXPECT_NEAR(frame->data[1][4 * frame->linesize[1] + 4], cb, 2);
    av_frame_free(&frame);
  }
}

}  // namespace
}  // namespace oxelo
