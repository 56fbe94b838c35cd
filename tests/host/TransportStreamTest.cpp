// The transport stream that the recorder hands to ffmpeg, against bytes
// worked out by hand from the MPEG-2 systems layout and the ADTS header.
#include "tools/host/TransportStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tools/host/Remuxer.h"

namespace oxelo::host::ts {
namespace {

using Bytes = std::vector<uint8_t>;
using testbytes::hex;

TEST(TransportStreamTest, CrcIsMpeg2) {
  const std::string check = "123456789";  // the catalogue's check input
  EXPECT_EQ(crc32Mpeg2({reinterpret_cast<const uint8_t*>(check.data()), check.size()}),
            0x0376E6E7u);
}

TEST(TransportStreamTest, TablesForOneProgram) {
  EXPECT_EQ(patSection(), hex("00B00D 0001 C1 00 00 0001 F000 2AB104B2"));
  EXPECT_EQ(pmtSection(kStreamTypeH264, /*audio=*/true),
            hex("02B017 0001 C1 00 00 E100 F000 1B E100 F000 0F E101 F000 2F44B99B"));
  EXPECT_EQ(pmtSection(kStreamTypeHevc, /*audio=*/false),
            hex("02B012 0001 C1 00 00 E100 F000 24 E100 F000 2F006EE7"));
}

struct PesCase {
  const char* name;
  uint8_t streamId;
  uint64_t pts;
  std::optional<uint64_t> dts;
  size_t payload;
  Bytes expected;
};

class PesHeaderTest : public testing::TestWithParam<PesCase> {};

TEST_P(PesHeaderTest, CarriesTheTimesWithTheirMarkers) {
  const auto& c = GetParam();
  EXPECT_EQ(pesHeader(c.streamId, c.pts, c.dts, c.payload), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Times, PesHeaderTest,
    testing::Values(PesCase{"AudioAtOneSecond", 0xC0, 90000, std::nullopt, 100,
                            hex("000001C0 006C 8480 05 2100 05BF 21")},
                    PesCase{"VideoWithDtsTooLongToCount", 0xE0, 126000, 123000, 70000,
                            hex("000001E0 0000 84C0 0A 3100 07D8 61 1100 07C0 F1")},
                    PesCase{"ThirtyThirdBit", 0xE0, uint64_t(1) << 32, std::nullopt, 0,
                            hex("000001E0 0008 8480 05 2900 0100 01")},
                    PesCase{"WrapsPastThirtyThreeBits", 0xE0, (uint64_t(1) << 33) + 90000,
                            std::nullopt, 0, hex("000001E0 0008 8480 05 2100 05BF 21")}),
    [](const auto& info) { return std::string(info.param.name); });

struct AdtsCase {
  const char* name;
  Bytes config;  // AudioSpecificConfig
  size_t frame;
  std::optional<std::array<uint8_t, 7>> expected;  // none: refused
};

class AdtsHeaderTest : public testing::TestWithParam<AdtsCase> {};

TEST_P(AdtsHeaderTest, FollowsTheAudioSpecificConfig) {
  const auto& c = GetParam();
  auto config = parseAudioSpecificConfig(c.config);
  auto header = config ? adtsHeader(*config, c.frame) : std::nullopt;
  EXPECT_EQ(header, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Configs, AdtsHeaderTest,
    testing::Values(
        AdtsCase{"LcStereo44k", {0x12, 0x10}, 100, {{0xFF, 0xF1, 0x50, 0x80, 0x0D, 0x7F, 0xFC}}},
        AdtsCase{"LcMono48k", {0x11, 0x88}, 300, {{0xFF, 0xF1, 0x4C, 0x40, 0x26, 0x7F, 0xFC}}},
        AdtsCase{"SevenChannelsSpanTwoBytes",
                 {0x11, 0xB8},
                 0,
                 {{0xFF, 0xF1, 0x4D, 0xC0, 0x00, 0xFF, 0xFC}}},
        AdtsCase{"LongestFrame", {0x12, 0x10}, 8184, {{0xFF, 0xF1, 0x50, 0x83, 0xFF, 0xFF, 0xFC}}},
        AdtsCase{"FrameTooLong", {0x12, 0x10}, 8185, std::nullopt},
        AdtsCase{"ExplicitSampleRate", {0x17, 0x88}, 100, std::nullopt},
        AdtsCase{"ChannelsFromAProgramElement", {0x12, 0x00}, 100, std::nullopt},
        AdtsCase{"ObjectTypeBeyondAdts", {0x2A, 0x10}, 100, std::nullopt},
        AdtsCase{"OneByte", {0x12}, 100, std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TransportStreamTest, KeyFrameComesAfterTheTablesWithClockAndStuffing) {
  Bytes out;
  Writer writer(kStreamTypeH264, /*audio=*/false,
                [&](std::span<const uint8_t> p) { out.insert(out.end(), p.begin(), p.end()); });
  const Bytes unit = {0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x00, 0x33, 0xFF};
  writer.writeVideo(90000, 90000, /*key=*/true, unit);
  ASSERT_EQ(out.size(), 3 * kPacketSize);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 5), (Bytes{0x47, 0x40, 0x00, 0x10, 0x00}));
  EXPECT_EQ(Bytes(out.begin() + 188, out.begin() + 193), (Bytes{0x47, 0x50, 0x00, 0x10, 0x00}));

  const Bytes video(out.begin() + 2 * kPacketSize, out.end());
  // PUSI on PID 0x100, adaptation field and payload, counter 0; a field of
  // 160 bytes: random access, the clock a tenth of a second before the DTS
  // (81000), then stuffing up to the PES.
  EXPECT_EQ(Bytes(video.begin(), video.begin() + 12),
            (Bytes{0x47, 0x41, 0x00, 0x30, 159, 0x50, 0x00, 0x00, 0x9E, 0x34, 0x7E, 0x00}));
  EXPECT_EQ(Bytes(video.begin() + 12, video.begin() + 164), Bytes(152, 0xFF));
  Bytes pes = {0x00, 0x00, 0x01, 0xE0, 0x00, 0x12, 0x84, 0x80, 0x05, 0x21, 0x00, 0x05, 0xBF, 0x21};
  pes.insert(pes.end(), unit.begin(), unit.end());
  EXPECT_EQ(Bytes(video.begin() + 164, video.end()), pes);

  // An inter frame: no tables, the counter goes on, a field for the clock.
  out.clear();
  writer.writeVideo(93000, 93000, /*key=*/false, unit);
  ASSERT_EQ(out.size(), kPacketSize);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 6), (Bytes{0x47, 0x41, 0x00, 0x31, 159, 0x10}));
}

TEST(TransportStreamTest, LongPesFillsWholePacketsAndStuffsTheLast) {
  Bytes out;
  Writer writer(kStreamTypeHevc, /*audio=*/true,
                [&](std::span<const uint8_t> p) { out.insert(out.end(), p.begin(), p.end()); });
  writer.writeVideo(0, 0, /*key=*/true, Bytes(3, 0x00));  // the tables, once
  out.clear();
  // 400 bytes of ADTS and a 14-byte PES header: 182 after the 2-byte field
  // of the first packet, 184 in the second, 48 behind a 136-byte field of
  // stuffing in the third.
  writer.writeAudio(0, Bytes(400, 0xAB));
  ASSERT_EQ(out.size(), 3 * kPacketSize);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 6), (Bytes{0x47, 0x41, 0x01, 0x30, 0x01, 0x40}));
  EXPECT_EQ(Bytes(out.begin() + 188, out.begin() + 192), (Bytes{0x47, 0x01, 0x01, 0x11}));
  EXPECT_EQ(out[188 + 4], 0xAB);
  EXPECT_EQ(Bytes(out.begin() + 376, out.begin() + 382),
            (Bytes{0x47, 0x01, 0x01, 0x32, 135, 0x00}));
  EXPECT_EQ(out[376 + 5 + 134], 0xFF);
  EXPECT_EQ(out[376 + 5 + 135], 0xAB);
}

