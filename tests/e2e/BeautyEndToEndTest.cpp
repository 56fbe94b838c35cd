// Command 38 switches the phone's beauty method: the recording shows each
// method's colour path (the one-pass filter's screen blend, the group's log
// curve and gain) with the patches' edges kept, and the next status block
// the beauty bits. The virtual picture has no textured skin: smoothing is
// left to the filters' tests. Loopback only.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/e2e/support/DecodedPicture.h"
#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

enum class Method { none, onePass, group };

struct BeautyCase {
  const char* name;
  const char* commands;  // the host's --command options
  Method method;
  int beautyBits;  // of the status block: 0 off, 1 method 1, 2 any other method
  double seconds;  // of streaming: the block comes behind a key frame, 15 frames on
};

class BeautyEndToEndTest : public test::ProgramTest,
                           public testing::WithParamInterface<BeautyCase> {};

// The background of row y: the median of columns of which the sweeping bar
// covers one at most, clear of the patches and the square.
test::Rgb background(const test::DecodedPicture& p, int y) {
  std::vector<test::Rgb> seen;
  for (int x : {100, 180, 440, 500, 560}) seen.push_back(p.at(x, y));
  auto median = [&](int test::Rgb::*channel) {
    std::vector<int> v;
    for (const auto& c : seen) v.push_back(c.*channel);
    std::nth_element(v.begin(), v.begin() + 2, v.end());
    return v[2];
  };
  return {median(&test::Rgb::r), median(&test::Rgb::g), median(&test::Rgb::b)};
}

double curveAndGain(double v) { return std::log(1.0 + 0.2 * v) / std::log(1.2) * 1.05 * 255.0; }

TEST_P(BeautyEndToEndTest, CommandSwitchesTheMethodAndTheStatusShowsIt) {
  const auto& c = GetParam();
  const std::string file = path("beauty.mkv");
  std::string recorder =
      host(fmt::format("listen --bind 127.0.0.1 --port 5903 --wait 15 --duration {} --end 24"
                       " --settings 640x480@15 --output {} {} --command '1.2 33 2'",
                       c.seconds, file, c.commands),
           "r.json");
  ASSERT_EQ(run(recorder + " & " + waitForLine("host.log", "host - listening") + "; " +
                phone("--connect 127.0.0.1 --instance 9 --exit-when-ended --duration 20") +
                "; status=$?; wait $! || status=1; exit $status"),
            0)
      << readText("phone.log");
  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object());
  EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
  const Json& blocks = report["stream"]["status_blocks"];
  ASSERT_FALSE(blocks.empty()) << report.dump(1);
  EXPECT_EQ(blocks.back()["session"]["beauty"], c.beautyBits) << blocks.back().dump(1);

  const double duration = report["recording"]["duration"].get<double>();
  ASSERT_GT(duration, 1.8) << report.dump(1);
  std::string error;
  auto picture = test::decodePictureAt(file, duration - 0.3, 640, 480, error);
  ASSERT_TRUE(picture) << error;
  // Edges kept: the patches and the background right beside them.
  EXPECT_EQ(test::cornerColours(*picture),
            (std::array<std::string, 4>{"red", "green", "blue", "white"}));
  const test::Rgb inside = picture->at(70, 30), beside = picture->at(90, 30);
  EXPECT_GT(inside.r - beside.r, 150) << "red patch against the dark background";

  // Red rises from 0 at the top to 1 at the bottom, blue falls, green changes
  // with each frame; red is not above blue here, so no skin.
  for (int y : {60, 240}) {
    SCOPED_TRACE(fmt::format("row {}", y));
    const double red = y / 480.0, blue = 1.0 - red;
    const test::Rgb seen = background(*picture, y);
    switch (c.method) {
      case Method::none:
        EXPECT_NEAR(seen.r, red * 255, 8);
        EXPECT_NEAR(seen.b, blue * 255, 8);
        break;
      case Method::group:
        EXPECT_NEAR(seen.r, curveAndGain(red), 8);
        EXPECT_NEAR(seen.b, curveAndGain(blue), 8);
        break;
      case Method::onePass:
        // The screen blend lifts the middle tones more than the log curve.
        if (y == 240) {
          EXPECT_GT(seen.r, curveAndGain(red) + 4);
          EXPECT_GT(seen.b, curveAndGain(blue) + 4);
        }
        break;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Commands, BeautyEndToEndTest,
    testing::Values(BeautyCase{"Off", "--command '0.3 38 0'", Method::none, 0, 4.5},
                    // Beauty on rebuilds the chain with the method stored before it:
                    // 0 at first, which is the one-pass filter; then 2 is stored.
                    BeautyCase{"MethodTwoIsTheOnePassFilter", "--command '0.3 38 2'",
                               Method::onePass, 2, 4.5},
                    // Method 1 takes effect at the rebuild of the second command. Its ten
                    // draws a frame run at a few frames a second on llvmpipe.
                    BeautyCase{"MethodOneIsTheGroup", "--command '0.3 38 1' --command '0.6 38 1'",
                               Method::group, 1, 8}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
