#include <gtest/gtest.h>

#include <fstream>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// Runs against the machine's own cameras; skipped where there are none.
TEST(V4l2EnumerationTest, EnumeratesTheMachinesCameras) {
  auto nodes = listVideoNodes();
  if (nodes.empty()) GTEST_SKIP() << "no /dev/video* node on this machine: nothing to enumerate";
  auto found = enumerateV4l2Cameras();
  for (const auto& p : found.problems) {
    EXPECT_FALSE(p.location.empty());
    EXPECT_FALSE(p.error.empty()) << p.location;
  }
  for (const auto& d : found.devices) {
    SCOPED_TRACE(d->location());
    EXPECT_EQ(d->uniqueID().rfind("v4l2:", 0), 0u);
    EXPECT_TRUE(d->position() == AVCaptureDevicePositionBack ||
                d->position() == AVCaptureDevicePositionFront);
    ASSERT_FALSE(d->formats().empty());
    for (const auto& f : d->formats()) {
      EXPECT_GT(f->width, 0);
      EXPECT_GT(f->height, 0);
      EXPECT_TRUE(f->mediaSubType == "420f" || f->mediaSubType == "420v");
      EXPECT_FALSE(f->nativePixelFormat.empty());
    }
    EXPECT_TRUE(d->lockForConfiguration());
    d->unlockForConfiguration();
  }
  std::string error;
  auto system = CameraSystem::open("v4l2", error);
  EXPECT_EQ(system != nullptr, !found.devices.empty()) << error;
}

TEST(V4l2EnumerationTest, ADirectoryWithoutNodesFindsNothing) {
  test::TempDir dir;
  auto found = enumerateV4l2Cameras(dir.path());
  EXPECT_TRUE(found.devices.empty());
  EXPECT_TRUE(found.problems.empty());
}

TEST(V4l2EnumerationTest, NodesThatCannotBeUsedAreReportedWithTheirError) {
  auto missing = enumerateV4l2Camera("/dev/oxelo-no-such-camera");
  EXPECT_TRUE(missing.devices.empty());
  ASSERT_EQ(missing.problems.size(), 1u);
  EXPECT_EQ(missing.problems[0].location, "/dev/oxelo-no-such-camera");
  EXPECT_EQ(missing.problems[0].error, "No such file or directory");

  auto notVideo = enumerateV4l2Camera("/dev/null");
  ASSERT_EQ(notVideo.problems.size(), 1u);
  EXPECT_EQ(notVideo.problems[0].error.rfind("not a V4L2 device", 0), 0u)
      << notVideo.problems[0].error;
}

TEST(V4l2EnumerationTest, ListsOnlyNumberedVideoNodesInNumberOrder) {
  test::TempDir dir;
  for (const char* name : {"video10", "video2", "video", "videox", "media0", "video0"}) {
    std::ofstream(dir.path() / name) << "";
  }
  auto nodes = listVideoNodes(dir.path());
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(nodes[0], (dir.path() / "video0").string());
  EXPECT_EQ(nodes[1], (dir.path() / "video2").string());
  EXPECT_EQ(nodes[2], (dir.path() / "video10").string());
}

}  // namespace
}  // namespace oxelo
