#include "channels/GCDAsyncSocket.h"

#include <gtest/gtest.h>

#include "channels/SocketWorker.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::Bytes;
using test::bytesOf;
using test::Fd;
using test::LoopbackListener;
using test::SocketEvent;
namespace peer = test::peer;
using Kinds = std::vector<SocketEvent::Kind>;

// The delegate queue is driven by the test, so every delegate call happens on its thread when it
// says so. Time-outs read the default clock, a manual one here: the test steps over them at once.
class GCDAsyncSocketTest : public testing::Test {
 protected:
  GCDAsyncSocketTest() { setDefaultClock(clock); }
  // Events never run are dropped, which lets go of the sockets they name.
  ~GCDAsyncSocketTest() override {
    queue->stop();
    setDefaultClock(nullptr);
  }

  bool pumpUntil(const std::function<bool()>& done, double seconds = 5.0) {
    return test::pumpUntil(*queue, done, seconds);
  }
  bool pumpUntilCount(SocketEvent::Kind kind, size_t n, double seconds = 5.0) {
    return pumpUntil([&] { return recorder->count(kind) >= n; }, seconds);
  }
  // Whatever the worker has done so far has been reported and run.
  void settle() {
    socketworker::runSync([] {});
    queue->runPending();
  }
  // Moves the clock on once the worker has taken every request made so far.
  void advance(double seconds) {
    socketworker::runSync([] {});
    clock->advance(seconds);
  }
  test::Connection connect() {
    auto c = test::connectPair(recorder, queue);
    EXPECT_TRUE(pumpUntilCount(SocketEvent::connected, 1));
    return c;
  }

  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::shared_ptr<Queue> queue = Queue::createDriven("delegate", clock);
  std::shared_ptr<test::Recorder> recorder = std::make_shared<test::Recorder>();
};

// What the request lacks, and what the socket is doing when it comes. A
// request that lacks nothing on an idle socket names the empty host.
enum class Lack { nothing, delegate, queue };
enum class Busy { no, connecting, connected };

struct RefusalCase {
  const char* name;
  const char* request;  // "connect" or "accept"
  Lack lack;
  Busy busy;
};

std::string refusalText(const RefusalCase& c) {
  std::string head = std::string("Attempting to ") + c.request;
  if (c.lack != Lack::nothing) {
    const char* queue = c.lack == Lack::queue ? " queue" : "";
    return head + " without a delegate" + queue + ". Set a delegate" + queue + " first.";
  }
  if (c.busy != Busy::no)
    return head + " while connected or accepting connections. Disconnect first.";
  return "Invalid host parameter (nil or \"\"). Should be a domain name or IP address string.";
}

class GCDAsyncSocketRefusalTest : public GCDAsyncSocketTest,
                                  public testing::WithParamInterface<RefusalCase> {};

TEST_P(GCDAsyncSocketRefusalTest, RefusesWithTheSystemsText) {
  const auto& c = GetParam();
  auto sock = GCDAsyncSocket::create(c.lack == Lack::delegate ? nullptr : recorder,
                                     c.lack == Lack::queue ? nullptr : queue);
  LoopbackListener listener;
  OptionalError error;
  ASSERT_TRUE(c.busy == Busy::no || sock->connectToHost("127.0.0.1", listener.port(), -1, error));
  ASSERT_TRUE(c.busy != Busy::connected || pumpUntilCount(SocketEvent::connected, 1));
  const bool emptyHost = c.lack == Lack::nothing && c.busy == Busy::no;

  bool ok = std::string(c.request) == "accept"
                ? sock->acceptOnPort(0, error)
                : sock->connectToHost(emptyHost ? "" : "127.0.0.1", listener.port(), -1, error);

  EXPECT_FALSE(ok);
  EXPECT_EQ(test::errorText(error), std::string("GCDAsyncSocketErrorDomain ") +
                                        (emptyHost ? "2: " : "1: ") + refusalText(c));
  EXPECT_TRUE(c.busy != Busy::connected || sock->isConnected()) << "the refusal changed nothing";
}

