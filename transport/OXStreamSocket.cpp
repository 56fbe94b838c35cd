#include "transport/OXStreamSocket.h"

#include <utility>

#include "channels/TcpCarrier.h"
#include "channels/UsbCarrier.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"
#include "transport/InitError.h"

namespace oxelo {

namespace {
constexpr const char* kSendQueueLabel = "com.tarnvik.OxeloSendQueue";
constexpr uint32_t kCommandWord = 136;
}  // namespace

uint64_t mediaTimeMillis() { return static_cast<uint64_t>(mediaTime() * 1000.0); }

std::shared_ptr<OXStreamSocket> OXStreamSocket::create(std::shared_ptr<LFLiveStreamInfo> stream,
                                                       int64_t reconnectInterval,
                                                       int64_t reconnectCount,
                                                       Environment environment) {
  if (!stream) throw StreamInfoMissingError();
  std::shared_ptr<OXStreamSocket> socket(new OXStreamSocket(
      std::move(stream), reconnectInterval, reconnectCount, std::move(environment)));
  // The change of isSending drives the send loop: whenever it falls back to
  // false, the next pass is posted.
  std::weak_ptr<OXStreamSocket> weak = socket;
  socket->isSendingObservation_ = socket->isSending_.observe([weak](bool, bool sending) {
    if (sending) return;
    if (auto self = weak.lock()) self->postSendPass();
  });
  return socket;
}

OXStreamSocket::OXStreamSocket(std::shared_ptr<LFLiveStreamInfo> stream, int64_t reconnectInterval,
                               int64_t reconnectCount, Environment environment)
    : stream_(std::move(stream)),
      reconnectInterval_(reconnectInterval <= 0 ? kDefaultReconnectInterval : reconnectInterval),
      reconnectCount_(reconnectCount < 1 ? kDefaultReconnectCount : reconnectCount),
      env_(std::move(environment)) {
  if (!env_.lifecycle) env_.lifecycle = AppLifecycle::shared();
}

OXStreamSocket::~OXStreamSocket() {
  isSendingObservation_.reset();
  reconnectTimer_.cancel();
  if (usbChannel_) usbChannel_->setDelegate({});
  if (asyncSocket_) asyncSocket_->setDelegate({});
}

const std::shared_ptr<Queue>& OXStreamSocket::sendQueue() {
  std::lock_guard lock(lazyMutex_);
  if (!rtmpSendQueue_)
    rtmpSendQueue_ = env_.sendQueue ? env_.sendQueue : Queue::create(kSendQueueLabel);
  return rtmpSendQueue_;
}

const std::shared_ptr<LFStreamingBuffer>& OXStreamSocket::buffer() {
  std::lock_guard lock(lazyMutex_);
  if (!buffer_) {
    buffer_ = LFStreamingBuffer::create();
    buffer_->setDelegate(weak_from_this());
  }
  return buffer_;
}

void OXStreamSocket::setCarrier(std::shared_ptr<Carrier> carrier) {
  // Until the send side speaks to carriers, the carrier's own socket or
  // channel is taken over; the carrier is kept so that its end does not
  // clear the socket's delegate.
  {
    std::lock_guard lock(lazyMutex_);
    handedOver_ = carrier;
  }
  if (auto tcp = std::dynamic_pointer_cast<TcpCarrier>(carrier)) {
    tcp->setDelegate({});
    setAsyncSocket(tcp->socket());
  } else if (auto usb = std::dynamic_pointer_cast<UsbCarrier>(carrier)) {
    usb->setDelegate({});
    setUsbChannel(usb->channel());
  }
}

void OXStreamSocket::setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) {
  if (socket) socket->setDelegate(weak_from_this());
  std::lock_guard lock(lazyMutex_);
  asyncSocket_ = std::move(socket);
}

void OXStreamSocket::setUsbChannel(std::shared_ptr<PTChannel> channel) {
  if (channel) channel->setDelegate(shared_from_this());
  std::lock_guard lock(lazyMutex_);
  usbChannel_ = std::move(channel);
}

std::shared_ptr<GCDAsyncSocket> OXStreamSocket::asyncSocket() const {
  std::lock_guard lock(lazyMutex_);
  return asyncSocket_;
}

std::shared_ptr<PTChannel> OXStreamSocket::usbChannel() const {
  std::lock_guard lock(lazyMutex_);
  return usbChannel_;
}

void OXStreamSocket::setDelegate(std::weak_ptr<LFStreamSocketDelegate> delegate) {
  delegate_ = std::move(delegate);
}

