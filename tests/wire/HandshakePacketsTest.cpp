#include <gtest/gtest.h>

#include "wire/HandshakePackets.h"

namespace oxelo {
namespace {

using handshake::Bytes;

TEST(HandshakePacketsTest, HelloFormsMatchTheTables) {
  EXPECT_EQ(handshake::helloLong(),
            (Bytes{0x88, 0, 0, 0, 0x10, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(handshake::helloShort(), (Bytes{0x88, 0x10, 0x20, 0x00}));
}

TEST(HandshakePacketsTest, SettingsAnswerIs48BytesWithPortraitAsZeroOrOne) {
  handshake::VideoSettings s{1920, 1080, 30, 7, 2, 1, 2};
  Bytes expected = {0x88, 0,    0, 0, 0x13, 0,    0, 0,                // type, command
                    0x80, 0x07, 0, 0, 0x38, 0x04, 0, 0, 30, 0, 0, 0,   // 1920 x 1080 @ 30
                    1,    0,    0, 0,                                  // portrait 7 -> 1
                    2,    0,    0, 0, 1,    0,    0, 0, 2,  0, 0, 0,   // quality, encoder, audio
                    0,    0,    0, 0, 0,    0,    0, 0, 0,  0, 0, 0};  // reserved
  EXPECT_EQ(handshake::settingsAnswer(s), expected);
  auto back = handshake::readSettingsAnswer(expected.data(), expected.size());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->width, 1920u);
  EXPECT_EQ(back->portrait, 1u);
  EXPECT_FALSE(handshake::readSettingsAnswer(expected.data(), 47));
}

TEST(HandshakePacketsTest, HostPacketsFromTheHostSide) {
  Bytes info = handshake::hostInfo(5897, "Desk");
  ASSERT_EQ(info.size(), 80u);
  EXPECT_EQ(Bytes(info.begin(), info.begin() + 16),
            (Bytes{0x88, 0, 0, 0, 0x10, 0, 0, 0, 0x09, 0x17, 0, 0, 'D', 'e', 's', 'k'}));
  EXPECT_EQ(info[16], 0);
  auto read = handshake::readHostInfo(info.data(), info.size());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->port, 5897u);
  EXPECT_EQ(read->name, "Desk");
  // A name too long for the field is cut so that its terminator still fits.
  auto longName = handshake::hostInfo(1, std::string(100, 'x'));
  EXPECT_EQ(handshake::readHostInfo(longName.data(), longName.size())->name, std::string(67, 'x'));

  EXPECT_EQ(handshake::start(),
            (Bytes{0x88, 0, 0, 0, 0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  Bytes vs = handshake::videoSettings({640, 480, 24, 1, 0, 1, 0});
  EXPECT_EQ(vs, (Bytes{0x88, 0, 0, 0, 0x13, 0, 0, 0, 0x80, 0x02, 0, 0, 0xe0, 0x01, 0, 0, 24, 0,
                       0,    0, 1, 0, 0,    0, 0, 0, 0,    0,    1, 0, 0,    0,    0, 0, 0,  0}));
  EXPECT_EQ(handshake::hostPacketSize(16), 80u);
  EXPECT_EQ(handshake::hostPacketSize(17), 20u);
  EXPECT_EQ(handshake::hostPacketSize(19), 36u);
  EXPECT_EQ(handshake::hostPacketSize(18), 0u);
}

}  // namespace
}  // namespace oxelo
