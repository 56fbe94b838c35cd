// The host's camera commands, the camera properties they change, and the
// presets they save, load and delete.
#include <fmt/format.h>
#include <algorithm>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"
#include "transport/OXLiveSession.h"

namespace oxelo {

namespace {
constexpr double kZoomStep = 1.05;
constexpr int kPresetSlots = 5;

// Items of the camera settings panel that an automatic sub-command brings up
// to date.
constexpr int64_t kItemExposure = 0;
constexpr int64_t kItemWhiteBalance = 3;
constexpr int64_t kItemFocus = 4;

// P2 of the automatic sub-commands.
constexpr int32_t kAutomatic = 0;
constexpr int32_t kLocked = 2;

std::string presetKey(int32_t slot) {
  return fmt::format("preset_{}", static_cast<uint32_t>(slot) % kPresetSlots + 1);
}
}  // namespace

// ---- Camera properties ----

int64_t OXLiveSession::torch() const {
  auto video = currentVideoCapture();
  return video ? video->torch() : 0;
}

void OXLiveSession::setTorch(int64_t level) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setTorch(level);
  torchNotice_.set(torch());
}

double OXLiveSession::zoomScale() const {
  auto video = currentVideoCapture();
  return video ? video->zoomScale() : 1.0;
}

void OXLiveSession::setZoomScale(double scale) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) video->setZoomScale(scale);
  zoomNotice_.set(zoomScale());
}

int64_t OXLiveSession::aeafLock() const {
  auto video = currentVideoCapture();
  return video ? aeafLockOf(*video) : 0;
}

void OXLiveSession::setAeafLock(int64_t lock) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto video = videoCapture()) {
    const bool locked = lock == 2;
    const bool automatic = lock == 0;
    video->setAeLock(locked);
    video->setAfLock(locked);
    video->setAwbLock(locked);
    video->setAutoExposure(automatic);
    video->setAutoFocus(automatic);
    video->setAutoWhiteBalance(automatic);
    auto device = video->device();
    if (lock != 0 && device && device->isSubjectAreaChangeMonitoringEnabled() &&
        device->lockForConfiguration()) {
      device->setSubjectAreaChangeMonitoringEnabled(false);
      device->unlockForConfiguration();
    }
  }
  aeafLockNotice_.set(aeafLock());
}

void OXLiveSession::refreshCameraProperties() {
  torchNotice_.set(torch());
  zoomNotice_.set(zoomScale());
  aeafLockNotice_.set(aeafLock());
}

// ---- The host's commands, main queue ----

void OXLiveSession::socketClientCommand(LFStreamSocket*, const wire::HostCommandRecord& command) {
  OX_ASSERT_ON_MAIN_QUEUE();
  const int32_t p1 = command.p1;
  switch (command.command) {
    case wire::kHostSetCameraParameter:
      if (auto video = videoCapture()) setCameraParameter(*video, p1, command.p2);
      return;
    case wire::kHostZoomIn:
    case wire::kHostZoomOut:
      zoomStep(command.command == wire::kHostZoomIn);
      return;
    case wire::kHostFocusPoint: {
      double x = static_cast<uint32_t>(p1) / 255.0;
      double y = static_cast<uint32_t>(command.p2) / 255.0;
      // The host points at the picture it shows, mirrored as the phone sends it.
      if (mirror()) x = 1.0 - x;
      postToMain([x, y](OXLiveSession& self) {
        OX_ASSERT_ON_MAIN_QUEUE();
        if (auto d = self.delegate()) d->liveSessionClientSetFocusPoint(&self, x, y);
      });
      return;
    }
    case wire::kHostChooseCamera: {
      const auto index = static_cast<uint32_t>(p1);
      postToMain([index](OXLiveSession& self) {
        OX_ASSERT_ON_MAIN_QUEUE();
        if (index == 0) {
          self.setCaptureDevicePosition(0);
        } else if (auto video = self.videoCapture()) {
          // Not through the session: the host hears of the camera only as
          // far as deviceChanged already says.
          video->setCameraByIndex((index - 1) % 4);
          self.refreshCameraProperties();
        }
      });
      return;
    }
    case wire::kHostMirror:
      setMirror(p1 != 0);
      return;
    case wire::kHostTorch:
      setTorch((torch() + 1) % 6);
      return;
    case wire::kHostBeauty:
      setBeautyFace(p1 != 0);
      setBeautyMethod(p1);
      return;
    case wire::kHostDim:
      setDim(p1 != 0);
      return;
    case wire::kHostRecording:
      setRecording(p1 != 0);
      return;
    case wire::kHostAeafLock:
      setAeafLock(p1 & 3);
      return;
    case wire::kHostSavePreset:
    case wire::kHostLoadPreset:
    case wire::kHostDeletePreset:
      presetCommand(command.command, p1);
      return;
    default:
      return;
  }
}

