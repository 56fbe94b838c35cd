// UDP discovery: a probe every 5 s to the eight host ports on the subnet
// broadcast address and on 255.255.255.255; answers fill the host list.
#include "discovery/MainViewController.h"
#include "discovery/UdpAnswer.h"
#include "platform/device/NetworkInterfaces.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo {

void MainViewController::udp_broadcast() {
  if (!asyncUdpSocket_) {
    asyncUdpSocket_ = GCDAsyncUdpSocket::create(weak_from_this(), MainQueue::get());
    OptionalError error;
    if (!asyncUdpSocket_->bindToPort(services_.udpPort, error)) {
      oxlog("Error binding UDP port: {}", error ? error->toString() : "");
      return;
    }
    if (!asyncUdpSocket_->enableBroadcast(true, error)) {
      oxlog("Error UDP enableBroadcast: {}", error ? error->toString() : "");
      return;
    }
  }
  auto payload = std::make_shared<const std::vector<uint8_t>>(probeDatagram());
  auto subnet = services_.subnetBroadcast ? services_.subnetBroadcast() : getBroadcastIPAddress();
  auto targets = probeTargets(subnet, services_.probeFirstPort, services_.limitedBroadcast);
  for (const auto& [host, port] : targets) {
    asyncUdpSocket_->sendData(payload, host, port, -1, 1707 + (port - services_.probeFirstPort));
  }
  OptionalError error;
  if (!asyncUdpSocket_->beginReceiving(error)) {
    asyncUdpSocket_->setDelegate({});
    asyncUdpSocket_->close();
    asyncUdpSocket_.reset();
    oxlog("Error UDP beginReceiving: {}", error ? error->toString() : "");
    return;
  }
  oxlog("MAIN - UDP listening on #{}", asyncUdpSocket_->localPort());
}

void MainViewController::udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket*, int64_t tag,
                                                                  const Error& error) {
  oxlog("MAIN - udpSocket:didNotSendDataWithTag: {} dueToError:\n{}", tag, error.toString());
}

void MainViewController::udpSocketDidReceiveDataFromAddressWithFilterContext(
    GCDAsyncUdpSocket*, const std::vector<uint8_t>& data, const SocketAddress& address) {
  // The program reads the source as IPv4: the 4 bytes at offset 4.
  std::string source;
  if (address.size() >= 8) {
    const uint8_t* a = address.data() + 4;
    source = std::to_string(a[0]) + "." + std::to_string(a[1]) + "." + std::to_string(a[2]) + "." +
             std::to_string(a[3]);
  }
  auto answer = parseHostAnswer(data, source);
  if (!answer) return;
  if (answer->present) {
    on_host_detected(answer->record);
  } else {
    on_host_removed(answer->record);
  }
}

void MainViewController::udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) {
  if (!error || sock != asyncUdpSocket_.get()) return;
  oxlog("MAIN - udpSocketDidClose:withError:\n{}", error->toString());
  if (udpBroadcastTimer_) {
    udpBroadcastTimer_->invalidate();
    udpBroadcastTimer_.reset();
  }
  asyncUdpSocket_->setDelegate({});
  asyncUdpSocket_->close();
  asyncUdpSocket_.reset();
}

}  // namespace oxelo
