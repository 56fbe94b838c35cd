#include "tools/host/HostCommands.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tools/host/HostOptions.h"
#include "tools/host/HostSession.h"

namespace oxelo::host {
namespace {

using namespace testbytes;

// A --command text that goes out: the record on the wire, by hand from the
// command tables, and the tag of its USB frame.
TEST(HostCommandsTest, GoesOutWithTheWordsItsCommandReads) {
  for (const auto& [text, record, frameTag] : std::vector<std::tuple<std::string, Bytes, uint32_t>>{
           {"0 18 1 200", hex("88000000 12000000 01000000 c8000000"), 8818},
           {"0.5 18 2 400", hex("88000000 12000000 02000000 90010000"), 8818},
           {"0 18 3 -15", hex("88000000 12000000 03000000 f1ffffff"), 8818},
           {"0 18 4 4500", hex("88000000 12000000 04000000 94110000"), 8818},
           {"0 18 5 100", hex("88000000 12000000 05000000 64000000"), 8818},
           {"0 18 6 25", hex("88000000 12000000 06000000 19000000"), 8818},
           {"0 18 11 2", hex("88000000 12000000 0b000000 02000000"), 8818},
           {"0 18 14 0", hex("88000000 12000000 0e000000 00000000"), 8818},
           {"0 18 15 1", hex("88000000 12000000 0f000000 01000000"), 8818},
           {"0 19", hex("88000000 13000000"), 8819},
           {"0 21", hex("88000000 15000000"), 8821},
           {"0 22", hex("88000000 16000000"), 8822},
           {"0 23 255 0", hex("88000000 17000000 ff000000 00000000"), 8823},
           {"0 26", hex("88000000 1a000000"), 8826},
           {"0 33 2", hex("88000000 21000000 02000000"), 8833},
           {"0 34 3", hex("88000000 22000000 03000000"), 8834},
           {"0 35 1", hex("88000000 23000000 01000000"), 8835},
           {"0 37", hex("88000000 25000000"), 8837},
           {"0 38 2", hex("88000000 26000000 02000000"), 8838},
           {"0 41 -1", hex("88000000 29000000 ffffffff"), 8841},
           {"1 42 7", hex("88000000 2a000000 07000000"), 8842},
           {"1 43 2", hex("88000000 2b000000 02000000"), 8843},
           {"1 44 4294967", hex("88000000 2c000000 37894100"), 8844},
       }) {
    std::string error;
    auto command = parseCommandText(text, error);
    ASSERT_TRUE(command) << text << ": " << error;
    HostSession session({"Desk", 5895, std::nullopt, /*sendStart=*/false});
    session.receiveBytes(kHellos);
    session.takeOutgoing();
    session.queueCommand(command->command, command->p1, command->p2);
    const auto sent = session.takeOutgoing();
    ASSERT_EQ(sent.size(), 1u) << text;
    EXPECT_EQ(sent[0].bytes, record) << text;
    EXPECT_EQ(std::pair(sent[0].frameType, sent[0].frameTag), std::pair(88u, frameTag)) << text;
  }
}

// A --command text that is refused, and a part of the reason given.
TEST(HostCommandsTest, ARefusedCommandSaysWhy) {
  for (const auto& [text, reason] : std::vector<std::pair<std::string, std::string>>{
           {"0 17", "command 17 is not one the phone takes"},
           {"0 45 1", "command 45 is not one"},
           {"0 18 7 1", "no sub-command 7"},
           {"0 18 1", "takes two parameters, not 1"},
           {"0 21 1", "takes no parameter, not 1"},
           {"0 33", "takes one parameter, not 0"},
           {"0 33 1 0", "takes one parameter, not 2"},
           {"0 23 256 0", "0 to 255 on both axes, not (256, 0)"},
           {"0 23 4 -1", "not (4, -1)"},
           {"0 18 1 2 3", "'AT_SECONDS COMMAND [P1 [P2]]'"},
           {"x 21", "must be numbers"},
           {"0 33 1.5", "whole 32-bit"},
           {"0 43 2147483648", "whole 32-bit"}}) {
    std::string error;
    EXPECT_FALSE(parseCommandText(text, error)) << text;
    EXPECT_NE(error.find(reason), std::string::npos) << text << ": " << error;
  }
}

TEST(HostCommandsTest, TheOptionRefusesABadCommandAsABadArgument) {
  const ParsedCommandLine parsed =
      parseHostOptions(std::vector<std::string>{"listen", "--command", "0 18 9 1"}, "desk");
  EXPECT_EQ(parsed.kind, ParsedCommandLine::Kind::error);
  EXPECT_NE(parsed.text.find("--command"), std::string::npos) << parsed.text;
  EXPECT_NE(parsed.text.find("no sub-command 9"), std::string::npos) << parsed.text;
}

}  // namespace
}  // namespace oxelo::host
