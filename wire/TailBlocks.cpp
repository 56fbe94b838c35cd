#include "wire/TailBlocks.h"

#include <algorithm>

#include "wire/WireConstants.h"

namespace oxelo::wire {
namespace {

constexpr int64_t kSendStatusOnce = 2;
constexpr int64_t kBeautyMethodOne = 1;
constexpr int64_t kExposureModeCustom = 3;
constexpr int64_t kModeAutoOnce = 1;  // locked after one automatic adjustment
constexpr int64_t kModeContinuousAuto = 2;
constexpr int64_t kPositionFront = 2;
constexpr int64_t kBatteryCharging = 2;
constexpr uint32_t kTorchUnavailable = 15;

constexpr int32_t kTemperatureMin = 2000;
constexpr int32_t kTemperatureMax = 8000;
constexpr int32_t kLensMin = 0;
constexpr int32_t kLensMax = 100;
constexpr uint32_t kBiasCapability = 1;
constexpr int32_t kZoomMin = 10;

constexpr uint32_t kSessionFlagsDefined = 0x0F000F17;
constexpr uint32_t kExposureFlagsDefined = 0x0000FF07;
constexpr uint32_t kOtherFlagsDefined = 0x0000FF03;

uint32_t bit(bool on, int n) { return on ? 1u << n : 0u; }

uint32_t controlFlags(bool automatic, bool locked, bool custom, int64_t mode) {
  return bit(!automatic, 0) | bit(locked, 1) | bit(custom, 2) | (uint32_t(mode) & 0xFF) << 8;
}

ControlFlags decodeControlFlags(uint32_t w) {
  return ControlFlags{(w & 1) != 0, (w & 2) != 0, (w & 4) != 0, (w >> 8) & 0xFF};
}

Bytes blockHead(size_t size, uint32_t kind, uint32_t bodySize) {
  Bytes out(size, 0);
  putU32LE(out, 0, kPacketTypeTail);
  putU32LE(out, 4, kind);
  putU32LE(out, 8, bodySize);
  return out;
}

bool hasUltraWidePart(const StreamStatusSource& s) {
  if (!s.newerCameraKinds()) return false;
  std::string type = s.captureDeviceType();
  return type == device_type::kTriple || type == device_type::kDualWide;
}

}  // namespace

TailChoice chooseTailBlock(bool deviceChanged, int64_t sendStatus) {
  if (deviceChanged) return {TailBlock::Capability, false, sendStatus};
  if (sendStatus == 0) return {TailBlock::None, false, 0};
  if (sendStatus == kSendStatusOnce) return {TailBlock::Status, false, 0};
  return {TailBlock::Status, false, sendStatus};
}

uint32_t sessionFlagsWord(const StreamStatusSource& s) {
  uint32_t beauty = !s.beautyFace() ? 0 : s.beautyMethod() == kBeautyMethodOne ? 1 : 2;
  uint32_t torch = s.isTorchAvailable() ? uint32_t(s.torch()) & 0xF : kTorchUnavailable;
  return beauty | bit(s.mirror(), 2) | bit(s.dim(), 4) | torch << 8 |
         (uint32_t(s.aeafLock()) & 0xF) << 24;
}

uint32_t exposureFlagsWord(const StreamStatusSource& s) {
  return controlFlags(s.autoExposure(), s.aeLock(), s.exposureMode() == kExposureModeCustom,
                      s.exposureMode());
}

uint32_t whiteBalanceFlagsWord(const StreamStatusSource& s) {
  return controlFlags(s.autoWhiteBalance(), s.awbLock(), false, s.whiteBalanceMode());
}

uint32_t focusFlagsWord(const StreamStatusSource& s) {
  return controlFlags(s.autoFocus(), s.afLock(), false, s.focusMode());
}

uint32_t cameraKind(int64_t position, std::string_view type, bool newer) {
  if (position == kPositionFront) return 0;
  if (newer) {
    if (type == device_type::kUltraWide) return 3;
    if (type == device_type::kDual) return 4;
    if (type == device_type::kDualWide) return 5;
    if (type == device_type::kTriple) return 6;
    return 7;
  }
  if (type == device_type::kTelephoto) return 2;
  return 3;
}

Bytes buildStatusBlock(const StreamStatusSource& s) {
  Bytes out = blockHead(kStatusBlockSize, kStatusBlockKind, kStatusBlockBodySize);
  int64_t battery = scaleTruncated(s.batteryLevel(), 100);
  if (s.batteryState() == kBatteryCharging) battery += 100;
  putU32LE(out, 12, sessionFlagsWord(s));
  putI32LE(out, 16, scaleTruncated(s.exposure(), 10000));
  putU32LE(out, 20, exposureFlagsWord(s));
  putI32LE(out, 24, scaleTruncated(s.whiteBalanceTemperature(), 1));
  putU32LE(out, 28, whiteBalanceFlagsWord(s));
  putI32LE(out, 32, scaleTruncated(s.lensPosition(), 100));
  putU32LE(out, 36, focusFlagsWord(s));
  putI32LE(out, 40, scaleTruncated(s.ISO(), 1));
  putI32LE(out, 44, scaleTruncated(s.exposureTargetBias(), 10));
  putI32LE(out, 48, scaleRounded(s.zoomScale(), 10));
  putI32LE(out, 52, int32_t(std::min<int64_t>(battery, INT32_MAX)));
  return out;
}

Bytes buildCapabilityBlock(const StreamStatusSource& s) {
  Bytes out = blockHead(kCapabilityBlockSize, kCapabilityBlockKind, kCapabilityBlockBodySize);
  bool custom = s.isExposureModeSupported(kExposureModeCustom);
  bool autoExposure =
      s.isExposureModeSupported(kModeAutoOnce) || s.isExposureModeSupported(kModeContinuousAuto);
  bool autoWhiteBalance = s.isWhiteBalanceModeSupported(kModeAutoOnce) ||
                          s.isWhiteBalanceModeSupported(kModeContinuousAuto);
  putU32LE(out, 12,
           cameraKind(s.captureDevicePosition(), s.captureDeviceType(), s.newerCameraKinds()));
  putI32LE(out, 16, std::max(scaleTruncated(s.minExposure(), 10000), 1));
  putI32LE(out, 20, scaleTruncated(s.maxExposure(), 10000));
  putU32LE(out, 24,
           bit(custom, 0) | bit(autoExposure, 1) | bit(s.isExposurePointOfInterestSupported(), 2));
  putI32LE(out, 28, kTemperatureMin);
  putI32LE(out, 32, kTemperatureMax);
  putU32LE(
      out, 36,
      bit(s.isLockingWhiteBalanceWithCustomDeviceGainsSupported(), 0) | bit(autoWhiteBalance, 1));
  putI32LE(out, 40, kLensMin);
  putI32LE(out, 44, kLensMax);
  putU32LE(out, 48,
           bit(s.isLockingFocusWithCustomLensPositionSupported(), 0) |
               bit(s.isFocusPointOfInterestSupported(), 1));
  putI32LE(out, 52, scaleTruncated(s.minISO(), 1));
  putI32LE(out, 56, scaleTruncated(s.maxISO(), 1));
  putU32LE(out, 60, custom ? 1 : 0);
  putI32LE(out, 64, scaleTruncated(s.minExposureTargetBias(), 10));
  putI32LE(out, 68, scaleTruncated(s.maxExposureTargetBias(), 10));
  putU32LE(out, 72, kBiasCapability);
  putI32LE(out, 76, kZoomMin);
  putI32LE(out, 80, scaleTruncated(s.maxZoomScale(), 10));
  putU32LE(out, 84, bit(s.maxZoomScale() > 1.0, 0) | bit(hasUltraWidePart(s), 1));
  return out;
}

Parsed<TailBlock> tailBlockKind(ByteView bytes) {
  WireReader r(bytes);
  if (!r.has(0, kCommonHeaderSize)) return WireError::Truncated;
  if (r.u32LE(0) != kPacketTypeTail) return WireError::WrongType;
  uint32_t kind = r.u32LE(4), size = r.u32LE(8);
  TailBlock block;
  uint32_t expected;
  if (kind == kStatusBlockKind) {
    block = TailBlock::Status;
    expected = kStatusBlockBodySize;
  } else if (kind == kCapabilityBlockKind) {
    block = TailBlock::Capability;
    expected = kCapabilityBlockBodySize;
  } else {
    return WireError::WrongKind;
  }
  if (size != expected) return WireError::BadLength;
  if (!r.has(kCommonHeaderSize, size)) return WireError::Truncated;
  return block;
}

Parsed<StatusBlock> parseStatusBlock(ByteView bytes) {
  auto kind = tailBlockKind(bytes);
  if (!kind) return kind.error();
  if (*kind != TailBlock::Status) return WireError::WrongKind;
  WireReader r(bytes);
  uint32_t session = r.u32LE(12), exposure = r.u32LE(20), wb = r.u32LE(28), focus = r.u32LE(36);
  if ((session & ~kSessionFlagsDefined) || (exposure & ~kExposureFlagsDefined) ||
      (wb & ~kOtherFlagsDefined) || (focus & ~kOtherFlagsDefined))
    return WireError::Malformed;
  StatusBlock b;
  b.session = SessionFlags{session & 3, (session & 4) != 0, (session & 16) != 0,
                           (session >> 8) & 0xF, (session >> 24) & 0xF};
  b.exposure = r.i32LE(16);
  b.exposureFlags = decodeControlFlags(exposure);
  b.temperature = r.i32LE(24);
  b.whiteBalanceFlags = decodeControlFlags(wb);
  b.lensPosition = r.i32LE(32);
  b.focusFlags = decodeControlFlags(focus);
  b.iso = r.i32LE(40);
  b.bias = r.i32LE(44);
  b.zoom = r.i32LE(48);
  b.battery = r.i32LE(52);
  return b;
}

Parsed<CapabilityBlock> parseCapabilityBlock(ByteView bytes) {
  auto kind = tailBlockKind(bytes);
  if (!kind) return kind.error();
  if (*kind != TailBlock::Capability) return WireError::WrongKind;
  WireReader r(bytes);
  CapabilityBlock b;
  b.cameraKind = r.u32LE(12);
  b.exposureMin = r.i32LE(16);
  b.exposureMax = r.i32LE(20);
  b.exposureCapabilities = r.u32LE(24);
  b.temperatureMin = r.i32LE(28);
  b.temperatureMax = r.i32LE(32);
  b.whiteBalanceCapabilities = r.u32LE(36);
  b.lensMin = r.i32LE(40);
  b.lensMax = r.i32LE(44);
  b.focusCapabilities = r.u32LE(48);
  b.isoMin = r.i32LE(52);
  b.isoMax = r.i32LE(56);
  b.isoCapability = r.u32LE(60);
  b.biasMin = r.i32LE(64);
  b.biasMax = r.i32LE(68);
  b.biasCapability = r.u32LE(72);
  b.zoomMin = r.i32LE(76);
  b.zoomMax = r.i32LE(80);
  b.zoomCapabilities = r.u32LE(84);
  if (b.temperatureMin != kTemperatureMin || b.temperatureMax != kTemperatureMax ||
      b.lensMin != kLensMin || b.lensMax != kLensMax || b.biasCapability != kBiasCapability ||
      b.zoomMin != kZoomMin)
    return WireError::Malformed;
  return b;
}

}  // namespace oxelo::wire
