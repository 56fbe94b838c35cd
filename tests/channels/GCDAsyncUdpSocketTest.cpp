#include "channels/GCDAsyncUdpSocket.h"

#include <gtest/gtest.h>

#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::Bytes;
using test::bytesOf;
using test::Recorder;
using test::SocketEvent;

class GCDAsyncUdpSocketTest : public testing::Test {
 protected:
  ~GCDAsyncUdpSocketTest() override { queue->stop(); }

  std::shared_ptr<Queue> queue = Queue::createDriven("delegate");
  std::shared_ptr<Recorder> senderEvents = std::make_shared<Recorder>();
  std::shared_ptr<Recorder> receiverEvents = std::make_shared<Recorder>();

  bool pumpUntil(const std::function<bool()>& done, double seconds = 5.0) {
    return test::pumpUntil(*queue, done, seconds);
  }
  std::shared_ptr<GCDAsyncUdpSocket> boundReceiver() {
    auto sock = GCDAsyncUdpSocket::create(receiverEvents, queue);
    OptionalError error;
    EXPECT_TRUE(sock->bindToPort(0, error));
    EXPECT_TRUE(sock->beginReceiving(error));
    return sock;
  }
  std::vector<SocketEvent> received() const {
    std::vector<SocketEvent> out;
    for (auto& e : receiverEvents->events())
      if (e.kind == SocketEvent::udpReceived) out.push_back(e);
    return out;
  }
};

TEST_F(GCDAsyncUdpSocketTest, BindsOnceToAFreePortAndReceivesOnlyOnceBound) {
  auto sock = GCDAsyncUdpSocket::create(senderEvents, queue);
  OptionalError error;
  EXPECT_FALSE(sock->beginReceiving(error));
  EXPECT_TRUE(test::errorText(error).starts_with(
      "GCDAsyncUdpSocketErrorDomain 1: Must bind socket before you can receive data."))
      << test::errorText(error);

  auto taken = boundReceiver();
  EXPECT_FALSE(sock->bindToPort(taken->localPort(), error));
  EXPECT_TRUE(test::isError(error, kPosixErrorDomain, EADDRINUSE));

  // Still unbound after the failure, so it may try again.
  ASSERT_TRUE(sock->bindToPort(0, error));
  uint16_t port = sock->localPort();
  EXPECT_NE(port, 0);
  EXPECT_FALSE(sock->bindToPort(0, error));
  EXPECT_EQ(test::errorText(error),
            "GCDAsyncUdpSocketErrorDomain 1: Cannot bind a socket more than once.");
  EXPECT_EQ(sock->localPort(), port);
}

TEST_F(GCDAsyncUdpSocketTest, DatagramsArriveWholeInOrderWithTheSendersAddressBoundOrNot) {
  auto receiver = boundReceiver();
  OptionalError error;
  EXPECT_TRUE(receiver->beginReceiving(error));  // again: no effect
  auto sender = GCDAsyncUdpSocket::create(senderEvents, queue);
  ASSERT_TRUE(sender->bindToPort(0, error));
  std::vector<Bytes> datagrams = {bytesOf("Oxelo"), test::patternBytes(65507, 1), bytesOf("x")};
  for (size_t i = 0; i < datagrams.size(); ++i)
    sender->sendData(datagrams[i], "127.0.0.1", receiver->localPort(), -1,
                     1707 + static_cast<int64_t>(i));

  ASSERT_TRUE(pumpUntil([&] { return received().size() == 3; }));
  auto got = received();
  for (size_t i = 0; i < datagrams.size(); ++i) {
    EXPECT_TRUE(got[i].data == datagrams[i]) << i;
    EXPECT_EQ(std::tuple(got[i].sock, got[i].address.host(), got[i].address.port()),
              std::tuple(receiver.get(), "127.0.0.1", sender->localPort()));
  }
  ASSERT_TRUE(pumpUntil([&] { return senderEvents->count(SocketEvent::udpSent) == 3; }));

  // An unbound sender gets a port from the system; names are looked up.
  auto unbound = GCDAsyncUdpSocket::create(senderEvents, queue);
  unbound->sendData(bytesOf("by name"), "localhost", receiver->localPort(), 5.0, 1710);
  ASSERT_TRUE(pumpUntil(
      [&] { return received().size() == 4 && senderEvents->count(SocketEvent::udpSent) == 4; }));
  EXPECT_EQ(received()[3].data, bytesOf("by name"));
  EXPECT_EQ(received()[3].address.port(), unbound->localPort());
  EXPECT_NE(unbound->localPort(), 0);
  EXPECT_EQ(senderEvents->tags(SocketEvent::udpSent),
            (std::vector<int64_t>{1707, 1708, 1709, 1710}));
  EXPECT_EQ(senderEvents->events().size(), 4u);
  // Sending bound it implicitly, which does not make it a receiver.
  EXPECT_FALSE(unbound->beginReceiving(error));
}

// A closed socket can be bound anew; a dropped one reports nothing.
TEST_F(GCDAsyncUdpSocketTest, CloseReportsNoErrorDroppingReportsNothingAndBothFreeThePort) {
  auto receiver = boundReceiver();
  uint16_t port = receiver->localPort();
  receiver->close();
  EXPECT_EQ(receiver->localPort(), 0);
  ASSERT_TRUE(pumpUntil([&] { return receiverEvents->count(SocketEvent::udpClosed) == 1; }));
  EXPECT_FALSE(receiverEvents->first(SocketEvent::udpClosed).error);

  OptionalError error;
  auto other = GCDAsyncUdpSocket::create(senderEvents, queue);
  EXPECT_TRUE(other->bindToPort(port, error));
  other.reset();
  EXPECT_TRUE(receiver->bindToPort(port, error));
  EXPECT_TRUE(receiver->beginReceiving(error));
  auto sender = GCDAsyncUdpSocket::create(senderEvents, queue);
  sender->sendData(bytesOf("again"), "127.0.0.1", port, -1, 5);
  ASSERT_TRUE(pumpUntil([&] { return received().size() == 1; }));
  EXPECT_EQ(received()[0].data, bytesOf("again"));
  EXPECT_EQ(senderEvents->count(SocketEvent::udpClosed), 0u);
}

}  // namespace
}  // namespace oxelo
