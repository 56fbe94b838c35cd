#include "tools/host/CarrierUsb.h"

namespace oxelo::host {

namespace {
constexpr size_t kReadChunk = 64 * 1024;
}

CarrierUsb::CarrierUsb(UniqueFd fd) : Carrier(std::move(fd)), readBuffer_(kReadChunk) {}

Carrier::ReadResult CarrierUsb::readInto(HostSession& session) {
  bool wouldBlock = false;
  const long n = readSome(readBuffer_, session, wouldBlock);
  if (wouldBlock) return ReadResult::more;
  if (n < 0) return ReadResult::failed;
  if (n == 0) {
    if (frames_.midFrame()) session.addError("the USB channel ended inside a frame");
    return ReadResult::ended;
  }
  std::vector<UsbFrame> frames;
  const bool intact = frames_.feed({readBuffer_.data(), static_cast<size_t>(n)}, frames);
  for (const auto& frame : frames) {
    if (frame.type == kUsbFrameEndOfStream) return ReadResult::ended;
    session.receiveFrame(frame.type, frame.tag, frame.payload);
  }
  if (intact) return ReadResult::more;
  session.addError(frames_.error());
  return ReadResult::failed;
}

bool CarrierUsb::send(const OutgoingPacket& packet, HostSession& session) {
  std::string error;
  const auto bytes = usbFrameBytes(packet.frameType, packet.frameTag, packet.bytes);
  if (writeAll(fd(), bytes, kWriteTimeout, error)) return true;
  session.addError(error);
  return false;
}

}  // namespace oxelo::host
