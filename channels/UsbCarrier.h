#pragma once

#include <memory>
#include <string>

#include "channels/Carrier.h"
#include "channels/PTChannel.h"
#include "channels/SocketWorker.h"

namespace oxelo {

// The carrier over a connected framed channel (the host behind the USB
// cable). It becomes the channel's delegate for good and passes each frame's
// payload on as a whole message, the completion of each record's frame that
// asked for it, and the end of the stream. Events run on the channel's
// protocol queue. Held by shared pointer; the channel ends when the last
// holder of the carrier lets go.
class UsbCarrier final : public Carrier,
                         public PTChannelDelegate,
                         public std::enable_shared_from_this<UsbCarrier> {
 public:
  // Takes over a connected channel, such as one a listener has just
  // accepted. `peer` is the host's address as the listener saw it.
  static std::shared_ptr<UsbCarrier> adopt(std::shared_ptr<PTChannel> channel,
                                           std::string peer = "127.0.0.1");
  ~UsbCarrier() override;

  const std::shared_ptr<PTChannel>& channel() const { return channel_; }

  // Carrier.
  Kind kind() const override { return Kind::usb; }
  bool isConnected() const override { return channel_->isConnected(); }
  std::string peerHost() const override { return peer_; }
  void setDelegate(std::weak_ptr<CarrierDelegate> delegate) override { delegate_.set(delegate); }
  std::shared_ptr<CarrierDelegate> delegate() const override { return delegate_.get(); }
  // Frames flow from the moment the channel reads: nothing to start.
  void startReading() override {}
  void sendRecord(CarrierRecord record) override;
  void close() override { channel_->close(); }
  void closeAfterSending() override { channel_->cancel(); }
  size_t queuedBytes() const override { return channel_->queuedBytes(); }

  // PTChannelDelegate, on the protocol queue.
  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>& channel, uint32_t type,
                                           uint32_t tag,
                                           std::shared_ptr<const PTPayload> payload) override;
  void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                     const OptionalError& error) override;
  uint8_t ptChannelDelegateOptionalOps() const override { return kPTDelegateDidEndWithError; }

 private:
  UsbCarrier(std::shared_ptr<PTChannel> channel, std::string peer)
      : channel_(std::move(channel)), peer_(std::move(peer)) {}

  const std::shared_ptr<PTChannel> channel_;
  const std::string peer_;
  DelegateSlot<CarrierDelegate> delegate_;
};

}  // namespace oxelo
