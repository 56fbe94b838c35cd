#pragma once

#include "discovery/MainScreen.h"

namespace oxelo {

// The main screen with no display: every state change becomes a log line,
// and the host choice takes the first host.
class HeadlessMainScreen final : public MainScreen {
 public:
  void update_ui_for_discover(bool discovering) override;
  void update_ui_for_discovered() override;
  void showInfo(const std::string& text) override;
  void showError(const std::string& text) override;
  void hudShowWithTitleAndIcon(const std::string& title, const std::string& icon) override;
  void hudHide(double afterSeconds) override;
  void chooseHost(const std::vector<HostRecord>& hosts,
                  std::function<void(std::optional<size_t>)> choice) override;
  bool isViewInWindow() const override { return true; }
};

}  // namespace oxelo
