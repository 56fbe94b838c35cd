#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "encoding/LFHardwareAudioEncoder.h"
#include "tests/encoding/EncodingTestSupport.h"

namespace oxelo {
namespace {

std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration(uint64_t channels, uint64_t rate,
                                                             uint64_t bitrate) {
  auto configuration = std::make_shared<LFLiveAudioConfiguration>();
  configuration->setNumberOfChannels(channels);
  configuration->setAudioBitrate(bitrate);
  configuration->setAudioSampleRate(rate);
  return configuration;
}

class AudioFrameRecorder final : public LFAudioEncodingDelegate {
 public:
  void audioEncoderAudioFrame(LFAudioEncoding*, std::shared_ptr<LFAudioFrame> frame) override {
    frames.push_back(std::move(frame));
  }
  std::vector<std::shared_ptr<LFAudioFrame>> frames;
};

// Keeps each block, answering with a packet that names the block's number.
struct BlockLog {
  std::vector<std::vector<uint8_t>> blocks;
  int failuresLeft = 0;
  int creations = 0;
};

AacConverterFactory recordingFactory(BlockLog& log) {
  struct Recording final : AacConverter {
    BlockLog& log;
    size_t length;
    Recording(BlockLog& l, size_t n) : log(l), length(n) {}
    int encodeBlock(const uint8_t* pcm, std::vector<uint8_t>& packet) override {
      log.blocks.emplace_back(pcm, pcm + length);
      packet = {0xaa, static_cast<uint8_t>(log.blocks.size())};
      return 0;
    }
  };
  return [&log](const LFLiveAudioConfiguration& configuration) -> std::unique_ptr<AacConverter> {
    ++log.creations;
    if (log.failuresLeft > 0) {
      --log.failuresLeft;
      return nullptr;
    }
    return std::make_unique<Recording>(log, configuration.bufferLength());
  };
}

Bytes counting(size_t n, uint8_t first) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(first + i);
  return bytes;
}

// An encoder on a recording converter, its frames kept.
struct RecordedEncoder {
  RecordedEncoder(uint64_t channels, int failures = 0)
      : encoder(audioConfiguration(channels, 48000, 96000), recordingFactory(log)) {
    log.failuresLeft = failures;
    encoder.setDelegate(recorder);
  }
  BlockLog log;
  std::shared_ptr<AudioFrameRecorder> recorder = std::make_shared<AudioFrameRecorder>();
  LFHardwareAudioEncoder encoder;
};

struct RegroupCase {
  const char* name;
  uint64_t channels;
  std::vector<size_t> calls;          // bytes per call
  std::vector<size_t> framesPerCall;  // frames after each call
  int64_t leftLength;
};

class AudioRegroupTest : public testing::TestWithParam<RegroupCase> {};

TEST_P(AudioRegroupTest, RegroupsIntoWholeBlocks) {
  const auto& c = GetParam();
  RecordedEncoder e(c.channels);
  auto& [log, recorder, encoder] = e;
  Bytes all;
  for (size_t i = 0; i < c.calls.size(); ++i) {
    Bytes data = counting(c.calls[i], static_cast<uint8_t>(all.size()));
    all.insert(all.end(), data.begin(), data.end());
    const size_t before = recorder->frames.size();
    encoder.encodeAudioData(data, 100 + i);
    ASSERT_EQ(recorder->frames.size(), c.framesPerCall[i]) << "after call " << i;
    // Each frame is its block's packet, with the time of the call that completed it.
    for (size_t f = before; f < recorder->frames.size(); ++f) {
      EXPECT_EQ(recorder->frames[f]->timestamp, 100 + i);
      EXPECT_EQ(recorder->frames[f]->data, (Bytes{0xaa, static_cast<uint8_t>(f + 1)}));
    }
  }
  EXPECT_EQ(encoder.leftLength(), c.leftLength);
  // The blocks are the PCM in order, cut every bufferLength bytes.
  const size_t blockLength = c.channels << 11;
  ASSERT_EQ(log.blocks.size(), recorder->frames.size());
  for (size_t b = 0; b < log.blocks.size(); ++b) {
    EXPECT_TRUE(std::equal(log.blocks[b].begin(), log.blocks[b].end(),
                           all.begin() + static_cast<std::ptrdiff_t>(b * blockLength)))
        << "block " << b;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Blocks, AudioRegroupTest,
    testing::Values(RegroupCase{"MonoOneByteShortThenOne", 1, {2047, 1}, {0, 1}, 0},
                    RegroupCase{"StereoHeldThenTwoBlocksAndRest", 2, {1000, 8000}, {0, 2}, 808},
                    RegroupCase{"MonoExactBlock", 1, {2048}, {1}, 0},
                    RegroupCase{
                        "StereoSmallPieces", 2, {1500, 1500, 1500, 1500}, {0, 0, 1, 1}, 1904},
                    RegroupCase{"MonoEmptyCall", 1, {0, 2048}, {0, 1}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AudioEncoderTest, ConverterIsMadeWithTheFirstPcmRetriedAfterFailureAndStopKeepsHeldPcm) {
  RecordedEncoder e(1, /*failures=*/2);
  auto& [log, recorder, encoder] = e;
  EXPECT_EQ(log.creations, 0) << "not at construction";
  encoder.encodeAudioData(Bytes(2048, 1), 1);  // lost
  encoder.encodeAudioData(Bytes(1000, 2), 2);  // lost
  EXPECT_FALSE(encoder.hasConverter());
  EXPECT_EQ(encoder.leftLength(), 0);
  encoder.encodeAudioData(counting(2048, 0), 3);
  EXPECT_EQ(log.creations, 3);
  ASSERT_EQ(log.blocks.size(), 1u);
  EXPECT_EQ(log.blocks[0], counting(2048, 0)) << "nothing of the failed calls is kept";
  encoder.encodeAudioData(Bytes(2048), 4);
  EXPECT_EQ(log.creations, 3) << "made once";
  encoder.encodeAudioData(counting(2000, 0), 5);
  encoder.stopEncoder();  // keeps the held PCM for the next call
  EXPECT_EQ(encoder.leftLength(), 2000);
  encoder.encodeAudioData(counting(48, 208), 6);
  ASSERT_EQ(log.blocks.size(), 3u);
  EXPECT_EQ(log.blocks[2], counting(2048, 0));
}

struct AscCase {
  const char* name;
  uint64_t channels;
  uint64_t rate;
  Bytes asc;
};

class AudioInfoTest : public testing::TestWithParam<AscCase> {};

// Real AAC: every frame carries the asc, which alone lets a decoder read the raw packets.
TEST_P(AudioInfoTest, RawAacDecodesWithTheAscAlone) {
  const auto& c = GetParam();
  auto recorder = std::make_shared<AudioFrameRecorder>();
  LFHardwareAudioEncoder encoder(audioConfiguration(c.channels, c.rate, 64000));
  encoder.setDelegate(recorder);
  // Half a second of a 1 kHz tone, in pieces of 700 frames.
  const size_t total = c.rate / 2;
  std::vector<int16_t> pcm(total * c.channels);
  for (size_t i = 0; i < total; ++i)
    for (size_t ch = 0; ch < c.channels; ++ch)
      pcm[i * c.channels + ch] =
          static_cast<int16_t>(8000 * std::sin(2 * std::numbers::pi * 1000.0 * i / c.rate));
  const size_t piece = 700 * c.channels * 2;
  const auto* bytes = reinterpret_cast<const uint8_t*>(pcm.data());
  const size_t length = pcm.size() * 2;
  for (size_t at = 0; at < length; at += piece)
    encoder.encodeAudioData(Bytes(bytes + at, bytes + std::min(length, at + piece)), at);
  ASSERT_EQ(recorder->frames.size(), total / 1024) << "one frame per 1024 samples";

  for (const auto& frame : recorder->frames) {
    ASSERT_TRUE(frame->audioInfo);
    EXPECT_EQ(*frame->audioInfo, c.asc);
    ASSERT_FALSE(frame->data.empty());
    EXPECT_NE(frame->data[0], 0xff) << "no ADTS header";
  }
  test::TestDecoder decoder(AV_CODEC_ID_AAC, c.asc);
  ASSERT_TRUE(decoder.opened());
  size_t decoded = 0;
  double energy = 0;
  for (const auto& frame : recorder->frames)
    decoder.decode(frame->data, [&](const AVFrame& out) {
      EXPECT_EQ(out.nb_samples, 1024);
      EXPECT_EQ(out.sample_rate, static_cast<int>(c.rate));
      EXPECT_EQ(out.ch_layout.nb_channels, static_cast<int>(c.channels));
      const auto* samples = reinterpret_cast<const float*>(out.extended_data[0]);
      for (int i = 0; i < out.nb_samples; ++i) energy += samples[i] * samples[i];
      decoded += static_cast<size_t>(out.nb_samples);
    });
  EXPECT_EQ(decoder.errors(), 0);
  EXPECT_EQ(decoded, recorder->frames.size() * 1024);
  EXPECT_GT(energy / static_cast<double>(decoded), 0.01) << "the tone comes through";
}

INSTANTIATE_TEST_SUITE_P(Configurations, AudioInfoTest,
                         testing::Values(AscCase{"Stereo48k", 2, 48000, {0x11, 0x90}},
                                         AscCase{"Stereo44k1", 2, 44100, {0x12, 0x10}},
                                         AscCase{"Mono16k", 1, 16000, {0x14, 0x08}}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DeinterleaveTest, SplitsChannelsAndScales) {
  const int16_t pcm[] = {0, -32768, 16384, 32767, -16384, 1};
  float left[3], right[3];
  float* planes[] = {left, right};
  deinterleaveToFloat(pcm, 3, 2, planes);
  const float want[2][3] = {{0.0f, 0.5f, -0.5f}, {-1.0f, 32767.0f / 32768.0f, 1.0f / 32768.0f}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_FLOAT_EQ(left[i], want[0][i]) << i;
    EXPECT_FLOAT_EQ(right[i], want[1][i]) << i;
  }
}

}  // namespace
}  // namespace oxelo
