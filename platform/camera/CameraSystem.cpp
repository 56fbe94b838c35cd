#include "platform/camera/CameraSystem.h"

#include <mutex>

namespace oxelo {

namespace {

std::mutex gCurrentMutex;
std::shared_ptr<CameraSystem>& currentSlot() {
  static std::shared_ptr<CameraSystem> system;
  return system;
}

bool matches(const CaptureDevice& d, const std::string& type, const std::string& mediaType,
             AVCaptureDevicePosition position) {
  if (d.deviceType() != type || !d.hasMediaType(mediaType)) return false;
  return position == AVCaptureDevicePositionUnspecified || d.position() == position;
}

}  // namespace

CameraSystem::CameraSystem(std::string backend, std::vector<std::shared_ptr<CaptureDevice>> devices,
                           std::vector<CameraProblem> unavailable)
    : backend_(std::move(backend)),
      devices_(std::move(devices)),
      unavailable_(std::move(unavailable)) {}

std::shared_ptr<CameraSystem> CameraSystem::current() {
  std::lock_guard lock(gCurrentMutex);
  auto& slot = currentSlot();
  if (!slot)
    slot = std::make_shared<CameraSystem>("none", std::vector<std::shared_ptr<CaptureDevice>>{});
  return slot;
}

void CameraSystem::setCurrent(std::shared_ptr<CameraSystem> system) {
  std::lock_guard lock(gCurrentMutex);
  currentSlot() = std::move(system);
}

std::shared_ptr<CaptureDevice> CameraSystem::defaultDeviceWithDeviceType(
    const std::string& deviceType, const std::string& mediaType,
    AVCaptureDevicePosition position) const {
  for (const auto& d : devices_) {
    if (matches(*d, deviceType, mediaType, position)) return d;
  }
  return nullptr;
}

std::shared_ptr<CaptureDevice> CameraSystem::deviceWithUniqueID(const std::string& uniqueID) const {
  for (const auto& d : devices_) {
    if (d->uniqueID() == uniqueID) return d;
  }
  return nullptr;
}

CaptureDeviceDiscoverySession CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
    const std::vector<std::string>& deviceTypes, const std::string& mediaType,
    AVCaptureDevicePosition position, std::shared_ptr<CameraSystem> system) {
  if (!system) system = CameraSystem::current();
  CaptureDeviceDiscoverySession session;
  for (const auto& type : deviceTypes) {
    for (const auto& d : system->devices()) {
      if (!matches(*d, type, mediaType, position)) continue;
      bool listed = false;
      for (const auto& have : session.devices_) listed = listed || have == d;
      if (!listed) session.devices_.push_back(d);
    }
  }
  return session;
}

}  // namespace oxelo
