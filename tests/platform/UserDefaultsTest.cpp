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
  EXPECT_EQ(d.integerForKey("videoSize"), 6);
  EXPECT_TRUE(d.boolForKey("autoConnect"));
  EXPECT_EQ(d.stringForKey("hdr"), "Auto");
  EXPECT_FALSE(d.stringForKey("lastHostIP").has_value());  // missing: the neutral value
  // Removing a stored value uncovers the default again.
  d.removeObjectForKey("videoSize");
  EXPECT_EQ(d.integerForKey("videoSize"), 4);
}

TEST(UserDefaultsTest, TypedReadsConvertBetweenNumberKinds) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  d.setDouble("zoomScale", 2.75);
  d.setInteger("videoFPS", 60);
  d.setBool("faceBeautify", true);
  d.setObject("hostHistory", Json::array({{{"name", "Desk"}, {"ip", "10.0.0.9"}, {"port", 5895}}}));
  EXPECT_EQ(d.integerForKey("zoomScale"), 2);
  EXPECT_FLOAT_EQ(d.floatForKey("zoomScale"), 2.75f);
  EXPECT_DOUBLE_EQ(d.doubleForKey("videoFPS"), 60.0);
  EXPECT_EQ(d.integerForKey("faceBeautify"), 1);
  EXPECT_FALSE(d.stringForKey("videoFPS").has_value());    // a number is not a string
  EXPECT_TRUE(d.dictionaryForKey("hostHistory").empty());  // an array is not a dictionary
  EXPECT_EQ(d.arrayForKey("hostHistory")[0]["port"], 5895);
}

// A hand-edited file may hold numbers that no integer holds: they read as the
// nearest end of the range instead of being converted with undefined result.
struct OutOfRangeCase {
  const char* name;
  const char* value;  // the JSON text of the stored value
  long long expected;
};
class OutOfRangeIntegerTest : public testing::TestWithParam<OutOfRangeCase> {};

TEST_P(OutOfRangeIntegerTest, ReadsAsTheNearestEndOfTheRange) {
  test::TempDir dir;
  std::ofstream(dir.path() / "settings.json") << "{\"videoFPS\": " << GetParam().value << "}";
  UserDefaults d(dir.path());
  EXPECT_EQ(d.integerForKey("videoFPS"), GetParam().expected);
}

constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr long long kMin = std::numeric_limits<long long>::min();
INSTANTIATE_TEST_SUITE_P(
    Values, OutOfRangeIntegerTest,
    testing::Values(OutOfRangeCase{"HugeFloat", "1e300", kMax},
                    OutOfRangeCase{"HugeNegativeFloat", "-1e300", kMin},
                    OutOfRangeCase{"TwoToThe63", "9223372036854775808.0", kMax},
                    OutOfRangeCase{"LargestFloatBelow", "-9223372036854775808.0", kMin},
                    OutOfRangeCase{"UnsignedAboveTheRange", "18446744073709551615", kMax},
                    OutOfRangeCase{"DigitsInAString", "\"99999999999999999999\"", kMax},
                    OutOfRangeCase{"NegativeDigitsInAString", "\"-99999999999999999999\"", kMin},
                    OutOfRangeCase{"FractionTruncated", "-2.75", -2}),
    [](const auto& info) { return std::string(info.param.name); });

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
  EXPECT_EQ(again.integerForKey("videoSize"), 2);
  EXPECT_EQ(again.stringForKey("lastHostIP"), "192.0.2.7");
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
