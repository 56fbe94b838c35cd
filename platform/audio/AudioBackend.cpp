#include "platform/audio/AudioBackend.h"

#include <mutex>

#include "platform/audio/AlsaAudioInput.h"
#include "platform/audio/SyntheticAudioInput.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

std::mutex& currentMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<AudioBackend>& currentSlot() {
  static std::shared_ptr<AudioBackend> slot;
  return slot;
}

std::shared_ptr<AudioBackend> noneBackend() {
  return std::make_shared<AudioBackend>("none", nullptr);
}

std::shared_ptr<AudioBackend> alsaBackend(const std::string& device) {
  return std::make_shared<AudioBackend>(
      "alsa:" + device, [device](unsigned rate, unsigned channels) -> std::unique_ptr<AudioInput> {
        return AlsaAudioInput::open(device, rate, channels);
      });
}

}  // namespace

AudioBackend::AudioBackend(std::string name, InputMaker maker)
    : name_(std::move(name)), maker_(std::move(maker)) {}

std::unique_ptr<AudioInput> AudioBackend::makeInput(unsigned sampleRate, unsigned channels) const {
  if (!maker_) return nullptr;
  return maker_(sampleRate, channels);
}

std::shared_ptr<AudioBackend> AudioBackend::open(const std::string& text, std::string& error) {
  if (text == "none") return noneBackend();
  if (text == "synthetic") {
    return std::make_shared<AudioBackend>(
        "synthetic", [](unsigned rate, unsigned channels) -> std::unique_ptr<AudioInput> {
          return std::make_unique<SyntheticAudioInput>(rate, channels);
        });
  }
  if (text == "alsa") return alsaBackend("default");
  if (text.rfind("alsa:", 0) == 0 && text.size() > 5) return alsaBackend(text.substr(5));
  if (text == "auto") {
    if (AlsaAudioInput::canOpen("default")) return alsaBackend("default");
    oxlog(
        "MicrophoneSource: no ALSA capture device; the stream has no sound "
        "(--audio synthetic sends a test tone)");
    return noneBackend();
  }
  error = "unknown audio source \"" + text + "\" (auto, alsa, alsa:DEVICE, synthetic or none)";
  return nullptr;
}

std::shared_ptr<AudioBackend> AudioBackend::current() {
  std::lock_guard lock(currentMutex());
  if (!currentSlot()) currentSlot() = noneBackend();
  return currentSlot();
}

void AudioBackend::setCurrent(std::shared_ptr<AudioBackend> backend) {
  std::lock_guard lock(currentMutex());
  currentSlot() = std::move(backend);
}

}  // namespace oxelo
