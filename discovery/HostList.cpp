#include "discovery/HostList.h"

#include <algorithm>

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/log/Log.h"

namespace oxelo {

bool HostList::add(const HostRecord& record) {
  auto same = [&](const HostRecord& h) { return isSameHost(h, record); };
  if (std::any_of(hosts_.begin(), hosts_.end(), same)) {
    oxlog("Host {} already exists!", record.name);
    return false;
  }
  hosts_.push_back(record);
  return true;
}

bool HostList::remove(const HostRecord& record) {
  auto same = [&](const HostRecord& h) { return isSameHost(h, record); };
  if (std::none_of(hosts_.begin(), hosts_.end(), same)) return false;
  std::erase(hosts_, record);
  return true;
}

std::optional<HostRecord> HostList::findNamed(const std::string& name) const {
  auto it = std::find_if(hosts_.begin(), hosts_.end(),
                         [&](const HostRecord& h) { return h.name == name; });
  if (it == hosts_.end()) return std::nullopt;
  return *it;
}

void HostList::eraseFirstNamed(const std::string& name) {
  auto it = std::find_if(hosts_.begin(), hosts_.end(),
                         [&](const HostRecord& h) { return h.name == name; });
  if (it != hosts_.end()) hosts_.erase(it);
}

std::optional<HostRecord> HostList::find(const std::string& ip, const std::string& name) const {
  auto it = std::find_if(hosts_.begin(), hosts_.end(),
                         [&](const HostRecord& h) { return h.ip == ip && h.name == name; });
  if (it == hosts_.end()) return std::nullopt;
  return *it;
}

void HostList::removeUdpEntries() {
  std::erase_if(hosts_, [](const HostRecord& h) { return h.udp; });
}

void HostList::remember(const std::string& name, const std::string& ip, long long port) {
  auto defaults = UserDefaults::standard();
  defaults->setString(keys::lastHostName, name);
  defaults->setString(keys::lastHostIP, ip);
  defaults->setInteger(keys::lastHostPort, port);
  defaults->setObject(
      keys::hostHistory,
      updatedHostHistory(defaults->objectForKey(keys::hostHistory), name, ip, port));
}

}  // namespace oxelo
