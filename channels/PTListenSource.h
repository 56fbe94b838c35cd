#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "channels/PTAddress.h"
#include "channels/SocketError.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The event source that watches a listening socket. Connections are accepted
// on the Asio I/O thread; each accepted socket is handed to the accept handler
// on the queue, which then owns it. A failed accept is logged and the source
// waits for the next connection.
//
// cancel() (any thread) stops the source: the listening socket is closed on
// the I/O thread, sockets accepted but not yet handed over are closed, and the
// cancel handler then runs once on the queue. The source stays alive while it
// watches, until cancel().
class PTListenSource : public std::enable_shared_from_this<PTListenSource> {
 public:
  using AcceptHandler = std::function<void(int fd, const PTAddress& address)>;
  using CancelHandler = std::function<void()>;

  // Takes ownership of `listeningFd`, a bound, listening IPv4 TCP socket. On
  // failure the socket is closed, `error` is set and the result is null.
  static std::shared_ptr<PTListenSource> create(int listeningFd, std::shared_ptr<Queue> queue,
                                                AcceptHandler onAccept, CancelHandler onCancel,
                                                OptionalError* error = nullptr);
  ~PTListenSource();
  PTListenSource(const PTListenSource&) = delete;
  PTListenSource& operator=(const PTListenSource&) = delete;

  // Starts watching. Call once.
  void resume();
  void cancel();
  // The bound port, host order.
  uint16_t localPort() const { return localPort_; }

  struct Acceptor;  // internal: the Asio acceptor, I/O thread only

 private:
  PTListenSource(std::unique_ptr<Acceptor> acceptor, std::shared_ptr<Queue> queue,
                 AcceptHandler onAccept, CancelHandler onCancel, uint16_t localPort);
  void acceptNext();  // I/O thread
  void retryLater();  // I/O thread

  std::weak_ptr<Queue> queue_;  // weak: the channel's protocol keeps it
  std::unique_ptr<Acceptor> acceptor_;
  AcceptHandler onAccept_;  // set at creation; called on the queue
  CancelHandler onCancel_;  // set at creation; taken by the cancel step on the I/O thread
  uint16_t localPort_ = 0;
  std::atomic<bool> cancelled_{false};
};

}  // namespace oxelo
