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

HostSession::Config deskConfig() {
  HostSession::Config config;
  config.name = "Desk";
  config.port = 5895;
  return config;
}

HostSession::Config deskWith720p() {
  auto config = deskConfig();
  config.settings = VideoSettings{1280, 720, 30, 0, 1, 0, 1};
  return config;
}

Bytes sentBytes(const std::vector<OutgoingPacket>& packets) {
  Bytes out;
  for (const auto& p : packets) out.insert(out.end(), p.bytes.begin(), p.bytes.end());
  return out;
}

std::string allErrors(const HostSession& session) {
  std::string out;
  for (const auto& e : session.errors()) out += e + "\n";
  return out;
}

// Whole, byte by byte, and in 7-byte pieces that cut the packets and join
// the short hello with the answer and the answer with the stream.
TEST(HostSessionTest, ReadsTheGreetingAndTheStreamHoweverCut) {
  const Bytes phone = cat({kHelloLong, kHelloShort, kAnswer720p, kInfo, kVideoHeader, kCapability,
                           kKeyFrame0, kStatus, kAudioHeader, kAudioFrame});
  for (size_t piece : {phone.size(), size_t(1), size_t(7)}) {
    HostSession session(deskWith720p());
    for (size_t at = 0; at < phone.size(); at += piece)
      session.receiveBytes({phone.data() + at, std::min(piece, phone.size() - at)});
    session.phoneEnded();
    EXPECT_EQ(sentBytes(session.takeOutgoing()), cat({kHostInfoDesk5895, kSettings720p, kStart}));
    EXPECT_TRUE(session.handshakeComplete()) << piece;
    EXPECT_TRUE(session.errors().empty()) << piece << ": " << allErrors(session);
    EXPECT_EQ(session.stream().counts().packets, 5u) << piece;  // the two tails are no packets
    EXPECT_EQ(session.stream().counts().statusBlocks, 1u) << piece;
  }
}

TEST(HostSessionTest, SendsNothingBeforeBothHellos) {
  HostSession session(deskConfig());
  session.receiveBytes(kHelloLong);
  EXPECT_TRUE(session.takeOutgoing().empty());
  session.receiveBytes(kHelloShort);
  // Without settings: the host information, then the start.
  EXPECT_EQ(sentBytes(session.takeOutgoing()), cat({kHostInfoDesk5895, kStart}));
}

TEST(HostSessionTest, NoStartLeavesOutTheStartAndNeedsNoAnswer) {
  auto config = deskConfig();
  config.sendStart = false;
  HostSession session(config);
  session.receiveBytes(cat({kHelloLong, kHelloShort}));
  EXPECT_EQ(sentBytes(session.takeOutgoing()), kHostInfoDesk5895);
  EXPECT_FALSE(session.seen().startSent);
  EXPECT_TRUE(session.handshakeComplete());
  session.hostEnded();
  EXPECT_TRUE(session.errors().empty()) << allErrors(session);
}

TEST(HostSessionTest, AnnouncesPortAndCutsALongNameToTheField) {
  auto config = deskConfig();
  config.port = 5910;  // instance 16
  config.name = std::string(70, 'n');
  HostSession session(config);
  session.receiveBytes(cat({kHelloLong, kHelloShort}));
  const auto sent = session.takeOutgoing();
  ASSERT_FALSE(sent.empty());
  // 67 bytes of text and the ending 0 fill the 68-byte field.
  EXPECT_EQ(sent[0].bytes, cat({hex("88000000 10000000 16170000"), Bytes(67, 'n'), zeros(1)}));
}

