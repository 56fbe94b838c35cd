#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>

namespace oxelo {

// The address of a peer that a listening channel accepted. A plain value: up
// to 128 bytes of a socket address, copied by the length the kernel gave.
class PTAddress {
 public:
  static constexpr size_t kMaxLength = 128;

  PTAddress() = default;
  // Copies `length` bytes of `address`, at most kMaxLength; none when null.
  PTAddress(const sockaddr* address, socklen_t length);

  bool empty() const { return length_ == 0; }
  const sockaddr* sockaddrPtr() const { return reinterpret_cast<const sockaddr*>(storage_.data()); }
  socklen_t length() const { return length_; }

  // The numeric address text ("127.0.0.1", "::1"); "" when empty or unknown.
  std::string name() const;
  // The port in host order; 0 for an empty address or a family without one.
  uint16_t port() const;
  // "name:port", or "(?)" when the address is empty.
  std::string description() const;

 private:
  alignas(sockaddr_storage) std::array<uint8_t, kMaxLength> storage_{};
  socklen_t length_ = 0;
};

}  // namespace oxelo
