// The greeting on each way a connection comes about, as the flow runs it.
#include <gtest/gtest.h>

#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/discovery/support/FlowFixture.h"
#include "tests/support/TestBytes.h"
#include "wire/HandshakePackets.h"

namespace oxelo {
namespace {

namespace hs = handshake;
using Bytes = std::vector<uint8_t>;
using test::cat;

Bytes head(const Bytes& bytes, size_t n) { return Bytes(bytes.begin(), bytes.begin() + n); }
Bytes tail(const Bytes& bytes, size_t n) { return Bytes(bytes.begin() + n, bytes.end()); }

class HandshakeTest : public test::FlowFixture {
 protected:
  void SetUp() override {
    startFlow();
    presenter_->prepareOnPresent = true;
    VideoSizeCatalogue::shared().reloadVideoSizes();
  }
  // The phone calls the host; the connection comes up and the hello goes out.
  std::shared_ptr<test::FakeCarrier> connected() {
    flow_->connectViaIPAndPort("127.0.0.1", 5899);
    env_.advance(0.1);
    auto carrier = connections_.last();
    carrier->connect();
    return carrier;
  }
  void expectSettings(uint32_t width, uint32_t height, uint32_t fps, bool portrait) {
    EXPECT_EQ(defaults_->integerForKey(keys::videoWidth), width);
    EXPECT_EQ(defaults_->integerForKey(keys::videoHeight), height);
    EXPECT_EQ(defaults_->integerForKey(keys::videoFPS), fps);
    EXPECT_EQ(defaults_->boolForKey(keys::videoPortrait), portrait);
  }
};

// The three ways to a greeted connection; each sends the two hello forms.
enum class Way { phoneCalls, hostCalls, usb };
struct HelloCase {
  const char* name;
  Way way;
};
class HelloTest : public HandshakeTest, public testing::WithParamInterface<HelloCase> {};

TEST_P(HelloTest, BothHelloFormsGoOutLongFirstThenTheHostIsRead) {
  // A USB peer settles the search and is connected to.
  auto carrier = GetParam().way == Way::phoneCalls  ? connected()
                 : GetParam().way == Way::hostCalls ? acceptTcp("127.0.0.9")
                                                    : acceptUsbPeer();
  EXPECT_TRUE(flow_->hostConnected());
  ASSERT_EQ(carrier->sent.size(), 2u);
  EXPECT_EQ(*carrier->sent[0].bytes, hs::helloLong());  // their bytes: HandshakePacketsTest
  EXPECT_EQ(*carrier->sent[1].bytes, hs::helloShort());
  for (const auto& record : carrier->sent) {
    EXPECT_EQ(record.tag, 8810);
    EXPECT_EQ(record.timeout, 5.0);    // what a TCP write waits
    EXPECT_EQ(record.frameType, 88u);  // what a USB frame is
  }
  EXPECT_EQ(carrier->readsStarted, 1);
}

INSTANTIATE_TEST_SUITE_P(Ways, HelloTest,
                         testing::Values(HelloCase{"PhoneCallsHost", Way::phoneCalls},
                                         HelloCase{"HostCallsPhone", Way::hostCalls},
                                         HelloCase{"UsbPeer", Way::usb}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HandshakeTest, HostInfoSettingsAndStartInOneBlockAreWorkedOffInOrderThenHandedOver) {
  auto carrier = connected();
  carrier->receive(cat(
      {hs::hostInfo(5898, "Studio"), hs::videoSettings({640, 480, 24, 1, 2, 1, 2}), hs::start()}));
  EXPECT_EQ(flow_->hostName(), "Studio");
  EXPECT_EQ(flow_->hostPort(), 5898);
  EXPECT_TRUE(flow_->hostDetected());
  expectSettings(640, 480, 24, true);
  EXPECT_EQ(defaults_->integerForKey(keys::videoEncoder), 1);
  EXPECT_EQ(defaults_->integerForKey(keys::audioFormat), 2);
  EXPECT_EQ(presenter_->presented, 1);  // the start opened the live screen
  // It handed the carrier over with the host, and let go of it.
  EXPECT_EQ(presenter_->carrier, carrier);
  EXPECT_EQ(carrier->delegate(), nullptr);
  EXPECT_EQ(presenter_->hostIP, "127.0.0.1");
  EXPECT_EQ(presenter_->hostPort, 5898);
  EXPECT_FALSE(flow_->hasConnection());
  EXPECT_EQ(carrier->closes, 0);  // the search's end left the handed-over carrier alone
  EXPECT_EQ(defaults_->integerForKey(keys::lastHostPort), 5898);
  // The settings in force went back before the hand-over, on the same carrier.
  ASSERT_EQ(carrier->sentTags(), (std::vector<int64_t>{8810, 8810, 8813}));
  EXPECT_EQ(*carrier->sent[2].bytes, hs::settingsAnswer({640, 480, 24, 1, 2, 1, 2}));
}

TEST_F(HandshakeTest, AnUnknownCommandOrTypeDropsItsBlockAndASplitPacketIsCompleted) {
  auto carrier = connected();
  carrier->receive(
      cat({Bytes{0x88, 0, 0, 0, 0x12, 0, 0, 0}, hs::hostInfo(5898, "Late"), hs::start()}));
  EXPECT_FALSE(flow_->hostDetected());
  carrier->receive(cat({Bytes{1, 0, 0, 0}, hs::start()}));
  EXPECT_EQ(presenter_->presented, 0);
  auto info = hs::hostInfo(5898, "Split");
  carrier->receive(head(info, 30));
  EXPECT_FALSE(flow_->hostDetected());
  carrier->receive(cat({tail(info, 30), hs::start()}));
  EXPECT_EQ(flow_->hostName(), "Split");
  EXPECT_EQ(presenter_->presented, 1);
}

TEST_F(HandshakeTest, ASizeOutsideTheCatalogueIsStoredButLeavesVideoSize) {
  auto carrier = connected();
  defaults_->setInteger(keys::videoSize, 4);
  carrier->receive(hs::videoSettings({1000, 700, 30, 0, 1, 0, 1}));
  expectSettings(1000, 700, 30, false);
  EXPECT_EQ(defaults_->integerForKey(keys::videoSize), 4);
}

TEST_F(HandshakeTest, StaleBytesOfADroppedConnectionNeverReachTheNext) {
  auto first = connected();
  first->receive(head(hs::videoSettings({640, 480, 24, 1, 2, 1, 2}), 20));
  first->end(posixError(ECONNRESET));
  ASSERT_FALSE(flow_->hasConnection());
  auto second = connected();
  second->receive(hs::videoSettings({1280, 720, 30, 0, 1, 0, 1}));
  expectSettings(1280, 720, 30, false);
  EXPECT_EQ(defaults_->integerForKey(keys::videoEncoder), 0);
  EXPECT_EQ(defaults_->integerForKey(keys::audioFormat), 1);
}

TEST_F(HandshakeTest, AUsbFrameIsWholeSoNothingOfItCarriesOverToTheNextFrame) {
  auto peer = acceptUsbPeer();
  peer->receive(head(hs::videoSettings({640, 480, 24, 1, 2, 1, 2}), 20));
  peer->receive(hs::videoSettings({1280, 720, 30, 0, 1, 0, 1}));
  expectSettings(1280, 720, 30, false);
  peer->receive({});  // an empty payload is ignored
  EXPECT_EQ(presenter_->presented, 0);
}

TEST_F(HandshakeTest, TheUsbPeerWinsOverTheNetworkAndItsEndIsForgotten) {
  auto peer = acceptUsbPeer();
  flow_->on_host_detected({"Desk", "127.0.0.1", 5899, true});
  EXPECT_TRUE(flow_->connectToHost());
  EXPECT_EQ(connections_.attempts.size(), 0u);  // no TCP attempt while the peer is there
  EXPECT_EQ(peer->sentTags(), (std::vector<int64_t>{8810, 8810, 8810, 8810}));
  peer->end(std::nullopt);
  EXPECT_FALSE(flow_->hasUsbPeer());
  EXPECT_TRUE(flow_->connectToHost());  // now over the network
  EXPECT_EQ(connections_.attempts.size(), 1u);
}

}  // namespace
}  // namespace oxelo
