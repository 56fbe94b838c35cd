#include "encoding/ColourTags.h"

#include <gtest/gtest.h>

namespace oxelo {
namespace {

using M = YCbCrMatrix;

struct ColourCase {
  const char* name;
  std::optional<std::string> colorspace;
  bool isCamBT601;
  ColourTags tags;
  M converted;  // the matrix the pictures are converted with
};

class ColourTagsTest : public testing::TestWithParam<ColourCase> {};

TEST_P(ColourTagsTest, FollowsColorspaceSetting) {
  const auto& c = GetParam();
  const ColourTags tags = colourTagsFor(c.colorspace, c.isCamBT601);
  EXPECT_EQ(tags, c.tags);
  EXPECT_EQ(tags.effectiveConversionMatrix(), c.converted);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, ColourTagsTest,
    testing::Values(
        ColourCase{"None", "None", true, {M::unset, M::unset, false}, M::bt601},
        ColourCase{"AutoWithBt601Camera", "Auto", true, {M::unset, M::bt601, true}, M::bt601},
        ColourCase{"AutoWithBt709Camera", "Auto", false, {M::unset, M::bt709, true}, M::bt709},
        ColourCase{"Bt601", "BT.601", false, {M::bt601, M::bt601, true}, M::bt601},
        ColourCase{"Bt709", "BT.709", true, {M::bt709, M::bt709, true}, M::bt709},
        ColourCase{"NoValue", std::nullopt, true, {M::bt709, M::bt709, true}, M::bt709},
        ColourCase{"UnknownText", "sRGB", false, {M::bt709, M::bt709, true}, M::bt709}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
