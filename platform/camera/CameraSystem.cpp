#include "platform/camera/CameraSystem.h"

#include <mutex>

#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/log/Log.h"

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

std::shared_ptr<CameraSystem> openVirtual(std::string& error) {
  auto devices = openVirtualCameras(error);
  if (!devices) return nullptr;
  return std::make_shared<CameraSystem>("virtual", std::move(*devices));
}

std::string describeProblems(const std::vector<CameraProblem>& problems) {
  std::string text;
  for (const auto& p : problems) text += "; " + p.location + ": " + p.error;
  return text;
}

}  // namespace

CameraSystem::CameraSystem(std::string backend, std::vector<std::shared_ptr<CaptureDevice>> devices,
                           std::vector<CameraProblem> unavailable)
    : backend_(std::move(backend)),
      devices_(std::move(devices)),
      unavailable_(std::move(unavailable)) {}

std::shared_ptr<CameraSystem> CameraSystem::open(const std::string& source, std::string& error) {
  if (source == "virtual") return openVirtual(error);
  if (source == "v4l2" || source.rfind("v4l2:", 0) == 0) {
    std::string node = source.size() > 5 ? source.substr(5) : "";
    if (source == "v4l2:") {
      error = "--camera v4l2: needs a device, as in v4l2:/dev/video0";
      return nullptr;
    }
    auto found = node.empty() ? enumerateV4l2Cameras() : enumerateV4l2Camera(node);
    if (found.devices.empty()) {
      if (!node.empty() && !found.problems.empty()) {
        error = "cannot use the V4L2 camera " + found.problems.front().location + ": " +
                found.problems.front().error;
      } else {
        error = "no usable V4L2 camera found under /dev" + describeProblems(found.problems);
      }
      return nullptr;
    }
    return std::make_shared<CameraSystem>("v4l2", std::move(found.devices),
                                          std::move(found.problems));
  }
  if (source == "auto") {
    auto found = enumerateV4l2Cameras();
    if (!found.devices.empty()) {
      return std::make_shared<CameraSystem>("v4l2", std::move(found.devices),
                                            std::move(found.problems));
    }
    for (const auto& p : found.problems) {
      oxlog("Camera - {} is not usable: {}", p.location, p.error);
    }
    oxlog("Camera - no V4L2 camera, using the virtual cameras");
    return openVirtual(error);
  }
  error = "--camera takes auto, virtual, v4l2 or v4l2:DEVICE, not '" + source + "'";
  return nullptr;
}

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
