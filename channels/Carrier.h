#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "channels/SocketError.h"

namespace oxelo {

class Carrier;

// Events of a carrier, whichever kind it is. Every operation is optional
// (empty default) and runs on the carrier's delegate queue (the main queue
// in this program), one at a time, in the order the events happened.
// `carrier` is never null.
class CarrierDelegate {
 public:
  virtual ~CarrierDelegate() = default;

  // An outgoing TCP connection is up; before any read or write completes.
  virtual void carrierDidConnect(Carrier* /*carrier*/, const std::string& /*host*/,
                                 uint16_t /*port*/) {}
  // Bytes from the host. Over TCP a piece of the byte stream as one read
  // found it, which may end inside a record (`endsMessage` false); over USB
  // the payload of one frame, a whole message (`endsMessage` true).
  virtual void carrierDidReceiveData(Carrier* /*carrier*/, std::span<const uint8_t> /*data*/,
                                     bool /*endsMessage*/) {}
  // A record sent with `report` set has been handed to the system whole.
  virtual void carrierDidWriteRecord(Carrier* /*carrier*/, int64_t /*tag*/) {}
  // TCP only: the current write's time-out has run out. The answer is the
  // extra seconds to allow; 0 or less lets the time-out stand, which ends the
  // connection.
  virtual double carrierShouldTimeoutWrite(Carrier* /*carrier*/, int64_t /*tag*/,
                                           double /*elapsed*/, size_t /*bytesDone*/) {
    return 0.0;
  }
  // The connection has ended, whatever the reason: the last event, once.
  // No error after a local close.
  virtual void carrierDidEnd(Carrier* /*carrier*/, const OptionalError& /*error*/) {}
};

// One record for the host, and how it travels on each kind of carrier. Over
// TCP `bytes` and `tail` leave as one write with `tag` and `timeout`; over
// USB `bytes` is one frame of `frameType` whose tag is the low 32 bits of
// `tag`, and `tail`, when there is one, a frame of its own (`tailFrameType`,
// `tailTag`). Completions of records sent with `report` come back through
// carrierDidWriteRecord with `tag`.
struct CarrierRecord {
  std::shared_ptr<const std::vector<uint8_t>> bytes;
  std::shared_ptr<const std::vector<uint8_t>> tail;  // may be null
  int64_t tag = 0;
  double timeout = -1;  // seconds; negative: none (TCP only)
  uint32_t frameType = 0;
  uint32_t tailFrameType = 0;
  uint32_t tailTag = 0;
  bool report = true;
  bool framedOnly = false;  // a notice of the framed channel: never sent over TCP
};

// A connection to the host, greeted or about to be: a TCP socket or the USB
// framed channel. The connection flow, the handshake and the stream socket
// talk to this interface only, so that none of them asks which kind it has.
//
// Held by shared pointer. The delegate is held weakly by both kinds and may
// be changed at any time, which is how a greeted carrier changes hands:
// events not yet delivered go to the delegate of the moment they run. All
// operations may be called from any thread; events arrive on the delegate
// queue.
class Carrier {
 public:
  enum class Kind { tcp, usb };

  virtual ~Carrier() = default;

  virtual Kind kind() const = 0;
  // Connected (TCP) or with a stream to read and write (USB).
  virtual bool isConnected() const = 0;
  // The host's address as text; "127.0.0.1" behind the USB forwarder.
  virtual std::string peerHost() const = 0;

  virtual void setDelegate(std::weak_ptr<CarrierDelegate> delegate) = 0;
  virtual std::shared_ptr<CarrierDelegate> delegate() const = 0;

  // Delivers what the host sends, as it arrives, until the connection ends.
  // Once; later calls change nothing.
  virtual void startReading() = 0;
  // Queues one record; records leave in the order of the calls. Dropped
  // silently when the carrier is not connected.
  virtual void sendRecord(CarrierRecord record) = 0;
  // Ends the connection at once; queued records are dropped. carrierDidEnd
  // follows (with no error) while a delegate is set.
  virtual void close() = 0;
  // Ends the connection once the records already queued have left (USB);
  // a TCP socket has no such drain and closes at once, as close() does.
  virtual void closeAfterSending() = 0;
  // The bytes of the records queued and not yet handed whole to the system,
  // so that a sender can bound what waits while the host does not read. A
  // carrier that keeps no queue of its own says 0.
  virtual size_t queuedBytes() const { return 0; }
};

}  // namespace oxelo
