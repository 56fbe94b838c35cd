#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/audio/AudioInput.h"
#include "platform/audio/SyntheticTone.h"

namespace oxelo {

// The `synthetic` audio backend: SyntheticTone delivered in real time (on
// the steady clock, as a sound card would) from a capture thread of its own.
// The tone goes on where it stopped when the input starts again.
class SyntheticAudioInput final : public AudioInput {
 public:
  SyntheticAudioInput(unsigned sampleRate, unsigned channels);
  ~SyntheticAudioInput() override;

  bool start(BlockHandler handler) override;
  void stop() override;
  bool isStarted() const override { return thread_.joinable(); }

 private:
  void run(BlockHandler handler);  // capture thread

  SyntheticTone tone_;  // capture thread while started
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;  // mutex_
  std::thread thread_;     // owner thread
};

}  // namespace oxelo
