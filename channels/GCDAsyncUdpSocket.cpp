#include "channels/GCDAsyncUdpSocket.h"

#include <errno.h>
#include <sys/socket.h>

#include <asio/ip/udp.hpp>
#include <deque>
#include <optional>

#include "channels/AsioRuntime.h"
#include "channels/SocketWorker.h"
#include "platform/dispatch/PostWeak.h"

namespace oxelo {

namespace {

using asio::ip::udp;

// The largest UDP payload, plus one byte so that nothing is cut unseen.
constexpr size_t kMaxDatagram = 65536;
// Datagrams taken per wake-up before other sockets get a turn.
constexpr int kReceiveBurst = 64;

Error errorFrom(const asio::error_code& ec, const char* reason) {
  if (ec.category() == asio::system_category()) return posixError(ec.value(), reason);
  return Error{kNetDbErrorDomain, ec.value(), ec.message(), reason};
}

}  // namespace

struct GCDAsyncUdpSocket::Impl : std::enable_shared_from_this<Impl> {
  struct Send {
    uint64_t id;
    std::shared_ptr<const std::vector<uint8_t>> data;
    std::string host;
    uint16_t port;
    double timeout;
    int64_t tag;
    udp::endpoint destination{};
  };

  Impl(std::weak_ptr<GCDAsyncUdpSocketDelegate> d, std::shared_ptr<Queue> q)
      : queue(std::move(q)),
        context(AsioRuntime::shared().context()),
        socket(context),
        resolver(context),
        timers(socketworker::timerQueue(defaultClock())) {
    delegate.set(std::move(d));
  }

  // Any thread.
  std::weak_ptr<GCDAsyncUdpSocket> owner;
  DelegateSlot<GCDAsyncUdpSocketDelegate> delegate;
  const std::shared_ptr<Queue> queue;

  // Worker only from here on.
  asio::io_context& context;
  udp::socket socket;
  udp::resolver resolver;
  // The send time-out counts on the default clock of the socket's creation.
  const std::shared_ptr<Queue> timers;
  TimerHandle sendTimer;
  // Moves on at every close, so that completions from before recognise
  // themselves as stale.
  uint64_t generation = 0;
  uint64_t nextId = 1;
  bool bound = false;
  bool receiving = false;
  bool readWaiting = false;
  bool writeWaiting = false;
  std::deque<Send> sends;
  std::optional<Send> current;

  template <typename Call>
  void raise(Call call) {
    if (!queue || !delegate.has()) return;
    // Only the socket's weak reference travels: an event waiting on a queue
    // does not keep the socket (nor, through it, the queue) alive.
    postWeak(*queue, owner, [call = std::move(call)](GCDAsyncUdpSocket& sock) {
      if (auto d = sock.impl_->delegate.get()) call(*d, &sock);
    });
  }

  OptionalError open() {
    if (socket.is_open()) return std::nullopt;
    asio::error_code ec;
    socket.open(udp::v4(), ec);
    if (ec) return errorFrom(ec, "Error in socket() function");
    socket.non_blocking(true, ec);
    return std::nullopt;
  }

  OptionalError bind(uint16_t port) {
    if (bound)
      return udpSocketError(GCDAsyncUdpSocketErrorCode::badConfig,
                            "Cannot bind a socket more than once.");
    bool wasOpen = socket.is_open();
    if (auto error = open()) return error;
    asio::error_code ec;
    socket.bind(udp::endpoint(udp::v4(), port), ec);
    if (ec) {
      // A system socket made only for this bind does not stay behind.
      asio::error_code ignored;
      if (!wasOpen) socket.close(ignored);
      return errorFrom(ec, "Error in bind() function");
    }
    bound = true;
    return std::nullopt;
  }

  OptionalError enableBroadcast(bool flag) {
    if (auto error = open()) return error;
    asio::error_code ec;
    socket.set_option(udp::socket::broadcast(flag), ec);
    if (ec) return errorFrom(ec, "Error enabling broadcast (setsockopt)");
    return std::nullopt;
  }

  // ---- sending

  void enqueueSend(std::shared_ptr<const std::vector<uint8_t>> data, std::string host,
                   uint16_t port, double timeout, int64_t tag) {
    sends.push_back(Send{nextId++, std::move(data), std::move(host), port, timeout, tag});
    startSending();
  }

