#include "shell/HeadlessMainScreen.h"

#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo {

void HeadlessMainScreen::update_ui_for_discover(bool discovering) {
  oxlog("MAIN - {}", discovering ? "searching for hosts" : "search ended");
}

void HeadlessMainScreen::update_ui_for_discovered() { oxlog("MAIN - host list changed"); }

void HeadlessMainScreen::showInfo(const std::string& text) {
  if (!text.empty()) oxlog("MAIN - info: {}", text);
}

void HeadlessMainScreen::showError(const std::string& text) { oxlog("MAIN - error: {}", text); }

void HeadlessMainScreen::hudShowWithTitleAndIcon(const std::string& title, const std::string&) {
  oxlog("MAIN - {}", title);
}

void HeadlessMainScreen::hudHide(double) {}

void HeadlessMainScreen::chooseHost(const std::vector<HostRecord>& hosts,
                                    std::function<void(std::optional<size_t>)> choice) {
  if (hosts.empty()) return;
  oxlog("MAIN - {} hosts found, taking the first: {} ({})", hosts.size(), hosts[0].name,
        hosts[0].ip);
  MainQueue::post([choice = std::move(choice)] { choice(0); });
}

}  // namespace oxelo
