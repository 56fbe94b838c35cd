#pragma once

#include <cstdint>
#include <memory>

#include "media/LFFrame.h"
#include "media/LFLiveAudioConfiguration.h"

namespace oxelo {

class LFAudioEncoding;

// Receives the AAC frames of an audio encoder, on the audio render thread,
// inside the encoder's encodeAudioData(). Optional: the default ignores them.
class LFAudioEncodingDelegate {
 public:
  virtual ~LFAudioEncodingDelegate() = default;
  virtual void audioEncoderAudioFrame(LFAudioEncoding* /*encoder*/,
                                      std::shared_ptr<LFAudioFrame> /*frame*/) {}
};

// Turns 16-bit interleaved PCM into raw AAC frames of 1024 samples. Created
// by the session (through an EncoderFactory) on first use; every operation
// runs on the audio render thread except setDelegate() and stopEncoder(),
// which the session calls on the main queue while no PCM is arriving.
class LFAudioEncoding {
 public:
  virtual ~LFAudioEncoding() = default;

  // Audio render thread. Takes PCM in any amount; frames go to the delegate
  // synchronously, each with the timestamp (milliseconds, media clock) of
  // the call that completed it.
  virtual void encodeAudioData(const Bytes& data, uint64_t timeStamp) = 0;
  // Held weakly.
  virtual void setDelegate(std::weak_ptr<LFAudioEncodingDelegate> /*delegate*/) {}
  virtual void stopEncoder() {}
};

}  // namespace oxelo
