#include "channels/UsbCarrier.h"

namespace oxelo {

std::shared_ptr<UsbCarrier> UsbCarrier::adopt(std::shared_ptr<PTChannel> channel,
                                              std::string peer) {
  if (!channel) return nullptr;
  std::shared_ptr<UsbCarrier> carrier(new UsbCarrier(std::move(channel), std::move(peer)));
  carrier->channel_->setDelegate(carrier);
  return carrier;
}

UsbCarrier::~UsbCarrier() { channel_->setDelegate({}); }

void UsbCarrier::sendRecord(CarrierRecord record) {
  if (!record.bytes) return;
  PTChannel::Callback done;
  if (record.report) {
    done = [weak = weak_from_this(), tag = record.tag](OptionalError error) {
      if (error) return;
      auto self = weak.lock();
      if (!self) return;
      if (auto d = self->delegate_.get()) d->carrierDidWriteRecord(self.get(), tag);
    };
  }
  channel_->sendFrameOfType(record.frameType, static_cast<uint32_t>(record.tag), *record.bytes,
                            std::move(done));
  if (record.tail && !record.tail->empty())
    channel_->sendFrameOfType(record.tailFrameType, record.tailTag, *record.tail);
}

void UsbCarrier::ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t,
                                                     uint32_t,
                                                     std::shared_ptr<const PTPayload> payload) {
  auto d = delegate_.get();
  if (!d) return;
  std::span<const uint8_t> data;
  if (payload) data = std::span<const uint8_t>(payload->data(), payload->size());
  d->carrierDidReceiveData(this, data, /*endsMessage=*/true);
}

void UsbCarrier::ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>&,
                                               const OptionalError& error) {
  if (auto d = delegate_.get()) d->carrierDidEnd(this, error);
}

}  // namespace oxelo
