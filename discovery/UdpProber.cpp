#include "discovery/UdpProber.h"

#include "discovery/UdpAnswer.h"
#include "platform/device/NetworkInterfaces.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

std::shared_ptr<UdpProber> UdpProber::create(UdpProbeTargets targets,
                                             std::weak_ptr<UdpProberDelegate> delegate) {
  return std::shared_ptr<UdpProber>(new UdpProber(std::move(targets), std::move(delegate)));
}

UdpProber::~UdpProber() {
  if (timer_) timer_->invalidate();
  if (socket_) socket_->setDelegate({});
}

void UdpProber::start() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (timer_) return;
  timer_ = std::make_unique<RepeatingTimer>(MainQueue::get(), kInterval, [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->probe();
  });
  timer_->fire();
}

void UdpProber::stop() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (timer_) {
    timer_->invalidate();
    timer_.reset();
  }
  dropSocket();
}

void UdpProber::dropSocket() {
  if (!socket_) return;
  socket_->setDelegate({});
  socket_->close();
  socket_.reset();
}

void UdpProber::probe() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!socket_) {
    socket_ = GCDAsyncUdpSocket::create(weak_from_this(), MainQueue::get());
    OptionalError error;
    if (!socket_->bindToPort(targets_.udpPort, error)) {
      oxlog("Error binding UDP port: {}", error ? error->toString() : "");
      return;
    }
    if (!socket_->enableBroadcast(true, error)) {
      oxlog("Error UDP enableBroadcast: {}", error ? error->toString() : "");
      return;
    }
  }
  auto payload = std::make_shared<const std::vector<uint8_t>>(probeDatagram());
  auto subnet = targets_.subnetBroadcast ? targets_.subnetBroadcast() : getBroadcastIPAddress();
  auto first = targets_.probeFirstPort;
  for (const auto& [host, port] : probeTargets(subnet, first, targets_.limitedBroadcast)) {
    socket_->sendData(payload, host, port, /*timeout=*/-1, /*tag=*/1707 + (port - first));
  }
  OptionalError error;
  if (!socket_->beginReceiving(error)) {
    dropSocket();
    oxlog("Error UDP beginReceiving: {}", error ? error->toString() : "");
    return;
  }
  oxlog("MAIN - UDP listening on #{}", socket_->localPort());
}

void UdpProber::udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket*, int64_t tag,
                                                         const Error& error) {
  oxlog("MAIN - udpSocket:didNotSendDataWithTag: {} dueToError:\n{}", tag, error.toString());
}

void UdpProber::udpSocketDidReceiveDataFromAddressWithFilterContext(
    GCDAsyncUdpSocket*, const std::vector<uint8_t>& data, const SocketAddress& address) {
  // The source is read as IPv4: the 4 bytes at offset 4.
  std::string source;
  if (address.size() >= 8) {
    const uint8_t* a = address.data() + 4;
    source = std::to_string(a[0]) + "." + std::to_string(a[1]) + "." + std::to_string(a[2]) + "." +
             std::to_string(a[3]);
  }
  auto answer = parseHostAnswer(data, source);
  if (!answer) return;
  auto delegate = delegate_.lock();
  if (!delegate) return;
  if (answer->present) {
    delegate->udpProberDidFindHost(answer->record);
  } else {
    delegate->udpProberDidLoseHost(answer->record);
  }
}

void UdpProber::udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) {
  if (!error || sock != socket_.get()) return;
  oxlog("MAIN - udpSocketDidClose:withError:\n{}", error->toString());
  if (timer_) {
    timer_->invalidate();
    timer_.reset();
  }
  dropSocket();
}

}  // namespace oxelo
