#pragma once

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "platform/camera/CaptureDevice.h"
#include "platform/camera/CaptureDeviceDriver.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The simulated cameras: deterministic, with every control, for boards
// without a camera and for tests.
//
// The default set is a back wide-angle, telephoto, ultra-wide and triple
// camera and a front wide-angle camera, with formats from 640x480 to
// 3840x2160 (the back wide-angle camera reaches 240 frames per second at
// 1280x720). The environment variable OXELO_VIRTUAL_CAMERAS names a JSON
// file that describes another set:
//
//   {"cameras": [
//     {"type": "wide",            // wide | telephoto | ultraWide | dual | dualWide |
//                                 // triple, or the full AVCaptureDeviceType... text
//      "position": "back",        // back | front
//      "name": "Back Camera",     // optional
//      "uniqueID": "cam-1",       // optional; unique in the file
//      "formats": [               // in the device's order; may be empty
//        {"width": 1280, "height": 720, "fps": 60},                  // one range, 1 to 60
//        {"width": 1920, "height": 1080, "fps": [[1, 30], [60, 60]], // explicit ranges
//         "subtypes": ["420f"],   // optional, default ["420v", "420f"]: one format each
//         "iso": [32, 3072],      // optional ISO limits
//         "exposure": [0.000014, 0.5],  // optional exposure limits in seconds
//         "maxZoom": 16,          // optional, default 16
//         "hdr": true}            // optional, default false
//      ],
//      "controls": {              // optional; a missing key means fully supported
//        "focusModes": [0, 1, 2], "focusPointOfInterest": true, "lensPosition": true,
//        "exposureModes": [0, 1, 2, 3], "exposurePointOfInterest": true,
//        "exposureBias": [-8, 8], "whiteBalanceModes": [0, 1, 2],
//        "whiteBalanceGains": true, "maxWhiteBalanceGain": 4,
//        "torch": true, "lowLightBoost": true, "smoothAutoFocus": true,
//        "subjectAreaMonitoring": true},
//      "constituents": ["ultraWide", "wide"],  // optional: a camera of several lenses
//      "switchOverZoomFactors": [2],            // optional, with constituents
//      "lockError": "in use by another client"} // optional: lockForConfiguration fails
//   ]}
//
// Unknown keys and values of the wrong type are errors, reported with the
// file and the place ("cameras[1].formats[0].width: ...").
//
// Every virtual camera is mounted as the phone the rotation table was
// written for: facing its position, sensor rotation 270. Streaming, it
// delivers the picture of VirtualPicture.h in real time at the active frame
// duration, timed by the default clock (so a test that installs a
// ManualClock drives it), tagged BT.709 from 1280x720 up and BT.601 below,
// full range for "420f" formats and video range for "420v".
inline constexpr double kVirtualFocusScanSeconds = 0.3;
inline constexpr double kVirtualMeteringSeconds = 0.2;

struct VirtualCameraSpec {
  CaptureDeviceDescription description;
  std::optional<std::string> lockError;
};

// The default set, in system order: back wide-angle, telephoto, ultra-wide,
// triple, front wide-angle.
std::vector<VirtualCameraSpec> defaultVirtualCameras();

// A set from the document above; none with `error` set when it is not valid.
std::optional<std::vector<VirtualCameraSpec>> parseVirtualCameras(const nlohmann::json& document,
                                                                  std::string& error);
std::optional<std::vector<VirtualCameraSpec>> loadVirtualCameras(const std::filesystem::path& file,
                                                                 std::string& error);

// The set OXELO_VIRTUAL_CAMERAS names, else the default set; none with
// `error` set when the named file cannot be used.
std::optional<std::vector<std::shared_ptr<CaptureDevice>>> openVirtualCameras(std::string& error);

std::shared_ptr<CaptureDevice> makeVirtualCamera(VirtualCameraSpec spec);

// The driver of a simulated camera: every change is taken as it comes; the
// lock fails only with a configured reason. A one-time mode settles into
// locked as a phone's does, on the default clock: exposure and white balance
// kVirtualMeteringSeconds after it was set, focus kVirtualFocusScanSeconds. Frames come from a
// serial queue of the driver's own (the camera queue), frame n at start + n x duration; a frame
// whose time passed while the sink was busy is skipped.
class VirtualCaptureDriver final : public CaptureDeviceDriver {
 public:
  // `halfTurned`: the sensor sees the scene turned half round, as a front
  // camera mounted like the phone's does (VirtualPicture.h).
  explicit VirtualCaptureDriver(std::optional<std::string> lockError = std::nullopt,
                                bool halfTurned = false)
      : lockError_(std::move(lockError)), halfTurned_(halfTurned) {}
  ~VirtualCaptureDriver() override;
  bool lockForConfiguration(std::string& error) override;
  void unlockForConfiguration() override {}
  bool apply(const CaptureDeviceState& wanted, DeviceSetting setting) override;
  void load(CaptureDeviceState&) override {}
  void refresh(CaptureDeviceState& state) override;
  CameraError startStreaming(const CaptureDeviceFormat& format, CaptureTime frameDuration,
                             std::weak_ptr<CameraFrameSink> sink) override;
  void stopStreaming() override;

  struct Stream;  // internal: the running stream, shared with its queue's tasks

 private:
  std::optional<std::string> lockError_;
  bool halfTurned_ = false;
  // When the one-time focus, exposure and white balance settle; none: not
  // running.
  std::optional<double> focusSettles_, exposureSettles_, whiteBalanceSettles_;
  std::shared_ptr<Stream> stream_;
};

}  // namespace oxelo
