#include "channels/PTListenSource.h"

#include <netinet/in.h>
#include <unistd.h>

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <cerrno>
#include <chrono>

#include "channels/AsioRuntime.h"
#include "channels/SocketWorker.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {
// A failing accept (out of descriptors, say) is tried again after this pause
// rather than at once, so the I/O thread does not spin on it.
constexpr auto kAcceptRetryPause = std::chrono::milliseconds(100);
}  // namespace

struct PTListenSource::Acceptor {
  explicit Acceptor(asio::io_context& context) : acceptor(context), retry(context) {}
  asio::ip::tcp::acceptor acceptor;
  asio::ip::tcp::endpoint peer;
  asio::steady_timer retry;
};

std::shared_ptr<PTListenSource> PTListenSource::create(int listeningFd,
                                                       std::shared_ptr<Queue> queue,
                                                       AcceptHandler onAccept,
                                                       CancelHandler onCancel,
                                                       OptionalError* error) {
  sockaddr_in local{};
  socklen_t length = sizeof local;
  if (getsockname(listeningFd, reinterpret_cast<sockaddr*>(&local), &length) != 0) {
    if (error) *error = posixError(errno, "getsockname");
    ::close(listeningFd);
    return nullptr;
  }
  auto acceptor = std::make_unique<Acceptor>(AsioRuntime::shared().context());
  asio::error_code ec;
  acceptor->acceptor.assign(asio::ip::tcp::v4(), listeningFd, ec);
  if (ec) {
    if (error) *error = posixError(ec.value(), "assign");
    ::close(listeningFd);
    return nullptr;
  }
  return std::shared_ptr<PTListenSource>(
      new PTListenSource(std::move(acceptor), std::move(queue), std::move(onAccept),
                         std::move(onCancel), ntohs(local.sin_port)));
}

PTListenSource::PTListenSource(std::unique_ptr<Acceptor> acceptor, std::shared_ptr<Queue> queue,
                               AcceptHandler onAccept, CancelHandler onCancel, uint16_t localPort)
    : queue_(std::move(queue)),
      acceptor_(std::move(acceptor)),
      onAccept_(std::move(onAccept)),
      onCancel_(std::move(onCancel)),
      localPort_(localPort) {}

PTListenSource::~PTListenSource() = default;

void PTListenSource::resume() {
  socketworker::post([self = shared_from_this()] { self->acceptNext(); });
}

void PTListenSource::cancel() {
  if (cancelled_.exchange(true)) return;
  socketworker::post([self = shared_from_this()] {
    asio::error_code ec;
    self->acceptor_->retry.cancel();
    self->acceptor_->acceptor.close(ec);
    CancelHandler onCancel = std::move(self->onCancel_);
    self->onCancel_ = nullptr;
    auto queue = self->queue_.lock();
    if (onCancel && queue) queue->post(std::move(onCancel));
  });
}

void PTListenSource::acceptNext() {
  if (cancelled_) return;
  auto& a = *acceptor_;
  a.acceptor.async_accept(
      a.peer, [self = shared_from_this()](const asio::error_code& ec, asio::ip::tcp::socket peer) {
        if (ec == asio::error::operation_aborted || self->cancelled_) return;
        if (ec) {
          oxlog("PTChannel: accept failed: {}", ec.message());
          self->retryLater();
          return;
        }
        PTAddress address(self->acceptor_->peer.data(), self->acceptor_->peer.size());
        asio::error_code releaseError;
        int fd = peer.release(releaseError);
        if (releaseError) {
          oxlog("PTChannel: accept failed: {}", releaseError.message());
          self->acceptNext();
          return;
        }
        auto queue = self->queue_.lock();
        if (!queue) {
          ::close(fd);
          return;
        }
        std::weak_ptr<PTListenSource> weak = self;
        queue->post([weak, fd, address] {
          auto source = weak.lock();
          if (!source || source->cancelled_) {
            ::close(fd);
            return;
          }
          source->onAccept_(fd, address);
        });
        self->acceptNext();
      });
}

void PTListenSource::retryLater() {
  acceptor_->retry.expires_after(kAcceptRetryPause);
  acceptor_->retry.async_wait([self = shared_from_this()](const asio::error_code& ec) {
    if (ec) return;
    self->acceptNext();
  });
}

}  // namespace oxelo
