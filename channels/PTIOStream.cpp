#include "channels/PTIOStream.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <asio/generic/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <cerrno>

#include "channels/AsioRuntime.h"
#include "channels/SocketWorker.h"
#include "channels/UnsentLimit.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

// A payload buffer starts at most this large and grows as bytes arrive, so a
// header that announces a huge size costs nothing until the bytes come.
constexpr size_t kInitialReadReserve = 1 << 20;

int errorNumber(const asio::error_code& ec) {
  if (ec.category() == asio::system_category()) return ec.value();
  return EIO;
}

asio::io_context& ioContext() { return AsioRuntime::shared().context(); }

}  // namespace

struct PTIOStream::Socket {
  explicit Socket(asio::io_context& context) : socket(context) {}
  asio::generic::stream_protocol::socket socket;
};

std::shared_ptr<PTIOStream> PTIOStream::create(int fd, std::shared_ptr<Queue> queue,
                                               OptionalError* error) {
  auto fail = [&](int err, const char* reason) -> std::shared_ptr<PTIOStream> {
    ::close(fd);
    if (error) *error = posixError(err, reason);
    return nullptr;
  };
  sockaddr_storage local{};
  socklen_t length = sizeof local;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
    return fail(errno, "getsockname");
  }
  int family = local.ss_family;
  if ((family == AF_INET || family == AF_INET6) && !limitUnsentBytes(fd))
    oxlog("PTIOStream: no limit on unsent bytes: {}", posixError(errno, "setsockopt").toString());
  asio::generic::stream_protocol protocol(family, family == AF_UNIX ? 0 : IPPROTO_TCP);
  auto socket = std::make_unique<Socket>(ioContext());
  asio::error_code ec;
  socket->socket.assign(protocol, fd, ec);
  if (ec) return fail(errorNumber(ec), "assign");
  socket->socket.non_blocking(true, ec);
  if (ec) {
    socket->socket.release(ec);
    return fail(errorNumber(ec), "fcntl");
  }
  return std::shared_ptr<PTIOStream>(new PTIOStream(std::move(socket), std::move(queue)));
}

PTIOStream::PTIOStream(std::unique_ptr<Socket> socket, std::shared_ptr<Queue> queue)
    : queue_(std::move(queue)), socket_(std::move(socket)) {}

PTIOStream::~PTIOStream() = default;

void PTIOStream::setCleanupHandler(CleanupHandler handler) {
  std::lock_guard lock(mutex_);
  cleanup_ = std::move(handler);
}

bool PTIOStream::isOpen() const {
  std::lock_guard lock(mutex_);
  return state_ == State::open;
}

void PTIOStream::read(size_t size, ReadHandler handler) {
  socketworker::post([self = shared_from_this(), size, handler = std::move(handler)] {
    if (self->readsStopped() || self->socketClosed_) return;
    auto buffer = std::make_shared<std::vector<uint8_t>>();
    buffer->reserve(std::min(size, kInitialReadReserve));
    asio::async_read(self->socket_->socket, asio::dynamic_buffer(*buffer),
                     asio::transfer_exactly(size),
                     [self, buffer, handler](const asio::error_code& ec, size_t) {
                       if (ec == asio::error::operation_aborted || self->readsStopped()) return;
                       OptionalError error;
                       if (ec && ec != asio::error::eof)
                         error = posixError(errorNumber(ec), "read");
                       std::weak_ptr<PTIOStream> weak = self;
                       self->post([weak, handler, error, data = std::move(*buffer)]() mutable {
                         // close() or cancel() may have come while this waited in the queue.
                         auto stream = weak.lock();
                         if (!stream || stream->readsStopped()) return;
                         handler(std::move(error), std::move(data));
                       });
                     });
  });
}

