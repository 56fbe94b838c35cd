#include "discovery/MainViewController.h"

#include "channels/TcpCarrier.h"
#include "discovery/LocalNetworkAuthorization.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {
constexpr double kNetDiscoverBehindUsb = 1.0;
constexpr double kLastHostAttempt = 5.0;
constexpr double kHostDetectSettle = 0.5;
constexpr double kConnectTimeout = 5.0;
constexpr double kManualConnectDelay = 0.1;
constexpr double kManualHudSeconds = 6.0;
constexpr double kShortBackground = 60.0;
constexpr double kRediscoverAfterLoss = 600.0;
constexpr double kRefreshDelay = 0.5;
constexpr double kLanAlertDelay = 1.0;  // after a denied local-network permission
constexpr long long kDefaultHostPort = 5895;
}  // namespace

std::shared_ptr<MainViewController> MainViewController::create(Services services) {
  if (!services.screen || !services.presenter) {
    throw std::invalid_argument("MainViewController needs a screen and a live screen presenter");
  }
  auto flow = std::shared_ptr<MainViewController>(new MainViewController(std::move(services)));
  flow->makeParts();
  return flow;
}

MainViewController::MainViewController(Services services) : config_(std::move(services)) {
  if (!config_.reachability) config_.reachability = Reachability::reachabilityForLocalWiFi();
  if (!config_.battery) config_.battery = BatteryMonitor::shared();
  if (!config_.lifecycle) config_.lifecycle = AppLifecycle::shared();
  if (!config_.connector) {
    config_.connector = [](const std::string& host, uint16_t port, double timeout,
                           std::weak_ptr<CarrierDelegate> delegate, OptionalError& error) {
      return std::shared_ptr<Carrier>(
          TcpCarrier::connect(host, port, timeout, std::move(delegate), MainQueue::get(), error));
    };
  }
}

void MainViewController::makeParts() {
  prober_ = UdpProber::create(config_.probes, weak_from_this());
  serviceSearch_ = ServiceSearch::create(config_.browsers, weak_from_this());
  listeners_ = HostListeners::create(config_.listenPort, config_.usbPort, weak_from_this());
}

MainViewController::~MainViewController() = default;

void MainViewController::perform(double delay, void (MainViewController::*method)()) {
  timers_.after(
      delay, weakTask(weak_from_this(), [method](MainViewController& self) { (self.*method)(); }));
}

void MainViewController::startWatching() {
  std::weak_ptr<MainViewController> weak = weak_from_this();
  reachabilitySub_ = config_.reachability->addChangeListener([weak] {
    if (auto self = weak.lock()) self->onReachabilityChanged();
  });
  config_.reachability->startNotifier();
  batterySub_ = config_.battery->addListener([weak](BatteryEvent event) {
    auto self = weak.lock();
    if (self && event == BatteryEvent::stateDidChange) self->OnDeviceBatteryStateChanged(true);
  });
  config_.battery->setBatteryMonitoringEnabled(true);
  lifecycleSub_ = config_.lifecycle->addListener([weak](LifecycleEvent event) {
    auto self = weak.lock();
    if (!self) return;
    if (event == LifecycleEvent::didEnterBackground) self->appDidEnterBackground();
    if (event == LifecycleEvent::willEnterForeground) self->appWillEnterForeground();
  });
}

void MainViewController::viewDidLoad() {
  OX_ASSERT_ON_MAIN_QUEUE();
  serviceSearch_->dropServices();
  hosts_.clear();
  autoStart_ = autoConnect();
  startWatching();
  OnDeviceBatteryStateChanged(false);
  checkLocalNetworkPermission();
}

void MainViewController::shutdown() {
  OX_ASSERT_ON_MAIN_QUEUE();
  timers_.shutdown();
  stop_discover(true);
  serviceSearch_->stopBrowser();
  serviceSearch_->dropServices();
  if (usbPeer_) {
    usbPeer_->close();
    usbPeer_.reset();
  }
  reachabilitySub_.reset();
  batterySub_.reset();
  lifecycleSub_.reset();
  config_.reachability->stopNotifier();
}

