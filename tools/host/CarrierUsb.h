#pragma once

#include "tools/host/Carrier.h"
#include "tools/host/UsbFrames.h"

namespace oxelo::host {

// The phone's framed USB channel reached through a forwarder at 127.0.0.1:
// each packet is the payload of one frame, each way.
class CarrierUsb final : public Carrier {
 public:
  explicit CarrierUsb(UniqueFd fd);
  ReadResult readInto(HostSession& session) override;
  bool send(const OutgoingPacket& packet, HostSession& session) override;

 private:
  std::vector<uint8_t> readBuffer_;
  UsbFrameReader frames_;
};

}  // namespace oxelo::host
