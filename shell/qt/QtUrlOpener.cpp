#include "shell/qt/QtUrlOpener.h"

#include <QDesktopServices>
#include <QUrl>

#include "platform/log/Log.h"

namespace oxelo {

bool QtUrlOpener::openUrl(const std::string& url) {
  const QUrl address(QString::fromStdString(url), QUrl::StrictMode);
  if (!address.isValid() || address.scheme().isEmpty()) {
    oxlog("Options - not an address: {}", url);
    return false;
  }
  if (QDesktopServices::openUrl(address)) return true;
  oxlog("Options - nothing on this system opens {}", url);
  return false;
}

}  // namespace oxelo
