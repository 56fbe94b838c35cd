#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "discovery/MainViewController.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/discovery/support/FakeServiceBrowser.h"
#include "tests/discovery/support/FlowFakes.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/FakeLifecycle.h"
#include "tests/support/FakeReachability.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// The connection flow with every platform service faked, shared by the
// flow's tests: no Wi-Fi, no cable, the screen in its window, the listeners
// on free loopback ports, the probes towards a loopback port where nothing
// listens, a service browser the test drives, and outgoing connections made
// of fake carriers. The main queue and the clock are the test's.
class FlowFixture : public testing::Test {
 protected:
  using Adjust = std::function<void(MainViewController::Services&)>;

  // Builds the flow with `autoConnect` stored as the default, lets `adjust`
  // change the services, then runs viewDidLoad.
  void startFlow(bool autoConnect = true, const Adjust& adjust = {});
  void TearDown() override;

  // A USB peer arriving on the listener, as a fake carrier.
  std::shared_ptr<FakeCarrier> acceptUsbPeer();
  // A host calling on 5896 from `peer`, as a fake carrier.
  std::shared_ptr<FakeCarrier> acceptTcp(const std::string& peer);

  ManualMain env_;
  TempDir dir_;
  LogCapture log_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<FakeMainScreen> screen_ = std::make_shared<FakeMainScreen>();
  std::shared_ptr<FakePresenter> presenter_ = std::make_shared<FakePresenter>();
  std::shared_ptr<FakeReachability> reachability_ = std::make_shared<FakeReachability>();
  std::shared_ptr<FakeBatteryMonitor> battery_ = std::make_shared<FakeBatteryMonitor>();
  std::shared_ptr<FakeLifecycle> lifecycle_ = std::make_shared<FakeLifecycle>();
  std::shared_ptr<FakeBrowserFactory> browsers_ = std::make_shared<FakeBrowserFactory>();
  FakeConnector connections_;
  std::shared_ptr<MainViewController> flow_;
};

}  // namespace oxelo::test
