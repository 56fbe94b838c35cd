#include "wire/InfoPacket.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"

namespace oxelo::wire {
namespace {

using test::deskInfoFields;
using test::deskInfoPacket;
using test::hex;
using test::place;
using test::repeat;

TEST(InfoPacketTest, LaysOutEveryFieldAtItsOffset) {
  EXPECT_EQ(buildInfoPacket(deskInfoFields()), deskInfoPacket());
}

TEST(InfoPacketTest, AudioWordsAreZeroWithoutAudioAndTheRestStays) {
  InfoPacketFields f = deskInfoFields();
  f.hasAudio = false;
  f.hevcDecodeSupported = false;
  Bytes expected = deskInfoPacket();
  place(expected, 28, "00 00 00 00 | 00 00 00 00 | 00 00 00 00");
  place(expected, 408, "00 00 00 00");
  EXPECT_EQ(buildInfoPacket(f), expected);
}

TEST(InfoPacketTest, TablesHoldFifteenEntriesAtMost) {
  InfoPacketFields f = deskInfoFields();
  f.videoSizes.assign(16, {1, 2, 30});
  f.videoFrameRates.assign(16, "5");
  Bytes expected = deskInfoPacket();
  std::copy_n(repeat("01 00 02 00", 15).begin(), 60, expected.begin() + 288);
  std::copy_n(repeat("05 00 00 00", 15).begin(), 60, expected.begin() + 348);
  EXPECT_EQ(buildInfoPacket(f), expected);
}

struct NameCase {
  const char* name;
  std::u16string deviceName;
  Bytes field;  // the bytes written from offset 44; the rest of the 240 are 0
};

class InfoPacketNameTest : public testing::TestWithParam<NameCase> {};

TEST_P(InfoPacketNameTest, WritesTheNameAsUtf16LittleEndianWithTheCutRules) {
  InfoPacketFields f = deskInfoFields();
  f.deviceName = GetParam().deviceName;
  Bytes expected = deskInfoPacket();
  std::fill_n(expected.begin() + 44, 240, 0);
  std::copy(GetParam().field.begin(), GetParam().field.end(), expected.begin() + 44);
  EXPECT_EQ(buildInfoPacket(f), expected);
}

std::u16string units(char16_t c, size_t n) { return std::u16string(n, c); }

INSTANTIATE_TEST_SUITE_P(
    Names, InfoPacketNameTest,
    testing::Values(NameCase{"Empty", u"", {}},
                    NameCase{"NonAscii", u"Caf\u00e9 \U0001F4F7",
                             hex("43 00 61 00 66 00 E9 00 20 00 3D D8 F7 DC")},
                    NameCase{"OneHundredNineteenKeptWhole", units(u'A', 119), repeat("41 00", 119)},
                    NameCase{"OneHundredTwentyCutTo118", units(u'B', 120), repeat("42 00", 118)},
                    NameCase{"LongCutTo118", units(u'C', 300), repeat("43 00", 118)},
                    NameCase{"CutThatWouldSplitAPairDropsItsFirstHalf",
                             units(u'a', 117) + u"\U0001F4F7b", repeat("61 00", 117)},
                    NameCase{"PairJustBeforeTheCutStays", units(u'a', 116) + u"\U0001F4F7bc",
                             test::cat({repeat("61 00", 116), hex("3D D8 F7 DC")})}),
    [](const auto& info) { return std::string(info.param.name); });

struct Utf8Case {
  const char* name;
  std::string utf8;
  std::u16string utf16;
};

class Utf8Test : public testing::TestWithParam<Utf8Case> {};

TEST_P(Utf8Test, ConvertsTheHostNameToUtf16) {
  EXPECT_EQ(utf16FromUtf8(GetParam().utf8), GetParam().utf16);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Utf8Test,
    testing::Values(Utf8Case{"Ascii", "Desk", u"Desk"},
                    Utf8Case{"TwoAndFourByteSequences", "Caf\xC3\xA9 \xF0\x9F\x93\xB7",
                             u"Caf\u00e9 \U0001F4F7"},
                    Utf8Case{"ThreeByteSequence", "\xE5\xAE\xA2", u"\u5BA2"},
                    Utf8Case{"BrokenSequenceBecomesReplacement", "\xC3(", u"\uFFFD("},
                    Utf8Case{"CutSequenceAtTheEnd", "ab\xE5\xAE", u"ab\uFFFD\uFFFD"},
                    Utf8Case{"OverlongFormRefused", "\xC0\xAF", u"\uFFFD\uFFFD"},
                    Utf8Case{"EncodedSurrogateRefused", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(FrameRateWordTest, TakesTheLeadingInteger) {
  const std::pair<const char*, int32_t> cases[] = {{"60", 60}, {"29.97", 29}, {" 25", 25},
                                                   {"abc", 0}, {"", 0},       {"-5", -5}};
  for (auto [text, word] : cases) EXPECT_EQ(frameRateWord(text), word) << '"' << text << '"';
  EXPECT_EQ(frameRateWord("99999999999"), INT32_MAX);
}

}  // namespace
}  // namespace oxelo::wire
