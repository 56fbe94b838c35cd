#pragma once

#include <memory>
#include <string>

namespace oxelo {

class GCDAsyncSocket;
class PTChannel;
class MainViewController;

// What the live view takes over from the main screen at the hand-over: the
// host's address and the channel, already greeted. Main queue.
class LiveViewChannelTarget {
 public:
  virtual ~LiveViewChannelTarget() = default;
  virtual void setHostIP(const std::string& ip) = 0;
  virtual void setHostPort(long long port) = 0;
  virtual void setAsyncSocket(std::shared_ptr<GCDAsyncSocket> socket) = 0;
  virtual void setUsbChannel(std::shared_ptr<PTChannel> channel) = 0;
};

// The live screen as the main screen sees it while it exists. Main queue.
class LiveViewController {
 public:
  virtual ~LiveViewController() = default;
};

// Opens the live screen ("segueToLive"). The new screen, once it has its
// live view, calls MainViewController::prepareLiveView with it. Main queue.
class LiveScreenPresenter {
 public:
  virtual ~LiveScreenPresenter() = default;
  virtual std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<MainViewController> mainVC) = 0;
};

}  // namespace oxelo
