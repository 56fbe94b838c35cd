#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"
#include "wire/CommandPackets.h"
#include "wire/InfoPacket.h"
#include "wire/MediaPackets.h"
#include "wire/TailBlocks.h"
#include "wire/WireStream.h"

namespace oxelo::wire {
namespace {

using test::cat;
using test::hex;

Bytes bodyOf(const Bytes& packet) { return Bytes(packet.begin() + 12, packet.end()); }

TEST(WireParserTest, ReadsTheInfoPacket) {
  auto p = parseInfoPacket(test::deskInfoPacket());
  ASSERT_TRUE(p.ok()) << wireErrorText(p.error());
  EXPECT_EQ(p->width, 1920u);
  EXPECT_EQ(p->height, 1080u);
  EXPECT_EQ(p->frameRate, 30u);
  EXPECT_EQ(p->videoBitRate, 4000000u);
  EXPECT_EQ(p->videoEncoder, 1u);
  EXPECT_EQ(p->audioSampleRate, 48000u);
  EXPECT_EQ(p->audioChannels, 2u);
  EXPECT_EQ(p->audioBitRate, 128000u);
  EXPECT_EQ(p->deviceName, u"Desk");
  EXPECT_EQ(p->videoSizes, (std::vector<InfoPacket::Size>{{640, 360}, {1280, 720}, {1920, 1080}}));
  EXPECT_EQ(p->frameRates, (std::vector<int32_t>{24, 29, 30, 60}));
  EXPECT_TRUE(p->hevcDecodeSupported);
}

TEST(WireParserTest, ReadsANameOf119UnitsAndANonAsciiName) {
  Bytes packet = test::deskInfoPacket();
  Bytes name = test::repeat("41 00", 119);
  std::copy(name.begin(), name.end(), packet.begin() + 44);
  auto p = parseInfoPacket(packet);
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(p->deviceName, std::u16string(119, u'A'));

  packet = test::deskInfoPacket();
  test::place(packet, 44, "43 00 61 00 66 00 E9 00 20 00 3D D8 F7 DC");
  p = parseInfoPacket(packet);
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(p->deviceName, u"Caf\u00e9 \U0001F4F7");
}

TEST(WireParserTest, ReadsBothSequenceHeaders) {
  auto h264 = parseVideoSequenceHeader(test::h264SequenceHeaderBody(), VideoCodec::H264);
  ASSERT_TRUE(h264.ok()) << wireErrorText(h264.error());
  EXPECT_EQ(h264->profile, (std::array<uint8_t, 3>{0x64, 0x00, 0x1F}));
  EXPECT_EQ(h264->sps, test::h264Sps());
  EXPECT_EQ(h264->pps, test::h264Pps());
  EXPECT_TRUE(h264->vps.empty());

  auto hevc = parseVideoSequenceHeader(test::hevcSequenceHeaderBody(), VideoCodec::HEVC);
  ASSERT_TRUE(hevc.ok()) << wireErrorText(hevc.error());
  EXPECT_EQ(hevc->vps, test::hevcVps());
  EXPECT_EQ(hevc->sps, test::hevcSps());
  EXPECT_EQ(hevc->pps, test::hevcPps());
}

TEST(WireParserTest, ReadsFramesAndTheirUnits) {
  auto header = parsePacketHeader(test::interFramePacket());
  ASSERT_TRUE(header.ok());
  EXPECT_EQ(header->type, 9u);
  EXPECT_EQ(header->timestamp, 1033u);
  EXPECT_EQ(header->size, 22u);

  auto frame = parseVideoFrameBody(bodyOf(test::interFramePacket()));
  ASSERT_TRUE(frame.ok());
  EXPECT_FALSE(frame->isKeyFrame);
  auto units = splitLengthPrefixedUnits(frame->data);
  ASSERT_TRUE(units.ok());
  EXPECT_EQ(*units, (std::vector<Bytes>{hex("41 9A"), hex("01 02 03")}));

  auto key = parseVideoFrameBody(test::keyFrameBody());
  ASSERT_TRUE(key.ok());
  EXPECT_TRUE(key->isKeyFrame);
  EXPECT_EQ(key->data, test::keyFrameData());
}

TEST(WireParserTest, TellsVideoBodiesApart) {
  EXPECT_EQ(*videoBodyKind(test::h264SequenceHeaderBody()), VideoBodyKind::SequenceHeader);
  EXPECT_EQ(*videoBodyKind(test::keyFrameBody()), VideoBodyKind::KeyFrame);
  EXPECT_EQ(*videoBodyKind(bodyOf(test::interFramePacket())), VideoBodyKind::InterFrame);
  EXPECT_EQ(videoBodyKind(hex("27 00")).error(), WireError::WrongKind);
}

TEST(WireParserTest, ReadsAudioBodies) {
  auto header = parseAudioBody(bodyOf(test::audioHeaderPacket()));
  ASSERT_TRUE(header.ok());
  EXPECT_TRUE(header->isSequenceHeader);
  EXPECT_EQ(header->payload, test::audioInfo());
  auto frame = parseAudioBody(bodyOf(test::audioFramePacket()));
  ASSERT_TRUE(frame.ok());
  EXPECT_FALSE(frame->isSequenceHeader);
  EXPECT_EQ(frame->payload, hex("21 10 05"));
}

TEST(WireParserTest, ReadsTheStatusBlock) {
  auto b = parseStatusBlock(test::statusBlock());
  ASSERT_TRUE(b.ok()) << wireErrorText(b.error());
  EXPECT_EQ(b->session, (SessionFlags{1, true, false, 3, 2}));
  EXPECT_EQ(b->exposure, 156);
  EXPECT_EQ(b->exposureFlags, (ControlFlags{true, false, true, 3}));
  EXPECT_EQ(b->temperature, 5500);
  EXPECT_EQ(b->whiteBalanceFlags, (ControlFlags{false, true, false, 0}));
  EXPECT_EQ(b->lensPosition, 50);
  EXPECT_EQ(b->focusFlags, (ControlFlags{false, false, false, 2}));
  EXPECT_EQ(b->iso, 200);
  EXPECT_EQ(b->bias, -15);
  EXPECT_EQ(b->zoom, 23);
  EXPECT_EQ(b->battery, 175);
}

TEST(WireParserTest, ReadsCapabilityBlocks) {
  auto front = parseCapabilityBlock(test::frontCapabilityBlock());
  ASSERT_TRUE(front.ok()) << wireErrorText(front.error());
  EXPECT_EQ(front->cameraKind, 0u);
  EXPECT_EQ(front->exposureMin, 1);
  EXPECT_EQ(front->exposureMax, 5000);
  EXPECT_EQ(front->exposureCapabilities, 7u);
  EXPECT_EQ(front->isoMin, 34);
  EXPECT_EQ(front->isoMax, 2176);
  EXPECT_EQ(front->biasMin, -80);
  EXPECT_EQ(front->zoomMax, 40);

  auto tele = parseCapabilityBlock(test::telephotoCapabilityBlock());
  ASSERT_TRUE(tele.ok()) << wireErrorText(tele.error());
  EXPECT_EQ(tele->cameraKind, 7u);
  EXPECT_EQ(tele->focusCapabilities, 3u);
  EXPECT_EQ(tele->isoCapability, 0u);
  EXPECT_EQ(tele->zoomMax, 152);
}

TEST(WireParserTest, ReadsRequestsAndTheStopNotice) {
  auto record = parsePhoneCommand(test::recordStartCommand());
  ASSERT_TRUE(record.ok());
  EXPECT_EQ(record->command, 17u);
  EXPECT_EQ(record->parameter, 1u);
  auto stop = parsePhoneCommand(test::stopNotice());
  ASSERT_TRUE(stop.ok());
  EXPECT_EQ(stop->command, 20u);
  EXPECT_FALSE(stop->parameter.has_value());
}

TEST(WireParserTest, CutsTheTcpStreamIntoRecords) {
  Bytes stream =
      cat({test::deskInfoPacket(), test::h264SequenceHeaderPacket(), test::frontCapabilityBlock(),
           test::keyFramePacket(), test::statusBlock(), test::audioHeaderPacket(),
           test::interFramePacket(), test::audioFramePacket(), test::snapshotCommand()});
  std::vector<std::pair<uint32_t, size_t>> records;
  ByteView rest(stream);
  while (!rest.empty()) {
    auto r = nextRecord(rest);
    ASSERT_TRUE(r.ok()) << wireErrorText(r.error()) << " after " << records.size();
    records.emplace_back(r->type, r->length);
    rest = rest.subspan(r->length);
  }
  EXPECT_EQ(
      records,
      (std::vector<std::pair<uint32_t, size_t>>{
          {18, 444}, {9, 39}, {16, 88}, {9, 30}, {16, 56}, {8, 16}, {9, 34}, {8, 17}, {136, 12}}));
}

template <typename T>
std::optional<WireError> errorOf(const Parsed<T>& p) {
  return p.ok() ? std::nullopt : std::optional<WireError>(p.error());
}
using Parse = std::function<std::optional<WireError>(ByteView)>;  // nothing when it parsed
const Parse parseInfo = [](ByteView b) { return errorOf(parseInfoPacket(b)); };
const Parse parseH264 = [](ByteView b) {
  return errorOf(parseVideoSequenceHeader(b, VideoCodec::H264));
};
const Parse parseHevc = [](ByteView b) {
  return errorOf(parseVideoSequenceHeader(b, VideoCodec::HEVC));
};
const Parse parseFrame = [](ByteView b) { return errorOf(parseVideoFrameBody(b)); };
const Parse parseStatus = [](ByteView b) { return errorOf(parseStatusBlock(b)); };
const Parse parseCapability = [](ByteView b) { return errorOf(parseCapabilityBlock(b)); };
const Parse parseCommand = [](ByteView b) { return errorOf(parsePhoneCommand(b)); };
const Parse parseAudio = [](ByteView b) { return errorOf(parseAudioBody(b)); };
const Parse parseUnits = [](ByteView b) { return errorOf(splitLengthPrefixedUnits(b)); };
const Parse parseStream = [](ByteView b) { return errorOf(nextRecord(b)); };
const Parse parseHeader = [](ByteView b) { return errorOf(parsePacketHeader(b)); };

// Every hand-written record, cut short anywhere, asks for more bytes.
struct CutCase {
  const char* name;
  Bytes whole;
  Parse parse;
};

class TruncationTest : public testing::TestWithParam<CutCase> {};

TEST_P(TruncationTest, EveryShorterPrefixIsTruncated) {
  const auto& c = GetParam();
  ASSERT_EQ(c.parse(c.whole), std::nullopt) << "the whole record must parse";
  for (size_t n = 0; n < c.whole.size(); ++n)
    ASSERT_EQ(c.parse(ByteView(c.whole).first(n)), WireError::Truncated) << n << " bytes";
}

INSTANTIATE_TEST_SUITE_P(
    Records, TruncationTest,
    testing::Values(CutCase{"InfoPacket", test::deskInfoPacket(), parseInfo},
                    CutCase{"H264SequenceHeader", test::h264SequenceHeaderBody(), parseH264},
                    CutCase{"HevcSequenceHeader", test::hevcSequenceHeaderBody(), parseHevc},
                    CutCase{"KeyFrameBody", test::keyFrameBody(), parseFrame},
                    CutCase{"StatusBlock", test::statusBlock(), parseStatus},
                    CutCase{"CapabilityBlock", test::telephotoCapabilityBlock(), parseCapability},
                    CutCase{"Request", test::recordStartCommand(), parseCommand},
                    CutCase{"StopNotice", test::stopNotice(), parseCommand},
                    CutCase{"StreamInfo", test::deskInfoPacket(), parseStream},
                    CutCase{"StreamKeyFrame", test::keyFramePacket(), parseStream},
                    CutCase{"StreamStatusBlock", test::statusBlock(), parseStream},
                    CutCase{"StreamRequest", test::snapshotCommand(), parseStream}),
    [](const auto& info) { return std::string(info.param.name); });

// Hand-written records with one field spoiled.
struct SpoiltCase {
  const char* name;
  Bytes bytes;
  Parse parse;
  WireError error;
};

Bytes spoil(Bytes b, size_t offset, const char* text) {
  test::place(b, offset, text);
  return b;
}

class MalformedTest : public testing::TestWithParam<SpoiltCase> {};

TEST_P(MalformedTest, IsRefusedWithItsReason) {
  EXPECT_EQ(GetParam().parse(GetParam().bytes), GetParam().error);
}

using enum WireError;
const Bytes desk = test::deskInfoPacket(), h264 = test::h264SequenceHeaderBody(),
            hevc = test::hevcSequenceHeaderBody(), key = test::keyFrameBody(),
            status = test::statusBlock(), front = test::frontCapabilityBlock();

INSTANTIATE_TEST_SUITE_P(
    Records, MalformedTest,
    testing::Values(
        SpoiltCase{"InfoWrongType", spoil(desk, 0, "09"), parseInfo, WrongType},
        SpoiltCase{"InfoFormatWord", spoil(desk, 4, "02"), parseInfo, Malformed},
        SpoiltCase{"InfoReservedTail", spoil(desk, 443, "01"), parseInfo, Malformed},
        SpoiltCase{"InfoGarbageBehindName", spoil(desk, 60, "41 00"), parseInfo, Malformed},
        SpoiltCase{"InfoLastNameUnitSet", spoil(desk, 282, "41 00"), parseInfo, Malformed},
        SpoiltCase{"InfoHevcFlagTwo", spoil(desk, 408, "02"), parseInfo, Malformed},
        SpoiltCase{"SequenceHeaderMark", spoil(h264, 10, "E2"), parseH264, Malformed},
        SpoiltCase{"SequenceHeaderProfile", spoil(h264, 7, "01"), parseH264, Malformed},
        SpoiltCase{"SequenceHeaderByteBehind", cat({h264, hex("00")}), parseH264, BadLength},
        SpoiltCase{"SequenceHeaderAsFrame", spoil(h264, 1, "01"), parseH264, WrongKind},
        SpoiltCase{"HevcRunWithoutStartCode", spoil(hevc, 28, "00 00 00 02"), parseHevc, Malformed},
        SpoiltCase{"FrameLengthShort", spoil(key, 5, "00 00 00 08"), parseFrame, BadLength},
        SpoiltCase{"FrameWithCompositionTime", spoil(key, 4, "01"), parseFrame, Malformed},
        SpoiltCase{"FrameUnknownTag", spoil(key, 0, "18"), parseFrame, WrongKind},
        SpoiltCase{"StatusReservedBit", spoil(status, 12, "0D"), parseStatus, Malformed},
        SpoiltCase{"StatusFocusCustomBit", spoil(status, 36, "04"), parseStatus, Malformed},
        SpoiltCase{"StatusSizeWord", spoil(status, 8, "2D"), parseStatus, BadLength},
        SpoiltCase{"StatusUnknownKind", spoil(status, 4, "03"), parseStatus, WrongKind},
        SpoiltCase{"CapabilityReadAsStatus", front, parseStatus, WrongKind},
        SpoiltCase{"CapabilityTemperature", spoil(front, 28, "D1"), parseCapability, Malformed},
        SpoiltCase{"CapabilityZoomMinimum", spoil(front, 76, "0B"), parseCapability, Malformed},
        SpoiltCase{"AudioTag", hex("AE 01 21"), parseAudio, WrongKind},
        SpoiltCase{"AudioKind", hex("AF 02 21"), parseAudio, WrongKind},
        SpoiltCase{"UnitPastTheEnd", hex("00 00 00 05 | 65 88"), parseUnits, BadLength},
        SpoiltCase{"EmptyUnit", hex("00 00 00 00"), parseUnits, BadLength},
        SpoiltCase{"LengthWordCut", hex("00 00 00 01 | 65 | 00 00"), parseUnits, BadLength},
        SpoiltCase{"StreamUnknownType", hex("07 00 00 00 00 00 00 00"), parseStream, WrongType},
        SpoiltCase{"StreamHugeBody", hex("09000000 | 00000000 | 00000010"), parseStream, BadLength},
        SpoiltCase{"HeaderOfTailBlock", status, parseHeader, WrongType}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::wire