bool MainViewController::autoConnect() const {
  return UserDefaults::standard()->boolForKey(keys::autoConnect);
}

void MainViewController::keepAwake(bool awake) { config_.screen->setIdleTimerDisabled(awake); }

void MainViewController::discover() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!config_.reachability->isReachableViaWiFi() && !usbPlugged_) {
    config_.screen->update_ui_for_discover(false);
    return;
  }
  keepAwake(false);
  set_current_host(std::nullopt);
  hostDetected_ = false;
  hostDiscovering_ = true;
  usbConnected_ = false;
  config_.screen->update_ui_for_discover(true);
  if (usbPlugged_) {
    usb_discover();
    perform(kNetDiscoverBehindUsb, &MainViewController::net_discover);
  } else {
    net_discover();
  }
  start_listen_socket();
}

void MainViewController::net_discover() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!config_.reachability->isReachableViaWiFi() || usbConnected_) return;
  serviceSearch_->dropServices();
  hosts_.clear();
  serviceSearch_->start();
  prober_->start();
  // The attempt at the last host: rescheduled on every call.
  timers_.scheduleLastHostAttempt(kLastHostAttempt,
                                  weakTask(weak_from_this(), [](MainViewController& self) {
                                    if (!self.hostDetected_ && self.hostDiscovering_ && !self.tcp_)
                                      self.connect_last_host();
                                  }));
}

void MainViewController::stop_discover(bool all) {
  OX_ASSERT_ON_MAIN_QUEUE();
  hostDiscovering_ = false;
  if (all) {
    stop_usb_discover();
    stop_net_discover();
    stop_listen_socket();
  }
  config_.screen->update_ui_for_discover(false);
}

void MainViewController::stop_net_discover() {
  OX_ASSERT_ON_MAIN_QUEUE();
  serviceSearch_->stopServices();
  prober_->stop();
  if (tcp_) {
    tcp_->close();
    tcp_.reset();
  }
}

void MainViewController::usb_discover() {
  OX_ASSERT_ON_MAIN_QUEUE();
  listeners_->startUsb();
}

void MainViewController::stop_usb_discover() {
  OX_ASSERT_ON_MAIN_QUEUE();
  listeners_->stopUsb();
}

void MainViewController::start_listen_socket() {
  OX_ASSERT_ON_MAIN_QUEUE();
  listeners_->startTcp();
}

void MainViewController::stop_listen_socket() {
  OX_ASSERT_ON_MAIN_QUEUE();
  listeners_->stopTcp();
}

void MainViewController::udp_broadcast() {
  OX_ASSERT_ON_MAIN_QUEUE();
  prober_->probe();
}

void MainViewController::on_host_detected(const HostRecord& record) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!hosts_.add(record)) {
    if (liveVC_) config_.screen->update_ui_for_discovered();
    return;
  }
  if (!hostDetected_) {
    hostDetected_ = true;
    set_current_host(record);
  }
  timers_.cancelLastHostAttempt();
  timers_.settle(kHostDetectSettle, weakTask(weak_from_this(), [](MainViewController& self) {
                   self.host_detect_finished();
                 }));
}

void MainViewController::on_host_removed(const HostRecord& record) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!hosts_.remove(record)) return;
  if (liveVC_) return;
  if (hosts_.empty()) {
    discover();
    return;
  }
  if (hosts_.size() == 1) set_current_host(hosts_.hosts().front());
  config_.screen->update_ui_for_discovered();
}

void MainViewController::serviceSearchDidLoseService(const std::string& name, bool moreComing) {
  if (liveVC_ && hostName_ == name) return;
  auto host = hosts_.findNamed(name);
  if (!host) return;
  if (moreComing) {
    hosts_.eraseFirstNamed(name);
    return;
  }
  on_host_removed(*host);
}

