#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "discovery/HostRecord.h"

namespace oxelo {

// The screen half of the main screen, as the connection flow drives it. All
// operations run on the main queue. The display front end draws these; the
// headless one writes them to the log.
class MainScreen {
 public:
  virtual ~MainScreen() = default;

  // The search has started (true) or ended (false).
  virtual void update_ui_for_discover(bool discovering) = 0;
  // The host list or the current host changed.
  virtual void update_ui_for_discovered() = 0;
  // The state line: an information or an error text (empty clears it).
  virtual void showInfo(const std::string& text) = 0;
  virtual void showError(const std::string& text) = 0;
  // The progress display: shown with a title, hidden at once or after a delay.
  virtual void hudShowWithTitleAndIcon(const std::string& title, const std::string& icon) = 0;
  virtual void hudHide(double afterSeconds = 0) = 0;
  // The host choice (an action sheet titled M_CONNECT_TO, one action per
  // host in list order, and A_CANCEL). `choice` runs on the main queue with
  // the index chosen, or none for cancel.
  virtual void chooseHost(const std::vector<HostRecord>& hosts,
                          std::function<void(std::optional<size_t>)> choice) = 0;
  // Whether the screen's view is in a window (the screen is showing).
  virtual bool isViewInWindow() const = 0;
  // Whether the add button shows the play state.
  virtual bool isPlayState() const { return false; }
  // Lets the device sleep (false) or keeps it awake (true).
  virtual void setIdleTimerDisabled(bool /*disabled*/) {}
  // Dismisses whatever is presented over the screen.
  virtual void dismissPresented() {}
};

}  // namespace oxelo
