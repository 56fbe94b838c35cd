#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// A camera set from a virtual-camera document; fails the test when the
// document is not valid.
inline std::shared_ptr<CameraSystem> camerasFromJson(const nlohmann::json& document) {
  std::string error;
  auto specs = parseVirtualCameras(document, error);
  EXPECT_TRUE(specs.has_value()) << error;
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  if (specs)
    for (auto& s : *specs) devices.push_back(makeVirtualCamera(std::move(s)));
  return std::make_shared<CameraSystem>("virtual", std::move(devices));
}

inline std::shared_ptr<CameraSystem> defaultVirtualCameraSystem() {
  std::vector<std::shared_ptr<CaptureDevice>> devices;
  for (auto& s : defaultVirtualCameras()) devices.push_back(makeVirtualCamera(std::move(s)));
  return std::make_shared<CameraSystem>("virtual", std::move(devices));
}

// One camera of a single format per size, 1 to `rate` frames per second.
inline nlohmann::json cameraJson(
    const char* type, const char* position,
    std::initializer_list<std::pair<std::pair<int, int>, double>> sizes) {
  nlohmann::json formats = nlohmann::json::array();
  for (const auto& [size, rate] : sizes)
    formats.push_back({{"width", size.first}, {"height", size.second}, {"fps", rate}});
  return {{"type", type}, {"position", position}, {"formats", formats}};
}

// Installs a camera set and a settings store in a temporary directory as the
// process-wide ones for one test, and puts back empty ones afterwards.
class CameraAndSettings {
 public:
  explicit CameraAndSettings(std::shared_ptr<CameraSystem> cameras)
      : defaults_(std::make_shared<UserDefaults>(dir_.path())) {
    CameraSystem::setCurrent(std::move(cameras));
    UserDefaults::setStandard(defaults_);
  }
  ~CameraAndSettings() {
    CameraSystem::setCurrent(nullptr);
    UserDefaults::setStandard(nullptr);
  }
  UserDefaults& defaults() { return *defaults_; }
  const std::filesystem::path& directory() const { return dir_.path(); }

 private:
  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
};

}  // namespace oxelo::test
