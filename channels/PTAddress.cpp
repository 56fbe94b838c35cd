#include "channels/PTAddress.h"

#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace oxelo {

PTAddress::PTAddress(const sockaddr* address, socklen_t length) {
  if (!address) return;
  length_ = std::min<socklen_t>(length, kMaxLength);
  std::memcpy(storage_.data(), address, length_);
}

std::string PTAddress::name() const {
  if (empty()) return {};
  char host[NI_MAXHOST];
  if (getnameinfo(sockaddrPtr(), length_, host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0) {
    return {};
  }
  return host;
}

uint16_t PTAddress::port() const {
  if (length_ < sizeof(sa_family_t)) return 0;
  switch (sockaddrPtr()->sa_family) {
    case AF_INET:
      if (length_ < sizeof(sockaddr_in)) return 0;
      return ntohs(reinterpret_cast<const sockaddr_in*>(storage_.data())->sin_port);
    case AF_INET6:
      if (length_ < sizeof(sockaddr_in6)) return 0;
      return ntohs(reinterpret_cast<const sockaddr_in6*>(storage_.data())->sin6_port);
    default:
      return 0;
  }
}

std::string PTAddress::description() const {
  if (empty()) return "(?)";
  return name() + ":" + std::to_string(port());
}

}  // namespace oxelo
