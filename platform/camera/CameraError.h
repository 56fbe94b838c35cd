#pragma once

#include <string>

namespace oxelo {

// Why a camera cannot deliver pictures. Each kind has a distinct number that
// the program's exit status takes, and a one-line message for the user.
enum class CameraErrorCode : int {
  none = 0,
  failed = 20,            // any other failure: the message says what the system said
  inUse = 21,             // EBUSY: another program streams from the camera
  permissionDenied = 22,  // EACCES, EPERM: the user is not in the video group
  vanished = 23,          // ENODEV and friends while streaming: unplugged or gone
  noCamera = 24,          // --camera v4l2 on a machine without a usable camera
  unsupported = 25,       // the camera offers nothing the program can convert
};

struct CameraError {
  CameraErrorCode code = CameraErrorCode::none;
  std::string message;  // one line, no trailing full stop

  explicit operator bool() const { return code != CameraErrorCode::none; }

  // The error a failed system call on the camera at `location` gives,
  // `what` naming the step ("open", "start streaming").
  static CameraError fromErrno(int error, const std::string& location, const std::string& what);
  static CameraError inUse(const std::string& location);
  static CameraError permissionDenied(const std::string& location);
  static CameraError vanished(const std::string& location);
  static CameraError noCamera(const std::string& detail = "");
};

// The exit status for a camera that could not be used: the code's number.
inline int exitStatusOf(const CameraError& error) { return static_cast<int>(error.code); }

}  // namespace oxelo
