#include "shell/web/WebBrowser.h"

namespace oxelo {

WebBrowser::Content WebBrowser::contentToShow(const std::string& builtInHtml) const {
  if (url_) return {url_, {}};
  return {std::nullopt, builtInHtml};
}

void WebBrowser::navigationStarted(bool canGoBack, bool canGoForward) {
  backEnabled_ = canGoBack;
  forwardEnabled_ = canGoForward;
  activity_ = true;
}

void WebBrowser::navigationFinished(bool canGoBack, bool canGoForward) {
  backEnabled_ = canGoBack;
  forwardEnabled_ = canGoForward;
  activity_ = false;
}

bool WebBrowser::titleChanged(const std::string& oldTitle, const std::string& newTitle) {
  if (oldTitle == newTitle) return false;
  title_ = newTitle;
  return true;
}

}  // namespace oxelo
