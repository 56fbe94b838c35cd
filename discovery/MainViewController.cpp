#include "discovery/MainViewController.h"

#include <algorithm>

#include "discovery/LocalNetworkAuthorization.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
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
  return std::shared_ptr<MainViewController>(new MainViewController(std::move(services)));
}

MainViewController::MainViewController(Services services) : services_(std::move(services)) {
  if (!services_.reachability) services_.reachability = Reachability::reachabilityForLocalWiFi();
  if (!services_.battery) services_.battery = BatteryMonitor::shared();
  if (!services_.lifecycle) services_.lifecycle = AppLifecycle::shared();
}

MainViewController::~MainViewController() = default;

TimerHandle MainViewController::perform(double delay, void (MainViewController::*method)()) {
  std::weak_ptr<MainViewController> weak = weak_from_this();
  auto handle = MainQueue::postAfter(delay, [weak, method] {
    if (auto self = weak.lock()) ((*self).*method)();
  });
  std::erase_if(performRequests_, [](const TimerHandle& h) { return h.isCancelled(); });
  performRequests_.push_back(handle);
  return handle;
}

void MainViewController::cancelPerformRequests() {
  for (auto& h : performRequests_) h.cancel();
  performRequests_.clear();
  hostDetectFinishedRequest_.cancel();
}

void MainViewController::startWatching() {
  std::weak_ptr<MainViewController> weak = weak_from_this();
  reachabilitySub_ = services_.reachability->addChangeListener([weak] {
    if (auto self = weak.lock()) self->onReachabilityChanged();
  });
  services_.reachability->startNotifier();
  batterySub_ = services_.battery->addListener([weak](BatteryEvent event) {
    auto self = weak.lock();
    if (self && event == BatteryEvent::stateDidChange) self->OnDeviceBatteryStateChanged(true);
  });
  services_.battery->setBatteryMonitoringEnabled(true);
  lifecycleSub_ = services_.lifecycle->addListener([weak](LifecycleEvent event) {
    auto self = weak.lock();
    if (!self) return;
    if (event == LifecycleEvent::didEnterBackground) self->appDidEnterBackground();
    if (event == LifecycleEvent::willEnterForeground) self->appWillEnterForeground();
  });
}

void MainViewController::viewDidLoad() {
  arr_services_.clear();
  arr_hosts_.clear();
  autoStart_ = autoConnect();
  startWatching();
  OnDeviceBatteryStateChanged(false);
  checkLocalNetworkPermission();
}

void MainViewController::shutdown() {
  cancelPerformRequests();
  if (connect_last_host_block_) connect_last_host_block_->cancel();
  connect_last_host_block_.reset();
  stop_discover(true);
  if (service_browser_) {
    service_browser_->setDelegate({});
    service_browser_->stop();
    service_browser_.reset();
  }
  if (usbPeerChannel_) {
    usbPeerChannel_->setDelegate({});
    usbPeerChannel_->close();
    usbPeerChannel_.reset();
  }
  reachabilitySub_.reset();
  batterySub_.reset();
  lifecycleSub_.reset();
  services_.reachability->stopNotifier();
}

bool MainViewController::autoConnect() const {
  return UserDefaults::standard()->boolForKey(keys::autoConnect);
}

void MainViewController::keepAwake(bool awake) { services_.screen->setIdleTimerDisabled(awake); }

void MainViewController::discover() {
  if (!services_.reachability->isReachableViaWiFi() && !usbPlugged_) {
    services_.screen->update_ui_for_discover(false);
    return;
  }
  keepAwake(false);
  set_current_host(std::nullopt);
  hostDetected_ = false;
  hostDiscovering_ = true;
  usbConnected_ = false;
  services_.screen->update_ui_for_discover(true);
  if (usbPlugged_) {
    usb_discover();
    perform(kNetDiscoverBehindUsb, &MainViewController::net_discover);
  } else {
    net_discover();
  }
  start_listen_socket();
}