using R = RefusalCase;
INSTANTIATE_TEST_SUITE_P(
    Requests, GCDAsyncSocketRefusalTest,
    testing::Values(R{"ConnectWithoutDelegate", "connect", Lack::delegate, {}},
                    R{"ConnectWithoutQueue", "connect", Lack::queue, {}},
                    R{"ConnectWhileConnecting", "connect", {}, Busy::connecting},
                    R{"ConnectWhileConnected", "connect", {}, Busy::connected},
                    R{"ConnectToEmptyHost", "connect", {}, {}},
                    R{"AcceptWithoutDelegate", "accept", Lack::delegate, {}},
                    R{"AcceptWithoutQueue", "accept", Lack::queue, {}},
                    R{"AcceptWhileConnecting", "accept", {}, Busy::connecting}),
    [](const auto& info) { return info.param.name; });

// Requests made while connecting run once connected.
TEST_F(GCDAsyncSocketTest, ConnectReportsThePeerAndRunsTheRequestsMadeMeanwhile) {
  LoopbackListener listener;
  auto sock = GCDAsyncSocket::create(recorder, queue);
  OptionalError error;
  ASSERT_TRUE(sock->connectToHost("localhost", listener.port(), 5.0, error));
  EXPECT_FALSE(error);
  sock->writeData(bytesOf("hello"), -1, 1);
  sock->readDataWithTimeout(-1, 2);
  Fd other = listener.accept();
  EXPECT_EQ(peer::receive(other, 5), bytesOf("hello"));
  peer::sendAll(other, bytesOf("back"));
  ASSERT_TRUE(pumpUntilCount(SocketEvent::read, 1));
  EXPECT_EQ(recorder->kinds(),
            (Kinds{SocketEvent::connected, SocketEvent::wrote, SocketEvent::read}));
  auto e = recorder->first(SocketEvent::connected);
  EXPECT_EQ(std::tuple(e.sock, e.host, e.port),
            std::tuple(sock.get(), "127.0.0.1", listener.port()));
  EXPECT_EQ(std::tuple(sock->connectedHost(), sock->connectedPort()),
            std::tuple("127.0.0.1", listener.port()));
  EXPECT_NE(sock->localPort(), 0);
  EXPECT_EQ(recorder->readBytes(), bytesOf("back"));
  EXPECT_EQ(recorder->tags(SocketEvent::read), std::vector<int64_t>{2});
}

// A connect to a closed port ends in the system's error and leaves the
// socket idle, where requests are dropped silently.
TEST_F(GCDAsyncSocketTest, AFailedConnectLeavesTheSocketIdleWhereRequestsAreDropped) {
  LoopbackListener listener;
  auto sock = GCDAsyncSocket::create(recorder, queue);
  OptionalError error;
  ASSERT_TRUE(sock->connectToHost("127.0.0.1", peer::closedPort(), 5.0, error));
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1));
  EXPECT_TRUE(test::isError(recorder->first(SocketEvent::disconnected).error, kPosixErrorDomain,
                            ECONNREFUSED));
  EXPECT_FALSE(sock->isConnected());
  sock->writeData(bytesOf("early"), -1, 1);
  sock->readDataWithTimeout(1.0, 2);
  ASSERT_TRUE(sock->connectToHost("127.0.0.1", listener.port(), -1, error));
  sock->writeData(bytesOf("late"), -1, 3);
  sock->writeData(Bytes{}, -1, 4);  // empty writes are ignored
  sock->writeData(std::shared_ptr<const Bytes>(), -1, 5);
  Fd other = listener.accept();
  EXPECT_EQ(peer::receive(other, 4), bytesOf("late"));
  ASSERT_TRUE(pumpUntilCount(SocketEvent::wrote, 1));
  advance(2.0);  // a dropped read with a time-out would close now
  settle();
  EXPECT_EQ(recorder->kinds(),
            (Kinds{SocketEvent::disconnected, SocketEvent::connected, SocketEvent::wrote}));
  EXPECT_EQ(recorder->first(SocketEvent::wrote).tag, 3);
  EXPECT_TRUE(sock->isConnected());
}

