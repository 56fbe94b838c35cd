#include "platform/audio/AlsaAudioInput.h"

#include <alsa/asoundlib.h>

#include <mutex>
#include <vector>

#include "platform/dispatch/Clock.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

constexpr unsigned kLatencyMicroseconds = 40000;
constexpr int kWaitMilliseconds = 100;  // how soon a stop is noticed

void ignoreAlsaMessage(const char*, int, const char*, int, const char*, ...) {}

}  // namespace

void silenceAlsaLibraryMessages() {
  static std::once_flag once;
  std::call_once(once, [] { snd_lib_error_set_handler(ignoreAlsaMessage); });
}

bool AlsaAudioInput::canOpen(const std::string& device) {
  silenceAlsaLibraryMessages();
  snd_pcm_t* pcm = nullptr;
  if (snd_pcm_open(&pcm, device.c_str(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK) < 0)
    return false;
  snd_pcm_close(pcm);
  return true;
}

std::unique_ptr<AlsaAudioInput> AlsaAudioInput::open(const std::string& device, unsigned sampleRate,
                                                     unsigned channels) {
  silenceAlsaLibraryMessages();
  snd_pcm_t* pcm = nullptr;
  int result = snd_pcm_open(&pcm, device.c_str(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
  if (result < 0) {
    oxlog("MicrophoneSource: cannot open ALSA capture device \"{}\": {}", device,
          snd_strerror(result));
    return nullptr;
  }
  result = snd_pcm_set_params(pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, channels,
                              sampleRate, /*soft_resample=*/1, kLatencyMicroseconds);
  snd_pcm_uframes_t bufferFrames = 0;
  snd_pcm_uframes_t periodFrames = 0;
  if (result >= 0) result = snd_pcm_get_params(pcm, &bufferFrames, &periodFrames);
  if (result < 0 || periodFrames == 0) {
    oxlog(
        "MicrophoneSource: ALSA capture device \"{}\" does not take {} Hz, {} channels, 16 bit: {}",
        device, sampleRate, channels, snd_strerror(result < 0 ? result : -EINVAL));
    snd_pcm_close(pcm);
    return nullptr;
  }
  return std::unique_ptr<AlsaAudioInput>(new AlsaAudioInput(pcm, device, channels, periodFrames));
}

AlsaAudioInput::AlsaAudioInput(snd_pcm_t* pcm, std::string device, unsigned channels,
                               unsigned long period)
    : pcm_(pcm), device_(std::move(device)), channels_(channels), periodFrames_(period) {}

AlsaAudioInput::~AlsaAudioInput() {
  stop();
  snd_pcm_close(pcm_);
}

bool AlsaAudioInput::start(BlockHandler handler) {
  if (thread_.joinable()) return true;
  const int result = snd_pcm_prepare(pcm_);
  if (result < 0) {
    oxlog("MicrophoneSource: ALSA capture device \"{}\" cannot start: {}", device_,
          snd_strerror(result));
    return false;
  }
  snd_pcm_start(pcm_);
  stopping_ = false;
  thread_ = std::thread([this, handler = std::move(handler)] { run(handler); });
  return true;
}

void AlsaAudioInput::stop() {
  if (!thread_.joinable()) return;
  stopping_ = true;
  thread_.join();
  snd_pcm_drop(pcm_);
}

void AlsaAudioInput::run(BlockHandler handler) {
  const size_t frameBytes = size_t{2} * channels_;
  std::vector<uint8_t> block(periodFrames_ * frameBytes);
  uint64_t sampleTime = 0;
  while (!stopping_) {
    const int ready = snd_pcm_wait(pcm_, kWaitMilliseconds);
    if (ready == 0) continue;  // nothing within the wait: look at the stop flag again
    const snd_pcm_sframes_t frames = snd_pcm_readi(pcm_, block.data(), periodFrames_);
    if (frames == -EAGAIN) continue;
    if (frames < 0 || ready < 0) {
      const int error = frames < 0 ? static_cast<int>(frames) : ready;
      if (snd_pcm_recover(pcm_, error, /*silent=*/1) >= 0) {
        snd_pcm_start(pcm_);
        continue;  // an overrun: capture goes on
      }
      oxlog("MicrophoneSource: ALSA capture from \"{}\" ended: {}", device_, snd_strerror(error));
      return;
    }
    if (frames == 0) continue;
    handler(block.data(), static_cast<size_t>(frames) * frameBytes,
            AudioTimeStamp{sampleTime, mediaTime()});
    sampleTime += static_cast<uint64_t>(frames);
  }
}

}  // namespace oxelo
