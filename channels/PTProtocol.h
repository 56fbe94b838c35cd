#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "channels/PTIOStream.h"
#include "channels/SocketError.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

using PTPayload = std::vector<uint8_t>;

// Frame header words, big-endian on the wire:
//   version (always kPTProtocolVersion), type, tag, payload size.
// Type 0 means end of stream.
inline constexpr uint32_t kPTProtocolVersion = 1;
inline constexpr size_t kPTFrameHeaderSize = 16;
inline constexpr uint32_t kPTFrameTypeEndOfStream = 0;
// Domain of the error for a short header or an unknown version word; code 0.
inline constexpr const char* kPTProtocolErrorDomain = "PTProtocolError";

// Reads and writes frames on a stream. One protocol per queue: the channels
// that use it make their streams on that queue, so every read, write and
// callback of theirs runs there. Stateless apart from the queue; all
// operations may be called from any thread, and each callback is posted to
// the stream's queue.
class PTProtocol {
 public:
  using SendCallback = std::function<void(OptionalError error)>;
  // An error, or the header of the next frame. The end of the stream before
  // the first byte of a header reads as a frame of type 0.
  using FrameCallback =
      std::function<void(OptionalError error, uint32_t type, uint32_t tag, uint32_t payloadSize)>;
  // The callback of readFramesOverChannel: the frame and `resume`, which reads
  // the next frame once this one has been dealt with.
  using FrameLoopCallback = std::function<void(OptionalError error, uint32_t type, uint32_t tag,
                                               uint32_t payloadSize, std::function<void()> resume)>;
  // `payload` holds fewer bytes than asked when the stream ended inside it.
  using PayloadCallback =
      std::function<void(OptionalError error, std::shared_ptr<const PTPayload> payload)>;
  // `endOfStream` when the stream ended before all bytes had come.
  using DiscardCallback = std::function<void(OptionalError error, bool endOfStream)>;

  // The protocol of `queue`, created on first use. The protocol keeps its
  // queue alive; it lives as long as a channel holds it.
  static std::shared_ptr<PTProtocol> sharedProtocolForQueue(std::shared_ptr<Queue> queue);
  explicit PTProtocol(std::shared_ptr<Queue> queue);

  const std::shared_ptr<Queue>& queue() const { return queue_; }

  // The 16-byte frame header.
  static std::array<uint8_t, kPTFrameHeaderSize> frameHeader(uint32_t type, uint32_t tag,
                                                             uint32_t payloadSize);

  // Copies the payload once and queues header and payload as one gathered
  // write; `callback` (may be empty) gets the write's result. Payloads above
  // 4 GiB - 1 are not supported.
  void sendFrameOfType(uint32_t type, uint32_t tag, std::span<const uint8_t> payload,
                       const std::shared_ptr<PTIOStream>& channel, SendCallback callback);
  static void readFrameOverChannel(const std::shared_ptr<PTIOStream>& channel,
                                   FrameCallback callback);
  static void readPayloadOfSize(uint32_t size, const std::shared_ptr<PTIOStream>& channel,
                                PayloadCallback callback);
  static void readAndDiscardDataOfSize(uint32_t size, const std::shared_ptr<PTIOStream>& channel,
                                       DiscardCallback callback);
  // Reads frame after frame: calls `onFrame` for each and reads the next one
  // when `onFrame` calls its `resume`.
  static void readFramesOverChannel(const std::shared_ptr<PTIOStream>& channel,
                                    FrameLoopCallback onFrame);

 private:
  std::shared_ptr<Queue> queue_;
};

}  // namespace oxelo
