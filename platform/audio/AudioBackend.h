#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/audio/AudioInput.h"

namespace oxelo {

// Where microphone PCM comes from, for the whole process: chosen once at
// start-up from the --audio option, read by every LFAudioCapture. Immutable;
// any thread.
class AudioBackend {
 public:
  // Makes the input of a capture; none when there is none to make (with a
  // log line where a device failed).
  using InputMaker =
      std::function<std::unique_ptr<AudioInput>(unsigned sampleRate, unsigned channels)>;

  // The backend an --audio text names:
  //   "alsa"         ALSA's `default` capture device;
  //   "alsa:DEVICE"  that ALSA device ("hw:1,0", "pulse", ...);
  //   "synthetic"    a steady tone in real time, for boards without a
  //                  microphone and for tests;
  //   "none"         no sound: captures deliver nothing;
  //   "auto"         ALSA's `default` device when it opens for capture,
  //                  else none, with a log line that says so. A test tone
  //                  in place of a missing microphone would go to the host
  //                  as if it were real sound, so it is only had by asking.
  // An ALSA device is opened only when a capture is made: one that cannot
  // be opened then gives one log line and no sound. None, with `error`,
  // for an unknown text.
  static std::shared_ptr<AudioBackend> open(const std::string& text, std::string& error);

  // The process-wide backend: "none" until setCurrent().
  static std::shared_ptr<AudioBackend> current();
  static void setCurrent(std::shared_ptr<AudioBackend> backend);

  AudioBackend(std::string name, InputMaker maker);

  // "none", "synthetic" or "alsa:DEVICE".
  const std::string& name() const { return name_; }
  std::unique_ptr<AudioInput> makeInput(unsigned sampleRate, unsigned channels) const;

 private:
  std::string name_;
  InputMaker maker_;
};

}  // namespace oxelo
