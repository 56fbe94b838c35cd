// The stream socket as the program drives it: encoder threads hand in frames while the send queue
// and the main queue run on threads of their own, the host's status requests change what rides
// behind key frames, and a stop comes while frames still arrive.
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <thread>

#include "tests/support/WireVectors.h"
#include "tests/transport/support/StreamSocketHarness.h"
#include "wire/CommandPackets.h"
#include "wire/WireConstants.h"
#include "wire/WireStream.h"

namespace oxelo {
namespace {

// Records of each type on the wire; `broken`, or `truncated` while the last is not all there.
struct StreamTally {
  std::map<uint32_t, size_t> records;
  bool broken = false, truncated = false;
};

StreamTally tally(const test::Bytes& stream) {
  StreamTally t;
  for (std::span<const uint8_t> rest(stream); !rest.empty();) {
    auto record = wire::nextRecord(rest);
    if (!record) {
      (record.error() == wire::WireError::Truncated ? t.truncated : t.broken) = true;
      break;
    }
    ++t.records[record->type];
    rest = rest.subspan(record->length);
  }
  return t;
}

class StreamSocketConcurrencyTest : public testing::Test {
 protected:
  void SetUp() override {
    main_ = Queue::create("main");
    MainQueue::set(main_);
  }
  void TearDown() override {
    main_->stop();
    MainQueue::set(nullptr);
  }

  test::StreamFixtureSettings settings_;
  std::shared_ptr<Queue> main_;
};

TEST_F(StreamSocketConcurrencyTest, EncoderThreadsStreamWhileTheHostAsksForStatus) {
  // The socket is connected before its first delegate hears of it: let that
  // event pass, or the carrier would hand it on as a second connect.
  auto greeter = std::make_shared<test::Recorder>();
  auto c = test::connectPair(greeter, main_);
  ASSERT_TRUE(c.sock);
  ASSERT_TRUE(test::waitUntil([&] { return greeter->count(test::SocketEvent::connected) == 1; }));
  test::Fd& host = c.peer;

  auto session = std::make_shared<test::RecordingSession>(test::statusValues());
  auto socket = OXStreamSocket::create(test::makeStreamInfo());
  socket->setDelegate(session);
  auto carrier = TcpCarrier::adopt(c.sock);
  main_->runSync([&] { socket->setCarrier(carrier); });
  socket->start();
  ASSERT_TRUE(test::waitUntil([&] { return socket->isConnected(); }));

  constexpr int kVideo = 300, kAudio = 400;
  std::thread video([&] {
    for (int i = 0; i < kVideo; ++i) {
      socket->sendFrame(test::videoFrame(1 + i, i % 30 == 0, test::keyFrameData()));
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  });
  std::thread audio([&] {
    for (int i = 0; i < kAudio; ++i) {
      socket->sendFrame(test::audioFrame(1 + i, test::hex("21 10 05")));
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  std::thread hostCommands([&] {
    for (int32_t request : {1, 2, 0, 3, 1}) {
      auto packet = wire::buildHostCommandPacket(wire::kHostStatusRequest, request);
      main_->post([socket, packet] { socket->handleClientCmd(packet); });
      LFLiveDebug seen = socket->debugInfo();  // statistics read from another thread
      EXPECT_LE(seen.dropFrame, seen.totalFrame);
      std::this_thread::sleep_for(std::chrono::milliseconds(15));
    }
  });
  video.join();
  audio.join();
  hostCommands.join();
  ASSERT_TRUE(test::waitUntil(
      [&] { return socket->buffer()->listCount() == 0 && !socket->isSending(); }, 30.0));
  auto debug = socket->debugInfo();
  EXPECT_EQ(debug.totalFrame, kVideo + kAudio);

  // Everything the socket sent is on the wire, record after record. The
  // last writes may still be on their way through the socket worker on a
  // loaded machine: read until every record is in, or the stream breaks.
  const size_t videoExpected = 1u + kVideo - static_cast<size_t>(debug.dropFrame);
  test::Bytes wire;
  test::waitUntil(
      [&] {
        auto more = test::peer::receiveAvailable(host, 0.05);
        wire.insert(wire.end(), more.begin(), more.end());
        auto sofar = tally(wire);
        return sofar.broken ||
               (!sofar.truncated && sofar.records[wire::kPacketTypeVideo] >= videoExpected &&
                sofar.records[wire::kPacketTypeAudio] >= kAudio);
      },
      10.0);
  auto t = tally(wire);
  EXPECT_FALSE(t.broken);
  EXPECT_FALSE(t.truncated);
  EXPECT_EQ(t.records[wire::kPacketTypeInfo], 1u);
  EXPECT_EQ(t.records[wire::kPacketTypeVideo], videoExpected) << "header and frames";
  EXPECT_EQ(t.records[wire::kPacketTypeAudio], size_t{kAudio}) << "the header stands for the first";
  EXPECT_GE(t.records[wire::kPacketTypeTail], 1u) << "at least the capability block";

  // A stop while frames still come: the connection ends, nothing crashes.
  std::thread late([&] {
    for (int i = 0; i < 100; ++i) socket->sendFrame(test::audioFrame(500 + i, {1}));
  });
  socket->stop();
  late.join();
  EXPECT_TRUE(test::peer::seesEnd(host));
  EXPECT_TRUE(test::waitUntil([&] { return !socket->isConnected(); }));
  socket->sendQueue()->runSync([] {});
  EXPECT_EQ(session->states().back(), LiveStreamState::Stopped);
}

}  // namespace
}  // namespace oxelo
