#include "shell/options/AdvancedScreen.h"

#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "tests/shell/OptionsTestSupport.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

class AdvancedFixture {
 public:
  AdvancedFixture() : defaults(std::make_shared<UserDefaults>(dir.path())), screen(defaults, view) {
    AppDelegate().applicationDidFinishLaunching(*defaults);
  }
  test::TempDir dir;
  std::shared_ptr<UserDefaults> defaults;
  test::RecordingOptionsView view;
  AdvancedScreen screen;
};

struct SwitchCase {
  size_t row;
  const char* key;
  bool byDefault;
};

class AdvancedSwitchTest : public testing::TestWithParam<SwitchCase> {};

TEST_P(AdvancedSwitchTest, ATapInvertsTheRowsSettingDurably) {
  const auto& c = GetParam();
  AdvancedFixture f;
  EXPECT_EQ(f.screen.isChecked(c.row), c.byDefault) << c.key;
  EXPECT_FALSE(f.screen.tap(c.row).has_value());
  EXPECT_EQ(f.screen.isChecked(c.row), !c.byDefault) << c.key;
  EXPECT_EQ(UserDefaults(f.dir.path()).boolForKey(c.key), !c.byDefault) << c.key;
  EXPECT_EQ(f.view.reloads, 1);
  f.screen.tap(c.row);
  EXPECT_EQ(f.defaults->boolForKey(c.key), c.byDefault) << c.key;
}

INSTANTIATE_TEST_SUITE_P(Rows, AdvancedSwitchTest,
                         testing::Values(SwitchCase{0, keys::showDebugInfo, false},
                                         SwitchCase{1, keys::adaptiveBitrate, true},
                                         SwitchCase{2, keys::lowLightBoost, true},
                                         SwitchCase{3, keys::smoothAutoFocus, false},
                                         SwitchCase{4, keys::faceDrivenAEAF, true},
                                         SwitchCase{5, keys::echoCancellation, false}));

TEST(AdvancedScreenTest, TextRowsOfferTheirValuesAndStoreTheChoiceAsText) {
  AdvancedFixture f;
  EXPECT_EQ(f.screen.detailText(6), "Auto");
  EXPECT_EQ(f.screen.tap(6), (std::vector<std::string>{"Auto", "On", "Off"}));
  EXPECT_EQ(f.screen.tap(7), (std::vector<std::string>{"Auto", "BT.601", "BT.709", "None"}));
  EXPECT_EQ(f.view.reloads, 0);  // a sheet, not a change
  ASSERT_TRUE(f.screen.choose(6, 2));
  ASSERT_TRUE(f.screen.choose(7, 2));
  EXPECT_FALSE(f.screen.choose(7, 4));
  EXPECT_FALSE(f.screen.choose(0, 0));  // a check-mark row has no sheet
  UserDefaults reread(f.dir.path());
  EXPECT_EQ(reread.stringForKey(keys::hdr), "Off");
  EXPECT_EQ(reread.stringForKey(keys::colorspace), "BT.709");
  EXPECT_EQ(f.screen.detailText(7), "BT.709");
  EXPECT_FALSE(f.screen.isChecked(6));
  EXPECT_FALSE(f.screen.tap(8).has_value());
}

}  // namespace
}  // namespace oxelo
