#pragma once

#include <string>
#include <vector>

#include "shell/options/OptionsServices.h"
#include "shell/options/OptionsTexts.h"

namespace oxelo::test {

// Records what the options screens ask of their window.
class RecordingOptionsView : public OptionsView, public Haptics, public UrlOpener {
 public:
  std::string text(const std::string& key) override { return optionsText(key); }
  void reloadTable() override { ++reloads; }
  void showAlert(const LiveAlert& alert) override { alerts.push_back(alert); }
  void openAdvanced() override { ++advancedOpened; }
  void share(const ShareItems& items) override { shared.push_back(items); }
  void dismiss() override { ++dismissed; }
  void quit(int status) override { quits.push_back(status); }
  void impact(int style) override { impacts.push_back(style); }
  bool openUrl(const std::string& url) override {
    opened.push_back(url);
    return true;
  }

  int reloads = 0;
  int advancedOpened = 0;
  int dismissed = 0;
  std::vector<LiveAlert> alerts;
  std::vector<std::string> opened;
  std::vector<ShareItems> shared;
  std::vector<int> quits, impacts;
};

}  // namespace oxelo::test
