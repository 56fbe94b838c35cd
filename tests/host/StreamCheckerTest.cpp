#include "tools/host/StreamChecker.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tools/host/HostSession.h"

namespace oxelo::host {
namespace {

using namespace testbytes;

// Feeds a whole stream to a checker, record by record, as the session does.
struct Checked {
  std::vector<std::string> errors;
  StreamChecker checker{[this](std::string text) { errors.push_back(std::move(text)); }};

  explicit Checked(const Bytes& stream) {
    std::span<const uint8_t> rest(stream);
    for (size_t length; !rest.empty() && (length = checker.take(rest, false).length) != 0;)
      rest = rest.subspan(length);
    checker.finish();
  }
};

const Bytes kCleanStream = cat({kInfo, kVideoHeader, kCapability, kKeyFrame0, kStatus, kAudioHeader,
                                kInterFrame33, kAudioFrame, kSnapshot});

// The decoding itself is the wire readers' (tests/wire); here: how the
// checker reads a clean stream and what it keeps of it.
TEST(StreamCheckerTest, ACleanStreamIsCountedAndKept) {
  Checked run(kCleanStream);
  EXPECT_TRUE(run.errors.empty()) << joined(run.errors);
  // The end-to-end runs check the counts of frames and blocks; the two tail
  // blocks are not packets.
  const auto& c = run.checker.counts();
  EXPECT_EQ(std::vector<uint64_t>({c.packets, c.infoPackets, c.videoSequenceHeaders,
                                   c.audioSequenceHeaders, c.phoneCommands}),
            std::vector<uint64_t>({7, 1, 1, 1, 1}));
  EXPECT_EQ(run.checker.firstPackets(),
            (std::vector<std::string>{"info", "video_sequence_header", "capability_block",
                                      "key_frame", "status_block", "audio_sequence_header",
                                      "inter_frame", "audio_frame", "phone_command"}));
  const auto& k = run.checker;
  // The info and the last capability block kept: the end-to-end runs' reports.
  ASSERT_TRUE(k.lastStatus() && k.phoneCommands().size() == 1);
  EXPECT_EQ(k.lastStatus()->temperature, 5000);
  EXPECT_EQ(k.phoneCommands()[0].command, 18u);
}

struct OrderCase {
  const char* name;
  Bytes stream;
  const char* orderError;  // a part of the expected order error
};

class StreamOrderTest : public testing::TestWithParam<OrderCase> {};

TEST_P(StreamOrderTest, BreaksOfTheOrderAreReported) {
  Checked run(GetParam().stream);
  const auto& order = run.checker.orderErrors();
  EXPECT_NE(joined(order).find(GetParam().orderError), std::string::npos) << joined(order);
  // Every order error is among the run's errors too.
  EXPECT_GE(run.errors.size(), order.size());
}

INSTANTIATE_TEST_SUITE_P(
    Rules, StreamOrderTest,
    testing::Values(
        OrderCase{"InfoNotFirst", cat({kVideoHeader, kCapability, kInfo}),
                  "the first packet is a video_sequence_header"},
        OrderCase{"SecondInfo", cat({kInfo, kInfo}), "a second info packet"},
        OrderCase{"FrameBeforeSequenceHeader", cat({kInfo, kKeyFrame0}),
                  "before the video sequence header"},
        OrderCase{"SecondSequenceHeader",
                  cat({kInfo, kVideoHeader, kCapability, kKeyFrame0, kVideoHeader}),
                  "a second video sequence header"},
        OrderCase{"NoCapabilityBlock", cat({kInfo, kVideoHeader, kKeyFrame0}),
                  "carries no capability block"},
        OrderCase{"StatusInsteadOfCapability", cat({kInfo, kVideoHeader, kStatus}),
                  "carries no capability block"},
        OrderCase{"StreamEndsBehindTheSequenceHeader", cat({kInfo, kVideoHeader}),
                  "carries no capability block"},
        OrderCase{"SequenceHeaderWithTimestamp", cat({kInfo, kVideoHeaderAt40, kCapability}),
                  "a video sequence header with timestamp 40"},
        OrderCase{"InterFrameFirst", cat({kInfo, kVideoHeader, kCapability, kInterFrame33}),
                  "an inter frame before the first key frame"},
        OrderCase{"VideoTimeGoesBack",
                  cat({kInfo, kVideoHeader, kCapability, keyFrameAt("28000000"), kInterFrame33}),
                  "went back from 40 to 33"},
        OrderCase{"AudioFrameBeforeItsHeader", cat({kInfo, kAudioFrame}),
                  "an audio frame before the audio sequence header"},
        OrderCase{"SecondAudioHeader", cat({kInfo, kAudioHeader, kAudioFrame, kAudioHeader}),
                  "a second audio sequence header"},
        OrderCase{"AudioThatWasNotAnnounced", cat({kInfoNoAudio, kAudioHeader}),
                  "the info packet announces none"},
        OrderCase{"TailBehindAnInterFrame",
                  cat({kInfo, kVideoHeader, kCapability, kKeyFrame0, kInterFrame33, kStatus}),
                  "a tail block behind a packet"},
        OrderCase{"TwoTailsBehindOneKeyFrame",
                  cat({kInfo, kVideoHeader, kCapability, kKeyFrame0, kStatus, kStatus}),
                  "a tail block behind a packet"}),
    [](const auto& info) { return std::string(info.param.name); });

struct FormatCase {
  const char* name;
  Bytes stream;  // over TCP
  const char* error;
};

class StreamFormatTest : public testing::TestWithParam<FormatCase> {};

TEST_P(StreamFormatTest, RecordsThatDoNotReadAreReported) {
  Checked run(GetParam().stream);
  EXPECT_NE(joined(run.errors).find(GetParam().error), std::string::npos) << joined(run.errors);
  EXPECT_TRUE(run.checker.orderErrors().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Faults, StreamFormatTest,
    testing::Values(
        FormatCase{"UnknownRecordType", cat({kInfo, hex("07000000 00000000")}),
                   "the stream broke at a record with first word 7"},
        FormatCase{"InfoWithAnotherFormatWord", placed(kInfo, 4, hex("02000000")),
                   "the info packet does not read"},
        FormatCase{"UnitsThatDoNotAddUp", cat({kInfo, kVideoHeader, kCapability, kBrokenKeyFrame}),
                   "units do not add up"},
        FormatCase{"SequenceHeaderWithWrongProfile",
                   cat({kInfo, placed(kVideoHeader, 18, hex("4d")), kCapability}),
                   "the video sequence header does not read"},
        FormatCase{"StatusWithAnUndefinedBit",
                   cat({kInfo, kVideoHeader, kCapability, kKeyFrame0,
                        placed(kStatus, 12, hex("08000000"))}),
                   "a status block does not read"},
        FormatCase{"StopNoticeOverTcp", cat({kInfo, kStopNotice}), "a stop notice on TCP"},
        FormatCase{"UnknownPhoneCommand", cat({kInfo, hex("88000000 13000000 00000000")}),
                   "an unknown command 19 from the phone"}),
    [](const auto& info) { return std::string(info.param.name); });

// USB: each record is one frame, with the type and tag of its kind, both
// ways; a stop notice is counted.
TEST(StreamCheckerTest, TheSessionChecksTheFrameOfEachRecord) {
  HostSession session({"Desk", 5895, handshake::VideoSettings{1280, 720, 30, 0, 1, 0, 1}, true});
  session.receiveFrame(88, 8810, kHelloLong);
  session.receiveFrame(88, 8810, kHelloShort);
  // The host's packets: type 88, the tag repeating the command in hexadecimal.
  std::vector<std::pair<uint32_t, uint32_t>> sent;
  for (const auto& p : session.takeOutgoing()) sent.emplace_back(p.frameType, p.frameTag);
  EXPECT_EQ(sent, (std::vector<std::pair<uint32_t, uint32_t>>{{88, 8810}, {88, 8813}, {88, 8811}}));
  session.receiveFrame(88, 8813, {});  // an empty payload is ignored
  session.receiveFrame(88, 8813, kAnswer720p);
  EXPECT_TRUE(session.handshakeComplete());
  const std::tuple<uint32_t, uint32_t, Bytes> frames[] = {
      {18, 1, kInfo},        {9, 0, kVideoHeader},   {88, 8821, kCapability}, {9, 0, kKeyFrame0},
      {88, 8821, kStatus},   {8, 1, kAudioHeader},   {9, 33, kInterFrame33},  {8, 1, kAudioFrame},
      {88, 8818, kSnapshot}, {88, 8814, kStopNotice}};
  for (const auto& [type, tag, payload] : frames) session.receiveFrame(type, tag, payload);
  EXPECT_TRUE(session.errors().empty()) << session.errors().front();
  EXPECT_EQ(session.stream().counts().stopNotices, 1u);

  // A video frame whose frame tag is not its timestamp; a key frame and its
  // block in one frame.
  session.receiveFrame(9, 34, interFrameAt("22000000"));
  session.receiveFrame(9, 0, keyFrameAt("23000000"));
  session.receiveFrame(9, 0x24, cat({keyFrameAt("24000000"), kStatus}));
  ASSERT_EQ(session.errors().size(), 3u);
  const char* said[] = {"key_frame came in a USB frame of type 9 tag 0 (expected type 9 tag 35)",
                        "status_block shares a USB frame", "expected type 88 tag 8821"};
  for (int i = 0; i < 3; ++i)
    EXPECT_NE(session.errors()[i].find(said[i]), std::string::npos) << session.errors()[i];
}

}  // namespace
}  // namespace oxelo::host
