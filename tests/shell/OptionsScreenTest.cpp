#include "shell/options/OptionsScreen.h"

#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "shell/options/AppLanguages.h"
#include "shell/web/MakerAddresses.h"
#include "tests/shell/OptionsTestSupport.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using nlohmann::json;
using Texts = std::vector<std::string>;

// Nine rows, 3840x2160 last at 30 frames per second; 1280x720 at 60.
json cameras4k() {
  return {{"cameras",
           {test::cameraJson("wide", "back",
                             {{{640, 480}, 30},
                              {{960, 540}, 30},
                              {{1280, 720}, 60},
                              {{1920, 1080}, 30},
                              {{3840, 2160}, 30}})}}};
}

// Six rows, 1920x1080 last at 60 frames per second.
json camerasHd() {
  return {{"cameras",
           {test::cameraJson("wide", "back",
                             {{{640, 480}, 30}, {{1280, 720}, 60}, {{1920, 1080}, 60}})}}};
}

OptionsDevice device(bool hevc, bool stereo = true) {
  OptionsDevice d;
  d.hevcDecodeSupported = hevc;
  d.stereoAudio = stereo;
  return d;
}

// The screen over a started program: defaults registered, the catalogue
// built from `cameras`, the lists loaded.
class OptionsFixture {
 public:
  OptionsFixture(const json& cameras, OptionsDevice device = {},
                 std::initializer_list<std::pair<const char*, json>> stored = {})
      : env_(test::camerasFromJson(cameras)) {
    AppDelegate().applicationDidFinishLaunching(defaults());
    for (const auto& [key, value] : stored) defaults().setObject(key, value);
    catalogue_.reloadVideoSizes();
    screen_ = std::make_unique<OptionsScreen>(UserDefaults::standard(), catalogue_,
                                              std::move(device), view, view, view);
    screen_->load();
  }
  UserDefaults& defaults() { return env_.defaults(); }
  OptionsScreen& screen() { return *screen_; }
  long long integer(const char* key) { return defaults().integerForKey(key); }
  const std::filesystem::path& directory() const { return env_.directory(); }

  test::RecordingOptionsView view;

 private:
  test::CameraAndSettings env_;
  VideoSizeCatalogue catalogue_;
  std::unique_ptr<OptionsScreen> screen_;
};

TEST(OptionsScreenTest, ListsFollowTheCatalogueAndTheDevice) {
  OptionsFixture plain(camerasHd(), device(false, false));
  EXPECT_EQ(plain.screen().videoSizes(), (Texts{"640 × 360", "640 × 480", "800 × 600", "1280 × 720",
                                                "1280 × 960", "1920 × 1080"}));
  EXPECT_EQ(plain.screen().videoFrameRates(), (Texts{"15", "24", "25", "30", "50", "60"}));
  EXPECT_EQ(plain.screen().videoCodecs(), (Texts{"H.264"}));
  EXPECT_EQ(plain.screen().audioFormats(), (Texts{"O_AUDIO_NONE", "O_AUDIO_MONO"}));
  EXPECT_FALSE(plain.screen().backCameras().has_value());
  EXPECT_TRUE(plain.screen().isHidden(OptionsRow::backCamera));
  EXPECT_EQ(plain.screen().choices(OptionsRow::language).size(), appLanguages().size());

  OptionsFixture full(cameras4k(), device(true, true));
  EXPECT_EQ(full.screen().videoSizes().back(), "3840 × 2160");
  EXPECT_EQ(full.screen().videoCodecs(), (Texts{"H.264", "HEVC"}));
  EXPECT_EQ(full.screen().audioFormats().back(), "O_AUDIO_STEREO");
}

// A size choice with what the store holds before and after it.
struct SizeCase {
  const char* name;
  bool uhd;  // the 4K camera set, else the HD one
  bool hevc;
  long long size, fps, quality, encoder;  // stored before
  size_t chosen;
  long long fpsAfter, qualityAfter, encoderAfter, width, height;
};

class OptionsSizeTest : public testing::TestWithParam<SizeCase> {};

