#include "wire/WireStream.h"

#include "wire/CommandPackets.h"
#include "wire/TailBlocks.h"
#include "wire/WireConstants.h"

namespace oxelo::wire {

Parsed<RecordSpan> nextRecord(ByteView stream) {
  WireReader r(stream);
  if (!r.has(0, 4)) return WireError::Truncated;
  uint32_t type = r.u32LE(0);
  size_t length = 0;
  switch (type) {
    case kPacketTypeInfo:
      length = kInfoPacketSize;
      break;
    case kPacketTypeAudio:
    case kPacketTypeVideo: {
      if (!r.has(0, kCommonHeaderSize)) return WireError::Truncated;
      uint32_t body = r.u32LE(8);
      if (body > kMaxPacketBody) return WireError::BadLength;
      length = kCommonHeaderSize + body;
      break;
    }
    case kPacketTypeTail: {
      auto kind = tailBlockKind(stream);
      if (!kind) return kind.error();
      length = *kind == TailBlock::Status ? kStatusBlockSize : kCapabilityBlockSize;
      break;
    }
    case kPacketTypeCommand: {
      auto command = parsePhoneCommand(stream);
      if (!command) return command.error();
      length = command->parameter ? kCommandPacketSize : kStopNoticeSize;
      break;
    }
    default:
      return WireError::WrongType;
  }
  if (!r.has(0, length)) return WireError::Truncated;
  return RecordSpan{type, length};
}

}  // namespace oxelo::wire
