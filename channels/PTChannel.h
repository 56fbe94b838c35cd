#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

#include "channels/PTChannelDelegate.h"
#include "channels/PTIOStream.h"
#include "channels/PTListenSource.h"
#include "channels/PTProtocol.h"
#include "channels/SocketError.h"

namespace oxelo {

// The framed peer channel: either a TCP listener that accepts peers, or one
// connected stream on which frames (a 16-byte header and a payload) travel
// both ways.
//
// Queues: every read, write completion, accept and delegate call runs on the
// protocol's queue (the main queue's shared protocol unless another is given).
// sendFrameOfType(), close(), cancel(), setDelegate() and the state accessors
// may be called from any thread; frames are written in the order of the
// sendFrameOfType() calls.
//
// Ownership: the channel holds its delegate weakly, as the sockets do; a
// delegate that is gone counts as none. The channel owns its stream or
// listener. A channel that is destroyed closes them at once and reports
// nothing more.
class PTChannel : public std::enable_shared_from_this<PTChannel> {
 public:
  using Callback = std::function<void(OptionalError error)>;

  // Connection states (connState()).
  static constexpr uint8_t kStateNone = 0;
  static constexpr uint8_t kStateConnecting = 1;  // outgoing connections; never entered here
  static constexpr uint8_t kStateConnected = 2;
  static constexpr uint8_t kStateListening = 3;

  // A channel on the main queue's shared protocol.
  static std::shared_ptr<PTChannel> channelWithDelegate(std::weak_ptr<PTChannelDelegate> delegate);
  // A missing protocol means the main queue's shared protocol.
  static std::shared_ptr<PTChannel> create(std::shared_ptr<PTProtocol> protocol = nullptr,
                                           std::weak_ptr<PTChannelDelegate> delegate = {});
  ~PTChannel();
  PTChannel(const PTChannel&) = delete;
  PTChannel& operator=(const PTChannel&) = delete;

  const std::shared_ptr<PTProtocol>& protocol() const { return protocol_; }
  uint8_t connState() const { return connState_.load(); }
  bool isConnected() const;  // connecting or connected
  // The bytes of the frames asked for and not yet handed whole to the
  // system; 0 without a stream.
  size_t queuedBytes() const;
  bool isListening() const;

  std::shared_ptr<PTChannelDelegate> delegate() const;
  // Stores the delegate and works out which optional operations it has; an
  // empty one clears it (flags 0). Frames that arrive with no delegate are
  // read and lost.
  void setDelegate(std::weak_ptr<PTChannelDelegate> delegate);
  uint8_t delegateFlags() const;

  // Listens on `port` of the IPv4 address given in host order (0x7f000001 is
  // 127.0.0.1): address reuse, non-blocking, backlog 512. On success the state
  // is listening and `callback` gets no error; on failure it gets the system
  // error and the state is unchanged. The callback runs before this returns,
  // on the calling thread.
  void listenOnPort(uint16_t port, uint32_t ipv4Address, Callback callback);
  // The port being listened on (useful after listening on port 0); 0 when not
  // listening.
  uint16_t listeningPort() const;

  // Begins the frame loop on a connected stream (made on the protocol's
  // queue), which the channel then owns; the state becomes connected. False
  // with POSIX error 1 (EPERM) on a listening channel, EBADF for a missing or
  // ended stream.
  bool startReadingFromConnectedChannel(std::shared_ptr<PTIOStream> channel,
                                        OptionalError* error = nullptr);

  // Sends one frame. The payload (may be empty: none) is copied once, and
  // header and payload go out as one gathered write. `callback` (may be empty)
  // runs once on the protocol's queue: with the system error of the write, or
  // none; with POSIX error 1 (EPERM) and nothing sent when the channel is not
  // connected; ECANCELED when close() dropped the write.
  void sendFrameOfType(uint32_t type, uint32_t tag, std::span<const uint8_t> payload,
                       Callback callback = nullptr);

  // Ends at once: pending writes are dropped; a listener stops listening.
  void close();
  // Ends once the writes already asked for have gone out; reading stops at
  // once; a listener stops listening.
  // After either, the state is none at once and sends fail. The delegate then
  // hears ioFrameChannelDidEndWithError once the stream or listener is gone.
  void cancel();

 private:
  explicit PTChannel(std::shared_ptr<PTProtocol> protocol);

  std::pair<std::shared_ptr<PTChannelDelegate>, uint8_t> delegateAndFlags() const;
  std::shared_ptr<PTIOStream> currentStream() const;
  void adoptStream(const std::shared_ptr<PTIOStream>& stream);
  void end(bool atOnce);
  // Protocol queue only, below.
  void acceptIncomingConnection(int fd, const PTAddress& address);
  void handleFrame(const std::shared_ptr<PTIOStream>& stream, OptionalError error, uint32_t type,
                   uint32_t tag, uint32_t payloadSize, std::function<void()> resume);
  void deliverPayload(const std::shared_ptr<PTIOStream>& stream, uint32_t type, uint32_t tag,
                      uint32_t payloadSize, std::function<void()> resume);
  void skipPayload(const std::shared_ptr<PTIOStream>& stream, uint32_t payloadSize,
                   std::function<void()> resume);
  void endStreamWithError(const std::shared_ptr<PTIOStream>& stream, Error error);
  void endStreamQuietly(const std::shared_ptr<PTIOStream>& stream);
  void reportEnd(OptionalError error);

  const std::shared_ptr<PTProtocol> protocol_;
  std::atomic<uint8_t> connState_{kStateNone};

  mutable std::mutex mutex_;  // guards the fields below; held while a send is queued
  std::shared_ptr<PTIOStream> dispatchObj_channel_;     // the connected stream
  std::shared_ptr<PTListenSource> dispatchObj_source_;  // watches the listening socket
  std::weak_ptr<PTChannelDelegate> delegate_;
  uint8_t delegateFlags_ = 0;  // PTChannelDelegateOp bits

  OptionalError endError_;  // protocol queue only: what ended the frame loop
};

}  // namespace oxelo
