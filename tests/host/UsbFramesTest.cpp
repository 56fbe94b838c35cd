#include "tools/host/UsbFrames.h"

#include <gtest/gtest.h>

#include "tests/host/HostTestBytes.h"

namespace oxelo::host {
namespace {

using namespace testbytes;

// Version 1, type 88, tag 8813 (0x226d), 4 bytes of payload, big-endian.
const Bytes kFrame88 = hex("00000001 00000058 0000226d 00000004 deadbeef");
// Version 1, type 9, tag 0x01020304, no payload.
const Bytes kEmptyFrame = hex("00000001 00000009 01020304 00000000");

TEST(UsbFramesTest, WritesTheBigEndianHeaderBeforeThePayload) {
  EXPECT_EQ(usbFrameBytes(88, 8813, hex("deadbeef")), kFrame88);
  EXPECT_EQ(usbFrameBytes(9, 0x01020304, {}), kEmptyFrame);
}

class UsbFrameCutTest : public testing::TestWithParam<size_t> {};

TEST_P(UsbFrameCutTest, ReadsFramesCutAnywhere) {
  const Bytes stream = cat({kFrame88, kEmptyFrame});
  UsbFrameReader reader;
  std::vector<UsbFrame> frames;
  const size_t cut = GetParam();
  ASSERT_TRUE(reader.feed({stream.data(), cut}, frames));
  // An unfinished frame is held: the frames end at 20 and 36.
  EXPECT_EQ(frames.size(), size_t(cut >= 20) + size_t(cut >= 36));
  EXPECT_EQ(reader.midFrame(), cut != 0 && cut != 20 && cut != 36);
  ASSERT_TRUE(reader.feed({stream.data() + cut, stream.size() - cut}, frames));
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(std::tuple(frames[0].type, frames[0].tag, frames[0].payload),
            std::tuple(88u, 8813u, hex("deadbeef")));
  EXPECT_EQ(std::tuple(frames[1].type, frames[1].tag, frames[1].payload),
            std::tuple(9u, 0x01020304u, Bytes{}));
  EXPECT_FALSE(reader.midFrame());
}

// Inside the first header, inside its payload, between the frames, inside the
// second header, at the end.
INSTANTIATE_TEST_SUITE_P(Cuts, UsbFrameCutTest, testing::Values(0, 3, 15, 18, 20, 27, 36));

TEST(UsbFramesTest, AnotherVersionBreaksTheStream) {
  UsbFrameReader reader;
  std::vector<UsbFrame> frames;
  EXPECT_FALSE(reader.feed(hex("00000002 00000058 0000226d 00000000"), frames));
  EXPECT_TRUE(frames.empty());
  EXPECT_NE(reader.error().find("version 2"), std::string::npos);
  // Nothing more is read once the stream is broken.
  EXPECT_FALSE(reader.feed(kFrame88, frames));
  EXPECT_TRUE(frames.empty());
}

}  // namespace
}  // namespace oxelo::host