void MainViewController::host_detect_finished() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (hosts_.size() == 1) set_current_host(hosts_.hosts().front());
  stop_discover(false);
  config_.screen->update_ui_for_discovered();
  if (!autoStart_ || liveVC_ || !config_.screen->isViewInWindow()) return;
  if (usbConnected_ || hosts_.size() == 1) {
    connectToHost();
    return;
  }
  auto defaults = UserDefaults::standard();
  auto lastIP = defaults->stringForKey(keys::lastHostIP);
  auto lastName = defaults->stringForKey(keys::lastHostName);
  auto last = lastIP && lastName ? hosts_.find(*lastIP, *lastName) : std::nullopt;
  if (!last) {
    choose_host();
    return;
  }
  set_current_host(last);
  connectToHost();
}

void MainViewController::set_current_host(const std::optional<HostRecord>& record) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!record) {
    hostName_.reset();
    hostIP_.reset();
    hostPort_ = 0;
    hostConnected_ = false;
    return;
  }
  hostName_ = record->name;
  hostIP_ = record->ip;
  hostPort_ = record->port == 0 ? kDefaultHostPort : record->port;
}

void MainViewController::connect_last_host() {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto defaults = UserDefaults::standard();
  hostIP_ = defaults->stringForKey(keys::lastHostIP);
  if (!hostIP_) return;
  hostName_ = defaults->stringForKey(keys::lastHostName);
  hostPort_ = defaults->integerForKey(keys::lastHostPort);
  if (hostPort_ >= 1) {
    oxlog("MAIN - 尝试重连上次主机！");
    connectToHost();
  }
}

bool MainViewController::connectToHost() {
  OX_ASSERT_ON_MAIN_QUEUE();
  hostConnected_ = false;
  if (usbPeer_ && usbPeer_->isConnected()) {
    hostConnected_ = true;
    handShake();
    return true;
  }
  if (!hostIP_ || hostPort_ == 0) return false;
  if (tcp_) tcp_->close();
  tcp_ = ClientHandshake::create(weak_from_this());
  OptionalError error;
  auto carrier =
      config_.connector(*hostIP_, static_cast<uint16_t>(hostPort_), kConnectTimeout, tcp_, error);
  if (!carrier) {
    config_.screen->showError(error ? error->description : std::string());
    tcp_.reset();
    return false;
  }
  tcp_->attach(std::move(carrier));
  return true;
}

void MainViewController::choose_host() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (hosts_.empty() || liveVC_) return;
  auto hosts = hosts_.hosts();
  config_.screen->chooseHost(hosts, [weak = weak_from_this(), hosts](std::optional<size_t> index) {
    auto self = weak.lock();
    if (!self) return;
    if (!index || *index >= hosts.size()) {
      self->autoStart_ = false;
      return;
    }
    self->set_current_host(hosts[*index]);
    self->connectToHost();
  });
}

void MainViewController::connectViaIPAndPort(const std::string& ip, long long port) {
  OX_ASSERT_ON_MAIN_QUEUE();
  hostIP_ = ip;
  hostPort_ = port;
  hostName_ = "Unknown";
  oxlog("MAIN - Connect by IP directly");
  stop_discover(true);
  timers_.after(kManualConnectDelay, weakTask(weak_from_this(), [ip](MainViewController& self) {
                  self.connectToHost();
                  if (!self.tcp_) return;
                  std::string text = "M_CONNECT_TO " + ip;
                  self.config_.screen->hudShowWithTitleAndIcon(text, "");
                  self.config_.screen->hudHide(kManualHudSeconds);
                  self.config_.screen->showInfo(text);
                }));
}

void MainViewController::connectManually(const std::string& address,
                                         const std::string& instanceText) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (address.empty()) return;
  connectViaIPAndPort(address, portForInstanceText(instanceText));
}

