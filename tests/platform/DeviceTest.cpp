#include <gtest/gtest.h>

#include <errno.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/device/AppLifecycle.h"
#include "platform/device/DeviceName.h"
#include "platform/device/NetlinkReachability.h"
#include "platform/device/NetworkInterfaces.h"
#include "platform/device/PowerSupply.h"
#include "platform/device/PowerSupplyBattery.h"
#include "platform/device/Reachability.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(PrettyHostNameTest, ParsesTheMachineInfoText) {
  const std::pair<const char*, std::optional<std::string>> files[] = {
      {"PRETTY_HOSTNAME=\"Anna's Laptop\"\n", "Anna's Laptop"},
      {"PRETTY_HOSTNAME='Kitchen \"Cam\"'\n", "Kitchen \"Cam\""},
      {"PRETTY_HOSTNAME=Desk\\ Board  \n", "Desk Board"},  // escaped space, trailing blanks
      {"PRETTY_HOSTNAME=\"Say \\\"hi\\\" \\\\o/\"", "Say \"hi\" \\o/"},
      {"# written by hostnamectl\nICON_NAME=computer-laptop\n"
       "CHASSIS=laptop\n  PRETTY_HOSTNAME=\"Lab Pi\"\nDEPLOYMENT=dev\n",
       "Lab Pi"},
      {"PRETTY_HOSTNAME=First\nPRETTY_HOSTNAME=\"Second\"\n", "Second"},  // the last one wins
      {"#PRETTY_HOSTNAME=Old\n;PRETTY_HOSTNAME=Older\n", std::nullopt},
      {"PRETTY_HOSTNAME_X=No\nMY_PRETTY_HOSTNAME=No\n", std::nullopt},
      {"PRETTY_HOSTNAME=\"\"\n", std::nullopt}};
  for (const auto& [text, pretty] : files) EXPECT_EQ(parsePrettyHostName(text), pretty) << text;
}

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

using Event = LifecycleEvent;
using State = ApplicationState;

struct Seen {
  Event event;
  State state;
  bool operator==(const Seen&) const = default;
};
const std::vector<Seen> kToBackground = {{Event::willResignActive, State::inactive},
                                         {Event::didEnterBackground, State::background}};
const std::vector<Seen> kToForeground = {{Event::willEnterForeground, State::inactive},
                                         {Event::didBecomeActive, State::active}};

// Each listener reads the state of its event; repeated or untimely signals change nothing.
TEST(LifecycleTest, SignalsSendTheApplicationToTheBackgroundAndBack) {
  test::ManualMain env;
  auto lifecycle = std::make_shared<AppLifecycle>();
  AppLifecycle::setShared(lifecycle);
  std::vector<Seen> seen;
  auto subscription = lifecycle->addListener([&](Event event) {
    EXPECT_TRUE(MainQueue::isCurrent());
    seen.push_back({event, lifecycle->applicationState()});
  });
  auto drained = [&] {
    env.drain();
    return std::exchange(seen, {});
  };
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR2));  // already active
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR1));
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR1));  // before the first pair has even run
  EXPECT_TRUE(seen.empty());                         // delivered on the main queue only
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  EXPECT_EQ(drained(), kToBackground);
  EXPECT_FALSE(AppLifecycle::handleSignal(SIGHUP));
  EXPECT_TRUE(drained().empty());
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR2));
  EXPECT_EQ(drained(), kToForeground);
  AppLifecycle::setShared(nullptr);
}

TEST(LifecycleLifetimeTest, NotificationsOfALifecycleThatIsGoneAreDropped) {
  test::ManualMain env;
  int calls = 0;
  auto lifecycle = std::make_shared<AppLifecycle>();
  auto subscription = lifecycle->addListener([&](LifecycleEvent) { ++calls; });
  lifecycle->enterBackground();
  lifecycle.reset();
  env.drain();
  EXPECT_EQ(calls, 0);
}

using Attributes = std::map<std::string, std::string>;

// A staged sysfs class folder: a file per attribute, ending in a line feed as sysfs writes it.
struct Staged : test::TempDir {
  void set(const std::string& entry, const Attributes& attributes) {
    std::filesystem::create_directories(path() / entry);
    for (auto& [name, value] : attributes) std::ofstream(path() / entry / name) << value << "\n";
  }
};

Attributes battery(const char* status, const char* capacity) {
  return {{"type", "Battery"}, {"status", status}, {"capacity", capacity}};
}
const Attributes kAcOn = {{"type", "Mains"}, {"online", "1"}};
const Attributes kAcOff = {{"type", "Mains"}, {"online", "0"}};
using S = BatteryState;
using Supply = std::pair<const std::string, Attributes>;
Supply bat(int n, const char* status, const char* capacity) {
  return {"BAT" + std::to_string(n), battery(status, capacity)};
}
const Supply kOn = {"AC", kAcOn}, kOff = {"AC", kAcOff};

