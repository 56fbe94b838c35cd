#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace oxelo::bench {

// The host's end of a loopback stream, for the latency benchmark. Listens
// on 127.0.0.1 on a free port, takes one connection and reads the stream on
// a thread of its own: the info packet (444 bytes), then packets (a 12-byte
// header of type, timestamp and body size, little-endian, then the body),
// with a tail block (type 16, its size word plus 12 bytes long) possibly
// behind a video packet whose first body byte is 0x17. Notes when each video
// frame (not the sequence header) has arrived whole: the moment the read
// that completed it returned. Public operations: any thread.
class StreamArrivals {
 public:
  using Clock = std::chrono::steady_clock;
  struct Arrival {
    uint32_t timestamp = 0;  // the packet's stream time, milliseconds
    Clock::time_point at;
  };

  // Listens and starts the reader; port() is 0, with the reason in error(),
  // when it could not listen.
  StreamArrivals();
  // Ends the connection and the reader.
  ~StreamArrivals();
  StreamArrivals(const StreamArrivals&) = delete;
  StreamArrivals& operator=(const StreamArrivals&) = delete;

  uint16_t port() const { return port_; }
  // Waits until `count` video frames have arrived, the stream broke or ended,
  // or `timeout` has passed; returns the arrivals so far, in order.
  std::vector<Arrival> waitFor(size_t count, std::chrono::milliseconds timeout);
  // Why the stream could not be read; empty while all is well.
  std::string error() const;

 private:
  void read();
  // Takes the whole records at the front of `buffer_`; false on a stream
  // that cannot be read.
  bool takeRecords(Clock::time_point at);
  void fail(std::string why);

  int listener_ = -1;
  int connection_ = -1;  // set by the reader
  uint16_t port_ = 0;
  std::thread reader_;

  // Reader thread only.
  std::vector<uint8_t> buffer_;
  bool infoSeen_ = false;
  bool tailAllowed_ = false;  // the last packet was a video packet starting with 0x17

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Arrival> arrivals_;  // guarded by mutex_
  std::string error_;              // guarded by mutex_
  bool ended_ = false;             // guarded by mutex_
  bool stopping_ = false;          // guarded by mutex_
};

}  // namespace oxelo::bench
