#pragma once

#include <optional>
#include <string>

namespace oxelo {

// The in-app browser without its web view: what it shows when it appears,
// the state of its history buttons and of the activity indicator, its title,
// and how it closes. The Qt layer drives a web view and tells this class
// what the view reports; an address, rather than load in the window, goes to
// the system's browser through a UrlOpener. Main queue.
class WebBrowser {
 public:
  // What to show: an address to load, or a page's text with no base address.
  struct Content {
    std::optional<std::string> url;
    std::string html;
  };

  // `url`: the address the presenting screen set; none for the built-in page.
  explicit WebBrowser(std::optional<std::string> url) : url_(std::move(url)) {}

  // On appearing: the address, else the built-in page `builtInHtml`.
  Content contentToShow(const std::string& builtInHtml) const;

  // The view's navigation events: the history buttons follow the view, the
  // indicator runs from a start to a finish or a failure (which shows no
  // message). Disappearing stops the loading and the indicator.
  void navigationStarted(bool canGoBack, bool canGoForward);
  void navigationFinished(bool canGoBack, bool canGoForward);
  void navigationFailed() { activity_ = false; }
  void disappeared() { activity_ = false; }

  bool backEnabled() const { return backEnabled_; }
  bool forwardEnabled() const { return forwardEnabled_; }
  bool activityIndicator() const { return activity_; }

  // The page's title changed: the screen takes the new one when it differs
  // from the old. Answers whether it did.
  bool titleChanged(const std::string& oldTitle, const std::string& newTitle);
  const std::string& title() const { return title_; }

  // The close button: a browser that is the only screen of its stack closes
  // the stack, else it goes back one level.
  enum class Close { dismiss, pop };
  static Close closeAction(size_t screensOnStack) {
    return screensOnStack < 2 ? Close::dismiss : Close::pop;
  }

 private:
  std::optional<std::string> url_;
  bool backEnabled_ = false;
  bool forwardEnabled_ = false;
  bool activity_ = false;
  std::string title_;
};

}  // namespace oxelo
