#pragma once

#include <nlohmann/json.hpp>

#include "platform/defaults/UserDefaults.h"

namespace oxelo {

// The registered defaults of the settings store: every key that has one, with
// its type and value.
nlohmann::json registeredDefaults();

// The program's version text, stored as settingsVersion at each start.
const char* shortVersionString();

// Start-up of the application, on the main queue.
class AppDelegate {
 public:
  // Registers the defaults (stored values keep precedence), stores
  // settingsVersion and synchronises. Returns true.
  bool applicationDidFinishLaunching(UserDefaults& defaults);
};

}  // namespace oxelo
