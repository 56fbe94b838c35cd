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

TEST(V4l2EnumerationTest, ListsOnlyNumberedVideoNodesInNumberOrder) {
  test::TempDir dir;
  for (const char* name : {"video10", "video2", "video", "videox", "media0", "video0"})
    std::ofstream(dir.path() / name) << "";
  auto node = [&](const char* name) { return (dir.path() / name).string(); };
  EXPECT_EQ(listVideoNodes(dir.path()),
            (std::vector<std::string>{node("video0"), node("video2"), node("video10")}));
  // A folder without nodes finds nothing, and no problem either.
  std::filesystem::create_directory(dir.path() / "empty");
  auto found = enumerateV4l2Cameras(dir.path() / "empty");
  EXPECT_TRUE(found.devices.empty());
  EXPECT_TRUE(found.problems.empty());
}

}  // namespace
}  // namespace oxelo
