#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "channels/Carrier.h"

namespace oxelo::test {

// A carrier that a test drives from the host's side: it keeps the records
// sent on it and delivers, on the calling thread, what the test says the
// host did. For tests that run on the main queue.
class FakeCarrier final : public Carrier {
 public:
  explicit FakeCarrier(Kind kind = Kind::tcp, bool connected = true)
      : kind_(kind), connected_(connected) {}

  Kind kind() const override { return kind_; }
  bool isConnected() const override { return connected_; }
  std::string peerHost() const override { return peer; }
  void setDelegate(std::weak_ptr<CarrierDelegate> d) override { delegate_ = std::move(d); }
  std::shared_ptr<CarrierDelegate> delegate() const override { return delegate_.lock(); }
  void startReading() override { ++readsStarted; }
  void sendRecord(CarrierRecord record) override {
    if (connected_) sent.push_back(std::move(record));
  }
  void close() override {
    ++closes;
    if (!connected_) return;
    connected_ = false;
    if (auto d = delegate()) d->carrierDidEnd(this, std::nullopt);
  }
  void closeAfterSending() override { close(); }

  // The host's side.
  void connect(uint16_t port = 5895) {
    connected_ = true;
    if (auto d = delegate()) d->carrierDidConnect(this, peer, port);
  }
  void receive(const std::vector<uint8_t>& bytes) {
    if (auto d = delegate()) d->carrierDidReceiveData(this, bytes, kind_ == Kind::usb);
  }
  void end(OptionalError error) {
    connected_ = false;
    if (auto d = delegate()) d->carrierDidEnd(this, error);
  }

  std::vector<int64_t> sentTags() const {
    std::vector<int64_t> tags;
    for (const auto& r : sent) tags.push_back(r.tag);
    return tags;
  }

  std::string peer = "127.0.0.1";
  std::vector<CarrierRecord> sent;
  int readsStarted = 0;
  int closes = 0;

 private:
  const Kind kind_;
  bool connected_;
  std::weak_ptr<CarrierDelegate> delegate_;
};

}  // namespace oxelo::test
