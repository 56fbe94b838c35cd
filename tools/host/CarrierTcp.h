#pragma once

#include "tools/host/Carrier.h"

namespace oxelo::host {

// The phone's TCP stream, raw: packets follow each other with no separator.
class CarrierTcp final : public Carrier {
 public:
  explicit CarrierTcp(UniqueFd fd);
  ReadResult readInto(HostSession& session) override;
  bool send(const OutgoingPacket& packet, HostSession& session) override;

 private:
  std::vector<uint8_t> readBuffer_;
};

}  // namespace oxelo::host
