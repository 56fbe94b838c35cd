#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channels/Carrier.h"
#include "discovery/ClientHandshake.h"
#include "discovery/HostList.h"
#include "discovery/HostListeners.h"
#include "discovery/HostRecord.h"
#include "discovery/LiveScreen.h"
#include "discovery/MainScreen.h"
#include "discovery/SearchTimers.h"
#include "discovery/ServiceSearch.h"
#include "discovery/UdpProber.h"
#include "platform/device/AppLifecycle.h"
#include "platform/device/Battery.h"
#include "platform/device/Reachability.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

// The connection flow of the main screen: when to search, the one host list
// that every search path reports into, the current host, and the connection
// to it (an outgoing or accepted TCP carrier, or the USB one), greeted and
// handed to the live screen when the host says start.
//
// A façade over the parts that do the work, each owned here: the search's
// delayed steps (SearchTimers), the host list and history (HostList), the
// UDP probes (UdpProber), DNS-SD (ServiceSearch), the two listeners
// (HostListeners) and one greeting per connection (ClientHandshake).
//
// Everything runs on the main queue: the public operations (checked), every
// event of the parts, every timer. Held by shared pointer (create()); the
// parts hold it weakly. Call shutdown() before letting it go.
class MainViewController : public std::enable_shared_from_this<MainViewController>,
                           public LiveScreenOwner,
                           public ClientHandshakeDelegate,
                           public HostListenersDelegate,
                           public UdpProberDelegate,
                           public ServiceSearchDelegate {
 public:
  // Opens an outgoing TCP connection, as TcpCarrier::connect does on the
  // main queue: null, with `error`, when the attempt cannot even start.
  using Connector = std::function<std::shared_ptr<Carrier>(
      const std::string& host, uint16_t port, double timeout,
      std::weak_ptr<CarrierDelegate> delegate, OptionalError& error)>;

  struct Services {
    std::shared_ptr<MainScreen> screen;               // required
    std::shared_ptr<LiveScreenPresenter> presenter;   // required
    std::shared_ptr<Reachability> reachability;       // default: reachabilityForLocalWiFi()
    std::shared_ptr<BatteryMonitor> battery;          // default: BatteryMonitor::shared()
    std::shared_ptr<AppLifecycle> lifecycle;          // default: AppLifecycle::shared()
    std::shared_ptr<ServiceBrowserFactory> browsers;  // default: none (no service search)
    Connector connector;                              // default: TcpCarrier::connect
    // The ports of the phone's own listeners; tests move them off the
    // system's ports so that runs do not collide.
    uint16_t listenPort = 5896;
    uint16_t usbPort = 5895;
    UdpProbeTargets probes;
  };
  static std::shared_ptr<MainViewController> create(Services services);
  ~MainViewController() override;

  // Screen life cycle, driven by the front end.
  void viewDidLoad();
  void viewWillAppear() override;
  void viewDidAppear() override;
  void viewDidDisappear();
  // Stops every search, listener and timer and lets go of the connections.
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

  // The greeting: the hello on the connection there is, the USB peer first.
  void handShake();

  // The live screen.
  void showLiveView();
  void prepareLiveView(LiveViewChannelTarget& view) override;
  void onLiveViewClosed();
  void liveViewRestart() override;
  void liveViewConnectionLost() override;
  void liveViewUserClose(bool byUser) override;

  // Platform events.
  void onReachabilityChanged();
  void OnDeviceBatteryStateChanged(bool byNotification);
  void appDidEnterBackground();
  void appWillEnterForeground();

  // State, for the screen and for tests.
  const std::vector<HostRecord>& arr_hosts() const { return hosts_.hosts(); }
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
  bool isListening() const { return listeners_->isTcpListening(); }
  bool isUsbListening() const { return listeners_->isUsbListening(); }
  bool isBroadcasting() const { return prober_->isBroadcasting(); }
  // A TCP connection to the host, being opened or up (outgoing or accepted).
  bool hasConnection() const { return tcp_ != nullptr; }
  bool hasUsbPeer() const { return usbPeer_ != nullptr; }
  size_t servicesInResolution() const { return serviceSearch_->servicesInResolution(); }

  // ClientHandshakeDelegate.
  void handshakeDidConnect(ClientHandshake* handshake) override;
  void handshakeDidReceiveHostInfo(ClientHandshake* handshake, long long port,
                                   const std::string& name) override;
  void handshakeDidReceiveStart(ClientHandshake* handshake) override;
  void handshakeDidEnd(ClientHandshake* handshake, const OptionalError& error) override;

  // HostListenersDelegate.
  void listenersDidAcceptTcp(std::shared_ptr<Carrier> carrier, const std::string& peer) override;
  void listenersDidAcceptUsb(std::shared_ptr<Carrier> carrier) override;

  // UdpProberDelegate.
  void udpProberDidFindHost(const HostRecord& record) override { on_host_detected(record); }
  void udpProberDidLoseHost(const HostRecord& record) override { on_host_removed(record); }

  // ServiceSearchDelegate.
  void serviceSearchDidResolveHost(const HostRecord& record) override { on_host_detected(record); }
  void serviceSearchDidLoseService(const std::string& name, bool moreComing) override;

 private:
  explicit MainViewController(Services services);
  void makeParts();
  void startWatching();
  // A delayed call of one of our operations, held weakly; cancelled by the
  // hand-over to the live screen.
  void perform(double delay, void (MainViewController::*method)());
  void keepAwake(bool awake);
  // The connection that gets the hello: a connected USB peer, else the TCP
  // connection.
  ClientHandshake* greetedConnection() const;
  void onTcpEnded(const OptionalError& error);

  Services config_;
  SearchTimers timers_;
  HostList hosts_;
  std::shared_ptr<UdpProber> prober_;
  std::shared_ptr<ServiceSearch> serviceSearch_;
  std::shared_ptr<HostListeners> listeners_;
  // One greeting per connection: the TCP one (asyncSocket) and the USB peer.
  std::shared_ptr<ClientHandshake> tcp_;
  std::shared_ptr<ClientHandshake> usbPeer_;

  std::optional<std::string> hostName_;
  std::optional<std::string> hostIP_;
  long long hostPort_ = 0;
  bool autoStart_ = false;
  bool hostDiscovering_ = false;
  bool hostConnected_ = false;
  bool hostDetected_ = false;
  bool usbPlugged_ = false;
  bool usbConnected_ = false;
  std::shared_ptr<LiveViewController> liveVC_;
  std::optional<double> enter_background_time_;
  Subscription reachabilitySub_, batterySub_, lifecycleSub_;
};

}  // namespace oxelo
