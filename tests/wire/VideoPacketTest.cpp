#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"
#include "wire/CarrierMapping.h"
#include "wire/MediaPackets.h"
#include "wire/TailBlocks.h"

namespace oxelo::wire {
namespace {

using test::cat;
using test::hex;

TEST(VideoPacketTest, SequenceHeaderHasEachSetInItsRun) {
  auto body = buildVideoSequenceHeaderBody(test::h264Sps(), test::h264Pps());
  ASSERT_TRUE(body.has_value());
  EXPECT_EQ(*body, test::h264SequenceHeaderBody());
  EXPECT_EQ(buildPacket(kPacketTypeVideo, 0, *body), test::h264SequenceHeaderPacket());
  // HEVC: vps, then sps and pps, in one run.
  EXPECT_EQ(buildVideoSequenceHeaderBody(test::hevcSps(), test::hevcPps(), test::hevcVps()),
            test::hevcSequenceHeaderBody());
}

TEST(VideoPacketTest, SequenceHeaderFromAFrameUsesItsSharedParameterSets) {
  LFVideoFrame frame;
  frame.sps = std::make_shared<const Bytes>(test::hevcSps());
  frame.pps = std::make_shared<const Bytes>(test::hevcPps());
  frame.vps = std::make_shared<const Bytes>(test::hevcVps());
  EXPECT_EQ(buildVideoSequenceHeaderBody(frame), test::hevcSequenceHeaderBody());
  frame.vps = std::make_shared<const Bytes>();  // an empty vps is no vps
  frame.sps = std::make_shared<const Bytes>(test::h264Sps());
  frame.pps = std::make_shared<const Bytes>(test::h264Pps());
  EXPECT_EQ(buildVideoSequenceHeaderBody(frame), test::h264SequenceHeaderBody());
}

struct MissingSetCase {
  const char* name;
  Bytes sps, pps, vps;
};

class SequenceHeaderRefusalTest : public testing::TestWithParam<MissingSetCase> {};

TEST_P(SequenceHeaderRefusalTest, GivesNothing) {
  const auto& c = GetParam();
  EXPECT_FALSE(buildVideoSequenceHeaderBody(c.sps, c.pps, c.vps).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, SequenceHeaderRefusalTest,
    testing::Values(
        MissingSetCase{"NoSps", {}, test::h264Pps(), {}},
        MissingSetCase{"NoPps", test::h264Sps(), {}, {}},
        MissingSetCase{"HevcWithoutPps", test::hevcSps(), {}, test::hevcVps()},
        MissingSetCase{"SpsTooLongForItsLength", Bytes(0x10000, 1), test::h264Pps(), {}},
        MissingSetCase{"HevcRunTooLong", Bytes(0xFFFC, 1), hex("44 01"), test::hevcVps()}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VideoPacketTest, ShortSpsLeavesMissingProfileBytesZero) {
  auto body = buildVideoSequenceHeaderBody(hex("67 64"), hex("68"));
  EXPECT_EQ(body,
            hex("17 | 00 00 00 00 | 01 | 64 00 00 | FF | E1 | 00 02 | 67 64 | 01 | 00 01 | 68"));
}

TEST(VideoPacketTest, FramePacketsCarryTagLengthAndData) {
  EXPECT_EQ(buildPacket(kPacketTypeVideo, 1000, buildVideoFrameBody(true, test::keyFrameData())),
            test::keyFramePacket());
  EXPECT_EQ(buildPacket(kPacketTypeVideo, 1033, buildVideoFrameBody(false, test::interFrameData())),
            test::interFramePacket());
}

TEST(VideoPacketTest, TailBlockRidesBehindTheBodyUncounted) {
  Bytes packet = buildPacket(kPacketTypeVideo, 1000, test::keyFrameBody(), test::statusBlock());
  EXPECT_EQ(packet, cat({test::keyFramePacket(), test::statusBlock()}));
}

TEST(VideoPacketTest, TimestampWordIsTheLowHalf) {
  Bytes packet = buildPacket(kPacketTypeVideo, 0x100000005ull, buildVideoFrameBody(false, {}));
  EXPECT_EQ(packet, hex("09 00 00 00 | 05 00 00 00 | 09 00 00 00 | 27 01 00 00 00 00 00 00 00"));
}

TEST(AudioPacketTest, HeaderCarriesTheConfigurationAndFramesTheirData) {
  EXPECT_EQ(buildPacket(kPacketTypeAudio, 0, buildAudioSequenceHeaderBody(test::audioInfo())),
            test::audioHeaderPacket());
  EXPECT_EQ(buildPacket(kPacketTypeAudio, 23, buildAudioFrameBody(hex("21 10 05"))),
            test::audioFramePacket());
}

struct TailRideCase {
  const char* name;
  uint32_t type;
  Bytes body;
  bool takes;
};

class TakesTailBlockTest : public testing::TestWithParam<TailRideCase> {};

TEST_P(TakesTailBlockTest, OnlyVideoBodiesStartingWith0x17) {
  EXPECT_EQ(takesTailBlock(GetParam().type, GetParam().body), GetParam().takes);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, TakesTailBlockTest,
    testing::Values(TailRideCase{"KeyFrame", 9, test::keyFrameBody(), true},
                    TailRideCase{"SequenceHeader", 9, test::h264SequenceHeaderBody(), true},
                    TailRideCase{"InterFrame", 9, hex("27 01 00 00 00"), false},
                    TailRideCase{"AudioWithSameFirstByte", 8, hex("17 00"), false},
                    TailRideCase{"EmptyVideoBody", 9, {}, false}),
    [](const auto& info) { return std::string(info.param.name); });

// A key frame with a status block behind it: one TCP write, two USB frames.
TEST(CarrierTest, KeyFrameWithStatusBlockOverBothCarriers) {
  PlainStatusSource source(test::statusValues());
  OutgoingPacket out{
      WireContent::Video,
      buildPacket(kPacketTypeVideo, 1000, buildVideoFrameBody(true, test::keyFrameData())),
      buildStatusBlock(source), 1000, 0};

  auto tcp = tcpWriteFor(out);
  ASSERT_TRUE(tcp.has_value());
  EXPECT_EQ(tcp->bytes, cat({test::keyFramePacket(), test::statusBlock()}));
  EXPECT_EQ(tcp->tag, 1000);
  EXPECT_LT(tcp->timeout, 0.0);

  auto usb = usbFramesFor(out);
  ASSERT_EQ(usb.size(), 2u);
  EXPECT_EQ(usb[0], (UsbFrame{9, 1000, test::keyFramePacket()}));
  EXPECT_EQ(usb[1], (UsbFrame{88, 8821, test::statusBlock()}));
}

TEST(CarrierTest, StopNoticeTravelsOnlyOverUsb) {
  OutgoingPacket out{WireContent::StopNotice, test::stopNotice(), {}, 0, 0};
  EXPECT_FALSE(tcpWriteFor(out).has_value());
  auto usb = usbFramesFor(out);
  ASSERT_EQ(usb.size(), 1u);
  EXPECT_EQ(usb[0], (UsbFrame{88, 8814, test::stopNotice()}));
}

struct RouteCase {
  const char* name;
  WireContent content;
  uint64_t timestamp;
  uint32_t command;
  std::optional<TcpRoute> tcp;
  UsbRoute usb;
};

class CarrierRouteTest : public testing::TestWithParam<RouteCase> {};
using enum WireContent;

// The record that serves both carriers takes the TCP tag and time-out where
// there is a TCP write, else the USB tag; the tail rides as frame 88, tag 8821.
TEST_P(CarrierRouteTest, GivesTagsTimeoutsAndFrameTypes) {
  const auto& c = GetParam();
  EXPECT_EQ(tcpRoute(c.content, c.timestamp, c.command), c.tcp);
  EXPECT_EQ(usbRoute(c.content, c.timestamp, c.command), c.usb);
  const CarrierRoute both =
      c.tcp ? CarrierRoute{c.tcp->tag, c.tcp->timeout, c.usb.type, 88, 8821, false}
            : CarrierRoute{c.usb.tag, -1.0, c.usb.type, 88, 8821, true};
  EXPECT_EQ(carrierRoute(c.content, c.timestamp, c.command), both);
}

INSTANTIATE_TEST_SUITE_P(
    Routes, CarrierRouteTest,
    testing::Values(
        RouteCase{"Info", Info, 0, 0, TcpRoute{1, -1.0}, UsbRoute{18, 1}},
        RouteCase{"VideoAtZeroHasTagZero", Video, 0, 0, TcpRoute{0, -1.0}, UsbRoute{9, 0}},
        RouteCase{"VideoTagIsItsTimestamp", Video, 4321, 0, TcpRoute{4321, -1.0},
                  UsbRoute{9, 4321}},
        RouteCase{"UsbTagIsTheLowHalf", Video, 0x100000007, 0, TcpRoute{0x100000007, -1.0},
                  UsbRoute{9, 7}},
        RouteCase{"Audio", Audio, 23, 0, TcpRoute{1, -1.0}, UsbRoute{8, 1}},
        RouteCase{"RecordCommand", Command, 0, 17, TcpRoute{8817, 5.0}, UsbRoute{88, 8817}},
        RouteCase{"SnapshotCommand", Command, 0, 18, TcpRoute{8818, 5.0}, UsbRoute{88, 8818}},
        RouteCase{"StopNotice", StopNotice, 0, 0, std::nullopt, UsbRoute{88, 8814}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::wire
