#include "channels/GCDAsyncSocket.h"

#include <errno.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <asio/ip/tcp.hpp>
#include <atomic>
#include <deque>
#include <mutex>
#include <optional>

#include <fmt/format.h>

#include "channels/AsioRuntime.h"
#include "channels/SocketWorker.h"
#include "channels/UnsentLimit.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

using asio::ip::tcp;

constexpr int kBacklog = 1024;
// The pause before listening again after a failed accept.
constexpr double kAcceptRetryDelay = 0.1;
// What one read asks of the system at least; a read takes all that is
// waiting, however much that is.
constexpr size_t kReadChunk = 16 * 1024;

Error errorFrom(const asio::error_code& ec, const char* reason) {
  if (ec.category() == asio::system_category()) return posixError(ec.value(), reason);
  return Error{kNetDbErrorDomain, ec.value(), ec.message(), reason};
}

}  // namespace

struct GCDAsyncSocket::Impl : std::enable_shared_from_this<Impl> {
  enum class State { idle, connecting, accepting, connected };

  struct Read {
    uint64_t id;
    double timeout;
    int64_t tag;
  };
  struct Write {
    uint64_t id;
    std::shared_ptr<const std::vector<uint8_t>> data;
    double timeout;
    int64_t tag;
    size_t done = 0;
    double started = 0;  // on the time-out clock
  };

  Impl(std::weak_ptr<GCDAsyncSocketDelegate> d, std::shared_ptr<Queue> q)
      : queue(std::move(q)),
        context(AsioRuntime::shared().context()),
        socket(context),
        acceptor(context),
        resolver(context),
        timers(socketworker::timerQueue(defaultClock())) {
    delegate.set(std::move(d));
  }

  // Any thread.
  std::weak_ptr<GCDAsyncSocket> owner;
  DelegateSlot<GCDAsyncSocketDelegate> delegate;
  const std::shared_ptr<Queue> queue;
  std::atomic<bool> connected{false};
  // Bytes of the writes asked for and not yet handed whole to the system:
  // added by writeData(), taken off by the worker when a write completes or
  // is dropped.
  std::atomic<size_t> queuedBytes{0};
  mutable std::mutex infoMutex;
  SocketAddress peer;      // guarded by infoMutex
  uint16_t localPort = 0;  // guarded by infoMutex

  // Worker only from here on.
  asio::io_context& context;
  State state = State::idle;
  // Moves on at every close, so that the completions of an earlier
  // connection recognise themselves as stale.
  uint64_t generation = 0;
  uint64_t nextId = 1;
  tcp::socket socket;
  tcp::acceptor acceptor;
  tcp::resolver resolver;
  // Time-outs count on the default clock of the socket's creation. Each
  // expiry also checks the generation and the operation it was set for.
  const std::shared_ptr<Queue> timers;
  TimerHandle connectTimer;  // connect time-out; accept retry while listening
  TimerHandle readTimer;
  TimerHandle writeTimer;
  std::deque<Read> reads;
  std::deque<Write> writes;
  std::optional<Read> currentRead;
  std::optional<Write> currentWrite;
  bool readWaiting = false;   // a wait for readability is pending
  bool writeWaiting = false;  // a wait for writability is pending
  bool writePaused = false;   // the delegate is being asked about a write time-out

  // Posts `call` to the delegate queue when a delegate is set now; it runs
  // only if the socket and a delegate still exist then, with the delegate of
  // that moment.
  template <typename Call>
  void raise(Call call) {
    if (!queue || !delegate.has()) return;
    // Only the socket's weak reference travels: an event waiting on a queue
    // does not keep the socket (nor, through it, the queue) alive.
    postWeak(*queue, owner, [call = std::move(call)](GCDAsyncSocket& sock) {
      if (auto d = sock.impl_->delegate.get()) call(*d, &sock);
    });
  }

  // Runs `fn(Impl&)` on the worker after `seconds` of the time-out clock,
  // unless the socket is gone or the handle cancelled it first.
  template <typename Fn>
  TimerHandle after(double seconds, Fn fn) {
    return socketworker::postAfterWeak(*timers, seconds, weak_from_this(), std::move(fn));
  }

