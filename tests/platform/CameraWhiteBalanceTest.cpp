#include <gtest/gtest.h>

#include "platform/camera/WhiteBalanceModel.h"

namespace oxelo {
namespace {

struct GainCase {
  const char* name;
  float kelvin, tint;
  float red, green, blue;
};

class WhiteBalanceGainTest : public testing::TestWithParam<GainCase> {};

TEST_P(WhiteBalanceGainTest, GainsForTemperatureAndTint) {
  const auto& c = GetParam();
  auto g = whiteBalanceGainsForTemperatureAndTint({c.kelvin, c.tint});
  EXPECT_NEAR(g.redGain, c.red, 1e-4) << c.name;
  EXPECT_NEAR(g.greenGain, c.green, 1e-4) << c.name;
  EXPECT_NEAR(g.blueGain, c.blue, 1e-4) << c.name;
  // And back.
  auto values = temperatureAndTintForWhiteBalanceGains(g);
  EXPECT_NEAR(values.temperature, c.kelvin, c.kelvin * 1e-4) << c.name;
  EXPECT_NEAR(values.tint, c.tint, 1e-2) << c.name;
}

// red / blue = (T / 6500)^1.5, green / sqrt(red * blue) = 2^(tint / 150),
// the smallest gain 1.
INSTANTIATE_TEST_SUITE_P(
    Values, WhiteBalanceGainTest,
    testing::Values(GainCase("Neutral", 6500, 0, 1, 1, 1),
                    // 0.5^0.75 = 0.594604; red 1, green 1/0.594604, blue 1/0.594604^2
                    GainCase("HalfTheKelvin", 3250, 0, 1, 1.681793f, 2.828427f),
                    // 2^0.75 = 1.681793
                    GainCase("TwiceTheKelvin", 13000, 0, 2.828427f, 1.681793f, 1),
                    GainCase("GreenTint", 6500, 150, 1, 2, 1),
                    GainCase("MagentaTint", 6500, -150, 2, 1, 2)),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
