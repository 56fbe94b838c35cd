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
  bool start(BlockHandler handler) override {
    step(std::move(handler), probe_->starts);
    return true;
  }
  void stop() override { step(nullptr, probe_->stops); }
  bool isStarted() const override {
    std::lock_guard lock(probe_->mutex);
    return probe_->handler != nullptr;
  }

 private:
  // Nothing while already in the wanted state; a stop waits for a block in
  // progress.
  void step(BlockHandler handler, int& count) {
    std::lock_guard lock(probe_->mutex);
    if (!handler == !probe_->handler) return;
    probe_->handler = std::move(handler);
    ++count;
    probe_->changed.notify_all();
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

class AudioCaptureTest : public testing::Test {
 protected:
  AudioCaptureTest() {
    auto configuration = std::make_shared<LFLiveAudioConfiguration>();
    configuration->setNumberOfChannels(2);
    configuration->setAudioSampleRate(44100);
    auto backend =
        std::make_shared<AudioBackend>("fake", [probe = probe_](unsigned rate, unsigned channels) {
          probe->rate = rate;
          probe->channels = channels;
          return std::make_unique<FakeInput>(probe);
        });
    capture_ = LFAudioCapture::create(configuration, backend);
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
  EXPECT_EQ(probe_->rate, 44100u);
  EXPECT_EQ(probe_->channels, 2u);
  EXPECT_FALSE(capture_->isRunning());
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
  EXPECT_EQ(probe_->starts, 2);
  EXPECT_EQ(probe_->stops, 2);
}

struct BackendCase {
  const char* name;
  const char* text;
  const char* backend;  // nullptr: refused
};

class AudioBackendTextTest : public testing::TestWithParam<BackendCase> {};

TEST_P(AudioBackendTextTest, NamesTheBackend) {
  std::string error;
  auto backend = AudioBackend::open(GetParam().text, error);
  if (!GetParam().backend) {
    EXPECT_EQ(backend, nullptr);
    EXPECT_NE(error.find(GetParam().text), std::string::npos) << error;
    return;
  }
  ASSERT_NE(backend, nullptr) << error;
  EXPECT_EQ(backend->name(), GetParam().backend);
}

INSTANTIATE_TEST_SUITE_P(Texts, AudioBackendTextTest,
                         testing::Values(BackendCase("None", "none", "none"),
                                         BackendCase("Synthetic", "synthetic", "synthetic"),
                                         BackendCase("AlsaDefault", "alsa", "alsa:default"),
                                         BackendCase("AlsaNamed", "alsa:hw:1,0", "alsa:hw:1,0"),
                                         BackendCase("AlsaEmptyName", "alsa:", nullptr),
                                         BackendCase("Unknown", "pulse", nullptr),
                                         BackendCase("Empty", "", nullptr)),
                         [](const auto& info) { return std::string(info.param.name); });

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
  auto configuration = std::make_shared<LFLiveAudioConfiguration>();
  configuration->setNumberOfChannels(1);
  configuration->setAudioSampleRate(48000);
  for (const char* text : {"none", "alsa:nonexistent"}) {
    SCOPED_TRACE(text);
    test::LogCapture log;
    std::string error;
    auto backend = AudioBackend::open(text, error);
    ASSERT_NE(backend, nullptr);
    auto counter = std::make_shared<Counter>();
    auto capture = LFAudioCapture::create(configuration, backend);
    capture->setDelegate(counter);
    EXPECT_FALSE(capture->hasInput());
    capture->setRunning(true);
    capture.reset();  // waits for taskQueue, so the start has run
    EXPECT_EQ(counter->blocks, 0);
    EXPECT_EQ(log.count("ALSA lib"), 0u) << "ALSA's own messages stay out";
  }
}

// "auto" takes ALSA only where its default device opens; else no sound.
TEST(AudioBackendAutoTest, FallsBackToNone) {
  std::string error;
  auto backend = AudioBackend::open("auto", error);
  ASSERT_NE(backend, nullptr);
  EXPECT_TRUE(backend->name() == "alsa:default" || backend->name() == "none") << backend->name();
}

}  // namespace
}  // namespace oxelo
