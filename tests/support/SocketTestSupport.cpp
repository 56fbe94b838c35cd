#include "tests/support/SocketTestSupport.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

namespace oxelo::test {

namespace {

SocketEvent makeEvent(SocketEvent::Kind kind, const void* sock = nullptr, int64_t tag = 0) {
  SocketEvent e;
  e.kind = kind;
  e.sock = sock;
  e.tag = tag;
  return e;
}

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Milliseconds left until `deadline`, at least 0.
int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

bool pollFor(int fd, short events, int ms) {
  pollfd p{fd, events, 0};
  int n = ::poll(&p, 1, ms);
  return n > 0;
}

Clock::time_point after(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

Bytes patternBytes(size_t size, uint32_t seed) {
  Bytes bytes(size);
  uint32_t x = seed * 2654435761u + 1;
  for (size_t i = 0; i < size; ++i) {
    x = x * 1103515245u + 12345u;
    bytes[i] = static_cast<uint8_t>(x >> 16);
  }
  return bytes;
}

bool pumpUntil(Queue& queue, const std::function<bool()>& done, double seconds) {
  auto deadline = after(seconds);
  for (;;) {
    queue.runPending();
    if (done()) return true;
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void pumpFor(Queue& queue, double seconds) {
  pumpUntil(
      queue, [] { return false; }, seconds);
}

bool waitUntil(const std::function<bool()>& done, double seconds) {
  auto deadline = after(seconds);
  while (!done()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void Fd::reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

namespace peer {

Fd listen(uint16_t& port, int backlog) {
  Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) fail("socket");
  auto address = loopback(0);
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fail("bind");
  if (::listen(fd.get(), backlog) != 0) fail("listen");
  socklen_t length = sizeof address;
  if (::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    fail("getsockname");
  port = ntohs(address.sin_port);
  return fd;
}

Fd accept(const Fd& listener, double seconds) {
  if (!pollFor(listener.get(), POLLIN, static_cast<int>(seconds * 1000))) return Fd();
  Fd fd(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!fd.valid()) fail("accept");
  return fd;
}

Fd connect(uint16_t port) {
  Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.valid()) fail("socket");
  auto address = loopback(port);
  if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    fail("connect");
  return fd;
}

void sendAll(const Fd& fd, const Bytes& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::send(fd.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("send");
    done += static_cast<size_t>(n);
  }
}

Bytes receive(const Fd& fd, size_t size, double seconds) {
  auto deadline = after(seconds);
  Bytes bytes(size);
  size_t done = 0;
  while (done < size) {
    if (!pollFor(fd.get(), POLLIN, msLeft(deadline))) break;
    ssize_t n = ::recv(fd.get(), bytes.data() + done, size - done, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  bytes.resize(done);
  return bytes;
}

Bytes receiveAvailable(const Fd& fd, double seconds) {
  auto deadline = after(seconds);
  Bytes bytes;
  uint8_t chunk[4096];
  while (pollFor(fd.get(), POLLIN, msLeft(deadline))) {
    ssize_t n = ::recv(fd.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (n <= 0) break;
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
  return bytes;
}

bool seesEnd(const Fd& fd, double seconds) {
  auto deadline = after(seconds);
  uint8_t chunk[4096];
  while (pollFor(fd.get(), POLLIN, msLeft(deadline))) {
    ssize_t n = ::recv(fd.get(), chunk, sizeof chunk, MSG_DONTWAIT);
    if (n == 0) return true;
    if (n < 0 && errno != EAGAIN && errno != EINTR) return true;  // reset counts as an end
  }
  return false;
}

bool waitDelivered(const Fd& fd, double seconds) {
  return waitUntil(
      [&] {
        int unacknowledged = 0;
        return ::ioctl(fd.get(), SIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0;
      },
      seconds);
}

uint16_t closedPort() {
  uint16_t port = 0;
  { Fd listener = listen(port); }
  return port;
}

}  // namespace peer

std::vector<SocketEvent> Recorder::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

size_t Recorder::count(SocketEvent::Kind kind) const {
  std::lock_guard lock(mutex_);
  size_t n = 0;
  for (auto& e : events_) n += e.kind == kind;
  return n;
}

SocketEvent Recorder::first(SocketEvent::Kind kind) const {
  std::lock_guard lock(mutex_);
  for (auto& e : events_)
    if (e.kind == kind) return e;
  ADD_FAILURE() << "no event of kind " << kind;
  return makeEvent(kind);
}

std::vector<SocketEvent::Kind> Recorder::kinds() const {
  std::lock_guard lock(mutex_);
  std::vector<SocketEvent::Kind> kinds;
  for (auto& e : events_) kinds.push_back(e.kind);
  return kinds;
}

Bytes Recorder::readBytes() const {
  std::lock_guard lock(mutex_);
  Bytes bytes;
  for (auto& e : events_)
    if (e.kind == SocketEvent::read) bytes.insert(bytes.end(), e.data.begin(), e.data.end());
  return bytes;
}

void Recorder::answerWriteTimeouts(std::vector<double> answers) {
  std::lock_guard lock(mutex_);
  answers_ = std::move(answers);
}

void Recorder::add(SocketEvent event) {
  std::lock_guard lock(mutex_);
  events_.push_back(std::move(event));
}

void Recorder::socketDidConnectToHost(GCDAsyncSocket* sock, const std::string& host,
                                      uint16_t port) {
  auto e = makeEvent(SocketEvent::connected, sock);
  e.host = host;
  e.port = port;
  add(std::move(e));
}

void Recorder::socketDidAcceptNewSocket(GCDAsyncSocket* sock,
                                        const std::shared_ptr<GCDAsyncSocket>& newSocket) {
  auto e = makeEvent(SocketEvent::accepted, sock);
  e.newSocket = newSocket;
  add(std::move(e));
  if (onAccept) onAccept(sock, newSocket);
}

void Recorder::socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                                 int64_t tag) {
  auto e = makeEvent(SocketEvent::read, sock, tag);
  e.data = data;
  add(std::move(e));
  if (onRead) onRead(sock, data, tag);
}

void Recorder::socketDidWriteDataWithTag(GCDAsyncSocket* sock, int64_t tag) {
  add(makeEvent(SocketEvent::wrote, sock, tag));
  if (onWrite) onWrite(sock, tag);
}

double Recorder::socketShouldTimeoutWriteWithTag(GCDAsyncSocket* sock, int64_t tag, double elapsed,
                                                 size_t bytesDone) {
  auto e = makeEvent(SocketEvent::shouldTimeout, sock, tag);
  e.elapsed = elapsed;
  e.bytesDone = bytesDone;
  double answer = 0;
  {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(e));
    if (!answers_.empty()) {
      answer = answers_.front();
      answers_.erase(answers_.begin());
    }
  }
  if (onShouldTimeout) onShouldTimeout(sock, tag);
  return answer;
}

void Recorder::socketDidDisconnect(GCDAsyncSocket* sock, const OptionalError& error) {
  auto e = makeEvent(SocketEvent::disconnected, sock);
  e.error = error;
  add(std::move(e));
}

void Recorder::udpSocketDidSendDataWithTag(GCDAsyncUdpSocket* sock, int64_t tag) {
  add(makeEvent(SocketEvent::udpSent, sock, tag));
}

void Recorder::udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* sock, int64_t tag,
                                                        const Error& error) {
  auto e = makeEvent(SocketEvent::udpNotSent, sock, tag);
  e.error = error;
  add(std::move(e));
}

void Recorder::udpSocketDidReceiveDataFromAddressWithFilterContext(GCDAsyncUdpSocket* sock,
                                                                   const std::vector<uint8_t>& data,
                                                                   const SocketAddress& address) {
  auto e = makeEvent(SocketEvent::udpReceived, sock);
  e.data = data;
  e.address = address;
  add(std::move(e));
}

void Recorder::udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) {
  auto e = makeEvent(SocketEvent::udpClosed, sock);
  e.error = error;
  add(std::move(e));
}

Connection connectPair(const std::shared_ptr<Recorder>& delegate,
                       const std::shared_ptr<Queue>& queue) {
  uint16_t port = 0;
  Fd listener = peer::listen(port);
  Connection c;
  c.sock = GCDAsyncSocket::create(delegate, queue);
  OptionalError error;
  if (!c.sock->connectToHost("127.0.0.1", port, 5.0, error)) {
    ADD_FAILURE() << "connectToHost: " << error->toString();
    return {};
  }
  c.peer = peer::accept(listener);
  if (!c.peer.valid() || !waitUntil([&] { return c.sock->isConnected(); })) {
    ADD_FAILURE() << "the loopback connection did not come up";
    return {};
  }
  return c;
}

}  // namespace oxelo::test
