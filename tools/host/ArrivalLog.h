#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>

#include "tools/host/StreamChecker.h"

namespace oxelo::host {

// Notes when each video and audio frame arrived whole, one line per frame:
//   video|audio STREAM_TIMESTAMP_MS KEY ARRIVAL_NS
// KEY is 1 for a key frame, else 0; ARRIVAL_NS is CLOCK_MONOTONIC, the clock
// of the phone's media times when both run on one machine, so that a
// benchmark can set arrivals against capture times. The report stays free
// of times; this file is where they go. Passes every record on to `next`.
// Single-threaded, fed by the session's StreamChecker.
class ArrivalLog final : public MediaSink {
 public:
  using Clock = std::function<int64_t()>;  // nanoseconds
  static int64_t monotonicNanoseconds();

  // Opens `path` for writing; ok() says whether it could.
  ArrivalLog(const std::string& path, MediaSink* next, Clock clock = monotonicNanoseconds);
  ~ArrivalLog() override;
  ArrivalLog(const ArrivalLog&) = delete;
  ArrivalLog& operator=(const ArrivalLog&) = delete;

  bool ok() const { return file_ != nullptr; }

  void streamInfo(const wire::InfoPacket& info) override;
  void videoSequenceHeader(const wire::VideoSequenceHeader& header,
                           wire::VideoCodec codec) override;
  void videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) override;
  void audioSequenceHeader(std::span<const uint8_t> config) override;
  void audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) override;

 private:
  FILE* file_ = nullptr;
  MediaSink* next_;
  Clock clock_;
};

}  // namespace oxelo::host
