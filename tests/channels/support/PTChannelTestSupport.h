#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "channels/PTChannel.h"
#include "platform/dispatch/MainQueue.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo::test {

struct PTFrameEvent {
  std::shared_ptr<PTChannel> channel;
  uint32_t type = 0;
  uint32_t tag = 0;
  bool hasPayload = false;
  Bytes payload;
};

struct PTEndEvent {
  std::shared_ptr<PTChannel> channel;
  OptionalError error;
};

// Records every delegate call; its optional operations are `ops`, set before setDelegate. Used on
// the main queue only, which the test itself runs.
class PTRecorder : public PTChannelDelegate {
 public:
  explicit PTRecorder(uint8_t ops = kPTDelegateDidEndWithError | kPTDelegateDidAcceptConnection)
      : ops(ops) {}

  uint8_t ops;
  std::vector<PTFrameEvent> frames;
  std::vector<PTEndEvent> ends;
  std::vector<std::shared_ptr<PTChannel>> accepted;
  std::vector<PTAddress> addresses;
  std::vector<uint32_t> asked;         // types asked about in shouldAccept
  std::optional<uint32_t> refuseType;  // shouldAccept answers no for this type
  bool allOnMainQueue = true;

  uint8_t ptChannelDelegateOptionalOps() const override { return ops; }

  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>& channel, uint32_t type,
                                           uint32_t tag,
                                           std::shared_ptr<const PTPayload> payload) override {
    note();
    frames.push_back(
        PTFrameEvent{channel, type, tag, payload != nullptr, payload ? *payload : Bytes{}});
  }
  bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t type,
                                             uint32_t, uint32_t) override {
    note();
    asked.push_back(type);
    return !(refuseType && *refuseType == type);
  }
  void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                     const OptionalError& error) override {
    note();
    ends.push_back(PTEndEvent{channel, error});
  }
  void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>&,
                                         const std::shared_ptr<PTChannel>& newChannel,
                                         const PTAddress& address) override {
    note();
    accepted.push_back(newChannel);
    addresses.push_back(address);
  }

  size_t endsOf(const std::shared_ptr<PTChannel>& channel) const {
    size_t n = 0;
    for (auto& e : ends) n += e.channel == channel;
    return n;
  }

 private:
  void note() { allOnMainQueue = allOnMainQueue && MainQueue::isCurrent(); }
};

// The results of sends, in order, and whether each came on the main queue.
struct SendResults {
  std::vector<OptionalError> errors;
  bool onMain = true;
  PTChannel::Callback callback() {
    return [this](OptionalError error) {
      onMain = onMain && MainQueue::isCurrent();
      errors.push_back(error);
    };
  }
};

inline constexpr uint32_t kLoopback = 0x7f000001;

// A channel listening on 127.0.0.1 on the test's driven main queue, with `recorder` as delegate;
// connectPeer() gives the channel it accepted for a plain peer socket.
class PTListenerTest : public testing::Test {
 protected:
  void SetUp() override {
    listener = PTChannel::channelWithDelegate(recorder);
    OptionalError result = Error{"not called", -1, "", ""};
    listener->listenOnPort(0, kLoopback, [&](OptionalError error) { result = error; });
    ASSERT_FALSE(result) << result->toString();
    ASSERT_TRUE(listener->isListening());
    ASSERT_NE(listener->listeningPort(), 0);
  }

  void TearDown() override {
    // The channels hold the recorder and the recorder holds them: undo both.
    for (auto& channel : recorder->accepted) {
      channel->setDelegate({});
      channel->close();
    }
    listener->setDelegate({});
    listener->close();
    recorder->accepted.clear();
    recorder->frames.clear();
    recorder->ends.clear();
    main.drain();
  }

  std::shared_ptr<PTChannel> connectPeer(Fd& peer) {
    size_t before = recorder->accepted.size();
    peer = peer::connect(listener->listeningPort());
    if (!pumpUntil([&] { return recorder->accepted.size() > before; })) return nullptr;
    return recorder->accepted.back();
  }

  bool pumpUntil(const std::function<bool()>& done, double seconds = 5.0) {
    return test::pumpUntil(main, done, seconds);
  }

  ManualMain main;
  std::shared_ptr<PTRecorder> recorder = std::make_shared<PTRecorder>();
  std::shared_ptr<PTChannel> listener;
};

}  // namespace oxelo::test
