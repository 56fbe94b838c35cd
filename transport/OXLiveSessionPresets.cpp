// A preset: the camera state of the session as a dictionary, and back.
#include "platform/defaults/SettingsKeys.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"
#include "transport/OXLiveSession.h"

namespace oxelo {

namespace {
using Json = UserDefaults::Json;

constexpr double kTorchDelay = 0.5;     // seconds
constexpr double kZoomDelay = 1.0;      // seconds
constexpr double kExposureDelay = 0.1;  // seconds

// A missing key, or one of another type, reads as false, 0 or 0.0.
bool boolOf(const Json& preset, const char* key) {
  auto it = preset.find(key);
  if (it == preset.end()) return false;
  if (it->is_boolean()) return it->get<bool>();
  if (it->is_number()) return it->get<double>() != 0.0;
  return false;
}

double doubleOf(const Json& preset, const char* key) {
  auto it = preset.find(key);
  if (it == preset.end()) return 0.0;
  if (it->is_number()) return it->get<double>();
  if (it->is_boolean()) return it->get<bool>() ? 1.0 : 0.0;
  return 0.0;
}

int64_t integerOf(const Json& preset, const char* key) {
  return static_cast<int64_t>(doubleOf(preset, key));
}
}  // namespace

void OXLiveSession::savePreset(Json& preset) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!preset.is_object()) preset = Json::object();
  preset.erase(keys::deviceType);
  preset[keys::frontCam] = captureDevicePosition() != AVCaptureDevicePositionBack;
  if (auto type = captureDeviceType(); !type.empty()) preset[keys::deviceType] = type;
  preset[keys::torchLevel] = torch();
  preset[keys::faceBeautify] = beautyFace();
  preset[keys::beautyMethod] = beautyMethod();
  preset[keys::horizontalFlip] = mirror();
  auto video = currentVideoCapture();
  // Without a camera front the values are those of a capture with no camera.
  auto get = [&video](auto read, auto neutral) { return video ? read(*video) : neutral; };
  preset[keys::aeLock] = get([](auto& c) { return c.aeLock(); }, false);
  preset[keys::autoExposure] = get([](auto& c) { return c.autoExposure(); }, false);
  preset[keys::exposureTargetBias] = get([](auto& c) { return c.exposureTargetBias(); }, 0.0);
  preset[keys::customExposure] = get([](auto& c) { return c.customExposure(); }, false);
  preset[keys::exposure] = get([](auto& c) { return c.exposure(); }, 0.0);
  preset[keys::ISO] = get([](auto& c) { return c.ISO(); }, 0.0);
  preset[keys::awbLock] = get([](auto& c) { return c.awbLock(); }, false);
  preset[keys::autoWhiteBalance] = get([](auto& c) { return c.autoWhiteBalance(); }, false);
  preset[keys::wbTemperature] = get([](auto& c) { return c.wbTempAndTint().temperature; }, 0.0f);
  preset[keys::afLock] = get([](auto& c) { return c.afLock(); }, false);
  preset[keys::autoFocus] = get([](auto& c) { return c.autoFocus(); }, false);
  preset[keys::lensPosition] = get([](auto& c) { return c.lensPosition(); }, 0.0);
  preset[keys::zoomScale] = get([](auto& c) { return c.zoomScale(); }, 1.0);
}

void OXLiveSession::loadPreset(const Json& preset) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!preset.is_object()) return;
  auto self = shared_from_this();  // the delayed steps hold the session
  auto video = videoCapture();

  // The camera: only a preset that names the type chooses one.
  const bool frontCam = boolOf(preset, keys::frontCam);
  auto type = preset.find(keys::deviceType);
  if (video && type != preset.end() && type->is_string())
    video->setCameraByPosition(
        frontCam ? AVCaptureDevicePositionFront : AVCaptureDevicePositionBack,
        type->get<std::string>());

  // A preset saved with the torch off leaves the torch as it is.
  if (int64_t level = integerOf(preset, keys::torchLevel); level >= 1)
    MainQueue::postAfter(kTorchDelay, [self, level] { self->setTorch(level); });

  setBeautyMethod(integerOf(preset, keys::beautyMethod));  // the method before the switch
  setBeautyFace(boolOf(preset, keys::faceBeautify));
  setMirror(boolOf(preset, keys::horizontalFlip));
  setUseBackMic(captureDevicePosition() != AVCaptureDevicePositionFront);
  if (!video) return;

  const double zoom = static_cast<float>(doubleOf(preset, keys::zoomScale));
  if (zoom != video->zoomScale())
    MainQueue::postAfter(kZoomDelay, [self, zoom] { self->setZoomScale(zoom); });

  video->setAfLock(boolOf(preset, keys::afLock));
  if (boolOf(preset, keys::autoFocus))
    video->setAutoFocus(true);
  else
    video->setLensPosition(doubleOf(preset, keys::lensPosition));

  video->setAeLock(boolOf(preset, keys::aeLock));
  if (boolOf(preset, keys::autoExposure)) {
    video->setAutoExposure(true);
    video->setExposureTargetBias(doubleOf(preset, keys::exposureTargetBias));
  } else {
    const double exposure = doubleOf(preset, keys::exposure);
    const double iso = doubleOf(preset, keys::ISO);
    const bool custom = boolOf(preset, keys::customExposure);
    MainQueue::postAfter(kExposureDelay, [self, video, exposure, iso, custom] {
      video->setExposureAndISO(exposure, iso);
      if (!custom) video->setCustomExposure(false);
      self->refreshCameraProperties();
    });
  }

  video->setAwbLock(boolOf(preset, keys::awbLock));
  if (boolOf(preset, keys::autoWhiteBalance))
    video->setAutoWhiteBalance(true);
  else
    video->setWbTempAndTint(static_cast<float>(doubleOf(preset, keys::wbTemperature)),
                            video->wbTempAndTint().tint);
  refreshCameraProperties();
}

}  // namespace oxelo
