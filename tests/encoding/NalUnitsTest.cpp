#include "encoding/NalUnits.h"

#include <gtest/gtest.h>

namespace oxelo {
namespace {

using Bytes = std::vector<uint8_t>;

struct RewriteCase {
  const char* name;
  VideoCodec codec;
  Bytes annexB;
  Bytes data;
  Bytes vps, sps, pps;
};

class RewriteAccessUnitTest : public testing::TestWithParam<RewriteCase> {};

TEST_P(RewriteAccessUnitTest, LengthPrefixesUnitsAndTakesOutParameterSets) {
  const auto& c = GetParam();
  auto unit = rewriteAccessUnit(c.codec, c.annexB);
  EXPECT_EQ(unit.data, c.data);
  EXPECT_EQ(unit.parameterSets.vps, c.vps);
  EXPECT_EQ(unit.parameterSets.sps, c.sps);
  EXPECT_EQ(unit.parameterSets.pps, c.pps);
}

INSTANTIATE_TEST_SUITE_P(
    Units, RewriteAccessUnitTest,
    testing::Values(
        RewriteCase{"H264KeyFrameWithSetsDelimiterAndSei",
                    VideoCodec::h264,
                    {0, 0, 0, 1,    0x09, 0xf0,                     // delimiter
                     0, 0, 0, 1,    0x67, 0x4d, 0x40, 0x1e,         // SPS
                     0, 0, 1, 0x68, 0xee, 0x3c, 0x80,               // PPS, 3-byte start code
                     0, 0, 1, 0x06, 0x05, 0x01, 0x80,               // SEI
                     0, 0, 0, 1,    0x65, 0x88, 0x84, 0x00, 0x21},  // IDR slice
                    {0, 0, 0, 4, 0x06, 0x05, 0x01, 0x80, 0, 0, 0, 5, 0x65, 0x88, 0x84, 0x00, 0x21},
                    {},
                    {0x67, 0x4d, 0x40, 0x1e},
                    {0x68, 0xee, 0x3c, 0x80}},
        RewriteCase{"H264SliceWithZeroBytesBeforeNextStartCode",
                    VideoCodec::h264,
                    {0, 0, 0, 1, 0x41, 0x9a, 0x02, 0, 0, 0, 0, 1, 0x41, 0x9b},
                    {0, 0, 0, 3, 0x41, 0x9a, 0x02, 0, 0, 0, 2, 0x41, 0x9b},
                    {},
                    {},
                    {}},
        RewriteCase{
            "H264KeepsFirstOfRepeatedSets",
            VideoCodec::h264,
            {0, 0, 1, 0x67, 0x01, 0, 0, 1, 0x67, 0x02, 0, 0, 1, 0x68, 0x03, 0, 0, 1, 0x65, 0x04},
            {0, 0, 0, 2, 0x65, 0x04},
            {},
            {0x67, 0x01},
            {0x68, 0x03}},
        RewriteCase{"HevcKeyFrameWithThreeSets",
                    VideoCodec::hevc,
                    {0, 0, 0, 1, 0x46, 0x01, 0x50,         // delimiter (35)
                     0, 0, 0, 1, 0x40, 0x01, 0x0c,         // VPS (32)
                     0, 0, 0, 1, 0x42, 0x01, 0x01,         // SPS (33)
                     0, 0, 0, 1, 0x44, 0x01, 0xc1,         // PPS (34)
                     0, 0, 0, 1, 0x4e, 0x01, 0x05,         // prefix SEI (39)
                     0, 0, 0, 1, 0x26, 0x01, 0xaf, 0x12},  // IDR_W_RADL (19)
                    {0, 0, 0, 3, 0x4e, 0x01, 0x05, 0, 0, 0, 4, 0x26, 0x01, 0xaf, 0x12},
                    {0x40, 0x01, 0x0c},
                    {0x42, 0x01, 0x01},
                    {0x44, 0x01, 0xc1}},
        RewriteCase{"HevcTrailingPicture",
                    VideoCodec::hevc,
                    {0, 0, 1, 0x02, 0x01, 0xd0, 0x09},
                    {0, 0, 0, 4, 0x02, 0x01, 0xd0, 0x09},
                    {},
                    {},
                    {}},
        RewriteCase{"BytesBeforeFirstStartCodeIgnored",
                    VideoCodec::h264,
                    {0xff, 0x00, 0, 0, 1, 0x41, 0x01},
                    {0, 0, 0, 2, 0x41, 0x01},
                    {},
                    {},
                    {}},
        RewriteCase{
            "NoStartCodeGivesNothing", VideoCodec::h264, {0x41, 0x01, 0x02}, {}, {}, {}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

// The table above finds each codec's sets; a byte that names a set in one
// codec is no set in the other.
TEST(NalKindTest, ReadsTheTypeFieldOfEachCodec) {
  EXPECT_EQ(nalKind(VideoCodec::h264, Bytes{0x40, 0x01}), NalKind::other);  // HEVC VPS
  EXPECT_EQ(nalKind(VideoCodec::hevc, Bytes{0x67}), NalKind::other);        // H.264 SPS: type 51
  EXPECT_EQ(nalKind(VideoCodec::h264, Bytes{0x65}), NalKind::other);
  EXPECT_EQ(nalKind(VideoCodec::hevc, Bytes{}), NalKind::other);
}

}  // namespace
}  // namespace oxelo
