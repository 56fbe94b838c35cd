// The sockets with a threaded delegate queue, requests from several threads
// and peers that read on threads of their own.

#include <atomic>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "channels/GCDAsyncSocket.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::Bytes;
using test::Recorder;
using test::SocketEvent;
namespace peer = test::peer;

class GCDAsyncSocketConcurrencyTest : public testing::Test {
 protected:
  std::shared_ptr<Queue> queue = Queue::create("delegate", std::make_shared<SystemClock>());
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

// Several threads write records of many sizes at once: each thread's
// writes arrive and complete in its order, and no write is cut by another.
TEST_F(GCDAsyncSocketConcurrencyTest, WritesFromSeveralThreadsArriveWholeAndInOrder) {
  auto c = test::connectPair(recorder, queue);
  ASSERT_TRUE(c.sock);
  constexpr int kThreads = 4, kPerThread = 150;
  // A record: thread, sequence, body size (three bytes), then the body.
  auto record = [](int thread, int seq) {
    size_t size = 1 + size_t(seq * 7919 + thread) % (seq % 50 == 0 ? 400000 : 3000);
    Bytes bytes = {uint8_t(thread), uint8_t(seq), uint8_t(size >> 16), uint8_t(size >> 8),
                   uint8_t(size)};
    Bytes body = test::patternBytes(size, thread * 1000 + seq);
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
  };
  size_t total = 0;
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kPerThread; ++i) total += record(t, i).size();
  auto reader = std::async(std::launch::async, [&] { return peer::receive(c.peer, total, 60.0); });
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t)
    writers.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) c.sock->writeData(record(t, i), -1, t * 1000 + i);
    });
  for (auto& w : writers) w.join();
  Bytes got = reader.get();
  ASSERT_EQ(got.size(), total);
  std::vector<int> next(kThreads, 0);
  for (size_t at = 0; at < got.size();) {
    int t = got[at];
    ASSERT_LT(t, kThreads);
    Bytes expected = record(t, next[t]++);
    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), got.begin() + long(at)))
        << "thread " << t << " out of order or cut at " << at;
    at += expected.size();
  }
  ASSERT_TRUE(test::waitUntil(
      [&] { return recorder->count(SocketEvent::wrote) == size_t(kThreads * kPerThread); }));
  std::vector<int> done(kThreads, 0);
  for (int64_t tag : recorder->tags(SocketEvent::wrote))
    ASSERT_EQ(tag % 1000, done[tag / 1000]++) << "completions of thread " << tag / 1000;
}

// A connection changes hands inside a read callback, as the handshake does:
// the old owner clears the delegate, the new one sets itself and reads on.
// Every later event goes to the new owner and none to the old.
TEST_F(GCDAsyncSocketConcurrencyTest, HandOverInsideACallbackIsClean) {
  for (int round = 0; round < 20; ++round) {
    auto first = std::make_shared<Recorder>();
    auto second = std::make_shared<Recorder>();
    auto c = test::connectPair(first, queue);
    ASSERT_TRUE(c.sock);
    std::atomic<bool> handedOver{false};
    first->onRead = [&](GCDAsyncSocket* sock, const Bytes&, int64_t) {
      sock->setDelegate({});
      sock->readDataWithTimeout(-1, 8800);
      sock->setDelegate(second);
      handedOver = true;
    };
    second->onRead = [](GCDAsyncSocket* sock, const Bytes&, int64_t) {
      sock->readDataWithTimeout(-1, 0);
    };
    c.sock->readDataWithTimeout(-1, 8811);
    peer::sendAll(c.peer, test::bytesOf("start"));
    ASSERT_TRUE(test::waitUntil([&] { return handedOver.load(); }));
    // A stream of data and writes right behind the hand-over.
    Bytes expected;
    for (int i = 0; i < 20; ++i) {
      auto cmd = test::bytesOf("cmd" + std::to_string(i));
      expected.insert(expected.end(), cmd.begin(), cmd.end());
      peer::sendAll(c.peer, cmd);
      c.sock->writeData(test::bytesOf("frame"), -1, i + 2);
    }
    EXPECT_EQ(peer::receive(c.peer, 20 * 5).size(), 100u);
    c.peer.reset();
    ASSERT_TRUE(test::waitUntil([&] { return second->count(SocketEvent::disconnected) == 1; }));
    EXPECT_EQ(first->kinds(), (std::vector{SocketEvent::connected, SocketEvent::read}));
    EXPECT_EQ(second->readBytes(), expected);
    EXPECT_EQ(second->count(SocketEvent::wrote), 20u);
    EXPECT_EQ(second->kinds().back(), SocketEvent::disconnected);
    EXPECT_EQ(second->first(SocketEvent::disconnected).error->code, 7);
  }
}

// The stop sequence: clear the delegate, then disconnect, from another thread while the connection
// is busy. The old delegate hears nothing of the close, however the events fall.
TEST_F(GCDAsyncSocketConcurrencyTest, DelegateRemovedBeforeDisconnectNeverHearsOfTheClose) {
  for (int round = 0; round < 50; ++round) {
    auto r = std::make_shared<Recorder>();
    auto c = test::connectPair(r, queue);
    ASSERT_TRUE(c.sock);
    r->onRead = [](GCDAsyncSocket* sock, const Bytes&, int64_t) {
      sock->readDataWithTimeout(-1, 0);
    };
    c.sock->readDataWithTimeout(-1, 0);
    std::thread chatter([&] {
      for (int i = 0; i < 50; ++i) c.sock->writeData(test::bytesOf("frame"), -1, i);
    });
    peer::sendAll(c.peer, test::bytesOf("ping"));
    c.sock->setDelegate({});
    c.sock->disconnect();
    chatter.join();
    EXPECT_FALSE(c.sock->isConnected());
    queue->runSync([] {});  // everything posted so far has run
    EXPECT_EQ(r->count(SocketEvent::disconnected), 0u) << "round " << round;
  }
}

TEST_F(GCDAsyncSocketConcurrencyTest, SocketsDroppedOnAnyThreadCloseQuietly) {
  std::vector<test::Connection> connections;
  for (int i = 0; i < 8; ++i) {
    connections.push_back(test::connectPair(recorder, queue));
    ASSERT_TRUE(connections.back().sock);
    connections.back().sock->readDataWithTimeout(-1, i);
    connections.back().sock->writeData(test::patternBytes(1 << 20, i), -1, i);
  }
  std::vector<std::thread> droppers;
  for (auto& c : connections) droppers.emplace_back([&c] { c.sock.reset(); });
  for (auto& d : droppers) d.join();
  for (auto& c : connections) {
    Bytes rest = peer::receive(c.peer, 2 << 20, 5.0);  // until the end of the stream
    EXPECT_LE(rest.size(), 1u << 20);
    EXPECT_TRUE(peer::seesEnd(c.peer, 0.5));
  }
  queue->runSync([] {});
  EXPECT_EQ(recorder->count(SocketEvent::disconnected), 0u);
}

}  // namespace
}  // namespace oxelo
