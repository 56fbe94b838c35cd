// The stream socket against a host on loopback: the wire, the late-frame rule, write statistics,
// host commands and retries. Time is the manual clock; only socket I/O runs in real time.
#include <gtest/gtest.h>

#include "tests/support/FakeCarrier.h"
#include "tests/support/WireVectors.h"
#include "tests/transport/support/StreamSocketHarness.h"
#include "transport/InitError.h"
#include "wire/CommandPackets.h"
#include "wire/InfoPacket.h"
#include "wire/TailBlocks.h"
#include "wire/WireConstants.h"

namespace oxelo {
namespace {

using test::cat;
using test::hex;

class StreamSocketTest : public test::StreamSocketFixture {
 protected:
  // A socket handed a greeted TCP connection and started: the host has read the info packet.
  test::Bytes startOverTcp() {
    connection_ = test::connectLoopback(main_.main());
    makeSocket(test::makeStreamInfo());
    socket_->setCarrier(connection_.carrier);
    socket_->start();
    EXPECT_TRUE(pump([&] { return socket_->isConnected(); }));
    return test::peer::receive(connection_.host, wire::kInfoPacketSize);
  }

  // A socket started on a carrier that the test plays: records land in `fake_`.
  void startOverFake(Carrier::Kind kind = Carrier::Kind::tcp) {
    fake_ = std::make_shared<test::FakeCarrier>(kind);
    makeSocket(test::makeStreamInfo());
    socket_->setCarrier(fake_);
    socket_->start();
    ASSERT_TRUE(pump([&] { return socket_->isConnected(); }));
  }

  // A write completion, as the carrier reports it on the main queue.
  void completes(int64_t tag) { socket_->carrierDidWriteRecord(&anyCarrier_, tag); }

  // Sends the frames and waits until the host has all `size` bytes.
  test::Bytes sendAndReceive(std::vector<std::shared_ptr<LFFrame>> frames, size_t size) {
    for (auto& frame : frames) socket_->sendFrame(frame);
    EXPECT_TRUE(sent());
    return test::peer::receive(connection_.host, size);
  }

  void hostSends(uint32_t command, int32_t p1 = 0, int32_t p2 = 0) {
    socket_->handleClientCmd(wire::buildHostCommandPacket(command, p1, p2));
  }