void MainViewController::net_discover() {
  if (!services_.reachability->isReachableViaWiFi() || usbConnected_) return;
  dropServices();
  arr_hosts_.clear();
  startServiceSearch();
  if (!udpBroadcastTimer_) startBroadcastTimer();
  // The attempt at the last host: rescheduled on every call.
  if (connect_last_host_block_) connect_last_host_block_->cancel();
  std::weak_ptr<MainViewController> weak = weak_from_this();
  connect_last_host_block_ = MainQueue::postAfter(kLastHostAttempt, [weak] {
    auto self = weak.lock();
    if (!self) return;
    if (!self->hostDetected_ && self->hostDiscovering_ && !self->asyncSocket_) {
      self->connect_last_host();
    }
  });
}

void MainViewController::startBroadcastTimer() {
  std::weak_ptr<MainViewController> weak = weak_from_this();
  udpBroadcastTimer_ = std::make_unique<RepeatingTimer>(MainQueue::get(), 5.0, [weak] {
    if (auto self = weak.lock()) self->udp_broadcast();
  });
  udpBroadcastTimer_->fire();
}

void MainViewController::stop_discover(bool all) {
  hostDiscovering_ = false;
  if (all) {
    stop_usb_discover();
    stop_net_discover();
    stop_listen_socket();
  }
  services_.screen->update_ui_for_discover(false);
}

void MainViewController::stop_net_discover() {
  for (auto& service : arr_services_) service->stop();
  if (udpBroadcastTimer_) {
    udpBroadcastTimer_->invalidate();
    udpBroadcastTimer_.reset();
  }
  if (asyncUdpSocket_) {
    asyncUdpSocket_->setDelegate({});
    asyncUdpSocket_->close();
    asyncUdpSocket_.reset();
  }
  if (asyncSocket_) {
    asyncSocket_->setDelegate({});
    asyncSocket_->disconnect();
    asyncSocket_.reset();
  }
}

void MainViewController::on_host_detected(const HostRecord& record) {
  for (const auto& host : arr_hosts_) {
    if (!isSameHost(host, record)) continue;
    oxlog("Host {} already exists!", record.name);
    if (liveVC_) services_.screen->update_ui_for_discovered();
    return;
  }
  arr_hosts_.push_back(record);
  if (!hostDetected_) {
    hostDetected_ = true;
    set_current_host(record);
  }
  if (connect_last_host_block_) {
    connect_last_host_block_->cancel();
    connect_last_host_block_.reset();
  }
  scheduleHostDetectFinished();
}

void MainViewController::scheduleHostDetectFinished() {
  hostDetectFinishedRequest_.cancel();
  hostDetectFinishedRequest_ =
      perform(kHostDetectSettle, &MainViewController::host_detect_finished);
}

void MainViewController::on_host_removed(const HostRecord& record) {
  auto same = std::find_if(arr_hosts_.begin(), arr_hosts_.end(),
                           [&](const HostRecord& h) { return isSameHost(h, record); });
  if (same == arr_hosts_.end()) return;
  std::erase(arr_hosts_, record);
  if (liveVC_) return;
  if (arr_hosts_.empty()) {
    discover();
    return;
  }
  if (arr_hosts_.size() == 1) set_current_host(arr_hosts_.front());
  services_.screen->update_ui_for_discovered();
}

void MainViewController::host_detect_finished() {
  if (arr_hosts_.size() == 1) set_current_host(arr_hosts_.front());
  stop_discover(false);
  services_.screen->update_ui_for_discovered();
  if (!autoStart_ || liveVC_ || !services_.screen->isViewInWindow()) return;
  if (usbConnected_ || arr_hosts_.size() == 1) {
    connectToHost();
    return;
  }
  auto defaults = UserDefaults::standard();
  auto lastIP = defaults->stringForKey(keys::lastHostIP);
  auto lastName = defaults->stringForKey(keys::lastHostName);
  if (!lastIP || !lastName) {
    choose_host();
    return;
  }
  for (const auto& host : arr_hosts_) {
    if (host.ip == *lastIP && host.name == *lastName) {
      set_current_host(host);
      connectToHost();
      return;
    }
  }
  choose_host();
}