LFLiveDebug OXStreamSocket::debugInfo() const {
  std::lock_guard lock(debugMutex_);
  return debugInfo_ ? *debugInfo_ : LFLiveDebug{};
}

void OXStreamSocket::reportStatus(LiveStreamState state) {
  oxlog("Live - socket status {}", liveStreamStateText(state));
  if (auto d = delegate()) d->socketStatus(this, state);
}

void OXStreamSocket::reportError(LiveStreamError error) {
  if (auto d = delegate()) d->socketDidError(this, error);
}

void OXStreamSocket::reportDebug() {
  auto d = delegate();
  if (!d) return;
  d->socketDebug(this, debugInfo());
}

// ---- Start and stop ----

void OXStreamSocket::start() {
  sendQueue()->post([self = shared_from_this()] { self->_start(); });
}

void OXStreamSocket::stop() {
  // The stop must run even when the owner lets go of the socket at once.
  sendQueue()->post([self = shared_from_this()] { self->_stop(); });
}

void OXStreamSocket::reconnect() {
  sendQueue()->post([self = shared_from_this()] { self->retryStep(); });
}

void OXStreamSocket::_start() {
  if (isConnecting_) return;
  {
    std::lock_guard lock(debugMutex_);
    if (!debugInfo_) debugInfo_ = std::make_unique<LFLiveDebug>();
    debugInfo_->streamId = stream_->streamId;
    debugInfo_->uploadUrl = stream_->url;
    debugInfo_->isRtmp = false;
  }
  if (!asyncSocket() && !usbChannel()) {
    uint16_t port = static_cast<uint16_t>(stream_->port & 0xFFFF);
    if (!stream_->host.empty() && port != 0) {
      Socket_ConnectToHost(stream_->host, port);
      return;
    }
    _stop();
    return;
  }
  _on_connected();
}

int OXStreamSocket::Socket_ConnectToHost(const std::string& host, uint16_t port) {
  if (isConnecting_.exchange(true)) return -1;
  reportStatus(LiveStreamState::Connecting);
  auto socket = GCDAsyncSocket::create(weak_from_this(), MainQueue::get());
  std::shared_ptr<GCDAsyncSocket> previous;
  {
    std::lock_guard lock(lazyMutex_);
    previous = std::exchange(asyncSocket_, socket);
  }
  if (previous) {
    previous->setDelegate({});
    previous->disconnect();
  }
  OptionalError error;
  if (socket->connectToHost(host, port, kConnectTimeout, error)) return 0;
  oxlog("Live - connect to {}:{} failed: {}", host, port, error ? error->toString() : "");
  socket->setDelegate({});
  socket->disconnect();
  {
    std::lock_guard lock(lazyMutex_);
    if (asyncSocket_ == socket) asyncSocket_.reset();
  }
  reportError(LiveStreamError::ConnectFailed);
  reportStatus(LiveStreamState::Failed);
  return -1;
}

void OXStreamSocket::_on_connected() {
  sendMetaData();
  if (auto socket = asyncSocket()) socket->readDataWithTimeout(-1, /*tag=*/0);
  reportStatus(LiveStreamState::Connected);
  retryTimes4netWorkBreaken_ = 0;
  last_send_videoframe_timestamp_ = 0;
  drop_frame_now_ = false;
  last_sent_time_ = 0;
  continuous_good_writes_ = 0;
  bad_writes_ = 0;
  isConnected_ = true;
  isSending_.setSilently(false);
  isConnecting_ = false;
  isReconnecting_ = false;
}

void OXStreamSocket::dropCarriers() {
  std::shared_ptr<GCDAsyncSocket> socket;
  std::shared_ptr<PTChannel> channel;
  {
    std::lock_guard lock(lazyMutex_);
    socket = std::move(asyncSocket_);
    channel = std::move(usbChannel_);
    asyncSocket_.reset();
    usbChannel_.reset();
  }
  if (socket) {
    socket->setDelegate({});
    socket->disconnect();
  }
  if (channel) {
    channel->setDelegate({});
    channel->sendFrameOfType(wire::kUsbFrameTypeControl, wire::kUsbTagStopNotice,
                             wire::buildStopNotice());
    channel->cancel();
  }
}

void OXStreamSocket::_stop() {
  reportStatus(LiveStreamState::Stopped);
  dropCarriers();
  clean();
  TimerHandle timer;
  {
    std::lock_guard lock(lazyMutex_);
    timer = reconnectTimer_;
  }
  timer.cancel();
}

void OXStreamSocket::clean() {
  sendStatus_ = 0;
  isSending_.setSilently(false);
  isConnected_ = false;
  isConnecting_ = false;
  isReconnecting_ = false;
  sendVideoHead_ = false;
  sendAudioHead_ = false;
  {
    std::lock_guard lock(debugMutex_);
    debugInfo_.reset();
  }
  buffer()->removeAllObject();
}

