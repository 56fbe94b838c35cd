#include "tools/host/HostSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/host/HostTestBytes.h"

namespace oxelo::host {
namespace {

using namespace testbytes;
using handshake::VideoSettings;

HostSession::Config deskConfig() { return {"Desk", 5895, std::nullopt, true}; }
HostSession::Config deskWith720p() {
  return {"Desk", 5895, VideoSettings{1280, 720, 30, 0, 1, 0, 1}, true};
}

Bytes sentBytes(const std::vector<OutgoingPacket>& packets) {
  Bytes out;
  for (const auto& p : packets) out.insert(out.end(), p.bytes.begin(), p.bytes.end());
  return out;
}

// Whole, byte by byte, and in 7-byte pieces that cut the packets and join
// the short hello with the answer and the answer with the stream.
TEST(HostSessionTest, ReadsTheGreetingAndTheStreamHoweverCut) {
  const Bytes phone = cat({kHellos, kAnswer720p, kInfo, kVideoHeader, kCapability, kKeyFrame0,
                           kStatus, kAudioHeader, kAudioFrame});
  for (size_t piece : {phone.size(), size_t(1), size_t(7)}) {
    HostSession session(deskWith720p());
    for (size_t at = 0; at < phone.size(); at += piece)
      session.receiveBytes({phone.data() + at, std::min(piece, phone.size() - at)});
    session.phoneEnded();
    EXPECT_EQ(sentBytes(session.takeOutgoing()), cat({kHostInfoDesk5895, kSettings720p, kStart}));
    EXPECT_TRUE(session.handshakeComplete()) << piece;
    EXPECT_TRUE(session.errors().empty()) << piece << ": " << joined(session.errors());
    const auto& counts = session.stream().counts();  // the two tails are no packets
    EXPECT_EQ(std::pair(counts.packets, counts.statusBlocks), std::pair(5ul, 1ul)) << piece;
  }
}

// Without settings: the host information, its port that of instance 16 and
// its long name cut to 67 bytes and the ending 0, then the start.
TEST(HostSessionTest, SendsNothingBeforeBothHellosThenItsInformationAndTheStart) {
  HostSession session({std::string(70, 'n'), 5910, std::nullopt, true});
  session.receiveBytes(kHelloLong);
  EXPECT_TRUE(session.takeOutgoing().empty());
  session.receiveBytes(kHelloShort);
  EXPECT_EQ(sentBytes(session.takeOutgoing()),
            cat({hex("88000000 10000000 16170000"), Bytes(67, 'n'), zeros(1), kStart}));
}

TEST(HostSessionTest, NoStartLeavesOutTheStartAndNeedsNoAnswer) {
  HostSession session({"Desk", 5895, std::nullopt, /*sendStart=*/false});
  session.receiveBytes(kHellos);
  EXPECT_EQ(sentBytes(session.takeOutgoing()), kHostInfoDesk5895);
  EXPECT_FALSE(session.seen().startSent);
  EXPECT_TRUE(session.handshakeComplete());
  session.hostEnded();
  EXPECT_TRUE(session.errors().empty()) << joined(session.errors());
}

TEST(HostSessionTest, CommandsGoOutWithTheirSizeAndFrame) {
  HostSession session(deskConfig());
  EXPECT_FALSE(session.readyForCommands());
  session.receiveBytes(kHellos);
  session.takeOutgoing();
  EXPECT_FALSE(session.readyForCommands());  // the answer is due
  session.receiveBytes(kAnswer720p);
  EXPECT_TRUE(session.readyForCommands());
  session.queueCommand(21, 0, 0);    // zoom in: no parameter
  session.queueCommand(33, 1, 0);    // status request: one
  session.queueCommand(18, 6, -20);  // camera parameter: two
  const auto sent = session.takeOutgoing();
  EXPECT_EQ(sentBytes(sent), hex("88000000 15000000 | 88000000 21000000 01000000"
                                 "| 88000000 12000000 06000000 ecffffff"));
  std::vector<std::pair<uint32_t, uint32_t>> frames;
  for (const auto& p : sent) frames.emplace_back(p.frameType, p.frameTag);
  EXPECT_EQ(frames,
            (std::vector<std::pair<uint32_t, uint32_t>>{{88, 8821}, {88, 8833}, {88, 8818}}));
}

struct FaultCase {
  const char* name;
  Bytes phoneBytes;       // everything the phone says, hellos included
  const char* errorText;  // a part of the expected error
};

class HandshakeFaultTest : public testing::TestWithParam<FaultCase> {};

TEST_P(HandshakeFaultTest, IsReported) {
  HostSession session(deskWith720p());
  session.receiveBytes(GetParam().phoneBytes);
  session.phoneEnded();
  ASSERT_FALSE(session.errors().empty()) << GetParam().name;
  EXPECT_NE(joined(session.errors()).find(GetParam().errorText), std::string::npos)
      << joined(session.errors());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, HandshakeFaultTest,
    testing::Values(FaultCase{"Garbage", hex("474554202f"), "unexpected bytes"},
                    FaultCase{"WordThatIsNot136", hex("88000100 10000000"), "unexpected bytes"},
                    FaultCase{"UnknownCommand", hex("88000000 2a000000"), "unknown command 42"},
                    FaultCase{"ShortHelloFirst", cat({kHelloShort, kHelloLong}),
                              "before the long one"},
                    FaultCase{"LongHelloWithoutMark",
                              cat({hex("88000000 10000000 21000000 00000000"), kHelloShort}),
                              "long hello with unexpected words"},
                    FaultCase{"ShortHelloWithBadMark", cat({kHelloLong, hex("88102100")}),
                              "short hello with unexpected bytes"},
                    FaultCase{"HelloTwice", cat({kHellos, kHelloLong}), "a second long hello"},
                    FaultCase{"OnlyTheLongHello", kHelloLong, "before the short hello"},
                    FaultCase{"NoAnswer", kHellos, "before the settings answer"},
                    FaultCase{"EndsInsideTheAnswer",
                              cat({kHellos, Bytes(kAnswer720p.begin(), kAnswer720p.begin() + 30)}),
                              "inside a packet"},
                    // The answer with 1920x1080, with portrait 2, with its last reserved byte set.
                    FaultCase{"AnswerDiffersFromSettings",
                              cat({kHellos, placed(kAnswer720p, 8, hex("80070000 38040000"))}),
                              "differs from those sent"},
                    FaultCase{"AnswerWithPortraitTwo",
                              cat({kHellos, placed(kAnswer720p, 20, hex("02"))}), "portrait 2"},
                    FaultCase{"AnswerWithReservedBytes",
                              cat({kHellos, placed(kAnswer720p, 47, hex("01"))}), "reserved bytes"},
                    FaultCase{"AnswerBeforeTheHello", kAnswer720p, "no start packet asked for"}),
    [](const auto& info) { return std::string(info.param.name); });

struct FrameFaultCase {
  const char* name;
  uint32_t type;
  uint32_t tag;
  Bytes payload;  // the first frame; the second carries the short hello
  const char* errorText;
};

class UsbFrameFaultTest : public testing::TestWithParam<FrameFaultCase> {};

TEST_P(UsbFrameFaultTest, IsReported) {
  HostSession session(deskConfig());
  session.receiveFrame(GetParam().type, GetParam().tag, GetParam().payload);
  session.receiveFrame(88, 8810, kHelloShort);
  EXPECT_NE(joined(session.errors()).find(GetParam().errorText), std::string::npos)
      << joined(session.errors());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, UsbFrameFaultTest,
    testing::Values(FrameFaultCase{"WrongTag", 88, 8811, kHelloLong,
                                   "tag 8811 (expected type 88 tag 8810)"},
                    FrameFaultCase{"WrongType", 9, 8810, kHelloLong, "type 9 tag 8810"},
                    FrameFaultCase{"TwoPacketsInOneFrame", 88, 8810, kHellos, "shares a USB frame"},
                    FrameFaultCase{"PacketCutByTheFrame", 88, 8810,
                                   Bytes(kHelloLong.begin(), kHelloLong.begin() + 10),
                                   "ended inside a packet"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::host
