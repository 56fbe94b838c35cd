#pragma once

#include <memory>
#include <string>

#include "discovery/LiveScreen.h"

namespace oxelo {

// The live screen with no display. It takes the greeted channel over from
// the main screen and keeps it (the stream runs over it). Main queue.
class HeadlessLiveScreen final : public LiveViewController,
                                 public LiveViewChannelTarget,
                                 public std::enable_shared_from_this<HeadlessLiveScreen> {
 public:
  // viewDidLoad: asks the main screen for the channel.
  void open(std::shared_ptr<MainViewController> mainVC);

  void setHostIP(const std::string& ip) override { hostIP_ = ip; }
  void setHostPort(long long port) override { hostPort_ = port; }
  void setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) override;
  void setUsbChannel(std::shared_ptr<PTChannel> channel) override;

  const std::string& hostIP() const { return hostIP_; }
  long long hostPort() const { return hostPort_; }
  bool hasChannel() const { return socket_ || channel_; }

 private:
  std::weak_ptr<MainViewController> mainVC_;
  std::string hostIP_;
  long long hostPort_ = 0;
  std::shared_ptr<GCDAsyncSocket> socket_;
  std::shared_ptr<PTChannel> channel_;
};

// Presents the headless live screen.
class HeadlessLivePresenter final : public LiveScreenPresenter {
 public:
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<MainViewController> mainVC) override;
  std::shared_ptr<HeadlessLiveScreen> current() const { return current_.lock(); }

 private:
  std::weak_ptr<HeadlessLiveScreen> current_;
};

}  // namespace oxelo
