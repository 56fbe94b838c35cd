#include "tools/host/ArrivalLog.h"

#include <time.h>

namespace oxelo::host {

int64_t ArrivalLog::monotonicNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

ArrivalLog::ArrivalLog(const std::string& path, MediaSink* next, Clock clock)
    : file_(std::fopen(path.c_str(), "w")), next_(next), clock_(std::move(clock)) {}

ArrivalLog::~ArrivalLog() {
  if (file_) std::fclose(file_);
}

void ArrivalLog::streamInfo(const wire::InfoPacket& info) {
  if (next_) next_->streamInfo(info);
}

void ArrivalLog::videoSequenceHeader(const wire::VideoSequenceHeader& header,
                                     wire::VideoCodec codec) {
  if (next_) next_->videoSequenceHeader(header, codec);
}

void ArrivalLog::videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) {
  // The time first: the recorder behind may take a while.
  const int64_t at = clock_();
  if (file_) std::fprintf(file_, "video %u %d %lld\n", timestamp, key ? 1 : 0, (long long)at);
  if (next_) next_->videoFrame(timestamp, key, data);
}

void ArrivalLog::audioSequenceHeader(std::span<const uint8_t> config) {
  if (next_) next_->audioSequenceHeader(config);
}

void ArrivalLog::audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) {
  const int64_t at = clock_();
  if (file_) std::fprintf(file_, "audio %u 0 %lld\n", timestamp, (long long)at);
  if (next_) next_->audioFrame(timestamp, frame);
}

}  // namespace oxelo::host
