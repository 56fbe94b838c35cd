#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "capture/LFVideoCapture.h"
#include "live/OXLiveSettings.h"
#include "platform/dispatch/RepeatingTimer.h"

namespace oxelo {

// The settings panel's camera on the live session's capture: the controls go
// to LFVideoCapture, the questions to its device in use.
//
// The camera model has no change notification for the properties the panel
// follows, so observation compares the device's state on a timer of the
// main queue every `interval` seconds while anyone observes, and tells the
// observers of each property that differs. A change of camera ends what an
// observer hears: only the device of its observe() call is compared. Main
// queue, all of it.
class CapturePanelCamera final : public PanelCamera,
                                 public std::enable_shared_from_this<CapturePanelCamera> {
 public:
  static constexpr double kDefaultInterval = 0.1;

  static std::shared_ptr<CapturePanelCamera> create(std::shared_ptr<LFVideoCapture> capture,
                                                    double interval = kDefaultInterval);
  ~CapturePanelCamera() override;

  double exposure() const override { return capture_->exposure(); }
  double maxExposure() const override { return capture_->maxExposure(); }
  double ISO() const override { return capture_->ISO(); }
  double minISO() const override { return capture_->minISO(); }
  double maxISO() const override { return capture_->maxISO(); }
  double exposureTargetBias() const override { return capture_->exposureTargetBias(); }
  double minExposureTargetBias() const override { return capture_->minExposureTargetBias(); }
  double maxExposureTargetBias() const override { return capture_->maxExposureTargetBias(); }
  float temperature() const override { return capture_->wbTempAndTint().temperature; }
  float tint() const override { return capture_->wbTempAndTint().tint; }
  double lensPosition() const override { return capture_->lensPosition(); }
  double zoomScale() const override { return capture_->zoomScale(); }
  double maxZoomScale() const override { return capture_->maxZoomScale(); }
  bool autoExposure() const override { return capture_->autoExposure(); }
  bool autoWhiteBalance() const override { return capture_->autoWhiteBalance(); }
  bool autoFocus() const override { return capture_->autoFocus(); }
  bool aeLock() const override { return capture_->aeLock(); }
  bool awbLock() const override { return capture_->awbLock(); }
  bool afLock() const override { return capture_->afLock(); }
  int64_t captureDevicePosition() const override { return capture_->captureDevicePosition(); }
  void setExposure(double seconds) override { capture_->setExposure(seconds); }
  void setISO(double iso) override { capture_->setISO(iso); }
  void setExposureTargetBias(double bias) override { capture_->setExposureTargetBias(bias); }
  void setWbTempAndTint(float temperature, float tint) override {
    capture_->setWbTempAndTint(temperature, tint);
  }
  void setLensPosition(double position) override { capture_->setLensPosition(position); }
  void setZoomScale(double scale) override { capture_->setZoomScale(scale); }
  void setAutoExposure(bool on) override { capture_->setAutoExposure(on); }
  void setAutoWhiteBalance(bool on) override { capture_->setAutoWhiteBalance(on); }
  void setAutoFocus(bool on) override { capture_->setAutoFocus(on); }
  void setAeLock(bool lock) override { capture_->setAeLock(lock); }
  void setAwbLock(bool lock) override { capture_->setAwbLock(lock); }
  void setAfLock(bool lock) override { capture_->setAfLock(lock); }

  bool isExposureModeSupported(int64_t mode) const override;
  int64_t exposureMode() const override;
  bool isWhiteBalanceModeSupported(int64_t mode) const override;
  bool isFocusModeSupported(int64_t mode) const override;
  bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const override;
  bool isLockingFocusWithCustomLensPositionSupported() const override;
  std::string deviceType() const override;
  std::string primaryConstituentDeviceType() const override { return deviceType(); }
  Subscription observe(PanelDeviceKey key, std::function<void()> changed) override;

  // Compares at once, as the timer does.
  void poll();

 private:
  struct Watch {
    int id;
    PanelDeviceKey key;
    std::weak_ptr<CaptureDevice> device;
    std::shared_ptr<std::function<void()>> changed;
  };
  CapturePanelCamera(std::shared_ptr<LFVideoCapture> capture, double interval)
      : capture_(std::move(capture)), interval_(interval) {}
  static bool differs(PanelDeviceKey key, const CaptureDeviceState& a, const CaptureDeviceState& b);

  std::shared_ptr<LFVideoCapture> capture_;
  const double interval_;
  std::vector<Watch> watches_;
  int nextId_ = 0;
  std::weak_ptr<CaptureDevice> polled_;     // the device last compared
  std::optional<CaptureDeviceState> last_;  // its state then
  std::unique_ptr<RepeatingTimer> timer_;
};

// The panel of the live view `view`: on its session's capture, under its
// video rectangle with its button_space as the inset, its ruler shaped by
// the video configuration. `services.camera` is filled in; none when the
// session has no capture. For OXLiveView::Services::makeSettingsPanel.
std::shared_ptr<OXLiveSettings> makeLiveSettingsPanel(OXLiveView& view,
                                                      OXLiveSettings::Services services,
                                                      bool tablet);

}  // namespace oxelo
