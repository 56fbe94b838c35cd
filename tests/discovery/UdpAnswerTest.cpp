#include <gtest/gtest.h>

#include "discovery/UdpAnswer.h"

namespace oxelo {
namespace {

std::vector<uint8_t> bytes(const std::string& s) { return {s.begin(), s.end()}; }

struct AnswerCase {
  const char* name;
  std::string datagram;
  bool detected;
  long long port;
  std::string hostName;
  bool present;
};
class UdpAnswerTest : public testing::TestWithParam<AnswerCase> {};

TEST_P(UdpAnswerTest, ParsesHostAnswers) {
  const auto& c = GetParam();
  auto answer = parseHostAnswer(bytes(c.datagram), "10.0.0.9");
  ASSERT_EQ(answer.has_value(), c.detected);
  if (!answer) return;
  EXPECT_EQ(answer->record.port, c.port);
  EXPECT_EQ(answer->record.name, c.hostName);
  EXPECT_EQ(answer->record.ip, "10.0.0.9");
  EXPECT_TRUE(answer->record.udp);
  EXPECT_EQ(answer->present, c.present);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UdpAnswerTest,
    testing::Values(AnswerCase{"PortFieldAlone", "port:5895", false, 0, "", true},
                    AnswerCase{"EmptyName", "port:5895;", true, 5895, "", true},
                    AnswerCase{"NameAndPresence", "port:5897;Desk;1", true, 5897, "Desk", true},
                    AnswerCase{"TextInFrontOfPort", "xport:5895;Desk", false, 0, "", true},
                    AnswerCase{"LettersGivePortZero", "port:abc;Desk", true, 0, "Desk", true},
                    AnswerCase{"LeadingDigitsCount", "port:5899abc;Desk", true, 5899, "Desk", true},
                    AnswerCase{"PresenceZeroLeaves", "port:5895;Desk;0", true, 5895, "Desk", false},
                    AnswerCase{"EmptyPresenceLeaves", "port:5895;Desk;", true, 5895, "Desk", false},
                    AnswerCase{"FurtherFieldsIgnored", "port:5895;Desk;1;x;y", true, 5895, "Desk",
                               true},
                    AnswerCase{"Utf8Name", "port:5895;Büro", true, 5895, "Büro", true},
                    AnswerCase{"NotUtf8", std::string("port:5895;\xff\xfe"), false, 0, "", true},
                    AnswerCase{"TruncatedUtf8", std::string("port:5895;\xc3"), false, 0, "", true}),
    [](const auto& info) { return info.param.name; });

// The count per address and the text on loopback: UdpDiscoveryTest.
TEST(UdpProbeTest, SubnetThenLimitedOnEachOfTheEightPortsFrom5895) {
  auto with = probeTargets("10.0.0.255");
  ASSERT_EQ(with.size(), 16u);
  EXPECT_EQ(with[0], (std::pair<std::string, uint16_t>{"10.0.0.255", 5895}));
  EXPECT_EQ(with[1], (std::pair<std::string, uint16_t>{"255.255.255.255", 5895}));
  EXPECT_EQ(with[15], (std::pair<std::string, uint16_t>{"255.255.255.255", 5902}));
}

}  // namespace
}  // namespace oxelo
