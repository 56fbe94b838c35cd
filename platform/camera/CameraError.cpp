#include "platform/camera/CameraError.h"

#include <errno.h>

#include <cstring>

namespace oxelo {

CameraError CameraError::inUse(const std::string& location) {
  return {CameraErrorCode::inUse,
          "the camera " + location + " is in use by another program; close it and try again"};
}

CameraError CameraError::permissionDenied(const std::string& location) {
  return {CameraErrorCode::permissionDenied,
          "no permission to open the camera " + location +
              ": add your user to the 'video' group (sudo usermod -aG video $USER) and log in "
              "again"};
}

CameraError CameraError::vanished(const std::string& location) {
  return {CameraErrorCode::vanished,
          "the camera " + location + " went away while streaming; the stream goes on with sound"};
}

CameraError CameraError::noCamera(const std::string& detail) {
  return {CameraErrorCode::noCamera,
          "--camera v4l2: no usable V4L2 camera on this machine" + (detail.empty() ? "" : detail)};
}

CameraError CameraError::fromErrno(int error, const std::string& location,
                                   const std::string& what) {
  switch (error) {
    case EBUSY:
      return inUse(location);
    case EACCES:
    case EPERM:
      return permissionDenied(location);
    case ENODEV:
    case ENXIO:
    case EIO:
    case ENOENT:
      if (what == "stream") return vanished(location);
      break;
    default:
      break;
  }
  return {CameraErrorCode::failed,
          "the camera " + location + " failed to " + what + ": " + std::strerror(error)};
}

}  // namespace oxelo
