#include "tests/discovery/support/FlowFixture.h"

#include "platform/defaults/SettingsKeys.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo::test {

void FlowFixture::startFlow(bool autoConnect, const Adjust& adjust) {
  defaults_ = std::make_shared<UserDefaults>(dir_.path());
  defaults_->registerDefaults({{keys::autoConnect, autoConnect}});
  UserDefaults::setStandard(defaults_);
  MainViewController::Services s;
  s.screen = screen_;
  s.presenter = presenter_;
  s.reachability = reachability_;
  s.battery = battery_;
  s.lifecycle = lifecycle_;
  s.browsers = browsers_;
  s.connector = connections_.connector();
  s.listenPort = 0;
  s.usbPort = 0;
  s.probes.udpPort = 0;
  s.probes.probeFirstPort = peer::closedPort();
  s.probes.subnetBroadcast = [] { return std::string(); };
  s.probes.limitedBroadcast = "127.0.0.1";
  if (adjust) adjust(s);
  flow_ = MainViewController::create(std::move(s));
  flow_->viewDidLoad();
  env_.drain();
}

void FlowFixture::TearDown() {
  if (flow_) flow_->shutdown();
  env_.drain();
  UserDefaults::setStandard(nullptr);
}

std::shared_ptr<FakeCarrier> FlowFixture::acceptUsbPeer() {
  auto carrier = std::make_shared<FakeCarrier>(Carrier::Kind::usb);
  flow_->listenersDidAcceptUsb(carrier);
  return carrier;
}

std::shared_ptr<FakeCarrier> FlowFixture::acceptTcp(const std::string& peer) {
  auto carrier = std::make_shared<FakeCarrier>(Carrier::Kind::tcp);
  carrier->peer = peer;
  flow_->listenersDidAcceptTcp(carrier, peer);
  return carrier;
}

}  // namespace oxelo::test