// Reads without a time-out wait for data and end in queue order; one read takes all that has
// arrived; a read with a time-out that gets nothing closes the connection.
TEST_F(GCDAsyncSocketTest, ReadsTakeWhatHasArrivedInQueueOrderAndTimeOut) {
  auto c = connect();
  for (int tag = 1; tag <= 3; ++tag) c.sock->readDataWithTimeout(-1, tag);
  advance(3600);
  settle();
  EXPECT_EQ(recorder->count(SocketEvent::read), 0u);
  EXPECT_TRUE(c.sock->isConnected());
  for (int i = 1; i <= 3; ++i) {
    peer::sendAll(c.peer, bytesOf("packet" + std::to_string(i)));
    ASSERT_TRUE(pumpUntilCount(SocketEvent::read, static_cast<size_t>(i)));
  }
  peer::sendAll(c.peer, bytesOf("first;"));
  peer::sendAll(c.peer, bytesOf("second"));
  // Both have reached the socket before the read is asked for.
  ASSERT_TRUE(peer::waitDelivered(c.peer));
  c.sock->readDataWithTimeout(-1, 7);
  c.sock->readDataWithTimeout(5.0, 8);
  ASSERT_TRUE(pumpUntilCount(SocketEvent::read, 4));
  EXPECT_EQ(recorder->tags(SocketEvent::read), (std::vector<int64_t>{1, 2, 3, 7}));
  EXPECT_EQ(recorder->readBytes(), bytesOf("packet1packet2packet3first;second"));
  advance(5.1);
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1));
  EXPECT_EQ(recorder->count(SocketEvent::read), 4u);
}

struct PeerCloseCase {
  const char* name;
  int readsBefore;  // reads asked for before the peer closes
  std::string sent;
  bool readAfter;  // the bytes wait, and the close with them, until a read
};

class GCDAsyncSocketPeerCloseTest : public GCDAsyncSocketTest,
                                    public testing::WithParamInterface<PeerCloseCase> {};

TEST_P(GCDAsyncSocketPeerCloseTest, ComesAfterTheLastBytesWithCode7) {
  const auto& p = GetParam();
  auto c = connect();
  for (int tag = 1; tag <= p.readsBefore; ++tag) c.sock->readDataWithTimeout(-1, tag);
  if (!p.sent.empty()) peer::sendAll(c.peer, bytesOf(p.sent));
  c.peer.reset();
  if (p.readAfter) {
    test::pumpFor(*queue, 0.1);  // the close has reached the socket by now
    EXPECT_EQ(recorder->count(SocketEvent::disconnected), 0u);
    EXPECT_TRUE(c.sock->isConnected());
    c.sock->readDataWithTimeout(-1, 3);
  }
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1));
  Kinds expected{SocketEvent::connected, SocketEvent::read, SocketEvent::disconnected};
  if (p.sent.empty()) expected.erase(expected.begin() + 1);
  EXPECT_EQ(recorder->kinds(), expected);
  EXPECT_EQ(recorder->readBytes(), bytesOf(p.sent));
  EXPECT_EQ(test::errorText(recorder->first(SocketEvent::disconnected).error),
            "GCDAsyncSocketErrorDomain 7: Socket closed by remote peer");
  EXPECT_FALSE(c.sock->isConnected());
}

INSTANTIATE_TEST_SUITE_P(Closes, GCDAsyncSocketPeerCloseTest,
                         testing::Values(PeerCloseCase{"WhileReading", 2, "last words", false},
                                         PeerCloseCase{"IdleIsNoticedWithoutARead", 0, "", false},
                                         PeerCloseCase{"BytesLeftBehindWaitForTheNextRead", 0,
                                                       "unread", true}),
                         [](const auto& info) { return info.param.name; });

// The peer does not read: the buffers fill and the write stalls. Each
// extension runs from the question; the write finishes once the peer reads.
TEST_F(GCDAsyncSocketTest, ExtendedWriteIsAskedAgainAndFinishesWhenThePeerReads) {
  auto c = connect();
  recorder->answerWriteTimeouts({2.0, 30.0});
  auto data = std::make_shared<const Bytes>(test::patternBytes(32 << 20, 4));
  c.sock->writeData(data, 5.0, 11);
  advance(5.1);
  ASSERT_TRUE(pumpUntilCount(SocketEvent::shouldTimeout, 1));
  advance(1.8);
  settle();
  EXPECT_EQ(recorder->count(SocketEvent::shouldTimeout), 1u) << "asked before the extension ended";
  advance(0.3);
  ASSERT_TRUE(pumpUntilCount(SocketEvent::shouldTimeout, 2));
  EXPECT_NEAR(recorder->events().back().elapsed, 7.2, 1e-9);
  EXPECT_TRUE(peer::receive(c.peer, data->size(), 30.0) == *data);
  ASSERT_TRUE(pumpUntilCount(SocketEvent::wrote, 1));
  EXPECT_EQ(recorder->kinds(), (Kinds{SocketEvent::connected, SocketEvent::shouldTimeout,
                                      SocketEvent::shouldTimeout, SocketEvent::wrote}));
  EXPECT_TRUE(c.sock->isConnected());
}

