#include "wire/CommandPackets.h"

#include "wire/WireConstants.h"

namespace oxelo::wire {
namespace {

constexpr size_t kCommandHead = 8;

}  // namespace

Bytes buildCommandPacket(uint32_t command, uint32_t parameter) {
  Bytes out;
  appendU32LE(out, kPacketTypeCommand);
  appendU32LE(out, command);
  appendU32LE(out, parameter);
  return out;
}

Bytes buildStopNotice() {
  Bytes out;
  appendU32LE(out, kPacketTypeCommand);
  appendU32LE(out, kCommandStopNotice);
  return out;
}

int hostCommandParameterCount(uint32_t command) {
  switch (command) {
    case kHostSetCameraParameter:
    case kHostFocusPoint:
      return 2;
    case kHostStatusRequest:
    case kHostChooseCamera:
    case kHostMirror:
    case kHostBeauty:
    case kHostDim:
    case kHostRecording:
    case kHostAeafLock:
    case kHostSavePreset:
    case kHostLoadPreset:
    case kHostDeletePreset:
      return 1;
    default:
      return 0;
  }
}

Bytes buildHostCommandPacket(uint32_t command, int32_t p1, int32_t p2) {
  Bytes out;
  appendU32LE(out, kPacketTypeCommand);
  appendU32LE(out, command);
  int count = hostCommandParameterCount(command);
  if (count >= 1) appendU32LE(out, uint32_t(p1));
  if (count >= 2) appendU32LE(out, uint32_t(p2));
  return out;
}

Parsed<PhoneCommand> parsePhoneCommand(ByteView bytes) {
  WireReader r(bytes);
  if (!r.has(0, kCommandHead)) return WireError::Truncated;
  if (r.u32LE(0) != kPacketTypeCommand) return WireError::WrongType;
  PhoneCommand c{r.u32LE(4), std::nullopt};
  if (c.command == kCommandStopNotice) return c;
  if (!r.has(0, kCommandPacketSize)) return WireError::Truncated;
  c.parameter = r.u32LE(8);
  return c;
}

Parsed<HostCommandRecord> parseHostCommand(ByteView bytes) {
  WireReader r(bytes);
  if (!r.has(0, 4)) return WireError::Truncated;
  if (r.u32LE(0) != kPacketTypeCommand) return WireError::WrongType;
  if (!r.has(0, kCommandHead)) return WireError::Truncated;
  HostCommandRecord c{r.u32LE(4), 0, 0};
  int count = hostCommandParameterCount(c.command);
  if (!r.has(0, kCommandHead + 4 * size_t(count))) return WireError::Truncated;
  if (count >= 1) c.p1 = r.i32LE(8);
  if (count >= 2) c.p2 = r.i32LE(12);
  return c;
}

}  // namespace oxelo::wire