void MainViewController::set_current_host(const std::optional<HostRecord>& record) {
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
  hostConnected_ = false;
  if (usbPeerChannel_ && usbPeerChannel_->isConnected()) {
    hostConnected_ = true;
    handShake();
    return true;
  }
  if (!hostIP_ || hostPort_ == 0) return false;
  if (asyncSocket_) {
    asyncSocket_->setDelegate({});
    asyncSocket_->disconnect();
  }
  asyncSocket_ = GCDAsyncSocket::create(weak_from_this(), MainQueue::get());
  OptionalError error;
  if (!asyncSocket_->connectToHost(*hostIP_, static_cast<uint16_t>(hostPort_), kConnectTimeout,
                                   error)) {
    services_.screen->showError(error ? error->description : std::string());
    asyncSocket_->setDelegate({});
    asyncSocket_->disconnect();
    asyncSocket_.reset();
    return false;
  }
  return asyncSocket_ != nullptr;
}

void MainViewController::choose_host() {
  if (arr_hosts_.empty() || liveVC_) return;
  std::weak_ptr<MainViewController> weak = weak_from_this();
  auto hosts = arr_hosts_;
  services_.screen->chooseHost(hosts, [weak, hosts](std::optional<size_t> index) {
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
  hostIP_ = ip;
  hostPort_ = port;
  hostName_ = "Unknown";
  oxlog("MAIN - Connect by IP directly");
  stop_discover(true);
  std::weak_ptr<MainViewController> weak = weak_from_this();
  auto handle = MainQueue::postAfter(kManualConnectDelay, [weak, ip] {
    auto self = weak.lock();
    if (!self) return;
    self->connectToHost();
    if (!self->asyncSocket_) return;
    std::string text = "M_CONNECT_TO " + ip;
    self->services_.screen->hudShowWithTitleAndIcon(text, "");
    self->services_.screen->hudHide(kManualHudSeconds);
    self->services_.screen->showInfo(text);
  });
  performRequests_.push_back(handle);
}

void MainViewController::connectManually(const std::string& address,
                                         const std::string& instanceText) {
  if (address.empty()) return;
  connectViaIPAndPort(address, portForInstanceText(instanceText));
}

void MainViewController::refresh() {
  autoStart_ = autoConnect();
  services_.screen->showInfo("");
  stop_discover(true);
  perform(kRefreshDelay, &MainViewController::discover);
}

void MainViewController::optionsDidDismiss() {
  if (!autoStart_) return;
  if (hostDetected_) {
    connectToHost();
  } else {
    discover();
  }
}

void MainViewController::showLiveView() {
  services_.screen->dismissPresented();
  if (hostIP_) {
    auto defaults = UserDefaults::standard();
    std::string name = hostName_.value_or("");
    defaults->setString(keys::lastHostName, name);
    defaults->setString(keys::lastHostIP, *hostIP_);
    defaults->setInteger(keys::lastHostPort, hostPort_);
    defaults->setObject(
        keys::hostHistory,
        updatedHostHistory(defaults->objectForKey(keys::hostHistory), name, *hostIP_, hostPort_));
  }
  liveVC_ = services_.presenter->presentLiveScreen(shared_from_this());
}

void MainViewController::prepareLiveView(LiveViewChannelTarget& view) {
  if (hostConnected_) {
    view.setHostIP(hostIP_.value_or(""));
    view.setHostPort(hostPort_);
    if (asyncSocket_) {
      asyncSocket_->setDelegate({});
      view.setAsyncSocket(std::move(asyncSocket_));
      asyncSocket_.reset();
    } else if (usbPeerChannel_) {
      usbPeerChannel_->setDelegate({});
      view.setUsbChannel(std::move(usbPeerChannel_));
      usbPeerChannel_.reset();
    }
  }
  stop_discover(true);
  cancelPerformRequests();
}

void MainViewController::viewWillAppear() {
  if (!liveVC_) return;
  liveVC_.reset();
  onLiveViewClosed();
}

void MainViewController::onLiveViewClosed() {
  if (usbPeerChannel_ && usbPeerChannel_->isConnected()) {
    usbPeerChannel_->setDelegate({});
    usbPeerChannel_->close();
  }
  usbPeerChannel_.reset();
}

void MainViewController::liveViewRestart() {
  autoStart_ = true;
  hostConnected_ = false;
}

void MainViewController::liveViewConnectionLost() {
  autoStart_ = services_.lifecycle->applicationState() == ApplicationState::active;
  hostConnected_ = false;
  hostDetected_ = false;
}

void MainViewController::liveViewUserClose(bool byUser) {
  if (!hostConnected_) return;
  keepAwake(true);
  autoStart_ = false;
  hostConnected_ = false;
  start_listen_socket();
  if (!byUser && usbPlugged_) usb_discover();
}

void MainViewController::viewDidAppear() {
  if (hostDetected_ && autoStart_) {
    connectToHost();
    return;
  }
  if (!hostDetected_ && (!usbConnected_ || autoStart_)) {
    discover();
    return;
  }
  services_.screen->update_ui_for_discover(false);
  services_.screen->update_ui_for_discovered();
  if (udpBroadcastTimer_) return;
  std::erase_if(arr_hosts_, [](const HostRecord& h) { return h.udp; });
  startBroadcastTimer();
}

void MainViewController::viewDidDisappear() {
  if (hostDiscovering_) stop_discover(true);
}

void MainViewController::onReachabilityChanged() {
  if (liveVC_) return;
  if (services_.reachability->isReachableViaWiFi()) {
    discover();
  } else {
    stop_discover(true);
  }
}

void MainViewController::OnDeviceBatteryStateChanged(bool byNotification) {
  switch (services_.battery->batteryState()) {
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
  enter_background_time_ = MainQueue::get()->clock().now();
  autoStart_ = false;
  stop_discover(true);
  if (service_browser_) {
    service_browser_->setDelegate({});
    service_browser_->stop();
    service_browser_.reset();
  }
  if (!hostDetected_ && !usbConnected_) services_.screen->showInfo("");
}

void MainViewController::appWillEnterForeground() {
  services_.battery->setBatteryMonitoringEnabled(true);
  if (!liveVC_) autoStart_ = autoConnect();
  double away = enter_background_time_ ? MainQueue::get()->clock().now() - *enter_background_time_
                                       : kShortBackground;
  if ((hostDetected_ || usbConnected_) && away < kShortBackground) return;
  discover();
  checkLocalNetworkPermission();
}

void MainViewController::checkLocalNetworkPermission() {
  if (!services_.reachability->isReachableViaWiFi()) return;
  LocalNetworkAuthorization authorization;
  std::weak_ptr<MainViewController> weak = weak_from_this();
  authorization.requestAuthorizationWithCompletionHandler([weak](bool granted) {
    if (granted) return;
    MainQueue::postAfter(kLanAlertDelay, [weak] {
      if (auto self = weak.lock()) self->services_.screen->showError("M_LAN_ALERT");
    });
  });
}

void MainViewController::socketDidDisconnect(GCDAsyncSocket* sock, const OptionalError& error) {
  if (!asyncSocket_ || asyncSocket_.get() != sock || liveVC_) {
    services_.screen->hudHide();
    return;
  }
  services_.screen->hudHide();
  if (!hostDetected_) {
    if (hostName_ == "Unknown") {
      services_.screen->showError(error ? error->description : "A_ERROR");
    } else {
      oxlog("MAIN - 重连上次主机失败！");
    }
    set_current_host(std::nullopt);
  }
  if (error && hostDetected_ && services_.screen->isPlayState() && !usbPeerChannel_) {
    services_.screen->showError(error->description);
  }
  asyncSocket_.reset();
  perform(kRediscoverAfterLoss, &MainViewController::discover);
}

}  // namespace oxelo
