#include <gtest/gtest.h>

#include "discovery/HostRecord.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

TEST(HostRecordTest, SameHostIgnoresCaseOfTheNameButNotTheAddress) {
  HostRecord a{"Desk", "10.0.0.9", 5895, true};
  EXPECT_TRUE(isSameHost(a, {"DESK", "10.0.0.9", 5896, false}));
  EXPECT_FALSE(isSameHost(a, {"Desk", "10.0.0.19", 5895, true}));
  EXPECT_FALSE(isSameHost(a, {"Desk2", "10.0.0.9", 5895, true}));
}

TEST(InstancePortTest, PortFollowsTheInstanceRule) {
  const std::pair<const char*, int> cases[] = {{"1", 5895},   {"3", 5897}, {"16", 5910},
                                               {"17", 5895},  {"0", 5895}, {"", 5895},
                                               {"abc", 5895}, {"4x", 5898}};
  for (auto [text, port] : cases) EXPECT_EQ(portForInstanceText(text), port) << '"' << text << '"';
}

Json entry(const std::string& name, const std::string& ip, int port) {
  return {{"name", name}, {"ip", ip}, {"port", port}};
}

TEST(HostHistoryTest, NewOrKnownHostGoesOnTopTenAtMostAndAnythingElseStartsAnew) {
  Json history = Json::array();
  for (int i = 0; i < 11; ++i)
    history =
        updatedHostHistory(history, "H" + std::to_string(i), "10.0.0." + std::to_string(i), 5895);
  ASSERT_EQ(history.size(), 10u);
  EXPECT_EQ(history[0], entry("H10", "10.0.0.10", 5895));
  EXPECT_EQ(history[9], entry("H1", "10.0.0.1", 5895));  // H0 went out

  history = Json::array(
      {entry("A", "10.0.0.1", 5895), entry("B", "10.0.0.2", 5896), entry("C", "10.0.0.3", 5895)});
  history = updatedHostHistory(history, "B-renamed", "10.0.0.2", 5896);
  EXPECT_EQ(history, Json::array({entry("B-renamed", "10.0.0.2", 5896),
                                  entry("A", "10.0.0.1", 5895), entry("C", "10.0.0.3", 5895)}));
  history = updatedHostHistory(history, "A", "10.0.0.1", 5897);  // another port: another host
  EXPECT_EQ(history.size(), 4u);

  Json bad =
      Json::array({entry("A", "10.0.0.1", 5895), "not a dictionary", entry("C", "10.0.0.3", 1)});
  for (const Json& stored : {bad, Json("text"), Json()})
    EXPECT_EQ(updatedHostHistory(stored, "N", "10.0.0.9", 5895),
              Json::array({entry("N", "10.0.0.9", 5895)}))
        << stored;
}

}  // namespace
}  // namespace oxelo
