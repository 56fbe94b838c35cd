#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "platform/camera/CameraSystem.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

TEST(CameraVirtualSetTest, TheDefaultSetHasFourBackCamerasAndAFrontOne) {
  auto system = test::defaultVirtualCameraSystem();
  const auto& d = system->devices();
  ASSERT_EQ(d.size(), 5u);
  using Kind = std::pair<std::string, AVCaptureDevicePosition>;
  std::vector<Kind> kinds;
  for (const auto& camera : d) {
    kinds.emplace_back(camera->deviceType(), camera->position());
    EXPECT_EQ(camera->hasTorch(),
              camera->position() == AVCaptureDevicePositionBack);  // none at the front
  }
  const auto back = AVCaptureDevicePositionBack;
  EXPECT_EQ(kinds, (std::vector<Kind>{
                       {AVCaptureDeviceTypeBuiltInWideAngleCamera, back},
                       {AVCaptureDeviceTypeBuiltInTelephotoCamera, back},
                       {AVCaptureDeviceTypeBuiltInUltraWideCamera, back},
                       {AVCaptureDeviceTypeBuiltInTripleCamera, back},
                       {AVCaptureDeviceTypeBuiltInWideAngleCamera, AVCaptureDevicePositionFront}}));
  EXPECT_TRUE(d[3]->isVirtualDevice());
  EXPECT_EQ(d[3]->constituentDeviceTypes().front(), AVCaptureDeviceTypeBuiltInUltraWideCamera);
  EXPECT_EQ(d[3]->virtualDeviceSwitchOverVideoZoomFactors(), (std::vector<double>{2.0, 6.0}));
  EXPECT_FALSE(d[0]->isVirtualDevice());
}

TEST(CameraVirtualSetTest, DiscoveryOrdersByTheListOfTypesThenBySystemOrder) {
  auto system = test::camerasFromJson({{"cameras",
                                        {test::cameraJson("wide", "back", {{{640, 480}, 30}}),
                                         test::cameraJson("triple", "back", {{{640, 480}, 30}}),
                                         test::cameraJson("wide", "front", {{{640, 480}, 30}}),
                                         test::cameraJson("wide", "back", {{{640, 480}, 30}})}}});
  const auto& all = system->devices();
  auto back = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInTripleCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera},
      AVMediaTypeVideo, AVCaptureDevicePositionBack, system);
  EXPECT_EQ(back.devices(), (std::vector{all[1], all[0], all[3]}));

  auto anywhere = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInWideAngleCamera}, AVMediaTypeVideo,
      AVCaptureDevicePositionUnspecified, system);
  EXPECT_EQ(anywhere.devices(), (std::vector{all[0], all[2], all[3]}));

  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                AVMediaTypeVideo, AVCaptureDevicePositionFront),
            all[2]);
  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInTelephotoCamera,
                                                AVMediaTypeVideo, AVCaptureDevicePositionBack),
            nullptr);
  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera, "soun",
                                                AVCaptureDevicePositionBack),
            nullptr);
  EXPECT_EQ(system->deviceWithUniqueID(all[3]->uniqueID()), all[3]);

  // Without a set of its own, discovery looks in the process-wide one.
  CameraSystem::setCurrent(nullptr);
  EXPECT_TRUE(CameraSystem::current()->devices().empty());
  CameraSystem::setCurrent(system);
  auto installed = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInTripleCamera}, AVMediaTypeVideo, AVCaptureDevicePositionBack);
  EXPECT_EQ(installed.devices(), (std::vector{all[1]}));
  CameraSystem::setCurrent(nullptr);
}

// A file that cannot be used fails with its name and the reason.
TEST(CameraVirtualSetTest, OpenVirtualTakesTheFileTheEnvironmentNames) {
  test::TempDir dir;
  auto file = dir.path() / "cameras.json";
  setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  std::ofstream(file) << R"({"cameras":[{"type":"telephoto","position":"front",
      "name":"Odd One","formats":[{"width":800,"height":600,"fps":24}]}]})";
  std::string error;
  auto system = CameraSystem::open("virtual", error);
  ASSERT_TRUE(system) << error;
  EXPECT_EQ(system->backend(), "virtual");
  ASSERT_EQ(system->devices().size(), 1u);
  EXPECT_EQ(system->devices()[0]->localizedName(), "Odd One");
  EXPECT_EQ(system->devices()[0]->position(), AVCaptureDevicePositionFront);

  std::ofstream(file) << R"({"cameras":[{"type":"wide","position":"side","formats":[]}]})";
  EXPECT_FALSE(CameraSystem::open("virtual", error));
  unsetenv("OXELO_VIRTUAL_CAMERAS");
  for (auto part :
       {std::string("OXELO_VIRTUAL_CAMERAS"), file.string(), std::string("cameras[0].position")})
    EXPECT_NE(error.find(part), std::string::npos) << error;
}

struct SourceCase {
  const char* name;
  const char* source;
  const char* errorPart;
};

class CameraSourceTest : public testing::TestWithParam<SourceCase> {};

TEST_P(CameraSourceTest, RefusesWhatItCannotUse) {
  std::string error;
  EXPECT_FALSE(CameraSystem::open(GetParam().source, error));
  EXPECT_NE(error.find(GetParam().errorPart), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(Sources, CameraSourceTest,
                         testing::Values(SourceCase("UnknownBackend", "usb", "auto, virtual, v4l2"),
                                         SourceCase("EmptyDevice", "v4l2:", "needs a device"),
                                         SourceCase("MissingNode", "v4l2:/dev/oxelo-no-such-camera",
                                                    "No such file or directory"),
                                         SourceCase("NotAVideoNode", "v4l2:/dev/null",
                                                    "not a V4L2 device")),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
