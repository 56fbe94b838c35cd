#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "shell/AppDelegate.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// The values are the table's; here, that the first start registers all of
// them with their types, the size that the catalogue starts from among them.
TEST(StartupTest, FirstStartRegistersEveryDefault) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  AppDelegate().applicationDidFinishLaunching(d);
  const auto table = registeredDefaults();
  for (const auto& [key, value] : table.items()) EXPECT_EQ(d.objectForKey(key), value) << key;
  EXPECT_EQ(d.objectForKey(keys::videoSize), 4);  // 1280x720
  EXPECT_TRUE(d.objectForKey(keys::zoomScale).is_number_float());
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
