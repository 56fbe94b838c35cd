#include "tools/host/Carrier.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace oxelo::host {

long Carrier::readSome(std::vector<uint8_t>& buffer, HostSession& session, bool& wouldBlock) {
  wouldBlock = false;
  for (;;) {
    const ssize_t n = recv(fd(), buffer.data(), buffer.size(), 0);
    if (n >= 0) return static_cast<long>(n);
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      wouldBlock = true;
      return 0;
    }
    session.addError(std::string("reading from the phone failed: ") + std::strerror(errno));
    return -1;
  }
}

}  // namespace oxelo::host
