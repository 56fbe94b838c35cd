#include <gtest/gtest.h>
#include <net/if.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/device/NetworkInterfaces.h"
#include "platform/device/Reachability.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

constexpr unsigned kUp = IFF_UP | IFF_RUNNING | IFF_BROADCAST;

InterfaceAddress v4(std::string name, std::string address, std::string broadcast,
                    unsigned flags = kUp) {
  return {std::move(name), AF_INET, flags, std::move(address), std::move(broadcast)};
}
InterfaceAddress link(std::string name, unsigned flags = kUp) {
  return {std::move(name), AF_PACKET, flags, "", ""};
}
InterfaceAddress v6(std::string name, unsigned flags = kUp) {
  return {std::move(name), AF_INET6, flags, "", ""};
}

struct ListCase {
  const char* name;
  std::vector<InterfaceAddress> list;
  std::string address, broadcast;
  bool reachable;
};

class WiFiInterfaceListTest : public testing::TestWithParam<ListCase> {};

// The last IPv4 entry of the Wi-Fi interface gives the addresses; reachable
// needs the interface up, with carrier and an IPv4 address.
TEST_P(WiFiInterfaceListTest, AddressesAndReachabilityOfTheWiFiInterface) {
  EXPECT_EQ(ipAddressOf(GetParam().list, "wlan0"), GetParam().address);
  EXPECT_EQ(broadcastAddressOf(GetParam().list, "wlan0"), GetParam().broadcast);
  EXPECT_EQ(isWiFiReachable(GetParam().list, "wlan0"), GetParam().reachable);
  EXPECT_FALSE(isWiFiReachable(GetParam().list, "")) << "no Wi-Fi interface";
}

INSTANTIATE_TEST_SUITE_P(
    Lists, WiFiInterfaceListTest,
    testing::Values(
        ListCase("Empty", {}, "", "", false),
        ListCase("OneAddress",
                 {link("wlan0"), v4("wlan0", "192.168.1.20", "192.168.1.255"), v6("wlan0")},
                 "192.168.1.20", "192.168.1.255", true),
        ListCase("LastOfSeveralWins",
                 {v4("wlan0", "10.0.0.5", "10.0.0.255"), v6("wlan0"),
                  v4("wlan0", "172.16.4.9", "172.16.7.255")},
                 "172.16.4.9", "172.16.7.255", true),
        ListCase("OtherInterfacesIgnored",
                 {v4("eth0", "10.1.1.1", "10.1.1.255"), v4("wlan0", "10.2.2.2", "10.2.2.255"),
                  v4("wlan1", "10.3.3.3", "10.3.3.255")},
                 "10.2.2.2", "10.2.2.255", true),
        ListCase("OnlyIPv6", {link("wlan0"), v6("wlan0")}, "", "", false),
        ListCase("NameIsExact", {v4("wlan0:1", "10.4.4.4", "10.4.4.255")}, "", "", false),
        ListCase("OnlyAnotherInterfaceHasAnAddress", {link("wlan0"), v4("eth0", "10.0.0.2", "")},
                 "", "", false),
        // The last entry has no broadcast address: its empty text wins too.
        ListCase("LastEntryWithoutBroadcast",
                 {v4("wlan0", "10.0.0.5", "10.0.0.255"),
                  v4("wlan0", "10.9.9.9", "", IFF_UP | IFF_RUNNING | IFF_POINTOPOINT)},
                 "10.9.9.9", "", true),
        ListCase("AdministrativelyDown", {v4("wlan0", "10.0.0.2", "", IFF_BROADCAST)}, "10.0.0.2",
                 "", false),
        ListCase("UpWithoutCarrier", {v4("wlan0", "10.0.0.2", "", IFF_UP | IFF_BROADCAST)},
                 "10.0.0.2", "", false)),
    [](const auto& info) { return std::string(info.param.name); });

// A staged /sys/class/net: one folder per interface with "ifindex" and,
// for wireless ones, "wireless" or "phy80211".
class StagedNet {
 public:
  void add(const std::string& name, int index, const char* marker = nullptr) {
    auto dir = dir_.path() / name;
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "ifindex") << index << "\n";
    if (marker) std::filesystem::create_directories(dir / marker);
  }
  const std::filesystem::path& path() const { return dir_.path(); }

 private:
  test::TempDir dir_;
};

TEST(WiFiInterfaceTest, FirstWirelessInterfaceByIndexUnlessNamed) {
  StagedNet net;
  net.add("lo", 1);
  net.add("eth0", 2);
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "");
  net.add("wlp3s0", 5, "phy80211");
  net.add("wlan1", 4, "wireless");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("", net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("veth7", net.path()), "veth7");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path() / "missing"), "");
}

}  // namespace
}  // namespace oxelo
