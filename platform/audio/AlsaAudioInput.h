#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "platform/audio/AudioInput.h"

typedef struct _snd_pcm snd_pcm_t;

namespace oxelo {

// The `alsa` audio backend: one ALSA capture device (`default` reaches
// PipeWire or PulseAudio where they run), 16-bit interleaved at the
// configured rate and channel count, resampled by ALSA where the device
// cannot deliver them itself. A capture thread reads one period at a time;
// the device is held from open() until the input goes.
class AlsaAudioInput final : public AudioInput {
 public:
  // None, with one log line, when the device cannot be opened or set up.
  static std::unique_ptr<AlsaAudioInput> open(const std::string& device, unsigned sampleRate,
                                              unsigned channels);
  // True when the device opens for capture (it is closed again at once);
  // quiet.
  static bool canOpen(const std::string& device);
  ~AlsaAudioInput() override;

  bool start(BlockHandler handler) override;
  void stop() override;
  bool isStarted() const override { return thread_.joinable(); }

 private:
  AlsaAudioInput(snd_pcm_t* pcm, std::string device, unsigned channels, unsigned long period);
  void run(BlockHandler handler);  // capture thread

  snd_pcm_t* pcm_;
  const std::string device_;
  const unsigned channels_;
  const unsigned long periodFrames_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;  // owner thread
};

// ALSA's library writes its own messages to standard error; this keeps them
// out, so that a failure shows as our one line. Idempotent.
void silenceAlsaLibraryMessages();

}  // namespace oxelo
