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

struct DurationCase {
  const char* name;
  std::vector<std::string> extra;  // behind four commands at 0.2 s
  const char* refusal;             // a part of the error; empty: accepted
};

class CommandDurationTest : public testing::TestWithParam<DurationCase> {};

// The gap pushes the commands later; they and the end command must still
// come before the duration runs out.
TEST_P(CommandDurationTest, TheLastCommandKeepsTheGapBeforeTheEnd) {
  std::vector<std::string> args{"listen",    "--command", "0.2 37",    "--command", "0.2 37",
                                "--command", "0.2 37",    "--command", "0.2 37"};
  args.insert(args.end(), GetParam().extra.begin(), GetParam().extra.end());
  const ParsedCommandLine parsed = parseHostOptions(args, "desk");
  const std::string refusal = GetParam().refusal;
  EXPECT_EQ(parsed.kind,
            refusal.empty() ? ParsedCommandLine::Kind::run : ParsedCommandLine::Kind::error)
      << parsed.text;
  if (!refusal.empty()) {
    EXPECT_NE(parsed.text.find(refusal), std::string::npos) << parsed.text;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Durations, CommandDurationTest,
    testing::Values(
        DurationCase{"PushedPastTheEnd", {"--duration", "0.5"}, "would go at 0.5 s, not before"},
        DurationCase{"TogetherInTime", {"--duration", "0.5", "--command-gap", "0"}, ""},
        DurationCase{"InTimeWhenClosing", {"--duration", "0.55"}, ""},
        DurationCase{"TooCloseToTheEndCommand",
                     {"--duration", "0.55", "--end", "24"},
                     "less than --command-gap before the end command at 0.55 s"},
        DurationCase{"AGapBeforeTheEndCommand", {"--duration", "0.6", "--end", "24"}, ""}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo::host
