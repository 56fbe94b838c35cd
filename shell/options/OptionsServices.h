#pragma once

#include <functional>
#include <string>

#include "live/LiveServices.h"
#include "shell/web/UrlOpener.h"

namespace oxelo {

// What the share action hands to the system: a recommending text, the
// program's store address and the name of the picture that goes with them.
struct ShareItems {
  std::string text;
  std::string url;
  std::string image;
};

// What the options screens ask of the window that shows them; the Qt layer
// provides it, tests record it. Main queue, all of them.
class OptionsView {
 public:
  virtual ~OptionsView() = default;
  // The text of a localisation key in the program's language.
  virtual std::string text(const std::string& key) = 0;
  // The values changed: show every row again.
  virtual void reloadTable() = 0;
  virtual void showAlert(const LiveAlert& alert) = 0;
  // Opens the advanced screen over the options screen.
  virtual void openAdvanced() = 0;
  virtual void share(const ShareItems& items) = 0;
  // Closes the options sheet.
  virtual void dismiss() = 0;
  // Ends the program with `status`; the user starts it again.
  virtual void quit(int status) = 0;
};

}  // namespace oxelo