TEST_P(OptionsSizeTest, ChoosingASizeAdjustsRateQualityAndCodec) {
  const auto& c = GetParam();
  OptionsFixture f(c.uhd ? cameras4k() : camerasHd(), device(c.hevc),
                   {{keys::videoSize, c.size},
                    {keys::videoFPS, c.fps},
                    {keys::videoQuality, c.quality},
                    {keys::videoEncoder, c.encoder}});
  ASSERT_TRUE(f.screen().select(OptionsRow::videoSize, c.chosen));
  EXPECT_EQ(f.integer(keys::videoSize), static_cast<long long>(c.chosen));
  EXPECT_EQ(f.integer(keys::videoFPS), c.fpsAfter);
  EXPECT_EQ(f.integer(keys::videoQuality), c.qualityAfter);
  EXPECT_EQ(f.integer(keys::videoEncoder), c.encoderAfter);
  EXPECT_EQ(f.integer(keys::videoWidth), c.width);
  EXPECT_EQ(f.integer(keys::videoHeight), c.height);
  EXPECT_EQ(f.integer(keys::audioQuality), 1);  // the size never touches the audio
  EXPECT_EQ(f.view.reloads, 1);
  // Durable: a fresh store on the same file reads the same.
  UserDefaults reread(f.directory());
  EXPECT_EQ(reread.integerForKey(keys::videoFPS), c.fpsAfter);
  EXPECT_EQ(reread.integerForKey(keys::videoSize), static_cast<long long>(c.chosen));
}

INSTANTIATE_TEST_SUITE_P(Sizes, OptionsSizeTest,
                         testing::Values(SizeCase{"LargestTurnsDownToMediumAt24InHevc", true, true,
                                                  4, 30, 2, 0, 8, 24, 1, 1, 3840, 2160},
                                         SizeCase{"LargestWithoutHevcKeepsTheEncoder", true, false,
                                                  4, 30, 2, 0, 8, 24, 1, 0, 3840, 2160},
                                         SizeCase{"LeavingTheLargestRestores30Only", true, true, 8,
                                                  24, 1, 1, 4, 30, 1, 1, 1280, 720},
                                         SizeCase{"LeavingTheLargestOverridesAnyRate", true, true,
                                                  8, 15, 0, 1, 2, 30, 0, 1, 960, 540},
                                         SizeCase{"BetweenSmallerSizesTheRateStays", true, true, 4,
                                                  25, 2, 0, 2, 25, 2, 0, 960, 540},
                                         SizeCase{"ARateTheNewSizeOffersStays", true, true, 4, 60,
                                                  2, 0, 3, 60, 2, 0, 800, 600},
                                         SizeCase{"ARateAboveTheNewSizesListIsCapped", true, true,
                                                  4, 60, 2, 0, 1, 30, 2, 0, 640, 480},
                                         SizeCase{"WithoutUhdTheLargestChangesNothing", false, true,
                                                  3, 25, 2, 0, 5, 25, 2, 0, 1920, 1080},
                                         SizeCase{"WithoutUhdOnlyTheCapApplies", false, true, 5, 60,
                                                  2, 0, 0, 30, 2, 0, 640, 360}),
                         [](const auto& info) { return std::string(info.param.name); });

// The value a row shows for what the store holds.
struct ShownCase {
  const char* name;
  OptionsRow row;
  const char* key;
  json stored;
  bool hevc, stereo;
  const char* shown;
};

class OptionsShownValueTest : public testing::TestWithParam<ShownCase> {};

TEST_P(OptionsShownValueTest, StoredValuesBeyondAListWrapAround) {
  const auto& c = GetParam();
  OptionsFixture f(cameras4k(), device(c.hevc, c.stereo), {{c.key, c.stored}});
  EXPECT_EQ(f.screen().shownValue(c.row), c.shown);
}

