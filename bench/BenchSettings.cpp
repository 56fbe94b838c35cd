#include "bench/BenchSettings.h"

#include <stdlib.h>

#include <algorithm>
#include <sstream>
#include <system_error>

#include "media/LFLiveVideoSessionPreset.h"
#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"

namespace oxelo::bench {

namespace {

// The headless live screen stands as landscape right does.
constexpr int64_t kHeadlessOrientation = 3;

// The size step whose landscape size is `width` x `height`.
std::optional<LFLiveVideoSessionPreset> presetFor(int width, int height) {
  for (LFLiveVideoSessionPreset p = 0; p <= kLFLiveVideoSessionPresetLast; ++p) {
    VideoSize portrait = portraitSizeOfPreset(p);
    if (std::max(portrait.width, portrait.height) == width &&
        std::min(portrait.width, portrait.height) == height)
      return p;
  }
  return std::nullopt;
}

}  // namespace

BenchSettings::BenchSettings() {
  std::string pattern = (std::filesystem::temp_directory_path() / "oxelo-bench-XXXXXX").string();
  if (!mkdtemp(pattern.data())) {
    error_ = "cannot make a temporary settings directory";
    return;
  }
  directory_ = pattern;
  defaults_ = std::make_shared<UserDefaults>(directory_);
  UserDefaults::setStandard(defaults_);
  AppDelegate().applicationDidFinishLaunching(*defaults_);
  std::ostringstream cameraError;
  if (startCameras("virtual", cameraError) != 0)
    error_ = "no virtual cameras: " + cameraError.str();
}

BenchSettings::~BenchSettings() {
  if (directory_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

std::optional<LiveSessionConfiguration> BenchSettings::configurationFor(int width, int height,
                                                                        int fps,
                                                                        std::string& error) {
  auto preset = presetFor(width, height);
  if (!preset) {
    error = "no size step is " + std::to_string(width) + "x" + std::to_string(height);
    return std::nullopt;
  }
  defaults_->setBool(keys::videoPortrait, false);
  defaults_->setInteger(keys::videoSize, static_cast<long long>(*preset));
  defaults_->setInteger(keys::videoFPS, fps);
  auto configuration = configurationFromSettings(kHeadlessOrientation);
  VideoSize size = configuration.video->videoSize();
  if (size.width != width || size.height != height) {
    error = "the virtual camera gives " + std::to_string(static_cast<int>(size.width)) + "x" +
            std::to_string(static_cast<int>(size.height)) + " for that size step";
    return std::nullopt;
  }
  return configuration;
}

}  // namespace oxelo::bench
