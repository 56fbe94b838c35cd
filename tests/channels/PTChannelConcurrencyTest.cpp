#include <gtest/gtest.h>
#include <atomic>
#include <map>
#include <thread>

#include "channels/PTChannel.h"
#include "platform/dispatch/MainQueue.h"
#include "tests/channels/support/PTChannelTestSupport.h"

namespace oxelo {
namespace {

using namespace test;

// Payload sizes vary from none to tens of kilobytes; the bytes name the frame.
// Threads are numbered from 1 and send frames of their own number as type.
Bytes payloadFor(uint32_t thread, uint32_t index) {
  size_t size = index % 25 == 0 ? 0 : (index * 7919u + thread * 104729u) % 30000;
  return patternBytes(size, thread * 100000 + index);
}

// Counts write results, wherever they are called from.
struct Results {
  // cancelled: ECANCELED, dropped by close(); refused: EPERM, sent after close().
  std::atomic<int> calls{0}, succeeded{0}, cancelled{0}, refused{0}, other{0}, offMainQueue{0};

  PTChannel::Callback callback() {
    return [this](OptionalError error) {
      offMainQueue += !MainQueue::isCurrent();
      ++(!error                                         ? succeeded
         : isError(error, kPosixErrorDomain, ECANCELED) ? cancelled
         : isError(error, kPosixErrorDomain, EPERM)     ? refused
                                                        : other);
      ++calls;
    };
  }
};

using PTChannelConcurrencyTest = PTListenerTest;

class PTChannelThreadsTest : public PTListenerTest, public testing::WithParamInterface<bool> {};

// Threads send at once and, with the parameter, the channel closes while they do: every callback
// comes once, on the main queue, and each whole frame on the wire is a write that succeeded, in its
// thread's order and unmixed with any other.
TEST_P(PTChannelThreadsTest, FramesFromSeveralThreadsArriveWholeAndInCallOrder) {
  const bool closeMidway = GetParam();
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  constexpr uint32_t kThreads = 3;
  constexpr uint32_t kPerThread = 300;
  constexpr int kTotal = kThreads * kPerThread;
  std::optional<Bytes> wire;
  std::thread reader([&] { wire = peer::readToEnd(peer, 30.0); });
  Results results;
  std::vector<std::thread> senders;
  for (uint32_t t = 1; t <= kThreads; ++t) {
    senders.emplace_back([&, t] {
      for (uint32_t i = 0; i < kPerThread; ++i)
        channel->sendFrameOfType(t, i, payloadFor(t, i), results.callback());
    });
  }
  if (closeMidway) {
    EXPECT_TRUE(pumpUntil([&] { return results.succeeded >= 20; }, 30.0));
    channel->close();
  }
  for (auto& sender : senders) sender.join();
  // Write completions come on the main queue, which this thread runs.
  EXPECT_TRUE(pumpUntil([&] { return results.calls == kTotal; }, 30.0));
  if (!closeMidway) channel->close();  // nothing left to drop: the stream ends
  reader.join();

  EXPECT_EQ(results.other, 0);
  EXPECT_EQ(results.offMainQueue, 0);
  EXPECT_EQ(results.succeeded + results.cancelled + results.refused, kTotal);
  EXPECT_TRUE(closeMidway || results.succeeded == kTotal) << results.succeeded;
  ASSERT_TRUE(wire) << "the stream did not end";
  size_t rest = 0;
  auto frames = parseFrames(*wire, &rest);
  EXPECT_TRUE(closeMidway || rest == 0) << rest << " bytes of a cut frame";
  // What the kernel took before a close still arrives.
  EXPECT_EQ(frames.size(), size_t(results.succeeded));
  std::map<uint32_t, uint32_t> nextTag;
  for (auto& frame : frames) {
    ASSERT_EQ(frame.version, 1u);
    uint32_t& expected = nextTag[frame.type];
    ASSERT_EQ(frame.tag, expected) << "thread " << frame.type << " out of order";
    ASSERT_TRUE(frame.payload == payloadFor(frame.type, frame.tag))
        << "frame " << frame.type << "/" << frame.tag << " mixed with another";
    ++expected;
  }
}

INSTANTIATE_TEST_SUITE_P(Threads, PTChannelThreadsTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "CloseMidway" : "AllSent"; });

TEST_F(PTChannelConcurrencyTest, DelegateChangesOnAnotherThreadWhileFramesArrive) {
  Fd peer;
  auto channel = connectPeer(peer);
  ASSERT_TRUE(channel);
  constexpr uint32_t kFrames = 400;
  std::atomic<bool> handedOver{false};
  std::thread owner([&] {
    // Hands the channel back and forth, as the main screen and the live
    // screen do, then keeps the recorder.
    for (int i = 0; i < 200; ++i) {
      channel->setDelegate(i % 2 ? recorder : nullptr);
      std::this_thread::yield();
    }
    channel->setDelegate(recorder);
    handedOver = true;
  });
  std::thread writer([&] {
    for (uint32_t i = 0; i < kFrames; ++i) peer::sendAll(peer, frame(1, i, payloadFor(1, i)));
    while (!handedOver) std::this_thread::yield();
    peer::sendAll(peer, frame(2, 0, bytesOf("last")));
  });
  EXPECT_TRUE(pumpUntil(
      [&] { return !recorder->frames.empty() && recorder->frames.back().type == 2; }, 30.0));
  owner.join();
  writer.join();

  uint32_t previous = 0;
  bool first = true;
  for (auto& frame : recorder->frames) {
    if (frame.type == 2) break;
    ASSERT_EQ(frame.type, 1u);
    ASSERT_TRUE(first || frame.tag > previous);
    ASSERT_TRUE(frame.payload == payloadFor(1, frame.tag));
    previous = frame.tag;
    first = false;
  }
  EXPECT_EQ(recorder->frames.back().payload, bytesOf("last"));
  EXPECT_TRUE(channel->isConnected());
  EXPECT_TRUE(recorder->allOnMainQueue);
}

}  // namespace
}  // namespace oxelo
