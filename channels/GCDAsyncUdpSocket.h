#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "channels/SocketAddress.h"
#include "channels/SocketError.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

class GCDAsyncUdpSocket;

// Events of a GCDAsyncUdpSocket. Every operation is optional (empty default)
// and is called only on the socket's delegate queue, one at a time, in the
// order the events happened. `sock` is never null.
class GCDAsyncUdpSocketDelegate {
 public:
  virtual ~GCDAsyncUdpSocketDelegate() = default;

  // A datagram has gone out.
  virtual void udpSocketDidSendDataWithTag(GCDAsyncUdpSocket* /*sock*/, int64_t /*tag*/) {}
  // It could not go out: the host was not found, the send failed (a
  // broadcast address without enableBroadcast, for one) or timed out.
  virtual void udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* /*sock*/,
                                                        int64_t /*tag*/, const Error& /*error*/) {}
  // A datagram of up to 65535 bytes has come in, whole, from `address` (the
  // raw sockaddr_in of the sender). No receive filter exists, so there is no
  // filter context.
  virtual void udpSocketDidReceiveDataFromAddressWithFilterContext(
      GCDAsyncUdpSocket* /*sock*/, const std::vector<uint8_t>& /*data*/,
      const SocketAddress& /*address*/) {}
  // The socket has closed: no error after close(), "Error in recvfrom()
  // function" as the reason when receiving failed.
  virtual void udpSocketDidClose(GCDAsyncUdpSocket* /*sock*/, const OptionalError& /*error*/) {}
};

// An asynchronous UDP socket (IPv4). Requests may come from any thread and
// never block on the network; sends are queued on the socket worker (the one
// Asio I/O thread) in the order of the calls and their results come back as
// delegate calls posted to the delegate queue. bindToPort, enableBroadcast,
// beginReceiving, localPort and close finish on the worker before they
// return.
//
// Held by shared pointer (create()); dropping the last reference closes the
// socket with no further callback. The delegate is decided when an event
// happens and checked again when the call runs on the delegate queue.
class GCDAsyncUdpSocket : public std::enable_shared_from_this<GCDAsyncUdpSocket> {
 public:
  // initWithDelegate:delegateQueue:. The system socket is made on first use.
  static std::shared_ptr<GCDAsyncUdpSocket> create(
      std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, std::shared_ptr<Queue> delegateQueue);
  ~GCDAsyncUdpSocket();
  GCDAsyncUdpSocket(const GCDAsyncUdpSocket&) = delete;
  GCDAsyncUdpSocket& operator=(const GCDAsyncUdpSocket&) = delete;

  // Binds on all interfaces (no address reuse: a port in use is refused).
  // `port` 0 picks a free one. "Cannot bind a socket more than once." after a
  // successful bind; a failed bind may be tried again.
  bool bindToPort(uint16_t port, OptionalError& error);
  // Allows (or forbids) sending to broadcast addresses.
  bool enableBroadcast(bool flag, OptionalError& error);
  // Queues one datagram to `host` (an address or a name, looked up in the
  // background) and `port`. Sends leave in queue order; a negative time-out
  // means none. Sending from an unbound socket lets the system pick a port.
  void sendData(std::vector<uint8_t> data, const std::string& host, uint16_t port, double timeout,
                int64_t tag);
  void sendData(std::shared_ptr<const std::vector<uint8_t>> data, const std::string& host,
                uint16_t port, double timeout, int64_t tag);
  // Delivers every datagram until closed; again: no effect. False with an
  // error that begins "Must bind socket before you can receive data." when
  // bindToPort has not succeeded.
  bool beginReceiving(OptionalError& error);
  // The local port, bound or picked by the system for a first send; 0 when
  // there is none.
  uint16_t localPort() const;
  // Closes at once; queued sends are dropped with no report, and
  // udpSocketDidClose (no error) follows when the system socket was open.
  // The object may be bound and used again afterwards.
  void close();

  // Changes the delegate for every event not yet delivered; {} for none.
  void setDelegate(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate);
  std::shared_ptr<GCDAsyncUdpSocketDelegate> delegate() const;

  struct Impl;  // the inside, run on the socket worker

 private:
  GCDAsyncUdpSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                    std::shared_ptr<Queue> delegateQueue);
  std::shared_ptr<Impl> impl_;
};

}  // namespace oxelo
