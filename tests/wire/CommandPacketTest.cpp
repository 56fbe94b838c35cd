#include "wire/CommandPackets.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"

namespace oxelo::wire {
namespace {

using test::hex;

TEST(CommandPacketTest, RequestsToTheHostAreTwelveBytes) {
  EXPECT_EQ(buildCommandPacket(kCommandRemoteRecord, kRemoteRecordStart),
            test::recordStartCommand());
  EXPECT_EQ(buildCommandPacket(kCommandRemoteRecord, kRemoteRecordStop),
            hex("88 00 00 00 | 11 00 00 00 | 04 00 00 00"));
  EXPECT_EQ(buildCommandPacket(kCommandRemoteSnapshot, 0), test::snapshotCommand());
}

TEST(CommandPacketTest, StopNoticeHasNoParameterWord) {
  EXPECT_EQ(buildStopNotice(), test::stopNotice());
}

struct HostBuildCase {
  const char* name;
  uint32_t command;
  int32_t p1, p2;
  Bytes bytes;
};

class HostCommandBuildTest : public testing::TestWithParam<HostBuildCase> {};

TEST_P(HostCommandBuildTest, CarriesAsManyWordsAsTheCommandReads) {
  const auto& c = GetParam();
  EXPECT_EQ(buildHostCommandPacket(c.command, c.p1, c.p2), c.bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, HostCommandBuildTest,
    testing::Values(
        HostBuildCase{"SetIso", 18, 2, 400, hex("88000000 12000000 02000000 90010000")},
        HostBuildCase{"FocusPoint", 23, 255, 0, hex("88000000 17000000 FF000000 00000000")},
        HostBuildCase{"ZoomInHasNone", 21, 9, 9, hex("88000000 15000000")},
        HostBuildCase{"StatusRequestHasOne", 33, 2, 9, hex("88000000 21000000 02000000")},
        HostBuildCase{"NegativeBias", 18, 3, -15, hex("88000000 12000000 03000000 F1FFFFFF")},
        HostBuildCase{"DeletePreset", 44, 7, 0, hex("88000000 2C000000 07000000")}),
    [](const auto& info) { return std::string(info.param.name); });

struct HostParseCase {
  const char* name;
  Bytes bytes;
  std::optional<WireError> error;
  uint32_t command = 0;  // what is read when there is no error
  int32_t p1 = 0, p2 = 0;
};

class HostCommandParseTest : public testing::TestWithParam<HostParseCase> {};
using enum WireError;
constexpr std::optional<WireError> kRead;  // no error

TEST_P(HostCommandParseTest, ReadsTheStartOrRefusesIt) {
  const auto& c = GetParam();
  auto parsed = parseHostCommand(c.bytes);
  ASSERT_EQ(parsed.ok(), !c.error.has_value());
  if (c.error) {
    EXPECT_EQ(parsed.error(), *c.error);
    return;
  }
  EXPECT_EQ(parsed->command, c.command);
  EXPECT_EQ(parsed->p1, c.p1);
  EXPECT_EQ(parsed->p2, c.p2);
}

INSTANTIATE_TEST_SUITE_P(
    Records, HostCommandParseTest,
    testing::Values(
        HostParseCase{"ZoomIn", hex("88 00 00 00 15 00 00 00"), kRead, 21, 0, 0},
        HostParseCase{"SetIso", hex("88 00 00 00 12 00 00 00 02 00 00 00 90 01 00 00"), kRead, 18,
                      2, 400},
        HostParseCase{"FocusPointReadsBothAsSigned",
                      hex("88 00 00 00 17 00 00 00 FF FF FF FF 80 00 00 00"), kRead, 23, -1, 128},
        HostParseCase{"StatusRequest", hex("88 00 00 00 21 00 00 00 01 00 00 00"), kRead, 33, 1, 0},
        HostParseCase{"UnknownCommandNeedsNoParameter", hex("88 00 00 00 63 00 00 00"), kRead, 99,
                      0, 0},
        HostParseCase{"SecondRecordInTheSameReadIsNotSeen",
                      hex("88 00 00 00 15 00 00 00 | 88 00 00 00 16 00 00 00"), kRead, 21, 0, 0},
        HostParseCase{"SetIsoWithoutValue", hex("88 00 00 00 12 00 00 00 02 00 00 00"), Truncated},
        HostParseCase{"StatusRequestWithoutParameter", hex("88 00 00 00 21 00 00 00"), Truncated},
        HostParseCase{"FirstWordOnly", hex("88 00 00 00"), Truncated},
        HostParseCase{"Empty", Bytes(), Truncated},
        HostParseCase{"NotACommand", hex("09 00 00 00 15 00 00 00"), WrongType},
        HostParseCase{"CommandNumberInBigEndian", hex("00 00 00 88 00 00 00 15"), WrongType}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo::wire
