#include "shell/CameraCommands.h"

#include <ostream>

#include "media/VideoSizeCatalogue.h"
#include "platform/camera/CameraError.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/log/Log.h"
#include "shell/AppDelegate.h"

namespace oxelo {

namespace {

using Json = nlohmann::ordered_json;

Json modesOf(uint32_t set) {
  Json modes = Json::array();
  for (int mode = 0; mode < 4; ++mode) {
    if (CaptureDeviceCapabilities::has(set, mode)) modes.push_back(mode);
  }
  return modes;
}

Json describeFormat(const CaptureDeviceFormat& f) {
  Json ranges = Json::array();
  for (const auto& r : f.videoSupportedFrameRateRanges) {
    ranges.push_back({{"min", r.minFrameRate}, {"max", r.maxFrameRate}});
  }
  Json j = {{"mediaType", f.mediaType},
            {"subtype", f.mediaSubType},
            {"width", f.width},
            {"height", f.height},
            {"frameRateRanges", ranges},
            {"iso", {f.minISO, f.maxISO}},
            {"exposure", {f.minExposureDuration.seconds(), f.maxExposureDuration.seconds()}},
            {"maxZoom", f.videoMaxZoomFactor},
            {"hdr", f.videoHDRSupported}};
  if (!f.nativePixelFormat.empty()) j["native"] = f.nativePixelFormat;
  return j;
}

Json describeControls(const CaptureDevice& d) {
  const auto& c = d.capabilities();
  Json j = {{"focusModes", modesOf(c.focusModes)},
            {"exposureModes", modesOf(c.exposureModes)},
            {"whiteBalanceModes", modesOf(c.whiteBalanceModes)},
            {"focusPointOfInterest", c.focusPointOfInterest},
            {"exposurePointOfInterest", c.exposurePointOfInterest},
            {"lensPosition", c.lockingFocusWithCustomLensPosition},
            {"whiteBalanceGains", c.lockingWhiteBalanceWithCustomDeviceGains},
            {"maxWhiteBalanceGain", c.maxWhiteBalanceGain},
            {"exposureBias", {c.minExposureTargetBias, c.maxExposureTargetBias}},
            {"torch", c.torch},
            {"lowLightBoost", c.lowLightBoost},
            {"smoothAutoFocus", c.smoothAutoFocus},
            {"subjectAreaMonitoring", c.subjectAreaChangeMonitoring}};
  if (d.isVirtualDevice()) {
    j["constituents"] = c.constituentDeviceTypes;
    j["switchOverZoomFactors"] = c.virtualDeviceSwitchOverVideoZoomFactors;
  }
  return j;
}

const char* positionName(AVCaptureDevicePosition p) {
  switch (p) {
    case AVCaptureDevicePositionBack:
      return "back";
    case AVCaptureDevicePositionFront:
      return "front";
    default:
      return "unspecified";
  }
}

}  // namespace

Json describeCameras(const CameraSystem& cameras) {
  Json list = Json::array();
  for (const auto& d : cameras.devices()) {
    Json formats = Json::array();
    Json active;
    auto activeFormat = d->activeFormat();
    for (size_t i = 0; i < d->formats().size(); ++i) {
      formats.push_back(describeFormat(*d->formats()[i]));
      if (d->formats()[i] == activeFormat) active = i;
    }
    list.push_back({{"uniqueID", d->uniqueID()},
                    {"name", d->localizedName()},
                    {"type", d->deviceType()},
                    {"position", static_cast<int64_t>(d->position())},
                    {"positionName", positionName(d->position())},
                    {"location", d->location()},
                    {"formats", formats},
                    {"activeFormat", active},
                    {"controls", describeControls(*d)}});
  }
  Json unavailable = Json::array();
  for (const auto& p : cameras.unavailable()) {
    unavailable.push_back({{"location", p.location}, {"error", p.error}});
  }
  return {{"backend", cameras.backend()}, {"cameras", list}, {"unavailable", unavailable}};
}

namespace {
// The exit status of a backend that cannot be used, its message written.
int cameraFailure(const CameraError& error, std::ostream& err) {
  err << "oxelo: " << error.message << "\n";
  return exitStatusOf(error);
}
}  // namespace

int runCameraCommand(const CommandLine& commandLine, std::ostream& out, std::ostream& err) {
  CameraError error;
  auto cameras = CameraSystem::open(commandLine.camera, error);
  if (!cameras) return cameraFailure(error, err);
  if (commandLine.listCameras) out << describeCameras(*cameras).dump(2) << "\n";
  if (commandLine.catalogue) {
    auto defaults = std::make_shared<UserDefaults>(
        commandLine.configDir ? std::filesystem::path(*commandLine.configDir)
                              : UserDefaults::configDirectory());
    defaults->registerDefaults(registeredDefaults());
    auto previous = UserDefaults::standard();
    UserDefaults::setStandard(defaults);
    VideoSizeCatalogue catalogue(cameras);
    catalogue.reloadVideoSizes();
    UserDefaults::setStandard(previous);
    out << catalogue.toJson().dump() << "\n";
  }
  return 0;
}

int startCameras(const std::string& source, std::ostream& err) {
  CameraError error;
  auto cameras = CameraSystem::open(source, error);
  if (!cameras) return cameraFailure(error, err);
  oxlog("MAIN - cameras: {} ({} found)", cameras->backend(), cameras->devices().size());
  CameraSystem::setCurrent(std::move(cameras));
  return 0;
}

void loadCatalogueAtStartup() { VideoSizeCatalogue::shared().applyStartupSizeRule(); }

}  // namespace oxelo
