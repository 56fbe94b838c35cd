#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/host/Connection.h"

namespace oxelo::host {

// The answer datagram: "port:PORT;NAME;1" while the host is there, with 0 as
// the last field when it leaves.
std::string probeAnswerText(uint16_t tcpPort, const std::string& name, bool present);

// Answers the phone's UDP probes for `oxelo-host listen --answer-probes`: a UDP
// socket on 0.0.0.0 for each probe port, read by a thread of its own. A probe
// (the five bytes "Oxelo") gets the answer back to its source address and
// port; anything else is ignored. stop(), also run by the destructor, sends
// the leaving answer to every phone answered so far, so that they drop the
// host. start() and stop() are called from one thread (the runner's).
class ProbeAnswerer {
 public:
  ProbeAnswerer(uint16_t tcpPort, std::string name);
  ~ProbeAnswerer();
  ProbeAnswerer(const ProbeAnswerer&) = delete;
  ProbeAnswerer& operator=(const ProbeAnswerer&) = delete;

  // Binds every port and starts answering; false, with `error` set and
  // nothing left open, when a port cannot be bound.
  bool start(const std::vector<uint16_t>& ports, std::string& error);
  void stop();
  // The phones answered so far, as "ADDRESS:PORT", in the order of their
  // first probe. Any thread.
  std::vector<std::string> phones() const;

 private:
  struct Phone {
    std::vector<uint8_t> address;  // the raw sockaddr_in
    std::string text;
    int fd;  // the socket its first probe came in on
  };
  void serve();
  void answer(int fd);

  const uint16_t tcpPort_;
  const std::string name_;
  std::vector<UniqueFd> sockets_;
  UniqueFd wakeRead_, wakeWrite_;  // a byte here ends serve()
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<Phone> phones_;  // under mutex_
};

}  // namespace oxelo::host
