#include "discovery/HostRecord.h"

#include <strings.h>

#include <cstdlib>

namespace oxelo {

bool isSameHost(const HostRecord& a, const HostRecord& b) {
  return a.name.size() == b.name.size() && strcasecmp(a.name.c_str(), b.name.c_str()) == 0 &&
         a.ip == b.ip;
}

int portForInstanceText(const std::string& text) {
  int n = std::atoi(text.c_str());
  return n >= 1 && n <= 16 ? n + 5894 : 5895;
}

nlohmann::json updatedHostHistory(const nlohmann::json& history, const std::string& name,
                                  const std::string& ip, long long port) {
  nlohmann::json list = history.is_array() ? history : nlohmann::json::array();
  for (size_t i = 0; i < list.size(); ++i) {
    const auto& entry = list[i];
    if (!entry.is_object()) {
      list = nlohmann::json::array();
      break;
    }
    auto eip = entry.find("ip");
    auto eport = entry.find("port");
    if (eip != entry.end() && eport != entry.end() && *eip == ip && eport->is_number() &&
        eport->get<long long>() == port) {
      list.erase(i);
      break;
    }
  }
  list.insert(list.begin(), nlohmann::json{{"name", name}, {"ip", ip}, {"port", port}});
  if (list.size() >= 11) list.erase(list.size() - 1);
  return list;
}

}  // namespace oxelo