// After it the socket may connect again.
TEST_F(GCDAsyncSocketTest, DisconnectIsImmediateAndReportedOnceWithNoError) {
  auto c = connect();
  c.sock->readDataWithTimeout(-1, 1);
  c.sock->disconnect();
  EXPECT_FALSE(c.sock->isConnected());
  c.sock->disconnect();
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1));
  settle();
  EXPECT_EQ(recorder->kinds(), (Kinds{SocketEvent::connected, SocketEvent::disconnected}));
  EXPECT_FALSE(recorder->first(SocketEvent::disconnected).error);
  EXPECT_TRUE(peer::seesEnd(c.peer));

  LoopbackListener listener;
  OptionalError error;
  ASSERT_TRUE(c.sock->connectToHost("127.0.0.1", listener.port(), 5.0, error));
  Fd other = listener.accept();
  ASSERT_TRUE(pumpUntilCount(SocketEvent::connected, 2));
  EXPECT_EQ(recorder->kinds(),
            (Kinds{SocketEvent::connected, SocketEvent::disconnected, SocketEvent::connected}));
}

// An event that happened before the change but is still waiting on the
// delegate queue goes to whoever is the delegate when it runs.
TEST_F(GCDAsyncSocketTest, EventWaitingOnTheQueueGoesToTheDelegateOfThatMoment) {
  for (bool handOver : {true, false}) {
    recorder = std::make_shared<test::Recorder>();
    auto c = connect();
    c.peer.reset();
    // The close has happened on the worker; its report waits on our queue.
    ASSERT_TRUE(test::waitUntil([&] { return !c.sock->isConnected(); }));
    auto next = std::make_shared<test::Recorder>();
    c.sock->setDelegate(handOver ? std::weak_ptr<GCDAsyncSocketDelegate>(next)
                                 : std::weak_ptr<GCDAsyncSocketDelegate>());
    settle();
    EXPECT_EQ(recorder->kinds(), Kinds{SocketEvent::connected}) << handOver;
    EXPECT_EQ(next->count(SocketEvent::disconnected), handOver ? 1u : 0u) << handOver;
  }
}

// A port in use fails the accept and leaves the socket idle, so it may try
// again elsewhere; once dropped, a listener's port is free.
TEST_F(GCDAsyncSocketTest, AcceptAnnouncesTheNewSocketWithThePeersAddressBeforeItsEvents) {
  test::LoopbackListener taken;
  auto listener = GCDAsyncSocket::create(recorder, queue);
  OptionalError error;
  EXPECT_FALSE(listener->acceptOnPort(taken.port(), error));
  EXPECT_TRUE(test::isError(error, kPosixErrorDomain, EADDRINUSE));
  ASSERT_TRUE(listener->acceptOnPort(0, error));
  ASSERT_NE(listener->localPort(), 0);
  recorder->onAccept = [](GCDAsyncSocket*, const std::shared_ptr<GCDAsyncSocket>& s) {
    s->readDataWithTimeout(-1, 8811);
  };
  Fd caller = peer::connect(listener->localPort());
  peer::sendAll(caller, bytesOf("hello"));
  ASSERT_TRUE(pumpUntilCount(SocketEvent::read, 1));
  auto accepted = recorder->first(SocketEvent::accepted).newSocket;
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->connectedAddress().host(), "127.0.0.1");
  EXPECT_EQ(accepted->connectedHost(), "127.0.0.1");
  accepted->writeData(bytesOf("hi"), 5.0, 8810);
  EXPECT_EQ(peer::receive(caller, 2), bytesOf("hi"));
  caller.reset();
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1));
  // The listener's delegate and queue hear the accepted socket's events.
  EXPECT_EQ(recorder->kinds(), (Kinds{SocketEvent::accepted, SocketEvent::read, SocketEvent::wrote,
                                      SocketEvent::disconnected}));
  EXPECT_EQ(recorder->readBytes(), bytesOf("hello"));
  auto events = recorder->events();
  EXPECT_EQ(events[0].sock, listener.get());
  for (size_t i = 1; i < 4; ++i) EXPECT_EQ(events[i].sock, accepted.get()) << i;

  uint16_t port = listener->localPort();
  listener.reset();
  auto again = GCDAsyncSocket::create(recorder, queue);
  EXPECT_TRUE(again->acceptOnPort(port, error)) << test::errorText(error);
}

