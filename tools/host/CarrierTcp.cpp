#include "tools/host/CarrierTcp.h"

namespace oxelo::host {

namespace {
constexpr size_t kReadChunk = 64 * 1024;
}

CarrierTcp::CarrierTcp(UniqueFd fd) : Carrier(std::move(fd)), readBuffer_(kReadChunk) {}

Carrier::ReadResult CarrierTcp::readInto(HostSession& session) {
  bool wouldBlock = false;
  const long n = readSome(readBuffer_, session, wouldBlock);
  if (wouldBlock) return ReadResult::more;
  if (n < 0) return ReadResult::failed;
  if (n == 0) return ReadResult::ended;
  session.receiveBytes({readBuffer_.data(), static_cast<size_t>(n)});
  return ReadResult::more;
}

bool CarrierTcp::send(const OutgoingPacket& packet, HostSession& session) {
  std::string error;
  if (writeAll(fd(), packet.bytes, kWriteTimeout, error)) return true;
  session.addError(error);
  return false;
}

}  // namespace oxelo::host
