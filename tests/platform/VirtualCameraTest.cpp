#include <gtest/gtest.h>

#include <fstream>
#include <stdlib.h>
#include <tuple>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestSupport.h"

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

using nlohmann::json;

// The second camera mentions nothing optional: each of its entries gives both
// subtypes in its order, and its name follows from its position.
TEST(CameraJsonLoaderTest, ReadsRangesSubtypesLimitsAndControls) {
  std::string error;
  auto set = parseVirtualCameras(json::parse(R"({"cameras":[
      {"type":"AVCaptureDeviceTypeBuiltInDualCamera","position":2,"uniqueID":"d1",
       "formats":[{"width":1920,"height":1080,"fps":[[1,30],[60,60]],"subtypes":["420f"],
                   "iso":[20,800],"exposure":[0.001,0.1],"maxZoom":4,"hdr":true}],
       "controls":{"focusModes":[0],"exposureModes":[2,3],"torch":false,"exposureBias":[-3,3],
                   "maxWhiteBalanceGain":2.5},
       "constituents":["wide","telephoto"],"switchOverZoomFactors":[2]},
      {"type":"wide","position":"back",
       "formats":[{"width":1280,"height":720,"fps":30},{"width":640,"height":480,"fps":60}]}]})"),
                                 error);
  ASSERT_TRUE(set) << error;
  ASSERT_EQ(set->size(), 2u);
  const auto& d = (*set)[0].description;
  EXPECT_EQ(d.uniqueID, "d1");
  EXPECT_EQ(d.deviceType, AVCaptureDeviceTypeBuiltInDualCamera);
  EXPECT_EQ(d.position, AVCaptureDevicePositionFront);
  ASSERT_EQ(d.formats.size(), 1u);
  const auto& f = d.formats[0];
  EXPECT_EQ(f.mediaSubType, "420f");
  ASSERT_EQ(f.videoSupportedFrameRateRanges.size(), 2u);
  EXPECT_EQ(f.videoSupportedFrameRateRanges[1].minFrameDuration, CaptureTime::make(1, 60));
  EXPECT_EQ(f.videoSupportedFrameRateRanges[0].maxFrameDuration, CaptureTime::make(1, 1));
  EXPECT_FLOAT_EQ(f.minISO, 20);
  EXPECT_FLOAT_EQ(f.maxISO, 800);
  EXPECT_DOUBLE_EQ(f.minExposureDuration.seconds(), 0.001);
  EXPECT_DOUBLE_EQ(f.videoMaxZoomFactor, 4);
  EXPECT_TRUE(f.videoHDRSupported);
  const auto& c = d.capabilities;
  EXPECT_EQ(c.focusModes, 0b1u);
  EXPECT_EQ(c.exposureModes, 0b1100u);
  EXPECT_FALSE(c.torch);
  EXPECT_TRUE(c.lockingFocusWithCustomLensPosition);  // not mentioned: supported
  EXPECT_FLOAT_EQ(c.minExposureTargetBias, -3);
  EXPECT_FLOAT_EQ(c.maxWhiteBalanceGain, 2.5f);
  EXPECT_EQ(c.constituentDeviceTypes.size(), 2u);
  EXPECT_FALSE((*set)[0].lockError);

  const auto& plain = (*set)[1].description;
  EXPECT_EQ(plain.localizedName, "Back Camera");
  std::vector<std::tuple<int, std::string, double>> formats;
  for (const auto& p : plain.formats)
    formats.emplace_back(p.width, p.mediaSubType, p.maxFrameRate());
  EXPECT_EQ(formats,
            (decltype(formats){
                {1280, "420v", 30}, {1280, "420f", 30}, {640, "420v", 60}, {640, "420f", 60}}));
}

// A text that starts with a key is the rest of a back wide camera.
std::string documentOf(const std::string& text) {
  if (text[0] != '"') return text;
  return R"({"cameras":[{"type":"wide","position":"back",)" + text + "}]}";
}

TEST(CameraJsonLoaderTest, ErrorsNameThePlaceAndTheFault) {
  const struct {
    const char *text, *errorPart;
  } documents[] = {
      {"[1,2]", "document: must be an object"},
      {"{}", "needs \"cameras\""},
      {R"({"cameras":[],"camera":1})", "unknown key \"camera\""},
      {R"({"cameras":[{"type":"fisheye","position":"back","formats":[]}]})",
       "cameras[0].type: unknown camera type \"fisheye\""},
      {R"({"cameras":[{"type":"wide","formats":[]}]})", "cameras[0]: needs \"position\""},
      {R"({"cameras":[{"type":"wide","position":3,"formats":[]}]})",
       "cameras[0].position: must be \"back\" or \"front\""},
      {R"("formats":[{"width":640,"heigth":480,"fps":30}])",
       "cameras[0].formats[0]: unknown key \"heigth\""},
      {R"("formats":[{"width":0,"height":480,"fps":30}])",
       "cameras[0].formats[0].width: must be a whole number"},
      {R"("formats":[{"width":640,"height":480,"fps":"30"}])",
       "formats[0].fps: must be a rate or a list"},
      {R"("formats":[{"width":640,"height":480,"fps":[[60,30]]}])",
       "formats[0].fps[0]: the first number must not be above the second"},
      {R"("formats":[{"width":640,"height":480,"fps":30,"subtypes":["yuvs"]}])",
       "subtypes: holds a subtype other than"},
      {R"("formats":[],"controls":{"exposureModes":[2,4]})",
       "controls.exposureModes: holds a mode that is not 0 to 3"},
      {R"("formats":[],"controls":{"torch":1})", "controls.torch: must be true or false"},
      {R"({"cameras":[{"type":"triple","position":"back","formats":[],
          "switchOverZoomFactors":[2]}]})",
       "switchOverZoomFactors: needs \"constituents\""},
      {R"({"cameras":[{"type":"wide","position":"back","formats":[],"uniqueID":"a"},
                      {"type":"wide","position":"front","formats":[],"uniqueID":"a"}]})",
       "cameras[1].uniqueID: \"a\" is used twice"},
  };
  for (const auto& d : documents) {
    std::string error;
    EXPECT_FALSE(parseVirtualCameras(json::parse(documentOf(d.text)), error)) << d.text;
    EXPECT_NE(error.find(d.errorPart), std::string::npos) << error;
  }
}

TEST(CameraJsonLoaderTest, FileErrorsNameTheFile) {
  test::TempDir dir;
  std::string error;
  auto missing = dir.path() / "none.json";
  EXPECT_FALSE(loadVirtualCameras(missing, error));
  EXPECT_EQ(error, missing.string() + ": cannot be read");

  auto broken = dir.path() / "broken.json";
  std::ofstream(broken) << "{\"cameras\": [";
  EXPECT_FALSE(loadVirtualCameras(broken, error));
  EXPECT_EQ(error, broken.string() + ": not valid JSON");
}

}  // namespace
}  // namespace oxelo
