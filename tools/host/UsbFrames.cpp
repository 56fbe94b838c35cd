#include "tools/host/UsbFrames.h"

#include <fmt/format.h>

namespace oxelo::host {

namespace {

void appendBigEndian(std::vector<uint8_t>& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

uint32_t readBigEndian(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

}  // namespace

std::vector<uint8_t> usbFrameBytes(uint32_t type, uint32_t tag, std::span<const uint8_t> payload) {
  std::vector<uint8_t> out;
  out.reserve(kUsbFrameHeaderSize + payload.size());
  appendBigEndian(out, kUsbFrameVersion);
  appendBigEndian(out, type);
  appendBigEndian(out, tag);
  appendBigEndian(out, static_cast<uint32_t>(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

bool UsbFrameReader::feed(std::span<const uint8_t> bytes, std::vector<UsbFrame>& frames) {
  if (!error_.empty()) return false;
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  size_t pos = 0;
  while (pending_.size() - pos >= kUsbFrameHeaderSize) {
    const uint8_t* head = pending_.data() + pos;
    const uint32_t version = readBigEndian(head);
    if (version != kUsbFrameVersion) {
      error_ = fmt::format("a USB frame header with version {} (expected {})", version,
                           kUsbFrameVersion);
      pending_.clear();
      return false;
    }
    const uint32_t size = readBigEndian(head + 12);
    if (pending_.size() - pos - kUsbFrameHeaderSize < size) break;
    UsbFrame frame;
    frame.type = readBigEndian(head + 4);
    frame.tag = readBigEndian(head + 8);
    frame.payload.assign(head + kUsbFrameHeaderSize, head + kUsbFrameHeaderSize + size);
    frames.push_back(std::move(frame));
    pos += kUsbFrameHeaderSize + size;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(pos));
  return true;
}

}  // namespace oxelo::host
