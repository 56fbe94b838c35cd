// The blur and edge stages of the bilateral-and-edge group, each against its
// per-pixel steps worked out here, on pictures made for each case; and two
// properties of the generated blur texts.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>

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

size_t count(const std::string& text, const std::string& pattern) {
  const std::regex re(pattern);
  return static_cast<size_t>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), re), std::sregex_iterator()));
}

TEST(GaussianBlurTextTest, PrintsSixDecimalsAndKeepsAtMostSevenPairsInTheVertexStage) {
  using Blur = GPUImageGaussianBlurFilter;
  // Radius 4, sigma 2: two pairs, their offsets and weights as worked out by hand.
  const std::string vertex = Blur::vertexShaderForOptimizedBlur(4, 2.0);
  const std::string fragment = Blur::fragmentShaderForOptimizedBlur(4, 2.0);
  EXPECT_NE(vertex.find("blurCoordinates[5]"), std::string::npos);
  EXPECT_EQ(count(vertex, "\\* 1\\.407333;"), 2u);
  EXPECT_EQ(count(vertex, "\\* 3\\.294215;"), 2u);
  EXPECT_EQ(count(fragment, "\\* 0\\.204164;"), 1u);
  EXPECT_EQ(count(fragment, "\\* 0\\.304005;"), 2u);
  EXPECT_EQ(count(fragment, "\\* 0\\.093913;"), 2u);
  // Every number printed into the texts has six decimals.
  const std::string both = vertex + fragment;
  EXPECT_EQ(count(both, "\\* [0-9]+\\.[0-9]{6};"), count(both, "\\* [0-9.]+;"));
  // Twelve pairs: seven in the vertex stage (15 coordinates), five read
  // around the centre in the fragment stage.
  EXPECT_EQ(Blur::sampleRadiusForPixels(12.0), 24u);
  const std::string wideVertex = Blur::vertexShaderForOptimizedBlur(24, 12.0);
  const std::string wideFragment = Blur::fragmentShaderForOptimizedBlur(24, 12.0);
  EXPECT_NE(wideVertex.find("blurCoordinates[15]"), std::string::npos);
  EXPECT_EQ(count(wideVertex, "singleStepOffset \\*"), 14u);
  EXPECT_EQ(count(wideFragment, "blurCoordinates\\[0\\] [+-] singleStepOffset"), 10u);
  EXPECT_EQ(Blur::sampleRadiusForPixels(2.0), 6u);
}

// The Gaussian weights w[0..4] of radius 4, sigma 2, normalised.
constexpr double kWeights[5] = {0.204164, 0.180174, 0.123832, 0.066282, 0.027631};

// The bilateral filter's two passes, four pixels a step, down then across,
// the first result kept in bytes as the framebuffer keeps it.
std::shared_ptr<PixelBuffer> bilateralReference(const PixelBuffer& in, double factor) {
  static const double g[9] = {0.05, 0.09, 0.12, 0.15, 0.18, 0.15, 0.12, 0.09, 0.05};
  auto pass = [&](const PixelBuffer& from, int dx, int dy) {
    return test::paint(from.width(), from.height(), [&](int x, int y) {
      const Rgba c = test::colourAt(from, x, y);
      Rgba sum{c.r * 0.18, c.g * 0.18, c.b * 0.18, c.a * 0.18};
      double total = 0.18;
      for (int i = 0; i < 9; ++i) {
        if (i == 4) continue;
        const Rgba s = test::colourAt(from, x + dx * 4 * (i - 4), y + dy * 4 * (i - 4));
        const double distance = std::sqrt((c.r - s.r) * (c.r - s.r) + (c.g - s.g) * (c.g - s.g) +
                                          (c.b - s.b) * (c.b - s.b) + (c.a - s.a) * (c.a - s.a));
        const double weight = g[i] * (1.0 - std::min(distance * factor, 1.0));
        total += weight;
        sum = {sum.r + s.r * weight, sum.g + s.g * weight, sum.b + s.b * weight,
               sum.a + s.a * weight};
      }
      return Rgba{sum.r / total, sum.g / total, sum.b / total, sum.a / total};
    });
  };
  return pass(*pass(in, 0, 1), 1, 0);
}

