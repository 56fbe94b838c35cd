// The picture checks of the end-to-end tests read recorded files through
// DecodedPicture; here it reads files whose every picture is known, drawn by
// ffmpeg's own sources: corner patches on a plain background that swap left
// and right after one second.
#include "tests/e2e/support/DecodedPicture.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Corners = std::array<std::string, 4>;

const Corners kUpright{"red", "green", "blue", "white"};
const Corners kMirrored{"green", "red", "white", "blue"};

class DecodedPictureTest : public test::ProgramTest {
 protected:
  // 320x240 at 10 fps for 2 s, H.264 in Matroska: kUpright in the first
  // second, kMirrored in the next, each patch 40x30 on a grey blue ground.
  std::string makeFile() {
    const std::array<const char*, 8> colours{"red",  "lime", "blue",  "white",
                                             "lime", "red",  "white", "blue"};
    std::string filters;
    for (int i = 0; i < 8; ++i)
      filters += fmt::format("{}drawbox=x={}:y={}:w=40:h=30:c={}:t=fill:enable='{}'", i ? "," : "",
                             i % 2 ? 280 : 0, i / 2 % 2 ? 210 : 0, colours[i],
                             i < 4 ? "lt(t,1)" : "gte(t,1)");
    const std::string file = path("known.mkv");
    EXPECT_EQ(
        run("ffmpeg -nostdin -v error -f lavfi -i color=c=0x336699:s=320x240:r=10:d=2 -vf \"" +
            filters + "\" -c:v libx264 -pix_fmt yuv420p -y " + file),
        0);
    return file;
  }
};

TEST_F(DecodedPictureTest, ReadsThePictureShownAtATimeOrSaysWhyNot) {
  const std::string file = makeFile();
  for (const auto& [seconds, width, height, corners] :
       {std::tuple{0.5, 320, 240, kUpright}, std::tuple{1.5, 160, 120, kMirrored},
        std::tuple{1.9, 320, 240, kMirrored}}) {
    SCOPED_TRACE(fmt::format("{} s at {}x{}", seconds, width, height));
    std::string error;
    auto picture = test::decodePictureAt(file, seconds, width, height, error);
    ASSERT_TRUE(picture) << error;
    EXPECT_EQ(test::cornerColours(*picture), corners);
    // The ground between the patches comes back close to what was drawn.
    const test::Rgb ground = picture->at(width / 2, height / 2);
    EXPECT_NEAR(ground.r, 51, 6);
    EXPECT_NEAR(ground.g, 102, 6);
    EXPECT_NEAR(ground.b, 153, 6);
  }
  // No file, or no picture 5 s into the known one: a reason, not a picture.
  for (const std::string& missing : {path("none.mkv"), file}) {
    std::string error;
    EXPECT_FALSE(test::decodePictureAt(missing, 5.0, 32, 24, error)) << missing;
    EXPECT_NE(error.find("0 of 2304 bytes"), std::string::npos) << error;
  }
}

TEST(ColourNameTest, NamesAColourOnlyWithinTheTolerance) {
  for (const auto& [colour, name] :
       std::vector<std::pair<test::Rgb, std::string>>{{{230, 20, 30}, "red"},
                                                      {{10, 240, 40}, "green"},
                                                      {{0, 0, 191}, "blue"},
                                                      {{0, 0, 190}, "other(0,0,190)"},
                                                      {{200, 200, 200}, "white"},
                                                      {{255, 255, 0}, "other(255,255,0)"}})
    EXPECT_EQ(test::colourName(colour), name);
}

}  // namespace
}  // namespace oxelo
