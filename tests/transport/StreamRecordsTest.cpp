#include <gtest/gtest.h>

#include <string>

#include "transport/StreamTypes.h"

namespace oxelo {
namespace {

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

}  // namespace
}  // namespace oxelo