enum class Stage { blurAt04, defaultBlur, wideBlur, bilateral, canny, suppression, weakPixels };
struct StageCase {
  const char* name;
  Stage stage;
  Rgba (*colour)(int, int);
  // The expected picture from the input; empty where `reference` says.
  Rgba (*expected)(const PixelBuffer& in, int x, int y);
};
class BlurEdgeStageTest : public testing::TestWithParam<StageCase> {};

std::shared_ptr<PixelBuffer> drawStage(Stage stage, const PixelBuffer& picture) {
  auto run = [&](auto filter) { return test::runChain(picture, filter, *filter); };
  switch (stage) {
    case Stage::blurAt04: {
      auto blur = std::make_shared<GPUImageGaussianBlurFilter>();
      blur->setBlurRadiusInPixels(0.4);
      return run(blur);
    }
    case Stage::defaultBlur:
      return run(std::make_shared<GPUImageGaussianBlurFilter>());
    case Stage::wideBlur: {
      auto blur = std::make_shared<GPUImageGaussianBlurFilter>();
      blur->setBlurRadiusInPixels(12.0);
      return run(blur);
    }
    case Stage::bilateral:
      return run(std::make_shared<GPUImageBilateralFilter>());
    case Stage::canny:
      return run(std::make_shared<GPUImageCannyEdgeDetectionFilter>());
    case Stage::suppression: {
      auto filter = std::make_shared<GPUImageDirectionalNonMaximumSuppressionFilter>();
      filter->setUpperThreshold(0.4);  // as the edge group sets it
      return run(filter);
    }
    case Stage::weakPixels:
      return run(std::make_shared<GPUImageWeakPixelInclusionFilter>());
  }
  return nullptr;
}