  void startSending() {
    if (current || sends.empty()) return;
    current = std::move(sends.front());
    sends.pop_front();
    if (auto error = open()) {
      failCurrent(*error);
      return;
    }
    auto id = current->id;
    if (current->timeout >= 0) {
      sendTimer = socketworker::postAfterWeak(
          *timers, current->timeout, weak_from_this(), [id](Impl& self) {
            if (!self.current || self.current->id != id) return;
            self.failCurrent(udpSocketError(GCDAsyncUdpSocketErrorCode::sendTimeout,
                                            "Send operation timed out"));
          });
    }
    asio::error_code ec;
    auto address = asio::ip::make_address_v4(current->host, ec);
    if (!ec) {
      current->destination = udp::endpoint(address, current->port);
      sendNow();
      return;
    }
    resolver.async_resolve(udp::v4(), current->host, std::to_string(current->port),
                           udp::resolver::numeric_service,
                           [self = shared_from_this(), id](const asio::error_code& ec,
                                                           udp::resolver::results_type results) {
                             if (!self->current || self->current->id != id) return;
                             if (ec || results.empty()) {
                               self->failCurrent(errorFrom(ec ? ec : asio::error::host_not_found,
                                                           "Error in getaddrinfo() function"));
                               return;
                             }
                             self->current->destination = results.begin()->endpoint();
                             self->sendNow();
                           });
  }

  void sendNow() {
    if (writeWaiting) return;
    const auto& bytes = *current->data;
    const auto& to = current->destination;
    for (;;) {
      ssize_t n = ::sendto(socket.native_handle(), bytes.data(), bytes.size(), MSG_DONTWAIT,
                           to.data(), static_cast<socklen_t>(to.size()));
      if (n >= 0) break;
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        waitWritable();
        return;
      }
      failCurrent(posixError(errno, "Error in sendto() function"));
      return;
    }
    auto tag = current->tag;
    finishCurrent();
    raise([tag](GCDAsyncUdpSocketDelegate& d, GCDAsyncUdpSocket* sock) {
      d.udpSocketDidSendDataWithTag(sock, tag);
    });
    startSending();
  }

  void waitWritable() {
    writeWaiting = true;
    socket.async_wait(udp::socket::wait_write,
                      [self = shared_from_this(), gen = generation](const asio::error_code& ec) {
                        if (gen != self->generation) return;
                        self->writeWaiting = false;
                        if (ec || !self->current) return;
                        self->sendNow();
                      });
  }

  void finishCurrent() {
    current.reset();
    sendTimer.cancel();
  }

  void failCurrent(Error error) {
    auto tag = current->tag;
    finishCurrent();
    raise([tag, error = std::move(error)](GCDAsyncUdpSocketDelegate& d, GCDAsyncUdpSocket* sock) {
      d.udpSocketDidNotSendDataWithTagDueToError(sock, tag, error);
    });
    startSending();
  }

  // ---- receiving

  OptionalError beginReceiving() {
    if (!bound)
      return udpSocketError(GCDAsyncUdpSocketErrorCode::badConfig,
                            "Must bind socket before you can receive data. Bind it with "
                            "bindToPort first.");
    if (receiving) return std::nullopt;
    receiving = true;
    receiveNow();
    return std::nullopt;
  }

  // The reactor reports readiness by edges: a wait is armed only right after
  // the system has said that it would block, so that no edge goes by unseen.
  void waitReadable() {
    if (readWaiting) return;
    readWaiting = true;
    socket.async_wait(udp::socket::wait_read,
                      [self = shared_from_this(), gen = generation](const asio::error_code& ec) {
                        if (gen != self->generation) return;
                        self->readWaiting = false;
                        if (ec) return;
                        self->receiveNow();
                      });
  }