// The recorder without a working ffmpeg: the summary says so.
struct ToolCase {
  const char* name;
  const char* program;
  const char* said;  // part of the error
};

class RecorderToolTest : public testing::TestWithParam<ToolCase> {};

TEST_P(RecorderToolTest, FailureIsAnErrorOfTheSummary) {
  Remuxer remuxer("/tmp/never-written.mkv", GetParam().program);
  wire::VideoSequenceHeader header;
  header.sps = {0x67, 0x42, 0x00, 0x1F};
  header.pps = {0x68, 0xCE, 0x3C, 0x80};
  remuxer.videoSequenceHeader(header, wire::VideoCodec::H264);
  remuxer.videoFrame(0, /*key=*/true, Bytes{0x00, 0x00, 0x00, 0x02, 0x65, 0x88});
  RecordingSummary summary = remuxer.finish();
  ASSERT_EQ(summary.errors.size(), 1u);
  EXPECT_NE(summary.errors[0].find(GetParam().said), std::string::npos) << summary.errors[0];
}

INSTANTIATE_TEST_SUITE_P(Tools, RecorderToolTest,
                         testing::Values(ToolCase{"Missing", "/nonexistent/ffmpeg", "No such file"},
                                         ToolCase{"EndsWithAnError", "false", "exit status 1"}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::host::ts
