// The settings file as the program finds it at start-up: any bytes. The store
// must load it or keep it aside, every typed read of every key must give a
// value, and the session configuration read from it must come out whole.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "media/ConfigurationFromSettings.h"
#include "platform/camera/CameraSystem.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

using namespace oxelo;
namespace fs = std::filesystem;

namespace {

// The application's registered defaults, for the keys the configuration reads.
const char* const kDefaults = R"({"videoPortrait": false, "videoSize": 4, "videoWidth": 1280,
    "videoHeight": 720, "videoFPS": 30, "videoQuality": 1, "videoEncoder": 0, "audioFormat": 1,
    "audioQuality": 1, "backCameraType": 0, "zoomScale": 1.0, "exposureTargetBias": 0.0})";

// A folder of this process's own, in memory where the system offers it: the
// store writes and renames there at every input.
fs::path workDirectory() {
  std::error_code ec;
  fs::path base =
      fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
  fs::path dir = base / ("oxelo-fuzz-settings-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  return dir;
}

void readEveryWay(const UserDefaults& d, const std::string& key) {
  (void)d.objectForKey(key);
  (void)d.boolForKey(key);
  (void)d.integerForKey(key);
  (void)d.doubleForKey(key);
  (void)d.floatForKey(key);
  (void)d.stringForKey(key);
  OX_FUZZ_CHECK(d.arrayForKey(key).is_array());
  OX_FUZZ_CHECK(d.dictionaryForKey(key).is_object());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  for (auto& spec : defaultVirtualCameras()) devices.push_back(makeVirtualCamera(std::move(spec)));
  CameraSystem::setCurrent(std::make_shared<CameraSystem>("virtual", std::move(devices)));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fs::path dir = workDirectory();
  for (const auto& entry : fs::directory_iterator(dir)) fs::remove(entry.path());
  {
    std::ofstream out(dir / "settings.json", std::ios::binary);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  static const auto registered = nlohmann::json::parse(kDefaults);
  auto defaults = std::make_shared<UserDefaults>(dir);
  defaults->registerDefaults(registered);
  UserDefaults::setStandard(defaults);

  auto parsed = nlohmann::json::parse(data, data + size, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_object()) {
    for (const auto& item : parsed.items()) readEveryWay(*defaults, item.key());
  } else {
    // Not a settings document: kept aside, and the store starts empty.
    OX_FUZZ_CHECK(!fs::exists(dir / "settings.json"));
  }
  for (const auto& item : registered.items()) readEveryWay(*defaults, item.key());

  for (int64_t orientation : {1, 3}) {
    auto c = configurationFromSettings(orientation);
    OX_FUZZ_CHECK(c.video && c.audio);
  }
  UserDefaults::setStandard(nullptr);
  return 0;
}
