#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace oxelo {

// When a block of PCM was captured.
struct AudioTimeStamp {
  uint64_t sampleTime = 0;  // frames delivered by this input before the block
  double hostTime = 0;      // media clock, seconds, at delivery
};

// A running source of 16-bit interleaved PCM at a fixed rate and channel
// count, in blocks of any size: the audio unit of LFAudioCapture. Opened
// (configured) when it is made; start() and stop() may follow each other any
// number of times.
//
// Threads: blocks are handed to the handler on the input's own capture
// thread, the audio render thread. start() and stop() are called by one
// owner thread (LFAudioCapture's taskQueue), never from the capture thread:
// stop() waits for that thread to end.
class AudioInput {
 public:
  using BlockHandler =
      std::function<void(const uint8_t* data, size_t size, const AudioTimeStamp& timeStamp)>;
  virtual ~AudioInput() = default;

  // Starts delivering to `handler`; does nothing while started. False when
  // the input cannot start (with a log line).
  virtual bool start(BlockHandler handler) = 0;
  // Stops and returns once the capture thread has ended; does nothing while
  // stopped.
  virtual void stop() = 0;
  virtual bool isStarted() const = 0;
};

}  // namespace oxelo
