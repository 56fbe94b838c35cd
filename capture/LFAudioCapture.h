#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "media/LFLiveAudioConfiguration.h"
#include "platform/audio/AudioBackend.h"
#include "platform/audio/AudioInput.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

class LFAudioCapture;

// Receives the microphone's PCM, on the audio render thread. Optional: the
// default ignores it.
class LFAudioCaptureDelegate {
 public:
  virtual ~LFAudioCaptureDelegate() = default;
  // `audioData`: 16-bit interleaved PCM at the configured rate and channels,
  // a block of any size.
  virtual void captureOutputAudioData(LFAudioCapture* /*capture*/,
                                      const std::vector<uint8_t>& /*audioData*/,
                                      const AudioTimeStamp* /*timeStamp*/) {}
};

// Takes 16-bit PCM from the microphone and hands each block to its delegate,
// the live session, which passes it to the AAC encoder. The source is the
// process's AudioBackend (ALSA, the synthetic tone, or none), opened at
// creation; a device that cannot be opened gives one log line, and then the
// object exists and no blocks arrive.
//
// Threads: the control operations run on the caller's thread (the main
// queue). Starting and stopping the input are serialised on the private
// serial taskQueue. Blocks arrive on the input's capture thread (the audio
// render thread), where the delegate is called. setRunning(false) only
// clears the gate at once; the next block is then not delivered and asks
// taskQueue to stop the input, which waits for the capture thread to end;
// the capture thread itself never waits for taskQueue, so the two cannot
// block each other. `isRunning` and `muted` are flags read there without a
// lock.
//
// Linux microphones offer no data sources facing one side or the other, so
// setUseBackMic() changes nothing, and there are no interruptions to follow.
class LFAudioCapture final : public std::enable_shared_from_this<LFAudioCapture> {
 public:
  // `backend` none: AudioBackend::current().
  static std::shared_ptr<LFAudioCapture> create(
      std::shared_ptr<LFLiveAudioConfiguration> configuration,
      std::shared_ptr<AudioBackend> backend = nullptr);
  // Stops the input on taskQueue and waits for it.
  ~LFAudioCapture();
  LFAudioCapture(const LFAudioCapture&) = delete;
  LFAudioCapture& operator=(const LFAudioCapture&) = delete;

  void setDelegate(std::weak_ptr<LFAudioCaptureDelegate> delegate);

  // What the session last asked for. Nothing happens for the same value.
  bool running() const { return running_; }
  void setRunning(bool running);
  // Blocks are delivered as zeros of their full length from the next block.
  bool muted() const { return muted_; }
  void setMuted(bool muted) { muted_ = muted; }
  // Whether the microphone in use faces back. Stays as it is: see above.
  bool useBackMic() const { return useBackMic_; }
  void setUseBackMic(bool useBackMic);

  // The gate of the capture thread. Any thread.
  bool isRunning() const { return isRunning_; }
  // False when the source could not be opened (or the backend is "none").
  bool hasInput() const { return input_ != nullptr; }

 private:
  LFAudioCapture(std::shared_ptr<LFLiveAudioConfiguration> configuration,
                 std::shared_ptr<AudioBackend> backend);
  void renderBlock(const uint8_t* data, size_t size, const AudioTimeStamp& timeStamp);

  const std::shared_ptr<LFLiveAudioConfiguration> configuration_;
  std::shared_ptr<Queue> taskQueue_;
  std::unique_ptr<AudioInput> input_;  // started and stopped on taskQueue_ only

  std::atomic<bool> running_{false};
  std::atomic<bool> isRunning_{false};
  std::atomic<bool> muted_{false};
  std::atomic<bool> useBackMic_{false};

  mutable std::mutex delegateMutex_;
  std::weak_ptr<LFAudioCaptureDelegate> delegate_;  // delegateMutex_
};

}  // namespace oxelo
