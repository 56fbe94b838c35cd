#pragma once

#include <optional>
#include <string>
#include <vector>

#include "discovery/HostRecord.h"

namespace oxelo {

// The one list into which every search path reports, and the memory of the
// hosts a live screen was opened for (the last host and the history in the
// settings). A plain value; the connection flow owns one, on the main queue.
class HostList {
 public:
  const std::vector<HostRecord>& hosts() const { return hosts_; }
  bool empty() const { return hosts_.empty(); }
  size_t size() const { return hosts_.size(); }
  void clear() { hosts_.clear(); }

  // Appends a host that is not in the list yet (isSameHost). A known one
  // keeps the record that came first, logs "Host NAME already exists!" and
  // gives false.
  bool add(const HostRecord& record);
  // Whether the same host is in the list; if so, removes the entries equal
  // to `record` in every key, which may be none (a UDP goodbye does not
  // remove what service discovery found).
  bool remove(const HostRecord& record);
  // The first entry with exactly this name, and its removal.
  std::optional<HostRecord> findNamed(const std::string& name) const;
  void eraseFirstNamed(const std::string& name);
  // The first entry with exactly this address and name (the name with case).
  std::optional<HostRecord> find(const std::string& ip, const std::string& name) const;
  // Drops what UDP discovery found; the probes bring back who is still there.
  void removeUdpEntries();

  // Stores the host as the last host and puts it at the top of the history.
  static void remember(const std::string& name, const std::string& ip, long long port);

  // A host of the history in the settings.
  struct Remembered {
    std::string name, ip;
    long long port = 0;
  };
  // The history, newest first. Empty when there is none or it is not a
  // list; a list holding anything but records is removed as broken, and
  // gives none either. Fields that are missing read as empty and 0.
  static std::vector<Remembered> history();
  // Forgets the history and the last host's name and port; its address
  // stays, for the manual connection to start from.
  static void forgetHistory();

 private:
  std::vector<HostRecord> hosts_;
};

}  // namespace oxelo
