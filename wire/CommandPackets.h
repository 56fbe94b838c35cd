#pragma once

#include <cstdint>
#include <optional>

#include "wire/WireBytes.h"

// Command packets on the stream connection: word 136, a command number and
// its parameter words. The phone sends 12-byte requests and, over USB only,
// the 8-byte stop notice; the host sends 8, 12 or 16 bytes by command.
namespace oxelo::wire {

// Phone to host.
inline constexpr uint32_t kCommandRemoteRecord = 17;    // parameter 1 start, 4 stop
inline constexpr uint32_t kCommandRemoteSnapshot = 18;  // parameter 0
inline constexpr uint32_t kCommandStopNotice = 20;      // no parameter word
inline constexpr uint32_t kRemoteRecordStart = 1;
inline constexpr uint32_t kRemoteRecordStop = 4;

// Host to phone.
enum HostCommand : uint32_t {
  kHostSetCameraParameter = 18,  // P1 sub-command, P2 value
  kHostZoomIn = 21,
  kHostZoomOut = 22,
  kHostFocusPoint = 23,  // P1 x, P2 y, 0 to 255
  kHostPeerClose = 24,
  kHostConnectionLost = 25,
  kHostRestart = 26,
  kHostStatusRequest = 33,  // P1 becomes the socket's sendStatus
  kHostChooseCamera = 34,
  kHostMirror = 35,
  kHostTorch = 37,
  kHostBeauty = 38,
  kHostDim = 39,
  kHostRecording = 40,
  kHostAeafLock = 41,
  kHostSavePreset = 42,
  kHostLoadPreset = 43,
  kHostDeletePreset = 44,
};

// Sub-commands of kHostSetCameraParameter (P1).
enum CameraParameter : int32_t {
  kParameterExposure = 1,       // P2 = seconds x 10000
  kParameterISO = 2,            // P2 = ISO
  kParameterBias = 3,           // P2 = bias x 10
  kParameterTemperature = 4,    // P2 = kelvin
  kParameterLensPosition = 5,   // P2 = position x 100
  kParameterZoom = 6,           // P2 = zoom x 10
  kParameterAutoExposure = 11,  // P2: 0 automatic, 2 locked, other neither
  kParameterAutoWhiteBalance = 14,
  kParameterAutoFocus = 15,
};

// The 12 bytes of a request to the host: 136, command, parameter.
Bytes buildCommandPacket(uint32_t command, uint32_t parameter);

// The 8 bytes that tell the host over USB that the stream ends: 136, 20.
Bytes buildStopNotice();

// How many parameter words a host command carries: 2 for 18 and 23, 1 for
// 33 to 35 and 38 to 44, 0 for every other command.
int hostCommandParameterCount(uint32_t command);

// A host command of 8 + 4 x hostCommandParameterCount(command) bytes.
Bytes buildHostCommandPacket(uint32_t command, int32_t p1 = 0, int32_t p2 = 0);

// A request or notice as the host reads it.
struct PhoneCommand {
  uint32_t command = 0;
  std::optional<uint32_t> parameter;  // none for the stop notice
};

// Reads one phone-to-host record from the start of `bytes`: 8 bytes for the
// stop notice, 12 for any other command. Truncated when shorter; WrongType
// unless the first word is 136.
Parsed<PhoneCommand> parsePhoneCommand(ByteView bytes);

struct HostCommandRecord {
  uint32_t command = 0;
  int32_t p1 = 0;  // 0 when the command has no such word
  int32_t p2 = 0;
};

// Reads the host command at the start of `bytes`; only the start counts,
// bytes behind the record are not looked at. Truncated when shorter than 8
// bytes or than the command's parameters need; WrongType unless the first
// word is 136.
Parsed<HostCommandRecord> parseHostCommand(ByteView bytes);

}  // namespace oxelo::wire
