#pragma once

#include <memory>
#include <string>

#include "channels/Carrier.h"
#include "channels/GCDAsyncSocket.h"
#include "channels/PTChannel.h"
#include "channels/PTChannelDelegate.h"

namespace oxelo {

// Hosts that call the phone. Main queue; both optional. The carrier is the
// accepted connection, already taken over; whoever does not keep it lets it
// close.
class HostListenersDelegate {
 public:
  virtual ~HostListenersDelegate() = default;
  // A host connected to the TCP listener; `peer` is its dotted address.
  virtual void listenersDidAcceptTcp(std::shared_ptr<Carrier> /*carrier*/,
                                     const std::string& /*peer*/) {}
  // A host arrived on the USB listener (through whatever forwards the cable
  // to the loopback address: adb forward, ssh -L, a USB network).
  virtual void listenersDidAcceptUsb(std::shared_ptr<Carrier> /*carrier*/) {}
};

// The phone's two listeners: a TCP socket on 5896 for a host that calls the
// phone over the network, and the framed channel on 127.0.0.1:5895 for the
// host behind the USB cable. Each accepted connection becomes a carrier at
// once. Main queue, all of it, the listeners' delegate calls included. Held
// by shared pointer (create()); the listeners hold it weakly.
class HostListeners final : public GCDAsyncSocketDelegate,
                            public PTChannelDelegate,
                            public std::enable_shared_from_this<HostListeners> {
 public:
  static std::shared_ptr<HostListeners> create(uint16_t tcpPort, uint16_t usbPort,
                                               std::weak_ptr<HostListenersDelegate> delegate);
  ~HostListeners() override;

  // A failed listen is logged and leaves no listener.
  void startTcp();
  void stopTcp();
  void startUsb();
  void stopUsb();
  bool isTcpListening() const { return server_ != nullptr; }
  bool isUsbListening() const { return usbListener_ != nullptr; }

  // GCDAsyncSocketDelegate.
  void socketDidAcceptNewSocket(GCDAsyncSocket* sock,
                                const std::shared_ptr<GCDAsyncSocket>& newSocket) override;

  // PTChannelDelegate. A listener receives no frames.
  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t, uint32_t,
                                           std::shared_ptr<const PTPayload>) override {}
  void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>& channel,
                                         const std::shared_ptr<PTChannel>& newChannel,
                                         const PTAddress& address) override;
  void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                     const OptionalError& error) override;
  uint8_t ptChannelDelegateOptionalOps() const override;

 private:
  HostListeners(uint16_t tcpPort, uint16_t usbPort, std::weak_ptr<HostListenersDelegate> delegate)
      : tcpPort_(tcpPort), usbPort_(usbPort), delegate_(std::move(delegate)) {}

  const uint16_t tcpPort_;
  const uint16_t usbPort_;
  std::weak_ptr<HostListenersDelegate> delegate_;
  std::shared_ptr<GCDAsyncSocket> server_;
  std::shared_ptr<PTChannel> usbListener_;
};

}  // namespace oxelo
