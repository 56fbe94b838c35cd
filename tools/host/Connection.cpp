#include "tools/host/Connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <utility>

#include <fmt/format.h>

namespace oxelo::host {

namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds left until `deadline` for poll(); -1 for none.
int pollTimeout(std::optional<Clock::time_point> deadline) {
  if (!deadline) return -1;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
  return left < 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}

std::optional<Clock::time_point> deadlineAfter(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

bool setNonBlocking(int fd) {
  const int flags = fcntl(fd, F_GETFL, 0);
  return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

void setNoDelay(int fd) {
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

std::string connectError(int err, const std::string& where) {
  if (err == ECONNREFUSED) return "connection refused by " + where;
  if (err == ETIMEDOUT) return "connection to " + where + " timed out";
  return fmt::format("cannot connect to {}: {}", where, std::strerror(err));
}

}  // namespace

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

int UniqueFd::release() { return std::exchange(fd_, -1); }

void UniqueFd::reset() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

UniqueFd connectTcp(const std::string& address, uint16_t port, double timeout, std::string& error) {
  const std::string where = fmt::format("{}:{}", address, port);
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (int rc = getaddrinfo(address.c_str(), nullptr, &hints, &found); rc != 0 || !found) {
    error = fmt::format("cannot resolve the address '{}': {}", address, gai_strerror(rc));
    return {};
  }
  sockaddr_in target = *reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  freeaddrinfo(found);
  target.sin_port = htons(port);

  UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid() || !setNonBlocking(fd.get())) {
    error = fmt::format("cannot create a socket: {}", std::strerror(errno));
    return {};
  }
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
    if (errno != EINPROGRESS) {
      error = connectError(errno, where);
      return {};
    }
    pollfd p{fd.get(), POLLOUT, 0};
    const auto deadline = deadlineAfter(timeout);
    int ready;
    do {
      ready = poll(&p, 1, pollTimeout(deadline));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
      error = fmt::format("connection to {} timed out after {} s", where, timeout);
      return {};
    }
    int err = 0;
    socklen_t len = sizeof err;
    if (ready < 0 || getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
    if (err != 0) {
      error = connectError(err, where);
      return {};
    }
  }
  setNoDelay(fd.get());
  return fd;
}

bool TcpListener::open(const std::string& bindAddress, uint16_t port, std::string& error) {
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(port);
  if (inet_pton(AF_INET, bindAddress.c_str(), &local.sin_addr) != 1) {
    error = "bad IPv4 address '" + bindAddress + "'";
    return false;
  }
  UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  int one = 1;
  if (!fd.valid() || setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) != 0 ||
      bind(fd.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
      listen(fd.get(), 8) != 0 || !setNonBlocking(fd.get())) {
    error = fmt::format("cannot listen on {}:{}: {}", bindAddress, port, std::strerror(errno));
    return false;
  }
  socklen_t len = sizeof local;
  getsockname(fd.get(), reinterpret_cast<sockaddr*>(&local), &len);
  port_ = ntohs(local.sin_port);
  address_ = bindAddress;
  fd_ = std::move(fd);
  return true;
}

UniqueFd TcpListener::acceptOne(std::optional<double> wait, std::string& error) {
  const auto deadline = deadlineAfter(wait);
  for (;;) {
    pollfd p{fd_.get(), POLLIN, 0};
    const int ready = poll(&p, 1, pollTimeout(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) {
      error = fmt::format("no phone called on {}:{} within {} s", address_, port_, *wait);
      return {};
    }
    if (ready < 0) {
      error = fmt::format("waiting for the phone failed: {}", std::strerror(errno));
      return {};
    }
    UniqueFd fd(accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.valid()) {
      setNoDelay(fd.get());
      return fd;
    }
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) continue;
    error = fmt::format("accepting the phone failed: {}", std::strerror(errno));
    return {};
  }
}

bool writeAll(int fd, std::span<const uint8_t> bytes, double timeout, std::string& error) {
  const auto deadline = deadlineAfter(timeout);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      error = fmt::format("writing to the phone failed: {}", std::strerror(errno));
      return false;
    }
    pollfd p{fd, POLLOUT, 0};
    const int ready = poll(&p, 1, pollTimeout(deadline));
    if (ready == 0) {
      error = fmt::format("a write to the phone timed out after {} s", timeout);
      return false;
    }
  }
  return true;
}

}  // namespace oxelo::host
