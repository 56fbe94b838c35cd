#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(StartupTest, FirstStartReadsEveryDefault) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  AppDelegate().applicationDidFinishLaunching(d);
  const auto expected = nlohmann::json::parse(R"({
      "videoPortrait": false, "videoSize": 4, "videoWidth": 1280, "videoHeight": 720,
      "videoFPS": 30, "videoQuality": 1, "videoEncoder": 0, "audioFormat": 1, "audioQuality": 1,
      "autoConnect": true, "backCameraType": 0, "showDebugInfo": false, "adaptiveBitrate": true,
      "lowLightBoost": true, "smoothAutoFocus": false, "faceDrivenAEAF": true,
      "echoCancellation": false, "hdr": "Auto", "colorspace": "Auto", "isCamBT601": true,
      "beautyMethod": 0, "faceBeautify": false, "horizontalFlip": false, "frontCam": false,
      "aeLock": false, "autoExposure": true, "exposureTargetBias": 0.0, "afLock": false,
      "autoFocus": true, "awbLock": false, "autoWhiteBalance": true, "zoomScale": 1.0})");
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(d.objectForKey(key), value) << key;
  EXPECT_TRUE(d.objectForKey(keys::zoomScale).is_number_float());
  EXPECT_EQ(registeredDefaults().size(), expected.size());
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
