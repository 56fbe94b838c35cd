#include "encoding/NalUnits.h"

#include <gtest/gtest.h>

#include "tests/support/TestBytes.h"

namespace oxelo {
namespace {

using Bytes = std::vector<uint8_t>;
using test::hex;
const Bytes kNone;

struct RewriteCase {
  const char* name;
  VideoCodec codec;
  Bytes annexB, data, vps, sps, pps;
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

// H.264: delimiter, SPS, PPS and SEI (behind 3-byte start codes), IDR slice.
const Bytes kH264Key = hex(
    "00 00 00 01 09 f0 | 00 00 00 01 67 4d 40 1e | 00 00 01 68 ee 3c 80 | 00 00 01 06 05 01 80 |"
    "00 00 00 01 65 88 84 00 21");
// HEVC: delimiter (35), VPS (32), SPS (33), PPS (34), prefix SEI (39), IDR_W_RADL (19).
const Bytes kHevcKey = hex(
    "00 00 00 01 46 01 50 | 00 00 00 01 40 01 0c | 00 00 00 01 42 01 01 | 00 00 00 01 44 01 c1 |"
    "00 00 00 01 4e 01 05 | 00 00 00 01 26 01 af 12");

INSTANTIATE_TEST_SUITE_P(
    Units, RewriteAccessUnitTest,
    testing::Values(
        RewriteCase{"H264KeyFrameWithSetsDelimiterAndSei", VideoCodec::h264, kH264Key,
                    hex("00 00 00 04 06 05 01 80 | 00 00 00 05 65 88 84 00 21"), kNone,
                    hex("67 4d 40 1e"), hex("68 ee 3c 80")},
        RewriteCase{"H264SliceWithZeroBytesBeforeNextStartCode", VideoCodec::h264,
                    hex("00 00 00 01 41 9a 02 00 | 00 00 00 01 41 9b"),
                    hex("00 00 00 03 41 9a 02 | 00 00 00 02 41 9b"), kNone, kNone, kNone},
        RewriteCase{"H264KeepsFirstOfRepeatedSets", VideoCodec::h264,
                    hex("000001 67 01 | 000001 67 02 | 000001 68 03 | 000001 65 04"),
                    hex("00 00 00 02 65 04"), kNone, hex("67 01"), hex("68 03")},
        RewriteCase{"HevcKeyFrameWithThreeSets", VideoCodec::hevc, kHevcKey,
                    hex("00 00 00 03 4e 01 05 | 00 00 00 04 26 01 af 12"), hex("40 01 0c"),
                    hex("42 01 01"), hex("44 01 c1")},
        RewriteCase{"HevcTrailingPicture", VideoCodec::hevc, hex("00 00 01 02 01 d0 09"),
                    hex("00 00 00 04 02 01 d0 09"), kNone, kNone, kNone},
        RewriteCase{"BytesBeforeFirstStartCodeIgnored", VideoCodec::h264,
                    hex("ff 00 | 00 00 01 41 01"), hex("00 00 00 02 41 01"), kNone, kNone, kNone},
        RewriteCase{"NoStartCodeGivesNothing", VideoCodec::h264, hex("41 01 02"), kNone, kNone,
                    kNone, kNone}),
    [](const auto& info) { return std::string(info.param.name); });

// A byte that names a set in one codec is no set in the other.
TEST(NalKindTest, ReadsTheTypeFieldOfEachCodec) {
  EXPECT_EQ(nalKind(VideoCodec::h264, Bytes{0x40, 0x01}), NalKind::other);  // HEVC VPS
  EXPECT_EQ(nalKind(VideoCodec::hevc, Bytes{0x67}), NalKind::other);        // H.264 SPS: type 51
  EXPECT_EQ(nalKind(VideoCodec::h264, Bytes{0x65}), NalKind::other);
  EXPECT_EQ(nalKind(VideoCodec::hevc, kNone), NalKind::other);
}

}  // namespace
}  // namespace oxelo
