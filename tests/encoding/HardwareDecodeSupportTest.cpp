#include "encoding/HardwareDecodeSupport.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace oxelo {
namespace {

TEST(HardwareDecodeSupportTest, NoRenderNodeMeansNoHardwareDecode) {
  EXPECT_FALSE(isHevcHardwareDecodeSupportedOn("/nonexistent/renderD128"));
}

TEST(HardwareDecodeSupportTest, AFileThatIsNoRenderNodeMeansNoHardwareDecode) {
  EXPECT_FALSE(isHevcHardwareDecodeSupportedOn("/dev/null"));
}

TEST(HardwareDecodeSupportTest, WithoutAnyRenderNodeTheDeviceAnswerIsFalse) {
  if (std::filesystem::exists("/dev/dri/renderD128"))
    GTEST_SKIP() << "this machine has a render node; its answer depends on its driver";
  EXPECT_FALSE(isHevcHardwareDecodeSupported());
}

}  // namespace
}  // namespace oxelo