  test::LoopbackConnection connection_;
  std::shared_ptr<test::FakeCarrier> fake_;
  test::FakeCarrier anyCarrier_;
};

TEST_F(StreamSocketTest, CreationWithoutAStreamThrowsTheSystemsError) {
  try {
    OXStreamSocket::create(nullptr);
    FAIL() << "no exception";
  } catch (const InitError& e) {
    EXPECT_EQ(e.name(), "OXStreamRtmpSocket init error");
    EXPECT_EQ(e.reason(), "stream is nil");
  }
  auto socket = OXStreamSocket::create(test::makeStreamInfo(), -4, 0);
  EXPECT_EQ(socket->reconnectInterval(), 3);
}

TEST_F(StreamSocketTest, AHandedOverConnectionCarriesInfoHeaderAndFramesInOrder) {
  // The session reports the front camera for the capability block.
  session_ = std::make_shared<test::RecordingSession>(test::frontCameraValues());
  auto info = startOverTcp();
  auto parsed = wire::parseInfoPacket(info);
  ASSERT_TRUE(parsed) << wire::wireErrorText(parsed.error());
  // audioFormat 0 announces no audio.
  EXPECT_EQ(std::tuple(parsed->width, parsed->height, parsed->frameRate, parsed->videoBitRate,
                       parsed->audioSampleRate),
            std::tuple(1280u, 720u, 30u, 2000000u, 0u));
  EXPECT_EQ(session_->states(), std::vector{LiveStreamState::Connected});

  // The first video frame causes the sequence header, with the capability
  // block of a changed device behind it, then goes itself; the status block
  // is not due, whatever sendStatus says, while a capability block is.
  socket_->setSendStatus(1);
  auto key = test::videoFrame(1000, true, test::keyFrameData());
  auto inter = test::videoFrame(1033, false, test::interFrameData());
  auto expected = cat({test::h264SequenceHeaderPacket(), test::frontCapabilityBlock(),
                       test::keyFramePacket(), test::statusBlock(), test::interFramePacket()});
  auto got = sendAndReceive({key, inter}, expected.size());
  // The status block reads the session's values, those of the front camera: compare its head only.
  const size_t statusAt =
      expected.size() - test::interFramePacket().size() - wire::kStatusBlockSize;
  ASSERT_EQ(got.size(), expected.size());
  std::copy_n(got.begin() + statusAt + 12, wire::kStatusBlockSize - 12,
              expected.begin() + statusAt + 12);
  EXPECT_EQ(got, expected);
  EXPECT_FALSE(session_->deviceChanged());
}

// The first audio frame only causes the audio header; a first video frame
// without parameter sets loses the sequence header for the connection.
TEST_F(StreamSocketTest, FirstFramesCauseTheHeadersOrLoseThem) {
  startOverTcp();
  auto first = test::audioFrame(0, hex("99 99 99"));
  auto second = test::audioFrame(23, hex("21 10 05"));
  auto got = sendAndReceive({first, second},
                            test::audioHeaderPacket().size() + test::audioFramePacket().size());
  EXPECT_EQ(got, cat({test::audioHeaderPacket(), test::audioFramePacket()}));
  auto debug = socket_->debugInfo();
  EXPECT_EQ(debug.totalFrame, 2) << "the frame that only caused the header still counts";
  EXPECT_EQ(debug.dataFlow, 6);

  auto bare = test::videoFrame(1000, true, test::keyFrameData());
  bare->sps.reset();
  auto inter = test::videoFrame(1033, false, test::interFrameData());
  got = sendAndReceive({bare, inter}, test::interFramePacket().size());
  EXPECT_EQ(got, test::interFramePacket()) << "no sequence header ever follows";
}

struct StatusCase {
  const char* name;
  int32_t request;
  std::vector<bool> blockBehindKeyFrame;  // for three key frames in a row
  int64_t after;
};

class StreamSocketStatusTest : public StreamSocketTest,
                               public testing::WithParamInterface<StatusCase> {};

TEST_P(StreamSocketStatusTest, HostRequestsStatusBlocksBehindKeyFrames) {
  startOverFake();
  // The sequence header takes the capability block first.
  socket_->sendFrame(test::videoFrame(0, true, test::keyFrameData()));
  ASSERT_TRUE(sent());
  hostSends(wire::kHostStatusRequest, GetParam().request);
  std::vector<bool> blocks;
  for (int i = 0; i < 3; ++i) {
    socket_->sendFrame(test::videoFrame(1000 + i, true, test::keyFrameData()));
    ASSERT_TRUE(sent());
    auto& packet = fake_->sent.back();
    EXPECT_EQ(packet.tag, 1000 + i);
    blocks.push_back(packet.tail && packet.tail->size() == wire::kStatusBlockSize);
  }
  EXPECT_EQ(blocks, GetParam().blockBehindKeyFrame) << GetParam().name;
  EXPECT_EQ(socket_->sendStatus(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(Requests, StreamSocketStatusTest,
                         testing::Values(StatusCase{"OneBlock", 2, {true, false, false}, 0},
                                         StatusCase{"EveryKeyFrame", 1, {true, true, true}, 1},
                                         StatusCase{"ThreeActsAsOne", 3, {true, true, true}, 3},
                                         StatusCase{"None", 0, {false, false, false}, 0}),
                         [](const auto& info) { return info.param.name; });

// Once one frame is late, video is dropped up to the next key frame, which goes.
TEST_F(StreamSocketTest, LateVideoIsDroppedUpToTheNextKeyFrame) {
  startOverFake();
  completes(1000);
  for (auto [timestamp, key] : {std::pair{1501, false}, {1502, false}, {1600, true}})
    socket_->sendFrame(test::videoFrame(timestamp, key, test::interFrameData()));
  ASSERT_TRUE(sent());
  EXPECT_EQ(fake_->sentTags(), (std::vector<int64_t>{1, 0, 1600}));
  EXPECT_EQ(socket_->debugInfo().dropFrame, 2);
  EXPECT_FALSE(socket_->dropFrameNow()) << "the key frame ends the drop phase";
}

struct LateFrameCase {
  const char* name;
  std::vector<int64_t> completions;  // write tags, in order
  uint64_t frame;                    // timestamp of the next video frame
  bool late;
};

class LateFrameRuleTest : public StreamSocketTest,
                          public testing::WithParamInterface<LateFrameCase> {};

TEST_P(LateFrameRuleTest, AFrameIsLateFiveHundredAndOneAheadOfTheLastCompletedTag) {
  startOverFake();
  for (int64_t tag : GetParam().completions) completes(tag);
  socket_->sendFrame(test::videoFrame(GetParam().frame, false, test::interFrameData()));
  ASSERT_TRUE(sent());
  EXPECT_EQ(socket_->dropFrameNow(), GetParam().late) << GetParam().name;
  // Info, sequence header, and the frame itself unless it was dropped.
  std::vector<int64_t> tags{1, 0};
  if (!GetParam().late) tags.push_back(static_cast<int64_t>(GetParam().frame));
  EXPECT_EQ(fake_->sentTags(), tags) << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    Rule, LateFrameRuleTest,
    testing::Values(LateFrameCase{"NoCompletionYet", {}, 90000, false},
                    LateFrameCase{"FiveHundredAheadIsOnTime", {1000}, 1500, false},
                    LateFrameCase{"FiveHundredAndOneAheadIsLate", {1000}, 1501, true},
                    LateFrameCase{"InfoAndAudioTagsDoNotCount", {1000, 1, 0}, 1400, false},
                    // After a command write the command's tag stands in for
                    // the last video timestamp until the next video write.
                    LateFrameCase{"ACommandTagStandsInForVideo", {9300, 8833}, 9334, true},
                    LateFrameCase{"AFrameAtTheCommandTagIsOnTime", {8818}, 8818, false},
                    // The difference is unsigned: a frame below the tag is late.
                    LateFrameCase{"AFrameBelowACommandTagIsLate", {1000, 8817}, 1033, true}),
    [](const auto& info) { return std::string(info.param.name); });

struct WriteStatsCase {
  const char* name;
  uint64_t fps;
  std::vector<double> gaps;  // between completions
  std::vector<BufferVerdict> verdicts;
};

std::vector<double> times(int n, double gap) { return std::vector<double>(n, gap); }

class WriteStatisticsTest : public StreamSocketTest,
                            public testing::WithParamInterface<WriteStatsCase> {};

TEST_P(WriteStatisticsTest, CompletionsTurnIntoVerdicts) {
  makeSocket(test::makeStreamInfo(GetParam().fps));
  // A sequence header's completion: the reference, and itself a good write.
  completes(0);
  for (double gap : GetParam().gaps) {
    main_.clock().advance(gap);
    completes(1);
  }
  EXPECT_EQ(session_->verdicts(), GetParam().verdicts) << GetParam().name;
}

constexpr auto kLower = BufferVerdict::LowerBitrate;
constexpr auto kRaise = BufferVerdict::RaiseBitrate;
using W = WriteStatsCase;

INSTANTIATE_TEST_SUITE_P(
    Writes, WriteStatisticsTest,
    testing::Values(
        W{"ThreeLateAreNoVerdict", 30, times(3, 0.061), {}},
        W{"FourLateLowerTheRate", 30, times(4, 0.061), {kLower}},
        W{"EightLateLowerTwice", 30, times(8, 0.061), {kLower, kLower}},
        W{"HundredGoodAreNoVerdict", 30, times(99, 0.060), {}},
        W{"HundredAndOneGoodRaiseTheRate", 30, times(100, 0.060), {kRaise}},
        W{"SlowRatesAllowAHundredMs", 24, times(100, 0.099), {kRaise}},
        W{"SlowRatesStillHaveALimit", 24, times(4, 0.101), {kLower}},
        W{"LateAddUpAcrossGood", 30, {.07, .01, .07, .01, .07, .01, .01, .07}, {kLower}}),
    [](const auto& info) { return info.param.name; });

TEST_F(StreamSocketTest, HostCommandsEndTheStreamOrPassToTheSession) {
  startOverFake();
  hostSends(wire::kHostConnectionLost);
  hostSends(wire::kHostRestart);
  hostSends(wire::kHostMirror, 1);
  // Records cut short of their command's parameters: refused whole.
  for (const char* shortRecord : {
           "88 00 00 00 | 21 00 00 00",                // 33 without its parameter
           "88 00 00 00 | 12 00 00 00 | 06 00 00 00",  // 18 without its value
           "88 00 00 00 | 17 00 00 00 | ff 00 00 00",  // 23 without y
           "88 00 00 00 | 29 00 00 00",                // 41 without the lock
           "88 00 00 00 | 2a 00 00 00",                // 42 without the slot
           "88 00 00 00 | 23 00 00 00 | 01 00 00",     // 35 one byte short
       })
    socket_->handleClientCmd(hex(shortRecord));
  socket_->handleClientCmd(hex("87 00 00 00 | 18 00 00 00"));  // not a command
  EXPECT_EQ(session_->errors(),
            (std::vector{LiveStreamError::ConnectionLost, LiveStreamError::PeerRestart}));
  EXPECT_EQ(session_->states(), (std::vector{LiveStreamState::Connected, LiveStreamState::Failed,
                                             LiveStreamState::Stopped}));
  EXPECT_EQ(session_->forwardedCommands(), std::vector<uint32_t>{wire::kHostMirror});

  // 24 detaches the carrier: its end no longer reaches the socket.
  hostSends(wire::kHostPeerClose);
  EXPECT_EQ(session_->errors().back(), LiveStreamError::PeerClosed);
  EXPECT_EQ(fake_->delegate(), nullptr);
}

TEST_F(StreamSocketTest, TwoCommandsInOneReadOnlyTheFirstIsSeen) {
  startOverTcp();
  test::peer::sendAll(connection_.host,
                      cat({wire::buildHostCommandPacket(wire::kHostStatusRequest, 1),
                           wire::buildHostCommandPacket(wire::kHostRestart)}));
  ASSERT_TRUE(pump([&] { return socket_->sendStatus() == 1; }));
  pump([] { return false; }, 0.1);
  EXPECT_TRUE(session_->errors().empty());
}

TEST_F(StreamSocketTest, LostConnectionsAreRetriedFiveTimesThreeSecondsApartButNotInTheBackground) {
  auto background = std::make_shared<AppLifecycle>();
  background->enterBackground();
  main_.drain();
  makeSocket(test::loopbackStreamInfo(test::peer::closedPort()), background)->start();
  ASSERT_TRUE(pump([&] { return !session_->errors().empty(); }));
  EXPECT_EQ(session_->errors(), std::vector{LiveStreamError::ConnectionLost});
  EXPECT_FALSE(socket_->isReconnecting());
  socket_->stop();

  session_ = std::make_shared<test::RecordingSession>();
  session_->setDeviceChanged(false);
  makeSocket(test::loopbackStreamInfo(test::peer::closedPort()))->start();
  for (int attempt = 1; attempt <= 6; ++attempt) {
    ASSERT_TRUE(pump([&] { return socket_->retryTimes() == attempt; })) << attempt;
    if (attempt < 6) main_.advance(OXStreamSocket::kRetryDelay);
  }
  pump([] { return false; }, 0.1);
  EXPECT_EQ(session_->errors(), std::vector{LiveStreamError::ConnectionLost});
  EXPECT_EQ(session_->states().back(), LiveStreamState::Failed);
  auto times = session_->connectingTimes();
  ASSERT_EQ(times.size(), 6u);
  for (size_t i = 1; i < times.size(); ++i) EXPECT_NEAR(times[i] - times[i - 1], 3.0, 0.06);
  EXPECT_GE(session_->debugReports(), 5u) << "each retry reports the statistics";
  EXPECT_TRUE(session_->deviceChanged()) << "a retry asks for a capability block";
}

TEST_F(StreamSocketTest, AHandedOverTcpConnectionIsRetriedAUsbChannelFailsAtOnce) {
  for (bool tcp : {true, false}) {
    session_ = std::make_shared<test::RecordingSession>(test::statusValues());
    startOverFake(tcp ? Carrier::Kind::tcp : Carrier::Kind::usb);
    fake_->end(socketError(GCDAsyncSocketErrorCode::closed));
    main_.drain();
    EXPECT_EQ(socket_->isReconnecting(), tcp) << tcp;
    EXPECT_EQ(session_->errors(),
              tcp ? std::vector<LiveStreamError>{} : std::vector{LiveStreamError::ConnectionLost});
    EXPECT_EQ(session_->states().back(),
              tcp ? LiveStreamState::Connected : LiveStreamState::Failed);
    socket_->stop();
  }
}

TEST_F(StreamSocketTest, AHandedOverUsbChannelCarriesFramesAndEndsWithTheStopNotice) {
  session_ = std::make_shared<test::RecordingSession>(test::frontCameraValues());
  auto usb = test::UsbLoopback::connect(main_.main());
  ASSERT_TRUE(usb->carrier);
  makeSocket(test::makeStreamInfo());
  socket_->setCarrier(usb->carrier);
  socket_->start();
  ASSERT_TRUE(pump([&] { return socket_->isConnected(); }));
  // The type, tag and payload of the next `n` frames that reach the host.
  using Frames = std::vector<std::tuple<uint32_t, uint32_t, test::Bytes>>;
  auto next = [&](size_t n) {
    Frames out;
    for (auto& f : test::peer::receiveFrames(usb->host, n))
      out.emplace_back(f.type, f.tag, f.payload);
    return out;
  };
  auto info = next(1);
  ASSERT_EQ(info.size(), 1u);
  EXPECT_EQ(std::tuple(std::get<0>(info[0]), std::get<1>(info[0]), std::get<2>(info[0]).size()),
            std::tuple(18u, 1u, wire::kInfoPacketSize));

  // The tail block travels as a frame of its own.
  socket_->sendFrame(test::videoFrame(1000, true, test::keyFrameData()));
  ASSERT_TRUE(sent());
  EXPECT_EQ(next(3), (Frames{{9, 0, test::h264SequenceHeaderPacket()},
                             {88, 8821, test::frontCapabilityBlock()},
                             {9, 1000, test::keyFramePacket()}}));
  ASSERT_TRUE(pump([&] { return socket_->lastSendVideoFrameTimestamp() == 1000; }))
      << "a frame's completion counts";

  // A host command arrives as one frame; a command to the host leaves as
  // one, and its completion does not count as a write of the stream.
  test::peer::sendAll(
      usb->host, test::frame(88, 0, wire::buildHostCommandPacket(wire::kHostStatusRequest, 1)));
  ASSERT_TRUE(pump([&] { return socket_->sendStatus() == 1; }));
  socket_->sendCommand(wire::kCommandRemoteSnapshot, 0);
  EXPECT_EQ(next(1), (Frames{{88, 8818, test::snapshotCommand()}}));
  pump([] { return false; }, 0.1);
  EXPECT_EQ(socket_->lastSendVideoFrameTimestamp(), 1000u);

  socket_->stop();
  ASSERT_TRUE(pump([&] { return !socket_->carrier(); }));
  EXPECT_EQ(next(1), (Frames{{88, 8814, test::stopNotice()}}));
  EXPECT_TRUE(test::peer::seesEnd(usb->host));
  EXPECT_TRUE(session_->errors().empty()) << "a stop is not a lost channel";
  EXPECT_EQ(session_->states().back(), LiveStreamState::Stopped);
  EXPECT_EQ(socket_->sendStatus(), 0) << "the host's request ends with the stream";
}

}  // namespace
}  // namespace oxelo
