#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "channels/Carrier.h"

namespace oxelo {

class ClientHandshake;

// What the greeting learns, for the connection flow. Main queue; all
// optional. `handshake` is never null.
class ClientHandshakeDelegate {
 public:
  virtual ~ClientHandshakeDelegate() = default;
  // An outgoing TCP connection is up: time for the hello.
  virtual void handshakeDidConnect(ClientHandshake* /*handshake*/) {}
  // Command 16: the host's port and name.
  virtual void handshakeDidReceiveHostInfo(ClientHandshake* /*handshake*/, long long /*port*/,
                                           const std::string& /*name*/) {}
  // Command 17: the settings in force have been sent back; the live screen
  // may open and take the carrier.
  virtual void handshakeDidReceiveStart(ClientHandshake* /*handshake*/) {}
  // The connection ended before it was handed over.
  virtual void handshakeDidEnd(ClientHandshake* /*handshake*/, const OptionalError& /*error*/) {}
};

// The greeting on one connection to the host, whichever carrier it is: the
// hello in its two forms, then the host's packets (16 host information,
// 19 video settings, which are stored, 17 start, which is answered with the
// settings in force). One object per connection: what it keeps between
// reads, the bytes of a packet that a TCP read ended inside, dies with the
// connection, so nothing of a dropped connection reaches the next one.
//
// Main queue, all of it. Held by shared pointer (create()); it is its
// carrier's delegate (held weakly there) until takeCarrier() or close().
// The delegate, the connection flow, is held weakly.
class ClientHandshake final : public CarrierDelegate,
                              public std::enable_shared_from_this<ClientHandshake> {
 public:
  static std::shared_ptr<ClientHandshake> create(std::weak_ptr<ClientHandshakeDelegate> delegate);
  ~ClientHandshake() override;

  // Takes the connection: becomes the carrier's delegate. Once.
  void attach(std::shared_ptr<Carrier> carrier);
  // Both hello forms (tag 8810; frames of type 88 over USB), then reading.
  void sendHello();
  // The hand-over: the carrier without a delegate, and this object without
  // a carrier. Null when there is none.
  std::shared_ptr<Carrier> takeCarrier();
  // Ends the connection without telling the delegate.
  void close();

  bool hasCarrier() const { return carrier_ != nullptr; }
  bool isConnected() const { return carrier_ && carrier_->isConnected(); }
  const std::shared_ptr<Carrier>& carrier() const { return carrier_; }

  // Works off one packet at `words`, of which `available` bytes are there;
  // returns the 32-bit words consumed, or 0 for a command it does not know
  // or a packet cut short.
  size_t handleClientPacket(const uint8_t* words, size_t available);

  // CarrierDelegate.
  void carrierDidConnect(Carrier* carrier, const std::string& host, uint16_t port) override;
  void carrierDidReceiveData(Carrier* carrier, std::span<const uint8_t> data,
                             bool endsMessage) override;
  void carrierDidWriteRecord(Carrier* carrier, int64_t tag) override;
  void carrierDidEnd(Carrier* carrier, const OptionalError& error) override;

 private:
  explicit ClientHandshake(std::weak_ptr<ClientHandshakeDelegate> delegate)
      : delegate_(std::move(delegate)) {}
  // The packets of one block, in order. A TCP read may end inside a packet:
  // the bytes that reach past the block are kept for the next read of this
  // connection.
  void workOffBlock(const uint8_t* data, size_t size);
  void sendSettingsAnswer();
  void send(std::vector<uint8_t> bytes, int64_t tag);

  std::weak_ptr<ClientHandshakeDelegate> delegate_;
  std::shared_ptr<Carrier> carrier_;
  std::vector<uint8_t> partialPacket_;
};

}  // namespace oxelo