struct SupplyCase {
  const char* name;
  std::map<std::string, Attributes> supplies;
  BatteryState state;
  float level;
};

class PowerSupplyReadingTest : public testing::TestWithParam<SupplyCase> {};

// No supplies at all: a folder that does not exist.
TEST_P(PowerSupplyReadingTest, StateAndLevelFromTheSupplies) {
  Staged power;
  for (auto& [supply, attributes] : GetParam().supplies) power.set(supply, attributes);
  auto reading = readPowerSupply(power.path() / (GetParam().supplies.empty() ? "absent" : ""));
  EXPECT_EQ(reading.state, GetParam().state);
  EXPECT_FLOAT_EQ(reading.level, GetParam().level);
}

// A charge threshold holds the battery although the cable is in: only
// charging or full count as a cable. A peripheral's battery or an empty slot
// is not the machine's.
const Supply kMouse = {
    "hid-mouse",
    {{"type", "Battery"}, {"scope", "Device"}, {"status", "Charging"}, {"capacity", "90"}}};
const Supply kEmptySlot = {"BAT1", {{"type", "Battery"}, {"present", "0"}, {"status", "Charging"}}};
INSTANTIATE_TEST_SUITE_P(
    Supplies, PowerSupplyReadingTest,
    testing::Values(
        SupplyCase("Charging", {bat(0, "Charging", "57"), kOn}, S::charging, 0.57f),
        SupplyCase("Discharging", {bat(0, "Discharging", "42"), kOff}, S::unplugged, 0.42f),
        SupplyCase("NotChargingOnMains", {bat(0, "Not charging", "80"), kOn}, S::unplugged, 0.80f),
        SupplyCase("UnknownStatus", {bat(0, "Unknown", "33")}, S::unknown, 0.33f),
        SupplyCase("NoBatteryOnMains", {kOn}, S::unplugged, -1.0f),
        SupplyCase("PeripheralBatteryIgnored", {kMouse}, S::unplugged, -1.0f),
        SupplyCase("EmptySlotIgnored", {kEmptySlot, bat(0, "Discharging", "50")}, S::unplugged,
                   0.5f),
        SupplyCase("OneOfTwoCharging", {bat(0, "Discharging", "40"), bat(1, "Charging", "60")},
                   S::charging, 0.5f),
        SupplyCase("FullBeatsDischarging", {bat(0, "Discharging", "40"), bat(1, "Full", "100")},
                   S::full, 0.7f),
        SupplyCase("UnreadableCapacity", {bat(0, "Charging", "n/a")}, S::charging, -1.0f),
        SupplyCase("CapacityAboveHundredClamped", {bat(0, "Full", "103")}, S::full, 1.0f),
        SupplyCase("MissingDirectory", {}, S::unplugged, -1.0f)),
    [](const auto& info) { return std::string(info.param.name); });

// Steps of a whole binary fraction keep each look exactly on its interval.
constexpr double kStep = 0.25;

