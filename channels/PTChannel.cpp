#include "channels/PTChannel.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

constexpr int kListenBacklog = 512;

bool setNonBlocking(int fd) {
  int flags = fcntl(fd, F_GETFL);
  return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace

std::shared_ptr<PTChannel> PTChannel::channelWithDelegate(
    std::weak_ptr<PTChannelDelegate> delegate) {
  return create(nullptr, std::move(delegate));
}

std::shared_ptr<PTChannel> PTChannel::create(std::shared_ptr<PTProtocol> protocol,
                                             std::weak_ptr<PTChannelDelegate> delegate) {
  if (!protocol) protocol = PTProtocol::sharedProtocolForQueue(MainQueue::get());
  std::shared_ptr<PTChannel> channel(new PTChannel(std::move(protocol)));
  channel->setDelegate(std::move(delegate));
  return channel;
}

PTChannel::PTChannel(std::shared_ptr<PTProtocol> protocol) : protocol_(std::move(protocol)) {}

PTChannel::~PTChannel() {
  if (dispatchObj_channel_) dispatchObj_channel_->close();
  if (dispatchObj_source_) dispatchObj_source_->cancel();
}

bool PTChannel::isConnected() const {
  uint8_t state = connState_;
  return state == kStateConnecting || state == kStateConnected;
}

bool PTChannel::isListening() const { return connState_ == kStateListening; }

std::shared_ptr<PTChannelDelegate> PTChannel::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void PTChannel::setDelegate(std::weak_ptr<PTChannelDelegate> delegate) {
  uint8_t flags = 0;
  if (auto d = delegate.lock()) {
    flags = d->ptChannelDelegateOptionalOps() &
            (kPTDelegateShouldAcceptFrame | kPTDelegateDidEndWithError |
             kPTDelegateDidAcceptConnection);
  }
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
  delegateFlags_ = flags;
}

uint8_t PTChannel::delegateFlags() const {
  std::lock_guard lock(mutex_);
  return delegateFlags_;
}

std::pair<std::shared_ptr<PTChannelDelegate>, uint8_t> PTChannel::delegateAndFlags() const {
  std::lock_guard lock(mutex_);
  auto delegate = delegate_.lock();
  return {delegate, delegate ? delegateFlags_ : uint8_t(0)};
}

size_t PTChannel::queuedBytes() const {
  auto stream = currentStream();
  return stream ? stream->queuedBytes() : 0;
}

std::shared_ptr<PTIOStream> PTChannel::currentStream() const {
  std::lock_guard lock(mutex_);
  return dispatchObj_channel_;
}

uint16_t PTChannel::listeningPort() const {
  std::lock_guard lock(mutex_);
  return dispatchObj_source_ ? dispatchObj_source_->localPort() : 0;
}

void PTChannel::listenOnPort(uint16_t port, uint32_t ipv4Address, Callback callback) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  auto fail = [&](int err, const char* reason) {
    if (fd >= 0) ::close(fd);
    if (callback) callback(posixError(err, reason));
  };
  if (fd < 0) return fail(errno, "socket");
  int yes = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0) {
    return fail(errno, "setsockopt");
  }
  if (!setNonBlocking(fd)) return fail(errno, "fcntl");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(ipv4Address);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return fail(errno, "bind");
  }
  if (::listen(fd, kListenBacklog) != 0) return fail(errno, "listen");

  std::weak_ptr<PTChannel> weak = weak_from_this();
  OptionalError error;
  auto source = PTListenSource::create(
      fd, protocol_->queue(),
      [weak](int peer, const PTAddress& from) {
        auto self = weak.lock();
        if (!self) {
          ::close(peer);
          return;
        }
        self->acceptIncomingConnection(peer, from);
      },
      [weak] {
        if (auto self = weak.lock()) self->reportEnd(self->endError_);
      },
      &error);
  if (!source) {
    if (callback) callback(std::move(error));
    return;
  }
  std::shared_ptr<PTListenSource> previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(dispatchObj_source_, source);
    connState_ = kStateListening;
  }
  if (previous) previous->cancel();
  source->resume();
  if (callback) callback(std::nullopt);
}

