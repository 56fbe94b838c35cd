#pragma once

#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/camera/CameraSystem.h"

namespace oxelo {

// One row of the catalogue: a size and the highest frame rate on offer at it.
struct VideoSizeEntry {
  int width = 0;
  int height = 0;
  double fps = 30;
  bool measured = false;  // fps measured from the cameras; the fixed rows hold a whole 30

  // {"width":..,"height":..,"fps":..}; fps is a whole number for a fixed row.
  nlohmann::ordered_json toJson() const;
  friend bool operator==(const VideoSizeEntry&, const VideoSizeEntry&) = default;
};

// The video sizes and frame rates this device offers, built from what the
// cameras report. The setting `videoSize` is an index into videoSizes().
//
// It lives here, below the shell, because the stream's info packet and the
// handshake read it as well as the options screen; the application object
// holds the one instance (shared()). Reloads run on the main queue; the
// accessors return copies and may be called from any thread.
class VideoSizeCatalogue {
 public:
  // `cameras` none: CameraSystem::current() at each reload.
  explicit VideoSizeCatalogue(std::shared_ptr<CameraSystem> cameras = nullptr);

  // The application's catalogue.
  static VideoSizeCatalogue& shared();

  // Rebuilds the sizes from the back camera of the type the setting
  // `backCameraType` names (0 wide angle, 1 dual, 2 dual wide, 3 triple) and
  // the front wide-angle camera, then the rates. In order: 640x360 and
  // 640x480, both at 30; where the back camera takes the capture preset,
  // 640x480 measured in place of the fixed one, 960x540, the pair 800x600
  // and 1280x720, the pair 1280x960 and 1920x1080, the pair 2560x1440 and
  // 3840x2160. A measured rate is the better of the two cameras at the
  // preset's size (the front one only where it takes the preset too), and
  // at least 30.
  void reloadVideoSizes();
  // Rebuilds the rates for the row the setting `videoSize` names (the last
  // row when it is beyond the list): "15", "24", "25", "30", then "50",
  // "60", "120" as the row's rate reaches them, and the rate itself, cut to a
  // whole number, when it is above 120.
  void reloadVideoFrameRates();

  // The highest rate of the camera's "vide"/"420f" formats of exactly this
  // size; 0 when it has none.
  static double maxSupportedFrameRate(double width, double height, const CaptureDevice& device);

  std::vector<VideoSizeEntry> videoSizes() const;
  std::vector<std::string> videoFrameRates() const;
  // {"videoSizes":[...],"videoFrameRates":[...]}
  nlohmann::ordered_json toJson() const;

  // The start-up rule: reloadVideoSizes(), and with fewer than 3 sizes store
  // `videoSize` 1, `videoWidth` 640 and `videoHeight` 480 and synchronise.
  // Once per start, after the defaults are registered.
  void applyStartupSizeRule();

 private:
  std::shared_ptr<CameraSystem> cameras_;
  mutable std::mutex mutex_;
  std::vector<VideoSizeEntry> videoSizes_;
  std::vector<std::string> videoFrameRates_;
};

// The device type the setting `backCameraType` names for the catalogue.
const char* catalogueBackCameraType(long long backCameraType);

}  // namespace oxelo
