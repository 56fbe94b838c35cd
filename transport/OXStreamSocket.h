#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "channels/Carrier.h"
#include "platform/device/AppLifecycle.h"
#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Queue.h"
#include "transport/LFLiveStreamInfo.h"
#include "transport/LFStreamSocket.h"
#include "transport/LFStreamingBuffer.h"
#include "wire/CarrierMapping.h"

namespace oxelo {

// What a stream socket needs besides its stream; every member has a default.
struct StreamSocketEnvironment {
  std::shared_ptr<Queue> sendQueue;         // default: a threaded queue of its own
  std::shared_ptr<AppLifecycle> lifecycle;  // default: AppLifecycle::shared()
  bool hevcDecodeSupported = false;         // the info packet's HEVC flag
};

// Carries the coded frames of a live session to the host over one carrier:
// a TCP connection or a USB channel that the main screen has already greeted,
// or a TCP connection of its own. It announces the stream with the info
// packet, lays frames out as packets, watches how fast writes complete, drops
// late video up to the next key frame, reports verdicts on the connection,
// reads the host's commands and retries a lost TCP connection: up to
// `reconnectCount` times, 3.0 s apart, each time from a fresh connection.
//
// Queues:
//  - sendFrame(), start(), stop() and reconnect() may be called from any
//    thread; they only append and post.
//  - rtmpSendQueue ("com.tarnvik.OxeloSendQueue", serial, created on first
//    use) runs _start, _stop, the send passes and the retry step, and owns the
//    scratch record in which packets are laid out.
//  - the main queue delivers every carrier event (write completions and
//    their statistics, reads, the end of a connection) and the step that
//    ends a send pass.
// The flags that both queues touch are single atomic values, written at the
// moments the stream's rules fix; no lock is held across a call to the
// delegate or a carrier (TcpCarrier::connect, which only posts its events,
// is the one call made under the carrier slot's lock, so that the first
// event of an own connection finds the carrier in its slot).
//
// Which carrier it is matters in one place only, its end: a TCP connection,
// handed over or own, is retried from a fresh connection of its own; the
// end of a USB channel ends the stream at once (205, state 4).
//
// Held by shared pointer (create()). The socket owns its carrier; the
// carrier holds the socket, its delegate, weakly, as does the socket the
// live session.
class OXStreamSocket final : public LFStreamSocket,
                             public CarrierDelegate,
                             public LFStreamingBufferDelegate,
                             public std::enable_shared_from_this<OXStreamSocket> {
 public:
  static constexpr double kConnectTimeout = 5.0;  // seconds
  static constexpr double kRetryDelay = 3.0;      // seconds, whatever reconnectInterval says
  static constexpr int64_t kDefaultReconnectCount = 5;
  static constexpr int64_t kDefaultReconnectInterval = 3;
  // The most bytes that may wait in the carrier for the host. Past it every
  // frame is dropped, video as by the late-frame rule (up to a key frame
  // that finds the carrier under the mark again), audio as well: so a host
  // that stops reading costs the phone at most this much, instead of the
  // key frames and the sound that the late-frame rule lets through piling
  // up for as long as the stall lasts. 1 MiB is over three seconds of video
  // at 720p30 and 2.5 Mb/s, far behind the 500 ms at which the late-frame
  // rule already drops video, so a link that is merely slow never meets it.
  static constexpr size_t kMaxQueuedBytes = 1 << 20;

  using Environment = StreamSocketEnvironment;

  // initWithStream:reconnectInterval:reconnectCount:. Throws
  // StreamInfoMissingError without a stream. An interval of 0 or less becomes
  // 3, a count below 1 becomes 5.
  static std::shared_ptr<OXStreamSocket> create(std::shared_ptr<LFLiveStreamInfo> stream,
                                                int64_t reconnectInterval = 0,
                                                int64_t reconnectCount = 0,
                                                Environment environment = {});
  ~OXStreamSocket() override;
  OXStreamSocket(const OXStreamSocket&) = delete;
  OXStreamSocket& operator=(const OXStreamSocket&) = delete;

  // Hand over a connected, greeted carrier; the socket becomes its delegate
  // and starts reading from it when the stream starts. Main queue, before
  // start().
  void setCarrier(std::shared_ptr<Carrier> carrier);
  // The carrier of the moment; null before one is handed over or while an
  // own connection is being replaced. Any thread.
  std::shared_ptr<Carrier> carrier() const;
  // Main queue: a command packet to the host (remote record, snapshot) on the
  // carrier of the moment, between the stream's packets; dropped when there
  // is none. Over TCP its completion counts in the write statistics as every
  // write does (tag 8800 + command); over USB it does not.
  void sendCommand(uint32_t command, uint32_t parameter);

  // LFStreamSocket.
  void start() override;
  void stop() override;
  void sendFrame(std::shared_ptr<LFFrame> frame) override;
  void setDelegate(std::weak_ptr<LFStreamSocketDelegate> delegate) override;
  // Posts the retry step to rtmpSendQueue.
  void reconnect();

  // Main queue: one command record from the host. Commands 24, 25 and 26 end
  // the stream, 33 sets sendStatus; the rest go to the delegate. A record
  // that does not start with 136, or is too short for its command, is
  // ignored.
  void handleClientCmd(std::span<const uint8_t> data);

  // rtmpSendQueue: lays out one packet around `size` bytes of `data` and
  // hands it to the carrier as one record. 0, or -1 when no carrier is
  // connected.
  int sendPacket(uint32_t type, const uint8_t* data, int64_t size, uint64_t nTimestamp);

  // State, for the session and for tests. Any thread.
  bool isSending() const { return isSending_.get(); }
  bool isConnected() const { return isConnected_; }
  bool isConnecting() const { return isConnecting_; }
  bool isReconnecting() const { return isReconnecting_; }
  int64_t sendStatus() const { return sendStatus_; }
  void setSendStatus(int64_t value) { sendStatus_ = value; }
  int64_t retryTimes() const { return retryTimes4netWorkBreaken_; }
  int64_t reconnectCount() const { return reconnectCount_; }
  int64_t reconnectInterval() const { return reconnectInterval_; }
  uint64_t lastSendVideoFrameTimestamp() const { return last_send_videoframe_timestamp_; }
  bool dropFrameNow() const { return drop_frame_now_; }
  // Frames dropped because the carrier held kMaxQueuedBytes, since creation.
  int64_t backlogDrops() const { return backlogDrops_; }
  // A copy of the statistics; all zero when there are none.
  LFLiveDebug debugInfo() const;
  const std::shared_ptr<LFStreamingBuffer>& buffer();
  const std::shared_ptr<Queue>& sendQueue();

  // CarrierDelegate, main queue. Completions feed the write statistics (tag
  // 0: a video write at timestamp 0 restarts them; 2 or more: stands as the
  // last video timestamp, command tags included); reads that start with 136
  // go to handleClientCmd, one command per read; the end retries or fails
  // the stream (see the class comment). Events of a carrier that is no
  // longer the socket's are ignored.
  void carrierDidConnect(Carrier* carrier, const std::string& host, uint16_t port) override;
  void carrierDidReceiveData(Carrier* carrier, std::span<const uint8_t> data,
                             bool endsMessage) override;
  void carrierDidWriteRecord(Carrier* carrier, int64_t tag) override;
  // Logs and lets the time-out stand: the connection ends.
  double carrierShouldTimeoutWrite(Carrier* carrier, int64_t tag, double elapsed,
                                   size_t bytesDone) override;
  void carrierDidEnd(Carrier* carrier, const OptionalError& error) override;

  // LFStreamingBufferDelegate: forwards the verdict to the delegate.
  void streamingBufferBufferState(LFStreamingBuffer* buffer, BufferVerdict state) override;

 private:
  OXStreamSocket(std::shared_ptr<LFLiveStreamInfo> stream, int64_t reconnectInterval,
                 int64_t reconnectCount, Environment environment);

  std::shared_ptr<LFStreamSocketDelegate> delegate() const { return delegate_.lock(); }
  void reportStatus(LiveStreamState state);
  void reportError(LiveStreamError error);
  void reportDebug();

  // rtmpSendQueue.
  void _start();
  void _stop();
  void clean();
  void retryStep();
  void sendPass();
  void sendMetaData();
  void sendVideoHeader(const LFVideoFrame& frame);
  void sendVideo(const LFVideoFrame& frame);
  void sendAudioHeader(const LFAudioFrame& frame);
  void sendAudio(const LFAudioFrame& frame);
  void countFrame(const LFFrame& frame, bool isVideo);
  // True while the carrier holds more than kMaxQueuedBytes for the host;
  // logs the moments it starts and ends.
  bool carrierBacklogged();
  // Lays out header, body pieces and tail in the scratch record and hands the
  // result to the carrier; sendPacket() and sendVideo() meet here.
  int writePacket(uint32_t type, std::span<const std::span<const uint8_t>> body,
                  uint64_t nTimestamp);
  std::vector<uint8_t> tailBlockFor(uint32_t type, uint8_t firstBodyByte);
  // The record that carries `bytes` (and `tail`) on either kind of carrier.
  static CarrierRecord carrierRecord(const wire::CarrierRoute& route, std::vector<uint8_t> bytes,
                                     std::vector<uint8_t> tail = {});

  // Main queue for an own connection, rtmpSendQueue for a handed-over one.
  void _on_connected();
  // Starts an own TCP connection; 0, or -1 when one is already under way or
  // could not even be started.
  int Socket_ConnectToHost(const std::string& host, uint16_t port);
  // Sends the argument-less sendFrame: one pass, unless one is running.
  void postSendPass();
  void setIsSending(bool value) { isSending_.set(value); }
  bool isCurrentCarrier(const Carrier* carrier) const;
  // Takes the carrier out of its slot: the stop notice (which only the
  // framed channel sends), then the close once it has left.
  void dropCarrier();
  void retryOrFail();

  const std::shared_ptr<LFLiveStreamInfo> stream_;
  const int64_t reconnectInterval_;
  const int64_t reconnectCount_;
  Environment env_;

  std::weak_ptr<LFStreamSocketDelegate> delegate_;
  Observable<bool> isSending_{false};
  Subscription isSendingObservation_;

  mutable std::mutex lazyMutex_;  // guards the lazy members, the carrier slot and the timer
  std::shared_ptr<Queue> rtmpSendQueue_;
  std::shared_ptr<LFStreamingBuffer> buffer_;
  std::shared_ptr<Carrier> carrier_;
  TimerHandle reconnectTimer_;

  mutable std::mutex debugMutex_;           // the statistics: send passes and the main queue
  std::unique_ptr<LFLiveDebug> debugInfo_;  // created on first use, dropped by clean()

  std::vector<uint8_t> frame_buffer_;  // rtmpSendQueue only: the scratch record

  std::atomic<bool> isConnected_{false};
  std::atomic<bool> isConnecting_{false};
  std::atomic<bool> isReconnecting_{false};
  // The carrier's end is retried (a TCP connection, handed over or own)
  // rather than the end of the stream (a USB channel).
  std::atomic<bool> retryable_{false};
  std::atomic<bool> sendVideoHead_{false};
  std::atomic<bool> sendAudioHead_{false};
  std::atomic<bool> drop_frame_now_{false};
  std::atomic<bool> backlogged_{false};  // rtmpSendQueue: the last carrierBacklogged()
  std::atomic<int64_t> backlogDrops_{0};
  std::atomic<uint64_t> last_send_videoframe_timestamp_{0};
  std::atomic<uint64_t> last_sent_time_{0};
  std::atomic<int64_t> continuous_good_writes_{0};
  std::atomic<int64_t> bad_writes_{0};
  std::atomic<int64_t> retryTimes4netWorkBreaken_{0};
  std::atomic<int64_t> sendStatus_{0};
};

// The media clock in whole milliseconds, as stream times are kept.
uint64_t mediaTimeMillis();

}  // namespace oxelo
