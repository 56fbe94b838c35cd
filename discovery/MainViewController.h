#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels/GCDAsyncSocket.h"
#include "channels/GCDAsyncUdpSocket.h"
#include "channels/PTChannel.h"
#include "channels/PTChannelDelegate.h"
#include "discovery/HostRecord.h"
#include "discovery/LiveScreen.h"
#include "discovery/MainScreen.h"
#include "discovery/ServiceBrowser.h"
#include "platform/device/AppLifecycle.h"
#include "platform/device/Battery.h"
#include "platform/device/Reachability.h"
#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/RepeatingTimer.h"

namespace oxelo {

// The connection flow of the main screen: when to search, the one host list
// that every search path reports into, the current host, and the channel to
// it (an outgoing or accepted TCP socket, or the USB channel), greeted and
// handed to the live screen when the host says start.
//
// Everything runs on the main queue: the public operations, every socket and
// channel delegate call, every timer. Held by shared pointer (create()); the
// sockets hold it weakly. The USB channels hold their delegate strongly, so
// the flow clears their delegates when it drops them. Call shutdown() before
// letting it go.
class MainViewController : public std::enable_shared_from_this<MainViewController>,
                           public GCDAsyncSocketDelegate,
                           public GCDAsyncUdpSocketDelegate,
                           public PTChannelDelegate,
                           public ServiceBrowserDelegate {
 public:
  struct Services {
    std::shared_ptr<MainScreen> screen;               // required
    std::shared_ptr<LiveScreenPresenter> presenter;   // required
    std::shared_ptr<Reachability> reachability;       // default: reachabilityForLocalWiFi()
    std::shared_ptr<BatteryMonitor> battery;          // default: BatteryMonitor::shared()
    std::shared_ptr<AppLifecycle> lifecycle;          // default: AppLifecycle::shared()
    std::shared_ptr<ServiceBrowserFactory> browsers;  // default: none (no service search)
    // The ports of the phone's own listeners; tests move them off the
    // system's ports so that runs do not collide.
    uint16_t listenPort = 5896;
    uint16_t usbPort = 5895;
    uint16_t udpPort = 1707;
    uint16_t probeFirstPort = 5895;
    // Where probes go: the subnet broadcast address of the Wi-Fi interface
    // and the limited broadcast. Tests inside the default network namespace
    // point both at loopback addresses.
    std::function<std::string()> subnetBroadcast;  // default: getBroadcastIPAddress
    std::string limitedBroadcast = "255.255.255.255";
  };
  static std::shared_ptr<MainViewController> create(Services services);
  ~MainViewController() override;

  // Screen life cycle, driven by the front end.
  void viewDidLoad();
  void viewWillAppear();
  void viewDidAppear();
  void viewDidDisappear();
  // Stops every search, listener and timer and lets go of the channels.
  void shutdown();

  // The search.
  bool autoConnect() const;
  void discover();
  void stop_discover(bool all);
  void net_discover();
  void stop_net_discover();
  void usb_discover();
  void stop_usb_discover();
  void start_listen_socket();
  void stop_listen_socket();
  void udp_broadcast();
  void checkLocalNetworkPermission();

  // The host list and the current host.
  void on_host_detected(const HostRecord& record);
  void on_host_removed(const HostRecord& record);
  void host_detect_finished();
  void set_current_host(const std::optional<HostRecord>& record);
  void connect_last_host();
  bool connectToHost();
  void choose_host();
  void connectViaIPAndPort(const std::string& ip, long long port);
  // The manual dialog: an address and an instance text.
  void connectManually(const std::string& address, const std::string& instanceText);
  void refresh();
  void optionsDidDismiss();

  // The greeting.
  void handShake();
  // Works off one packet at `words`, of which `available` bytes are there;
  // returns the 32-bit words consumed, or 0 for a command it does not know.
  size_t handleClientPacket(const uint8_t* words, size_t available);

  // The live screen.
  void showLiveView();
  void prepareLiveView(LiveViewChannelTarget& view);
  void onLiveViewClosed();
  void liveViewRestart();
  void liveViewConnectionLost();
  void liveViewUserClose(bool byUser);

  // Platform events.
  void onReachabilityChanged();
  void OnDeviceBatteryStateChanged(bool byNotification);
  void appDidEnterBackground();
  void appWillEnterForeground();

  // State, for the screen and for tests.
  const std::vector<HostRecord>& arr_hosts() const { return arr_hosts_; }
  const std::optional<std::string>& hostName() const { return hostName_; }
  const std::optional<std::string>& hostIP() const { return hostIP_; }
  long long hostPort() const { return hostPort_; }
  bool autoStart() const { return autoStart_; }
  bool hostDiscovering() const { return hostDiscovering_; }
  bool hostConnected() const { return hostConnected_; }
  bool hostDetected() const { return hostDetected_; }
  bool usbPlugged() const { return usbPlugged_; }
  bool usbConnected() const { return usbConnected_; }
  bool hasLiveScreen() const { return liveVC_ != nullptr; }
  bool isListening() const { return serverSocket_ != nullptr; }
  bool isUsbListening() const { return usbListenChannel_ != nullptr; }
  bool isBroadcasting() const { return udpBroadcastTimer_ != nullptr; }
  bool hasAsyncSocket() const { return asyncSocket_ != nullptr; }
  bool hasUsbPeer() const { return usbPeerChannel_ != nullptr; }
  size_t servicesInResolution() const { return arr_services_.size(); }

  // GCDAsyncSocketDelegate.
  void socketDidConnectToHost(GCDAsyncSocket* sock, const std::string& host,
                              uint16_t port) override;
  void socketDidAcceptNewSocket(GCDAsyncSocket* sock,
                                const std::shared_ptr<GCDAsyncSocket>& newSocket) override;
  void socketDidReadData(GCDAsyncSocket* sock, const std::vector<uint8_t>& data,
                         int64_t tag) override;
  void socketDidWriteDataWithTag(GCDAsyncSocket* sock, int64_t tag) override;
  void socketDidDisconnect(GCDAsyncSocket* sock, const OptionalError& error) override;

  // GCDAsyncUdpSocketDelegate.
  void udpSocketDidNotSendDataWithTagDueToError(GCDAsyncUdpSocket* sock, int64_t tag,
                                                const Error& error) override;
  void udpSocketDidReceiveDataFromAddressWithFilterContext(GCDAsyncUdpSocket* sock,
                                                           const std::vector<uint8_t>& data,
                                                           const SocketAddress& address) override;
  void udpSocketDidClose(GCDAsyncUdpSocket* sock, const OptionalError& error) override;

  // PTChannelDelegate. The flow has no shouldAcceptFrame: every frame
  // reaches it.
  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>& channel, uint32_t type,
                                           uint32_t tag,
                                           std::shared_ptr<const PTPayload> payload) override;
  void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>& channel,
                                     const OptionalError& error) override;
  void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>& channel,
                                         const std::shared_ptr<PTChannel>& newChannel,
                                         const PTAddress& address) override;
  uint8_t ptChannelDelegateOptionalOps() const override;

  // ServiceBrowserDelegate.
  void netServiceBrowserDidFindService(ServiceBrowser* browser, std::shared_ptr<NetService> service,
                                       bool moreComing) override;
  void netServiceBrowserDidRemoveService(ServiceBrowser* browser,
                                         std::shared_ptr<NetService> service,
                                         bool moreComing) override;
  void netServiceDidResolveAddress(NetService* service) override;
  void netServiceDidNotResolve(NetService* service, int errorCode) override;

 private:
  explicit MainViewController(Services services);
  void startWatching();
  // performSelector:afterDelay: and cancelPreviousPerformRequestsWithTarget:.
  TimerHandle perform(double delay, void (MainViewController::*method)());
  void cancelPerformRequests();
  void scheduleHostDetectFinished();
  void startBroadcastTimer();
  void workOffBlock(const uint8_t* data, size_t size);
  void sendSettingsAnswer();
  void startServiceSearch();
  void dropServices();
  void keepAwake(bool awake);

  Services services_;

  // Search state.
  std::shared_ptr<ServiceBrowser> service_browser_;
  std::vector<std::shared_ptr<NetService>> arr_services_;
  std::vector<HostRecord> arr_hosts_;
  std::optional<std::string> hostName_;
  std::optional<std::string> hostIP_;
  long long hostPort_ = 0;
  bool autoStart_ = false;
  bool hostDiscovering_ = false;
  bool hostConnected_ = false;
  bool hostDetected_ = false;
  std::shared_ptr<GCDAsyncSocket> serverSocket_;
  std::shared_ptr<GCDAsyncSocket> asyncSocket_;
  std::shared_ptr<GCDAsyncUdpSocket> asyncUdpSocket_;
  std::unique_ptr<RepeatingTimer> udpBroadcastTimer_;
  std::shared_ptr<LiveViewController> liveVC_;
  std::optional<double> enter_background_time_;
  std::shared_ptr<PTChannel> usbListenChannel_;
  std::shared_ptr<PTChannel> usbPeerChannel_;
  bool usbPlugged_ = false;
  bool usbConnected_ = false;
  std::optional<TimerHandle> connect_last_host_block_;

  // Bytes of a packet that a TCP read ended inside, kept for the next read.
  std::vector<uint8_t> partialPacket_;
  std::vector<TimerHandle> performRequests_;
  TimerHandle hostDetectFinishedRequest_;
  Subscription reachabilitySub_, batterySub_, lifecycleSub_;
};

}  // namespace oxelo
