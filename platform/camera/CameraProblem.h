#pragma once

#include <string>

#include "platform/camera/CameraError.h"

namespace oxelo {

// A camera that a backend found but cannot use, with the reason.
struct CameraProblem {
  std::string location;  // "/dev/video2"
  std::string error;     // "Permission denied", "Device or resource busy", ...
  CameraError reason;    // the same as a message for the user, with its code
};

}  // namespace oxelo