void OXLiveSession::setCameraParameter(LFVideoCapture& capture, int32_t parameter, int32_t value) {
  // The inverse of the status block's scaling, divided in single precision.
  auto scaled = [value](float divisor) {
    return static_cast<double>(static_cast<float>(value) / divisor);
  };
  int64_t item = -1;
  switch (parameter) {
    case wire::kParameterExposure:
      capture.setExposure(scaled(10000.0f));
      return;
    case wire::kParameterISO:
      capture.setISO(static_cast<double>(value));
      return;
    case wire::kParameterBias:
      capture.setExposureTargetBias(scaled(10.0f));
      return;
    case wire::kParameterTemperature:
      capture.setWbTempAndTint(static_cast<float>(value), capture.wbTempAndTint().tint);
      return;
    case wire::kParameterLensPosition:
      capture.setLensPosition(scaled(100.0f));
      return;
    case wire::kParameterZoom:
      setZoomScale(scaled(10.0f));
      return;
    case wire::kParameterAutoExposure:
      capture.setAeLock(value == kLocked);
      if (value == kAutomatic) capture.setAutoExposure(true);
      item = kItemExposure;
      break;
    case wire::kParameterAutoWhiteBalance:
      capture.setAwbLock(value == kLocked);
      if (value == kAutomatic) capture.setAutoWhiteBalance(true);
      item = kItemWhiteBalance;
      break;
    case wire::kParameterAutoFocus:
      capture.setAfLock(value == kLocked);
      if (value == kAutomatic) capture.setAutoFocus(true);
      item = kItemFocus;
      break;
    default:
      return;
  }
  aeafLockNotice_.set(aeafLock());
  postToMain([item](OXLiveSession& self) {
    OX_ASSERT_ON_MAIN_QUEUE();
    if (auto d = self.delegate()) d->liveSessionClientSetAutoStatusForItem(&self, item);
  });
}

void OXLiveSession::zoomStep(bool in) {
  auto video = videoCapture();
  if (!video) return;
  const double maximum = video->maxZoomScale();
  double scale;
  if (in) {
    if (maximum <= 1.0) return;
    scale = std::max(std::min(video->zoomScale() * kZoomStep, maximum), 1.0);
  } else {
    // From under 1.05 the zoom stays where it is rather than land on 1.0.
    scale = video->zoomScale() / kZoomStep;
    if (scale < 1.0) return;
    scale = std::min(scale, maximum);
  }
  setZoomScale(scale);
}

void OXLiveSession::presetCommand(uint32_t command, int32_t slot) {
  auto defaults = UserDefaults::standard();
  if (!defaults) return;
  const std::string key = presetKey(slot);
  switch (command) {
    case wire::kHostSavePreset: {
      auto preset = UserDefaults::Json::object();
      savePreset(preset);
      defaults->setObject(key, std::move(preset));
      defaults->synchronize();
      oxlog("Live - preset saved as {}", key);
      return;
    }
    case wire::kHostLoadPreset: {
      auto preset = defaults->objectForKey(key);
      if (preset.is_object()) loadPreset(preset);
      return;
    }
    case wire::kHostDeletePreset:
      defaults->removeObjectForKey(key);
      return;
    default:
      return;
  }
}

}  // namespace oxelo
