#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "channels/GCDAsyncSocket.h"
#include "channels/GCDAsyncUdpSocket.h"
#include "platform/dispatch/Queue.h"

namespace oxelo::test {

using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const std::string& text);
// `size` bytes that depend on `seed` and on their position, so that a byte
// out of place shows.
Bytes patternBytes(size_t size, uint32_t seed);

// Runs a driven queue until `done` holds or `seconds` of real time have
// passed; returns done(). Waits in 1 ms steps for the socket worker.
bool pumpUntil(Queue& queue, const std::function<bool()>& done, double seconds = 5.0);
// Runs a driven queue for `seconds` of real time.
void pumpFor(Queue& queue, double seconds);
// Waits (no queue to run) until `done` holds or `seconds` have passed.
bool waitUntil(const std::function<bool()>& done, double seconds = 5.0);

// Stops a delegate queue at the end of a scope: events still waiting are
// dropped, and with them the sockets that they name.
struct StopOnExit {
  std::shared_ptr<Queue> queue;
  ~StopOnExit() {
    if (queue) queue->stop();
  }
};

// An owned file descriptor.
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

// Plain blocking sockets on 127.0.0.1 that play the peer. Failures throw
// std::runtime_error with the system's text, which fails the test.
namespace peer {
// A TCP listener on 127.0.0.1 with a port of the system's choice.
Fd listen(uint16_t& port, int backlog = 16);
// The next connection on `listener`, or an invalid Fd after `seconds`.
Fd accept(const Fd& listener, double seconds = 5.0);
Fd connect(uint16_t port);
void sendAll(const Fd& fd, const Bytes& bytes);
// Exactly `size` bytes, or fewer when the stream ends or `seconds` pass.
Bytes receive(const Fd& fd, size_t size, double seconds = 5.0);
// Whatever arrives within `seconds` (nothing, when nothing does).
Bytes receiveAvailable(const Fd& fd, double seconds);
// True when the stream has ended (the socket reads end of stream) within `seconds`.
bool seesEnd(const Fd& fd, double seconds = 5.0);
// True once the other end has acknowledged every byte sent on `fd`, so that
// they wait in its receive buffer.
bool waitDelivered(const Fd& fd, double seconds = 5.0);
// A loopback port with no listener behind it.
uint16_t closedPort();
}  // namespace peer

// One delegate call of either socket.
struct SocketEvent {
  enum Kind {
    connected,
    accepted,
    read,
    wrote,
    shouldTimeout,
    disconnected,
    udpSent,
    udpNotSent,
    udpReceived,
    udpClosed
  };
  Kind kind = connected;
  const void* sock = nullptr;
  int64_t tag = 0;
  Bytes data;
  OptionalError error;
  std::string host;
  uint16_t port = 0;
  double elapsed = 0;
  size_t bytesDone = 0;
  std::shared_ptr<GCDAsyncSocket> newSocket;
  SocketAddress address;
};

// Records every call, from whichever thread the delegate queue runs on.
// Optional hooks run inside the delegate call.
class Recorder : public GCDAsyncSocketDelegate, public GCDAsyncUdpSocketDelegate {
 public:
  std::vector<SocketEvent> events() const;
  size_t count(SocketEvent::Kind kind) const;
  // The first event of `kind`; fails the test when there is none.
  SocketEvent first(SocketEvent::Kind kind) const;
  std::vector<SocketEvent::Kind> kinds() const;
  // All bytes of the read events, in order.
  Bytes readBytes() const;

  // Answers to socketShouldTimeoutWriteWithTag, one per question; 0 when used up.
  void answerWriteTimeouts(std::vector<double> answers);
  std::function<void(GCDAsyncSocket*, const std::shared_ptr<GCDAsyncSocket>&)> onAccept;
  std::function<void(GCDAsyncSocket*, const Bytes&, int64_t)> onRead;
  std::function<void(GCDAsyncSocket*, int64_t)> onWrite;
  std::function<void(GCDAsyncSocket*, int64_t)> onShouldTimeout;

  void socketDidConnectToHost(GCDAsyncSocket* sock, const std::string& host,
                              uint16_t port) override;
  void socketDidAcceptNewSocket(GCDAsyncSocket* sock,
                                const std::shared_ptr<GCDAsyncSocket>& newSocket) override;
  void socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                         int64_t tag) override;
  void socketDidWriteDataWithTag(GCDAsyncSocket* sock, int64_t tag) override;
  double socketShouldTimeoutWriteWithTag(GCDAsyncSocket* sock, int64_t tag, double elapsed,
                                         size_t bytesDone) override;
  void socketDidDisconnect(GCDAsyncSocket* sock, const OptionalError& error) override;

  void udpSocketDidSendDataWithTag(GCDAsyncUdpSocket* sock, int64_t tag) override;
  void udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* sock, int64_t tag,
                                                const Error& error) override;
  void udpSocketDidReceiveDataFromAddressWithFilterContext(GCDAsyncUdpSocket* sock,
                                                           const std::vector<uint8_t>& data,
                                                           const SocketAddress& address) override;
  void udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) override;

 private:
  void add(SocketEvent event);
  mutable std::mutex mutex_;
  std::vector<SocketEvent> events_;
  std::vector<double> answers_;
};

// A TCP connection between a GCDAsyncSocket (connected to 127.0.0.1 with
// `delegate` on `queue`, a driven queue pumped here) and a plain peer socket.
struct Connection {
  std::shared_ptr<GCDAsyncSocket> sock;
  Fd peer;
};
// Fails the test (returns an empty sock) when the connection does not come up.
Connection connectPair(const std::shared_ptr<Recorder>& delegate,
                       const std::shared_ptr<Queue>& queue);

}  // namespace oxelo::test
