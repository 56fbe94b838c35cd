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

Bytes slice(const Bytes& bytes, size_t at, size_t count) {
  return Bytes(bytes.begin() + at, bytes.begin() + at + count);
}

// The sections end in their MPEG-2 CRC, worked out by hand.
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
  const char* config;  // AudioSpecificConfig
  size_t frame;
  const char* expected;  // empty: refused
};

class AdtsHeaderTest : public testing::TestWithParam<AdtsCase> {};

TEST_P(AdtsHeaderTest, FollowsTheAudioSpecificConfig) {
  const auto& c = GetParam();
  auto config = parseAudioSpecificConfig(hex(c.config));
  auto header = config ? adtsHeader(*config, c.frame) : std::nullopt;
  EXPECT_EQ(header ? Bytes(header->begin(), header->end()) : Bytes{}, hex(c.expected));
}

INSTANTIATE_TEST_SUITE_P(Configs, AdtsHeaderTest,
                         testing::Values(AdtsCase{"LcStereo44k", "1210", 100, "FFF15080 0D7FFC"},
                                         AdtsCase{"LcMono48k", "1188", 300, "FFF14C40 267FFC"},
                                         AdtsCase{"SevenChannelsSpanTwoBytes", "11B8", 0,
                                                  "FFF14DC0 00FFFC"},
                                         AdtsCase{"LongestFrame", "1210", 8184, "FFF15083 FFFFFC"},
                                         AdtsCase{"FrameTooLong", "1210", 8185, ""},
                                         AdtsCase{"ExplicitSampleRate", "1788", 100, ""},
                                         AdtsCase{"ChannelsFromAProgramElement", "1200", 100, ""},
                                         AdtsCase{"ObjectTypeBeyondAdts", "2A10", 100, ""},
                                         AdtsCase{"OneByte", "12", 100, ""}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(TransportStreamTest, KeyFrameComesAfterTheTablesWithClockAndStuffing) {
  Bytes out;
  Writer writer(kStreamTypeH264, /*audio=*/false,
                [&](std::span<const uint8_t> p) { out.insert(out.end(), p.begin(), p.end()); });
  const Bytes unit = {0x00, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x00, 0x33, 0xFF};
  writer.writeVideo(90000, 90000, /*key=*/true, unit);
  ASSERT_EQ(out.size(), 3 * kPacketSize);
  EXPECT_EQ(slice(out, 0, 5), hex("47400010 00"));
  EXPECT_EQ(slice(out, 188, 5), hex("47500010 00"));

  const Bytes video(out.begin() + 2 * kPacketSize, out.end());
  // PUSI on PID 0x100, adaptation field and payload, counter 0; a field of
  // 160 bytes: random access, the clock a tenth of a second before the DTS
  // (81000), then stuffing up to the PES.
  EXPECT_EQ(slice(video, 0, 12), hex("47410030 9F 50 0000 9E347E00"));
  EXPECT_EQ(slice(video, 12, 152), Bytes(152, 0xFF));
  EXPECT_EQ(slice(video, 164, 24), test::cat({hex("000001E0 0012 8480 05 2100 05BF 21"), unit}));

  // An inter frame: no tables, the counter goes on, a field for the clock.
  out.clear();
  writer.writeVideo(93000, 93000, /*key=*/false, unit);
  ASSERT_EQ(out.size(), kPacketSize);
  EXPECT_EQ(slice(out, 0, 6), hex("47410031 9F 10"));
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
  EXPECT_EQ(slice(out, 0, 6), hex("47410130 01 40"));
  EXPECT_EQ(slice(out, 188, 5), hex("47010111 AB"));
  EXPECT_EQ(slice(out, 376, 6), hex("47010132 87 00"));
  EXPECT_EQ(slice(out, 376 + 5 + 134, 2), hex("FF AB"));
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