void PTIOStream::write(std::vector<uint8_t> head, std::shared_ptr<const std::vector<uint8_t>> body,
                       WriteHandler handler) {
  {
    std::lock_guard lock(mutex_);
    if (state_ == State::open) {
      queuedBytes_ += head.size() + (body ? body->size() : 0);
      pending_.push_back(WriteItem{std::move(head), std::move(body), std::move(handler)});
      handler = nullptr;
    }
  }
  if (handler) {
    deliver(std::move(handler), posixError(ECANCELED, "write"));
    return;
  }
  socketworker::post([self = shared_from_this()] { self->pumpWrites(); });
}

void PTIOStream::close() {
  {
    std::lock_guard lock(mutex_);
    if (state_ == State::closed) return;
    state_ = State::closed;
  }
  readsStopped_ = true;
  socketworker::post([self = shared_from_this()] { self->finishClose(); });
}

void PTIOStream::cancel() {
  {
    std::lock_guard lock(mutex_);
    if (state_ != State::open) return;
    state_ = State::draining;
  }
  readsStopped_ = true;
  socketworker::post([self = shared_from_this()] { self->pumpWrites(); });
}

void PTIOStream::pumpWrites() {
  if (writing_ || socketClosed_) return;
  std::shared_ptr<WriteItem> item;
  {
    std::unique_lock lock(mutex_);
    if (pending_.empty()) {
      bool drained = state_ == State::draining;
      lock.unlock();
      if (drained) finishClose();
      return;
    }
    item = std::make_shared<WriteItem>(std::move(pending_.front()));
    pending_.pop_front();
  }
  writing_ = true;
  inFlight_ = std::move(item->handler);
  inFlightBytes_ = item->head.size() + (item->body ? item->body->size() : 0);
  std::array<asio::const_buffer, 2> buffers{
      asio::buffer(item->head), item->body ? asio::buffer(*item->body) : asio::const_buffer()};
  asio::async_write(socket_->socket, buffers,
                    [self = shared_from_this(), item](const asio::error_code& ec, size_t) {
                      self->finishWrite(ec);
                    });
}

void PTIOStream::finishWrite(const asio::error_code& ec) {
  writing_ = false;
  queuedBytes_ -= std::exchange(inFlightBytes_, 0);
  WriteHandler handler = std::move(inFlight_);
  inFlight_ = nullptr;
  // A write that the kernel took whole before close() got to it succeeded.
  OptionalError error;
  if (ec == asio::error::operation_aborted || (ec && socketClosed_)) {
    error = posixError(ECANCELED, "write");
  } else if (ec) {
    error = posixError(errorNumber(ec), "write");
  }
  deliver(std::move(handler), std::move(error));
  if (socketClosed_) {
    dropPendingWrites();
    return;
  }
  pumpWrites();
}

void PTIOStream::finishClose() {
  if (socketClosed_) return;
  socketClosed_ = true;
  asio::error_code ec;
  socket_->socket.close(ec);
  closeError_ = ec ? OptionalError(posixError(errorNumber(ec), "close")) : std::nullopt;
  // A write in progress is aborted by the close; its handler comes first.
  if (writing_) return;
  dropPendingWrites();
}

void PTIOStream::dropPendingWrites() {
  std::deque<WriteItem> dropped;
  CleanupHandler cleanup;
  {
    std::lock_guard lock(mutex_);
    dropped.swap(pending_);
    cleanup = std::move(cleanup_);
    cleanup_ = nullptr;
  }
  for (auto& item : dropped) {
    queuedBytes_ -= item.head.size() + (item.body ? item.body->size() : 0);
  }
  for (auto& item : dropped) deliver(std::move(item.handler), posixError(ECANCELED, "write"));
  if (cleanup) post([cleanup, error = closeError_] { cleanup(error); });
}

void PTIOStream::deliver(WriteHandler handler, OptionalError error) {
  if (!handler) return;
  post([handler = std::move(handler), error = std::move(error)] { handler(error); });
}

void PTIOStream::post(Task task) {
  if (auto queue = queue_.lock()) queue->post(std::move(task));
}

}  // namespace oxelo