void MainViewController::refresh() {
  OX_ASSERT_ON_MAIN_QUEUE();
  autoStart_ = autoConnect();
  config_.screen->showInfo("");
  stop_discover(true);
  perform(kRefreshDelay, &MainViewController::discover);
}

void MainViewController::optionsDidDismiss() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!autoStart_) return;
  if (hostDetected_) {
    connectToHost();
  } else {
    discover();
  }
}

ClientHandshake* MainViewController::greetedConnection() const {
  if (usbPeer_ && usbPeer_->isConnected()) return usbPeer_.get();
  return tcp_.get();
}

void MainViewController::handShake() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!hostConnected_) return;
  if (auto* connection = greetedConnection()) connection->sendHello();
}

void MainViewController::showLiveView() {
  OX_ASSERT_ON_MAIN_QUEUE();
  config_.screen->dismissPresented();
  if (hostIP_) HostList::remember(hostName_.value_or(""), *hostIP_, hostPort_);
  liveVC_ = config_.presenter->presentLiveScreen(shared_from_this());
}

void MainViewController::prepareLiveView(LiveViewChannelTarget& view) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (hostConnected_) {
    view.setHostIP(hostIP_.value_or(""));
    view.setHostPort(hostPort_);
    // The network connection wins if both exist.
    auto& handedOver = tcp_ ? tcp_ : usbPeer_;
    if (handedOver) {
      view.setCarrier(handedOver->takeCarrier());
      handedOver.reset();
    }
  }
  stop_discover(true);
  timers_.cancelAll();
}

void MainViewController::viewWillAppear() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!liveVC_) return;
  liveVC_.reset();
  onLiveViewClosed();
}

void MainViewController::onLiveViewClosed() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (usbPeer_ && usbPeer_->isConnected()) usbPeer_->close();
  usbPeer_.reset();
}

void MainViewController::liveViewRestart() {
  OX_ASSERT_ON_MAIN_QUEUE();
  autoStart_ = true;
  hostConnected_ = false;
}

void MainViewController::liveViewConnectionLost() {
  OX_ASSERT_ON_MAIN_QUEUE();
  autoStart_ = config_.lifecycle->applicationState() == ApplicationState::active;
  hostConnected_ = false;
  hostDetected_ = false;
}

void MainViewController::liveViewUserClose(bool byUser) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!hostConnected_) return;
  keepAwake(true);
  autoStart_ = false;
  hostConnected_ = false;
  start_listen_socket();
  if (!byUser && usbPlugged_) usb_discover();
}

void MainViewController::viewDidAppear() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (hostDetected_ && autoStart_) {
    connectToHost();
    return;
  }
  if (!hostDetected_ && (!usbConnected_ || autoStart_)) {
    discover();
    return;
  }
  config_.screen->update_ui_for_discover(false);
  config_.screen->update_ui_for_discovered();
  if (prober_->isBroadcasting()) return;
  hosts_.removeUdpEntries();
  prober_->start();
}

void MainViewController::viewDidDisappear() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (hostDiscovering_) stop_discover(true);
}

void MainViewController::onReachabilityChanged() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (liveVC_) return;
  if (config_.reachability->isReachableViaWiFi()) {
    discover();
  } else {
    stop_discover(true);
  }
}

void MainViewController::OnDeviceBatteryStateChanged(bool byNotification) {
  OX_ASSERT_ON_MAIN_QUEUE();
  switch (config_.battery->batteryState()) {
    case BatteryState::unplugged:
      usbPlugged_ = false;
      usbConnected_ = false;
      if (byNotification && !liveVC_) {
        stop_usb_discover();
        discover();
      }
      break;
    case BatteryState::charging:
    case BatteryState::full:
      usbPlugged_ = true;
      if (byNotification && !liveVC_) discover();
      break;
    case BatteryState::unknown:
      break;
  }
}

