#include <gtest/gtest.h>

#include <string>

#include "transport/InitError.h"
#include "transport/StreamTypes.h"

namespace oxelo {
namespace {

struct StateCase {
  const char* name;
  LiveStreamState state;
  const char* text;
};

class LiveStreamStateTest : public testing::TestWithParam<StateCase> {};

TEST_P(LiveStreamStateTest, LogsItsText) {
  EXPECT_EQ(liveStreamStateText(GetParam().state), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    States, LiveStreamStateTest,
    testing::Values(StateCase{"Idle", LiveStreamState::Idle, "Status_DisConnected"},
                    StateCase{"Connecting", LiveStreamState::Connecting, "Status_Connecting"},
                    StateCase{"Connected", LiveStreamState::Connected, "Status_Connected"},
                    StateCase{"Stopped", LiveStreamState::Stopped, "Status_DisConnected"},
                    StateCase{"Failed", LiveStreamState::Failed, "Status_ConnectError"}),
    [](const auto& info) { return std::string(info.param.name); });

struct CaptureCase {
  const char* name;
  int64_t audioFormat;
  int64_t mask;
  bool audio, video;
};

class CaptureTypeTest : public testing::TestWithParam<CaptureCase> {};

TEST_P(CaptureTypeTest, FollowsTheAudioSetting) {
  int64_t mask = captureTypeForAudioFormat(GetParam().audioFormat);
  EXPECT_EQ(mask, GetParam().mask);
  EXPECT_EQ(captureTypeHasAudio(mask), GetParam().audio);
  EXPECT_EQ(captureTypeHasVideo(mask), GetParam().video);
}

INSTANTIATE_TEST_SUITE_P(AudioFormats, CaptureTypeTest,
                         testing::Values(CaptureCase{"NoAudio", 0, 2, false, true},
                                         CaptureCase{"NegativeIsNoAudio", -1, 2, false, true},
                                         CaptureCase{"Aac", 1, 3, true, true},
                                         CaptureCase{"AnyHigher", 2, 3, true, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(StreamRecordsTest, MissingStreamCarriesTheSystemsNameAndReason) {
  try {
    throw StreamInfoMissingError();
  } catch (const std::invalid_argument& e) {
    auto* init = dynamic_cast<const InitError*>(&e);
    ASSERT_NE(init, nullptr);
    EXPECT_EQ(init->name(), "OXStreamRtmpSocket init error");
    EXPECT_EQ(init->reason(), "stream is nil");
    EXPECT_STREQ(e.what(), "OXStreamRtmpSocket init error: stream is nil");
  }
}

}  // namespace
}  // namespace oxelo
