#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace oxelo {

// One host as the search paths report it: an immutable record of its
// announced name ("Unknown" when it told none), dotted IPv4 address, TCP port
// and whether UDP discovery (true) or service discovery (false) found it.
struct HostRecord {
  std::string name;
  std::string ip;
  long long port = 0;
  bool udp = false;
  bool operator==(const HostRecord&) const = default;
};

// The same host for the host list: names equal ignoring case, addresses
// equal exactly.
bool isSameHost(const HostRecord& a, const HostRecord& b);

// The TCP port of a manual connection from the instance field's text: n from
// 1 to 16 gives 5894 + n; an empty text or any other number gives 5895.
int portForInstanceText(const std::string& text);

// Puts the current host at the top of `history` (the stored hostHistory
// value): a history that is not an array, or holds an entry that is not a
// dictionary, starts anew; an entry with the same ip and port is moved to the
// top under the new name; at most 10 entries stay.
nlohmann::json updatedHostHistory(const nlohmann::json& history, const std::string& name,
                                  const std::string& ip, long long port);

}  // namespace oxelo