// Read at once when switched on, without an event; then each change tells its event, state first.
TEST(PowerSupplyBatteryTest, LooksEveryIntervalWhileOnAndTellsEachChangeOnce) {
  test::ManualMain env;
  Staged power;
  power.set("BAT0", battery("Discharging", "50"));
  power.set("AC", kAcOff);
  PowerSupplyBattery monitor(power.path());
  std::vector<std::tuple<BatteryEvent, BatteryState, float>> events;  // with what they find
  auto subscription = monitor.addListener([&](BatteryEvent event) {
    EXPECT_TRUE(MainQueue::isCurrent());
    events.emplace_back(event, monitor.batteryState(), monitor.batteryLevel());
  });
  EXPECT_EQ(monitor.batteryState(), S::unknown);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), -1.0f);
  monitor.setBatteryMonitoringEnabled(true);
  EXPECT_EQ(monitor.batteryState(), S::unplugged);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), 0.5f);
  env.advance(PowerSupplyBattery::kPollInterval * 2, kStep);
  EXPECT_TRUE(events.empty());

  using E = BatteryEvent;
  power.set("BAT0", battery("Discharging", "49"));
  env.advance(PowerSupplyBattery::kPollInterval, kStep);
  EXPECT_EQ(events, (decltype(events){{E::levelDidChange, S::unplugged, 0.49f}}));

  env.advance(0.5, kStep);
  power.set("AC", kAcOn);
  power.set("BAT0", battery("Full", "100"));
  env.advance(PowerSupplyBattery::kPollInterval - 0.75, kStep);
  EXPECT_EQ(events.size(), 1u) << "noticed only at the next look";
  env.advance(0.25, kStep);
  power.set("BAT0", battery("Charging", "100"));
  env.advance(PowerSupplyBattery::kPollInterval, kStep);
  std::filesystem::remove_all(power.path() / "BAT0");
  env.advance(PowerSupplyBattery::kPollInterval, kStep);
  EXPECT_EQ(events, (decltype(events){{E::levelDidChange, S::unplugged, 0.49f},
                                      {E::stateDidChange, S::full, 1.0f},
                                      {E::levelDidChange, S::full, 1.0f},
                                      {E::stateDidChange, S::charging, 1.0f},
                                      {E::stateDidChange, S::unplugged, -1.0f},
                                      {E::levelDidChange, S::unplugged, -1.0f}}));

  // Switched off: reads unknown and looks no more.
  events.clear();
  monitor.setBatteryMonitoringEnabled(false);
  EXPECT_EQ(monitor.batteryState(), S::unknown);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), -1.0f);
  power.set("BAT0", battery("Charging", "80"));
  env.advance(PowerSupplyBattery::kPollInterval * 3, kStep);
  EXPECT_TRUE(events.empty());
  EXPECT_LT(env.main().nextDeadline(), 0);
}

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

// The last IPv4 entry gives the addresses; reachable needs up, carrier and an IPv4 address.
TEST_P(WiFiInterfaceListTest, AddressesAndReachabilityOfTheWiFiInterface) {
  EXPECT_EQ(ipAddressOf(GetParam().list, "wlan0"), GetParam().address);
  EXPECT_EQ(broadcastAddressOf(GetParam().list, "wlan0"), GetParam().broadcast);
  EXPECT_EQ(isWiFiReachable(GetParam().list, "wlan0"), GetParam().reachable);
  EXPECT_FALSE(isWiFiReachable(GetParam().list, "")) << "no Wi-Fi interface";
}

INSTANTIATE_TEST_SUITE_P(
    Lists, WiFiInterfaceListTest,
    testing::Values(
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

// A staged /sys/class/net: "ifindex" in each folder, "wireless" or "phy80211" in a wireless one's.
TEST(WiFiInterfaceTest, FirstWirelessInterfaceByIndexUnlessNamed) {
  Staged net;
  net.set("lo", {{"ifindex", "1"}});
  net.set("eth0", {{"ifindex", "2"}});
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "");
  net.set("wlp3s0", {{"ifindex", "5"}});
  std::filesystem::create_directory(net.path() / "wlp3s0" / "phy80211");
  net.set("wlan1", {{"ifindex", "4"}});
  std::filesystem::create_directory(net.path() / "wlan1" / "wireless");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("", net.path()), "wlan1");
  EXPECT_EQ(wifiInterfaceName("veth7", net.path()), "veth7");
  EXPECT_EQ(wifiInterfaceName(nullptr, net.path() / "missing"), "");
}

// ---- Real interface events, inside a network namespace of our own ----

bool writeFile(const char* path, const std::string& text) {
  return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

// A new network namespace, inside a new user namespace unless privileged; the error, if any.
std::string enterNewNetworkNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return {};
  const int first = errno;
  const uid_t uid = getuid(), gid = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    return std::string("unshare(CLONE_NEWNET): ") + strerror(first) +
           "; unshare(CLONE_NEWUSER | CLONE_NEWNET): " + strerror(errno);
  writeFile("/proc/self/setgroups", "deny");
  if (!writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
      !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n"))
    return "cannot map the user into the new user namespace";
  return {};
}

// Drains the main queue until `done` holds or 10 real seconds pass (the kernel's events).
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
    report.insert(0, "this test needs a network namespace of its own: ");
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
                  " notifications, last " + (seen.back() ? "reachable\n" : "not reachable\n");
      return true;
    };
    // Link events alone change nothing; the address makes it reachable.
    if (!expect({"link set oxwl1 up", "link set oxwl0 up", "addr add 10.77.0.1/24 brd + dev oxwl0"},
                1, true))
      return;
    if (getIPAddress() != "10.77.0.1") report += "getIPAddress gave " + getIPAddress() + "\n";
    if (getBroadcastIPAddress() != "10.77.0.255")
      report += "getBroadcastIPAddress gave " + getBroadcastIPAddress() + "\n";
    // A second address leaves the status as it was; the carrier lost (peer down) ends it.
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
