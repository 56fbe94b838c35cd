#include "shell/AppDelegate.h"

#include "platform/defaults/SettingsKeys.h"

namespace oxelo {

nlohmann::json registeredDefaults() {
  using namespace keys;
  return {
      {videoPortrait, false},
      {videoSize, 4},
      {videoWidth, 1280},
      {videoHeight, 720},
      {videoFPS, 30},
      {videoQuality, 1},
      {videoEncoder, 0},
      {audioFormat, 1},
      {audioQuality, 1},
      {autoConnect, true},
      {backCameraType, 0},
      {showDebugInfo, false},
      {adaptiveBitrate, true},
      {lowLightBoost, true},
      {smoothAutoFocus, false},
      {faceDrivenAEAF, true},
      {echoCancellation, false},
      {hdr, "Auto"},
      {colorspace, "Auto"},
      {isCamBT601, true},
      {beautyMethod, 0},
      {faceBeautify, false},
      {horizontalFlip, false},
      {frontCam, false},
      {aeLock, false},
      {autoExposure, true},
      {exposureTargetBias, 0.0},
      {afLock, false},
      {autoFocus, true},
      {awbLock, false},
      {autoWhiteBalance, true},
      {zoomScale, 1.0},
  };
}

const char* shortVersionString() { return OXELO_VERSION; }

bool AppDelegate::applicationDidFinishLaunching(UserDefaults& defaults) {
  defaults.registerDefaults(registeredDefaults());
  defaults.setString(keys::settingsVersion, shortVersionString());
  defaults.synchronize();
  return true;
}

}  // namespace oxelo
