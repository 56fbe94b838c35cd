#include "wire/HandshakePackets.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/TestBytes.h"

namespace oxelo {
namespace {

using test::cat;
using test::hex;
using test::repeat;

// 640x480@24, portrait 5, quality 0, encoder 1, audio 0, as the host sends it.
const Bytes kVideoSettingsFromHost =
    hex("88 00 00 00 | 13 00 00 00 | 80 02 00 00 | e0 01 00 00 | 18 00 00 00 |"
        "05 00 00 00 | 00 00 00 00 | 01 00 00 00 | 00 00 00 00");

TEST(HandshakePacketsTest, HelloFormsMatchTheTables) {
  EXPECT_EQ(handshake::helloLong(), hex("88 00 00 00 | 10 00 00 00 | 20 00 00 00 | 00 00 00 00"));
  EXPECT_EQ(handshake::helloShort(), hex("88 10 20 00"));
}

TEST(HandshakePacketsTest, SettingsAnswerIs48BytesWithPortraitAsZeroOrOne) {
  handshake::VideoSettings s{1920, 1080, 30, 7, 2, 1, 2};
  const Bytes expected = cat({hex("88 00 00 00 | 13 00 00 00"),                // type, command
                              hex("80 07 00 00 | 38 04 00 00 | 1e 00 00 00"),  // 1920 x 1080 @ 30
                              hex("01 00 00 00"),                              // portrait 7 -> 1
                              hex("02 00 00 00 | 01 00 00 00 | 02 00 00 00"),  // quality, encoder,
                                                                               // audio
                              repeat("00", 12)});                              // reserved
  EXPECT_EQ(handshake::settingsAnswer(s), expected);
  auto back = handshake::readSettingsAnswer(expected.data(), expected.size());
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, (handshake::VideoSettings{1920, 1080, 30, 1, 2, 1, 2}));
}

TEST(HandshakePacketsTest, HostPacketsFromTheHostSide) {
  const Bytes desk = cat({hex("88 00 00 00 | 10 00 00 00 | 09 17 00 00"),  // port 5897
                          hex("44 65 73 6b"), repeat("00", 64)});          // "Desk", zeros
  EXPECT_EQ(handshake::hostInfo(5897, "Desk"), desk);
  EXPECT_EQ(handshake::start(), cat({hex("88 00 00 00 | 11 00 00 00"), repeat("00", 12)}));
  EXPECT_EQ(handshake::videoSettings({640, 480, 24, 5, 0, 1, 0}), kVideoSettingsFromHost);

  // A name too long for the field is cut so that its terminator still fits.
  const Bytes cut =
      cat({hex("88 00 00 00 | 10 00 00 00 | 01 00 00 00"), repeat("78", 67), hex("00")});
  EXPECT_EQ(handshake::hostInfo(1, std::string(100, 'x')), cut);

  EXPECT_EQ(handshake::hostPacketSize(16), 80u);
  EXPECT_EQ(handshake::hostPacketSize(17), 20u);
  EXPECT_EQ(handshake::hostPacketSize(19), 36u);
  EXPECT_EQ(handshake::hostPacketSize(18), 0u);
}

TEST(HandshakePacketsTest, PhoneReadsWhatTheHostSends) {
  const Bytes desk = cat({hex("88 00 00 00 | 10 00 00 00 | 09 17 00 00 | 44 65 73 6b"),
                          repeat("00", 64), hex("ff ff")});  // bytes behind are not looked at
  auto info = handshake::readHostInfo(desk.data(), desk.size());
  ASSERT_TRUE(info);
  EXPECT_EQ(info->port, 5897u);
  EXPECT_EQ(info->name, "Desk");

  // A name with no terminator ends with the field, not in the bytes behind it.
  const Bytes full =
      cat({hex("88 00 00 00 | 10 00 00 00 | 01 00 00 00"), repeat("41", 68), hex("42 42 00")});
  info = handshake::readHostInfo(full.data(), full.size());
  ASSERT_TRUE(info);
  EXPECT_EQ(info->name, std::string(68, 'A'));

  auto s =
      handshake::readVideoSettings(kVideoSettingsFromHost.data(), kVideoSettingsFromHost.size());
  ASSERT_TRUE(s);
  EXPECT_EQ(*s, (handshake::VideoSettings{640, 480, 24, 5, 0, 1, 0}));  // portrait kept as sent
}

// Each reader refuses bytes that are short by one or that are another packet.
using Reader = std::function<bool(const Bytes&)>;
struct Refusal {
  const char* name;
  Reader read;
  Bytes bytes;
};
void PrintTo(const Refusal& r, std::ostream* os) { *os << r.name; }
class HandshakeRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(HandshakeRefusalTest, GivesNothing) { EXPECT_FALSE(GetParam().read(GetParam().bytes)); }

template <auto read>
bool reads(const Bytes& b) {
  return read(b.data(), b.size()).has_value();
}
const Reader kHostInfo = reads<handshake::readHostInfo>;
const Reader kVideoSettings = reads<handshake::readVideoSettings>;
const Reader kSettingsAnswer = reads<handshake::readSettingsAnswer>;

// `head` (type and command words) and `zeros` bytes of zeros.
Bytes packet(const char* head, size_t zeros) { return cat({hex(head), repeat("00", zeros)}); }
const Bytes kSettingsShort(kVideoSettingsFromHost.begin(), kVideoSettingsFromHost.end() - 1);

INSTANTIATE_TEST_SUITE_P(
    Readers, HandshakeRefusalTest,
    testing::Values(
        Refusal{"Empty", kHostInfo, {}},
        Refusal{"HostInfoShortByOne", kHostInfo, packet("88000000 10000000 09170000", 67)},
        Refusal{"HostInfoWithTheTypeOfAVideoPacket", kHostInfo, packet("09000000 10000000", 72)},
        Refusal{"HostInfoWithTypeInTheLowByteOnly", kHostInfo, packet("88000001 10000000", 72)},
        Refusal{"StartIsNotHostInfo", kHostInfo, packet("88000000 11000000", 72)},
        Refusal{"VideoSettingsShortByOne", kVideoSettings, kSettingsShort},
        Refusal{"VideoSettingsOfAnotherCommand", kVideoSettings, packet("88000000 10000000", 28)},
        Refusal{"SettingsAnswerIsLongerThanHostSettings", kSettingsAnswer, kVideoSettingsFromHost},
        Refusal{"SettingsAnswerShortByOne", kSettingsAnswer, packet("88000000 13000000", 39)}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
