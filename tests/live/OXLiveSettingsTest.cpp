// The camera settings panel on a scripted camera; expected values worked out by hand.
#include <map>

#include "live/OXLiveSettings.h"
#include "platform/camera/CaptureTypes.h"
#include "tests/live/LiveViewFixture.h"

namespace oxelo {
namespace {

// A camera whose values the test sets, recording what the panel asks of it.
class ScriptedCamera final : public PanelCamera {
 public:
  double exposure() const override { return exposure_; }
  double maxExposure() const override { return maxExposure_; }
  double ISO() const override { return iso_; }
  double minISO() const override { return 20; }
  double maxISO() const override { return maxIso_; }
  double exposureTargetBias() const override { return bias_; }
  double minExposureTargetBias() const override { return -8; }
  double maxExposureTargetBias() const override { return 8; }
  float temperature() const override { return static_cast<float>(temperature_); }
  float tint() const override { return tint_; }
  double lensPosition() const override { return lens_; }
  double zoomScale() const override { return zoom_; }
  double maxZoomScale() const override { return maxZoom_; }
  bool autoExposure() const override { return autoExposure_; }
  bool autoWhiteBalance() const override { return autoWb_; }
  bool autoFocus() const override { return autoFocus_; }
  bool aeLock() const override { return aeLock_; }
  bool awbLock() const override { return awbLock_; }
  bool afLock() const override { return afLock_; }
  int64_t captureDevicePosition() const override { return position_; }
  void setExposure(double s) override { exposure_ = s; }
  void setISO(double v) override { iso_ = v; }
  void setExposureTargetBias(double v) override { bias_ = v; }
  void setWbTempAndTint(float t, float tint) override { temperature_ = t, tint_ = tint; }
  void setLensPosition(double v) override { lens_ = v; }
  void setZoomScale(double v) override { zoom_ = v; }
  void setAutoExposure(bool on) override { autoExposure_ = on; }
  void setAutoWhiteBalance(bool on) override { autoWb_ = on; }
  void setAutoFocus(bool on) override { autoFocus_ = on; }
  void setAeLock(bool on) override { aeLock_ = on; }
  void setAwbLock(bool on) override { awbLock_ = on; }
  void setAfLock(bool on) override { afLock_ = on; }
  bool isExposureModeSupported(int64_t m) const override { return exposureModes_ >> m & 1; }
  int64_t exposureMode() const override { return exposureMode_; }
  bool isWhiteBalanceModeSupported(int64_t m) const override { return wbModes_ >> m & 1; }
  bool isFocusModeSupported(int64_t m) const override { return focusModes_ >> m & 1; }
  bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const override { return customWb_; }
  bool isLockingFocusWithCustomLensPositionSupported() const override { return customFocus_; }
  std::string deviceType() const override { return type_; }
  std::string primaryConstituentDeviceType() const override { return lensType_; }
  Subscription observe(PanelDeviceKey key, std::function<void()> changed) override {
    attached.push_back(key);
    const int id = next_++;
    observers_[id] = {key, std::move(changed)};
    return Subscription([this, id, key] {
      detached.push_back(key);
      observers_.erase(id);
    });
  }
  // The device reports a change of `key`.
  void fire(PanelDeviceKey key) {
    auto copy = observers_;
    for (auto& [id, entry] : copy)
      if (entry.first == key) entry.second();
  }
  size_t observers() const { return observers_.size(); }

  std::vector<PanelDeviceKey> attached, detached;

  double exposure_ = 1.0 / 60, maxExposure_ = 1.0 / 3, iso_ = 400, maxIso_ = 3200, bias_ = 0;
  double temperature_ = 5049.6f;
  float tint_ = 3.0f;
  double lens_ = 0.5, zoom_ = 1.0, maxZoom_ = 10.0;
  bool autoExposure_ = true, autoWb_ = true, autoFocus_ = true;
  bool aeLock_ = false, awbLock_ = false, afLock_ = false;
  int64_t position_ = AVCaptureDevicePositionBack, exposureMode_ = 2;
  unsigned exposureModes_ = 0b1111, wbModes_ = 0b111, focusModes_ = 0b111;
  bool customWb_ = true, customFocus_ = true;
  std::string type_ = AVCaptureDeviceTypeBuiltInWideAngleCamera, lensType_ = type_;

