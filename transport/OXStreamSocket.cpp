#include "transport/OXStreamSocket.h"

#include <utility>

#include "channels/TcpCarrier.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"
#include "transport/InitError.h"
#include "wire/CommandPackets.h"
#include "wire/WireConstants.h"

namespace oxelo {

namespace {
constexpr const char* kSendQueueLabel = "com.tarnvik.OxeloSendQueue";

// Whether a piece the host sent starts with the command word; only its start
// is looked at.
bool startsWithCommandWord(std::span<const uint8_t> data) {
  return data.size() >= 4 && wire::WireReader(data).u32LE(0) == wire::kPacketTypeCommand;
}
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
  if (carrier_) carrier_->setDelegate({});
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
  OX_ASSERT_ON_MAIN_QUEUE();
  if (carrier) carrier->setDelegate(weak_from_this());
  retryable_ = carrier && carrier->kind() == Carrier::Kind::tcp;
  std::lock_guard lock(lazyMutex_);
  carrier_ = std::move(carrier);
}

std::shared_ptr<Carrier> OXStreamSocket::carrier() const {
  std::lock_guard lock(lazyMutex_);
  return carrier_;
}

bool OXStreamSocket::isCurrentCarrier(const Carrier* carrier) const {
  std::lock_guard lock(lazyMutex_);
  return carrier && carrier_.get() == carrier;
}

CarrierRecord OXStreamSocket::carrierRecord(const wire::CarrierRoute& route,
                                            std::vector<uint8_t> bytes, std::vector<uint8_t> tail) {
  CarrierRecord record;
  record.bytes = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
  if (!tail.empty()) record.tail = std::make_shared<const std::vector<uint8_t>>(std::move(tail));
  record.tag = route.tag;
  record.timeout = route.timeout;
  record.frameType = route.frameType;
  record.tailFrameType = route.tailFrameType;
  record.tailTag = route.tailTag;
  record.framedOnly = route.framedOnly;
  return record;
}

void OXStreamSocket::sendCommand(uint32_t command, uint32_t parameter) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto current = carrier();
  if (!current) return;
  auto record = carrierRecord(wire::carrierRoute(wire::WireContent::Command, 0, command),
                              wire::buildCommandPacket(command, parameter));
  // Over the framed channel a command's completion has never counted as a
  // write of the stream.
  record.report = current->kind() == Carrier::Kind::tcp;
  current->sendRecord(std::move(record));
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
  OX_ASSERT_ON_QUEUE(sendQueue());
  if (isConnecting_) return;
  {
    std::lock_guard lock(debugMutex_);
    if (!debugInfo_) debugInfo_ = std::make_unique<LFLiveDebug>();
    debugInfo_->streamId = stream_->streamId;
    debugInfo_->uploadUrl = stream_->url;
    debugInfo_->isRtmp = false;
  }
  if (!carrier()) {
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
  std::shared_ptr<Carrier> previous;
  std::shared_ptr<TcpCarrier> connection;
  OptionalError error;
  {
    // Held across the connect: its events are posted to the main queue, and
    // the first of them must find the new carrier in the slot.
    std::lock_guard lock(lazyMutex_);
    previous = std::move(carrier_);
    carrier_.reset();
    connection =
        TcpCarrier::connect(host, port, kConnectTimeout, weak_from_this(), MainQueue::get(), error);
    carrier_ = connection;
  }
  if (previous) {
    previous->setDelegate({});
    previous->close();
  }
  if (connection) {
    retryable_ = true;
    return 0;
  }
  oxlog("Live - connect to {}:{} failed: {}", host, port, error ? error->toString() : "");
  reportError(LiveStreamError::ConnectFailed);
  reportStatus(LiveStreamState::Failed);
  return -1;
}

void OXStreamSocket::_on_connected() {
  sendMetaData();
  if (auto current = carrier()) current->startReading();
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

void OXStreamSocket::dropCarrier() {
  std::shared_ptr<Carrier> current;
  {
    std::lock_guard lock(lazyMutex_);
    current = std::move(carrier_);
    carrier_.reset();
  }
  if (!current) return;
  current->setDelegate({});
  auto notice =
      carrierRecord(wire::carrierRoute(wire::WireContent::StopNotice), wire::buildStopNotice());
  notice.report = false;
  current->sendRecord(std::move(notice));
  current->closeAfterSending();
}

void OXStreamSocket::_stop() {
  OX_ASSERT_ON_QUEUE(sendQueue());
  reportStatus(LiveStreamState::Stopped);
  dropCarrier();
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
  OX_ASSERT_ON_QUEUE(sendQueue());
  isReconnecting_ = false;
  if (isConnected_) return;
  _stop();
  _start();
}

// ---- Carrier events, main queue ----

void OXStreamSocket::carrierDidConnect(Carrier* carrier, const std::string& host, uint16_t port) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!isCurrentCarrier(carrier)) return;
  oxlog("Live - connected to {}:{}", host, port);
  _on_connected();
}

