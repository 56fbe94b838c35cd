#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "shell/CameraCommands.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using nlohmann::json;

struct Result {
  int code;
  std::string out, err;
};

Result run(std::vector<std::string> args, const std::filesystem::path& configDir) {
  args.push_back("--config-dir");
  args.push_back(configDir.string());
  std::string error;
  auto cl = parseCommandLine(args, error);
  EXPECT_TRUE(cl) << error;
  std::ostringstream out, err;
  int code = cl ? runCameraCommand(*cl, out, err) : -1;
  return {code, out.str(), err.str()};
}

class CameraCommandsTest : public testing::Test {
 protected:
  CameraCommandsTest() { unsetenv("OXELO_VIRTUAL_CAMERAS"); }
  ~CameraCommandsTest() override { unsetenv("OXELO_VIRTUAL_CAMERAS"); }
  test::TempDir dir_;
};

TEST_F(CameraCommandsTest, CatalogueOfTheVirtualCamerasIsJsonAndFollowsTheSettings) {
  auto r = run({"--catalogue", "--camera", "virtual"}, dir_.path());
  ASSERT_EQ(r.code, 0) << r.err;
  // The rows themselves are the catalogue's (tests/media): here, their form.
  auto j = json::parse(r.out);
  ASSERT_EQ(j["videoSizes"].size(), 9u);
  EXPECT_EQ(j["videoSizes"][4], json({{"width", 1280}, {"height", 720}, {"fps", 240.0}}));
  // videoSize defaults to 4: 1280x720.
  EXPECT_EQ(j["videoFrameRates"], json({"15", "24", "25", "30", "50", "60", "120", "240"}));
  // Reading the catalogue writes no settings; it follows those stored.
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "settings.json"));
  {
    UserDefaults d(dir_.path());
    d.setInteger(keys::videoSize, 8);  // 3840x2160 at 60
    d.synchronize();
  }
  r = run({"--catalogue", "--camera", "virtual"}, dir_.path());
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["videoFrameRates"], json({"15", "24", "25", "30", "50", "60"}));
}

TEST_F(CameraCommandsTest, ListCamerasGivesTypesPositionsAndFormats) {
  auto r = run({"--list-cameras", "--camera", "virtual"}, dir_.path());
  ASSERT_EQ(r.code, 0) << r.err;
  const auto j = json::parse(r.out);
  EXPECT_EQ(j["cameras"].size(), 5u);
  EXPECT_TRUE(j["unavailable"].empty());
  EXPECT_TRUE(j.value(json::json_pointer("/cameras/0/activeFormat"), json()).is_number_integer());
  // Each JSON pointer names a value of the listing.
  const auto expected = json::parse(R"({"/backend": "virtual", "/cameras/0/position": 1,
      "/cameras/0/type": "AVCaptureDeviceTypeBuiltInWideAngleCamera", "/cameras/4/position": 2,
      "/cameras/4/positionName": "front", "/cameras/4/controls/torch": false,
      "/cameras/0/formats/0/mediaType": "vide", "/cameras/0/formats/0/subtype": "420v",
      "/cameras/0/formats/0/width": 640, "/cameras/0/formats/0/height": 480,
      "/cameras/0/formats/0/frameRateRanges/0/max": 30.0})");
  for (const auto& [pointer, value] : expected.items())
    EXPECT_EQ(j.value(json::json_pointer(pointer), json()), value) << pointer;
}

// A backend that cannot be used ends the program with the camera error's
// own status and one line, at start-up and for the camera commands alike.
struct BackendFailure {
  const char* name;
  const char* camera;
  const char* virtualCameras;  // contents of OXELO_VIRTUAL_CAMERAS, or none
  int status;
  const char* message;  // a part of the line after "oxelo: "
};
class BackendFailureTest : public CameraCommandsTest,
                           public testing::WithParamInterface<BackendFailure> {};

TEST_P(BackendFailureTest, ExitsWithTheCameraErrorsStatusAndOneLine) {
  const auto& c = GetParam();
  if (std::string(c.camera) == "v4l2" && std::filesystem::exists("/dev/video0"))
    GTEST_SKIP() << "this machine has a V4L2 device";
  if (c.virtualCameras) {
    auto file = dir_.path() / "cams.json";
    std::ofstream(file) << c.virtualCameras;
    setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  }
  std::ostringstream err;
  EXPECT_EQ(startCameras(c.camera, err), c.status);
  EXPECT_EQ(CameraSystem::current()->devices().size(), 0u) << "nothing installed";
  const auto listed = run({"--list-cameras", "--camera", c.camera}, dir_.path());
  EXPECT_EQ(listed.code, c.status);
  EXPECT_TRUE(listed.out.empty());
  for (const std::string& line : {err.str(), listed.err}) {
    EXPECT_EQ(line.rfind("oxelo: ", 0), 0u) << line;
    EXPECT_NE(line.find(c.message), std::string::npos) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << "one line: " << line;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sources, BackendFailureTest,
    testing::Values(BackendFailure{"UnknownText", "webcam", nullptr, 20,
                                   "--camera takes auto, virtual, v4l2"},
                    BackendFailure{"V4l2WithoutDevice", "v4l2:", nullptr, 20, "needs a device"},
                    BackendFailure{"MissingDevice", "v4l2:/dev/oxelo-no-such-camera", nullptr, 20,
                                   "/dev/oxelo-no-such-camera"},
                    BackendFailure{"NoV4l2Camera", "v4l2", nullptr, 24, "no usable V4L2 camera"},
                    BackendFailure{"BadVirtualSet", "virtual", "not json", 20, "not valid JSON"}),
    [](const auto& info) { return std::string(info.param.name); });

// The rule itself is the catalogue's (tests/media); here, that start-up
// installs the cameras asked for and the shared catalogue follows them.
TEST_F(CameraCommandsTest, StartUpInstallsTheCamerasAndAppliesTheCatalogueRule) {
  auto file = dir_.path() / "cams.json";
  std::ofstream(file) << R"({"cameras":[{"type":"wide","position":"back","formats":[]}]})";
  setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  std::ostringstream err;
  ASSERT_EQ(startCameras("virtual", err), 0) << err.str();
  EXPECT_EQ(CameraSystem::current()->devices().size(), 1u);

  auto defaults = std::make_shared<UserDefaults>(dir_.path());
  UserDefaults::setStandard(defaults);
  defaults->setInteger(keys::videoSize, 4);
  loadCatalogueAtStartup();  // two rows
  EXPECT_EQ(defaults->integerForKey(keys::videoSize), 1);
  EXPECT_EQ(defaults->integerForKey(keys::videoWidth), 640);
  EXPECT_EQ(defaults->integerForKey(keys::videoHeight), 480);

  CameraSystem::setCurrent(nullptr);
  UserDefaults::setStandard(nullptr);
}

}  // namespace
}  // namespace oxelo
