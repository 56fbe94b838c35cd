#include "wire/TailBlocks.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestBytes.h"
#include "tests/support/WireVectors.h"

namespace oxelo::wire {
namespace {

TEST(TailBlockTest, StatusAndCapabilityBlocksOfTheHandWrittenValues) {
  EXPECT_EQ(buildStatusBlock(PlainStatusSource(test::statusValues())), test::statusBlock());
  EXPECT_EQ(buildCapabilityBlock(PlainStatusSource(test::frontCameraValues())),
            test::frontCapabilityBlock());
  EXPECT_EQ(buildCapabilityBlock(PlainStatusSource(test::telephotoCameraValues())),
            test::telephotoCapabilityBlock());
}

TEST(TailBlockTest, BatteryWithoutChargingAndNoTorchOnTheCamera) {
  StreamStatusValues v = test::statusValues();
  v.batteryState = 1;
  v.torchAvailable = false;
  Bytes expected = test::statusBlock();
  test::place(expected, 12, "05 0F 00 02");
  test::place(expected, 52, "4B 00 00 00");
  EXPECT_EQ(buildStatusBlock(PlainStatusSource(v)), expected);
}

struct ChoiceCase {
  const char* name;
  bool deviceChanged;
  int64_t sendStatus;
  TailChoice expected;
};

class TailChoiceTest : public testing::TestWithParam<ChoiceCase> {};
using enum TailBlock;

TEST_P(TailChoiceTest, PicksTheBlockAndLeavesTheFlags) {
  EXPECT_EQ(chooseTailBlock(GetParam().deviceChanged, GetParam().sendStatus), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Choices, TailChoiceTest,
    testing::Values(ChoiceCase{"ChangedDeviceTakesCapability", true, 0, {Capability, false, 0}},
                    ChoiceCase{"CapabilityWinsAndOneShotWaits", true, 2, {Capability, false, 2}},
                    ChoiceCase{"CapabilityWinsOverStanding", true, 1, {Capability, false, 1}},
                    ChoiceCase{"NoRequestNoBlock", false, 0, {None, false, 0}},
                    ChoiceCase{"OneShotRequestIsUsedUp", false, 2, {Status, false, 0}},
                    ChoiceCase{"StandingRequestStays", false, 1, {Status, false, 1}},
                    ChoiceCase{"ThreeActsAsStanding", false, 3, {Status, false, 3}},
                    ChoiceCase{"NegativeActsAsStanding", false, -1, {Status, false, -1}}),
    [](const auto& info) { return std::string(info.param.name); });

// The front camera is 0 whatever its type; telephoto is 7 (not 2) and
// dual 4 where the platform knows the newer kinds; other back cameras are 7,
// or 3 on an older platform.
TEST(CameraKindTest, NumbersTheActiveCamera) {
  using namespace device_type;
  const std::tuple<int64_t, const char*, bool, uint32_t> cases[] = {
      {2, kWideAngle, true, 0}, {2, kTelephoto, false, 0}, {1, kUltraWide, true, 3},
      {1, kDual, true, 4},      {1, kDual, false, 3},      {1, kDualWide, true, 5},
      {1, kTriple, true, 6},    {1, kTelephoto, true, 7},  {1, kTelephoto, false, 2},
      {1, kWideAngle, true, 7}, {1, kWideAngle, false, 3}, {1, "usb-camera", true, 7}};
  for (auto [position, type, newer, kind] : cases)
    EXPECT_EQ(cameraKind(position, type, newer), kind) << position << " " << type << " " << newer;
}

struct FlagsCase {
  const char* name;
  void (*change)(StreamStatusValues&);
  uint32_t word;
};

// Each case starts from a session with everything off and torch 0.
class SessionFlagsTest : public testing::TestWithParam<FlagsCase> {};

TEST_P(SessionFlagsTest, PacksTheSessionState) {
  StreamStatusValues v;
  GetParam().change(v);
  EXPECT_EQ(sessionFlagsWord(PlainStatusSource(v)), GetParam().word);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, SessionFlagsTest,
    testing::Values(
        FlagsCase{"Nothing", [](StreamStatusValues&) {}, 0x00000000},
        FlagsCase{"MethodWithoutBeautyIsOff", [](StreamStatusValues& v) { v.beautyMethod = 1; }, 0},
        FlagsCase{"BeautyMethodOne",
                  [](StreamStatusValues& v) { v.beautyFace = true, v.beautyMethod = 1; }, 0x1},
        FlagsCase{"BeautyOtherMethod",
                  [](StreamStatusValues& v) { v.beautyFace = true, v.beautyMethod = 0; }, 0x2},
        FlagsCase{"Mirror", [](StreamStatusValues& v) { v.mirror = true; }, 0x4},
        FlagsCase{"Dim", [](StreamStatusValues& v) { v.dim = true; }, 0x10},
        FlagsCase{"TorchFive", [](StreamStatusValues& v) { v.torch = 5; }, 0x500},
        FlagsCase{"TorchLowFourBits", [](StreamStatusValues& v) { v.torch = 18; }, 0x200},
        FlagsCase{"NoTorchIsFifteen",
                  [](StreamStatusValues& v) { v.torch = 2, v.torchAvailable = false; }, 0xF00},
        FlagsCase{"LockState", [](StreamStatusValues& v) { v.aeafLock = 1; }, 0x01000000},
        FlagsCase{"LockLowFourBits", [](StreamStatusValues& v) { v.aeafLock = 0x15; }, 0x05000000}),
    [](const auto& info) { return std::string(info.param.name); });

// Each step starts from all three controls automatic, unlocked, in mode 2.
TEST(ControlFlagsTest, PacksManualLockedCustomAndMode) {
  StreamStatusValues v;
  auto words = [&v] {
    PlainStatusSource s(v);
    std::vector<uint32_t> out{exposureFlagsWord(s), whiteBalanceFlagsWord(s), focusFlagsWord(s)};
    v = {};
    return out;
  };
  using W = std::vector<uint32_t>;
  EXPECT_EQ(words(), (W{0x200, 0x200, 0x200}));
  v.autoExposure = v.autoWhiteBalance = v.autoFocus = false;
  EXPECT_EQ(words(), (W{0x201, 0x201, 0x201})) << "manual";
  v.aeLock = v.awbLock = v.afLock = true;
  v.exposureMode = v.whiteBalanceMode = v.focusMode = 0;
  EXPECT_EQ(words(), (W{0x002, 0x002, 0x002})) << "locked in mode 0";
  v.exposureMode = v.whiteBalanceMode = v.focusMode = 3;
  EXPECT_EQ(words(), (W{0x304, 0x300, 0x300})) << "custom marks only the exposure";
}

struct ZoomCase {
  const char* name;
  const char* type;
  double maxZoom;
  bool newer;
  uint8_t capabilities;  // byte 84
  uint8_t maxWord;       // byte 80
};

class ZoomCapabilityTest : public testing::TestWithParam<ZoomCase> {};

TEST_P(ZoomCapabilityTest, MarksZoomAndTheUltraWidePart) {
  StreamStatusValues v = test::frontCameraValues();
  v.captureDevicePosition = 1;
  v.captureDeviceType = GetParam().type;
  v.maxZoomScale = GetParam().maxZoom;
  v.newerCameraKinds = GetParam().newer;
  Bytes block = buildCapabilityBlock(PlainStatusSource(v));
  ASSERT_EQ(block.size(), 88u);
  EXPECT_EQ(block[84], GetParam().capabilities);
  EXPECT_EQ(block[80], GetParam().maxWord);
}

INSTANTIATE_TEST_SUITE_P(
    Zoom, ZoomCapabilityTest,
    testing::Values(ZoomCase{"NoZoom", device_type::kWideAngle, 1.0, true, 0x00, 0x0A},
                    ZoomCase{"Zoom", device_type::kWideAngle, 1.5, true, 0x01, 0x0F},
                    ZoomCase{"Triple", device_type::kTriple, 20.0, true, 0x03, 0xC8},
                    ZoomCase{"DualWide", device_type::kDualWide, 10.0, true, 0x03, 0x64},
                    ZoomCase{"TripleOnOlder", device_type::kTriple, 10.0, false, 0x01, 0x64}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TailBlockTest, ZoomRoundsHalvesAwayFromZero) {
  StreamStatusValues v;
  v.zoomScale = 1.25;  // exactly 12.5
  EXPECT_EQ(buildStatusBlock(PlainStatusSource(v))[48], 0x0D);
  v.zoomScale = 1.24;
  EXPECT_EQ(buildStatusBlock(PlainStatusSource(v))[48], 0x0C);
  v.zoomScale = -0.75;  // exactly -7.5
  Bytes block = buildStatusBlock(PlainStatusSource(v));
  EXPECT_EQ(Bytes(block.begin() + 48, block.begin() + 52), test::hex("F8 FF FF FF"));
}

}  // namespace
}  // namespace oxelo::wire
