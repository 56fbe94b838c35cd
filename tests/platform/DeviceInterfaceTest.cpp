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

struct AddressCase {
  const char* name;
  std::vector<InterfaceAddress> list;
  std::string address;
  std::string broadcast;
};

class WiFiAddressTest : public testing::TestWithParam<AddressCase> {};

TEST_P(WiFiAddressTest, TakesTheLastIPv4EntryOfTheWiFiInterface) {
  EXPECT_EQ(ipAddressOf(GetParam().list, "wlan0"), GetParam().address);
  EXPECT_EQ(broadcastAddressOf(GetParam().list, "wlan0"), GetParam().broadcast);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, WiFiAddressTest,
    testing::Values(
        AddressCase("Empty", {}, "", ""),
        AddressCase("OneAddress",
                    {link("wlan0"), v4("wlan0", "192.168.1.20", "192.168.1.255"), v6("wlan0")},
                    "192.168.1.20", "192.168.1.255"),
        AddressCase("LastOfSeveralWins",
                    {v4("wlan0", "10.0.0.5", "10.0.0.255"), v6("wlan0"),
                     v4("wlan0", "172.16.4.9", "172.16.7.255")},
                    "172.16.4.9", "172.16.7.255"),
        AddressCase("OtherInterfacesIgnored",
                    {v4("eth0", "10.1.1.1", "10.1.1.255"), v4("wlan0", "10.2.2.2", "10.2.2.255"),
                     v4("wlan1", "10.3.3.3", "10.3.3.255")},
                    "10.2.2.2", "10.2.2.255"),
        AddressCase("OnlyIPv6", {link("wlan0"), v6("wlan0")}, "", ""),
        AddressCase("NameIsExact", {v4("wlan0:1", "10.4.4.4", "10.4.4.255")}, "", ""),
        // The last entry has no broadcast address: its empty text wins too.
        AddressCase("LastEntryWithoutBroadcast",
                    {v4("wlan0", "10.0.0.5", "10.0.0.255"),
                     v4("wlan0", "10.9.9.9", "", IFF_UP | IFF_RUNNING | IFF_POINTOPOINT)},
                    "10.9.9.9", "")),
    [](const auto& info) { return std::string(info.param.name); });

struct ReachableCase {
  const char* name;
  std::vector<InterfaceAddress> list;
  std::string interface;
  bool reachable;
};

class WiFiReachableTest : public testing::TestWithParam<ReachableCase> {};

TEST_P(WiFiReachableTest, NeedsTheInterfaceUpWithCarrierAndAnIPv4Address) {
  EXPECT_EQ(isWiFiReachable(GetParam().list, GetParam().interface), GetParam().reachable);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, WiFiReachableTest,
    testing::Values(
        ReachableCase("UpWithAddress", {link("wlan0"), v4("wlan0", "10.0.0.2", "")}, "wlan0", true),
        ReachableCase("NoWiFiInterface", {v4("eth0", "10.0.0.2", "")}, "", false),
        ReachableCase("AdministrativelyDown", {v4("wlan0", "10.0.0.2", "", IFF_BROADCAST)}, "wlan0",
                      false),
        ReachableCase("UpWithoutCarrier", {v4("wlan0", "10.0.0.2", "", IFF_UP | IFF_BROADCAST)},
                      "wlan0", false),
        ReachableCase("UpWithoutIPv4", {link("wlan0"), v6("wlan0")}, "wlan0", false),
        ReachableCase("OnlyAnotherInterfaceHasAnAddress",
                      {link("wlan0"), v4("eth0", "10.0.0.2", "")}, "wlan0", false)),
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
  net.add("wlp3s0", 5, "phy80211");
  net.add("wlan1", 4, "wireless");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("", net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("veth7", net.path()), "veth7");
}

TEST(WiFiInterfaceTest, NoWirelessInterfaceMeansNoWiFi) {
  StagedNet net;
  net.add("lo", 1);
  net.add("eth0", 2);
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path() / "missing"), "");
}

// The real interface list, read only: loopback named as the Wi-Fi interface.
TEST(WiFiInterfaceTest, AddressesOfTheNamedInterfaceFromTheSystem) {
  setenv("OXELO_WIFI_INTERFACE", "lo", 1);
  EXPECT_EQ(getIPAddress(), "127.0.0.1");
  EXPECT_EQ(getBroadcastIPAddress(), "");  // loopback has no broadcast address
  setenv("OXELO_WIFI_INTERFACE", "oxelo-no-such-if", 1);
  EXPECT_EQ(getIPAddress(), "");
  EXPECT_EQ(getBroadcastIPAddress(), "");
  unsetenv("OXELO_WIFI_INTERFACE");
}

}  // namespace
}  // namespace oxelo