  OptionalError checkStart(const char* verb) const {
    using enum GCDAsyncSocketErrorCode;
    if (!delegate.has())
      return socketError(
          badConfig,
          fmt::format("Attempting to {} without a delegate. Set a delegate first.", verb));
    if (!queue)
      return socketError(
          badConfig,
          fmt::format("Attempting to {} without a delegate queue. Set a delegate queue first.",
                      verb));
    if (state != State::idle)
      return socketError(
          badConfig,
          fmt::format(
              "Attempting to {} while connected or accepting connections. Disconnect first.",
              verb));
    return std::nullopt;
  }

  // ---- connecting

  OptionalError connect(const std::string& host, uint16_t port, double timeout) {
    if (auto error = checkStart("connect")) return error;
    if (host.empty())
      return socketError(GCDAsyncSocketErrorCode::badParam,
                         "Invalid host parameter (nil or \"\"). Should be a domain name or IP "
                         "address string.");
    state = State::connecting;
    auto gen = generation;
    if (timeout >= 0) {
      connectTimer = after(timeout, [gen](Impl& self) {
        if (gen != self.generation || self.state != State::connecting) return;
        self.closeWithError(socketError(GCDAsyncSocketErrorCode::connectTimeout));
      });
    }
    resolver.async_resolve(
        host, std::to_string(port), tcp::resolver::numeric_service,
        [self = shared_from_this(), gen](const asio::error_code& ec,
                                         tcp::resolver::results_type results) {
          if (gen != self->generation || self->state != State::connecting) return;
          if (ec) {
            self->closeWithError(errorFrom(ec, "Error in getaddrinfo() function"));
            return;
          }
          std::vector<tcp::endpoint> endpoints;
          for (const auto& entry : results) endpoints.push_back(entry.endpoint());
          // This system speaks IPv4: try those addresses first.
          std::stable_partition(endpoints.begin(), endpoints.end(),
                                [](const tcp::endpoint& e) { return e.address().is_v4(); });
          self->connectTo(std::move(endpoints), 0, asio::error::host_not_found);
        });
    return std::nullopt;
  }

  void connectTo(std::vector<tcp::endpoint> endpoints, size_t index, asio::error_code last) {
    if (index >= endpoints.size()) {
      closeWithError(errorFrom(last, "Error in connect() function"));
      return;
    }
    asio::error_code ignored;
    socket.close(ignored);
    auto endpoint = endpoints[index];
    socket.async_connect(
        endpoint, [self = shared_from_this(), gen = generation, endpoints = std::move(endpoints),
                   index](const asio::error_code& ec) mutable {
          if (gen != self->generation || self->state != State::connecting) return;
          if (ec) {
            self->connectTo(std::move(endpoints), index + 1, ec);
            return;
          }
          self->didConnect();
        });
  }

  void didConnect() {
    connectTimer.cancel();
    adopt();
    auto address = peerAddress();
    raise([host = address.host(), port = address.port()](GCDAsyncSocketDelegate& d,
                                                         GCDAsyncSocket* sock) {
      d.socketDidConnectToHost(sock, host, port);
    });
    startReading();
    startWriting();
  }

  // Takes the connected `socket` as this socket's connection.
  void adopt() {
    asio::error_code ec;
    socket.non_blocking(true, ec);
    if (!limitUnsentBytes(socket.native_handle()))
      oxlog("GCDAsyncSocket: no limit on unsent bytes: {}",
            posixError(errno, "setsockopt").toString());
    state = State::connected;
    connected = true;
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    SocketAddress remote;
    if (getpeername(socket.native_handle(), reinterpret_cast<sockaddr*>(&storage), &length) == 0)
      remote = SocketAddress(reinterpret_cast<sockaddr*>(&storage), length);
    auto local = socket.local_endpoint(ec);
    std::lock_guard lock(infoMutex);
    peer = std::move(remote);
    localPort = ec ? 0 : local.port();
  }

  SocketAddress peerAddress() const {
    std::lock_guard lock(infoMutex);
    return peer;
  }

  // ---- accepting

