#pragma once

#include <memory>
#include <string>

namespace oxelo {

class Carrier;

// What the live view takes over from the main screen at the hand-over: the
// host's address and the connection, already greeted. Main queue.
class LiveViewChannelTarget {
 public:
  virtual ~LiveViewChannelTarget() = default;
  virtual void setHostIP(const std::string& ip) = 0;
  virtual void setHostPort(long long port) = 0;
  virtual void setCarrier(std::shared_ptr<Carrier> carrier) = 0;
};

// The live screen as the main screen sees it while it exists. Main queue.
class LiveViewController {
 public:
  virtual ~LiveViewController() = default;
};

// The main screen as the live screen sees it: the hand-over, how the
// session ended, and the main screen's appearing again. Main queue.
class LiveScreenOwner {
 public:
  virtual ~LiveScreenOwner() = default;
  // Gives the greeted connection to `view` and ends the search.
  virtual void prepareLiveView(LiveViewChannelTarget& view) = 0;
  // The host asked for a new session on the same host.
  virtual void liveViewRestart() = 0;
  // The connection to the host was lost.
  virtual void liveViewConnectionLost() = 0;
  // The user (true) or the host (false) closed the session.
  virtual void liveViewUserClose(bool byUser) = 0;
  // The live screen has closed: the main screen shows again.
  virtual void viewWillAppear() = 0;
  virtual void viewDidAppear() = 0;
};

// Opens the live screen ("segueToLive"). The new screen, once it has its
// live view, calls the owner's prepareLiveView with it. Main queue.
class LiveScreenPresenter {
 public:
  virtual ~LiveScreenPresenter() = default;
  virtual std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<LiveScreenOwner> owner) = 0;
};

}  // namespace oxelo
