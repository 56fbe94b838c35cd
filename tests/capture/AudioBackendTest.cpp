#include "platform/audio/AudioBackend.h"

#include <gtest/gtest.h>

#include "capture/LFAudioCapture.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

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
    EXPECT_EQ(log.count("cannot open ALSA capture device \"nonexistent\""),
              std::string(text) == "none" ? 0u : 1u);
    EXPECT_EQ(log.count("ALSA lib"), 0u) << "ALSA's own messages stay out";
  }
}

// "auto" takes ALSA only where its default device opens; else no sound, said
// once.
TEST(AudioBackendAutoTest, FallsBackToNoneWithALine) {
  test::LogCapture log;
  std::string error;
  auto backend = AudioBackend::open("auto", error);
  ASSERT_NE(backend, nullptr);
  if (backend->name() == "alsa:default") {
    EXPECT_EQ(log.count("no ALSA capture device"), 0u);
    return;
  }
  EXPECT_EQ(backend->name(), "none");
  EXPECT_EQ(log.count("MicrophoneSource: no ALSA capture device"), 1u);
}

}  // namespace
}  // namespace oxelo