INSTANTIATE_TEST_SUITE_P(
    Values, OptionsShownValueTest,
    testing::Values(ShownCase{"Portrait", OptionsRow::orientation, keys::videoPortrait, true, 1, 1,
                              "O_PORTRAIT"},
                    ShownCase{"SizeBeyondWraps", OptionsRow::videoSize, keys::videoSize, 10, 1, 1,
                              "640 × 480"},
                    ShownCase{"RateNotOnTheListAsItStands", OptionsRow::frameRate, keys::videoFPS,
                              48, 1, 1, "48"},
                    ShownCase{"QualityBeyondWraps", OptionsRow::quality, keys::videoQuality, 5, 1,
                              1, "O_QUALITY_HIGH"},
                    ShownCase{"HevcWithoutDecoderWraps", OptionsRow::encoder, keys::videoEncoder, 1,
                              0, 1, "H.264"},
                    ShownCase{"StereoWithoutStereoIsNone", OptionsRow::audio, keys::audioFormat, 2,
                              1, 0, "O_AUDIO_NONE"},
                    ShownCase{"LanguageInTheTable", OptionsRow::language, keys::AppleLanguages,
                              json::array({"zh-Hant-TW"}), 1, 1, "繁體中文"},
                    ShownCase{"LanguageOutsideTheTableIsEmpty", OptionsRow::language,
                              keys::AppleLanguages, json::array({"eo"}), 1, 1, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(OptionsScreenTest, SimpleRowsWriteStraightToTheStore) {
  OptionsFixture f(cameras4k(), device(true));
  for (auto [row, index] : {std::pair{OptionsRow::orientation, 0},
                            {OptionsRow::frameRate, 5},
                            {OptionsRow::quality, 0},
                            {OptionsRow::encoder, 1},
                            {OptionsRow::audio, 2}})
    ASSERT_TRUE(f.screen().select(row, index));
  UserDefaults reread(f.directory());
  EXPECT_TRUE(reread.boolForKey(keys::videoPortrait));  // portrait is the first entry
  EXPECT_EQ(reread.integerForKey(keys::videoFPS), 60);  // the entry as a number
  EXPECT_EQ(reread.integerForKey(keys::videoQuality), 0);
  EXPECT_EQ(reread.integerForKey(keys::audioQuality), 0);  // the audio follows the video
  EXPECT_EQ(reread.integerForKey(keys::videoEncoder), 1);
  EXPECT_EQ(reread.integerForKey(keys::audioFormat), 2);
}

TEST(OptionsScreenTest, AnIndexBeyondASheetWritesNothing) {
  OptionsFixture f(cameras4k(), device(false, false));
  EXPECT_FALSE(f.screen().select(OptionsRow::encoder, 1));
  EXPECT_FALSE(f.screen().select(OptionsRow::audio, 2));
  EXPECT_FALSE(f.screen().select(OptionsRow::backCamera, 0));  // hidden row
  EXPECT_FALSE(f.screen().select(OptionsRow::grid, 0));        // no sheet
  EXPECT_EQ(f.integer(keys::videoEncoder), 0);
  EXPECT_EQ(f.integer(keys::audioFormat), 1);
  EXPECT_EQ(f.view.reloads, 0);
}

// Back cameras: a wide angle camera, a dual one and a triple one at the back.
json multiCameras() {
  return {{"cameras",
           {test::cameraJson("wide", "back", {{{1280, 720}, 60}}),
            test::cameraJson("dual", "back", {{{1280, 720}, 30}, {{1920, 1080}, 30}}),
            test::cameraJson("triple", "back", {{{1920, 1080}, 60}, {{3840, 2160}, 30}}),
            test::cameraJson("dual", "front", {{{1280, 720}, 30}})}}};
}

TEST(OptionsScreenTest, BackCamerasListTheMultiCameraDevicesTripleFirst) {
  OptionsFixture f(multiCameras());
  ASSERT_TRUE(f.screen().backCameras().has_value());
  EXPECT_EQ(f.screen().choices(OptionsRow::backCamera),
            (Texts{"O_CAMERA_SINGLE", "Back Triple Camera", "Back Dual Camera"}));
  EXPECT_EQ(f.screen().shownValue(OptionsRow::backCamera), "O_CAMERA_SINGLE");
  f.defaults().setInteger(keys::backCameraType, 2);  // no dual wide camera: the first entry
  EXPECT_EQ(f.screen().shownValue(OptionsRow::backCamera), "O_CAMERA_SINGLE");
  f.defaults().setInteger(keys::backCameraType, 1);
  EXPECT_EQ(f.screen().shownValue(OptionsRow::backCamera), "Back Dual Camera");
}

TEST(OptionsScreenTest, ABackCameraChoiceRebuildsSizesAndCapsTheRate) {
  OptionsFixture f(multiCameras(), {}, {{keys::videoSize, 3}, {keys::videoFPS, 60}});
  ASSERT_EQ(f.screen().videoSizes().back(), "1280 × 720");    // the wide angle camera's
  ASSERT_TRUE(f.screen().select(OptionsRow::backCamera, 1));  // triple
  EXPECT_EQ(f.integer(keys::backCameraType), 3);
  EXPECT_EQ(f.screen().videoSizes().back(), "3840 × 2160");
  EXPECT_EQ(f.integer(keys::videoSize), 3);                   // a bare index, not followed
  EXPECT_EQ(f.integer(keys::videoFPS), 60);                   // row 3 is now 1920x1080 at 60
  ASSERT_TRUE(f.screen().select(OptionsRow::backCamera, 2));  // dual: row 3 is 1280x720 at 30
  EXPECT_EQ(f.integer(keys::backCameraType), 1);
  EXPECT_EQ(f.screen().videoFrameRates().back(), "30");
  EXPECT_EQ(f.integer(keys::videoFPS), 30);
  ASSERT_TRUE(f.screen().select(OptionsRow::backCamera, 0));
  EXPECT_EQ(f.integer(keys::backCameraType), 0);
}

TEST(OptionsScreenTest, ALanguageChoiceIsStoredAndEndsTheProgramOnOk) {
  OptionsFixture f(camerasHd());
  ASSERT_TRUE(f.screen().select(OptionsRow::language, 1));
  UserDefaults reread(f.directory());
  EXPECT_EQ(reread.objectForKey(keys::AppleLanguages), json::array({"zh-Hans"}));
  EXPECT_EQ(f.screen().shownValue(OptionsRow::language), "简体中文");
  ASSERT_EQ(f.view.alerts.size(), 1u);
  const auto& alert = f.view.alerts[0];
  EXPECT_EQ(alert.message, "O_RESTART_APP");
  ASSERT_EQ(alert.buttons.size(), 1u);
  EXPECT_TRUE(f.view.quits.empty());  // only once the user has read why
  alert.buttons[0].action();
  EXPECT_EQ(f.view.quits, std::vector<int>{0});
}

TEST(OptionsScreenTest, OnlyALongPressBeginningOnTheHelpRowOpensTheAdvancedScreen) {
  OptionsFixture f(camerasHd());
  EXPECT_FALSE(f.screen().longPress(OptionsRow::help, 2));  // changed
  EXPECT_FALSE(f.screen().longPress(OptionsRow::help, 3));  // ended
  EXPECT_FALSE(f.screen().longPress(OptionsRow::language, 1));
  EXPECT_EQ(f.view.advancedOpened, 0);
  EXPECT_TRUE(f.screen().longPress(OptionsRow::help, 1));
  EXPECT_EQ(f.view.advancedOpened, 1);
  EXPECT_EQ(f.view.impacts, std::vector<int>{2});  // heavy
}

TEST(OptionsScreenTest, SwitchesActionsAndDone) {
  OptionsFixture f(camerasHd());
  EXPECT_FALSE(f.screen().switchValue(OptionsRow::grid));  // no default: false
  EXPECT_TRUE(f.screen().switchValue(OptionsRow::autoConnect));
  f.screen().setSwitch(OptionsRow::grid, true);
  f.screen().setSwitch(OptionsRow::autoConnect, false);
  UserDefaults reread(f.directory());
  EXPECT_TRUE(reread.boolForKey(keys::showGrid));
  EXPECT_FALSE(reread.boolForKey(keys::autoConnect));

  f.screen().activate(OptionsRow::help);  // in the system's browser
  EXPECT_EQ(f.view.opened, Texts{maker::helpUrl});
  f.screen().activate(OptionsRow::share);
  ASSERT_EQ(f.view.shared.size(), 1u);
  EXPECT_EQ(f.view.shared[0].text,
            "⭐️ Oxelo ⭐️ turns your phone into a webcam for your computer.");
  EXPECT_EQ(f.view.shared[0].image, "oxelo_ad");

  std::vector<std::string> order;
  f.screen().onDismissed = [&] { order.push_back(f.view.dismissed ? "late" : "told first"); };
  f.screen().done();
  EXPECT_EQ(order, Texts{"told first"});
  EXPECT_EQ(f.view.dismissed, 1);
}

TEST(OptionsScreenTest, FooterNamesVersionSystemAndAnyAddress) {
  AboutInfo info{"Oxelo", "0.1.0", "7", "Linux", "6.1.0", "192.168.1.20"};
  EXPECT_EQ(aboutFooterText(info), "Oxelo 0.1.0.7 (Linux 6.1.0), 192.168.1.20");
  info.address.clear();  // no Wi-Fi
  EXPECT_EQ(aboutFooterText(info), "Oxelo 0.1.0.7 (Linux 6.1.0)");
}

}  // namespace
}  // namespace oxelo
