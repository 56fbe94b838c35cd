#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "channels/Carrier.h"
#include "channels/GCDAsyncSocket.h"
#include "channels/SocketWorker.h"

namespace oxelo {

// The carrier over a TCP socket. It becomes the socket's delegate for good
// and passes the socket's events on to its own delegate: reads (re-armed
// after each one once reading has started), write completions of the
// records that asked for them, write time-outs, the end. Events run on the
// socket's delegate queue. Held by shared pointer; the socket closes when
// the last holder of the carrier lets go.
class TcpCarrier final : public Carrier,
                         public GCDAsyncSocketDelegate,
                         public std::enable_shared_from_this<TcpCarrier> {
 public:
  // Takes over a connected socket (an accepted one, or one whose connection
  // is under way).
  static std::shared_ptr<TcpCarrier> adopt(std::shared_ptr<GCDAsyncSocket> socket);
  // Opens a connection to `host`:`port` on `queue` with the connect
  // time-out (seconds); the outcome arrives as carrierDidConnect or
  // carrierDidEnd. Null, with `error`, when the attempt cannot even start.
  static std::shared_ptr<TcpCarrier> connect(const std::string& host, uint16_t port, double timeout,
                                             std::weak_ptr<CarrierDelegate> delegate,
                                             std::shared_ptr<Queue> queue, OptionalError& error);
  ~TcpCarrier() override;

  const std::shared_ptr<GCDAsyncSocket>& socket() const { return socket_; }

  // Carrier.
  Kind kind() const override { return Kind::tcp; }
  bool isConnected() const override { return socket_->isConnected(); }
  std::string peerHost() const override { return socket_->connectedHost(); }
  void setDelegate(std::weak_ptr<CarrierDelegate> delegate) override { delegate_.set(delegate); }
  std::shared_ptr<CarrierDelegate> delegate() const override { return delegate_.get(); }
  void startReading() override;
  void sendRecord(CarrierRecord record) override;
  void close() override;
  void closeAfterSending() override { close(); }
  size_t queuedBytes() const override { return socket_->queuedWriteBytes(); }

  // GCDAsyncSocketDelegate, on the socket's delegate queue.
  void socketDidConnectToHost(GCDAsyncSocket* sock, const std::string& host,
                              uint16_t port) override;
  void socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                         int64_t tag) override;
  void socketDidWriteDataWithTag(GCDAsyncSocket* sock, int64_t tag) override;
  double socketShouldTimeoutWriteWithTag(GCDAsyncSocket* sock, int64_t tag, double elapsed,
                                         size_t bytesDone) override;
  void socketDidDisconnect(GCDAsyncSocket* sock, const OptionalError& error) override;

 private:
  explicit TcpCarrier(std::shared_ptr<GCDAsyncSocket> socket) : socket_(std::move(socket)) {}

  const std::shared_ptr<GCDAsyncSocket> socket_;
  DelegateSlot<CarrierDelegate> delegate_;
  std::mutex mutex_;
  bool reading_ = false;      // guarded by mutex_
  std::deque<bool> reports_;  // guarded by mutex_: whether each queued write is reported
};

}  // namespace oxelo