 private:
  int next_ = 0;
  std::map<int, std::pair<PanelDeviceKey, std::function<void()>>> observers_;
};

class PanelTest : public testing::Test {
 protected:
  std::shared_ptr<OXLiveSettings> open(OXLiveSettings::Geometry geometry = {.videoWidth = 390,
                                                                            .videoBottom = 600,
                                                                            .inset = 4,
                                                                            .screenWidth = 390}) {
    panel_ = OXLiveSettings::create(geometry,
                                    {.camera = camera_, .haptics = toasts_, .messages = toasts_});
    reloads_ = panel_->onCellReload([this](int64_t item) { reloaded_.push_back(item); });
    panel_->slideUp();
    return panel_;
  }
  // The user picks `value` on the ruler.
  void pick(int64_t value) { panel_->rulerViewDidSelectValue(panel_->ruler(), value); }
  std::string mark(int64_t value) { return *panel_->rulerViewTextForCalibration(value); }

  std::shared_ptr<ScriptedCamera> camera_ = std::make_shared<ScriptedCamera>();
  std::shared_ptr<test::Recorder> toasts_ = std::make_shared<test::Recorder>();
  std::shared_ptr<OXLiveSettings> panel_;
  std::vector<int64_t> reloaded_;
  Subscription reloads_;
};

struct SectionCase {
  const char* name;
  double maxExposure;
  int64_t rulerMax;
  panel::Sections sections;
  const char* topMark;
  int64_t topAsks;  // the denominator the top of the ruler asks
};
class ExposureSectionTest : public PanelTest, public testing::WithParamInterface<SectionCase> {};

TEST_P(ExposureSectionTest, TheLongestExposureShapesTheScaleAndItsMarks) {
  const auto& c = GetParam();
  camera_->maxExposure_ = c.maxExposure;
  open();
  EXPECT_EQ(panel_->ruler().rulerConfig().max, c.rulerMax);
  EXPECT_EQ(panel_->exposureSections(), c.sections);
  EXPECT_EQ(mark(c.rulerMax), c.topMark);
  pick(c.rulerMax);
  EXPECT_FLOAT_EQ(camera_->exposure_, 1.0f / c.topAsks);
  EXPECT_FALSE(camera_->autoExposure_);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(MaxExposures, ExposureSectionTest, testing::Values(
    SectionCase{"ThirdOfASecond", 1.0 / 3, 60, {1000, 500, 250, 125, 60, 30, 3, 1, 0, 0}, "1/3", 15},
    SectionCase{"Thirtieth", 1.0 / 30, 50, {1000, 500, 250, 125, 60, 30, 15, 1, 0, 0}, "1/30", 30},
    SectionCase{"Hundredth", 1.0 / 100, 40, {1000, 500, 250, 125, 60, 30, 15, 1, 0, 0}, "1/60", 60}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST(ExposureScaleTest, RulerValuesDenominatorsAndBack) {
  const std::pair<int64_t, int64_t> denominators[] = {{0, 1000}, {25, 188}, {15, 375},
                                                      {47, 39},  {60, 15},  {61, 15}};
  for (auto [value, denominator] : denominators)
    EXPECT_EQ(panel::rulerExposureDenominator(value), denominator) << value;
  // 1/188 lies between the marks 250 and 125: 20 + 10 x 62 / 125 = 24.96.
  const std::tuple<double, int64_t, int64_t> exposures[] = {
      {0.0004, 1000, 0},  {0.001, 1000, 0},   {1.0 / 250, 250, 20}, {1.0 / 188, 188, 24},
      {1.0 / 60, 60, 40}, {1.0 / 20, 20, 56}, {0.5, 1, 0}};
  for (auto [exposure, fraction, rulerValue] : exposures) {
    EXPECT_EQ(panel::exposureFraction(exposure, panel::kExposureSections, 6), fraction) << exposure;
    EXPECT_EQ(panel::rulerValueFromExposure(exposure, panel::kExposureSections, 6), rulerValue)
        << exposure;
  }
}

TEST_F(PanelTest, TitlesOfManualValues) {
  camera_->autoExposure_ = camera_->autoWb_ = camera_->autoFocus_ = false;
  camera_->exposure_ = 0.0004;
  camera_->iso_ = 404.5;
  camera_->bias_ = 0.25;
  camera_->lens_ = 0.379;
  camera_->zoom_ = 3.0;
  camera_->type_ = AVCaptureDeviceTypeBuiltInTripleCamera;
  open();
  const char* titles[6] = {"1/1000S", "405", "+0.2", "5000K", "37", "1.5×"};
  for (int64_t i = 0; i < 6; ++i) EXPECT_EQ(panel_->item(i).title, titles[i]) << i;
}

struct SteerCase {
  const char* name;
  int64_t item, value;
  double ScriptedCamera::*field;
  double expected;
  const char* mark;
};
class SteerTest : public PanelTest, public testing::WithParamInterface<SteerCase> {};

TEST_P(SteerTest, EachItemsRulerSetsItsValue) {
  const auto& c = GetParam();
  open();
  panel_->didSelectItem(c.item);
  pick(c.value);
  EXPECT_DOUBLE_EQ((*camera_).*c.field, c.expected);
  EXPECT_EQ(mark(c.value), c.mark);
  EXPECT_EQ(camera_->tint_, 3.0f);  // kept
  EXPECT_FALSE((c.item == 4 && camera_->autoFocus_) || (c.item == 3 && camera_->autoWb_));
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Items, SteerTest, testing::Values(
    SteerCase{"Iso", 1, 64, &ScriptedCamera::iso_, 640, "640"},
    SteerCase{"Bias", 2, -15, &ScriptedCamera::bias_, -1.5, "-1"},
    SteerCase{"WhiteBalance", 3, 63, &ScriptedCamera::temperature_, 6300, "6300K"},
    SteerCase{"Focus", 4, 37, &ScriptedCamera::lens_, 0.37, "37"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

struct ZoomCase {
  const char* name;
  bool ultraWide;
  double maxZoom;
  int64_t rulerMax, value;
  double zoom;
  const char* mark;
};
class ZoomRulerTest : public PanelTest, public testing::WithParamInterface<ZoomCase> {};

TEST_P(ZoomRulerTest, TheScaleBendsAtTwentyWithAnUltraWideLens) {
  const auto& c = GetParam();
  camera_->maxZoom_ = c.maxZoom;
  if (c.ultraWide) camera_->type_ = AVCaptureDeviceTypeBuiltInDualWideCamera;
  open();
  panel_->didSelectItem(5);
  EXPECT_EQ(panel_->ruler().rulerConfig().max, c.rulerMax);
  pick(c.value);
  EXPECT_DOUBLE_EQ(camera_->zoom_, c.zoom);
  EXPECT_EQ(mark(c.value), c.mark);
  EXPECT_EQ(panel::rulerZoomValue(c.zoom, c.ultraWide), c.value);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Values, ZoomRulerTest, testing::Values(
    ZoomCase{"UltraWide19", true, 20, 110, 19, 1.9, "0.9×"},
    ZoomCase{"UltraWide20", true, 20, 110, 20, 2.0, "1×"},
    ZoomCase{"UltraWide21", true, 20, 110, 21, 2.2, "1×"},
    ZoomCase{"UltraWideTop", true, 20, 110, 110, 20.0, "10×"},
    ZoomCase{"UltraWideTopOfTen", true, 10, 100, 100, 18.0, "9×"},
    ZoomCase{"Wide21", false, 4, 40, 21, 2.1, "2×"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

struct RulerSetupCase {
  const char* name;
  int64_t item;
  bool landscape, tablet;
  int64_t min, max, value;
  double distance;
  bool autoButtonHidden;
};
class RulerSetupTest : public PanelTest, public testing::WithParamInterface<RulerSetupCase> {};

TEST_P(RulerSetupTest, EachItemSetsUpTheRuler) {
  const auto& c = GetParam();
  open({.videoWidth = 390,
        .videoBottom = 600,
        .screenWidth = 390,
        .landscape = c.landscape,
        .tablet = c.tablet});
  if (c.item != 0) panel_->didSelectItem(c.item);
  const RulerConfig& r = panel_->ruler().rulerConfig();
  EXPECT_EQ(r.min, c.min);
  EXPECT_EQ(r.max, c.max);
  EXPECT_EQ(r.defaultNumber, c.value);
  EXPECT_EQ(panel_->ruler().currentValue(), c.value);
  EXPECT_DOUBLE_EQ(r.distanceBetweenScale, c.distance);
  EXPECT_EQ(panel_->autoButtonHidden(), c.autoButtonHidden);
  EXPECT_EQ(r.shortScaleStart, 33.0);  // the panel's own look stays
}
// Camera: 1/60 s, ISO 400 of 20 to 3200, bias 0 of -8 to 8, 5049.6 K, lens
// 0.5, zoom 1 of 10. Aspect 0.5625: landscape adds 1.5.
// clang-format off
INSTANTIATE_TEST_SUITE_P(Items, RulerSetupTest, testing::Values(
    RulerSetupCase{"Exposure", 0, false, false, 0, 60, 40, 7.0, false},
    RulerSetupCase{"Iso", 1, false, false, 2, 320, 40, 4.0, true},
    RulerSetupCase{"Bias", 2, false, false, -80, 80, 0, 4.0, true},
    RulerSetupCase{"WhiteBalanceLandscape", 3, true, false, 20, 80, 50, 7.5, false},
    RulerSetupCase{"FocusTabletPortrait", 4, false, true, 0, 100, 50, 7.5, false},
    RulerSetupCase{"ZoomTabletLandscape", 5, true, true, 10, 100, 10, 6.5 * 1.75, false}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(PanelTest, ItemsFollowTheDevicesModes) {
  camera_->exposureModes_ = 0b0101;  // locked and continuous: no custom
  camera_->wbModes_ = 0b001;
  camera_->customWb_ = false;
  camera_->focusModes_ = 0;
  camera_->customFocus_ = true;
  open();
  EXPECT_TRUE(panel_->shouldSelectItem(0));
  EXPECT_FALSE(panel_->rulerEnabled());  // automatic exposure, no manual control
  EXPECT_EQ(panel_->rulerAlpha(), 0.75);
  EXPECT_FALSE(panel_->shouldSelectItem(1));
  EXPECT_TRUE(panel_->shouldSelectItem(2));
  EXPECT_FALSE(panel_->shouldSelectItem(3));
  EXPECT_EQ(panel_->item(3).colour, (PanelColour{218, 224, 237, 0.4}));
  EXPECT_TRUE(panel_->shouldSelectItem(4));
  EXPECT_EQ(panel_->item(0).colour, (PanelColour{237, 237, 0}));
  EXPECT_EQ(panel_->itemCount(), 6);
  camera_->maxZoom_ = 1.0;
  EXPECT_EQ(panel_->itemCount(), 5);
}

TEST_F(PanelTest, AnItemTheNewCameraLacksHandsOverToTheFirstThatCanBeChosen) {
  open();
  panel_->didSelectItem(1);
  panel_->videoDeviceWillChange();
  camera_->exposureModes_ = 0b0001;  // neither automatic nor custom exposure
  panel_->videoDeviceDidChange();
  EXPECT_EQ(panel_->activeIndex(), 2);
  EXPECT_EQ(panel_->ruler().rulerConfig().max, 80);  // the bias's scale
}

TEST_F(PanelTest, ObserversAttachOnlyWhileOpenAndAcrossACameraChange) {
  open();
  const std::vector<PanelDeviceKey> all(kPanelDeviceKeys.begin(), kPanelDeviceKeys.end());
  EXPECT_EQ(camera_->attached, all);
  panel_->videoDeviceWillChange();
  EXPECT_EQ(camera_->detached, all);
  EXPECT_EQ(camera_->observers(), 0u);
  camera_->exposure_ = 1.0 / 250;
  camera_->fire(PanelDeviceKey::exposureDuration);  // the old device: unheard
  EXPECT_EQ(panel_->ruler().currentValue(), 40);
  panel_->videoDeviceDidChange();
  panel_->videoDeviceDidChange();  // a second report attaches nothing more
  EXPECT_EQ(camera_->observers(), 10u);
  EXPECT_EQ(camera_->attached.size(), 20u);
  camera_->exposure_ = 1.0 / 125;
  camera_->fire(PanelDeviceKey::exposureDuration);
  EXPECT_EQ(panel_->ruler().currentValue(), 30);
  bool finished = false;
  panel_->slideDown([&](bool done) { finished = done; });
  EXPECT_TRUE(finished);
  EXPECT_FALSE(panel_->visible());
  EXPECT_EQ(camera_->observers(), 0u);
  panel_->shutDown();
  EXPECT_EQ(camera_->detached.size(), 20u);
}

TEST_F(PanelTest, WhileAutomaticOnlyTheActiveItemFollowsTheDevice) {
  open();  // item 0 active, everything automatic
  camera_->iso_ = 800;
  camera_->fire(PanelDeviceKey::ISO);
  EXPECT_EQ(panel_->item(1).title, "Auto");
  EXPECT_TRUE(reloaded_.empty() || reloaded_.back() != 1);
  camera_->autoExposure_ = false;
  camera_->fire(PanelDeviceKey::ISO);
  EXPECT_EQ(panel_->item(1).title, "800");
  EXPECT_EQ(reloaded_.back(), 1);
  camera_->exposureMode_ = 3;
  camera_->fire(PanelDeviceKey::exposureMode);
  EXPECT_EQ(panel_->item(2).title, "EV");
  EXPECT_FALSE(panel_->shouldSelectItem(2));
  EXPECT_EQ(panel_->autoButtonStatus(), 1);
}

struct HostLockCase {
  const char* name;
  int64_t active, item;
  bool lock;
  const char* toast;  // "" none
  int64_t status;
};
class HostLockTest : public PanelTest, public testing::WithParamInterface<HostLockCase> {};

TEST_P(HostLockTest, TheHostsLockToastsAndReachesOnlyTheActiveItemsButton) {
  const auto& c = GetParam();
  camera_->autoWb_ = false;
  open();
  panel_->didSelectItem(c.active);
  reloaded_.clear();
  camera_->aeLock_ = camera_->awbLock_ = camera_->afLock_ = c.lock;
  camera_->autoExposure_ = !c.lock;
  panel_->autoStatusChanged(c.item);
  EXPECT_EQ(toasts_->events.empty() ? "" : toasts_->events.back(), std::string(c.toast));
  EXPECT_EQ(panel_->autoButtonStatus(), c.status);
  EXPECT_EQ(reloaded_.back(), c.item);
  EXPECT_EQ(panel_->item(c.item).titleColour == (PanelColour{255, 149, 0}), c.lock);
  if (c.item == 0) {
    EXPECT_EQ(panel_->item(1).title, c.lock ? "400" : "Auto");  // ISO frozen
  }
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(Items, HostLockTest, testing::Values(
    HostLockCase{"ExposureWhileWhiteBalanceShown", 3, 0, true, "toast AE LOCK 1000 ms", 1},
    HostLockCase{"WhiteBalanceLocked", 3, 3, true, "toast AWB LOCK 1000 ms", 2},
    HostLockCase{"FocusLocked", 4, 4, true, "toast AF LOCK 1000 ms", 2},
    HostLockCase{"ExposureReleased", 0, 0, false, "", 0}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(PanelTest, ATapLocksFromManualTheNextReturnsToAutomaticAndZoomShowsTheLens) {
  camera_->autoFocus_ = false;
  camera_->lensType_ = AVCaptureDeviceTypeBuiltInTelephotoCamera;
  open();
  panel_->didSelectItem(4);
  ASSERT_EQ(panel_->autoButtonStatus(), 1);
  panel_->onAutoButtonTapped();
  EXPECT_EQ(panel_->autoButtonStatus(), 2);
  EXPECT_TRUE(camera_->afLock_);
  EXPECT_FALSE(camera_->autoFocus_);
  EXPECT_EQ(toasts_->events, (std::vector<std::string>{"impact 1"}));
  panel_->onAutoButtonTapped();
  EXPECT_EQ(panel_->autoButtonStatus(), 0);
  EXPECT_FALSE(camera_->afLock_);
  EXPECT_TRUE(camera_->autoFocus_);

  panel_->didSelectItem(5);
  EXPECT_EQ(panel_->autoButtonStatus(), 5);
  panel_->onAutoButtonTapped();  // nothing on the zoom item
  EXPECT_EQ(panel_->autoButtonStatus(), 5);
  camera_->lensType_ = AVCaptureDeviceTypeBuiltInUltraWideCamera;
  camera_->fire(PanelDeviceKey::activePrimaryConstituentDevice);
  EXPECT_EQ(panel_->autoButtonStatus(), 3);
  camera_->position_ = AVCaptureDevicePositionFront;
  camera_->fire(PanelDeviceKey::activePrimaryConstituentDevice);
  EXPECT_EQ(panel_->autoButtonStatus(), 6);
}

}  // namespace
}  // namespace oxelo
