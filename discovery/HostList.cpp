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

std::vector<HostList::Remembered> HostList::history() {
  auto defaults = UserDefaults::standard();
  const auto list = defaults ? defaults->objectForKey(keys::hostHistory) : UserDefaults::Json();
  std::vector<Remembered> hosts;
  if (!list.is_array()) return hosts;
  for (const auto& entry : list) {
    if (!entry.is_object()) {
      defaults->removeObjectForKey(keys::hostHistory);
      defaults->synchronize();
      return {};
    }
    auto text = [&](const char* key) {
      auto it = entry.find(key);
      return it != entry.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    auto port = entry.find("port");
    hosts.push_back({text("name"), text("ip"),
                     port != entry.end() && port->is_number() ? port->get<long long>() : 0});
  }
  return hosts;
}

void HostList::forgetHistory() {
  auto defaults = UserDefaults::standard();
  if (!defaults) return;
  defaults->removeObjectForKey(keys::hostHistory);
  defaults->removeObjectForKey(keys::lastHostName);
  defaults->removeObjectForKey(keys::lastHostPort);
  defaults->synchronize();
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