void OXStreamSocket::retryStep() {
  isReconnecting_ = false;
  if (isConnected_) return;
  _stop();
  _start();
}

// ---- Carrier events, main queue ----

void OXStreamSocket::socketDidConnectToHost(GCDAsyncSocket*, const std::string& host,
                                            uint16_t port) {
  oxlog("Live - connected to {}:{}", host, port);
  _on_connected();
}

void OXStreamSocket::socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                                       int64_t tag) {
  oxlog("Live - read {} bytes, tag {}", data.size(), tag);
  if (data.size() >= 4 && wire::WireReader(data).u32LE(0) == kCommandWord) handleClientCmd(data);
  sock->readDataWithTimeout(-1, /*tag=*/0);
}

double OXStreamSocket::socketShouldTimeoutWriteWithTag(GCDAsyncSocket*, int64_t tag, double elapsed,
                                                       size_t bytesDone) {
  oxlog("Live - write #{} timeout, elapsed:{:.1f}, done:{}", tag, elapsed, bytesDone);
  return 0.0;
}

void OXStreamSocket::socketDidDisconnect(GCDAsyncSocket*, const OptionalError& error) {
  oxlog("Live - socketDidDisconnect: {}", error ? error->toString() : "no error");
  if (!asyncSocket()) return;
  if (env_.lifecycle->applicationState() != ApplicationState::active)
    retryTimes4netWorkBreaken_ = reconnectCount_;
  int64_t old = retryTimes4netWorkBreaken_.fetch_add(1);
  if (old < reconnectCount_ && !isReconnecting_) {
    isConnected_ = false;
    isConnecting_ = false;
    isReconnecting_ = true;
    if (auto d = delegate()) d->setDeviceChanged(true);
    std::weak_ptr<OXStreamSocket> weak = weak_from_this();
    auto timer = MainQueue::postAfter(kRetryDelay, [weak] {
      if (auto self = weak.lock()) self->reconnect();
    });
    {
      std::lock_guard lock(lazyMutex_);
      reconnectTimer_ = timer;
    }
    {
      std::lock_guard lock(debugMutex_);
      if (!debugInfo_) debugInfo_ = std::make_unique<LFLiveDebug>();
      debugInfo_->currentBandwidth = 0;
    }
    reportDebug();
    return;
  }
  if (old + 1 < reconnectCount_) return;  // a retry is already scheduled
  reportError(LiveStreamError::ConnectionLost);
  reportStatus(LiveStreamState::Failed);
}

void OXStreamSocket::ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&,
                                                         uint32_t type, uint32_t tag,
                                                         std::shared_ptr<const PTPayload> payload) {
  oxlog("Live - USB frame type {} tag {}, {} bytes", type, tag, payload ? payload->size() : 0);
  if (!payload || payload->size() < 4) return;
  if (wire::WireReader(*payload).u32LE(0) != kCommandWord) return;
  handleClientCmd(*payload);
}

void OXStreamSocket::ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>&,
                                                   const OptionalError& error) {
  oxlog("Live - USB channel ended: {}", error ? error->toString() : "no error");
  reportError(LiveStreamError::ConnectionLost);
  reportStatus(LiveStreamState::Failed);
}

void OXStreamSocket::streamingBufferBufferState(LFStreamingBuffer*, BufferVerdict state) {
  if (auto d = delegate()) d->socketBufferStatus(this, state);
}

// ---- The host's commands, main queue ----

void OXStreamSocket::handleClientCmd(std::span<const uint8_t> data) {
  auto parsed = wire::parseHostCommand(data);
  if (!parsed) return;
  const auto& command = *parsed;
  switch (command.command) {
    case wire::kHostPeerClose:
      reportError(LiveStreamError::PeerClosed);
      reportStatus(LiveStreamState::Stopped);
      if (auto socket = asyncSocket()) socket->setDelegate({});
      if (auto channel = usbChannel()) channel->setDelegate({});
      return;
    case wire::kHostConnectionLost:
      reportError(LiveStreamError::ConnectionLost);
      reportStatus(LiveStreamState::Failed);
      return;
    case wire::kHostRestart:
      reportError(LiveStreamError::PeerRestart);
      reportStatus(LiveStreamState::Stopped);
      return;
    case wire::kHostStatusRequest:
      sendStatus_ = command.p1;
      return;
    default:
      if (auto d = delegate()) d->socketClientCommand(this, command);
  }
}

}  // namespace oxelo
