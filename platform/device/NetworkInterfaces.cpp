#include "platform/device/NetworkInterfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <system_error>

namespace oxelo {

namespace {

std::string dotted(const sockaddr* address) {
  if (!address || address->sa_family != AF_INET) return {};
  char text[INET_ADDRSTRLEN] = {};
  auto* in = reinterpret_cast<const sockaddr_in*>(address);
  if (!inet_ntop(AF_INET, &in->sin_addr, text, sizeof text)) return {};
  return text;
}

bool isWireless(const std::filesystem::path& interfaceDir) {
  std::error_code ec;
  return std::filesystem::exists(interfaceDir / "wireless", ec) ||
         std::filesystem::exists(interfaceDir / "phy80211", ec);
}

// The interface index from sysfs; interfaces without one sort last.
long interfaceIndex(const std::filesystem::path& interfaceDir) {
  std::ifstream in(interfaceDir / "ifindex");
  long index = 0;
  if (in >> index) return index;
  return std::numeric_limits<long>::max();
}

const InterfaceAddress* lastIPv4Entry(const std::vector<InterfaceAddress>& list,
                                      std::string_view interface) {
  const InterfaceAddress* last = nullptr;
  for (auto& entry : list)
    if (entry.family == AF_INET && entry.name == interface) last = &entry;
  return last;
}

}  // namespace

std::optional<std::vector<InterfaceAddress>> readInterfaceAddresses() {
  ifaddrs* head = nullptr;
  if (getifaddrs(&head) != 0) return std::nullopt;
  std::vector<InterfaceAddress> list;
  for (ifaddrs* it = head; it; it = it->ifa_next) {
    InterfaceAddress entry;
    entry.name = it->ifa_name ? it->ifa_name : "";
    entry.family = it->ifa_addr ? it->ifa_addr->sa_family : AF_UNSPEC;
    entry.flags = it->ifa_flags;
    entry.address = dotted(it->ifa_addr);
    // The union holds the peer's address on point-to-point links.
    if (it->ifa_flags & IFF_BROADCAST) entry.broadcast = dotted(it->ifa_broadaddr);
    list.push_back(std::move(entry));
  }
  freeifaddrs(head);
  return list;
}

std::string wifiInterfaceName() {
  return wifiInterfaceName(getenv("OXELO_WIFI_INTERFACE"), "/sys/class/net");
}

std::string wifiInterfaceName(const char* override, const std::filesystem::path& sysClassNet) {
  if (override && *override) return override;
  std::vector<std::pair<long, std::string>> wireless;
  std::error_code ec;
  for (auto& dir : std::filesystem::directory_iterator(sysClassNet, ec)) {
    if (!isWireless(dir.path())) continue;
    wireless.emplace_back(interfaceIndex(dir.path()), dir.path().filename().string());
  }
  if (wireless.empty()) return {};
  return std::min_element(wireless.begin(), wireless.end())->second;
}

std::string ipAddressOf(const std::vector<InterfaceAddress>& list, std::string_view interface) {
  auto* entry = lastIPv4Entry(list, interface);
  return entry ? entry->address : std::string();
}

std::string broadcastAddressOf(const std::vector<InterfaceAddress>& list,
                               std::string_view interface) {
  auto* entry = lastIPv4Entry(list, interface);
  return entry ? entry->broadcast : std::string();
}

std::string getIPAddress() {
  auto interface = wifiInterfaceName();
  if (interface.empty()) return {};
  auto list = readInterfaceAddresses();
  if (!list) return {};
  return ipAddressOf(*list, interface);
}

std::string getBroadcastIPAddress() {
  auto interface = wifiInterfaceName();
  if (interface.empty()) return {};
  auto list = readInterfaceAddresses();
  if (!list) return {};
  return broadcastAddressOf(*list, interface);
}

}  // namespace oxelo
