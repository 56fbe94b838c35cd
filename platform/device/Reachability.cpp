#include "platform/device/Reachability.h"

#include <net/if.h>
#include <sys/socket.h>

#include <mutex>

#include "platform/device/NetlinkReachability.h"

namespace oxelo {

namespace {
std::mutex factoryMutex;
std::function<std::shared_ptr<Reachability>()>& factory() {
  static std::function<std::shared_ptr<Reachability>()> f;
  return f;
}
}  // namespace

std::shared_ptr<Reachability> Reachability::reachabilityForLocalWiFi() {
  std::function<std::shared_ptr<Reachability>()> make;
  {
    std::lock_guard lock(factoryMutex);
    make = factory();
  }
  if (make) return make();
  return std::make_shared<NetlinkReachability>();
}

void Reachability::setLocalWiFiFactory(std::function<std::shared_ptr<Reachability>()> f) {
  std::lock_guard lock(factoryMutex);
  factory() = std::move(f);
}

bool isWiFiReachable(const std::vector<InterfaceAddress>& list, const std::string& interface) {
  if (interface.empty()) return false;
  constexpr unsigned kUpWithCarrier = IFF_UP | IFF_RUNNING;
  for (auto& entry : list) {
    if (entry.name != interface || entry.family != AF_INET) continue;
    if ((entry.flags & kUpWithCarrier) == kUpWithCarrier) return true;
  }
  return false;
}

}  // namespace oxelo
