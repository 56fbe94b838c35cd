#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "channels/SocketAddress.h"
#include "channels/SocketError.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

class GCDAsyncSocket;

// Events of a GCDAsyncSocket. Every operation is optional (empty default) and
// is called only on the socket's delegate queue, one at a time, in the order
// the events happened. `sock` is never null.
class GCDAsyncSocketDelegate {
 public:
  virtual ~GCDAsyncSocketDelegate() = default;

  // The connection is up; before any read or write of it completes. `host` is
  // the peer's address as text.
  virtual void socketDidConnectToHost(GCDAsyncSocket* /*sock*/, const std::string& /*host*/,
                                      uint16_t /*port*/) {}
  // A listening socket has a new connection, already connected, with the
  // listener's delegate and queue; announced before that socket's own events.
  // Keep `newSocket` or it closes.
  virtual void socketDidAcceptNewSocket(GCDAsyncSocket* /*sock*/,
                                        const std::shared_ptr<GCDAsyncSocket>& /*newSocket*/) {}
  // A read has ended with all the bytes that had arrived; reads end in
  // queue order.
  virtual void socketDidReadData(GCDAsyncSocket* /*sock*/, const std::vector<uint8_t>& /*data*/,
                                 int64_t /*tag*/) {}
  // A write has been handed completely to the system; in queue order.
  virtual void socketDidWriteDataWithTag(GCDAsyncSocket* /*sock*/, int64_t /*tag*/) {}
  // The current write's time-out has run out after `elapsed` seconds with
  // `bytesDone` bytes written. The write pauses until the answer: extra
  // seconds to extend by, or 0 or less to let the time-out stand, which
  // closes the socket with code 5.
  virtual double socketShouldTimeoutWriteWithTag(GCDAsyncSocket* /*sock*/, int64_t /*tag*/,
                                                 double /*elapsed*/, size_t /*bytesDone*/) {
    return 0.0;
  }
  // The socket has closed, whatever the reason: the last event of a
  // connection, once. No error after a local disconnect(); code 3, 4, 5 after
  // a connect, read or write time-out; code 7 when the peer closed; a system
  // error otherwise.
  virtual void socketDidDisconnect(GCDAsyncSocket* /*sock*/, const OptionalError& /*error*/) {}
};

// An asynchronous TCP socket (IPv4). Requests may come from any thread and
// never block on the network: reads and writes are queued on the socket
// worker (the one Asio I/O thread) in the order of the calls, and their
// results come back as delegate calls posted to the delegate queue.
//
// Held by shared pointer (create()). In-flight I/O keeps the inside alive;
// dropping the last reference closes the socket with no further callback.
// Events waiting on the delegate queue hold the socket weakly, except an
// accepted socket, which its announcement holds until the queue runs it
// (or is stopped). The socket holds its delegate queue.
//
// The delegate is decided when an event happens and checked again when the
// call runs on the delegate queue, so setDelegate() takes effect for every
// event not yet delivered: after setDelegate({}) no call reaches the old
// delegate, and disconnect() then produces no callback at all. This is how a
// connected socket changes hands.
class GCDAsyncSocket : public std::enable_shared_from_this<GCDAsyncSocket> {
 public:
  // initWithDelegate:delegateQueue:. No system socket yet.
  static std::shared_ptr<GCDAsyncSocket> create(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                                                std::shared_ptr<Queue> delegateQueue);
  ~GCDAsyncSocket();
  GCDAsyncSocket(const GCDAsyncSocket&) = delete;
  GCDAsyncSocket& operator=(const GCDAsyncSocket&) = delete;

  // Starts the look-up and the connection in the background. True: under
  // way, the outcome arrives as socketDidConnectToHost or
  // socketDidDisconnect. False with `error` when there is no delegate or
  // queue, the socket is not idle, or `host` is empty. A negative time-out
  // means none. Finishes its checks on the worker before it returns.
  bool connectToHost(const std::string& host, uint16_t port, double timeout, OptionalError& error);
  // Listens on all IPv4 interfaces with address reuse and a backlog of 1024;
  // `port` 0 picks a free one (see localPort()). False with `error` under the
  // same conditions as connecting, or when the port cannot be had.
  bool acceptOnPort(uint16_t port, OptionalError& error);

  // Queues a read with no length: it ends as soon as any bytes have arrived
  // and delivers all that can be had at that moment, in one piece. A
  // negative time-out means none; on time-out the socket closes with code 4.
  // Waits while connecting; dropped silently when idle or closed.
  void readDataWithTimeout(double timeout, int64_t tag);
  // Queues a write of the whole buffer, kept by reference until written.
  // Writes leave in queue order, never interleaved; empty data are ignored;
  // no limit on the queue (queuedWriteBytes() says how much waits, for a
  // caller that must bound it). Waits and drops like a read.
  void writeData(std::shared_ptr<const std::vector<uint8_t>> data, double timeout, int64_t tag);
  void writeData(std::vector<uint8_t> data, double timeout, int64_t tag);

  // Closes at once, dropping queued reads and writes; socketDidDisconnect
  // (no error) follows when a delegate is set. isConnected() is false on
  // return. Nothing happens on an idle socket.
  void disconnect();
  // The connection is established and not closed. Any thread.
  bool isConnected() const;
  // The bytes of the writes queued and not yet handed whole to the system
  // (which keeps at most kUnsentLowWater of them unsent). Any thread.
  size_t queuedWriteBytes() const;

  // Changes the delegate for every event not yet delivered; {} for none.
  // The delegate queue stays.
  void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate);
  std::shared_ptr<GCDAsyncSocketDelegate> delegate() const;
  const std::shared_ptr<Queue>& delegateQueue() const;

  // The peer's address while connected (empty or 0 otherwise): the raw
  // sockaddr_in, its text and its port.
  SocketAddress connectedAddress() const;
  std::string connectedHost() const;
  uint16_t connectedPort() const;
  // The local port of a connection or of a listening socket; 0 when idle.
  uint16_t localPort() const;

  struct Impl;  // the inside, run on the socket worker

 private:
  GCDAsyncSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                 std::shared_ptr<Queue> delegateQueue);
  std::shared_ptr<Impl> impl_;
};

}  // namespace oxelo
