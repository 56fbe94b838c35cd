#pragma once

#include <string>

namespace oxelo {

// A camera that a backend found but cannot use, with the reason.
struct CameraProblem {
  std::string location;  // "/dev/video2"
  std::string error;     // "Permission denied", "Device or resource busy", ...
};

}  // namespace oxelo