void OXStreamSocket::carrierDidReceiveData(Carrier*, std::span<const uint8_t> data,
                                           bool endsMessage) {
  OX_ASSERT_ON_MAIN_QUEUE();
  oxlog("Live - read {} bytes{}", data.size(), endsMessage ? " (one message)" : "");
  if (startsWithCommandWord(data)) handleClientCmd(data);
}

double OXStreamSocket::carrierShouldTimeoutWrite(Carrier*, int64_t tag, double elapsed,
                                                 size_t bytesDone) {
  OX_ASSERT_ON_MAIN_QUEUE();
  oxlog("Live - write #{} timeout, elapsed:{:.1f}, done:{}", tag, elapsed, bytesDone);
  return 0.0;
}

void OXStreamSocket::carrierDidEnd(Carrier* carrier, const OptionalError& error) {
  OX_ASSERT_ON_MAIN_QUEUE();
  oxlog("Live - connection ended: {}", error ? error->toString() : "no error");
  if (!isCurrentCarrier(carrier)) return;
  if (retryable_) {
    retryOrFail();
    return;
  }
  reportError(LiveStreamError::ConnectionLost);
  reportStatus(LiveStreamState::Failed);
}

void OXStreamSocket::retryOrFail() {
  if (env_.lifecycle->applicationState() != ApplicationState::active)
    retryTimes4netWorkBreaken_ = reconnectCount_;
  int64_t old = retryTimes4netWorkBreaken_.fetch_add(1);
  if (old < reconnectCount_ && !isReconnecting_) {
    isConnected_ = false;
    isConnecting_ = false;
    isReconnecting_ = true;
    if (auto d = delegate()) d->setDeviceChanged(true);
    auto timer = postAfterWeak(*MainQueue::get(), kRetryDelay, weak_from_this(),
                               [](OXStreamSocket& self) { self.reconnect(); });
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

void OXStreamSocket::streamingBufferBufferState(LFStreamingBuffer*, BufferVerdict state) {
  if (auto d = delegate()) d->socketBufferStatus(this, state);
}

// ---- The host's commands, main queue ----

void OXStreamSocket::handleClientCmd(std::span<const uint8_t> data) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto parsed = wire::parseHostCommand(data);
  if (!parsed) {
    // A record cut short would act on parameters the host never sent.
    if (parsed.error() == wire::WireError::Truncated && data.size() >= 8) {
      uint32_t command = wire::WireReader(data).u32LE(4);
      oxlog("Live - command {} refused: {} bytes, it needs {}", command, data.size(),
            8 + 4 * wire::hostCommandParameterCount(command));
    }
    return;
  }
  const auto& command = *parsed;
  switch (command.command) {
    case wire::kHostPeerClose:
      reportError(LiveStreamError::PeerClosed);
      reportStatus(LiveStreamState::Stopped);
      if (auto current = carrier()) current->setDelegate({});
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
