#include "tools/host/HostCommands.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tools/host/HostOptions.h"
#include "tools/host/HostSession.h"

namespace oxelo::host {
namespace {

using namespace testbytes;

// A --command text that goes out: the record on the wire, by hand from the
// command tables, and the tag of its USB frame.
struct SentCase {
  const char* name;
  const char* text;
  const char* record;
  uint32_t frameTag;
};

class CommandSentTest : public testing::TestWithParam<SentCase> {};

TEST_P(CommandSentTest, GoesOutWithTheWordsItsCommandReads) {
  const auto& c = GetParam();
  std::string error;
  auto command = parseCommandText(c.text, error);
  ASSERT_TRUE(command) << error;
  HostSession session({"Desk", 5895, std::nullopt, /*sendStart=*/false});
  session.receiveBytes(kHellos);
  session.takeOutgoing();
  session.queueCommand(command->command, command->p1, command->p2);
  const auto sent = session.takeOutgoing();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].bytes, hex(c.record));
  EXPECT_EQ(std::pair(sent[0].frameType, sent[0].frameTag), std::pair(88u, c.frameTag));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandSentTest,
    testing::Values(
        SentCase{"Exposure", "0 18 1 200", "88000000 12000000 01000000 c8000000", 8818},
        SentCase{"Iso", "0.5 18 2 400", "88000000 12000000 02000000 90010000", 8818},
        SentCase{"NegativeBias", "0 18 3 -15", "88000000 12000000 03000000 f1ffffff", 8818},
        SentCase{"Temperature", "0 18 4 4500", "88000000 12000000 04000000 94110000", 8818},
        SentCase{"Lens", "0 18 5 100", "88000000 12000000 05000000 64000000", 8818},
        SentCase{"Zoom", "0 18 6 25", "88000000 12000000 06000000 19000000", 8818},
        SentCase{"AutoExposureLocked", "0 18 11 2", "88000000 12000000 0b000000 02000000", 8818},
        SentCase{"AutoWhiteBalance", "0 18 14 0", "88000000 12000000 0e000000 00000000", 8818},
        SentCase{"AutoFocusNeither", "0 18 15 1", "88000000 12000000 0f000000 01000000", 8818},
        SentCase{"NoAction", "0 19", "88000000 13000000", 8819},
        SentCase{"ZoomIn", "0 21", "88000000 15000000", 8821},
        SentCase{"ZoomOut", "0 22", "88000000 16000000", 8822},
        SentCase{"FocusCorner", "0 23 255 0", "88000000 17000000 ff000000 00000000", 8823},
        SentCase{"Restart", "0 26", "88000000 1a000000", 8826},
        SentCase{"StatusOnce", "0 33 2", "88000000 21000000 02000000", 8833},
        SentCase{"CameraByIndex", "0 34 3", "88000000 22000000 03000000", 8834},
        SentCase{"Mirror", "0 35 1", "88000000 23000000 01000000", 8835},
        SentCase{"Torch", "0 37", "88000000 25000000", 8837},
        SentCase{"Beauty", "0 38 2", "88000000 26000000 02000000", 8838},
        SentCase{"Lock", "0 41 -1", "88000000 29000000 ffffffff", 8841},
        SentCase{"SavePreset", "1 42 7", "88000000 2a000000 07000000", 8842},
        SentCase{"LoadPreset", "1 43 2", "88000000 2b000000 02000000", 8843},
        SentCase{"DeletePreset", "1 44 4294967", "88000000 2c000000 37894100", 8844}),
    [](const auto& info) { return info.param.name; });

// A --command text that is refused, and a part of the reason given.
struct RefusedCase {
  const char* name;
  const char* text;
  const char* reason;
};

class CommandRefusedTest : public testing::TestWithParam<RefusedCase> {};

TEST_P(CommandRefusedTest, SaysWhy) {
  const auto& c = GetParam();
  std::string error;
  EXPECT_FALSE(parseCommandText(c.text, error));
  EXPECT_NE(error.find(c.reason), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(
    BadInput, CommandRefusedTest,
    testing::Values(
        RefusedCase{"HandshakeStart", "0 17", "command 17 is not one the phone takes"},
        RefusedCase{"PastTheTable", "0 45 1", "command 45 is not one"},
        RefusedCase{"UnknownSubCommand", "0 18 7 1", "no sub-command 7"},
        RefusedCase{"SubCommandWithoutValue", "0 18 1", "takes two parameters, not 1"},
        RefusedCase{"ParameterOfZoomIn", "0 21 1", "takes no parameter, not 1"},
        RefusedCase{"StatusWithoutParameter", "0 33", "takes one parameter, not 0"},
        RefusedCase{"SecondParameterOfStatus", "0 33 1 0", "takes one parameter, not 2"},
        RefusedCase{"PointPastTheEdge", "0 23 256 0", "0 to 255 on both axes, not (256, 0)"},
        RefusedCase{"PointBeforeTheEdge", "0 23 4 -1", "not (4, -1)"},
        RefusedCase{"FiveWords", "0 18 1 2 3", "'AT_SECONDS COMMAND [P1 [P2]]'"},
        RefusedCase{"NoTime", "x 21", "must be numbers"},
        RefusedCase{"FractionalParameter", "0 33 1.5", "whole 32-bit"},
        RefusedCase{"ParameterPast32Bits", "0 43 2147483648", "whole 32-bit"}),
    [](const auto& info) { return info.param.name; });

TEST(HostCommandsTest, TheOptionRefusesABadCommandAsABadArgument) {
  const std::vector<std::string> args{"listen", "--command", "0 18 9 1"};
  const ParsedCommandLine parsed = parseHostOptions(args, "desk");
  EXPECT_EQ(parsed.kind, ParsedCommandLine::Kind::error);
  EXPECT_NE(parsed.text.find("--command"), std::string::npos) << parsed.text;
  EXPECT_NE(parsed.text.find("no sub-command 9"), std::string::npos) << parsed.text;
}

// Every command the phone takes is in the help, 18 with each sub-command,
// and no other.
TEST(HostCommandsTest, HelpListsEveryCommandAndSubCommand) {
  const std::vector<std::string> args{"usb", "--help"};
  const std::string help = parseHostOptions(args, "desk").text;
  const auto listed = [&help](const std::string& start) {
    return help.find("\n  " + start) != std::string::npos;
  };
  for (uint32_t n : {18, 21, 22, 23, 24, 25, 26, 33, 34, 35, 37, 38, 39, 40, 41, 42, 43, 44})
    EXPECT_TRUE(listed(std::to_string(n) + " ")) << n;
  EXPECT_TRUE(listed("19, 20, 27, 28, 29, 30, 31, 32, 36: ")) << help;
  for (int sub : {1, 2, 3, 4, 5, 6, 11, 14, 15})
    EXPECT_NE(help.find(fmt::format("SUB {:>2}: ", sub)), std::string::npos) << sub;
  EXPECT_FALSE(listed("17 ") || listed("45 ")) << help;
}

}  // namespace
}  // namespace oxelo::host
