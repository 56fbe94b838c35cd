#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "tools/host/ChildProcess.h"

namespace oxelo::host {

// Publishes the host for `oxelo-host listen --publish`: the service
// "_tarnvik_oxelo._tcp" in the daemon's domain ("local"), under a name, on
// the host's TCP port, through avahi-daemon, by running
// `avahi-publish -s NAME _tarnvik_oxelo._tcp PORT` (avahi-utils) for as long
// as the object lives; the destructor ends it (SIGTERM), which withdraws the
// service. The child reaches the daemon through the system bus that the
// environment names. start() and the destructor run on the caller's thread;
// the child's lines arrive on its reader thread, which logs them: the
// service established, renamed after a name collision, refused.
class ServicePublisher {
 public:
  // `program`: the publishing tool, looked up in PATH.
  explicit ServicePublisher(std::string program = "avahi-publish");
  ~ServicePublisher();
  ServicePublisher(const ServicePublisher&) = delete;
  ServicePublisher& operator=(const ServicePublisher&) = delete;

  // Starts the tool and waits until the daemon has established the service
  // or the tool has ended, at most a few seconds (a slow daemon's answer is
  // logged when it comes). False, with `error` set, when the tool is missing
  // or ends before the service is established: no daemon, a refused name.
  bool start(const std::string& name, uint16_t port, std::string& error);

 private:
  void onLine(std::string_view line, bool error);  // reader thread

  std::string program_;
  ChildProcess child_;
  bool published_ = false;  // start() succeeded
  std::mutex lock_;
  std::condition_variable changed_;
  bool established_ = false;  // under lock_
  std::string lastError_;     // under lock_: its last line of standard error
};

}  // namespace oxelo::host
