// The virtual camera's picture, streamed by the phone and recorded by the
// reference host with no re-encoding, must reach the host the way the sensor
// sees it: the four corner patches (red top left, green top right, blue
// bottom left, white bottom right) where they are, upright; mirrored once
// the host asks for it, and upright still on the front camera, which sees
// the scene half turned.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/support/DecodedPicture.h"
#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;
using Corners = std::array<std::string, 4>;

const Corners kUpright{"red", "green", "blue", "white"};
const Corners kMirrored{"green", "red", "white", "blue"};

struct PictureCase {
  const char* name;
  const char* commands;  // the host's --command options
  Corners corners;
  int capabilityBlocks;  // at least: a camera change sends the ranges again
  int cameraKind;        // of the last capability block: 0 front, 7 a back camera
};

class CameraPictureEndToEndTest : public test::ProgramTest,
                                  public testing::WithParamInterface<PictureCase> {};

TEST_P(CameraPictureEndToEndTest, CornerPatchesArriveWhereTheSensorSawThem) {
  const auto& c = GetParam();
  const std::string file = path("camera.mkv");
  std::string recorder = host(
      "listen --bind 127.0.0.1 --port 5901 --wait 15 --duration 3.5 --end 24"
      " --settings 640x480@15 --output " +
          file + " " + c.commands,
      "r.json");
  ASSERT_EQ(run(recorder + " & " + waitForLine("host.log", "host - listening") + "; " +
                phone("--connect 127.0.0.1 --instance 7 --exit-when-ended --duration 20") +
                "; status=$?; wait $! || status=1; exit $status"),
            0)
      << readText("phone.log");
  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object());
  EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
  EXPECT_GE(report["stream"]["counts"]["capability_blocks"], c.capabilityBlocks);
  expectAt(report, fmt::format(R"({{"/stream/last_capability/camera_kind": {}}})", c.cameraKind));

  // The commands go 0.5 s and 1 s into the stream; the last picture has had
  // over a second to show them.
  const double duration = report["recording"]["duration"].get<double>();
  ASSERT_GT(duration, 1.8) << report.dump(1);
  std::string error;
  auto picture = test::decodePictureAt(file, duration - 0.3, 160, 120, error);
  ASSERT_TRUE(picture) << error;
  EXPECT_EQ(test::cornerColours(*picture), c.corners);
}

INSTANTIATE_TEST_SUITE_P(
    HostCommands, CameraPictureEndToEndTest,
    testing::Values(PictureCase{"AsTheCameraSeesIt", "", kUpright, 1, 7},
                    // Command 35 with 1 mirrors the picture: left and right swap.
                    PictureCase{"Mirrored", "--command '0.5 35 1'", kMirrored, 1, 7},
                    // Command 34 with 0 turns the camera round: from the wide
                    // back camera to the telephoto, then to the front one.
                    PictureCase{"FrontCamera", "--command '0.5 34 0' --command '1 34 0'", kUpright,
                                2, 0}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