  OptionalError accept(uint16_t port) {
    if (auto error = checkStart("accept")) return error;
    asio::error_code ec;
    auto fail = [&](const char* reason) {
      asio::error_code ignored;
      acceptor.close(ignored);
      return OptionalError(errorFrom(ec, reason));
    };
    acceptor.open(tcp::v4(), ec);
    if (ec) return fail("Error in socket() function");
    acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
    if (ec) return fail("Error enabling address reuse (setsockopt)");
    acceptor.bind(tcp::endpoint(tcp::v4(), port), ec);
    if (ec) return fail("Error in bind() function");
    acceptor.listen(kBacklog, ec);
    if (ec) return fail("Error in listen() function");
    auto local = acceptor.local_endpoint(ec);
    {
      std::lock_guard lock(infoMutex);
      localPort = ec ? 0 : local.port();
    }
    state = State::accepting;
    acceptNext();
    return std::nullopt;
  }

  void acceptNext() {
    acceptor.async_accept([self = shared_from_this(), gen = generation](const asio::error_code& ec,
                                                                        tcp::socket peer) {
      if (gen != self->generation || self->state != State::accepting) return;
      if (ec) {
        // Out of descriptors and the like: try again shortly rather than spin.
        oxlog("GCDAsyncSocket: accept failed: {}", ec.message());
        self->connectTimer = self->after(kAcceptRetryDelay, [gen](Impl& inner) {
          if (gen != inner.generation || inner.state != State::accepting) return;
          inner.acceptNext();
        });
        return;
      }
      self->didAccept(std::move(peer));
      self->acceptNext();
    });
  }

  void didAccept(tcp::socket peer) {
    // Without a delegate to announce it to, the connection is closed again.
    if (!delegate.has()) return;
    auto newSocket = GCDAsyncSocket::create(delegate.weak(), queue);
    auto& inner = *newSocket->impl_;
    inner.socket = std::move(peer);
    inner.adopt();
    raise([newSocket](GCDAsyncSocketDelegate& d, GCDAsyncSocket* sock) {
      d.socketDidAcceptNewSocket(sock, newSocket);
    });
    // Its own events can only follow the announcement.
    inner.startReading();
  }

  // ---- reading

  void enqueueRead(double timeout, int64_t tag) {
    if (state != State::connecting && state != State::connected) return;
    reads.push_back(Read{nextId++, timeout, tag});
    startReading();
  }

  // Makes the first queued read current, or watches an idle connection for
  // the peer's close.
  void startReading() {
    if (state != State::connected || currentRead) return;
    if (reads.empty()) {
      if (!readWaiting) checkIdle();
      return;
    }
    currentRead = reads.front();
    reads.pop_front();
    if (currentRead->timeout >= 0) {
      readTimer = after(currentRead->timeout, [gen = generation, id = currentRead->id](Impl& self) {
        if (gen != self.generation || !self.currentRead || self.currentRead->id != id) return;
        self.closeWithError(socketError(GCDAsyncSocketErrorCode::readTimeout));
      });
    }
    readNow();
  }

  // The reactor reports readiness by edges: a wait is armed only right after
  // the system has said that it would block, in the same turn of the
  // worker, so that no edge goes by unseen.
  void waitReadable() {
    if (readWaiting) return;
    readWaiting = true;
    socket.async_wait(tcp::socket::wait_read,
                      [self = shared_from_this(), gen = generation](const asio::error_code& ec) {
                        if (gen != self->generation) return;
                        self->readWaiting = false;
                        if (ec) return;  // only a close cancels the wait
                        if (self->currentRead) {
                          self->readNow();
                        } else {
                          self->checkIdle();
                        }
                      });
  }

  // With no read queued: notices a peer's close while nothing is waiting to
  // be read. Bytes that are waiting stay for the next read, which then also
  // sees the end of the stream behind them.
  void checkIdle() {
    char byte;
    ssize_t n = ::recv(socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (n == 0) {
      closeWithError(socketError(GCDAsyncSocketErrorCode::closed));
      return;
    }
    if (n > 0) return;
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
      waitReadable();
      return;
    }
    closeWithError(posixError(errno, "Error in recv() function"));
  }

