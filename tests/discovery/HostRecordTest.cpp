#include <gtest/gtest.h>

#include "discovery/HostList.h"
#include "discovery/HostRecord.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

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

// What the history sheet reads back: newest first, with the port; a list
// holding anything but records is dropped from the store; forgetting keeps
// the last address only.
TEST(HostHistoryTest, ReadBackNewestFirstABrokenListIsDroppedForgettingKeepsTheAddress) {
  test::TempDir dir;
  auto defaults = std::make_shared<UserDefaults>(dir.path());
  UserDefaults::setStandard(defaults);
  HostList::remember("desk", "10.0.0.6", 5895);
  HostList::remember("studio", "10.0.0.5", 5897);
  const auto hosts = HostList::history();
  ASSERT_EQ(hosts.size(), 2u);
  EXPECT_EQ(std::tie(hosts[0].name, hosts[0].ip, hosts[0].port),
            std::make_tuple(std::string("studio"), std::string("10.0.0.5"), 5897LL));
  EXPECT_EQ(hosts[1].name, "desk");

  HostList::forgetHistory();
  EXPECT_TRUE(HostList::history().empty());
  EXPECT_TRUE(defaults->objectForKey(keys::lastHostName).is_null());
  EXPECT_EQ(defaults->stringForKey(keys::lastHostIP), "10.0.0.5");

  defaults->setObject(keys::hostHistory, Json::array({entry("A", "10.0.0.1", 5895), 7}));
  EXPECT_TRUE(HostList::history().empty());
  EXPECT_TRUE(defaults->objectForKey(keys::hostHistory).is_null());
  UserDefaults::setStandard(nullptr);
}

}  // namespace
}  // namespace oxelo
