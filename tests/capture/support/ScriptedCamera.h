#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/CaptureDevice.h"
#include "platform/camera/CaptureDeviceDriver.h"

namespace oxelo::test {

// A camera driver that streams only what the test hands it: deliver() calls
// the sink on the test's thread, as the camera's delivery thread would.
class ScriptedDriver final : public CaptureDeviceDriver {
 public:
  bool lockForConfiguration(std::string&) override { return true; }
  void unlockForConfiguration() override {}
  bool apply(const CaptureDeviceState&, DeviceSetting) override { return true; }
  void load(CaptureDeviceState&) override {}
  void refresh(CaptureDeviceState&) override {}
  CameraError startStreaming(const CaptureDeviceFormat&, CaptureTime,
                             std::weak_ptr<CameraFrameSink> sink) override {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
    return {};
  }
  void stopStreaming() override {
    std::lock_guard lock(mutex_);
    sink_.reset();
  }
  // False when the camera is not streaming.
  bool deliver(const CameraFramePtr& frame) {
    auto sink = currentSink(false);
    if (sink) sink->cameraDidOutputFrame(frame);
    return sink != nullptr;
  }
  // Ends the stream by itself, as a camera that vanished does. False when not streaming.
  bool endStream(const CameraError& error) {
    auto sink = currentSink(true);
    if (sink) sink->cameraStreamDidEnd(error);
    return sink != nullptr;
  }

 private:
  std::shared_ptr<CameraFrameSink> currentSink(bool andEnd) {
    std::lock_guard lock(mutex_);
    auto sink = sink_.lock();
    if (andEnd) sink_.reset();
    return sink;
  }
  std::mutex mutex_;
  std::weak_ptr<CameraFrameSink> sink_;
};

struct ScriptedFormat {
  int32_t width;
  int32_t height;
  double maxRate;
  const char* subtype = kPixelFormat420FullRange;
};

// One wide-angle camera on a scripted driver, its formats 1 to maxRate frames per second.
inline std::shared_ptr<CaptureDevice> scriptedCamera(AVCaptureDevicePosition position,
                                                     CameraMounting mounting,
                                                     const std::vector<ScriptedFormat>& formats,
                                                     ScriptedDriver** driverOut = nullptr) {
  CaptureDeviceDescription d;
  d.uniqueID = d.localizedName = d.location = "scripted";
  d.deviceType = AVCaptureDeviceTypeBuiltInWideAngleCamera;
  d.position = position;
  d.mounting = mounting;
  for (const auto& f : formats) {
    CaptureDeviceFormat format;
    std::tie(format.mediaSubType, format.width, format.height) =
        std::tuple(f.subtype, f.width, f.height);
    format.videoSupportedFrameRateRanges = {AVFrameRateRange::fromRates(1, f.maxRate)};
    d.formats.push_back(format);
  }
  d.activeFormatIndex = 0;
  auto driver = std::make_unique<ScriptedDriver>();
  if (driverOut) *driverOut = driver.get();
  return std::make_shared<CaptureDevice>(std::move(d), std::move(driver));
}

// The same camera as the only one of a camera set.
inline std::shared_ptr<CameraSystem> scriptedCameras(AVCaptureDevicePosition position,
                                                     CameraMounting mounting,
                                                     const std::vector<ScriptedFormat>& formats,
                                                     ScriptedDriver** driverOut = nullptr) {
  return std::make_shared<CameraSystem>(
      "scripted", std::vector{scriptedCamera(position, mounting, formats, driverOut)});
}

inline constexpr CameraMounting kPhoneBack{CameraFacing::back, 270};
inline constexpr CameraMounting kPhoneFront{CameraFacing::front, 90};
inline constexpr CameraMounting kUsbWebcam{CameraFacing::external, 0};

}  // namespace oxelo::test
