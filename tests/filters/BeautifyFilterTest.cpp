// The bilateral-and-edge group: its last steps per pixel, and the whole on textures.
#include <gtest/gtest.h>

#include <cmath>

#include "filters/GPUImageCombinationFilter.h"
#include "filters/GPUImageHSBFilter.h"
#include "filters/LFGPUImageBeautifyFilter.h"
#include "tests/filters/PixelReference.h"

namespace oxelo {
namespace {

using test::Rgba;

// The combination at one pixel, then the gain of 1.05 on red, green, blue.
Rgba combinationReference(const Rgba& bilateral, const Rgba& canny, const Rgba& origin,
                          double degree) {
  const double r = origin.r, g = origin.g, b = origin.b;
  const bool skin = canny.r < 0.2 && r > 0.3725 && g > 0.1568 && b > 0.0784 && r > b &&
                    std::max({r, g, b}) - std::min({r, g, b}) > 0.0588 && std::abs(r - g) > 0.0588;
  auto smooth = [&](double o, double s) { return skin ? (1.0 - degree) * (o - s) + s : o; };
  auto lifted = [](double v) { return std::log(1.0 + 0.2 * v) / std::log(1.2) * 1.05; };
  return {lifted(smooth(origin.r, bilateral.r)), lifted(smooth(origin.g, bilateral.g)),
          lifted(smooth(origin.b, bilateral.b)), smooth(origin.a, bilateral.a)};
}

struct CombinationCase {
  const char* name;
  Rgba bilateral, canny, origin;
};
class CombinationTest : public testing::TestWithParam<CombinationCase> {};

TEST_P(CombinationTest, DrawsThePerPixelSteps) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto combination = std::make_shared<GPUImageCombinationFilter>();
  auto hsb = std::make_shared<GPUImageHSBFilter>();
  hsb->adjustBrightness(1.05f);
  combination->addTarget(hsb);
  auto flat = [](const Rgba& colour) {
    return test::paint(8, 8, [&](int, int) { return colour; });
  };
  auto out = test::runInputs({flat(c.bilateral), flat(c.canny), flat(c.origin)}, combination, *hsb);
  ASSERT_TRUE(out);
  const Rgba want = combinationReference(c.bilateral, c.canny, c.origin, 0.5);
  for (int y = 0; y < 8; y += 7)
    for (int x = 0; x < 8; x += 7) test::expectPixelNear(*out, x, y, want);
}

INSTANTIATE_TEST_SUITE_P(
    Pixels, CombinationTest,
    testing::Values(
        // On an edge the original goes through the log curve and the gain alone.
        CombinationCase{
            "EdgeKeepsTheOriginal", {0.5, 0.4, 0.3, 1}, {1, 1, 1, 1}, {0.8, 0.5, 0.4, 1}},
        // Blue over red: no skin, whatever the smoothed picture says.
        CombinationCase{"BluePixelIsNoSkin", {0.2, 0.2, 0.6, 1}, {0, 0, 0, 1}, {0.4, 0.3, 0.7, 1}},
        // Skin off the edges: halfway to the smoothed picture at degree 0.5.
        CombinationCase{"SkinEndsHalfway", {0.6, 0.4, 0.3, 1}, {0, 0, 0, 1}, {0.8, 0.5, 0.4, 1}},
        // Red and green too close together: no skin.
        CombinationCase{
            "GreyishPixelIsNoSkin", {0.6, 0.4, 0.3, 1}, {0, 0, 0, 1}, {0.6, 0.57, 0.4, 1}}),
    [](const auto& info) { return std::string(info.param.name); });

// Standard deviation of the red channel inside the picture's margins.
double redSpread(const PixelBuffer& picture) {
  double sum = 0, squares = 0;
  int n = 0;
  for (int y = 8; y < picture.height() - 8; ++y) {
    for (int x = 8; x < picture.width() - 8; ++x) {
      const double r = test::pixelAt(picture, x, y).r;
      sum += r, squares += r * r, ++n;
    }
  }
  return std::sqrt(squares / n - (sum / n) * (sum / n));
}

struct TextureCase {
  const char* name;
  Rgba base;
  double maxSpreadRatio, minSpreadRatio;  // output's spread over the input's
};
class BeautifyGroupTest : public testing::TestWithParam<TextureCase> {};

// Fine noise smoothed away on skin only; the middle tones lifted either way.
TEST_P(BeautifyGroupTest, SmoothsSkinTextureOnly) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::paint(64, 48, [&](int x, int y) {
    const double noise = ((x * 7 + y * 13) % 5 - 2) * 0.012;
    return Rgba{c.base.r + noise, c.base.g + noise, c.base.b + noise, 1};
  });
  auto group = std::make_shared<LFGPUImageBeautifyFilter>();
  for (int frame = 0; frame < 2; ++frame) {  // the second frame draws into cached objects
    auto out = test::runChain(*picture, group, *group);
    ASSERT_TRUE(out);
    const double ratio = redSpread(*out) / redSpread(*picture);
    EXPECT_LE(ratio, c.maxSpreadRatio);
    EXPECT_GE(ratio, c.minSpreadRatio);
    const double lifted = std::log(1.0 + 0.2 * c.base.r) / std::log(1.2) * 1.05;
    EXPECT_NEAR(test::pixelAt(*out, 32, 24).r / 255.0, lifted, 0.04);
  }
}

INSTANTIATE_TEST_SUITE_P(Textures, BeautifyGroupTest,
                         testing::Values(TextureCase{"Skin", {0.75, 0.5, 0.4, 1}, 0.6, 0.0},
                                         TextureCase{"Blue", {0.3, 0.4, 0.7, 1}, 1.3, 0.9}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
