#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(UserDefaultsTest, StoredValuesWinOverRegisteredDefaultsWhichWinOverNeutralValues) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  d.registerDefaults({{"videoSize", 4}, {"autoConnect", true}, {"hdr", "Auto"}});
  EXPECT_EQ(d.integerForKey("videoSize"), 4);
  d.setInteger("videoSize", 6);
  d.registerDefaults({{"videoSize", 4}});  // registering again never overwrites
  EXPECT_EQ(std::tuple(d.integerForKey("videoSize"), d.boolForKey("autoConnect"),
                       d.stringForKey("hdr"), d.stringForKey("lastHostIP")),
            std::tuple(6, true, "Auto", std::nullopt));  // missing: the neutral value
  d.removeObjectForKey("videoSize");                     // uncovers the default again
  EXPECT_EQ(d.integerForKey("videoSize"), 4);
}

TEST(UserDefaultsTest, TypedReadsConvertBetweenNumberKinds) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  d.setDouble("zoomScale", 2.75);
  d.setInteger("videoFPS", 60);
  d.setBool("faceBeautify", true);
  d.setObject("hostHistory", Json::array({{{"name", "Desk"}, {"ip", "10.0.0.9"}, {"port", 5895}}}));
  EXPECT_EQ(std::tuple(d.integerForKey("zoomScale"), d.floatForKey("zoomScale"),
                       d.doubleForKey("videoFPS"), d.integerForKey("faceBeautify")),
            std::tuple(2, 2.75f, 60.0, 1));
  EXPECT_FALSE(d.stringForKey("videoFPS").has_value());    // a number is not a string
  EXPECT_TRUE(d.dictionaryForKey("hostHistory").empty());  // an array is not a dictionary
  EXPECT_EQ(d.arrayForKey("hostHistory")[0]["port"], 5895);
}

// Numbers of a hand-edited file that no integer holds, not converted with undefined result.
TEST(OutOfRangeIntegerTest, ReadsAsTheNearestEndOfTheRange) {
  constexpr long long kMax = std::numeric_limits<long long>::max();
  constexpr long long kMin = std::numeric_limits<long long>::min();
  const std::pair<const char*, long long> values[] = {
      // the JSON text of the stored value
      {"1e300", kMax},
      {"-1e300", kMin},
      {"9223372036854775808.0", kMax},   // two to the 63rd
      {"-9223372036854775808.0", kMin},  // the largest float below
      {"18446744073709551615", kMax},    // unsigned, above the range
      {"\"99999999999999999999\"", kMax},
      {"\"-99999999999999999999\"", kMin},
      {"-2.75", -2}};
  for (auto [text, expected] : values) {
    test::TempDir dir;
    std::ofstream(dir.path() / "settings.json") << "{\"videoFPS\": " << text << "}";
    EXPECT_EQ(UserDefaults(dir.path()).integerForKey("videoFPS"), expected) << text;
  }
}

TEST(UserDefaultsTest, SynchronizedValuesSurviveARestartButDefaultsAreNotWritten) {
  test::TempDir dir;
  {
    UserDefaults d(dir.path() / "oxelo");
    d.registerDefaults({{"videoSize", 4}});
    d.setString("lastHostIP", "192.0.2.7");
    d.setInteger("videoSize", 2);
    ASSERT_TRUE(d.synchronize());
  }
  std::ifstream in(dir.path() / "oxelo" / "settings.json");
  Json onDisk = Json::parse(in);
  EXPECT_EQ(onDisk, (Json{{"lastHostIP", "192.0.2.7"}, {"videoSize", 2}}));
  UserDefaults again(dir.path() / "oxelo");
  again.registerDefaults({{"videoSize", 4}});
  EXPECT_EQ(std::tuple(again.integerForKey("videoSize"), again.stringForKey("lastHostIP")),
            std::tuple(2, "192.0.2.7"));
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "oxelo" / "settings.json.tmp"));
}

// Text that is not JSON, or JSON that is not an object.
class CorruptSettingsTest : public testing::TestWithParam<const char*> {};

TEST_P(CorruptSettingsTest, IsKeptAsideAndTheStoreStartsFromDefaults) {
  test::TempDir dir;
  std::ofstream(dir.path() / "settings.json") << GetParam();
  UserDefaults d(dir.path());
  d.registerDefaults({{"videoSize", 4}});
  EXPECT_EQ(d.integerForKey("videoSize"), 4);
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "settings.json"));
  int aside = 0;
  for (auto& e : std::filesystem::directory_iterator(dir.path())) {
    ASSERT_TRUE(e.path().filename().string().starts_with("settings.json.corrupt-")) << e.path();
    ++aside;
    EXPECT_EQ(contents(e.path()), GetParam());
  }
  EXPECT_EQ(aside, 1);
  // The next synchronize writes a fresh file and leaves the kept copy alone.
  d.setInteger("videoSize", 5);
  ASSERT_TRUE(d.synchronize());
  EXPECT_EQ(UserDefaults(dir.path()).integerForKey("videoSize"), 5);
}

INSTANTIATE_TEST_SUITE_P(Documents, CorruptSettingsTest,
                         testing::Values("{\"videoSize\": 3, broken", "[1,2,3]"));

TEST(UserDefaultsTest, UnwritableLocationFailsWithALogLineAndKeepsMemory) {
  test::TempDir dir;
  // A file where the directory should be: no write can succeed, even as root.
  std::ofstream(dir.path() / "blocker") << "x";
  UserDefaults d(dir.path() / "blocker");
  d.setInteger("videoFPS", 24);
  EXPECT_FALSE(d.synchronize());
  EXPECT_EQ(d.integerForKey("videoFPS"), 24);
}

// The disk fills while the new file is written: the temporary file is /dev/full (ENOSPC).
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

  // With room again, the values that failed are written when the store goes away.
  store.reset();
  UserDefaults again(dir.path());
  EXPECT_EQ(std::tuple(again.integerForKey("videoFPS"), again.stringForKey("lastHostIP")),
            std::tuple(60, "192.0.2.7"));
}

// A settings path that even root cannot read as a file (a directory) is not a broken file.
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