  // Takes every byte that is waiting now into the current read.
  void readNow() {
    int fd = socket.native_handle();
    int waiting = 0;
    if (::ioctl(fd, FIONREAD, &waiting) != 0) waiting = 0;
    size_t want = std::max<size_t>(static_cast<size_t>(waiting), 1);
    std::vector<uint8_t> data;
    bool endOfStream = false;
    int failure = 0;
    while (data.size() < want) {
      size_t offset = data.size();
      data.resize(offset + std::max(want - offset, kReadChunk));
      ssize_t n = ::recv(fd, data.data() + offset, data.size() - offset, MSG_DONTWAIT);
      if (n > 0) {
        data.resize(offset + static_cast<size_t>(n));
        continue;
      }
      data.resize(offset);
      if (n == 0) {
        endOfStream = true;
      } else if (errno == EINTR) {
        continue;
      } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
        failure = errno;
      }
      break;
    }
    if (!data.empty()) {
      auto tag = currentRead->tag;
      currentRead.reset();
      readTimer.cancel();
      auto bytes = std::make_shared<const std::vector<uint8_t>>(std::move(data));
      raise([bytes, tag](GCDAsyncSocketDelegate& d, GCDAsyncSocket* sock) {
        d.socketDidReadData(sock, *bytes, tag);
      });
    }
    if (endOfStream) {
      closeWithError(socketError(GCDAsyncSocketErrorCode::closed));
      return;
    }
    if (failure) {
      closeWithError(posixError(failure, "Error in recv() function"));
      return;
    }
    if (currentRead) {
      waitReadable();
      return;
    }
    startReading();
  }

  // ---- writing

  void enqueueWrite(std::shared_ptr<const std::vector<uint8_t>> data, double timeout, int64_t tag) {
    if (state != State::connecting && state != State::connected) {
      queuedBytes -= data->size();
      return;
    }
    writes.push_back(Write{nextId++, std::move(data), timeout, tag});
    startWriting();
  }

  void startWriting() {
    if (state != State::connected || currentWrite || writes.empty()) return;
    currentWrite = std::move(writes.front());
    writes.pop_front();
    currentWrite->started = timers->clock().now();
    if (currentWrite->timeout >= 0) armWriteTimer(currentWrite->timeout);
    writeNow();
  }

  void armWriteTimer(double timeout) {
    writeTimer = after(timeout, [gen = generation, id = currentWrite->id](Impl& self) {
      if (gen != self.generation || !self.currentWrite || self.currentWrite->id != id) return;
      self.writeTimedOut();
    });
  }

  void writeNow() {
    if (writeWaiting || writePaused) return;
    int fd = socket.native_handle();
    auto& write = *currentWrite;
    const auto& bytes = *write.data;
    while (write.done < bytes.size()) {
      ssize_t n = ::send(fd, bytes.data() + write.done, bytes.size() - write.done,
                         MSG_NOSIGNAL | MSG_DONTWAIT);
      if (n >= 0) {
        write.done += static_cast<size_t>(n);
        continue;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
        waitWritable();
        return;
      }
      closeWithError(posixError(errno, "Error in send() function"));
      return;
    }
    auto tag = write.tag;
    queuedBytes -= bytes.size();
    currentWrite.reset();
    writeTimer.cancel();
    raise([tag](GCDAsyncSocketDelegate& d, GCDAsyncSocket* sock) {
      d.socketDidWriteDataWithTag(sock, tag);
    });
    startWriting();
  }

  void waitWritable() {
    writeWaiting = true;
    socket.async_wait(tcp::socket::wait_write,
                      [self = shared_from_this(), gen = generation](const asio::error_code& ec) {
                        if (gen != self->generation) return;
                        self->writeWaiting = false;
                        if (ec || !self->currentWrite) return;
                        self->writeNow();
                      });
  }

  // The write pauses while the delegate decides; see socketShouldTimeoutWriteWithTag.
  void writeTimedOut() {
    writePaused = true;
    auto id = currentWrite->id;
    auto tag = currentWrite->tag;
    auto done = currentWrite->done;
    double elapsed = timers->clock().now() - currentWrite->started;
    if (!queue || !delegate.has()) {
      answerWriteTimeout(id, 0.0);
      return;
    }
    postWeak(*queue, owner, [id, tag, elapsed, done](GCDAsyncSocket& sock) {
      double extra = 0.0;
      if (auto d = sock.impl_->delegate.get())
        extra = d->socketShouldTimeoutWriteWithTag(&sock, tag, elapsed, done);
      socketworker::post([impl = sock.impl_, id, extra] { impl->answerWriteTimeout(id, extra); });
    });
  }

  void answerWriteTimeout(uint64_t id, double extra) {
    if (!currentWrite || currentWrite->id != id) return;
    if (extra <= 0) {
      closeWithError(socketError(GCDAsyncSocketErrorCode::writeTimeout));
      return;
    }
    writePaused = false;
    armWriteTimer(extra);
    writeNow();
  }

  // ---- closing

  void closeWithError(OptionalError error) {
    if (state == State::idle) return;
    state = State::idle;
    connected = false;
    ++generation;
    asio::error_code ignored;
    connectTimer.cancel();
    readTimer.cancel();
    writeTimer.cancel();
    resolver.cancel();
    socket.close(ignored);
    acceptor.close(ignored);
    reads.clear();
    for (const auto& write : writes) queuedBytes -= write.data->size();
    if (currentWrite) queuedBytes -= currentWrite->data->size();
    writes.clear();
    currentRead.reset();
    currentWrite.reset();
    readWaiting = writeWaiting = writePaused = false;
    {
      std::lock_guard lock(infoMutex);
      peer = {};
      localPort = 0;
    }
    raise([error = std::move(error)](GCDAsyncSocketDelegate& d, GCDAsyncSocket* sock) {
      d.socketDidDisconnect(sock, error);
    });
  }
};

