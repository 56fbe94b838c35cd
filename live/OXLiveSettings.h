#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live/OXHelper.h"
#include "live/OXLiveView.h"
#include "live/RulerView.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

// The device properties the panel follows while it is open, in the order it
// attaches to them.
enum class PanelDeviceKey {
  exposureMode,
  exposureDuration,
  ISO,
  exposureTargetBias,
  whiteBalanceMode,
  deviceWhiteBalanceGains,
  focusMode,
  lensPosition,
  videoZoomFactor,
  activePrimaryConstituentDevice,
};
inline constexpr std::array<PanelDeviceKey, 10> kPanelDeviceKeys = {
    PanelDeviceKey::exposureMode,
    PanelDeviceKey::exposureDuration,
    PanelDeviceKey::ISO,
    PanelDeviceKey::exposureTargetBias,
    PanelDeviceKey::whiteBalanceMode,
    PanelDeviceKey::deviceWhiteBalanceGains,
    PanelDeviceKey::focusMode,
    PanelDeviceKey::lensPosition,
    PanelDeviceKey::videoZoomFactor,
    PanelDeviceKey::activePrimaryConstituentDevice};

// What the panel reads and changes of the camera in use: the capture's
// controls and the device's questions. Modes by the device's numbers (0
// locked, 1 one-time automatic, 2 continuous, exposure 3 custom). Without a
// camera the reads give the capture's neutral values and every mode is
// unsupported. Main queue.
class PanelCamera {
 public:
  virtual ~PanelCamera() = default;
  // The capture's controls.
  virtual double exposure() const = 0;
  virtual double maxExposure() const = 0;
  virtual double ISO() const = 0;
  virtual double minISO() const = 0;
  virtual double maxISO() const = 0;
  virtual double exposureTargetBias() const = 0;
  virtual double minExposureTargetBias() const = 0;
  virtual double maxExposureTargetBias() const = 0;
  virtual float temperature() const = 0;
  virtual float tint() const = 0;
  virtual double lensPosition() const = 0;
  virtual double zoomScale() const = 0;
  virtual double maxZoomScale() const = 0;
  virtual bool autoExposure() const = 0;
  virtual bool autoWhiteBalance() const = 0;
  virtual bool autoFocus() const = 0;
  virtual bool aeLock() const = 0;
  virtual bool awbLock() const = 0;
  virtual bool afLock() const = 0;
  virtual int64_t captureDevicePosition() const = 0;  // 2 front
  virtual void setExposure(double seconds) = 0;
  virtual void setISO(double iso) = 0;
  virtual void setExposureTargetBias(double bias) = 0;
  virtual void setWbTempAndTint(float temperature, float tint) = 0;
  virtual void setLensPosition(double position) = 0;
  virtual void setZoomScale(double scale) = 0;
  virtual void setAutoExposure(bool on) = 0;
  virtual void setAutoWhiteBalance(bool on) = 0;
  virtual void setAutoFocus(bool on) = 0;
  virtual void setAeLock(bool lock) = 0;
  virtual void setAwbLock(bool lock) = 0;
  virtual void setAfLock(bool lock) = 0;
  // The device's.
  virtual bool isExposureModeSupported(int64_t mode) const = 0;
  virtual int64_t exposureMode() const = 0;
  virtual bool isWhiteBalanceModeSupported(int64_t mode) const = 0;
  virtual bool isFocusModeSupported(int64_t mode) const = 0;
  virtual bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const = 0;
  virtual bool isLockingFocusWithCustomLensPositionSupported() const = 0;
  virtual std::string deviceType() const = 0;
  // The type of the lens a camera of several lenses has in use; the device's
  // own type for a camera of one.
  virtual std::string primaryConstituentDeviceType() const = 0;
  // `changed` runs on the main queue after the property changed on the
  // device in use when observe() was called, until the subscription ends.
  [[nodiscard]] virtual Subscription observe(PanelDeviceKey key, std::function<void()> changed) = 0;
};

// The conversions between the ruler's integers and the camera's values.
namespace panel {
using Sections = std::array<int64_t, 10>;
// The panel's exposure marks before a device rewrites entries 5 and 6.
inline constexpr Sections kExposureSections = {1000, 500, 250, 125, 60, 30, 15, 1, 0, 0};
// 4, 5 or 6 by the longest exposure.
int64_t exposureSectionCount(double maxExposure);
// The first d from n down to 1 with e - 0.00001 below 1/d; 0 if none.
int64_t fractionDenominator(double e, int64_t n);
// The denominator shown for an exposure in seconds.
int64_t exposureFraction(double exposure, const Sections& sections, int64_t count);
int64_t rulerValueFromExposure(double exposure, const Sections& sections, int64_t count);
// The denominator the ruler's value asks for, by the constant table.
int64_t rulerExposureDenominator(int64_t value);
int64_t rulerZoomValue(double zoom, bool ultraWide);
double zoomFromRuler(int64_t value, bool ultraWide);
}  // namespace panel

// One cell of the item row as it is drawn.
struct PanelItem {
  std::string title;
  std::string icon;
  PanelColour colour;       // the icon's
  PanelColour titleColour;  // orange while the item is locked
  bool selectable = false;
};

