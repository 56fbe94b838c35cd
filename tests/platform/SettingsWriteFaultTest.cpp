// Writes of the settings file that fail part way, and a file that cannot be
// read: the file on disk is never left torn or replaced by defaults.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The disk fills while the new file is written: the temporary file is
// /dev/full, which refuses every byte with ENOSPC.
TEST(SettingsWriteFaultTest, AFullDiskLeavesTheOldFileWholeAndTheValuesAreWrittenLater) {
  test::TempDir dir;
  {
    UserDefaults first(dir.path());
    first.setInteger("videoFPS", 24);
    ASSERT_TRUE(first.synchronize());
  }
  const auto file = dir.path() / "settings.json";
  const auto before = contents(file);

  auto store = std::make_unique<UserDefaults>(dir.path());
  store->setInteger("videoFPS", 60);
  store->setString("lastHostIP", "192.0.2.7");
  fs::create_symlink("/dev/full", dir.path() / "settings.json.tmp");
  EXPECT_FALSE(store->synchronize());
  EXPECT_EQ(contents(file), before);
  EXPECT_FALSE(fs::exists(fs::symlink_status(dir.path() / "settings.json.tmp")));
  // On disk the old value, in memory the new one.
  EXPECT_EQ(std::tuple(UserDefaults(dir.path()).integerForKey("videoFPS"),
                       store->integerForKey("videoFPS")),
            std::tuple(24, 60));

  // With room again, the values that failed are still due: the store writes
  // them when it goes away.
  store.reset();
  UserDefaults again(dir.path());
  EXPECT_EQ(std::tuple(again.integerForKey("videoFPS"), again.stringForKey("lastHostIP")),
            std::tuple(60, "192.0.2.7"));
}

// A settings path that cannot be read (here a directory, which even root
// cannot read as a file) is not taken for a broken file: it is neither moved
// aside nor replaced, and the store runs on the defaults.
TEST(SettingsWriteFaultTest, AFileThatCannotBeReadIsNeitherMovedAsideNorReplaced) {
  test::TempDir dir;
  fs::create_directory(dir.path() / "settings.json");
  std::ofstream(dir.path() / "settings.json" / "kept") << "x";
  UserDefaults store(dir.path());
  store.registerDefaults({{"videoSize", 4}});
  EXPECT_EQ(store.integerForKey("videoSize"), 4);
  store.setInteger("videoSize", 5);
  EXPECT_FALSE(store.synchronize());
  EXPECT_EQ(store.integerForKey("videoSize"), 5);
  EXPECT_EQ(contents(dir.path() / "settings.json" / "kept"), "x");
  int entries = 0;
  for ([[maybe_unused]] auto& e : fs::directory_iterator(dir.path())) ++entries;
  EXPECT_EQ(entries, 1) << "nothing set aside, no temporary file left";
}

}  // namespace
}  // namespace oxelo