TEST_P(BlurEdgeStageTest, DrawsThePerPixelSteps) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::paint(40, 32, c.colour);
  auto out = drawStage(c.stage, *picture);
  ASSERT_TRUE(out);
  auto reference = c.stage == Stage::bilateral ? bilateralReference(*picture, 8.0) : nullptr;
  for (int y = 0; y < out->height(); ++y) {
    for (int x = 0; x < out->width(); ++x) {
      test::expectPixelNear(
          *out, x, y, reference ? test::colourAt(*reference, x, y) : c.expected(*picture, x, y));
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
// Strength byte b with no direction: a pixel whose neighbours along the
// gradient are itself, so only the thresholds 0.1 and 0.4 decide.
Rgba suppressed(const PixelBuffer& in, int x, int y) {
  return grey(smoothstep(0.1, 0.4, test::colourAt(in, x, y).r));
}
bool nearCross(int x, int y) { return std::abs(x - 20) + std::abs(y - 16) == 1; }

INSTANTIATE_TEST_SUITE_P(
    Stages, BlurEdgeStageTest,
    testing::Values(
        // Radius 0.4 rounds to 0: both passes copy.
        StageCase{"BlurOfRadiusBelowOneCopies", Stage::blurAt04,
                  [](int x, int y) {
                    return Rgba{x / 40.0, y / 32.0, (x * y % 7) / 7.0, 1};
                  },
                  [](const PixelBuffer& in, int x, int y) { return test::colourAt(in, x, y); }},
        // One white column spreads by the weights of radius 4, sigma 2.
        StageCase{"DefaultBlurSpreadsALineByItsWeights", Stage::defaultBlur,
                  [](int x, int) { return grey(x == 20 ? 1.0 : 0.0); },
                  [](const PixelBuffer&, int x, int) {
                    const int d = std::abs(x - 20);
                    return Rgba{d <= 4 ? kWeights[d] : 0, d <= 4 ? kWeights[d] : 0,
                                d <= 4 ? kWeights[d] : 0, 1};
                  }},
        // Twelve pairs, five of them read in the fragment stage: still sums to one.
        StageCase{"WideBlurKeepsAFlatArea", Stage::wideBlur, [](int, int) { return grey(0.4); },
                  [](const PixelBuffer&, int, int) { return grey(0.4); }},
        // Neighbours 0.6 away: each weight falls to 0, the pixel keeps its colour.
        StageCase{"BilateralPixelOfDistantNeighboursKeepsItsColour", Stage::bilateral,
                  [](int x, int y) { return grey(x == 20 && y == 16 ? 0.2 : 0.8); }, nullptr},
        // Neighbours 0.02 to 0.1 away: weighted in by how close they are.
        StageCase{"BilateralWeighsCloseNeighbours", Stage::bilateral,
                  [](int x, int y) {
                    return Rgba{0.5 + (x % 5) * 0.02, 0.4 + (y % 3) * 0.03, 0.3, 1};
                  },
                  nullptr},
        StageCase{"FlatAreaHasNoEdge", Stage::canny, [](int, int) { return grey(0.6); },
                  [](const PixelBuffer&, int, int) { return grey(0); }},
        // Thresholds: at or below 0.1 nothing, between a smooth step, from 0.4 full.
        StageCase{"SuppressionThresholds", Stage::suppression,
                  [](int x, int) {
                    static const double m[8] = {0.05, 0.1, 0.15, 0.25, 0.3, 0.4, 0.6, 1.0};
                    return gradient(m[x / 5], 0.5, 0.5);
                  },
                  suppressed},
        // Along x, strengths 0.6 and 0.8 alternate: only the stronger columns stay.
        StageCase{"SuppressionKeepsOnlyMaximaAlongTheGradient", Stage::suppression,
                  [](int x, int) { return gradient(x % 2 ? 0.8 : 0.6, 1.0, 0.5); },
                  [](const PixelBuffer&, int x, int) { return grey(x % 2 ? 1.0 : 0.0); }},
        // A lone pixel of 0.8 sums to less than 1.5 and goes; with four
        // neighbours of 0.3 (2.0 in all) it stays, at full white.
        StageCase{"LoneWeakPixelIsDropped", Stage::weakPixels,
                  [](int x, int y) { return grey(x == 20 && y == 16 ? 0.8 : 0.0); },
                  [](const PixelBuffer&, int, int) { return grey(0); }},
        StageCase{"WeakPixelWithNeighboursStays", Stage::weakPixels,
                  [](int x, int y) {
                    return grey(x == 20 && y == 16 ? 0.8 : nearCross(x, y) ? 0.3 : 0.0);
                  },
                  [](const PixelBuffer&, int x, int y) {
                    // Each arm of the cross sees the centre and two other arms: 1.7.
                    return grey((x == 20 && y == 16) || nearCross(x, y) ? 1.0 : 0.0);
                  }}),
    [](const auto& info) { return std::string(info.param.name); });

// An edge between two flat areas: a line of white along it, nothing away from it.
TEST(CannyEdgeTest, StepBetweenTwoAreasGivesOneLineAlongIt) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto picture = test::paint(40, 32, [](int x, int) { return grey(x < 20 ? 0.2 : 0.8); });
  auto canny = std::make_shared<GPUImageCannyEdgeDetectionFilter>();
  auto out = test::runChain(*picture, canny, *canny);
  ASSERT_TRUE(out);
  for (int y = 4; y < 28; ++y) {
    int white = 0;
    for (int x = 0; x < 40; ++x) {
      const auto p = test::pixelAt(*out, x, y);
      if (std::abs(x - 19.5) > 3) {
        EXPECT_EQ(p.r, 0) << x << "," << y;
      }
      white += p.r == 255;
    }
    EXPECT_GE(white, 1) << "row " << y;
    EXPECT_LE(white, 2) << "row " << y;
  }
}

}  // namespace
}  // namespace oxelo
