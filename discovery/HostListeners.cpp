#include "discovery/HostListeners.h"

#include "channels/TcpCarrier.h"
#include "channels/UsbCarrier.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

std::shared_ptr<HostListeners> HostListeners::create(
    uint16_t tcpPort, uint16_t usbPort, std::weak_ptr<HostListenersDelegate> delegate) {
  return std::shared_ptr<HostListeners>(new HostListeners(tcpPort, usbPort, std::move(delegate)));
}

HostListeners::~HostListeners() {
  if (server_) server_->setDelegate({});
  if (usbListener_) usbListener_->setDelegate({});
}

void HostListeners::startTcp() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (server_) return;
  server_ = GCDAsyncSocket::create(weak_from_this(), MainQueue::get());
  OptionalError error;
  if (!server_->acceptOnPort(tcpPort_, error)) {
    oxlog("Socket listen failed: {}", error ? error->description : std::string());
    server_->setDelegate({});
    server_.reset();
  }
}

void HostListeners::stopTcp() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!server_) return;
  server_->setDelegate({});
  server_->disconnect();
  server_.reset();
}

void HostListeners::startUsb() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (usbListener_) return;
  usbListener_ = PTChannel::channelWithDelegate(weak_from_this());
  usbListener_->listenOnPort(usbPort_, /*ipv4Address=*/0x7f000001, [](const OptionalError& error) {
    if (error) {
      oxlog("USB 侦听失败: {}", error->toString());
    } else {
      oxlog("开始 USB 侦听！");
    }
  });
}

void HostListeners::stopUsb() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!usbListener_) return;
  usbListener_->close();
  usbListener_->setDelegate({});
  usbListener_.reset();
  oxlog("停止 USB 侦听！");
}

void HostListeners::socketDidAcceptNewSocket(GCDAsyncSocket*,
                                             const std::shared_ptr<GCDAsyncSocket>& newSocket) {
  auto peer = newSocket->connectedHost();
  auto carrier = TcpCarrier::adopt(newSocket);
  if (auto delegate = delegate_.lock()) delegate->listenersDidAcceptTcp(std::move(carrier), peer);
}

uint8_t HostListeners::ptChannelDelegateOptionalOps() const {
  return kPTDelegateDidEndWithError | kPTDelegateDidAcceptConnection;
}

void HostListeners::ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>&,
                                                      const std::shared_ptr<PTChannel>& newChannel,
                                                      const PTAddress& address) {
  oxlog("ioFrameChannel didAcceptConnection:{}", address.name());
  auto carrier = UsbCarrier::adopt(newChannel);
  if (auto delegate = delegate_.lock()) delegate->listenersDidAcceptUsb(std::move(carrier));
}

void HostListeners::ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>&,
                                                  const OptionalError& error) {
  oxlog("ioFrameChannel didEndWithError:{}", error ? error->toString() : "(null)");
}

}  // namespace oxelo
