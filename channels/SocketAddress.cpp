#include "channels/SocketAddress.h"

#include <arpa/inet.h>

#include <cstring>

namespace oxelo {

SocketAddress::SocketAddress(const sockaddr* address, socklen_t length) {
  if (!address || length <= 0) return;
  auto* begin = reinterpret_cast<const uint8_t*>(address);
  bytes_.assign(begin, begin + length);
}

SocketAddress SocketAddress::ipv4(const std::string& dotted, uint16_t port) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  in.sin_port = htons(port);
  if (inet_pton(AF_INET, dotted.c_str(), &in.sin_addr) != 1) return {};
  return SocketAddress(reinterpret_cast<const sockaddr*>(&in), sizeof in);
}

int SocketAddress::family() const {
  if (bytes_.size() < sizeof(sa_family_t)) return AF_UNSPEC;
  sa_family_t family;
  std::memcpy(&family, bytes_.data(), sizeof family);
  return family;
}

std::string SocketAddress::host() const {
  char text[INET6_ADDRSTRLEN] = {};
  if (family() == AF_INET && bytes_.size() >= sizeof(sockaddr_in)) {
    sockaddr_in in;
    std::memcpy(&in, bytes_.data(), sizeof in);
    inet_ntop(AF_INET, &in.sin_addr, text, sizeof text);
    return text;
  }
  if (family() == AF_INET6 && bytes_.size() >= sizeof(sockaddr_in6)) {
    sockaddr_in6 in6;
    std::memcpy(&in6, bytes_.data(), sizeof in6);
    inet_ntop(AF_INET6, &in6.sin6_addr, text, sizeof text);
    return text;
  }
  return {};
}

uint16_t SocketAddress::port() const {
  if (family() == AF_INET && bytes_.size() >= sizeof(sockaddr_in)) {
    sockaddr_in in;
    std::memcpy(&in, bytes_.data(), sizeof in);
    return ntohs(in.sin_port);
  }
  if (family() == AF_INET6 && bytes_.size() >= sizeof(sockaddr_in6)) {
    sockaddr_in6 in6;
    std::memcpy(&in6, bytes_.data(), sizeof in6);
    return ntohs(in6.sin6_port);
  }
  return 0;
}

}  // namespace oxelo
