#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace oxelo::host {

// The frames of the phone's USB channel: a 16-byte header of four big-endian
// words (version 1, type, tag, payload size) and the payload. Type 0 ends the
// stream. Written here on purpose, apart from the phone's own channel code, so
// that the host checks the phone's framing instead of sharing its faults.
inline constexpr size_t kUsbFrameHeaderSize = 16;
inline constexpr uint32_t kUsbFrameVersion = 1;
inline constexpr uint32_t kUsbFrameEndOfStream = 0;

struct UsbFrame {
  uint32_t type = 0;
  uint32_t tag = 0;
  std::vector<uint8_t> payload;
};

// Header and payload, ready to write.
std::vector<uint8_t> usbFrameBytes(uint32_t type, uint32_t tag, std::span<const uint8_t> payload);

// Cuts a byte stream, delivered in pieces of any size, into frames. Not
// thread-safe; one reader per connection.
class UsbFrameReader {
 public:
  // Appends every frame completed by `bytes` to `frames`. False once a header
  // with a version other than 1 has been seen: the stream is broken, error()
  // says why, and nothing more is read.
  bool feed(std::span<const uint8_t> bytes, std::vector<UsbFrame>& frames);
  // Bytes of an unfinished header or payload are held.
  bool midFrame() const { return !pending_.empty(); }
  const std::string& error() const { return error_; }

 private:
  std::vector<uint8_t> pending_;
  std::string error_;
};

}  // namespace oxelo::host