void MainViewController::appDidEnterBackground() {
  OX_ASSERT_ON_MAIN_QUEUE();
  enter_background_time_ = MainQueue::get()->clock().now();
  autoStart_ = false;
  stop_discover(true);
  serviceSearch_->stopBrowser();
  if (!hostDetected_ && !usbConnected_) config_.screen->showInfo("");
}

void MainViewController::appWillEnterForeground() {
  OX_ASSERT_ON_MAIN_QUEUE();
  config_.battery->setBatteryMonitoringEnabled(true);
  if (!liveVC_) autoStart_ = autoConnect();
  double away = enter_background_time_ ? MainQueue::get()->clock().now() - *enter_background_time_
                                       : kShortBackground;
  if ((hostDetected_ || usbConnected_) && away < kShortBackground) return;
  discover();
  checkLocalNetworkPermission();
}

void MainViewController::checkLocalNetworkPermission() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!config_.reachability->isReachableViaWiFi()) return;
  LocalNetworkAuthorization authorization;
  std::weak_ptr<MainViewController> weak = weak_from_this();
  authorization.requestAuthorizationWithCompletionHandler([weak](bool granted) {
    if (granted) return;
    postAfterWeak(*MainQueue::get(), kLanAlertDelay, weak,
                  [](MainViewController& self) { self.config_.screen->showError("M_LAN_ALERT"); });
  });
}

// ---- Connections ----

void MainViewController::handshakeDidConnect(ClientHandshake* handshake) {
  if (handshake != tcp_.get()) return;
  config_.screen->hudHide();
  hostConnected_ = true;
  handShake();
}

void MainViewController::handshakeDidReceiveHostInfo(ClientHandshake*, long long port,
                                                     const std::string& name) {
  hostPort_ = port;
  hostName_ = name;
  hostDetected_ = true;
}

void MainViewController::handshakeDidReceiveStart(ClientHandshake*) { showLiveView(); }

void MainViewController::handshakeDidEnd(ClientHandshake* handshake, const OptionalError& error) {
  if (handshake == usbPeer_.get()) {
    oxlog("ioFrameChannel didEndWithError:{}", error ? error->toString() : "(null)");
    usbPeer_.reset();
    return;
  }
  if (handshake != tcp_.get() || liveVC_) {
    config_.screen->hudHide();
    return;
  }
  onTcpEnded(error);
}

// A TCP connection that ended before the live screen exists.
void MainViewController::onTcpEnded(const OptionalError& error) {
  config_.screen->hudHide();
  if (!hostDetected_) {
    if (hostName_ == "Unknown") {
      config_.screen->showError(error ? error->description : "A_ERROR");
    } else {
      oxlog("MAIN - 重连上次主机失败！");
    }
    set_current_host(std::nullopt);
  }
  if (error && hostDetected_ && config_.screen->isPlayState() && !usbPeer_) {
    config_.screen->showError(error->description);
  }
  tcp_.reset();
  perform(kRediscoverAfterLoss, &MainViewController::discover);
}

void MainViewController::listenersDidAcceptTcp(std::shared_ptr<Carrier> carrier,
                                               const std::string& peer) {
  hostIP_ = peer;
  hostName_ = "Unknown";
  hostPort_ = kDefaultHostPort;  // the host's own port, whatever this connection came from
  if (tcp_) return;              // a second caller is not kept
  tcp_ = ClientHandshake::create(weak_from_this());
  tcp_->attach(std::move(carrier));
  config_.screen->hudHide();
  hostConnected_ = true;
  handShake();
}

void MainViewController::listenersDidAcceptUsb(std::shared_ptr<Carrier> carrier) {
  if (usbPeer_) return;  // the first peer stays
  usbPeer_ = ClientHandshake::create(weak_from_this());
  usbPeer_->attach(std::move(carrier));
  usbConnected_ = true;
  stop_discover(true);
  autoStart_ = true;
  host_detect_finished();
}

}  // namespace oxelo