void PTChannel::acceptIncomingConnection(int fd, const PTAddress& address) {
  OX_ASSERT_ON_QUEUE(protocol_->queue());
  if (!setNonBlocking(fd)) {
    oxlog("PTChannel: accept failed: {}", posixError(errno, "fcntl").toString());
    ::close(fd);
    return;
  }
  // Broken pipes raise no signal here: every send on the stream passes
  // MSG_NOSIGNAL.
  auto [delegate, flags] = delegateAndFlags();
  if (!delegate || !(flags & kPTDelegateDidAcceptConnection)) {
    ::close(fd);
    return;
  }
  OptionalError error;
  auto stream = PTIOStream::create(fd, protocol_->queue(), &error);
  if (!stream) {
    oxlog("PTChannel: accept failed: {}", error->toString());
    return;
  }
  auto channel = create(protocol_, delegate);
  channel->adoptStream(stream);
  delegate->ioFrameChannelDidAcceptConnection(shared_from_this(), channel, address);
  // The delegate may have closed it already.
  if (!stream->isOpen()) return;
  if (!channel->startReadingFromConnectedChannel(stream, &error)) {
    oxlog("startReadingFromConnectedChannel failed in accept: {}", error->toString());
  }
}

void PTChannel::adoptStream(const std::shared_ptr<PTIOStream>& stream) {
  std::weak_ptr<PTChannel> weak = weak_from_this();
  stream->setCleanupHandler([weak](OptionalError error) {
    auto self = weak.lock();
    if (!self) return;
    self->reportEnd(error ? std::move(error) : self->endError_);
  });
  std::shared_ptr<PTIOStream> previous;
  {
    std::lock_guard lock(mutex_);
    previous = std::exchange(dispatchObj_channel_, stream);
    connState_ = kStateConnected;
  }
  if (previous && previous != stream) previous->close();
}

bool PTChannel::startReadingFromConnectedChannel(std::shared_ptr<PTIOStream> channel,
                                                 OptionalError* error) {
  if (isListening()) {
    if (error) *error = posixError(EPERM, "startReadingFromConnectedChannel on a listener");
    return false;
  }
  if (!channel || !channel->isOpen()) {
    if (error) *error = posixError(EBADF, "startReadingFromConnectedChannel");
    return false;
  }
  if (currentStream() != channel) adoptStream(channel);
  std::weak_ptr<PTChannel> weak = weak_from_this();
  PTProtocol::readFramesOverChannel(
      channel, [weak, channel](OptionalError error, uint32_t type, uint32_t tag,
                               uint32_t payloadSize, std::function<void()> resume) {
        auto self = weak.lock();
        if (!self) return;
        self->handleFrame(channel, std::move(error), type, tag, payloadSize, std::move(resume));
      });
  return true;
}

void PTChannel::handleFrame(const std::shared_ptr<PTIOStream>& stream, OptionalError error,
                            uint32_t type, uint32_t tag, uint32_t payloadSize,
                            std::function<void()> resume) {
  OX_ASSERT_ON_QUEUE(protocol_->queue());
  if (error) return endStreamWithError(stream, std::move(*error));
  if (type == kPTFrameTypeEndOfStream) return endStreamQuietly(stream);
  if (currentStream() != stream) return skipPayload(stream, payloadSize, std::move(resume));
  auto [delegate, flags] = delegateAndFlags();
  if (delegate && (flags & kPTDelegateShouldAcceptFrame) &&
      !delegate->ioFrameChannelShouldAcceptFrameOfType(shared_from_this(), type, tag,
                                                       payloadSize)) {
    return skipPayload(stream, payloadSize, std::move(resume));
  }
  delegate.reset();
  if (payloadSize == 0) {
    if (auto current = this->delegate()) {
      current->ioFrameChannelDidReceiveFrameOfType(shared_from_this(), type, tag, nullptr);
    }
    resume();
    return;
  }
  deliverPayload(stream, type, tag, payloadSize, std::move(resume));
}