enum class TimedOperation { connect, read, write };

struct ClockTimeoutCase {
  const char* name;
  TimedOperation operation;
  int64_t code;
  const char* text;
};

class GCDAsyncSocketClockTest : public GCDAsyncSocketTest,
                                public testing::WithParamInterface<ClockTimeoutCase> {};

TEST_P(GCDAsyncSocketClockTest, ExpiresWhenTheClockPassesTheTimeOutAndNotBefore) {
  constexpr double kTimeout = 5.0;
  const auto& param = GetParam();
  // A listener whose queue of connections is full: a further connect waits
  // for an answer that does not come.
  LoopbackListener listener(/*backlog=*/0);
  Fd filler;
  test::Connection c;
  c.sock = GCDAsyncSocket::create(recorder, queue);
  OptionalError error;
  const size_t size = 64 << 20;
  if (param.operation == TimedOperation::connect) {
    filler = peer::connect(listener.port());
    ASSERT_TRUE(c.sock->connectToHost("127.0.0.1", listener.port(), kTimeout, error));
  } else {
    ASSERT_TRUE(c.sock->connectToHost("127.0.0.1", listener.port(), -1, error));
    c.peer = listener.accept();
    ASSERT_TRUE(pumpUntilCount(SocketEvent::connected, 1));
    if (param.operation == TimedOperation::read) c.sock->readDataWithTimeout(kTimeout, 4);
    // The peer never reads: the write stalls once the buffers are full.
    if (param.operation == TimedOperation::write)
      c.sock->writeData(std::make_shared<const Bytes>(test::patternBytes(size, 5)), kTimeout, 5);
  }

  advance(kTimeout - 0.1);
  test::pumpFor(*queue, 0.2);
  EXPECT_EQ(recorder->count(SocketEvent::disconnected), 0u) << "expired early";
  EXPECT_EQ(recorder->count(SocketEvent::shouldTimeout), 0u) << "expired early";
  ASSERT_EQ(recorder->count(SocketEvent::connected),
            param.operation == TimedOperation::connect ? 0u : 1u)
      << "the connect was answered after all";

  advance(0.2);
  // Far less than the time-out in real time: only the manual clock can end it.
  ASSERT_TRUE(pumpUntilCount(SocketEvent::disconnected, 1, 2.0));
  EXPECT_EQ(test::errorText(recorder->first(SocketEvent::disconnected).error),
            "GCDAsyncSocketErrorDomain " + std::to_string(param.code) + ": " + param.text);
  EXPECT_FALSE(c.sock->isConnected());
  EXPECT_TRUE(param.operation != TimedOperation::read || peer::seesEnd(c.peer))
      << "a read that timed out closes the connection";
  if (param.operation == TimedOperation::write) {
    // Asked once, then closed; measured on the same clock: exactly the manual time that went by.
    EXPECT_EQ(recorder->kinds(), (Kinds{SocketEvent::connected, SocketEvent::shouldTimeout,
                                        SocketEvent::disconnected}));
    auto question = recorder->first(SocketEvent::shouldTimeout);
    EXPECT_EQ(question.tag, 5);
    EXPECT_NEAR(question.elapsed, kTimeout + 0.1, 1e-9);
    EXPECT_GT(question.bytesDone, 0u);
    EXPECT_LT(question.bytesDone, size);
  }
}

using T = ClockTimeoutCase;
INSTANTIATE_TEST_SUITE_P(
    TimeOuts, GCDAsyncSocketClockTest,
    testing::Values(T{"Connect", TimedOperation::connect, 3,
                      "Attempt to connect to host timed out"},
                    T{"Read", TimedOperation::read, 4, "Read operation timed out"},
                    T{"Write", TimedOperation::write, 5, "Write operation timed out"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
