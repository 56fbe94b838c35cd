#pragma once

// The keys of the settings store. Every subsystem reads by key; the names are
// kept in one place so that a typo is a compile error.
namespace oxelo::keys {

// Keys with a registered default (see shell/Startup for the values).
inline constexpr const char* videoPortrait = "videoPortrait";
inline constexpr const char* videoSize = "videoSize";
inline constexpr const char* videoWidth = "videoWidth";
inline constexpr const char* videoHeight = "videoHeight";
inline constexpr const char* videoFPS = "videoFPS";
inline constexpr const char* videoQuality = "videoQuality";
inline constexpr const char* videoEncoder = "videoEncoder";
inline constexpr const char* audioFormat = "audioFormat";
inline constexpr const char* audioQuality = "audioQuality";
inline constexpr const char* autoConnect = "autoConnect";
inline constexpr const char* backCameraType = "backCameraType";
inline constexpr const char* showDebugInfo = "showDebugInfo";
inline constexpr const char* adaptiveBitrate = "adaptiveBitrate";
inline constexpr const char* lowLightBoost = "lowLightBoost";
inline constexpr const char* smoothAutoFocus = "smoothAutoFocus";
inline constexpr const char* faceDrivenAEAF = "faceDrivenAEAF";
inline constexpr const char* echoCancellation = "echoCancellation";
inline constexpr const char* hdr = "hdr";
inline constexpr const char* colorspace = "colorspace";
inline constexpr const char* isCamBT601 = "isCamBT601";
inline constexpr const char* beautyMethod = "beautyMethod";
inline constexpr const char* faceBeautify = "faceBeautify";
inline constexpr const char* horizontalFlip = "horizontalFlip";
inline constexpr const char* frontCam = "frontCam";
inline constexpr const char* aeLock = "aeLock";
inline constexpr const char* autoExposure = "autoExposure";
inline constexpr const char* exposureTargetBias = "exposureTargetBias";
inline constexpr const char* afLock = "afLock";
inline constexpr const char* autoFocus = "autoFocus";
inline constexpr const char* awbLock = "awbLock";
inline constexpr const char* autoWhiteBalance = "autoWhiteBalance";
inline constexpr const char* zoomScale = "zoomScale";

// Keys with no default: a missing key reads as 0, false or none.
inline constexpr const char* showGrid = "showGrid";
inline constexpr const char* torchLevel = "torchLevel";
inline constexpr const char* customExposure = "customExposure";
inline constexpr const char* exposure = "exposure";
inline constexpr const char* ISO = "ISO";
inline constexpr const char* wbTemperature = "wbTemperature";
inline constexpr const char* lensPosition = "lensPosition";
inline constexpr const char* deviceType = "deviceType";
inline constexpr const char* lastHostName = "lastHostName";
inline constexpr const char* lastHostIP = "lastHostIP";
inline constexpr const char* lastHostPort = "lastHostPort";
inline constexpr const char* hostHistory = "hostHistory";
inline constexpr const char* settingsVersion = "settingsVersion";
inline constexpr const char* AppleLanguages = "AppleLanguages";

}  // namespace oxelo::keys
