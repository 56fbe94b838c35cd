#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>

#include "capture/LFAudioCapture.h"
#include "platform/audio/AudioBackend.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using namespace std::chrono_literals;

// What the test sees of its hand-fed input; deliver() plays the capture thread.
struct Probe {
  std::mutex mutex;
  std::condition_variable changed;
  AudioInput::BlockHandler handler;  // set while started
  int starts = 0, stops = 0;
  unsigned rate = 0, channels = 0;

  bool waitFor(const std::function<bool()>& condition) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 5s, condition);
  }
  bool deliver(const std::vector<uint8_t>& block) {
    std::lock_guard lock(mutex);
    if (!handler) return false;
    handler(block.data(), block.size(), AudioTimeStamp{0, 0});
    return true;
  }
};

class FakeInput final : public AudioInput {
 public:
  explicit FakeInput(std::shared_ptr<Probe> probe) : probe_(std::move(probe)) {}
  bool start(BlockHandler handler) override { return step(std::move(handler), probe_->starts); }
  void stop() override { step(nullptr, probe_->stops); }
  bool isStarted() const override {
    std::lock_guard lock(probe_->mutex);
    return probe_->handler != nullptr;
  }

 private:
  // Nothing while already in the wanted state; a stop waits for a block in progress.
  bool step(BlockHandler handler, int& count) {
    std::lock_guard lock(probe_->mutex);
    if (!handler != !probe_->handler) {
      probe_->handler = std::move(handler);
      ++count;
      probe_->changed.notify_all();
    }
    return true;
  }
  std::shared_ptr<Probe> probe_;
};

class BlockRecorder final : public LFAudioCaptureDelegate {
 public:
  void captureOutputAudioData(LFAudioCapture*, const std::vector<uint8_t>& audioData,
                              const AudioTimeStamp* timeStamp) override {
    EXPECT_NE(timeStamp, nullptr);
    blocks.push_back(audioData);
  }
  std::vector<std::vector<uint8_t>> blocks;  // touched on the test thread only
};

std::shared_ptr<LFLiveAudioConfiguration> configurationOf(unsigned channels, unsigned rate) {
  auto configuration = std::make_shared<LFLiveAudioConfiguration>();
  configuration->setNumberOfChannels(channels);
  configuration->setAudioSampleRate(rate);
  return configuration;
}

class AudioCaptureTest : public testing::Test {
 protected:
  AudioCaptureTest() {
    auto backend =
        std::make_shared<AudioBackend>("fake", [probe = probe_](unsigned rate, unsigned channels) {
          probe->rate = rate;
          probe->channels = channels;
          return std::make_unique<FakeInput>(probe);
        });
    capture_ = LFAudioCapture::create(configurationOf(2, 44100), backend);
    capture_->setDelegate(recorder_);
  }
  void startAndWait() {
    capture_->setRunning(true);
    ASSERT_TRUE(probe_->waitFor([this] { return probe_->handler != nullptr; }));
  }
  using Bytes = std::vector<uint8_t>;

  std::shared_ptr<Probe> probe_ = std::make_shared<Probe>();
  std::shared_ptr<BlockRecorder> recorder_ = std::make_shared<BlockRecorder>();
  std::shared_ptr<LFAudioCapture> capture_;
};

TEST_F(AudioCaptureTest, DeliversEachBlockAtTheConfiguredFormatOrZerosWhileMuted) {
  EXPECT_EQ(std::tuple(probe_->rate, probe_->channels, capture_->isRunning()),
            std::tuple(44100u, 2u, false));
  startAndWait();
  EXPECT_TRUE(capture_->isRunning());
  ASSERT_TRUE(probe_->deliver({1, 2, 3, 4, 5, 6, 7, 8}));
  capture_->setMuted(true);
  ASSERT_TRUE(probe_->deliver(Bytes(1234, 0x5a)));
  capture_->setMuted(false);
  ASSERT_TRUE(probe_->deliver(Bytes(2, 0x11)));
  EXPECT_EQ(recorder_->blocks,
            (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7, 8}, Bytes(1234, 0), {0x11, 0x11}}));
  recorder_.reset();  // a delegate that is gone gets nothing
  EXPECT_TRUE(probe_->deliver(Bytes(8, 1)));
}

// Asking for what is already so does nothing.
TEST_F(AudioCaptureTest, StopTakesEffectWithTheNextBlockWhichIsNotDelivered) {
  capture_->setRunning(false);
  startAndWait();
  capture_->setRunning(true);
  capture_->setRunning(false);
  EXPECT_FALSE(capture_->isRunning()) << "the gate closes at once";
  EXPECT_EQ(probe_->stops, 0) << "the input is stopped by the capture thread's next block";
  ASSERT_TRUE(probe_->deliver(Bytes(8, 1)));
  EXPECT_TRUE(recorder_->blocks.empty());
  ASSERT_TRUE(probe_->waitFor([this] { return probe_->stops == 1; }));

  // And it runs again afterwards, until the capture goes.
  startAndWait();
  ASSERT_TRUE(probe_->deliver(Bytes(8, 2)));
  EXPECT_EQ(recorder_->blocks.size(), 1u);
  capture_.reset();  // waits for taskQueue: a needless start would have run by now
  EXPECT_EQ(std::pair(probe_->starts, probe_->stops), std::pair(2, 2));
}

// A text that is refused names itself in the error. "auto" takes ALSA only where its default
// device opens; else no sound.
TEST(AudioBackendTextTest, NamesTheBackend) {
  // Each text and its backend; nullptr: refused.
  const std::pair<const char*, const char*> texts[] = {
      {"none", "none"},
      {"synthetic", "synthetic"},
      {"alsa", "alsa:default"},
      {"alsa:hw:1,0", "alsa:hw:1,0"},
      {"alsa:", nullptr},
      {"pulse", nullptr},
      {"", nullptr},
  };
  std::string error;
  for (auto [text, name] : texts) {
    auto backend = AudioBackend::open(text, error);
    EXPECT_EQ(backend ? backend->name() : "refused", name ? name : "refused") << text;
    EXPECT_TRUE(name || error.find(text) != std::string::npos) << error;
  }
  auto automatic = AudioBackend::open("auto", error);
  ASSERT_NE(automatic, nullptr);
  EXPECT_TRUE(automatic->name() == "alsa:default" || automatic->name() == "none");
}

// A source that cannot be opened, or none at all: a capture that exists,
// runs and delivers nothing; the ALSA device that fails says so in one line.
TEST(AudioCaptureWithoutInputTest, RunsAndDeliversNothing) {
  struct Counter final : LFAudioCaptureDelegate {
    std::atomic<int> blocks{0};
    void captureOutputAudioData(LFAudioCapture*, const std::vector<uint8_t>&,
                                const AudioTimeStamp*) override {
      ++blocks;
    }
  };
  for (const char* text : {"none", "alsa:nonexistent"}) {
    SCOPED_TRACE(text);
    test::LogCapture log;
    std::string error;
    auto backend = AudioBackend::open(text, error);
    ASSERT_NE(backend, nullptr);
    auto counter = std::make_shared<Counter>();
    auto capture = LFAudioCapture::create(configurationOf(1, 48000), backend);
    capture->setDelegate(counter);
    EXPECT_FALSE(capture->hasInput());
    capture->setRunning(true);
    capture.reset();  // waits for taskQueue, so the start has run
    EXPECT_EQ(counter->blocks, 0);
    EXPECT_EQ(log.count("ALSA lib"), 0u) << "ALSA's own messages stay out";
  }
}

}  // namespace
}  // namespace oxelo
