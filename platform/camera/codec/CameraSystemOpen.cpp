#include "platform/camera/CameraSystem.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/codec/LibavMjpegDecoder.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

V4l2Backend v4l2Backend() {
  V4l2Backend backend;
  backend.mjpeg = makeLibavMjpegDecoder;
  return backend;
}

std::shared_ptr<CameraSystem> openVirtual(CameraError& error) {
  std::string text;
  auto devices = openVirtualCameras(text);
  if (!devices) {
    error = {CameraErrorCode::failed, text};
    return nullptr;
  }
  return std::make_shared<CameraSystem>("virtual", std::move(*devices));
}

std::string describeProblems(const std::vector<CameraProblem>& problems) {
  std::string text;
  for (const auto& p : problems) text += "; " + p.location + ": " + p.error;
  return text;
}

// Why no camera could be used: a camera in use or forbidden says so in its
// own words, as the likeliest thing the user can fix.
CameraError noUsableCamera(const std::vector<CameraProblem>& problems) {
  for (auto code : {CameraErrorCode::permissionDenied, CameraErrorCode::inUse}) {
    for (const auto& p : problems) {
      if (p.reason.code == code) return p.reason;
    }
  }
  return CameraError::noCamera(describeProblems(problems));
}

}  // namespace

std::shared_ptr<CameraSystem> CameraSystem::open(const std::string& source, std::string& error) {
  CameraError reason;
  auto system = open(source, reason);
  if (!system) error = reason.message;
  return system;
}

std::shared_ptr<CameraSystem> CameraSystem::open(const std::string& source, CameraError& error) {
  if (source == "virtual") return openVirtual(error);
  if (source == "v4l2" || source.rfind("v4l2:", 0) == 0) {
    std::string node = source.size() > 5 ? source.substr(5) : "";
    if (source == "v4l2:") {
      error = {CameraErrorCode::failed, "--camera v4l2: needs a device, as in v4l2:/dev/video0"};
      return nullptr;
    }
    auto found = node.empty() ? enumerateV4l2Cameras("/dev", v4l2Backend())
                              : enumerateV4l2Camera(node, v4l2Backend());
    if (found.devices.empty()) {
      if (!node.empty() && !found.problems.empty()) {
        error = found.problems.front().reason;
      } else {
        error = noUsableCamera(found.problems);
      }
      return nullptr;
    }
    return std::make_shared<CameraSystem>("v4l2", std::move(found.devices),
                                          std::move(found.problems));
  }
  if (source == "auto") {
    auto found = enumerateV4l2Cameras("/dev", v4l2Backend());
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
  error = {CameraErrorCode::failed,
           "--camera takes auto, virtual, v4l2 or v4l2:DEVICE, not '" + source + "'"};
  return nullptr;
}

}  // namespace oxelo
