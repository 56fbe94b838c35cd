#pragma once

#include "tools/host/Connection.h"
#include "tools/host/HostSession.h"

namespace oxelo::host {

// The connection to the phone as the host's loop sees it: a socket to watch,
// a way to hand what arrives to the session and a way to send its packets.
// One thread.
class Carrier {
 public:
  enum class ReadResult {
    more,    // go on reading
    ended,   // the phone ended the connection
    failed,  // a read error or broken framing, noted in the session
  };

  explicit Carrier(UniqueFd fd) : fd_(std::move(fd)) {}
  virtual ~Carrier() = default;
  Carrier(const Carrier&) = delete;
  Carrier& operator=(const Carrier&) = delete;

  int fd() const { return fd_.get(); }
  // Reads what has arrived (call when the socket is readable) and hands it to
  // `session`.
  virtual ReadResult readInto(HostSession& session) = 0;
  // Writes one packet whole; false, with the fault noted in `session`, when
  // it cannot be written.
  virtual bool send(const OutgoingPacket& packet, HostSession& session) = 0;

 protected:
  // Reads what is there: the byte count, 0 when the phone has closed, -1 on
  // an error (noted in `session`); `wouldBlock` when nothing was there.
  long readSome(std::vector<uint8_t>& buffer, HostSession& session, bool& wouldBlock);

  // The phone's write time-out of the greeting, used for the host's writes.
  static constexpr double kWriteTimeout = 5.0;

 private:
  UniqueFd fd_;
};

}  // namespace oxelo::host
