#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/camera/CaptureTypes.h"

namespace oxelo {

// One span of frame rates a format runs at. A fixed rate has equal bounds.
struct AVFrameRateRange {
  double minFrameRate = 0;
  double maxFrameRate = 0;
  CaptureTime minFrameDuration;  // 1 / maxFrameRate
  CaptureTime maxFrameDuration;  // 1 / minFrameRate

  // A range from two rates; whole rates get exact durations (1/30 as 1 over 30).
  static AVFrameRateRange fromRates(double minRate, double maxRate);
  // A range from two frame durations, as a driver reports them.
  static AVFrameRateRange fromDurations(CaptureTime shortest, CaptureTime longest);
  bool containsRate(double rate) const { return minFrameRate <= rate && rate <= maxFrameRate; }
};

// One way a camera can deliver pictures: media type and subtype, dimensions,
// the frame-rate ranges and the limits of exposure, ISO and zoom that hold
// while it is the active format. Immutable once the device is built; devices
// share them as std::shared_ptr<const CaptureDeviceFormat>, so a format is
// recognised by identity (the active format is one of the device's formats).
struct CaptureDeviceFormat {
  std::string mediaType = AVMediaTypeVideo;             // "vide"
  std::string mediaSubType = kPixelFormat420FullRange;  // "420f" or "420v"
  int32_t width = 0;                                    // formatDescription's dimensions
  int32_t height = 0;
  std::vector<AVFrameRateRange> videoSupportedFrameRateRanges;
  float minISO = 0;
  float maxISO = 0;
  CaptureTime minExposureDuration;
  CaptureTime maxExposureDuration;
  double videoMaxZoomFactor = 1.0;
  bool videoHDRSupported = false;
  // What the backend takes from the hardware for this format and converts to
  // NV12 at capture: under V4L2 the driver's fourcc ("NV12", "NM12" for NV12
  // in two planes, "NV21", "YU12", "YV12", "YUYV", "UYVY", "YVYU", "VYUY") or
  // "MJPG" for both JPEG fourccs; empty for the virtual cameras, which draw
  // NV12 themselves.
  std::string nativePixelFormat;

  bool isVideoHDRSupported() const { return videoHDRSupported; }
  // The highest maxFrameRate of the ranges; 0 without ranges.
  double maxFrameRate() const;
  // "1920x1080 420f 1-60 fps" for logs and listings.
  std::string description() const;
};

using CaptureDeviceFormatPtr = std::shared_ptr<const CaptureDeviceFormat>;

}  // namespace oxelo
