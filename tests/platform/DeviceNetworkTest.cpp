#include <gtest/gtest.h>

#include <errno.h>
#include <net/if.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/device/NetlinkReachability.h"
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

// ---- Real interface events, inside a network namespace of our own ----

bool writeFile(const char* path, const std::string& text) {
  std::ofstream out(path);
  out << text;
  return static_cast<bool>(out.flush());
}

// A new network namespace for this process: directly when privileged, else
// inside a new user namespace. Returns an error text, empty on success.
std::string enterNewNetworkNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return {};
  int first = errno;
  uid_t uid = getuid();
  gid_t gid = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    return std::string("unshare(CLONE_NEWNET): ") + strerror(first) +
           "; unshare(CLONE_NEWUSER | CLONE_NEWNET): " + strerror(errno);
  writeFile("/proc/self/setgroups", "deny");
  if (!writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
      !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n"))
    return "cannot map the user into the new user namespace";
  return {};
}

// Drains the main queue until `done` holds or 10 real seconds pass: the wait
// is for the kernel's events, not for a delay of the system's own.
bool waitFor(Queue& main, const std::function<bool()>& done) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    main.runPending();
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Appends to `report` everything it finds wrong, and stops where it cannot go on.
void runInNamespace(std::string& report) {
  if (report = enterNewNetworkNamespace(); !report.empty()) {
    report = "this test needs a network namespace of its own and could not create one: " + report;
    return;
  }
  // iproute2's `ip`, wherever the system keeps it.
  auto ip = [&](const std::string& args) {
    if (std::system(("PATH=$PATH:/usr/sbin:/sbin ip " + args).c_str()) == 0) return true;
    report += "ip " + args + " failed\n";
    return false;
  };
  if (!ip("link add oxwl0 type veth peer name oxwl1")) return;
  setenv("OXELO_WIFI_INTERFACE", "oxwl0", 1);
  auto main = Queue::createDriven("main", std::make_shared<SystemClock>());
  MainQueue::set(main);
  {
    NetlinkReachability reachability;
    std::vector<bool> seen;  // the status each notification finds
    auto subscription =
        reachability.addChangeListener([&] { seen.push_back(reachability.isReachableViaWiFi()); });
    if (!reachability.startNotifier()) report += "startNotifier failed in the namespace\n";
    if (reachability.isReachableViaWiFi()) report += "a fresh veth counts as reachable\n";
    // After `commands`: exactly `count` notifications, the last finding `reachable`.
    auto expect = [&](const std::vector<const char*>& commands, size_t count, bool reachable) {
      for (const char* c : commands)
        if (!ip(c)) return false;
      if (!waitFor(*main, [&] { return seen.size() >= count; })) {
        report += std::string("no change notification after ip ") + commands.back() + "\n";
        return false;
      }
      if (seen.size() != count || seen.back() != reachable)
        report += std::string("after ip ") + commands.back() + ": " + std::to_string(seen.size()) +
                  " notifications, last status " +
                  (seen.back() ? "reachable\n" : "not reachable\n");
      return true;
    };
    // Link events alone change nothing; the address makes it reachable.
    if (!expect({"link set oxwl1 up", "link set oxwl0 up", "addr add 10.77.0.1/24 brd + dev oxwl0"},
                1, true))
      return;
    if (getIPAddress() != "10.77.0.1") report += "getIPAddress gave " + getIPAddress() + "\n";
    if (getBroadcastIPAddress() != "10.77.0.255")
      report += "getBroadcastIPAddress gave " + getBroadcastIPAddress() + "\n";
    // A second address is an event that leaves the status as it was; losing
    // the carrier (the peer goes down) ends reachability.
    if (!expect({"addr add 10.77.1.1/24 dev oxwl0", "link set oxwl1 down"}, 2, false) ||
        !expect({"link set oxwl1 up"}, 3, true) || !expect({"addr flush dev oxwl0"}, 4, false))
      return;
  }
  MainQueue::set(nullptr);
}

// Runs in a child process of its own, which says on stderr what went wrong.
TEST(NetlinkReachabilityTest, ReportsRealInterfaceChangesInAPrivateNamespace) {
  auto child = [] {
    alarm(60);  // a hung child must not hang the test
    std::string report;
    runInNamespace(report);
    std::fputs(report.c_str(), stderr);
    std::_Exit(report.empty() ? 0 : 1);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace oxelo
