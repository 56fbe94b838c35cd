// The virtual camera's picture, streamed by the phone and recorded by the
// reference host with no re-encoding, must reach the host the way the sensor
// sees it: the four corner patches (red top left, green top right, blue
// bottom left, white bottom right) where they are, until the host mirrors
// the picture or changes the camera.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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
  const char* command;  // the host's --command, or "" for none
  // The corners that may arrive: upright, and for a front camera either
  // way round, as its own mirror flag decides.
  std::vector<Corners> corners;
  int capabilityBlocks;  // a camera change sends the ranges again
  int cameraKind;        // of the last capability block: 0 front, 7 a back camera
};

class CameraPictureEndToEndTest : public test::ProgramTest,
                                  public testing::WithParamInterface<PictureCase> {};

TEST_P(CameraPictureEndToEndTest, CornerPatchesArriveWhereTheSensorSawThem) {
  const auto& c = GetParam();
  const std::string file = path("camera.mkv");
  std::string commands = *c.command ? fmt::format(" --command '{}'", c.command) : "";
  std::string recorder = host(
      "listen --bind 127.0.0.1 --port 5901 --wait 15 --duration 3.5 --end 24"
      " --settings 640x360@15 --output " +
          file + commands,
      "r.json");
  ASSERT_EQ(run(recorder + " & " + waitForLine("host.log", "host - listening") + "; " +
                phone("--connect 127.0.0.1 --instance 7 --exit-when-ended --duration 20") +
                "; status=$?; wait $! || status=1; exit $status"),
            0)
      << readText("phone.log");
  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object());
  EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
  expectAt(report, fmt::format(R"({{"/stream/counts/capability_blocks": {},
      "/stream/last_capability/camera_kind": {}}})",
                               c.capabilityBlocks, c.cameraKind));

  // The command goes 0.5 s into the stream; the last picture has had well
  // over a second to show it.
  const double duration = report["recording"]["duration"].get<double>();
  ASSERT_GT(duration, 1.8) << report.dump(1);
  std::string error;
  auto picture = test::decodePictureAt(file, duration - 0.3, 160, 90, error);
  ASSERT_TRUE(picture) << error;
  EXPECT_THAT(c.corners, testing::Contains(test::cornerColours(*picture)));
}

INSTANTIATE_TEST_SUITE_P(
    HostCommands, CameraPictureEndToEndTest,
    testing::Values(PictureCase{"AsTheCameraSeesIt", "", {kUpright}, 1, 7},
                    // Command 35 with 1 mirrors the picture: left and right swap.
                    PictureCase{"Mirrored", "0.5 35 1", {kMirrored}, 1, 7},
                    // Command 34 with 0 turns to the front camera, which is
                    // mounted otherwise; the picture stays upright.
                    PictureCase{"FrontCamera", "0.5 34 0", {kUpright, kMirrored}, 2, 0}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
