#include "tools/host/CommandSchedule.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace oxelo::host {
namespace {

// Given out of order; three at 0.2 s.
const std::vector<TimedCommand> kCommands{
    {0.2, 35, 1, 0}, {0.5, 33, 2, 0}, {0.2, 37, 0, 0}, {0.25, 21, 0, 0}, {0.2, 41, 1, 0}};

TEST(CommandScheduleTest, CommandsGoInOrderAndApart) {
  for (const auto& [gap, want] : {std::pair{0.0, std::vector{0.2, 0.2, 0.2, 0.25, 0.5}},
                                  std::pair{0.1, std::vector{0.2, 0.3, 0.4, 0.5, 0.6}}}) {
    const auto times = CommandSchedule::earliestTimes(kCommands, gap);
    ASSERT_EQ(times.size(), want.size()) << gap;
    for (size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(times[i], want[i], 1e-9) << gap << i;
  }
}

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

// The gap pushes the commands later; they and the end command must still
// come before the duration runs out. Behind four commands at 0.2 s: the extra
// arguments and a part of the error (empty: accepted).
TEST(CommandScheduleTest, TheLastCommandKeepsTheGapBeforeTheEnd) {
  for (const auto& [extra, refusal] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--duration", "0.5"}, "would go at 0.5 s, not before"},
           {{"--duration", "0.5", "--command-gap", "0"}, ""},
           {{"--duration", "0.55"}, ""},
           {{"--duration", "0.55", "--end", "24"},
            "less than --command-gap before the end command at 0.55 s"},
           {{"--duration", "0.6", "--end", "24"}, ""}}) {
    std::vector<std::string> args{"listen"};
    for (int i = 0; i < 4; ++i) args.insert(args.end(), {"--command", "0.2 37"});
    args.insert(args.end(), extra.begin(), extra.end());
    const ParsedCommandLine parsed = parseHostOptions(args, "desk");
    SCOPED_TRACE(fmt::format("{}: {}", fmt::join(extra, " "), parsed.text));
    EXPECT_EQ(parsed.kind,
              refusal.empty() ? ParsedCommandLine::Kind::run : ParsedCommandLine::Kind::error);
    EXPECT_NE(parsed.text.find(refusal), std::string::npos);
  }
}

}  // namespace
}  // namespace oxelo::host
