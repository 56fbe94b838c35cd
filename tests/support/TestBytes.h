#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

// The bytes of every test: vectors written by hand ("17 00 00 00 | 01":
// spaces and bars are ignored), text, patterns, and the frames of the framed
// channel.
namespace oxelo::test {

using Bytes = std::vector<uint8_t>;

inline Bytes hex(std::string_view text) {
  Bytes out;
  int high = -1;
  for (unsigned char c : text) {
    if (c == ' ' || c == '|' || c == '\n') continue;
    if (!std::isxdigit(c)) throw std::invalid_argument("bad hex text");
    int v = std::isdigit(c) ? c - '0' : std::tolower(c) - 'a' + 10;
    if (high >= 0) out.push_back(uint8_t(high << 4 | v));
    high = high >= 0 ? -1 : v;
  }
  if (high >= 0) throw std::invalid_argument("odd hex digits");
  return out;
}

// `bytes` laid over a copy of `out` at `offset`.
inline Bytes placed(Bytes out, size_t offset, const Bytes& bytes) {
  if (offset + bytes.size() > out.size()) throw std::out_of_range("place past the end");
  std::copy(bytes.begin(), bytes.end(), out.begin() + static_cast<long>(offset));
  return out;
}
inline void place(Bytes& out, size_t offset, std::string_view text) {
  out = placed(std::move(out), offset, hex(text));
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
inline Bytes repeat(std::string_view text, size_t times) {
  Bytes one = hex(text), out;
  for (size_t i = 0; i < times; ++i) out.insert(out.end(), one.begin(), one.end());
  return out;
}

inline Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

// `size` bytes that depend on `seed` and on their position, so that a byte
// out of place shows.
inline Bytes patternBytes(size_t size, uint32_t seed) {
  Bytes bytes(size);
  uint32_t x = seed * 2654435761u + 1;
  for (auto& b : bytes) {
    x = x * 1103515245u + 12345u;
    b = static_cast<uint8_t>(x >> 16);
  }
  return bytes;
}

inline uint32_t bigEndian32At(const Bytes& bytes, size_t at) {
  return uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 | uint32_t(bytes[at + 2]) << 8 |
         uint32_t(bytes[at + 3]);
}

// A frame of the framed channel: four big-endian words (version, type, tag,
// payload size) and the payload. `size` overrides the payload size word.
inline Bytes frame(uint32_t type, uint32_t tag, const Bytes& payload = {}, uint32_t version = 1,
                   std::optional<uint32_t> size = std::nullopt) {
  Bytes out;
  for (uint32_t word : {version, type, tag, size.value_or(uint32_t(payload.size()))})
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(word >> shift));
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

struct Frame {
  uint32_t version, type, tag;
  Bytes payload;
};

// Splits `bytes` into whole frames; `rest` gets the bytes of an unfinished one.
inline std::vector<Frame> parseFrames(const Bytes& bytes, size_t* rest = nullptr) {
  std::vector<Frame> frames;
  size_t at = 0;
  while (bytes.size() - at >= 16 && bytes.size() - at - 16 >= bigEndian32At(bytes, at + 12)) {
    auto body = bytes.begin() + static_cast<long>(at + 16);
    uint32_t size = bigEndian32At(bytes, at + 12);
    frames.push_back(Frame{bigEndian32At(bytes, at), bigEndian32At(bytes, at + 4),
                           bigEndian32At(bytes, at + 8), Bytes(body, body + size)});
    at += 16 + size;
  }
  if (rest) *rest = bytes.size() - at;
  return frames;
}

}  // namespace oxelo::test
