#pragma once

#include <cstdint>
#include <string_view>

#include "wire/StreamStatusSource.h"
#include "wire/WireBytes.h"

// The two tail blocks (packet type 16) that ride behind a key frame or a
// video sequence header: the status block (56 bytes, the camera's present
// settings) and the capability block (88 bytes, the active camera's ranges).
namespace oxelo::wire {

enum class TailBlock { None, Status, Capability };

// The choice made for each packet that takes a tail block, and the flags it
// leaves behind.
struct TailChoice {
  TailBlock block = TailBlock::None;
  bool deviceChanged = false;  // new value of the session's flag
  int64_t sendStatus = 0;      // new value of the socket's sendStatus
  bool operator==(const TailChoice&) const = default;
};

// A changed device takes a capability block and clears the flag, leaving
// sendStatus alone. Otherwise sendStatus 0 adds nothing, 2 adds one status
// block and becomes 0, and any other value adds a status block and stays.
TailChoice chooseTailBlock(bool deviceChanged, int64_t sendStatus);

Bytes buildStatusBlock(const StreamStatusSource& source);
Bytes buildCapabilityBlock(const StreamStatusSource& source);

// The words of the status block that pack several values.
uint32_t sessionFlagsWord(const StreamStatusSource& source);
uint32_t exposureFlagsWord(const StreamStatusSource& source);
uint32_t whiteBalanceFlagsWord(const StreamStatusSource& source);
uint32_t focusFlagsWord(const StreamStatusSource& source);

// The camera kind word: 0 for the front camera; for a back camera by type,
// with the newer or the older numbering.
uint32_t cameraKind(int64_t position, std::string_view deviceType, bool newerCameraKinds);

// ---- Reading, for the host side ----

// The kind of the tail block at the start of `bytes`. Truncated when its
// head or its announced size is not all there; WrongType unless type 16;
// WrongKind for an unknown kind word; BadLength when the size word is not
// that of the kind.
Parsed<TailBlock> tailBlockKind(ByteView bytes);

struct SessionFlags {
  uint32_t beauty = 0;  // 0 off, 1 on with method 1, 2 on with another
  bool mirror = false;
  bool dim = false;
  uint32_t torch = 0;  // 15: no torch on the active camera
  uint32_t aeafLock = 0;
  bool operator==(const SessionFlags&) const = default;
};

// The shared shape of the exposure, white balance and focus flags words.
struct ControlFlags {
  bool manual = false;  // the automatic mode is off
  bool locked = false;
  bool custom = false;  // exposure only: the device is in custom mode
  uint32_t deviceMode = 0;
  bool operator==(const ControlFlags&) const = default;
};

struct StatusBlock {
  SessionFlags session;
  int32_t exposure = 0;  // seconds x 10000
  ControlFlags exposureFlags;
  int32_t temperature = 0;  // kelvin
  ControlFlags whiteBalanceFlags;
  int32_t lensPosition = 0;  // x 100
  ControlFlags focusFlags;
  int32_t iso = 0;
  int32_t bias = 0;     // x 10
  int32_t zoom = 0;     // x 10, rounded
  int32_t battery = 0;  // percent, plus 100 while charging
};

// The first 56 bytes. Malformed when a bit outside the defined fields is set.
Parsed<StatusBlock> parseStatusBlock(ByteView bytes);

struct CapabilityBlock {
  uint32_t cameraKind = 0;
  int32_t exposureMin = 0;  // seconds x 10000
  int32_t exposureMax = 0;
  uint32_t exposureCapabilities = 0;  // bit 0 custom, 1 auto, 2 point of interest
  int32_t temperatureMin = 0;
  int32_t temperatureMax = 0;
  uint32_t whiteBalanceCapabilities = 0;  // bit 0 custom gains, 1 auto
  int32_t lensMin = 0;
  int32_t lensMax = 0;
  uint32_t focusCapabilities = 0;  // bit 0 custom lens position, 1 point of interest
  int32_t isoMin = 0;
  int32_t isoMax = 0;
  uint32_t isoCapability = 0;
  int32_t biasMin = 0;  // x 10
  int32_t biasMax = 0;
  uint32_t biasCapability = 0;
  int32_t zoomMin = 0;  // x 10
  int32_t zoomMax = 0;
  uint32_t zoomCapabilities = 0;  // bit 0 zoom, 1 ultra-wide part
};

// The first 88 bytes. Malformed when a fixed field (temperature range, lens
// range, bias capability, zoom minimum) holds another value.
Parsed<CapabilityBlock> parseCapabilityBlock(ByteView bytes);

}  // namespace oxelo::wire
