// The one-pass skin smoothing against its per-pixel steps in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "filters/LFGPUImageBeautyFilter.h"
#include "tests/filters/PixelReference.h"

namespace oxelo {
namespace {

using test::Rgba;

struct Levels {
  double beauty = 0.5, tone = 0.5, bright = 0.5;
};

double hardLight(double h) { return h <= 0.5 ? h * h * 2.0 : 1.0 - (1.0 - h) * (1.0 - h) * 2.0; }
double mix(double x, double y, double a) { return x * (1 - a) + y * a; }

// The filter's steps at pixel (x, y), with the levels that reach the uniforms.
Rgba beautyReference(const PixelBuffer& picture, int x, int y, const Levels& l) {
  struct Tap {
    int dx, dy, weight;
  };
  static const Tap taps[24] = {{0, -10, 1}, {0, 10, 1},  {-10, 0, 1}, {10, 0, 1}, {5, -8, 1},
                               {5, 8, 1},   {-5, 8, 1},  {-5, -8, 1}, {8, -5, 1}, {8, 5, 1},
                               {-8, 5, 1},  {-8, -5, 1}, {0, -6, 2},  {0, 6, 2},  {6, 0, 2},
                               {-6, 0, 2},  {-4, -4, 2}, {-4, 4, 2},  {4, -4, 2}, {4, 4, 2},
                               {-2, -2, 3}, {-2, 2, 3},  {2, -2, 3},  {2, 2, 3}};
  const Rgba c = test::colourAt(picture, x, y);
  double sum = 22.0 * c.g;
  for (const Tap& t : taps)  // one step is two pixels
    sum += t.weight * test::colourAt(picture, x + 2 * t.dx, y + 2 * t.dy).g;
  double h = c.g - sum / 62.0 + 0.5;
  for (int i = 0; i < 5; ++i) h = hardLight(h);
  const double params[4] = {1.0 - 0.6 * l.beauty, 1.0 - 0.3 * l.beauty, 0.1 + 0.3 * l.tone,
                            0.1 + 0.3 * l.tone};
  const double alpha = std::pow(0.299 * c.r + 0.587 * c.g + 0.114 * c.b, params[0]);
  const double in[3] = {c.r, c.g, c.b};
  double o[3];
  for (int k = 0; k < 3; ++k) {
    const double s = std::clamp(std::pow(in[k] + (in[k] - h) * alpha * 0.1, params[1]), 0.0, 1.0);
    const double screen = 1.0 - (1.0 - s) * (1.0 - in[k]);
    const double lighten = std::max(s, in[k]);
    const double soft = 2.0 * in[k] * s + in[k] * in[k] - 2.0 * in[k] * in[k] * s;
    o[k] = mix(mix(mix(in[k], screen, alpha), lighten, alpha), soft, params[2]);
  }
  const double saturated[3] = {1.1102 * o[0] - 0.0598 * o[1] - 0.061 * o[2],
                               -0.0774 * o[0] + 1.0826 * o[1] - 0.1186 * o[2],
                               -0.0228 * o[0] - 0.0228 * o[1] + 1.1772 * o[2]};
  const double brightness = 0.6 * (l.bright - 0.5);
  Rgba out;
  out.r = mix(o[0], saturated[0], params[3]) + brightness;
  out.g = mix(o[1], saturated[1], params[3]) + brightness;
  out.b = mix(o[2], saturated[2], params[3]) + brightness;
  return out;
}

Rgba black(int, int) { return {0, 0, 0, 1}; }
Rgba white(int, int) { return {1, 1, 1, 1}; }
// Smooth waves in every channel, away from 0 where the lift's power is undefined.
Rgba waves(int x, int y) {
  return {0.55 + 0.3 * std::sin(x / 5.0), 0.45 + 0.25 * std::cos(y / 4.0),
          0.4 + 0.2 * std::sin((x + y) / 7.0), 1};
}

struct BeautyCase {
  const char* name;
  Rgba (*colour)(int, int);
  std::optional<double> beauty, tone, bright;  // the setters called, in this order
  Levels reference;                            // the levels the uniforms then hold
  std::optional<Rgba> handWorked;              // the value at every pixel, where worked out by hand
};
class BeautyFilterTest : public testing::TestWithParam<BeautyCase> {};

TEST_P(BeautyFilterTest, DrawsThePerPixelSteps) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  const auto& c = GetParam();
  auto picture = test::paint(48, 40, c.colour);
  auto filter = std::make_shared<LFGPUImageBeautyFilter>();
  if (c.tone) filter->setToneLevel(*c.tone);
  if (c.beauty) filter->setBeautyLevel(*c.beauty);
  if (c.bright) filter->setBrightLevel(*c.bright);
  auto out = test::runChain(*picture, filter, *filter);
  ASSERT_TRUE(out);
  for (int y = 0; y < out->height(); y += 3) {
    for (int x = 0; x < out->width(); x += 3) {
      const Rgba want = c.handWorked ? *c.handWorked : beautyReference(*picture, x, y, c.reference);
      test::expectPixelNear(*out, x, y, want);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BeautyFilterTest,
    testing::Values(
        // Black: the mask is 0, the blends keep 0, the soft light keeps 0.
        BeautyCase{"BlackStaysBlack", black, {}, {}, {}, {}, Rgba{0, 0, 0, 1}},
        // White: (0.9894, 0.8866, 1.1316) from the matrix, a quarter of it mixed in.
        BeautyCase{"WhiteDoesNotStayWhite", white, {}, {}, {}, {}, Rgba{0.99735, 0.97165, 1.0, 1}},
        BeautyCase{"BeautyLevelZero", waves, 0.0, {}, {}, {0.0, 0.5, 0.5}, {}},
        BeautyCase{"BeautyLevelOne", waves, 1.0, {}, {}, {1.0, 0.5, 0.5}, {}},
        // A tone level alone reaches nothing; with the next beauty level it does.
        BeautyCase{"ToneAloneChangesNothing", waves, {}, 1.0, {}, {0.5, 0.5, 0.5}, {}},
        BeautyCase{"ToneWithBeautyLevel", waves, 0.5, 1.0, {}, {0.5, 1.0, 0.5}, {}},
        BeautyCase{"BrightLevelAddsItsOffset", waves, {}, {}, 0.7, {0.5, 0.5, 0.7}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
