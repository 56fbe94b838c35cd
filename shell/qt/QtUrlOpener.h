#pragma once

#include "shell/web/UrlOpener.h"

namespace oxelo {

// Hands web and mail addresses to the desktop (QDesktopServices, which runs
// xdg-open on Linux). Where nothing takes the address it says so in the log
// and answers false. GUI thread.
class QtUrlOpener final : public UrlOpener {
 public:
  bool openUrl(const std::string& url) override;
};

}  // namespace oxelo
