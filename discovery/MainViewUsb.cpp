// USB: the phone listens on the loopback address, where the host arrives
// through whatever forwards the cable (adb forward, ssh -L, a USB network).
#include "wire/HandshakePackets.h"
#include "discovery/MainViewController.h"
#include "platform/log/Log.h"

namespace oxelo {

void MainViewController::usb_discover() {
  if (usbListenChannel_) return;
  usbListenChannel_ = PTChannel::channelWithDelegate(shared_from_this());
  usbListenChannel_->listenOnPort(services_.usbPort, 0x7f000001, [](const OptionalError& error) {
    if (error) {
      oxlog("USB 侦听失败: {}", error->toString());
    } else {
      oxlog("开始 USB 侦听！");
    }
  });
}

void MainViewController::stop_usb_discover() {
  if (!usbListenChannel_) return;
  usbListenChannel_->close();
  usbListenChannel_->setDelegate({});
  usbListenChannel_.reset();
  oxlog("停止 USB 侦听！");
}

uint8_t MainViewController::ptChannelDelegateOptionalOps() const {
  return kPTDelegateDidEndWithError | kPTDelegateDidAcceptConnection;
}

void MainViewController::ioFrameChannelDidAcceptConnection(
    const std::shared_ptr<PTChannel>&, const std::shared_ptr<PTChannel>& newChannel,
    const PTAddress& address) {
  oxlog("ioFrameChannel didAcceptConnection:{}", address.name());
  if (usbPeerChannel_) return;  // the first peer stays
  usbPeerChannel_ = newChannel;
  usbPeerChannel_->setDelegate(shared_from_this());
  usbConnected_ = true;
  stop_discover(true);
  autoStart_ = true;
  host_detect_finished();
}

void MainViewController::ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                                       const OptionalError& error) {
  oxlog("ioFrameChannel didEndWithError:{}", error ? error->toString() : "(null)");
  if (channel && channel == usbPeerChannel_) {
    usbPeerChannel_->setDelegate({});
    usbPeerChannel_.reset();
  }
}

void MainViewController::ioFrameChannelDidReceiveFrameOfType(
    const std::shared_ptr<PTChannel>&, uint32_t, uint32_t,
    std::shared_ptr<const PTPayload> payload) {
  if (!payload || payload->empty()) return;
  workOffBlock(payload->data(), payload->size());
  partialPacket_.clear();  // a frame is whole: nothing carries over to the next one
}

}  // namespace oxelo
