#include "platform/camera/CaptureTypes.h"

#include <cmath>

namespace oxelo {

bool isKnownDeviceType(const std::string& type) {
  for (const char* known :
       {AVCaptureDeviceTypeBuiltInWideAngleCamera, AVCaptureDeviceTypeBuiltInTelephotoCamera,
        AVCaptureDeviceTypeBuiltInUltraWideCamera, AVCaptureDeviceTypeBuiltInDualCamera,
        AVCaptureDeviceTypeBuiltInDualWideCamera, AVCaptureDeviceTypeBuiltInTripleCamera}) {
    if (type == known) return true;
  }
  return false;
}

bool dimensionsOfSessionPreset(const std::string& preset, int32_t& width, int32_t& height) {
  struct Sized {
    const char* preset;
    int32_t width, height;
  };
  static constexpr Sized kSized[] = {
      {AVCaptureSessionPreset640x480, 640, 480},
      {AVCaptureSessionPresetiFrame960x540, 960, 540},
      {AVCaptureSessionPreset1280x720, 1280, 720},
      {AVCaptureSessionPreset1920x1080, 1920, 1080},
      {AVCaptureSessionPreset3840x2160, 3840, 2160},
  };
  for (const auto& s : kSized) {
    if (preset != s.preset) continue;
    width = s.width;
    height = s.height;
    return true;
  }
  return false;
}

CaptureTime CaptureTime::withSeconds(double seconds, int32_t timescale) {
  if (timescale <= 0 || !std::isfinite(seconds)) return invalid();
  return make(static_cast<int64_t>(std::llround(seconds * timescale)), timescale);
}

int compare(const CaptureTime& a, const CaptureTime& b) {
  if (!a.isValid() || !b.isValid()) return static_cast<int>(a.isValid()) - b.isValid();
  __int128 left = static_cast<__int128>(a.value) * b.timescale;
  __int128 right = static_cast<__int128>(b.value) * a.timescale;
  return left < right ? -1 : (left > right ? 1 : 0);
}

}  // namespace oxelo
