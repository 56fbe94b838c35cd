#include "shell/options/OptionsScreen.h"

#include <fmt/format.h>
#include <sys/utsname.h>

#include <charconv>

#include "platform/camera/CaptureTypes.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/device/NetworkInterfaces.h"
#include "shell/AppDelegate.h"
#include "shell/options/AppLanguages.h"
#include "shell/web/MakerAddresses.h"

namespace oxelo {

namespace {

// The entry a stored index shows: the index modulo the list's length.
const std::string& entryModulo(const std::vector<std::string>& list, long long index) {
  const auto n = static_cast<long long>(list.size());
  return list[static_cast<size_t>(((index % n) + n) % n)];
}

long long rateOf(const std::string& text) {
  long long value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

const std::vector<OptionsRowInfo>& optionsRows() {
  using G = OptionsGroup;
  using K = OptionsRowKind;
  static const std::vector<OptionsRowInfo> rows = {
      {OptionsRow::orientation, G::video, K::sheet, "O_ORIENTATION"},
      {OptionsRow::videoSize, G::video, K::sheet, "O_VIDEO_SIZE"},
      {OptionsRow::frameRate, G::video, K::sheet, "O_FRAME_RATE"},
      {OptionsRow::quality, G::video, K::sheet, "O_QUALITY"},
      {OptionsRow::encoder, G::video, K::sheet, "O_ENCODER"},
      {OptionsRow::audio, G::video, K::sheet, "O_AUDIO"},
      {OptionsRow::backCamera, G::general, K::sheet, "O_BACK_CAMERA"},
      {OptionsRow::grid, G::general, K::toggle, "O_GRID"},
      {OptionsRow::autoConnect, G::general, K::toggle, "O_AUTO_CONNECT"},
      {OptionsRow::language, G::about, K::sheet, "O_LANGUAGE"},
      {OptionsRow::help, G::about, K::action, "O_HELP"},
      {OptionsRow::contact, G::about, K::action, "O_CONTACT"},
      {OptionsRow::share, G::about, K::action, "O_SHARE"},
  };
  return rows;
}

std::optional<std::vector<BackCameraChoice>> backCameraChoices(const CameraSystem& cameras) {
  // The session is built on a copy of the set, which is immutable and cheap
  // to share.
  auto system = std::make_shared<CameraSystem>(cameras.backend(), cameras.devices());
  auto session = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInTripleCamera, AVCaptureDeviceTypeBuiltInDualWideCamera,
       AVCaptureDeviceTypeBuiltInDualCamera},
      AVMediaTypeVideo, AVCaptureDevicePositionBack, system);
  if (session.devices().empty()) return std::nullopt;
  std::vector<BackCameraChoice> choices{
      {"O_CAMERA_SINGLE", AVCaptureDeviceTypeBuiltInWideAngleCamera}};
  for (const auto& device : session.devices())
    choices.push_back({device->localizedName(), device->deviceType()});
  return choices;
}

int backCameraTypeOf(const std::string& deviceType) {
  if (deviceType == AVCaptureDeviceTypeBuiltInDualCamera) return 1;
  if (deviceType == AVCaptureDeviceTypeBuiltInDualWideCamera) return 2;
  if (deviceType == AVCaptureDeviceTypeBuiltInTripleCamera) return 3;
  return 0;
}

AboutInfo AboutInfo::current() {
  AboutInfo info;
  info.shortVersion = shortVersionString();
  info.buildVersion = "1";  // one build of each version so far
  utsname names{};
  if (uname(&names) == 0) {
    info.systemName = names.sysname;
    info.systemVersion = names.release;
  }
  info.address = getIPAddress();
  return info;
}

std::string aboutFooterText(const AboutInfo& info) {
  std::string text = fmt::format("{} {}.{} ({} {})", info.displayName, info.shortVersion,
                                 info.buildVersion, info.systemName, info.systemVersion);
  if (info.address.empty()) return text;
  return fmt::format("{}, {}", text, info.address);
}

OptionsScreen::OptionsScreen(std::shared_ptr<UserDefaults> defaults, VideoSizeCatalogue& catalogue,
                             OptionsDevice device, OptionsView& view, Haptics& haptics,
                             UrlOpener& opener)
    : defaults_(std::move(defaults)),
      catalogue_(catalogue),
      device_(std::move(device)),
      view_(view),
      haptics_(haptics),
      opener_(opener) {}

void OptionsScreen::load() {
  videoOrientations_ = {"O_PORTRAIT", "O_LANDSCAPE"};
  rebuildVideoSizes();
  videoCodecs_ = {"H.264"};
  if (device_.hevcDecodeSupported) videoCodecs_.push_back("HEVC");
  qualities_ = {"O_QUALITY_LOW", "O_QUALITY_MEDIUM", "O_QUALITY_HIGH"};
  audioFormats_ = {"O_AUDIO_NONE", "O_AUDIO_MONO"};
  if (device_.stereoAudio) audioFormats_.push_back("O_AUDIO_STEREO");
  auto cameras = device_.cameras ? device_.cameras : CameraSystem::current();
  backCameras_ = cameras ? backCameraChoices(*cameras) : std::nullopt;
}

void OptionsScreen::rebuildVideoSizes() {
  videoSizes_.clear();
  for (const auto& entry : catalogue_.videoSizes())
    videoSizes_.push_back(fmt::format("{} × {}", entry.width, entry.height));
  videoFps_ = catalogue_.videoFrameRates();
}

std::vector<std::string> OptionsScreen::choices(OptionsRow row) const {
  switch (row) {
    case OptionsRow::orientation:
      return videoOrientations_;
    case OptionsRow::videoSize:
      return videoSizes_;
    case OptionsRow::frameRate:
      return videoFps_;
    case OptionsRow::quality:
      return qualities_;
    case OptionsRow::encoder:
      return videoCodecs_;
    case OptionsRow::audio:
      return audioFormats_;
    case OptionsRow::backCamera: {
      std::vector<std::string> names;
      if (backCameras_)
        for (const auto& c : *backCameras_) names.push_back(c.name);
      return names;
    }
    case OptionsRow::language: {
      std::vector<std::string> names;
      for (const auto& language : appLanguages()) names.push_back(language.name);
      return names;
    }
    default:
      return {};
  }
}

long long OptionsScreen::integer(const char* key) const { return defaults_->integerForKey(key); }

void OptionsScreen::writeInteger(const char* key, long long value) {
  defaults_->setInteger(key, value);
  defaults_->synchronize();
}

std::string OptionsScreen::shownValue(OptionsRow row) const {
  switch (row) {
    case OptionsRow::orientation:
      return defaults_->boolForKey(keys::videoPortrait) ? "O_PORTRAIT" : "O_LANDSCAPE";
    case OptionsRow::videoSize:
      return entryModulo(videoSizes_, integer(keys::videoSize));
    case OptionsRow::frameRate:
      return std::to_string(integer(keys::videoFPS));
    case OptionsRow::quality:
      return entryModulo(qualities_, integer(keys::videoQuality));
    case OptionsRow::encoder:
      return entryModulo(videoCodecs_, integer(keys::videoEncoder));
    case OptionsRow::audio:
      return entryModulo(audioFormats_, integer(keys::audioFormat));
    case OptionsRow::backCamera: {
      if (!backCameras_) return {};
      const long long type = integer(keys::backCameraType);
      for (const auto& c : *backCameras_)
        if (backCameraTypeOf(c.deviceType) == type) return c.name;
      return backCameras_->front().name;
    }
    case OptionsRow::language: {
      auto index = appLanguageIndex(preferredFirstLanguage(*defaults_));
      return index ? appLanguages()[*index].name : "";
    }
    default:
      return {};
  }
}

bool OptionsScreen::switchValue(OptionsRow row) const {
  if (row == OptionsRow::grid) return defaults_->boolForKey(keys::showGrid);
  if (row == OptionsRow::autoConnect) return defaults_->boolForKey(keys::autoConnect);
  return false;
}

bool OptionsScreen::isHidden(OptionsRow row) const {
  return row == OptionsRow::backCamera && !backCameras_;
}

bool OptionsScreen::select(OptionsRow row, size_t index) {
  if (isHidden(row) || index >= choices(row).size()) return false;
  switch (row) {
    case OptionsRow::orientation:
      defaults_->setBool(keys::videoPortrait, index == 0);
      defaults_->synchronize();
      break;
    case OptionsRow::videoSize:
      selectVideoSize(index);
      break;
    case OptionsRow::frameRate:
      writeInteger(keys::videoFPS, rateOf(videoFps_[index]));
      break;
    case OptionsRow::quality:
      // The audio quality follows the video quality, always.
      defaults_->setInteger(keys::videoQuality, static_cast<long long>(index));
      writeInteger(keys::audioQuality, static_cast<long long>(index));
      break;
    case OptionsRow::encoder:
      writeInteger(keys::videoEncoder, static_cast<long long>(index));
      break;
    case OptionsRow::audio:
      writeInteger(keys::audioFormat, static_cast<long long>(index));
      break;
    case OptionsRow::backCamera:
      selectBackCamera(index);
      break;
    case OptionsRow::language:
      selectLanguage(index);
      return true;
    default:
      return false;
  }
  view_.reloadTable();
  return true;
}

void OptionsScreen::selectVideoSize(size_t n) {
  // The largest size, where it is 4K, turns the rate down to 24, the quality
  // to medium and the codec to HEVC where there is one; leaving it restores
  // 30 frames per second only.
  const size_t last = videoSizes_.size() - 1;
  if (videoSizes_.back().find("3840") != std::string::npos) {
    if (n == last) {
      defaults_->setInteger(keys::videoFPS, 24);
      defaults_->setInteger(keys::videoQuality, 1);
      if (videoCodecs_.size() >= 2) defaults_->setInteger(keys::videoEncoder, 1);
    } else if (integer(keys::videoSize) == static_cast<long long>(last)) {
      defaults_->setInteger(keys::videoFPS, 30);
    }
  }
  const auto sizes = catalogue_.videoSizes();
  defaults_->setInteger(keys::videoSize, static_cast<long long>(n));
  if (n < sizes.size()) {
    defaults_->setInteger(keys::videoWidth, sizes[n].width);
    defaults_->setInteger(keys::videoHeight, sizes[n].height);
  }
  defaults_->synchronize();
  catalogue_.reloadVideoFrameRates();
  videoFps_ = catalogue_.videoFrameRates();
  capFrameRate();
}

void OptionsScreen::selectBackCamera(size_t n) {
  writeInteger(keys::backCameraType, backCameraTypeOf((*backCameras_)[n].deviceType));
  // The stored size stays a bare index, also where the new list is shorter.
  catalogue_.reloadVideoSizes();
  rebuildVideoSizes();
  capFrameRate();
}

void OptionsScreen::capFrameRate() {
  if (videoFps_.empty()) return;
  const long long highest = rateOf(videoFps_.back());
  if (integer(keys::videoFPS) > highest) writeInteger(keys::videoFPS, highest);
}

void OptionsScreen::selectLanguage(size_t n) {
  defaults_->setObject(keys::AppleLanguages, UserDefaults::Json::array({appLanguages()[n].code}));
  defaults_->synchronize();
  // The language takes effect at the next start: the program ends once the
  // user has read why.
  LiveAlert alert;
  alert.message = "O_RESTART_APP";
  alert.keys = true;
  alert.buttons.push_back({"A_OK", 0, [&view = view_] { view.quit(0); }});
  view_.showAlert(alert);
}

void OptionsScreen::setSwitch(OptionsRow row, bool on) {
  if (row != OptionsRow::grid && row != OptionsRow::autoConnect) return;
  defaults_->setBool(row == OptionsRow::grid ? keys::showGrid : keys::autoConnect, on);
  defaults_->synchronize();
}

void OptionsScreen::activate(OptionsRow row) {
  switch (row) {
    case OptionsRow::help:
      opener_.openUrl(maker::helpUrl);
      break;
    case OptionsRow::contact:
      opener_.openUrl(fmt::format("mailto:{}?subject=", maker::supportMail));
      break;
    case OptionsRow::share:
      view_.share(shareItems());
      break;
    default:
      break;
  }
}

bool OptionsScreen::longPress(OptionsRow row, int state) {
  if (row != OptionsRow::help || state != 1) return false;
  haptics_.heavyVibrate();
  view_.openAdvanced();
  return true;
}

void OptionsScreen::done() {
  if (onDismissed) onDismissed();
  view_.dismiss();
}

int OptionsScreen::headerHeight(OptionsGroup group) const {
  if (group == OptionsGroup::general) return 0;
  return device_.tablet ? 48 : 32;
}

ShareItems OptionsScreen::shareItems() const {
  std::string text = view_.text("S_RECOMMEND_CONTENT");
  const auto at = text.find("%@");
  if (at != std::string::npos) text.replace(at, 2, "⭐️ Oxelo ⭐️");
  return {text, maker::storeUrl, "oxelo_ad"};
}

}  // namespace oxelo
