#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "media/ConfigurationFromSettings.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo::bench {

// The settings store and the cameras of a benchmark, set up as the program
// does at start-up: the registered defaults in a settings file of its own,
// in a temporary directory that goes with the object, and the virtual
// camera set. Becomes the process-wide store and camera set. One per
// process; any thread.
class BenchSettings {
 public:
  // ok() is false, with the reason in error(), when the cameras or the
  // directory could not be had.
  BenchSettings();
  ~BenchSettings();
  BenchSettings(const BenchSettings&) = delete;
  BenchSettings& operator=(const BenchSettings&) = delete;

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  UserDefaults& defaults() { return *defaults_; }

  // The session configuration that the headless live screen builds when the
  // settings ask for `width` x `height` (landscape) at `fps`. None, with the
  // reason in `error`, when no size step gives that size.
  std::optional<LiveSessionConfiguration> configurationFor(int width, int height, int fps,
                                                           std::string& error);

 private:
  std::filesystem::path directory_;
  std::shared_ptr<UserDefaults> defaults_;
  std::string error_;
};

}  // namespace oxelo::bench
