#include <gtest/gtest.h>

#include "shell/CommandLine.h"

namespace oxelo {
namespace {

struct BadArgs {
  const char* name;
  std::vector<std::string> args;
  const char* errorPart;
};
class CommandLineErrorTest : public testing::TestWithParam<BadArgs> {};

TEST_P(CommandLineErrorTest, RefusesWithAClearMessage) {
  std::string error;
  EXPECT_FALSE(parseCommandLine(GetParam().args, error).has_value()) << GetParam().name;
  EXPECT_NE(error.find(GetParam().errorPart), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(
    Args, CommandLineErrorTest,
    testing::Values(BadArgs{"Unknown", {"--frobnicate"}, "unknown argument '--frobnicate'"},
                    BadArgs{"MissingValue", {"--config-dir"}, "--config-dir needs a value"},
                    BadArgs{"NegativeDuration", {"--duration", "-1"}, "--duration"},
                    BadArgs{"InstanceZero", {"--instance", "0"}, "1 to 16"},
                    BadArgs{"InstanceSeventeen", {"--instance", "17"}, "1 to 16"},
                    BadArgs{"InstanceFraction", {"--instance", "2.5"}, "1 to 16"}),
    [](const auto& info) { return info.param.name; });

TEST(CommandLineTest, ParsesTheHeadlessConnectionOptions) {
  std::string error;
  auto cl = parseCommandLine({"--headless", "--connect", "127.0.0.1", "--instance", "3",
                              "--config-dir", "/tmp/x", "--duration", "2.5"},
                             error);
  ASSERT_TRUE(cl) << error;
  EXPECT_TRUE(cl->headless);
  EXPECT_EQ(cl->connectAddress, "127.0.0.1");
  EXPECT_EQ(cl->instance, 3);
  EXPECT_EQ(cl->configDir, "/tmp/x");
  EXPECT_DOUBLE_EQ(cl->duration, 2.5);
}

}  // namespace
}  // namespace oxelo
