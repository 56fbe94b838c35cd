#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

#include "platform/device/DeviceName.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

struct MachineInfoCase {
  const char* name;
  const char* text;
  std::optional<std::string> pretty;
};

class PrettyHostNameTest : public testing::TestWithParam<MachineInfoCase> {};

TEST_P(PrettyHostNameTest, ParsesTheMachineInfoText) {
  EXPECT_EQ(parsePrettyHostName(GetParam().text), GetParam().pretty);
}

INSTANTIATE_TEST_SUITE_P(
    Files, PrettyHostNameTest,
    testing::Values(
        MachineInfoCase("DoubleQuoted", "PRETTY_HOSTNAME=\"Anna's Laptop\"\n", "Anna's Laptop"),
        MachineInfoCase("SingleQuoted", "PRETTY_HOSTNAME='Kitchen \"Cam\"'\n", "Kitchen \"Cam\""),
        MachineInfoCase("Bare", "PRETTY_HOSTNAME=Pinebook\n", "Pinebook"),
        MachineInfoCase("BareWithEscapedSpaceAndTrailingBlanks", "PRETTY_HOSTNAME=Desk\\ Board  \n",
                        "Desk Board"),
        MachineInfoCase("EscapesInDoubleQuotes", "PRETTY_HOSTNAME=\"Say \\\"hi\\\" \\\\o/\"",
                        "Say \"hi\" \\o/"),
        MachineInfoCase("AmongOtherKeys",
                        "# written by hostnamectl\nICON_NAME=computer-laptop\n"
                        "CHASSIS=laptop\n  PRETTY_HOSTNAME=\"Lab Pi\"\nDEPLOYMENT=dev\n",
                        "Lab Pi"),
        MachineInfoCase("LastAssignmentWins", "PRETTY_HOSTNAME=First\nPRETTY_HOSTNAME=\"Second\"\n",
                        "Second"),
        MachineInfoCase("CommentedOut", "#PRETTY_HOSTNAME=Old\n;PRETTY_HOSTNAME=Older\n",
                        std::nullopt),
        MachineInfoCase("SimilarKeyIsNotIt", "PRETTY_HOSTNAME_X=No\nMY_PRETTY_HOSTNAME=No\n",
                        std::nullopt),
        MachineInfoCase("EmptyValue", "PRETTY_HOSTNAME=\"\"\n", std::nullopt)),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DeviceNameTest, PrettyHostNameFromTheFileElseTheHostName) {
  test::TempDir dir;
  auto file = dir.path() / "machine-info";
  ASSERT_FALSE(hostName().empty());
  EXPECT_EQ(deviceName(file), hostName());  // no file
  std::ofstream(file) << "ICON_NAME=camera\n";
  EXPECT_EQ(deviceName(file), hostName());  // no pretty name in it
  std::ofstream(file) << "PRETTY_HOSTNAME=\"Oxelo Test Rig\"\n";
  EXPECT_EQ(deviceName(file), "Oxelo Test Rig");
}

}  // namespace
}  // namespace oxelo
