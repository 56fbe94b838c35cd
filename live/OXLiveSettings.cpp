#include "live/OXLiveSettings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "platform/camera/CaptureTypes.h"

namespace oxelo {

namespace panel {
namespace {
// The denominators the ruler's value turns into; never rewritten.
constexpr std::array<int32_t, 16> kRulerDenominators = {1000, 500, 250, 125, 60, 30, 15,
                                                        10,   5,   4,   3,   2,  1};
}  // namespace

int64_t exposureSectionCount(double maxExposure) {
  const double r = 1.0 / maxExposure;
  if (r <= 15.0) return 6;
  if (r >= 60.0) return 4;
  return 5;
}

int64_t fractionDenominator(double e, int64_t n) {
  for (int64_t d = n; d >= 1; --d)
    if (e - 0.00001 < 1.0 / static_cast<double>(d)) return d;
  return 0;
}

int64_t exposureFraction(double exposure, const Sections& sections, int64_t count) {
  const double e = static_cast<int32_t>(exposure * 100000.0) / 100000.0;
  if (e <= 0.001) return 1000;
  for (int64_t i = 1; i <= count && i < static_cast<int64_t>(sections.size()); ++i)
    if (e <= 1.0 / static_cast<double>(sections[i])) return fractionDenominator(e, sections[i - 1]);
  return 1;
}

int64_t rulerValueFromExposure(double exposure, const Sections& sections, int64_t count) {
  const int64_t f = exposureFraction(exposure, sections, count);
  for (int64_t i = 0; i < count && i + 1 < static_cast<int64_t>(sections.size()); ++i) {
    if (f < sections[i + 1]) continue;
    const double p = static_cast<double>(sections[i]), q = static_cast<double>(sections[i + 1]);
    return static_cast<int64_t>(std::trunc(10.0 * i + 10.0 * (p - f) / (p - q)));
  }
  return 0;
}

int64_t rulerExposureDenominator(int64_t value) {
  const int64_t last = static_cast<int64_t>(kRulerDenominators.size()) - 2;
  const int64_t k = std::clamp<int64_t>(value / 10, 0, last);
  const int64_t r = value % 10;
  const int64_t t = kRulerDenominators[k], next = kRulerDenominators[k + 1];
  return r == 0 ? t : t - (t - next) * r / 10;
}

int64_t rulerZoomValue(double zoom, bool ultraWide) {
  if (ultraWide && zoom >= 2.0) return static_cast<int64_t>(std::round(zoom * 5.0)) + 10;
  return static_cast<int64_t>(std::round(zoom * 10.0));
}

double zoomFromRuler(int64_t value, bool ultraWide) {
  if (ultraWide && value > 19) return static_cast<double>(value - 10) / 5.0;
  return static_cast<double>(value) / 10.0;
}
}  // namespace panel

namespace {
// The host's lock toasts stay a second.
constexpr double kLockToastSeconds = 1.0;
constexpr PanelColour kNormal{218, 224, 237};
constexpr PanelColour kActive{237, 237, 0};
constexpr PanelColour kOrange{255, 149, 0};
constexpr const char* kIcons[6] = {"exposure-filled", "iso-filled",   "iso-alt",
                                   "whitebalance",    "focus-filled", "zoom-in"};

std::string format(const char* pattern, auto value) {
  char text[64];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}
int64_t trunc64(double v) { return static_cast<int64_t>(std::trunc(v)); }
int64_t round64(double v) { return static_cast<int64_t>(std::round(v)); }
}  // namespace

std::shared_ptr<OXLiveSettings> OXLiveSettings::create(Geometry geometry, Services services) {
  return std::shared_ptr<OXLiveSettings>(new OXLiveSettings(geometry, std::move(services)));
}

OXLiveSettings::OXLiveSettings(Geometry geometry, Services services)
    : geometry_(geometry), services_(std::move(services)), ruler_(geometry.screenWidth, 40.0) {
  if (!services_.animator) services_.animator = std::make_shared<Animator>();
  ruler_.setDelegate(this);
  ruler_.roloadWithNewConfig(panelRulerConfig());
}

RulerConfig OXLiveSettings::panelRulerConfig() {
  RulerConfig c = RulerConfig::defaultConfig();
  c.shortScaleLength = 7.0;
  c.longScaleLength = 11.0;
  c.scaleWidth = 2.0;
  c.shortScaleStart = 33.0;
  c.longScaleStart = 29.0;
  c.scaleColor = {192, 192, 192};
  c.distanceBetweenScale = 4.0;
  c.distanceFromScaleToNumber = 10.0;
  c.pointWidth = 2.0;
  c.pointLength = 11.0;
  c.pointColor = {237, 237, 0};
  c.pointStart = 29.0;
  c.numberFontSize = 11.0;
  c.numberColor = {192, 192, 192};
  c.numberDirection = 0;
  c.max = 100;
  c.min = 0;
  c.offset = 1;
  c.defaultNumber = 0;
  return c;
}

int64_t OXLiveSettings::itemCount() const { return services_.camera->maxZoomScale() > 1.0 ? 6 : 5; }

int64_t OXLiveSettings::sectionCount() const {
  return panel::exposureSectionCount(services_.camera->maxExposure());
}

bool OXLiveSettings::locked(int64_t item) const {
  const auto& c = *services_.camera;
  switch (item) {
    case 0:
    case 1:
      return c.aeLock();
    case 3:
      return c.awbLock();
    case 4:
      return c.afLock();
    default:
      return false;
  }
}

PanelItem OXLiveSettings::item(int64_t index) const {
  PanelItem it;
  if (index < 0 || index >= 6) return it;
  it.title = titles_[index];
  it.icon = kIcons[index];
  it.selectable = shouldSelectItem(index);
  it.colour = index == activeIndex_ ? kActive : kNormal;
  if (!it.selectable) it.colour.a = 0.4;
  it.titleColour = locked(index) ? kOrange : it.colour;
  return it;
}

OXLiveSettings::Icon OXLiveSettings::autoButtonIcon(int64_t status) {
  switch (status) {
    case 0:
      return {"auto", 26.0, false};
    case 1:
      return {"edit", 22.0, false};
    case 2:
      return {"lock", 22.0, true};
    case 3:
      return {"cam-ultra-wide", 24.0, false};
    case 4:
      return {"cam-wide", 24.0, false};
    case 5:
      return {"cam-telephoto", 24.0, false};
    case 6:
      return {"cam-frontcam", 24.0, false};
    default:
      return {};
  }
}

bool OXLiveSettings::shouldSelectItem(int64_t index) const {
  switch (index) {
    case 0:
      return aeAvailable_ || exposureAvailable_;
    case 1:
      return isoAvailable_;
    case 2:
      return evAvailable_;
    case 3:
      return awbAvailable_ || wbAvailable_;
    case 4:
      return afAvailable_ || focusAvailable_;
    case 5:
      return true;
    default:
      return false;
  }
}

void OXLiveSettings::didSelectItem(int64_t index) {
  if (index == activeIndex_) return;
  const int64_t old = activeIndex_;
  activeIndex_ = index;
  onSettingItemChanged(index);
  reloadCell(old);
  reloadCell(index);
}

void OXLiveSettings::onSettingItemChanged(int64_t item) {
  const auto& c = *services_.camera;
  autoButtonHidden_ = false;
  RulerConfig config = ruler_.rulerConfig();
  double distance = 0.0;
  switch (item) {
    case 0:
      config.min = 0;
      config.max = 10 * sectionCount();
      config.defaultNumber = panel::rulerValueFromExposure(c.exposure(), sections_, sectionCount());
      distance = 7.0;
      if (config.max == 50) {
        sections_[5] = trunc64(1.0 / c.maxExposure());
      } else if (config.max == 60) {
        sections_[5] = 30;
        sections_[6] = trunc64(1.0 / c.maxExposure());
      }
      break;
    case 1:
      config.min = trunc64(c.minISO() / 10.0);
      config.max = trunc64(c.maxISO() / 10.0);
      config.defaultNumber = round64(c.ISO() / 10.0);
      distance = c.maxISO() > 1000.0 ? 4.0 : 6.0;
      autoButtonHidden_ = true;
      break;
    case 2:
      config.min = trunc64(c.minExposureTargetBias() * 10.0);
      config.max = trunc64(c.maxExposureTargetBias() * 10.0);
      config.defaultNumber = trunc64(c.exposureTargetBias() * 10.0);
      distance = 4.0;
      autoButtonHidden_ = true;
      break;
    case 3:
      config.min = 20;
      config.max = 80;
      config.defaultNumber = trunc64((c.temperature() + 0.5) / 100.0);
      distance = 6.0;
      break;
    case 4:
      config.min = 0;
      config.max = 100;
      config.defaultNumber = trunc64(c.lensPosition() * 100.0);
      distance = 5.0;
      break;
    default: {
      const double maxZoom = hasUltraWide_ ? std::min(c.maxZoomScale(), 11.0) : c.maxZoomScale();
      config.min = 10;
      config.max = trunc64(maxZoom * 10.0);
      config.defaultNumber = panel::rulerZoomValue(c.zoomScale(), hasUltraWide_);
      distance = 5.0;
      break;
    }
  }
  if (geometry_.landscape) distance += geometry_.aspect >= 0.75 ? 1.0 : 1.5;
  if (geometry_.tablet) distance *= geometry_.landscape ? 1.75 : 1.5;
  config.distanceBetweenScale = distance;
  if (!autoButtonHidden_) updateAutoButtonForSettings(item);
  ruler_.roloadWithNewConfig(config);
  const bool manual[6] = {exposureAvailable_, isoAvailable_,   evAvailable_,
                          wbAvailable_,       focusAvailable_, true};
  rulerEnabled_ = item >= 0 && item < 6 && manual[item];
  updateSettingItemText(item);
  layoutSubviews();
}

OXLiveSettings::Layout OXLiveSettings::layout() const {
  Layout l;
  const double inset = geometry_.inset, width = geometry_.videoWidth;
  l.autoButton = {inset, 10.0, 44.0, 44.0};
  const double rulerX = autoButtonHidden_ ? inset : l.autoButton.right() + inset;
  l.ruler = {rulerX, 0.0, std::max(0.0, width - inset - rulerX), 40.0};
  l.items = {0.0, l.ruler.bottom() + 10.0, width, kHeight - l.ruler.bottom() - 10.0};
  l.itemWidth = width / static_cast<double>(itemCount());
  return l;
}

void OXLiveSettings::layoutSubviews() {
  const LiveRect r = layout().ruler;
  ruler_.setSize(r.width, r.height);
}

void OXLiveSettings::updateAutoButtonForSettings(int64_t item) {
  const auto& c = *services_.camera;
  const auto status = [](bool lock, bool automatic) -> int64_t {
    return lock ? 2 : automatic ? 0 : 1;
  };
  switch (item) {
    case 0:
      setAutoButtonStatus(status(c.aeLock(), c.autoExposure()));
      break;
    case 3:
      setAutoButtonStatus(status(c.awbLock(), c.autoWhiteBalance()));
      break;
    case 4:
      setAutoButtonStatus(status(c.afLock(), c.autoFocus()));
      break;
    case 5: {
      const std::string type = c.primaryConstituentDeviceType();
      int64_t s = 4;
      if (type == AVCaptureDeviceTypeBuiltInTelephotoCamera) s = 5;
      if (type == AVCaptureDeviceTypeBuiltInUltraWideCamera) s = 3;
      if (c.captureDevicePosition() == AVCaptureDevicePositionFront) s = 6;
      setAutoButtonStatus(s);
      break;
    }
    default:
      break;
  }
}

void OXLiveSettings::setAutoButtonStatus(int64_t status) {
  if (autoButtonStatus_ == status) return;
  autoButtonStatus_ = status;
}

void OXLiveSettings::updateRulerValue() {
  const auto& c = *services_.camera;
  int64_t value = 0;
  switch (activeIndex_) {
    case 0:
      value = panel::rulerValueFromExposure(c.exposure(), sections_, sectionCount());
      break;
    case 1:
      value = round64(c.ISO() / 10.0);
      break;
    case 2:
      value = trunc64(c.exposureTargetBias() * 10.0);
      break;
    case 3:
      value = trunc64((c.temperature() + 0.5) / 100.0);
      break;
    case 4:
      value = trunc64(c.lensPosition() * 100.0);
      break;
    default:
      value = panel::rulerZoomValue(c.zoomScale(), hasUltraWide_);
      break;
  }
  ruler_.setCurrentValue(value);
}

void OXLiveSettings::updateSettingItemText(int64_t item) {
  const auto& c = *services_.camera;
  const bool automatic[6] = {
      c.autoExposure() && !c.aeLock(),      c.autoExposure() && !c.aeLock(), false,
      c.autoWhiteBalance() && !c.awbLock(), c.autoFocus() && !c.afLock(),    false};
  if (item < 0 || item >= 6) return;
  if (automatic[item]) {
    titles_[item] = "Auto";
    return;
  }
  switch (item) {
    case 0:
      titles_[0] = format("1/%ldS", static_cast<long>(panel::exposureFraction(
                                        c.exposure(), sections_, sectionCount())));
      break;
    case 1:
      titles_[1] = format("%ld", static_cast<long>(round64(c.ISO())));
      break;
    case 2: {
      const double bias = c.exposureTargetBias();
      titles_[2] = !evAvailable_ ? "EV" : format(bias > 0 ? "+%.1f" : "%.1f", bias);
      break;
    }
    case 3:
      titles_[3] =
          format("%ldK", static_cast<long>(trunc64((c.temperature() + 0.5) / 100.0) * 100));
      break;
    case 4:
      titles_[4] = format("%ld", static_cast<long>(trunc64(c.lensPosition() * 100.0)));
      break;
    default:
      titles_[5] = format("%.1f×", hasUltraWide_ ? c.zoomScale() / 2.0 : c.zoomScale());
      break;
  }
}

void OXLiveSettings::rulerViewDidSelectValue(RulerView&, int64_t v) {
  if (!feedback_ && services_.makeFeedback) {
    feedback_ = services_.makeFeedback();
    if (feedback_) feedback_->prepare();
  }
  if (feedback_) feedback_->selectionChanged();
  auto& c = *services_.camera;
  switch (activeIndex_) {
    case 0: {
      float e = 1.0f / static_cast<float>(panel::rulerExposureDenominator(v));
      if (c.autoExposure()) c.setAutoExposure(false);
      c.setExposure(std::clamp(static_cast<double>(e), 0.001, 1.0));
      break;
    }
    case 1:
      c.setISO(static_cast<double>(v * 10));
      break;
    case 2:
      c.setExposureTargetBias(static_cast<double>(v) / 10.0);
      break;
    case 3: {
      const float tint = c.tint();
      if (c.autoWhiteBalance()) c.setAutoWhiteBalance(false);
      c.setWbTempAndTint(static_cast<float>(v * 100), tint);
      break;
    }
    case 4:
      if (c.autoFocus()) c.setAutoFocus(false);
      c.setLensPosition(static_cast<double>(v) / 100.0);
      break;
    default:
      c.setZoomScale(panel::zoomFromRuler(v, hasUltraWide_));
      break;
  }
}

std::optional<std::string> OXLiveSettings::rulerViewTextForCalibration(int64_t v) {
  switch (activeIndex_) {
    case 0:
      if (v >= 0 && v <= 99 && v % 10 == 0)
        return format("1/%ld", static_cast<long>(sections_[v / 10]));
      return "?";
    case 1:
      return format("%ld", static_cast<long>(v * 10));
    case 2:
      return format(v >= 1 ? "+%ld" : "%ld", static_cast<long>(v / 10));
    case 3:
      return format("%ldK", static_cast<long>(v * 100));
    case 4:
      return format("%ld", static_cast<long>(v));
    default:
      if (!hasUltraWide_) return format("%ld×", static_cast<long>(v / 10));
      if (v < 20) return format("%.1f×", static_cast<double>(v) / 20.0);
      return format("%ld×", static_cast<long>(v / 10 - 1));
  }
}

void OXLiveSettings::onAutoButtonTapped() {
  if (activeIndex_ == 5) return;
  const int64_t status = autoButtonStatus_ == 2 ? 0 : 2;
  OXHelper::mediumVibrate(services_.haptics.get());
  auto& c = *services_.camera;
  const bool lock = status == 2;
  switch (activeIndex_) {
    case 4:
      c.setAfLock(lock);
      c.setAutoFocus(!c.afLock());
      break;
    case 3:
      c.setAwbLock(lock);
      c.setAutoWhiteBalance(!c.awbLock());
      break;
    case 0:
      c.setAeLock(lock);
      c.setAutoExposure(!c.aeLock());
      if (c.aeLock()) videoCaptureSettingsChanged(1);
      break;
    default:
      break;
  }
  // The button shows what was asked at once; a device already in manual
  // mode reports no change that would bring the status round.
  setAutoButtonStatus(status);
  reloadCell(activeIndex_);
}

void OXLiveSettings::videoCaptureSettingsChanged(int64_t item) {
  if (item == activeIndex_) {
    updateAutoButtonForSettings(item);
    updateRulerValue();
  }
  updateSettingItemText(item);
  reloadCell(item);
}

void OXLiveSettings::autoStatusChanged(int64_t item) {
  const auto& c = *services_.camera;
  const char* toast = nullptr;
  bool lock = false;
  switch (item) {
    case 0:
      lock = c.aeLock();
      toast = "AE LOCK";
      break;
    case 3:
      lock = c.awbLock();
      toast = "AWB LOCK";
      break;
    case 4:
      lock = c.afLock();
      toast = "AF LOCK";
      break;
    default:
      if (item == activeIndex_) setAutoButtonStatus(0);
      return;
  }
  if (lock && services_.messages) services_.messages->showToast(toast, kLockToastSeconds);
  if (item == 0) videoCaptureSettingsChanged(1);
  if (item == activeIndex_) setAutoButtonStatus(lock ? 2 : 0);
  reloadCell(item);
}

void OXLiveSettings::videoDeviceDidChange() {
  const auto& c = *services_.camera;
  const std::string type = c.deviceType();
  hasUltraWide_ = type == AVCaptureDeviceTypeBuiltInTripleCamera ||
                  type == AVCaptureDeviceTypeBuiltInDualWideCamera;
  aeAvailable_ = c.isExposureModeSupported(1) || c.isExposureModeSupported(2);
  exposureAvailable_ = c.isExposureModeSupported(3);
  isoAvailable_ = exposureAvailable_;
  evAvailable_ = c.exposureMode() != 3;
  awbAvailable_ = c.isWhiteBalanceModeSupported(1) || c.isWhiteBalanceModeSupported(2);
  wbAvailable_ = c.isLockingWhiteBalanceWithCustomDeviceGainsSupported();
  afAvailable_ = c.isFocusModeSupported(1) || c.isFocusModeSupported(2);
  focusAvailable_ = c.isLockingFocusWithCustomLensPositionSupported();
  for (int64_t i = 0; i < 6; ++i) updateSettingItemText(i);
  reloadCell(-1);
  if (shouldSelectItem(activeIndex_)) {
    onSettingItemChanged(activeIndex_);
  } else {
    for (int64_t i = 0; i < 6; ++i)
      if (shouldSelectItem(i)) {
        didSelectItem(i);
        break;
      }
  }
  if (deviceObserverAdded_) return;
  std::weak_ptr<OXLiveSettings> weak = weak_from_this();
  for (PanelDeviceKey key : kPanelDeviceKeys)
    deviceObservers_.push_back(services_.camera->observe(key, [weak, key] {
      if (auto self = weak.lock()) self->observed(key);
    }));
  deviceObserverAdded_ = true;
}

void OXLiveSettings::removeCaptureDeviceObserver() {
  if (!deviceObserverAdded_) return;
  // In the order they were attached.
  for (auto& observer : deviceObservers_) observer.reset();
  deviceObservers_.clear();
  deviceObserverAdded_ = false;
}

void OXLiveSettings::observed(PanelDeviceKey key) {
  const auto& c = *services_.camera;
  switch (key) {
    case PanelDeviceKey::exposureMode: {
      videoCaptureSettingsChanged(0);
      videoCaptureSettingsChanged(1);
      const bool ev = c.exposureMode() != 3;
      if (ev != evAvailable_) {
        evAvailable_ = ev;
        updateSettingItemText(2);
        reloadCell(2);
      }
      break;
    }
    case PanelDeviceKey::exposureDuration:
      if (!c.autoExposure() || activeIndex_ == 0) videoCaptureSettingsChanged(0);
      break;
    case PanelDeviceKey::ISO:
      if (!c.autoExposure() || activeIndex_ == 1) videoCaptureSettingsChanged(1);
      break;
    case PanelDeviceKey::exposureTargetBias:
      videoCaptureSettingsChanged(2);
      break;
    case PanelDeviceKey::whiteBalanceMode:
      videoCaptureSettingsChanged(3);
      break;
    case PanelDeviceKey::deviceWhiteBalanceGains:
      if (!c.autoWhiteBalance() || activeIndex_ == 3) videoCaptureSettingsChanged(3);
      break;
    case PanelDeviceKey::focusMode:
      videoCaptureSettingsChanged(4);
      break;
    case PanelDeviceKey::lensPosition:
      if (!c.autoFocus() || activeIndex_ == 4) videoCaptureSettingsChanged(4);
      break;
    case PanelDeviceKey::videoZoomFactor:
      if (c.maxZoomScale() > 1.0) videoCaptureSettingsChanged(5);
      break;
    case PanelDeviceKey::activePrimaryConstituentDevice:
      if (activeIndex_ == 5) updateAutoButtonForSettings(5);
      break;
  }
}

void OXLiveSettings::slideUp(std::function<void()> completion) {
  videoDeviceDidChange();
  visible_ = true;
  alpha_ = 0.0;
  // The model takes the end values; the view animates towards them.
  alpha_ = 1.0;
  bottomBelowVideo_ = 0.0;
  services_.animator->animate(SpringAnimation{}, [completion = std::move(completion)](bool) {
    if (completion) completion();
  });
}

void OXLiveSettings::slideDown(std::function<void(bool)> completion) {
  if (!visible_) return;
  removeCaptureDeviceObserver();
  feedback_.reset();
  alpha_ = 0.0;
  bottomBelowVideo_ = kHeight;
  std::weak_ptr<OXLiveSettings> weak = weak_from_this();
  services_.animator->animate(SpringAnimation{},
                              [weak, completion = std::move(completion)](bool finished) {
                                if (completion) completion(finished);
                                if (auto self = weak.lock()) self->visible_ = false;
                              });
}

}  // namespace oxelo