  void receiveNow() {
    if (readWaiting) return;
    for (int i = 0; i < kReceiveBurst; ++i) {
      std::vector<uint8_t> data(kMaxDatagram);
      sockaddr_storage from{};
      socklen_t fromLength = sizeof from;
      ssize_t n = ::recvfrom(socket.native_handle(), data.data(), data.size(), MSG_DONTWAIT,
                             reinterpret_cast<sockaddr*>(&from), &fromLength);
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
          waitReadable();
          return;
        }
        closeWithError(posixError(errno, "Error in recvfrom() function"));
        return;
      }
      data.resize(static_cast<size_t>(n));
      auto bytes = std::make_shared<const std::vector<uint8_t>>(std::move(data));
      SocketAddress address(reinterpret_cast<sockaddr*>(&from), fromLength);
      raise([bytes, address](GCDAsyncUdpSocketDelegate& d, GCDAsyncUdpSocket* sock) {
        d.udpSocketDidReceiveDataFromAddressWithFilterContext(sock, *bytes, address);
      });
    }
    // More may be waiting: go on after other sockets had their turn.
    socketworker::post([self = shared_from_this(), gen = generation] {
      if (gen == self->generation && self->receiving) self->receiveNow();
    });
  }

  // ---- closing

  void closeWithError(OptionalError error) {
    bool wasOpen = socket.is_open();
    ++generation;
    asio::error_code ignored;
    sendTimer.cancel();
    resolver.cancel();
    socket.close(ignored);
    sends.clear();
    current.reset();
    bound = receiving = readWaiting = writeWaiting = false;
    if (!wasOpen) return;
    raise([error = std::move(error)](GCDAsyncUdpSocketDelegate& d, GCDAsyncUdpSocket* sock) {
      d.udpSocketDidClose(sock, error);
    });
  }

  uint16_t localPort() const {
    if (!socket.is_open()) return 0;
    asio::error_code ec;
    auto local = socket.local_endpoint(ec);
    return ec ? 0 : local.port();
  }
};

std::shared_ptr<GCDAsyncUdpSocket> GCDAsyncUdpSocket::create(
    std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, std::shared_ptr<Queue> delegateQueue) {
  std::shared_ptr<GCDAsyncUdpSocket> sock(
      new GCDAsyncUdpSocket(std::move(delegate), std::move(delegateQueue)));
  sock->impl_->owner = sock;
  return sock;
}

GCDAsyncUdpSocket::GCDAsyncUdpSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                     std::shared_ptr<Queue> delegateQueue)
    : impl_(std::make_shared<Impl>(std::move(delegate), std::move(delegateQueue))) {}

GCDAsyncUdpSocket::~GCDAsyncUdpSocket() {
  impl_->delegate.set({});
  socketworker::runSync([impl = impl_] { impl->closeWithError(std::nullopt); });
}

bool GCDAsyncUdpSocket::bindToPort(uint16_t port, OptionalError& error) {
  socketworker::runSync([&] { error = impl_->bind(port); });
  return !error;
}

bool GCDAsyncUdpSocket::enableBroadcast(bool flag, OptionalError& error) {
  socketworker::runSync([&] { error = impl_->enableBroadcast(flag); });
  return !error;
}

void GCDAsyncUdpSocket::sendData(std::vector<uint8_t> data, const std::string& host, uint16_t port,
                                 double timeout, int64_t tag) {
  sendData(std::make_shared<const std::vector<uint8_t>>(std::move(data)), host, port, timeout, tag);
}

void GCDAsyncUdpSocket::sendData(std::shared_ptr<const std::vector<uint8_t>> data,
                                 const std::string& host, uint16_t port, double timeout,
                                 int64_t tag) {
  if (!data) data = std::make_shared<const std::vector<uint8_t>>();
  socketworker::post([impl = impl_, data = std::move(data), host, port, timeout, tag]() mutable {
    impl->enqueueSend(std::move(data), std::move(host), port, timeout, tag);
  });
}

bool GCDAsyncUdpSocket::beginReceiving(OptionalError& error) {
  socketworker::runSync([&] { error = impl_->beginReceiving(); });
  return !error;
}

uint16_t GCDAsyncUdpSocket::localPort() const {
  uint16_t port = 0;
  socketworker::runSync([&] { port = impl_->localPort(); });
  return port;
}

void GCDAsyncUdpSocket::close() {
  socketworker::runSync([&] { impl_->closeWithError(std::nullopt); });
}

void GCDAsyncUdpSocket::setDelegate(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate) {
  impl_->delegate.set(std::move(delegate));
}

std::shared_ptr<GCDAsyncUdpSocketDelegate> GCDAsyncUdpSocket::delegate() const {
  return impl_->delegate.get();
}

}  // namespace oxelo
