#include "channels/PTChannel.h"

#include <netinet/tcp.h>

#include <gtest/gtest.h>

#include "tests/channels/support/PTChannelTestSupport.h"

namespace oxelo {
namespace {

using namespace test;

uint16_t localPortOf(const Fd& fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

using PTChannelTest = PTListenerTest;

// An accepted channel that no one keeps ends its connection and reports nothing.
TEST_F(PTChannelTest, AcceptedChannelTakesTheListenersDelegateAndProtocolAndEndsWhenDropped) {
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  EXPECT_TRUE(channel->isConnected());
  EXPECT_FALSE(channel->isListening());
  EXPECT_EQ(channel->delegate(), recorder);
  EXPECT_EQ(channel->protocol(), listener->protocol());
  EXPECT_EQ(listener->protocol(), PTProtocol::sharedProtocolForQueue(MainQueue::get()));
  EXPECT_TRUE(listener->isListening());
  ASSERT_EQ(recorder->addresses.size(), 1u);
  EXPECT_EQ(recorder->addresses[0].description(), "127.0.0.1:" + std::to_string(localPortOf(peer)));
  EXPECT_TRUE(recorder->allOnMainQueue);

  std::weak_ptr<PTChannel> weak = channel;
  channel.reset();
  recorder->accepted.clear();
  EXPECT_TRUE(weak.expired());
  EXPECT_TRUE(peer::seesEnd(peer));
  main.drain();
  EXPECT_TRUE(recorder->ends.empty()) << "a channel that is gone reports nothing";
}

TEST_F(PTChannelTest, SendWritesBigEndianHeaderAndPayloadAndCallsBackOnce) {
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  SendResults results;
  channel->sendFrameOfType(0x65, 0x01020304, Bytes{0xAA, 0xBB, 0xCC}, results.callback());
  channel->sendFrameOfType(88, 8810, {}, results.callback());  // no payload
  channel->sendFrameOfType(0xFFFFFFFF, 0, Bytes{0x00});        // no callback

  const Bytes expected =
      hex("00000001 00000065 01020304 00000003 AABBCC | 00000001 00000058 0000226A 00000000"
          "| 00000001 FFFFFFFF 00000000 00000001 00");
  EXPECT_EQ(peer::receive(peer, expected.size()), expected);
  ASSERT_TRUE(pumpUntil([&] { return results.errors.size() == 2; }));
  pumpFor(main.main(), 0.05);
  EXPECT_TRUE(results.errors == std::vector<OptionalError>(2)) << "each once, with no error";
  EXPECT_TRUE(results.onMain);
}

struct ReceiveCase {
  const char* name;
  size_t chunk;  // the peer's write size; 0: everything in one write
};

class PTChannelReceiveTest : public PTChannelTest,
                             public testing::WithParamInterface<ReceiveCase> {};

TEST_P(PTChannelReceiveTest, DeliversEveryFrameWholeHoweverTheBytesArrive) {
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  const Bytes big = patternBytes(20000, 4);
  const Bytes odd = patternBytes(300, 3);
  Bytes wire = cat({frame(1, 10, bytesOf("hello")), frame(2, 20), frame(3, 0xFFFFFFFF, odd),
                    frame(0x7FFFFFFF, 4, big)});
  const size_t chunk = GetParam().chunk ? GetParam().chunk : wire.size();
  int one = 1;
  setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  for (size_t at = 0; at < wire.size(); at += chunk)
    peer::sendAll(peer, Bytes(wire.begin() + at, wire.begin() + std::min(at + chunk, wire.size())));
  ASSERT_TRUE(pumpUntil([&] { return recorder->frames.size() == 4; }));
  // A frame of size 0 comes with no payload.
  std::vector<std::tuple<uint32_t, uint32_t, bool, Bytes>> got,
      expected{{1, 10, true, bytesOf("hello")},
               {2, 20, false, {}},
               {3, 0xFFFFFFFF, true, odd},
               {0x7FFFFFFF, 4, true, big}};
  for (auto& f : recorder->frames) got.emplace_back(f.type, f.tag, f.hasPayload, f.payload);
  EXPECT_TRUE(got == expected);
  for (auto& frame : recorder->frames) EXPECT_EQ(frame.channel, channel);
  EXPECT_TRUE(recorder->allOnMainQueue);
  EXPECT_TRUE(channel->isConnected());
  EXPECT_TRUE(recorder->ends.empty());
}

INSTANTIATE_TEST_SUITE_P(Delivery, PTChannelReceiveTest,
                         testing::Values(ReceiveCase{"SeveralFramesInOneWrite", 0},
                                         ReceiveCase{"ByteByByte", 1}),
                         [](const auto& info) { return std::string(info.param.name); });

enum class PeerThen { keepsOpen, endsItsStream, resets };

struct EndCase {
  const char* name;
  Bytes tail;  // what the peer sends after one good frame
  PeerThen then;
  const char* errorDomain;  // nullptr: a quiet end
  int64_t errorCode;
};

class PTChannelEndTest : public PTChannelTest, public testing::WithParamInterface<EndCase> {};

TEST_P(PTChannelEndTest, EndsOnceWithTheRightErrorAndClosesTheStream) {
  const EndCase& c = GetParam();
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  peer::sendAll(peer, frame(7, 70, bytesOf("ok")));
  ASSERT_TRUE(pumpUntil([&] { return recorder->frames.size() == 1; }));

  if (!c.tail.empty()) peer::sendAll(peer, c.tail);
  if (c.then == PeerThen::endsItsStream) ::shutdown(peer.get(), SHUT_WR);
  if (c.then == PeerThen::resets) {
    linger hard{1, 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    peer.reset();
  }
  ASSERT_TRUE(pumpUntil([&] { return recorder->endsOf(channel) == 1; }));
  const OptionalError& error = recorder->ends[0].error;
  EXPECT_TRUE(c.errorDomain ? isError(error, c.errorDomain, c.errorCode) : !error)
      << errorText(error);
  EXPECT_FALSE(channel->isConnected());
  EXPECT_EQ(channel->connState(), PTChannel::kStateNone);
  // The channel closed its socket.
  EXPECT_TRUE(!peer.valid() || peer::readToEnd(peer) == Bytes{});
  pumpFor(main.main(), 0.05);
  EXPECT_EQ(recorder->endsOf(channel), 1u);
  ASSERT_EQ(recorder->frames.size(), 1u) << "nothing after the good frame is delivered";
  EXPECT_EQ(recorder->frames[0].payload, bytesOf("ok"));
}

INSTANTIATE_TEST_SUITE_P(
    Endings, PTChannelEndTest,
    testing::Values(EndCase{"FrameOfTypeZero", cat({frame(0, 0), frame(9, 9, bytesOf("after"))}),
                            PeerThen::keepsOpen, nullptr, 0},
                    EndCase{"EndBetweenFrames", {}, PeerThen::endsItsStream, nullptr, 0},
                    EndCase{"EndInsidePayload", frame(5, 5, bytesOf("abcd"), 1, 10),
                            PeerThen::endsItsStream, nullptr, 0},
                    EndCase{"VersionTwo", cat({frame(5, 5, bytesOf("abc"), 2), frame(6, 6)}),
                            PeerThen::keepsOpen, "PTProtocolError", 0},
                    EndCase{"EndInsideHeader", Bytes{0, 0, 0, 1, 0, 0, 0}, PeerThen::endsItsStream,
                            "PTProtocolError", 0},
                    EndCase{"PeerReset", {}, PeerThen::resets, "NSPOSIXErrorDomain", ECONNRESET}),
    [](const auto& info) { return std::string(info.param.name); });

class PTChannelStopTest : public PTChannelTest, public testing::WithParamInterface<bool> {
 protected:
  void stop(PTChannel& channel) { GetParam() ? channel.cancel() : channel.close(); }
};

TEST_P(PTChannelStopTest, StoppedListenerRefusesConnectionsAndReportsItsEnd) {
  uint16_t port = listener->listeningPort();
  stop(*listener);
  EXPECT_FALSE(listener->isListening());
  EXPECT_EQ(listener->connState(), PTChannel::kStateNone);
  ASSERT_TRUE(pumpUntil([&] { return recorder->endsOf(listener) == 1; }));
  EXPECT_FALSE(recorder->ends[0].error);
  EXPECT_THROW(peer::connect(port), std::runtime_error);
}

// A send after the stop fails at once, on the main queue, and sends nothing.
TEST_P(PTChannelStopTest, CancelFinishesPendingWritesCloseDropsThemAndLaterSendsFail) {
  const bool cancel = GetParam();
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  // More than the socket buffers hold while the peer does not read.
  constexpr uint32_t kFrames = 16;
  const Bytes payload = patternBytes(1 << 20, 9);
  SendResults sends, late;
  for (uint32_t i = 0; i < kFrames; ++i)
    channel->sendFrameOfType(100 + i, i, payload, sends.callback());
  stop(*channel);
  EXPECT_FALSE(channel->isConnected());
  EXPECT_EQ(channel->connState(), PTChannel::kStateNone);
  channel->sendFrameOfType(1, 2, bytesOf("late"), late.callback());

  auto wire = peer::readToEnd(peer, 30.0);
  ASSERT_TRUE(wire) << "the stream did not end";
  ASSERT_TRUE(pumpUntil([&] { return sends.errors.size() == kFrames && late.errors.size() == 1; }));
  EXPECT_TRUE(isError(late.errors[0], "NSPOSIXErrorDomain", 1));
  EXPECT_TRUE(sends.onMain && late.onMain);
  const auto& results = sends.errors;
  size_t rest = 0;
  auto frames = parseFrames(*wire, &rest);
  for (uint32_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i].version, 1u);
    EXPECT_EQ(frames[i].type, 100 + i);
    EXPECT_EQ(frames[i].tag, i);
    EXPECT_TRUE(frames[i].payload == payload) << "frame " << i;
  }
  // Successes first, then cancellations only; each whole frame on the wire succeeded, no other.
  auto firstError = std::find_if(results.begin(), results.end(), [](auto& e) { return bool(e); });
  for (auto e = firstError; e != results.end(); ++e)
    EXPECT_TRUE(isError(*e, "NSPOSIXErrorDomain", ECANCELED)) << errorText(*e);
  EXPECT_EQ(size_t(firstError - results.begin()), frames.size());
  EXPECT_TRUE(cancel ? frames.size() == kFrames && rest == 0 : frames.size() < kFrames)
      << frames.size() << " frames and " << rest << " bytes";
  ASSERT_TRUE(pumpUntil([&] { return recorder->endsOf(channel) == 1; }));
  EXPECT_FALSE(recorder->ends[0].error);
}

INSTANTIATE_TEST_SUITE_P(CancelOrClose, PTChannelStopTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "Cancel" : "Close"; });

// A listener takes neither a stream nor frames to send.
TEST_F(PTChannelTest, StartReadingMakesAChannelOfAnyConnectedStreamButAListener) {
  SendResults results;
  listener->sendFrameOfType(1, 1, bytesOf("x"), results.callback());
  ASSERT_TRUE(pumpUntil([&] { return results.errors.size() == 1; }));
  EXPECT_TRUE(isError(results.errors[0], "NSPOSIXErrorDomain", 1));

  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  Fd far(pair[1]);
  auto stream = PTIOStream::create(pair[0], MainQueue::get());
  ASSERT_TRUE(stream);
  OptionalError error;
  EXPECT_FALSE(listener->startReadingFromConnectedChannel(stream, &error));
  EXPECT_TRUE(isError(error, "NSPOSIXErrorDomain", 1));
  EXPECT_TRUE(listener->isListening());

  auto channel = PTChannel::create(nullptr, recorder);
  EXPECT_FALSE(channel->isConnected());
  ASSERT_TRUE(channel->startReadingFromConnectedChannel(stream, &error));
  EXPECT_TRUE(channel->isConnected());
  peer::sendAll(far, frame(4, 44, bytesOf("pair")));
  ASSERT_TRUE(pumpUntil([&] { return recorder->frames.size() == 1; }));
  EXPECT_EQ(recorder->frames[0].payload, bytesOf("pair"));
  channel->sendFrameOfType(5, 55, bytesOf("back"));
  EXPECT_EQ(peer::receive(far, 20), frame(5, 55, bytesOf("back")));

  far.reset();
  ASSERT_TRUE(pumpUntil([&] { return recorder->endsOf(channel) == 1; }));
  EXPECT_FALSE(recorder->ends[0].error);
  EXPECT_FALSE(channel->isConnected());
  channel->setDelegate({});
}

struct AcceptCase {
  const char* name;
  bool delegateHasShouldAccept;
  size_t refusedPayloadSize;
  std::vector<uint32_t> deliveredTypes;
};

class PTChannelShouldAcceptTest : public PTChannelTest,
                                  public testing::WithParamInterface<AcceptCase> {};

TEST_P(PTChannelShouldAcceptTest, RefusedFramesAreSkippedWholly) {
  const AcceptCase& c = GetParam();
  if (c.delegateHasShouldAccept) recorder->ops |= kPTDelegateShouldAcceptFrame;
  recorder->refuseType = 7;
  Fd peer;
  auto channel = connectPeer(peer);  // made with the recorder's operations of now
  ASSERT_TRUE(channel);
  peer::sendAll(peer, cat({frame(7, 1, patternBytes(c.refusedPayloadSize, 7)),
                           frame(8, 2, bytesOf("next"))}));
  ASSERT_TRUE(pumpUntil([&] { return recorder->frames.size() == c.deliveredTypes.size(); }));
  std::vector<uint32_t> types;
  for (auto& frame : recorder->frames) types.push_back(frame.type);
  EXPECT_EQ(types, c.deliveredTypes);
  EXPECT_EQ(recorder->frames.back().payload, bytesOf("next"));
  EXPECT_EQ(recorder->asked,
            (c.delegateHasShouldAccept ? std::vector<uint32_t>{7, 8} : std::vector<uint32_t>{}));
  EXPECT_TRUE(channel->isConnected());
}

INSTANTIATE_TEST_SUITE_P(
    Frames, PTChannelShouldAcceptTest,
    testing::Values(AcceptCase{"RefusedEmptyFrame", true, 0, {8}},
                    AcceptCase{"RefusedPayloadOfManyReads", true, 200000, {8}},
                    AcceptCase{"DelegateWithoutTheQuestionGetsAll", false, 5, {7, 8}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PTChannelTest, ListenerClosesWhatItsDelegateCannotTakeAndHoldsItsPort) {
  recorder->ops = 0xFF ^ kPTDelegateDidAcceptConnection;  // every bit but that one
  listener->setDelegate(recorder);
  EXPECT_EQ(listener->delegateFlags(), kPTDelegateShouldAcceptFrame | kPTDelegateDidEndWithError)
      << "only the three optional operations count";
  Fd peer = peer::connect(listener->listeningPort());
  EXPECT_TRUE(pumpUntil([&] { return peer::seesEnd(peer, 0); }));
  EXPECT_TRUE(recorder->accepted.empty());
  EXPECT_TRUE(listener->isListening());
  listener->setDelegate({});
  EXPECT_EQ(listener->delegateFlags(), 0);
  EXPECT_EQ(listener->delegate(), nullptr);

  // A second listener on its port reports the system error.
  auto second = PTChannel::channelWithDelegate(recorder);
  OptionalError result = Error{"not called", -1, "", ""};
  second->listenOnPort(listener->listeningPort(), kLoopback, [&](OptionalError e) { result = e; });
  // The callback runs before listenOnPort returns.
  EXPECT_TRUE(isError(result, "NSPOSIXErrorDomain", EADDRINUSE)) << errorText(result);
  EXPECT_FALSE(second->isListening());
  EXPECT_EQ(second->listeningPort(), 0);
  second->setDelegate({});
}

}  // namespace
}  // namespace oxelo
