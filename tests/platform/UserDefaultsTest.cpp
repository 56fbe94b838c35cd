#include <gtest/gtest.h>

#include <fstream>
#include <limits>

#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

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

// A hand-edited file may hold numbers that no integer holds: they read as the
// nearest end of the range instead of being converted with undefined result.
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
    std::ifstream in(e.path());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), GetParam());
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

}  // namespace
}  // namespace oxelo
