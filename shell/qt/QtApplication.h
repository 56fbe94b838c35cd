#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch/Queue.h"

namespace oxelo {

class EncoderFactory;
class UserDefaults;

// What the window needs from the program's start-up.
struct WindowStart {
  std::shared_ptr<UserDefaults> defaults;  // required
  std::shared_ptr<EncoderFactory> encoders;
  bool hevcDecodeSupported = false;
  bool virtualCamera = false;                 // the simulated camera set is in use
  std::optional<std::string> connectAddress;  // call this host at once
  int instance = 1;
  double duration = -1;  // seconds until the program ends; negative: until closed
  // Starts the taking of the stop signals: `stop` is to be posted to `main`.
  std::function<void(std::shared_ptr<Queue> main, std::function<void()> stop)> startSignals;
};

// Runs `oxelo` with its window: the Qt event loop is the main queue, the
// main page comes first, the live screen on the host's start packet. Returns
// the program's exit status. On the program's main thread.
int runWindow(int argc, char** argv, const WindowStart& start);

}  // namespace oxelo
