#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace oxelo::host {

// A socket descriptor, closed when the object goes.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release();
  void reset();

 private:
  int fd_ = -1;
};

// Plain blocking-with-deadline TCP over IPv4 for the host tool, which has one
// connection and one thread. Errors come back as a sentence for the user.

// Connects to `address` (IPv4 text or a host name) on `port`, giving up after
// `timeout` seconds. An invalid descriptor with `error` set on failure
// ("connection refused by 127.0.0.1:5896").
UniqueFd connectTcp(const std::string& address, uint16_t port, double timeout, std::string& error);

// A listening socket on one IPv4 address (0.0.0.0 for all) with address
// reuse; port 0 picks a free one.
class TcpListener {
 public:
  bool open(const std::string& bindAddress, uint16_t port, std::string& error);
  uint16_t port() const { return port_; }
  // Waits for one caller, at most `wait` seconds (none: no limit).
  UniqueFd acceptOne(std::optional<double> wait, std::string& error);

 private:
  UniqueFd fd_;
  std::string address_;
  uint16_t port_ = 0;
};

// Writes all of `bytes` on the non-blocking socket `fd`, waiting at most
// `timeout` seconds for room. False with `error` set on failure.
bool writeAll(int fd, std::span<const uint8_t> bytes, double timeout, std::string& error);

}  // namespace oxelo::host
