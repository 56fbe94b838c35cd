#pragma once

#include <string>

namespace oxelo {

// Opens a web or mail address outside the program, in the system's browser
// or mail program (xdg-open on a Linux desktop). Main queue.
class UrlOpener {
 public:
  virtual ~UrlOpener() = default;
  // False when nothing could take the address.
  virtual bool openUrl(const std::string& url) = 0;
};

}  // namespace oxelo