// The camera settings panel: a row of items (exposure time, ISO, bias, white
// balance, focus, zoom), a ruler for the active item and the auto button
// that cycles it between automatic and locked. It sets the camera through
// PanelCamera and follows it: the device's changes while it is open, the
// host's locks, camera changes. Hidden until slideUp(); the device observers
// are attached only while it is open.
//
// The view draws it from the getters and redraws a cell when cellReloads()
// tells it (-1: all). Main queue, all of it. Held by shared pointer.
class OXLiveSettings final : public LiveSettingsPanel,
                             public RulerViewDelegate,
                             public std::enable_shared_from_this<OXLiveSettings> {
 public:
  struct Geometry {
    double videoWidth = 0.0;   // the video rectangle's width
    double videoBottom = 0.0;  // its bottom in containerView coordinates
    double inset = 0.0;        // button_space of the live view
    double screenWidth = 0.0;  // the ruler's width at creation
    bool landscape = false;    // the video configuration's
    double aspect = 0.5625;    // the picture's shorter side / longer side
    bool tablet = false;
  };
  struct Services {
    std::shared_ptr<PanelCamera> camera{};  // required
    std::shared_ptr<Haptics> haptics{};
    std::shared_ptr<LiveMessages> messages{};
    std::shared_ptr<Animator> animator{};  // default: no animation
    // Made at the first change of the ruler; default: none.
    std::function<std::unique_ptr<SelectionFeedback>()> makeFeedback{};
  };
  static constexpr double kHeight = 110.0;
  static constexpr int64_t kNoStatus = -1;

  static std::shared_ptr<OXLiveSettings> create(Geometry geometry, Services services);

  // LiveSettingsPanel.
  bool visible() const override { return visible_; }
  double top() const override { return geometry_.videoBottom + bottomBelowVideo_ - kHeight; }
  void slideUp() override { slideUp({}); }
  void slideUp(std::function<void()> completion);
  void slideDown(std::function<void(bool)> completion) override;
  void autoStatusChanged(int64_t item) override;
  void videoDeviceWillChange() override { removeCaptureDeviceObserver(); }
  void videoDeviceDidChange() override;
  void shutDown() override { removeCaptureDeviceObserver(); }

  // What the view draws.
  double alpha() const { return alpha_; }
  double bottomBelowVideo() const { return bottomBelowVideo_; }  // 0 when open
  int64_t activeIndex() const { return activeIndex_; }
  int64_t itemCount() const;
  PanelItem item(int64_t index) const;
  bool autoButtonHidden() const { return autoButtonHidden_; }
  int64_t autoButtonStatus() const { return autoButtonStatus_; }
  // The icon's name, size and whether it is orange, by status.
  struct Icon {
    std::string name;
    double size = 0.0;
    bool orange = false;
  };
  static Icon autoButtonIcon(int64_t status);
  // The frames inside the panel (0, 0 at its top left, kHeight high).
  struct Layout {
    LiveRect autoButton, ruler, items;
    double itemWidth = 0.0, itemHeight = 60.0;
  };
  Layout layout() const;
  // Lays the panel out again: the ruler takes its new width.
  void layoutSubviews();
  RulerView& ruler() { return ruler_; }
  bool rulerEnabled() const { return rulerEnabled_; }
  double rulerAlpha() const { return rulerEnabled_ ? 1.0 : 0.75; }
  [[nodiscard]] Subscription onCellReload(std::function<void(int64_t)> listener) {
    return cellReloads_.add(std::move(listener));
  }
  const panel::Sections& exposureSections() const { return sections_; }
  bool hasUltraWide() const { return hasUltraWide_; }
  bool deviceObserverAdded() const { return deviceObserverAdded_; }

  // What the user does.
  bool shouldSelectItem(int64_t index) const;
  void didSelectItem(int64_t index);
  void onAutoButtonTapped();

  // RulerViewDelegate.
  void rulerViewDidSelectValue(RulerView& ruler, int64_t value) override;
  std::optional<std::string> rulerViewTextForCalibration(int64_t value) override;

 private:
  OXLiveSettings(Geometry geometry, Services services);
  static RulerConfig panelRulerConfig();
  void onSettingItemChanged(int64_t item);
  void updateAutoButtonForSettings(int64_t item);
  void setAutoButtonStatus(int64_t status);
  void updateRulerValue();
  void updateSettingItemText(int64_t item);
  void videoCaptureSettingsChanged(int64_t item);
  void observed(PanelDeviceKey key);
  void removeCaptureDeviceObserver();
  void reloadCell(int64_t item) { cellReloads_.notify(item); }
  int64_t sectionCount() const;
  bool locked(int64_t item) const;

  Geometry geometry_;
  Services services_;
  int64_t activeIndex_ = 0;
  std::array<std::string, 6> titles_ = {"Auto", "Auto", "EV", "Auto", "Auto", "1×"};
  panel::Sections sections_ = panel::kExposureSections;
  bool hasUltraWide_ = false;
  bool aeAvailable_ = false, exposureAvailable_ = false, isoAvailable_ = false,
       evAvailable_ = false, awbAvailable_ = false, wbAvailable_ = false, afAvailable_ = false,
       focusAvailable_ = false;
  bool deviceObserverAdded_ = false;
  std::vector<Subscription> deviceObservers_;
  std::unique_ptr<SelectionFeedback> feedback_;
  int64_t autoButtonStatus_ = kNoStatus;
  bool autoButtonHidden_ = false;
  RulerView ruler_;
  bool rulerEnabled_ = true;
  bool visible_ = false;
  double alpha_ = 0.0;
  double bottomBelowVideo_ = 120.0;
  Observers<int64_t> cellReloads_;
};

}  // namespace oxelo
