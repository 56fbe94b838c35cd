#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "discovery/LiveScreen.h"
#include "discovery/MainScreen.h"
#include "discovery/MainViewController.h"
#include "tests/support/FakeCarrier.h"
#include "tests/support/SocketTestSupport.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// Records what the connection flow shows.
class FakeMainScreen : public MainScreen {
 public:
  void update_ui_for_discover(bool discovering) override { discoverStates.push_back(discovering); }
  void update_ui_for_discovered() override { ++discoveredCount; }
  void showInfo(const std::string& text) override { infos.push_back(text); }
  void showError(const std::string& text) override { errors.push_back(text); }
  void hudShowWithTitleAndIcon(const std::string& title, const std::string&) override {
    huds.push_back(title);
  }
  void hudHide(double) override { ++hudHides; }
  void chooseHost(const std::vector<HostRecord>& hosts,
                  std::function<void(std::optional<size_t>)> choice) override {
    choices.emplace_back(hosts, std::move(choice));
  }
  bool isViewInWindow() const override { return inWindow; }

  int discoverTrueCount() const {
    int n = 0;
    for (bool b : discoverStates) n += b;
    return n;
  }

  bool inWindow = true;
  std::vector<bool> discoverStates;
  int discoveredCount = 0;
  std::vector<std::string> infos, errors, huds;
  int hudHides = 0;
  std::vector<std::pair<std::vector<HostRecord>, std::function<void(std::optional<size_t>)>>>
      choices;
};

class FakeLiveScreen : public LiveViewController {};

// Opens a fake live screen and, like the real one, asks the main screen to
// prepare its live view at once.
class FakePresenter : public LiveScreenPresenter, public LiveViewChannelTarget {
 public:
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<LiveScreenOwner> owner) override {
    ++presented;
    if (prepareOnPresent) owner->prepareLiveView(*this);
    return std::make_shared<FakeLiveScreen>();
  }
  void setHostIP(const std::string& ip) override { hostIP = ip; }
  void setHostPort(long long port) override { hostPort = port; }
  void setCarrier(std::shared_ptr<Carrier> c) override { carrier = std::move(c); }

  bool prepareOnPresent = false;
  int presented = 0;
  std::string hostIP;
  long long hostPort = 0;
  std::shared_ptr<Carrier> carrier;
};

// Stands in for TcpCarrier::connect: every attempt gets a fake carrier,
// not yet connected, which the test then connects or ends.
class FakeConnector {
 public:
  struct Attempt {
    std::string host;
    uint16_t port = 0;
    double timeout = 0;
    std::shared_ptr<FakeCarrier> carrier;
  };
  MainViewController::Connector connector() {
    return [this](const std::string& host, uint16_t port, double timeout,
                  std::weak_ptr<CarrierDelegate> delegate,
                  OptionalError&) -> std::shared_ptr<Carrier> {
      auto carrier = std::make_shared<FakeCarrier>(Carrier::Kind::tcp, /*connected=*/false);
      carrier->setDelegate(std::move(delegate));
      attempts.push_back({host, port, timeout, carrier});
      return carrier;
    };
  }
  std::shared_ptr<FakeCarrier> last() const {
    return attempts.empty() ? nullptr : attempts.back().carrier;
  }
  std::vector<Attempt> attempts;
};

// A loopback port on which nothing listens (bound, then closed).
inline uint16_t closedLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  ::close(fd);
  return ntohs(a.sin_port);
}

}  // namespace oxelo::test
