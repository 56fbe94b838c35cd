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
  EXPECT_FALSE(parseCommandLine(GetParam().args, error).has_value());
  EXPECT_NE(error.find(GetParam().errorPart), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(
    Args, CommandLineErrorTest,
    testing::Values(
        BadArgs{"UnknownNamedFirst", {"--headless", "--frob", "x"}, "unknown argument '--frob'"},
        BadArgs{"StrayWord", {"headless"}, "unknown argument 'headless'"},
        BadArgs{"MissingValueAtTheEnd", {"--headless", "--duration"}, "--duration"},
        BadArgs{"NegativeDuration", {"--duration", "-1"}, "number of seconds, not '-1'"},
        BadArgs{"WordDuration", {"--duration", "soon"}, "number of seconds, not 'soon'"},
        BadArgs{"NotANumberDuration", {"--duration", "nan"}, "number of seconds"},
        BadArgs{"InstanceZero", {"--instance", "0"}, "1 to 16, not '0'"},
        BadArgs{"InstanceSeventeen", {"--instance", "17"}, "1 to 16, not '17'"},
        BadArgs{"InstanceFraction", {"--instance", "2.5"}, "1 to 16, not '2.5'"},
        BadArgs{"InstanceWord", {"--instance", "two"}, "1 to 16, not 'two'"}),
    [](const auto& info) { return info.param.name; });

struct GoodArgs {
  const char* name;
  std::vector<std::string> args;
  int instance;
  double duration;
};
class CommandLineValueTest : public testing::TestWithParam<GoodArgs> {};

TEST_P(CommandLineValueTest, ReadsNumbers) {
  std::string error;
  auto cl = parseCommandLine(GetParam().args, error);
  ASSERT_TRUE(cl) << error;
  EXPECT_EQ(cl->instance, GetParam().instance);
  EXPECT_DOUBLE_EQ(cl->duration, GetParam().duration);
}

INSTANTIATE_TEST_SUITE_P(
    Args, CommandLineValueTest,
    testing::Values(
        // No --duration runs until stopped; a zero would stop at once.
        GoodArgs{"Defaults", {}, 1, -1},
        GoodArgs{"FirstAndLastInstance", {"--instance", "16", "--instance", "1"}, 1, -1},
        GoodArgs{"WholeNumberWrittenAsDecimal", {"--instance", "3.0"}, 3, -1},
        GoodArgs{"ZeroDuration", {"--duration", "0"}, 1, 0},
        GoodArgs{"FractionalDuration", {"--duration=2.5"}, 1, 2.5}),
    [](const auto& info) { return info.param.name; });

// --help and -h are a request that main answers with exit status 0, never a
// parse failure, whatever else is on the line.
TEST(CommandLineTest, HelpIsARequestNotAnError) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"--help"}, {"-h"}, {"--headless", "--instance", "4", "--help"}}) {
    std::string error;
    auto cl = parseCommandLine(args, error);
    ASSERT_TRUE(cl) << error;
    EXPECT_TRUE(cl->help);
  }
  std::string usage = usageText();
  EXPECT_EQ(usage.rfind("Usage: oxelo [OPTIONS]\n", 0), 0u) << usage;
  EXPECT_NE(usage.find("--instance N=1"), std::string::npos) << usage;
}

}  // namespace
}  // namespace oxelo