std::shared_ptr<GCDAsyncSocket> GCDAsyncSocket::create(
    std::weak_ptr<GCDAsyncSocketDelegate> delegate, std::shared_ptr<Queue> delegateQueue) {
  std::shared_ptr<GCDAsyncSocket> sock(
      new GCDAsyncSocket(std::move(delegate), std::move(delegateQueue)));
  sock->impl_->owner = sock;
  return sock;
}

GCDAsyncSocket::GCDAsyncSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                               std::shared_ptr<Queue> delegateQueue)
    : impl_(std::make_shared<Impl>(std::move(delegate), std::move(delegateQueue))) {}

GCDAsyncSocket::~GCDAsyncSocket() {
  impl_->delegate.set({});
  socketworker::runSync([impl = impl_] { impl->closeWithError(std::nullopt); });
}

bool GCDAsyncSocket::connectToHost(const std::string& host, uint16_t port, double timeout,
                                   OptionalError& error) {
  socketworker::runSync([&] { error = impl_->connect(host, port, timeout); });
  return !error;
}

bool GCDAsyncSocket::acceptOnPort(uint16_t port, OptionalError& error) {
  socketworker::runSync([&] { error = impl_->accept(port); });
  return !error;
}

void GCDAsyncSocket::readDataWithTimeout(double timeout, int64_t tag) {
  socketworker::post([impl = impl_, timeout, tag] { impl->enqueueRead(timeout, tag); });
}

void GCDAsyncSocket::writeData(std::shared_ptr<const std::vector<uint8_t>> data, double timeout,
                               int64_t tag) {
  if (!data || data->empty()) return;
  impl_->queuedBytes += data->size();
  socketworker::post([impl = impl_, data = std::move(data), timeout, tag]() mutable {
    impl->enqueueWrite(std::move(data), timeout, tag);
  });
}

void GCDAsyncSocket::writeData(std::vector<uint8_t> data, double timeout, int64_t tag) {
  if (data.empty()) return;
  writeData(std::make_shared<const std::vector<uint8_t>>(std::move(data)), timeout, tag);
}

void GCDAsyncSocket::disconnect() {
  socketworker::runSync([&] { impl_->closeWithError(std::nullopt); });
}

bool GCDAsyncSocket::isConnected() const { return impl_->connected; }

size_t GCDAsyncSocket::queuedWriteBytes() const { return impl_->queuedBytes; }

void GCDAsyncSocket::setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) {
  impl_->delegate.set(std::move(delegate));
}

std::shared_ptr<GCDAsyncSocketDelegate> GCDAsyncSocket::delegate() const {
  return impl_->delegate.get();
}

const std::shared_ptr<Queue>& GCDAsyncSocket::delegateQueue() const { return impl_->queue; }

SocketAddress GCDAsyncSocket::connectedAddress() const { return impl_->peerAddress(); }

std::string GCDAsyncSocket::connectedHost() const { return impl_->peerAddress().host(); }

uint16_t GCDAsyncSocket::connectedPort() const { return impl_->peerAddress().port(); }

uint16_t GCDAsyncSocket::localPort() const {
  std::lock_guard lock(impl_->infoMutex);
  return impl_->localPort;
}

}  // namespace oxelo