TEST(HostSessionTest, CommandsGoOutWithTheirSizeAndFrame) {
  HostSession session(deskConfig());
  EXPECT_FALSE(session.readyForCommands());
  session.receiveBytes(cat({kHelloLong, kHelloShort}));
  session.takeOutgoing();
  EXPECT_FALSE(session.readyForCommands());  // the answer is due
  session.receiveBytes(kAnswer720p);
  EXPECT_TRUE(session.readyForCommands());
  session.queueCommand(21, 0, 0);    // zoom in: no parameter
  session.queueCommand(33, 1, 0);    // status request: one
  session.queueCommand(18, 6, -20);  // camera parameter: two
  const auto sent = session.takeOutgoing();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].bytes, hex("88000000 15000000"));
  EXPECT_EQ(sent[1].bytes, hex("88000000 21000000 01000000"));
  EXPECT_EQ(sent[2].bytes, hex("88000000 12000000 06000000 ecffffff"));
  for (const auto& p : sent) EXPECT_EQ(p.frameType, 88u);
  EXPECT_EQ(sent[0].frameTag, 8821u);
  EXPECT_EQ(sent[1].frameTag, 8833u);
  EXPECT_EQ(sent[2].frameTag, 8818u);
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
  EXPECT_NE(allErrors(session).find(GetParam().errorText), std::string::npos) << allErrors(session);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, HandshakeFaultTest,
    testing::Values(
        FaultCase{"Garbage", hex("474554202f"), "unexpected bytes"},
        FaultCase{"WordThatIsNot136", hex("88000100 10000000"), "unexpected bytes"},
        FaultCase{"UnknownCommand", hex("88000000 2a000000"), "unknown command 42"},
        FaultCase{"ShortHelloFirst", cat({kHelloShort, kHelloLong}), "before the long one"},
        FaultCase{"LongHelloWithoutMark",
                  cat({hex("88000000 10000000 21000000 00000000"), kHelloShort}),
                  "long hello with unexpected words"},
        FaultCase{"ShortHelloWithBadMark", cat({kHelloLong, hex("88102100")}),
                  "short hello with unexpected bytes"},
        FaultCase{"HelloTwice", cat({kHelloLong, kHelloShort, kHelloLong}), "a second long hello"},
        FaultCase{"OnlyTheLongHello", kHelloLong, "before the short hello"},
        FaultCase{"NoAnswer", cat({kHelloLong, kHelloShort}), "before the settings answer"},
        FaultCase{
            "EndsInsideTheAnswer",
            cat({kHelloLong, kHelloShort, Bytes(kAnswer720p.begin(), kAnswer720p.begin() + 30)}),
            "inside a packet"},
        FaultCase{"AnswerDiffersFromSettings",
                  cat({kHelloLong, kHelloShort,
                       hex("88000000 13000000 80070000 38040000 1e000000 00000000 01000000"
                           "00000000 01000000"),
                       zeros(12)}),
                  "differs from those sent"},
        FaultCase{"AnswerWithPortraitTwo",
                  cat({kHelloLong, kHelloShort,
                       hex("88000000 13000000 00050000 d0020000 1e000000 02000000 01000000"
                           "00000000 01000000"),
                       zeros(12)}),
                  "portrait 2"},
        FaultCase{"AnswerWithReservedBytes",
                  cat({kHelloLong, kHelloShort, Bytes(kAnswer720p.begin(), kAnswer720p.end() - 1),
                       hex("01")}),
                  "reserved bytes"},
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
  EXPECT_NE(allErrors(session).find(GetParam().errorText), std::string::npos) << allErrors(session);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, UsbFrameFaultTest,
    testing::Values(FrameFaultCase{"WrongTag", 88, 8811, kHelloLong,
                                   "tag 8811 (expected type 88 tag 8810)"},
                    FrameFaultCase{"WrongType", 9, 8810, kHelloLong, "type 9 tag 8810"},
                    FrameFaultCase{"TwoPacketsInOneFrame", 88, 8810, cat({kHelloLong, kHelloShort}),
                                   "shares a USB frame"},
                    FrameFaultCase{"PacketCutByTheFrame", 88, 8810,
                                   Bytes(kHelloLong.begin(), kHelloLong.begin() + 10),
                                   "ended inside a packet"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::host
