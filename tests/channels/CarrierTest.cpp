// The two carriers behind one interface, each against a plain loopback peer:
// how a record with a tail block leaves, which completions come back, what a
// read looks like, and that both hold their delegate weakly.
#include <gtest/gtest.h>

#include "channels/TcpCarrier.h"
#include "channels/UsbCarrier.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::Bytes;

struct CarrierEvents : CarrierDelegate {
  std::vector<int64_t> written;
  Bytes received;
  std::vector<bool> endsMessage;
  int ended = 0;
  void carrierDidReceiveData(Carrier*, std::span<const uint8_t> data, bool ends) override {
    received.insert(received.end(), data.begin(), data.end());
    endsMessage.push_back(ends);
  }
  void carrierDidWriteRecord(Carrier*, int64_t tag) override { written.push_back(tag); }
  void carrierDidEnd(Carrier*, const OptionalError&) override { ++ended; }
};

std::shared_ptr<const Bytes> shared(Bytes bytes) {
  return std::make_shared<const Bytes>(std::move(bytes));
}

class CarrierTest : public testing::TestWithParam<Carrier::Kind> {
 protected:
  // A carrier connected to `peer_`, with `events_` as its delegate.
  bool tcp() const { return GetParam() == Carrier::Kind::tcp; }
  void connect() {
    if (tcp()) {
      test::LoopbackListener listener;
      OptionalError error;
      carrier_ =
          TcpCarrier::connect("127.0.0.1", listener.port(), 5.0, events_, MainQueue::get(), error);
      ASSERT_TRUE(carrier_) << error->toString();
      peer_ = listener.accept();
      ASSERT_TRUE(test::pumpUntil(env_, [&] { return carrier_->isConnected(); }));
    } else {
      usb_ = test::UsbLoopback::connect(env_.main());
      ASSERT_TRUE(usb_->carrier);
      carrier_ = usb_->carrier;
      peer_ = std::move(usb_->host);
      carrier_->setDelegate(events_);
    }
    carrier_->startReading();
  }

  test::ManualMain env_;
  std::shared_ptr<CarrierEvents> events_ = std::make_shared<CarrierEvents>();
  std::shared_ptr<test::UsbLoopback> usb_;
  std::shared_ptr<Carrier> carrier_;
  test::Fd peer_;
};

TEST_P(CarrierTest, RecordsLeaveWithTheirTailsAndReportOnlyWhenAskedToAWeakDelegate) {
  connect();
  ASSERT_TRUE(carrier_);
  CarrierRecord packet{shared({1, 2, 3}),    shared({9, 9}),  /*tag=*/4242, -1, /*frameType=*/9,
                       /*tailFrameType=*/88, /*tailTag=*/8821};
  CarrierRecord quiet{shared({4}), nullptr, /*tag=*/1, -1, /*frameType=*/18};
  quiet.report = false;
  CarrierRecord notice{shared({7, 7}), nullptr, /*tag=*/8814, -1, /*frameType=*/88};
  notice.framedOnly = true;
  carrier_->sendRecord(packet);
  carrier_->sendRecord(quiet);
  carrier_->sendRecord(notice);

  if (tcp()) {
    // One write for the packet and its tail; the framed channel's notice never goes over TCP.
    EXPECT_EQ(test::peer::receive(peer_, 6, 5.0), (Bytes{1, 2, 3, 9, 9, 4}));
    EXPECT_TRUE(test::peer::receiveAvailable(peer_, 0.2).empty());
  } else {
    // The tail goes as a frame of its own.
    EXPECT_EQ(test::peer::receive(peer_, 4 * 16 + 3 + 2 + 1 + 2, 5.0),
              test::cat({test::frame(9, 4242, {1, 2, 3}), test::frame(88, 8821, {9, 9}),
                         test::frame(18, 1, {4}), test::frame(88, 8814, {7, 7})}));
  }
  // The quiet record is never reported; the notice only where it was sent.
  std::vector<int64_t> reported{4242};
  if (!tcp()) reported.push_back(8814);
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return !events_->written.empty(); }));
  test::pumpFor(env_.main(), 0.1);
  EXPECT_EQ(events_->written, reported);

  // The delegate is held weakly: once gone, what arrives is delivered to nobody, without harm.
  std::weak_ptr<CarrierEvents> weak = events_;
  events_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(carrier_->delegate(), nullptr);
  test::peer::sendAll(peer_, tcp() ? Bytes{1} : test::frame(88, 1, {1}));
  test::pumpFor(env_.main(), 0.1);
  EXPECT_TRUE(carrier_->isConnected());
}

TEST_P(CarrierTest, ReadsArriveAsStreamPiecesOrWholeMessagesAndTheEndOnce) {
  connect();
  ASSERT_TRUE(carrier_);
  test::peer::sendAll(peer_, tcp() ? Bytes{5, 6, 7} : test::frame(88, 1, {5, 6, 7}));
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return events_->received.size() == 3; }));
  EXPECT_EQ(events_->received, (Bytes{5, 6, 7}));
  EXPECT_EQ(events_->endsMessage.front(), !tcp());

  peer_.reset();
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return events_->ended > 0; }));
  test::pumpFor(env_.main(), 0.1);
  EXPECT_EQ(events_->ended, 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CarrierTest,
                         testing::Values(Carrier::Kind::tcp, Carrier::Kind::usb),
                         [](const auto& info) {
                           return info.param == Carrier::Kind::tcp ? "Tcp" : "Usb";
                         });

}  // namespace
}  // namespace oxelo
