#pragma once

#include <functional>
#include <memory>
#include <string>

#include "channels/GCDAsyncUdpSocket.h"
#include "discovery/HostRecord.h"
#include "platform/dispatch/RepeatingTimer.h"

namespace oxelo {

// What the probes find. Main queue; both optional.
class UdpProberDelegate {
 public:
  virtual ~UdpProberDelegate() = default;
  virtual void udpProberDidFindHost(const HostRecord& /*record*/) {}
  virtual void udpProberDidLoseHost(const HostRecord& /*record*/) {}
};

// Where the probes go and where answers come back.
struct UdpProbeTargets {
  uint16_t udpPort = 1707;         // the phone's own port
  uint16_t probeFirstPort = 5895;  // the first of the eight host ports
  // The subnet broadcast address of the Wi-Fi interface (default:
  // getBroadcastIPAddress) and the limited broadcast. Tests inside the
  // default network namespace point both at loopback addresses.
  std::function<std::string()> subnetBroadcast;
  std::string limitedBroadcast = "255.255.255.255";
};

// UDP discovery: while started, a probe every 5 s (the first at once) to the
// eight host ports on the subnet broadcast address and on the limited
// broadcast, from one socket bound to the phone's port; every answer becomes
// a host found or lost. Main queue, all of it, the socket's delegate calls
// included. Held by shared pointer (create()); the socket holds it weakly.
class UdpProber final : public GCDAsyncUdpSocketDelegate,
                        public std::enable_shared_from_this<UdpProber> {
 public:
  static constexpr double kInterval = 5.0;

  static std::shared_ptr<UdpProber> create(UdpProbeTargets targets,
                                           std::weak_ptr<UdpProberDelegate> delegate);
  ~UdpProber() override;

  // Starts the repeating probe unless it runs already; the first tick at once.
  void start();
  // Stops the timer and closes the socket.
  void stop();
  bool isBroadcasting() const { return timer_ != nullptr; }
  // One tick: binds the socket if there is none, sends the probes and
  // (re)starts receiving. A failed bind or broadcast switch ends the tick.
  void probe();

  // GCDAsyncUdpSocketDelegate.
  void udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* sock, int64_t tag,
                                                const Error& error) override;
  void udpSocketDidReceiveDataFromAddressWithFilterContext(GCDAsyncUdpSocket* sock,
                                                           const std::vector<uint8_t>& data,
                                                           const SocketAddress& address) override;
  void udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) override;

 private:
  UdpProber(UdpProbeTargets targets, std::weak_ptr<UdpProberDelegate> delegate)
      : targets_(std::move(targets)), delegate_(std::move(delegate)) {}
  void dropSocket();

  const UdpProbeTargets targets_;
  std::weak_ptr<UdpProberDelegate> delegate_;
  std::shared_ptr<GCDAsyncUdpSocket> socket_;
  std::unique_ptr<RepeatingTimer> timer_;
};

}  // namespace oxelo
