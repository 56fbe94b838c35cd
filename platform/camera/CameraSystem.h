#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/camera/CameraProblem.h"
#include "platform/camera/CaptureDevice.h"

namespace oxelo {

// The set of cameras of one backend, in system order, and the process-wide
// set that capture code asks ("default device for this type and position")
// without knowing the backend. Immutable once built; safe from any thread.
class CameraSystem {
 public:
  CameraSystem(std::string backend, std::vector<std::shared_ptr<CaptureDevice>> devices,
               std::vector<CameraProblem> unavailable = {});

  // Builds the set a --camera text names:
  //   "virtual"        the simulated cameras (OXELO_VIRTUAL_CAMERAS or the default set);
  //   "v4l2"           every V4L2 capture device under /dev;
  //   "v4l2:/dev/videoN" that one device;
  //   "auto"           V4L2 if it finds a usable camera, else the virtual cameras.
  // None, with a one-line message for the user in `error`, when the named
  // backend cannot be used (no V4L2 camera, a device that cannot be opened,
  // a bad OXELO_VIRTUAL_CAMERAS file, an unknown text); the CameraError form
  // adds the code (in use, no permission, no camera) that the exit status
  // takes. V4L2 cameras decode MJPEG with libavcodec.
  //
  // open() lives in the library oxelo_platform_camera (platform/camera/codec),
  // which brings the MJPEG decoder: what only looks cameras up links
  // oxelo_platform alone, and with it no codec library.
  static std::shared_ptr<CameraSystem> open(const std::string& source, std::string& error);
  static std::shared_ptr<CameraSystem> open(const std::string& source, CameraError& error);

  // The process-wide set. Until setCurrent() it has no cameras: the program
  // chooses its backend at start-up, tests install their own.
  static std::shared_ptr<CameraSystem> current();
  static void setCurrent(std::shared_ptr<CameraSystem> system);

  const std::string& backend() const { return backend_; }  // "virtual" or "v4l2"
  const std::vector<std::shared_ptr<CaptureDevice>>& devices() const { return devices_; }
  const std::vector<CameraProblem>& unavailable() const { return unavailable_; }

  // The first camera of that type, media type and position in system order;
  // position 0 (unspecified) matches any position. None if there is none.
  std::shared_ptr<CaptureDevice> defaultDeviceWithDeviceType(
      const std::string& deviceType, const std::string& mediaType,
      AVCaptureDevicePosition position) const;
  std::shared_ptr<CaptureDevice> deviceWithUniqueID(const std::string& uniqueID) const;

 private:
  std::string backend_;
  std::vector<std::shared_ptr<CaptureDevice>> devices_;
  std::vector<CameraProblem> unavailable_;
};

// The cameras of several types at a position: ordered by the list of types
// first, then by system order. Built once; the list does not follow later
// changes of the set.
class CaptureDeviceDiscoverySession {
 public:
  // `system` none: CameraSystem::current().
  static CaptureDeviceDiscoverySession discoverySessionWithDeviceTypes(
      const std::vector<std::string>& deviceTypes, const std::string& mediaType,
      AVCaptureDevicePosition position, std::shared_ptr<CameraSystem> system = nullptr);

  const std::vector<std::shared_ptr<CaptureDevice>>& devices() const { return devices_; }

 private:
  std::vector<std::shared_ptr<CaptureDevice>> devices_;
};

}  // namespace oxelo
