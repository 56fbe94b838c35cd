#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "channels/GCDAsyncSocket.h"
#include "channels/GCDAsyncUdpSocket.h"
#include "channels/UsbCarrier.h"
#include "platform/dispatch/Queue.h"
#include "tests/support/TestBytes.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

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
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

// A TCP listener on 127.0.0.1 on a port of the system's choice; what it does not accept waits in
// its backlog. Failures throw std::runtime_error with the system's text, which fails the test.
class LoopbackListener {
 public:
  explicit LoopbackListener(int backlog = 16)
      : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    if (!fd_.valid() || ::bind(fd_.get(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
        ::listen(fd_.get(), backlog) != 0 ||
        ::getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&a), &length) != 0)
      throw std::runtime_error(std::string("loopback listener: ") + std::strerror(errno));
    port_ = ntohs(a.sin_port);
  }
  uint16_t port() const { return port_; }
  // The next connection, or an invalid Fd after `seconds`.
  Fd accept(double seconds = 5.0) const;
  void close() { fd_.reset(); }

 private:
  Fd fd_;
  uint16_t port_ = 0;
};

// Plain blocking sockets on 127.0.0.1 that play the peer.
namespace peer {
Fd connect(uint16_t port);
void sendAll(const Fd& fd, const Bytes& bytes);
// Exactly `size` bytes, or fewer when the stream ends or `seconds` pass.
Bytes receive(const Fd& fd, size_t size, double seconds = 5.0);
// Whatever arrives within `seconds` (nothing, when nothing does).
Bytes receiveAvailable(const Fd& fd, double seconds);
// Everything until the stream ends (a reset ends it too); nullopt when it
// has not ended within `seconds`.
std::optional<Bytes> readToEnd(const Fd& fd, double seconds = 10.0);
// True when the stream ends within `seconds`, whatever comes before.
inline bool seesEnd(const Fd& fd, double s = 5.0) { return readToEnd(fd, s).has_value(); }
// `count` whole frames of the framed channel, fewer when they do not come.
std::vector<Frame> receiveFrames(const Fd& fd, size_t count, double seconds = 5.0);
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
  OptionalError error;
  Bytes data;
  std::string host;
  uint16_t port = 0;
  double elapsed = 0;
  size_t bytesDone = 0;
  std::shared_ptr<GCDAsyncSocket> newSocket;
  SocketAddress address;
};

// Each event names only the fields its call fills.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
// Records every call, from whichever thread the delegate queue runs on.
// Optional hooks run inside the delegate call.
class Recorder : public GCDAsyncSocketDelegate, public GCDAsyncUdpSocketDelegate {
 public:
  std::vector<SocketEvent> events() const;
  size_t count(SocketEvent::Kind kind) const;
  // The first event of `kind`; fails the test when there is none.
  SocketEvent first(SocketEvent::Kind kind) const;
  std::vector<SocketEvent::Kind> kinds() const;
  std::vector<int64_t> tags(SocketEvent::Kind kind) const;
  // All bytes of the read events, in order.
  Bytes readBytes() const;

  // Answers to socketShouldTimeoutWriteWithTag, one per question; 0 when used up.
  void answerWriteTimeouts(std::vector<double> answers);
  std::function<void(GCDAsyncSocket*, const std::shared_ptr<GCDAsyncSocket>&)> onAccept;
  std::function<void(GCDAsyncSocket*, const Bytes&, int64_t)> onRead;

  void socketDidConnectToHost(GCDAsyncSocket* s, const std::string& host, uint16_t port) override {
    add({.kind = SocketEvent::connected, .sock = s, .host = host, .port = port});
  }
  void socketDidAcceptNewSocket(GCDAsyncSocket* s,
                                const std::shared_ptr<GCDAsyncSocket>& newSocket) override {
    add({.kind = SocketEvent::accepted, .sock = s, .newSocket = newSocket});
    if (onAccept) onAccept(s, newSocket);
  }
  void socketDidReadData(GCDAsyncSocket* s, const std::vector<uint8_t>& data,
                         int64_t tag) override {
    add({.kind = SocketEvent::read, .sock = s, .tag = tag, .data = data});
    if (onRead) onRead(s, data, tag);
  }
  void socketDidWriteDataWithTag(GCDAsyncSocket* s, int64_t tag) override {
    add({SocketEvent::wrote, s, tag});
  }
  double socketShouldTimeoutWriteWithTag(GCDAsyncSocket* s, int64_t tag, double elapsed,
                                         size_t bytesDone) override {
    add({.kind = SocketEvent::shouldTimeout,
         .sock = s,
         .tag = tag,
         .elapsed = elapsed,
         .bytesDone = bytesDone});
    std::lock_guard lock(mutex_);
    if (answers_.empty()) return 0;
    return std::exchange(answers_, {answers_.begin() + 1, answers_.end()}).front();
  }
  void socketDidDisconnect(GCDAsyncSocket* s, const OptionalError& error) override {
    add({SocketEvent::disconnected, s, 0, error});
  }

  void udpSocketDidSendDataWithTag(GCDAsyncUdpSocket* s, int64_t tag) override {
    add({SocketEvent::udpSent, s, tag});
  }
  void udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* s, int64_t tag,
                                                const Error& error) override {
    add({SocketEvent::udpNotSent, s, tag, error});
  }
  void udpSocketDidReceiveDataFromAddressWithFilterContext(GCDAsyncUdpSocket* s,
                                                           const std::vector<uint8_t>& data,
                                                           const SocketAddress& address) override {
    add({.kind = SocketEvent::udpReceived, .sock = s, .data = data, .address = address});
  }
  void udpSocketDidClose(GCDAsyncUdpSocket* s, const OptionalError& error) override {
    add({SocketEvent::udpClosed, s, 0, error});
  }

 private:
  void add(SocketEvent event) {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }
  mutable std::mutex mutex_;
  std::vector<SocketEvent> events_;
  std::vector<double> answers_;
};
#pragma GCC diagnostic pop

inline bool isError(const OptionalError& error, const std::string& domain, int64_t code) {
  return error && error->domain == domain && error->code == code;
}
// "domain code: description", or "none".
inline std::string errorText(const OptionalError& e) {
  return e ? e->domain + " " + std::to_string(e->code) + ": " + e->description : "none";
}

// A GCDAsyncSocket (with `delegate` on `queue`) connected to a plain peer socket on loopback.
struct Connection {
  std::shared_ptr<GCDAsyncSocket> sock;
  Fd peer;
};
// Fails the test (returns an empty sock) when the connection does not come up.
Connection connectPair(const std::shared_ptr<Recorder>& delegate,
                       const std::shared_ptr<Queue>& queue);

// A framed channel on loopback as the USB listener accepts it: the phone's channel in its carrier,
// and the host's plain socket. The listener's delegate queue is the main queue, run by `main`.
class UsbLoopback final : public PTChannelDelegate {
 public:
  ~UsbLoopback() override;
  // Fails the test (leaves `carrier` empty) when the channel does not come up.
  static std::shared_ptr<UsbLoopback> connect(Queue& main);

  std::shared_ptr<UsbCarrier> carrier;
  Fd host;

  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t, uint32_t,
                                           std::shared_ptr<const PTPayload>) override {}
  void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>&,
                                         const std::shared_ptr<PTChannel>& channel,
                                         const PTAddress&) override {
    carrier = UsbCarrier::adopt(channel);
  }
  uint8_t ptChannelDelegateOptionalOps() const override { return kPTDelegateDidAcceptConnection; }

 private:
  std::shared_ptr<PTChannel> listener_;
};

}  // namespace oxelo::test
