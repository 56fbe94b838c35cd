#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <vector>

namespace oxelo {

// A raw socket address as the kernel gives it: the bytes of a sockaddr_in
// (IPv4: family at offset 0, port at 2, the 4 address bytes at offset 4) or a
// sockaddr_in6. A plain value; empty when there is no address.
class SocketAddress {
 public:
  SocketAddress() = default;
  SocketAddress(const sockaddr* address, socklen_t length);
  // 127.0.0.1-style text and a port; empty when the text is not an IPv4 address.
  static SocketAddress ipv4(const std::string& dotted, uint16_t port);

  bool empty() const { return bytes_.empty(); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  const uint8_t* data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }
  // AF_INET, AF_INET6, or AF_UNSPEC when empty.
  int family() const;
  // "a.b.c.d" for IPv4, the usual text for IPv6, "" when empty.
  std::string host() const;
  uint16_t port() const;

  bool operator==(const SocketAddress&) const = default;

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace oxelo
