#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(StartupTest, FirstStartReadsEveryDefaultWithItsType) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  AppDelegate().applicationDidFinishLaunching(d);
  EXPECT_FALSE(d.boolForKey(keys::videoPortrait));
  EXPECT_EQ(d.integerForKey(keys::videoSize), 4);
  EXPECT_EQ(d.integerForKey(keys::videoWidth), 1280);
  EXPECT_EQ(d.integerForKey(keys::videoHeight), 720);
  EXPECT_EQ(d.integerForKey(keys::videoFPS), 30);
  EXPECT_EQ(d.integerForKey(keys::videoQuality), 1);
  EXPECT_EQ(d.integerForKey(keys::videoEncoder), 0);
  EXPECT_EQ(d.integerForKey(keys::audioFormat), 1);
  EXPECT_EQ(d.integerForKey(keys::audioQuality), 1);
  EXPECT_TRUE(d.boolForKey(keys::autoConnect));
  EXPECT_EQ(d.integerForKey(keys::backCameraType), 0);
  EXPECT_FALSE(d.boolForKey(keys::showDebugInfo));
  EXPECT_TRUE(d.boolForKey(keys::adaptiveBitrate));
  EXPECT_TRUE(d.boolForKey(keys::lowLightBoost));
  EXPECT_FALSE(d.boolForKey(keys::smoothAutoFocus));
  EXPECT_TRUE(d.boolForKey(keys::faceDrivenAEAF));
  EXPECT_FALSE(d.boolForKey(keys::echoCancellation));
  EXPECT_EQ(d.stringForKey(keys::hdr), "Auto");
  EXPECT_EQ(d.stringForKey(keys::colorspace), "Auto");
  EXPECT_TRUE(d.boolForKey(keys::isCamBT601));
  EXPECT_EQ(d.integerForKey(keys::beautyMethod), 0);
  EXPECT_FALSE(d.boolForKey(keys::faceBeautify));
  EXPECT_FALSE(d.boolForKey(keys::horizontalFlip));
  EXPECT_FALSE(d.boolForKey(keys::frontCam));
  EXPECT_FALSE(d.boolForKey(keys::aeLock));
  EXPECT_TRUE(d.boolForKey(keys::autoExposure));
  EXPECT_EQ(d.objectForKey(keys::exposureTargetBias), 0.0);
  EXPECT_FALSE(d.boolForKey(keys::afLock));
  EXPECT_TRUE(d.boolForKey(keys::autoFocus));
  EXPECT_FALSE(d.boolForKey(keys::awbLock));
  EXPECT_TRUE(d.boolForKey(keys::autoWhiteBalance));
  EXPECT_TRUE(d.objectForKey(keys::zoomScale).is_number_float());
  EXPECT_FLOAT_EQ(d.floatForKey(keys::zoomScale), 1.0f);
  EXPECT_EQ(registeredDefaults().size(), 32u);
  // Keys without a default stay absent.
  for (const char* k : {keys::showGrid, keys::torchLevel, keys::lastHostIP, keys::hostHistory})
    EXPECT_TRUE(d.objectForKey(k).is_null()) << k;
}

TEST(StartupTest, StartStoresTheVersionDurablyAndKeepsTheUsersChoices) {
  test::TempDir dir;
  {
    UserDefaults d(dir.path());
    d.setInteger(keys::videoSize, 0);
    d.setBool(keys::autoConnect, false);
    d.setString(keys::settingsVersion, "0.0.1");
    d.synchronize();
  }
  {
    UserDefaults d(dir.path());
    AppDelegate().applicationDidFinishLaunching(d);
  }
  UserDefaults after(dir.path());  // no registration: only what was written
  EXPECT_EQ(after.stringForKey(keys::settingsVersion), shortVersionString());
  EXPECT_EQ(after.integerForKey(keys::videoSize), 0);
  EXPECT_FALSE(after.boolForKey(keys::autoConnect));
  EXPECT_TRUE(after.objectForKey(keys::frontCam).is_null());
}

}  // namespace
}  // namespace oxelo