void PTChannel::deliverPayload(const std::shared_ptr<PTIOStream>& stream, uint32_t type,
                               uint32_t tag, uint32_t payloadSize, std::function<void()> resume) {
  std::weak_ptr<PTChannel> weak = weak_from_this();
  PTProtocol::readPayloadOfSize(payloadSize, stream,
                                [weak, stream, type, tag, payloadSize, resume](
                                    OptionalError error, std::shared_ptr<const PTPayload> payload) {
                                  auto self = weak.lock();
                                  if (!self) return;
                                  if (error)
                                    return self->endStreamWithError(stream, std::move(*error));
                                  if (payload->size() < payloadSize)
                                    return self->endStreamQuietly(stream);
                                  // The delegate of this moment: it may have changed since the
                                  // header.
                                  if (auto delegate = self->delegate()) {
                                    delegate->ioFrameChannelDidReceiveFrameOfType(
                                        self, type, tag, std::move(payload));
                                  }
                                  resume();
                                });
}

void PTChannel::skipPayload(const std::shared_ptr<PTIOStream>& stream, uint32_t payloadSize,
                            std::function<void()> resume) {
  if (payloadSize == 0) {
    resume();
    return;
  }
  std::weak_ptr<PTChannel> weak = weak_from_this();
  PTProtocol::readAndDiscardDataOfSize(
      payloadSize, stream, [weak, stream, resume](OptionalError error, bool endOfStream) {
        auto self = weak.lock();
        if (!self) return;
        if (error) return self->endStreamWithError(stream, std::move(*error));
        if (endOfStream) return self->endStreamQuietly(stream);
        resume();
      });
}

void PTChannel::endStreamWithError(const std::shared_ptr<PTIOStream>& stream, Error error) {
  if (currentStream() != stream) {
    stream->close();
    return;
  }
  endError_ = std::move(error);
  close();
}

void PTChannel::endStreamQuietly(const std::shared_ptr<PTIOStream>& stream) {
  if (currentStream() != stream) {
    stream->cancel();
    return;
  }
  cancel();
}

void PTChannel::reportEnd(OptionalError error) {
  OX_ASSERT_ON_QUEUE(protocol_->queue());
  auto [delegate, flags] = delegateAndFlags();
  if (!delegate || !(flags & kPTDelegateDidEndWithError)) return;
  delegate->ioFrameChannelDidEndWithError(shared_from_this(), error);
}

void PTChannel::sendFrameOfType(uint32_t type, uint32_t tag, std::span<const uint8_t> payload,
                                Callback callback) {
  auto refuse = [&](int err, const char* reason) {
    if (!callback) return;
    protocol_->queue()->post(
        [callback = std::move(callback), error = posixError(err, reason)] { callback(error); });
  };
  if (payload.size() > std::numeric_limits<uint32_t>::max()) {
    return refuse(EMSGSIZE, "sendFrameOfType: payload above 4 GiB");
  }
  // Held while the write is queued, so that a close() or cancel() from another
  // thread comes wholly before or after it.
  std::lock_guard lock(mutex_);
  uint8_t state = connState_;
  if (state == kStateNone || state == kStateListening || !dispatchObj_channel_) {
    return refuse(EPERM, "sendFrameOfType: channel not connected");
  }
  protocol_->sendFrameOfType(type, tag, payload, dispatchObj_channel_, std::move(callback));
}

void PTChannel::end(bool atOnce) {
  std::shared_ptr<PTIOStream> stream;
  std::shared_ptr<PTListenSource> source;
  {
    std::lock_guard lock(mutex_);
    stream = std::move(dispatchObj_channel_);
    source = std::move(dispatchObj_source_);
    dispatchObj_channel_ = nullptr;
    dispatchObj_source_ = nullptr;
    connState_ = kStateNone;
  }
  if (stream) atOnce ? stream->close() : stream->cancel();
  if (source) source->cancel();
}

void PTChannel::close() { end(/*atOnce=*/true); }

void PTChannel::cancel() { end(/*atOnce=*/false); }

}  // namespace oxelo
