// The synthetic microphone running on its own thread while the main thread
// starts, stops and mutes it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "capture/LFAudioCapture.h"

namespace oxelo {
namespace {

class CheckingRecorder final : public LFAudioCaptureDelegate {
 public:
  void captureOutputAudioData(LFAudioCapture*, const std::vector<uint8_t>& audioData,
                              const AudioTimeStamp*) override {
    if (audioData.empty() || audioData.size() % 4 != 0) ++badBlocks;
    ++blocks;
  }
  std::atomic<int> blocks{0};
  std::atomic<int> badBlocks{0};
};

TEST(AudioCaptureConcurrencyTest, StartStopAndMuteWhileBlocksArrive) {
  auto configuration = std::make_shared<LFLiveAudioConfiguration>();
  configuration->setNumberOfChannels(2);
  configuration->setAudioSampleRate(48000);
  std::string error;
  auto capture = LFAudioCapture::create(configuration, AudioBackend::open("synthetic", error));
  auto recorder = std::make_shared<CheckingRecorder>();
  capture->setDelegate(recorder);
  // Each round stops while the input is delivering: it waits for a block of
  // its own first (the input runs in real time, as a sound card does).
  for (int round = 0; round < 20; ++round) {
    const int before = recorder->blocks;
    capture->setRunning(true);
    capture->setMuted(round % 2 == 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (recorder->blocks == before && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_GT(recorder->blocks, before) << "round " << round;
    capture->setRunning(false);
  }
  capture->setRunning(true);
  capture.reset();  // stops the input while it may be delivering
  EXPECT_EQ(recorder->badBlocks, 0);
}

}  // namespace
}  // namespace oxelo
