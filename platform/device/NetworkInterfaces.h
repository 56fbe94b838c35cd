#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oxelo {

// One entry of the system's interface list (getifaddrs): an interface name
// with one address. Interfaces appear once per address, and once more for
// the link itself.
struct InterfaceAddress {
  std::string name;
  int family = 0;         // AF_INET, AF_INET6, AF_PACKET, ...
  unsigned flags = 0;     // IFF_UP, IFF_RUNNING, IFF_BROADCAST, ... of the interface
  std::string address;    // dotted IPv4 text for AF_INET, else empty
  std::string broadcast;  // dotted IPv4 text for AF_INET with IFF_BROADCAST, else empty
};

// The current interface list; none when it cannot be read. Any thread.
std::optional<std::vector<InterfaceAddress>> readInterfaceAddresses();

// The interface that plays the part of the Wi-Fi interface: $OXELO_WIFI_INTERFACE
// when set and not empty, else the first wireless interface of
// /sys/class/net, else empty (no Wi-Fi). Any thread.
std::string wifiInterfaceName();
// The same choice with the override and the interface directory given.
// "First" is the lowest interface index; an interface is wireless when its
// directory holds "wireless" or "phy80211".
std::string wifiInterfaceName(const char* override, const std::filesystem::path& sysClassNet);

// The IPv4 address of `interface` as dotted text; of several, the last entry
// of the list wins. Empty when the interface has none.
std::string ipAddressOf(const std::vector<InterfaceAddress>& list, std::string_view interface);
// The broadcast address of the last IPv4 entry of `interface`; empty when
// there is no such entry or it has no broadcast address.
std::string broadcastAddressOf(const std::vector<InterfaceAddress>& list,
                               std::string_view interface);

// The IPv4 address of the Wi-Fi interface as dotted text, empty if none or
// if the interface list cannot be read. Any thread.
std::string getIPAddress();
// The subnet broadcast address of the Wi-Fi interface as dotted text, empty
// if none or if the interface list cannot be read. Any thread.
std::string getBroadcastIPAddress();

}  // namespace oxelo
