#include <gtest/gtest.h>

#include <sstream>

#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using nlohmann::json;
using Rates = std::vector<std::string>;

json set(std::initializer_list<json> cameras) { return {{"cameras", cameras}}; }

// The catalogue's rows as "640x360@30 640x480@29.5 ...".
std::string rows(const VideoSizeCatalogue& c) {
  std::ostringstream out;
  out.precision(15);
  for (const auto& e : c.videoSizes())
    out << (out.tellp() ? " " : "") << e.width << "x" << e.height << "@" << e.fps;
  return out.str();
}

TEST(VideoSizeCatalogueTest, TheDefaultVirtualSetListsAllNineSizesInCatalogueOrder) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  env.defaults().setInteger(keys::videoSize, 4);
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  EXPECT_EQ(rows(c),
            "640x360@30 640x480@30 960x540@30 800x600@240 1280x720@240 1280x960@120 1920x1080@120 "
            "2560x1440@60 3840x2160@60");
  EXPECT_EQ(c.videoFrameRates(), (Rates{"15", "24", "25", "30", "50", "60", "120", "240"}));
  auto j = c.toJson();
  EXPECT_TRUE(j["videoSizes"][0]["fps"].is_number_integer());
  EXPECT_TRUE(j["videoSizes"][1]["fps"].is_number_float());  // measured
  EXPECT_EQ(j.dump().rfind("{\"videoSizes\":[{\"width\":640,\"height\":360,\"fps\":30},", 0), 0u);
}

TEST(VideoSizeCatalogueTest, AFrontCameraFasterThanTheBackRaisesItsRows) {
  test::CameraAndSettings env(test::camerasFromJson(set(
      {test::cameraJson("wide", "back", {{{640, 480}, 30}, {{1280, 720}, 30}, {{1920, 1080}, 30}}),
       test::cameraJson("wide", "front", {{{1280, 720}, 60}, {{1920, 1080}, 25}})})));
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  EXPECT_EQ(rows(c), "640x360@30 640x480@30 800x600@60 1280x720@60 1280x960@30 1920x1080@30");
}

TEST(VideoSizeCatalogueTest, AFrontCameraWithoutThePresetDoesNotCount) {
  // The front camera is fast at 1280x720 but only in video range: it takes
  // the preset, yet no "420f" format measures; at 1920x1080 it has no preset.
  json front = {
      {"type", "wide"},
      {"position", "front"},
      {"formats", {{{"width", 1280}, {"height", 720}, {"fps", 120}, {"subtypes", {"420v"}}}}}};
  test::CameraAndSettings env(test::camerasFromJson(
      set({test::cameraJson("wide", "back", {{{1280, 720}, 24}, {{1920, 1080}, 50}}), front})));
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  EXPECT_EQ(rows(c), "640x360@30 640x480@30 800x600@30 1280x720@30 1280x960@50 1920x1080@50");
}

struct RateListCase {
  const char* name;
  double rate;
  Rates expected;
};

class CatalogueRateListTest : public testing::TestWithParam<RateListCase> {};

TEST_P(CatalogueRateListTest, OffersTheSteadyRatesUpToTheRowsRate) {
  test::CameraAndSettings env(test::camerasFromJson(
      set({test::cameraJson("wide", "back", {{{1280, 720}, GetParam().rate}})})));
  env.defaults().setInteger(keys::videoSize, 3);  // 1280x720, behind 800x600
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  ASSERT_EQ(c.videoSizes().size(), 4u);
  EXPECT_EQ(c.videoFrameRates(), GetParam().expected);
  // Without a full 640x480 format the fixed row stays, unmeasured.
  EXPECT_FALSE(c.videoSizes()[1].measured);
  EXPECT_TRUE(c.toJson()["videoSizes"][1]["fps"].is_number_integer());
}

