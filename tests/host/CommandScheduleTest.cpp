#include "tools/host/CommandSchedule.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace oxelo::host {
namespace {

// Given out of order; three at 0.2 s.
const std::vector<TimedCommand> kCommands{
    {0.2, 35, 1, 0}, {0.5, 33, 2, 0}, {0.2, 37, 0, 0}, {0.25, 21, 0, 0}, {0.2, 41, 1, 0}};

struct GapCase {
  const char* name;
  double gap;
  std::vector<double> times;
};

class CommandGapTest : public testing::TestWithParam<GapCase> {};

TEST_P(CommandGapTest, CommandsGoInOrderAndApart) {
  const auto times = CommandSchedule::earliestTimes(kCommands, GetParam().gap);
  ASSERT_EQ(times.size(), GetParam().times.size());
  for (size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(times[i], GetParam().times[i], 1e-9) << i;
}

INSTANTIATE_TEST_SUITE_P(Gaps, CommandGapTest,
                         testing::Values(GapCase{"Together", 0, {0.2, 0.2, 0.2, 0.25, 0.5}},
                                         GapCase{"ATenthApart", 0.1, {0.2, 0.3, 0.4, 0.5, 0.6}},
                                         GapCase{"LongGap", 0.5, {0.2, 0.7, 1.2, 1.7, 2.2}}),
                         [](const auto& info) { return info.param.name; });

// A late wake-up sends one command, and the next one a gap after it, not a
// gap after the time it fell due.
TEST(CommandScheduleTest, TheGapCountsFromWhenACommandWent) {
  CommandSchedule schedule(kCommands, 0.1);
  EXPECT_TRUE(schedule.takeDue(0.1).empty());
  const auto first = schedule.takeDue(0.45);
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0].command, 35u);
  EXPECT_NEAR(schedule.nextAt().value_or(0), 0.55, 1e-9);
  EXPECT_TRUE(schedule.takeDue(0.5).empty());
  const auto second = schedule.takeDue(0.56);
  ASSERT_EQ(second.size(), 1u);
  EXPECT_EQ(second[0].command, 37u);
}

TEST(CommandScheduleTest, ACommandThatTheGapPushesPastTheDurationIsRefused) {
  const auto parse = [](std::vector<std::string> args) { return parseHostOptions(args, "desk"); };
  const std::vector<std::string> four{"listen", "--duration", "0.5",    "--command",
                                      "0.2 37", "--command",  "0.2 37", "--command",
                                      "0.2 37", "--command",  "0.2 37"};
  const ParsedCommandLine spaced = parse(four);
  EXPECT_EQ(spaced.kind, ParsedCommandLine::Kind::error);
  EXPECT_NE(spaced.text.find("the last command would go at 0.5 s"), std::string::npos)
      << spaced.text;
  std::vector<std::string> together = four;
  together.insert(together.end(), {"--command-gap", "0"});
  EXPECT_EQ(parse(together).kind, ParsedCommandLine::Kind::run) << parse(together).text;
}

}  // namespace
}  // namespace oxelo::host
