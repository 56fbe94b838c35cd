// The blur and edge stages of the bilateral-and-edge group against their per-pixel steps.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "filters/GPUImageBilateralFilter.h"
#include "filters/GPUImageCannyEdgeDetectionFilter.h"
#include "filters/GPUImageDirectionalNonMaximumSuppressionFilter.h"
#include "filters/GPUImageGaussianBlurFilter.h"
#include "filters/GPUImageWeakPixelInclusionFilter.h"
#include "tests/filters/PixelReference.h"

namespace oxelo {
namespace {

using test::Rgba;

Rgba grey(double v) { return {v, v, v, 1}; }

size_t count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// The decimals of each number that multiplies in the text ("* 0.204164;").
std::vector<size_t> decimalsOfFactors(const std::string& text) {
  std::vector<size_t> decimals;
  for (size_t at = text.find("* "); at != std::string::npos; at = text.find("* ", at + 1)) {
    const size_t end = text.find_first_not_of("0123456789.", at + 2);
    const std::string number = text.substr(at + 2, end - at - 2);
    if (!number.empty() && text[end] == ';')
      decimals.push_back(
          number.find('.') == std::string::npos ? 0 : number.size() - 1 - number.find('.'));
  }
  return decimals;
}

TEST(GaussianBlurTextTest, PrintsSixDecimalsAndKeepsAtMostSevenPairsInTheVertexStage) {
  using Blur = GPUImageGaussianBlurFilter;
  // Radius 4, sigma 2: two pairs, their offsets and weights as worked out by hand.
  const std::string vertex = Blur::vertexShaderForOptimizedBlur(4, 2.0);
  const std::string fragment = Blur::fragmentShaderForOptimizedBlur(4, 2.0);
  EXPECT_EQ(count(vertex, "* 1.407333;"), 2u);
  EXPECT_EQ(count(vertex, "* 3.294215;"), 2u);
  EXPECT_EQ(count(fragment, "* 0.204164;") + count(fragment, "* 0.304005;") +
                count(fragment, "* 0.093913;"),
            5u);
  const auto decimals = decimalsOfFactors(vertex + fragment);
  EXPECT_EQ(decimals, std::vector<size_t>(9, 6));
  // Twelve pairs: seven in the vertex stage (15 coordinates), five in the fragment stage.
  EXPECT_EQ(Blur::sampleRadiusForPixels(12.0), 24u);
  const std::string wideVertex = Blur::vertexShaderForOptimizedBlur(24, 12.0);
  const std::string wideFragment = Blur::fragmentShaderForOptimizedBlur(24, 12.0);
  EXPECT_EQ(count(wideVertex, "blurCoordinates[15]"), 1u);
  EXPECT_EQ(count(wideVertex, "singleStepOffset *"), 14u);
  EXPECT_EQ(count(wideFragment, "blurCoordinates[0] + singleStepOffset") +
                count(wideFragment, "blurCoordinates[0] - singleStepOffset"),
            10u);
  EXPECT_EQ(Blur::sampleRadiusForPixels(2.0), 6u);
}

// The Gaussian weights w[0..4] of radius 4, sigma 2, normalised.
constexpr double kWeights[5] = {0.204164, 0.180174, 0.123832, 0.066282, 0.027631};

// Sends `picture` through a new `Filter`, set up by `set`.
template <typename Filter>
std::shared_ptr<PixelBuffer> through(const PixelBuffer& picture, void (*set)(Filter&) = nullptr) {
  auto filter = std::make_shared<Filter>();
  if (set) set(*filter);
  return test::runChain(picture, filter, *filter);
}

struct StageCase {
  const char* name;
  std::shared_ptr<PixelBuffer> (*draw)(const PixelBuffer&);
  Rgba (*colour)(int, int);
  Rgba (*expected)(const PixelBuffer& in, int x, int y);
};
class BlurEdgeStageTest : public testing::TestWithParam<StageCase> {};

TEST_P(BlurEdgeStageTest, DrawsThePerPixelSteps) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::paint(40, 32, c.colour);
  auto out = c.draw(*picture);
  ASSERT_TRUE(out);
  for (int y = 0; y < out->height(); ++y) {
    for (int x = 0; x < out->width(); ++x) {
      test::expectPixelNear(*out, x, y, c.expected(*picture, x, y));
      if (HasFailure()) return;
    }
  }
}

// Suppression input: strength m in red, direction as the Sobel stage codes it.
Rgba gradient(double m, double dx, double dy) { return {m, dx, dy, 1}; }
double smoothstep(double lower, double upper, double x) {
  const double t = std::clamp((x - lower) / (upper - lower), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}
// No direction: the neighbours are the pixel itself; the thresholds 0.1 and 0.4 decide.
Rgba suppressed(const PixelBuffer& in, int x, int y) {
  return grey(smoothstep(0.1, 0.4, test::colourAt(in, x, y).r));
}
bool nearCross(int x, int y) { return std::abs(x - 20) + std::abs(y - 16) == 1; }

Rgba same(const PixelBuffer& in, int x, int y) { return test::colourAt(in, x, y); }
Rgba black(const PixelBuffer&, int, int) { return grey(0); }
// Blur: only the rounded radius of 0.4 (no blur), the default, 12 pixels.
auto blurAt04(const PixelBuffer& p) {
  return through<GPUImageGaussianBlurFilter>(p, [](auto& f) { f.setBlurRadiusInPixels(0.4); });
}
auto blurAt12(const PixelBuffer& p) {
  return through<GPUImageGaussianBlurFilter>(p, [](auto& f) { f.setBlurRadiusInPixels(12.0); });
}
auto blur(const PixelBuffer& p) { return through<GPUImageGaussianBlurFilter>(p); }
auto bilateral(const PixelBuffer& p) { return through<GPUImageBilateralFilter>(p); }
auto canny(const PixelBuffer& p) { return through<GPUImageCannyEdgeDetectionFilter>(p); }
auto suppression(const PixelBuffer& p) {  // with the upper threshold the edge group sets
  return through<GPUImageDirectionalNonMaximumSuppressionFilter>(
      p, [](auto& f) { f.setUpperThreshold(0.4); });
}
auto weakPixels(const PixelBuffer& p) { return through<GPUImageWeakPixelInclusionFilter>(p); }

INSTANTIATE_TEST_SUITE_P(
    Stages, BlurEdgeStageTest,
    testing::Values(
        StageCase{"BlurOfRadiusBelowOneCopies", blurAt04,
                  [](int x, int y) {
                    return Rgba{x / 40.0, y / 32.0, (x * y % 7) / 7.0, 1};
                  },
                  same},
        // One white column spreads by the weights of radius 4, sigma 2.
        StageCase{"DefaultBlurSpreadsALineByItsWeights", blur,
                  [](int x, int) { return grey(x == 20 ? 1.0 : 0.0); },
                  [](const PixelBuffer&, int x, int) {
                    return grey(std::abs(x - 20) <= 4 ? kWeights[std::abs(x - 20)] : 0);
                  }},
        // Twelve pairs, five of them read in the fragment stage: still sums to one.
        StageCase{"WideBlurKeepsAFlatArea", blurAt12, [](int, int) { return grey(0.4); }, same},
        // Grey blocks of 4 x 4: the taps 4 to 16 pixels off differ by 0.2 or more, weigh nothing.
        StageCase{"BilateralPixelOfDistantNeighboursKeepsItsColour", bilateral,
                  [](int x, int y) { return grey(0.2 + 0.2 * ((x / 4 + y / 4) % 5)); }, same},
        StageCase{"FlatAreaHasNoEdge", canny, [](int, int) { return grey(0.6); }, black},
        // Thresholds: at or below 0.1 nothing, between a smooth step, from 0.4 full.
        StageCase{"SuppressionThresholds", suppression,
                  [](int x, int) {
                    static const double m[8] = {0.05, 0.1, 0.15, 0.25, 0.3, 0.4, 0.6, 1.0};
                    return gradient(m[x / 5], 0.5, 0.5);
                  },
                  suppressed},
        // Along x, strengths 0.6 and 0.8 alternate: only the stronger columns stay.
        StageCase{"SuppressionKeepsOnlyMaximaAlongTheGradient", suppression,
                  [](int x, int) { return gradient(x % 2 ? 0.8 : 0.6, 1.0, 0.5); },
                  [](const PixelBuffer&, int x, int) { return grey(x % 2 ? 1.0 : 0.0); }},
        // A lone 0.8 sums under 1.5 and goes; with four 0.3 neighbours (2.0) all stay.
        StageCase{"LoneWeakPixelIsDropped", weakPixels,
                  [](int x, int y) { return grey(x == 20 && y == 16 ? 0.8 : 0.0); }, black},
        StageCase{"WeakPixelWithNeighboursStays", weakPixels,
                  [](int x, int y) {
                    return grey(x == 20 && y == 16 ? 0.8 : nearCross(x, y) ? 0.3 : 0.0);
                  },
                  [](const PixelBuffer&, int x, int y) {
                    return grey((x == 20 && y == 16) || nearCross(x, y) ? 1.0 : 0.0);
                  }}),
    [](const auto& info) { return std::string(info.param.name); });

// A step between two flat areas: one or two white columns along it, black elsewhere.
TEST(CannyEdgeTest, StepBetweenTwoAreasGivesALineAlongIt) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto out = canny(*test::paint(40, 32, [](int x, int) { return grey(x < 20 ? 0.2 : 0.8); }));
  ASSERT_TRUE(out);
  for (int y = 4; y < 28; ++y) {
    std::string row;
    for (int x = 14; x < 26; ++x) row += test::pixelAt(*out, x, y).r == 255 ? '#' : '.';
    EXPECT_TRUE(row == ".....#......" || row == "......#....." || row == ".....##.....") << row;
    for (int x : {0, 10, 13, 26, 30, 39}) EXPECT_EQ(test::pixelAt(*out, x, y).r, 0) << x;
  }
}

}  // namespace
}  // namespace oxelo
