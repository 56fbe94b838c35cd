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

TEST_F(CameraCommandsTest, ABackendThatCannotBeUsedExitsWithAMessage) {
  auto unknown = run({"--catalogue", "--camera", "webcam"}, dir_.path());
  EXPECT_EQ(unknown.code, 2);
  EXPECT_TRUE(unknown.out.empty());
  EXPECT_NE(unknown.err.find("--camera takes auto, virtual, v4l2"), std::string::npos)
      << unknown.err;

  auto missing = run({"--list-cameras", "--camera", "v4l2:/dev/oxelo-no-such-camera"}, dir_.path());
  EXPECT_EQ(missing.code, 2);
  EXPECT_NE(missing.err.find("/dev/oxelo-no-such-camera"), std::string::npos) << missing.err;

  auto file = dir_.path() / "cams.json";
  std::ofstream(file) << "not json";
  setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  auto bad = run({"--list-cameras", "--camera", "virtual"}, dir_.path());
  EXPECT_EQ(bad.code, 2);
  EXPECT_NE(bad.err.find(file.string() + ": not valid JSON"), std::string::npos) << bad.err;
}

// The rule itself is the catalogue's (tests/media); here, that start-up
// installs the cameras asked for and the shared catalogue follows them.
TEST_F(CameraCommandsTest, StartUpInstallsTheCamerasAndAppliesTheCatalogueRule) {
  auto file = dir_.path() / "cams.json";
  std::ofstream(file) << R"({"cameras":[{"type":"wide","position":"back","formats":[]}]})";
  setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  std::string error;
  ASSERT_TRUE(startCameras("virtual", error)) << error;
  EXPECT_EQ(CameraSystem::current()->devices().size(), 1u);

  auto defaults = std::make_shared<UserDefaults>(dir_.path());
  UserDefaults::setStandard(defaults);
  defaults->setInteger(keys::videoSize, 4);
  loadCatalogueAtStartup();  // two rows
  EXPECT_EQ(defaults->integerForKey(keys::videoSize), 1);
  EXPECT_EQ(defaults->integerForKey(keys::videoWidth), 640);
  EXPECT_EQ(defaults->integerForKey(keys::videoHeight), 480);

  EXPECT_FALSE(startCameras("v4l2:", error));
  CameraSystem::setCurrent(nullptr);
  UserDefaults::setStandard(nullptr);
}

}  // namespace
}  // namespace oxelo
