#include "channels/PTProtocol.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace oxelo {

namespace {

// Discarded payloads are read in pieces of at most this size.
constexpr uint32_t kDiscardChunk = 64 * 1024;

void putBigEndian32(uint8_t* out, uint32_t value) {
  out[0] = static_cast<uint8_t>(value >> 24);
  out[1] = static_cast<uint8_t>(value >> 16);
  out[2] = static_cast<uint8_t>(value >> 8);
  out[3] = static_cast<uint8_t>(value);
}

uint32_t getBigEndian32(const uint8_t* in) {
  return (uint32_t{in[0]} << 24) | (uint32_t{in[1]} << 16) | (uint32_t{in[2]} << 8) |
         uint32_t{in[3]};
}

Error protocolError(std::string description) {
  return Error{kPTProtocolErrorDomain, 0, std::move(description), {}};
}

void discardRest(uint32_t remaining, std::shared_ptr<PTIOStream> channel,
                 PTProtocol::DiscardCallback callback) {
  uint32_t piece = std::min(remaining, kDiscardChunk);
  channel->read(
      piece, [remaining, piece, channel, callback](OptionalError error, std::vector<uint8_t> data) {
        if (error) return callback(std::move(error), false);
        if (data.size() < piece) return callback(std::nullopt, true);
        if (remaining == piece) return callback(std::nullopt, false);
        discardRest(remaining - piece, channel, callback);
      });
}

}  // namespace

std::shared_ptr<PTProtocol> PTProtocol::sharedProtocolForQueue(std::shared_ptr<Queue> queue) {
  static std::mutex mutex;
  // Keyed by address: a live protocol keeps its queue, so the address of a
  // live entry cannot be reused by another queue.
  static std::map<const Queue*, std::weak_ptr<PTProtocol>> protocols;
  std::lock_guard lock(mutex);
  std::erase_if(protocols, [](const auto& entry) { return entry.second.expired(); });
  auto& slot = protocols[queue.get()];
  if (auto protocol = slot.lock()) return protocol;
  auto protocol = std::make_shared<PTProtocol>(std::move(queue));
  slot = protocol;
  return protocol;
}

PTProtocol::PTProtocol(std::shared_ptr<Queue> queue) : queue_(std::move(queue)) {}

std::array<uint8_t, kPTFrameHeaderSize> PTProtocol::frameHeader(uint32_t type, uint32_t tag,
                                                                uint32_t payloadSize) {
  std::array<uint8_t, kPTFrameHeaderSize> header;
  putBigEndian32(&header[0], kPTProtocolVersion);
  putBigEndian32(&header[4], type);
  putBigEndian32(&header[8], tag);
  putBigEndian32(&header[12], payloadSize);
  return header;
}

void PTProtocol::sendFrameOfType(uint32_t type, uint32_t tag, std::span<const uint8_t> payload,
                                 const std::shared_ptr<PTIOStream>& channel,
                                 SendCallback callback) {
  auto header = frameHeader(type, tag, static_cast<uint32_t>(payload.size()));
  std::shared_ptr<const PTPayload> body;
  if (!payload.empty()) body = std::make_shared<const PTPayload>(payload.begin(), payload.end());
  channel->write(std::vector<uint8_t>(header.begin(), header.end()), std::move(body),
                 std::move(callback));
}

// static
void PTProtocol::readFrameOverChannel(const std::shared_ptr<PTIOStream>& channel,
                                      FrameCallback callback) {
  channel->read(kPTFrameHeaderSize, [callback](OptionalError error, std::vector<uint8_t> data) {
    if (error) return callback(std::move(error), 0, 0, 0);
    if (data.empty()) return callback(std::nullopt, kPTFrameTypeEndOfStream, 0, 0);
    if (data.size() < kPTFrameHeaderSize) {
      return callback(protocolError("Stream ended inside a frame header"), 0, 0, 0);
    }
    if (getBigEndian32(&data[0]) != kPTProtocolVersion) {
      return callback(protocolError("Unknown frame protocol version"), 0, 0, 0);
    }
    callback(std::nullopt, getBigEndian32(&data[4]), getBigEndian32(&data[8]),
             getBigEndian32(&data[12]));
  });
}

// static
void PTProtocol::readPayloadOfSize(uint32_t size, const std::shared_ptr<PTIOStream>& channel,
                                   PayloadCallback callback) {
  channel->read(size, [callback](OptionalError error, std::vector<uint8_t> data) {
    callback(std::move(error), std::make_shared<const PTPayload>(std::move(data)));
  });
}

// static
void PTProtocol::readAndDiscardDataOfSize(uint32_t size, const std::shared_ptr<PTIOStream>& channel,
                                          DiscardCallback callback) {
  if (size == 0) {
    if (auto queue = channel->queue()) queue->post([callback] { callback(std::nullopt, false); });
    return;
  }
  discardRest(size, channel, std::move(callback));
}

// static
void PTProtocol::readFramesOverChannel(const std::shared_ptr<PTIOStream>& channel,
                                       FrameLoopCallback onFrame) {
  readFrameOverChannel(channel, [channel, onFrame](OptionalError error, uint32_t type, uint32_t tag,
                                                   uint32_t payloadSize) {
    onFrame(std::move(error), type, tag, payloadSize,
            [channel, onFrame] { readFramesOverChannel(channel, onFrame); });
  });
}

}  // namespace oxelo