INSTANTIATE_TEST_SUITE_P(
    Rates, CatalogueRateListTest,
    testing::Values(
        RateListCase{"Rate240", 240, {"15", "24", "25", "30", "50", "60", "120", "240"}},
        RateListCase{"Rate120", 120, {"15", "24", "25", "30", "50", "60", "120"}},
        RateListCase{"Rate59", 59, {"15", "24", "25", "30", "50"}},
        RateListCase{"Rate60", 60, {"15", "24", "25", "30", "50", "60"}},
        RateListCase{
            "Rate200Point5CutToWhole", 200.5, {"15", "24", "25", "30", "50", "60", "120", "200"}},
        RateListCase{"BelowThirtyStillThirty", 15, {"15", "24", "25", "30"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VideoSizeCatalogueTest, DualWideTypeWithoutSuchCameraGivesTwoRowsAndTheStartRule) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  env.defaults().setInteger(keys::backCameraType, 2);
  env.defaults().setInteger(keys::videoSize, 0);
  env.defaults().setInteger(keys::videoWidth, 640);
  env.defaults().setInteger(keys::videoHeight, 360);
  VideoSizeCatalogue c;
  c.applyStartupSizeRule();
  EXPECT_EQ(rows(c), "640x360@30 640x480@30");
  EXPECT_FALSE(c.videoSizes()[1].measured);
  EXPECT_EQ(env.defaults().integerForKey(keys::videoSize), 1);
  // Made durable at once.
  UserDefaults reread(env.directory());
  EXPECT_EQ(reread.integerForKey(keys::videoSize), 1);
  EXPECT_EQ(reread.integerForKey(keys::videoWidth), 640);
  EXPECT_EQ(reread.integerForKey(keys::videoHeight), 480);
}

TEST(VideoSizeCatalogueTest, TheStartRuleLeavesAFullCatalogueAlone) {
  test::CameraAndSettings env(test::camerasFromJson(
      set({test::cameraJson("wide", "back", {{{640, 480}, 30}, {{960, 540}, 30}})})));
  env.defaults().setInteger(keys::videoSize, 2);
  VideoSizeCatalogue c;
  c.applyStartupSizeRule();
  EXPECT_EQ(c.videoSizes().size(), 3u);
  EXPECT_EQ(env.defaults().integerForKey(keys::videoSize), 2);
}

TEST(VideoSizeCatalogueTest, TheChosenBackTypeIsMeasured) {
  test::CameraAndSettings env(
      test::camerasFromJson(set({test::cameraJson("wide", "back", {{{1920, 1080}, 30}}),
                                 test::cameraJson("triple", "back", {{{1280, 720}, 60}})})));
  env.defaults().setInteger(keys::backCameraType, 3);
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  EXPECT_EQ(rows(c), "640x360@30 640x480@30 800x600@60 1280x720@60");
}

TEST(VideoSizeCatalogueTest, AStoredIndexBeyondTheListUsesTheLastRowAndStays) {
  test::CameraAndSettings env(test::camerasFromJson(set({test::cameraJson(
      "wide", "back",
      {{{640, 480}, 30}, {{960, 540}, 30}, {{1280, 720}, 60}, {{1920, 1080}, 120}})})));
  env.defaults().setInteger(keys::videoSize, 8);
  VideoSizeCatalogue c;
  c.reloadVideoSizes();
  ASSERT_EQ(c.videoSizes().size(), 7u);
  EXPECT_EQ(c.videoFrameRates(), (Rates{"15", "24", "25", "30", "50", "60", "120"}));
  EXPECT_EQ(env.defaults().integerForKey(keys::videoSize), 8);

  env.defaults().setInteger(keys::videoSize, -1);  // as unsigned: beyond the list
  c.reloadVideoFrameRates();
  EXPECT_EQ(c.videoFrameRates().size(), 7u);
  env.defaults().setInteger(keys::videoSize, 4);  // 1280x720 at 60
  c.reloadVideoFrameRates();
  EXPECT_EQ(c.videoFrameRates(), (Rates{"15", "24", "25", "30", "50", "60"}));
}

TEST(VideoSizeCatalogueTest, MaxSupportedFrameRateTakesOnlyFullRangeFormatsOfTheExactSize) {
  json camera = {{"type", "wide"},
                 {"position", "back"},
                 {"formats",
                  {{{"width", 1280}, {"height", 720}, {"fps", 240}, {"subtypes", {"420v"}}},
                   {{"width", 1280}, {"height", 720}, {"fps", {{1, 30}, {50, 50}}}},
                   {{"width", 1280}, {"height", 720}, {"fps", 48}},
                   {{"width", 1280}, {"height", 960}, {"fps", 120}}}}};
  auto cameras = test::camerasFromJson(set({camera}));
  const auto& d = *cameras->devices()[0];
  EXPECT_DOUBLE_EQ(VideoSizeCatalogue::maxSupportedFrameRate(1280, 720, d), 50);
  EXPECT_DOUBLE_EQ(VideoSizeCatalogue::maxSupportedFrameRate(1280, 960, d), 120);
  EXPECT_DOUBLE_EQ(VideoSizeCatalogue::maxSupportedFrameRate(1920, 1080, d), 0);
}

}  // namespace
}  // namespace oxelo
