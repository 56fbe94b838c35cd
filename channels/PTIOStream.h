#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <system_error>
#include <vector>

#include "channels/SocketError.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The stream under a connected channel: one connected socket, read in pieces
// of an exact size and written in whole gathered writes, in the order of the
// calls. The socket work runs on the Asio I/O thread; every handler is posted
// to the queue given at creation (and dropped once that queue is gone). All
// operations may be called from any thread.
//
// Ending: close() ends at once; the read in progress and the writes not yet
// done are dropped (their write handlers get ECANCELED). cancel() stops
// reading at once and ends after every write already asked for has finished.
// Either way the cleanup handler then runs once, after the socket is closed
// and after the last write handler. Writes asked for after close() or cancel()
// fail with ECANCELED. A read or write in progress keeps the stream alive; a
// stream destroyed with none closes its socket and runs no handler.
class PTIOStream : public std::enable_shared_from_this<PTIOStream> {
 public:
  // `data` holds the bytes read: fewer than asked when the stream ended first
  // (none at all when it ended before the first byte). On an error, `data` is
  // what arrived before it.
  using ReadHandler = std::function<void(OptionalError error, std::vector<uint8_t> data)>;
  using WriteHandler = std::function<void(OptionalError error)>;
  // Given the error of closing the socket, if any.
  using CleanupHandler = std::function<void(OptionalError error)>;

  // Takes ownership of the connected stream socket `fd` (TCP or local); on
  // failure the socket is closed, `error` is set and the result is null.
  static std::shared_ptr<PTIOStream> create(int fd, std::shared_ptr<Queue> queue,
                                            OptionalError* error = nullptr);
  ~PTIOStream();
  PTIOStream(const PTIOStream&) = delete;
  PTIOStream& operator=(const PTIOStream&) = delete;

  std::shared_ptr<Queue> queue() const { return queue_.lock(); }
  // Set once, before the stream can end.
  void setCleanupHandler(CleanupHandler handler);

  // Reads exactly `size` bytes (fewer at the end of the stream). One read at a
  // time; a read that completes after close() or cancel() is not delivered.
  void read(size_t size, ReadHandler handler);
  // Queues `head` followed by `body` (may be null) as one gathered write.
  void write(std::vector<uint8_t> head, std::shared_ptr<const std::vector<uint8_t>> body,
             WriteHandler handler);
  void close();
  void cancel();
  // False once close() or cancel() has been called.
  bool isOpen() const;
  // The bytes of the writes asked for and not yet handed whole to the
  // system (which keeps at most kUnsentLowWater of them unsent on a TCP
  // socket).
  size_t queuedBytes() const { return queuedBytes_; }

  struct Socket;  // internal: the Asio socket, I/O thread only

 private:
  enum class State { open, draining, closed };
  struct WriteItem {
    std::vector<uint8_t> head;
    std::shared_ptr<const std::vector<uint8_t>> body;
    WriteHandler handler;
  };

  PTIOStream(std::unique_ptr<Socket> socket, std::shared_ptr<Queue> queue);
  void pumpWrites();                            // I/O thread
  void finishWrite(const std::error_code& ec);  // I/O thread
  void finishClose();                           // I/O thread
  void dropPendingWrites();                     // I/O thread; also runs the cleanup
  void deliver(WriteHandler handler, OptionalError error);
  void post(Task task);
  bool readsStopped() const { return readsStopped_.load(); }

  // Weak, so that the handlers waiting in the queue, which may hold the stream,
  // do not keep the queue; the channel's protocol keeps it. Handlers for a
  // queue that is gone are dropped.
  std::weak_ptr<Queue> queue_;
  std::unique_ptr<Socket> socket_;  // I/O thread only after creation
  std::atomic<bool> readsStopped_{false};
  std::atomic<size_t> queuedBytes_{0};

  mutable std::mutex mutex_;  // guards the fields below
  State state_ = State::open;
  std::deque<WriteItem> pending_;
  CleanupHandler cleanup_;

  // I/O thread only.
  bool writing_ = false;
  bool socketClosed_ = false;
  WriteHandler inFlight_;
  size_t inFlightBytes_ = 0;
  OptionalError closeError_;
};

}  // namespace oxelo
