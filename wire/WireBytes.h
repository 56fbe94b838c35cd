#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>
#include <variant>

#include "media/LFFrame.h"

// Byte-level helpers shared by the packet layouts: little-endian words (the
// default of the stream) and big-endian ones (lengths inside video bodies),
// the truncating scale of status values, and the result type of the parsers.
namespace oxelo::wire {

using ByteView = std::span<const uint8_t>;

inline void putU32LE(Bytes& out, size_t offset, uint32_t v) {
  out[offset] = uint8_t(v);
  out[offset + 1] = uint8_t(v >> 8);
  out[offset + 2] = uint8_t(v >> 16);
  out[offset + 3] = uint8_t(v >> 24);
}
inline void putI32LE(Bytes& out, size_t offset, int32_t v) { putU32LE(out, offset, uint32_t(v)); }
inline void appendU32LE(Bytes& out, uint32_t v) {
  out.resize(out.size() + 4);
  putU32LE(out, out.size() - 4, v);
}
inline void appendU16BE(Bytes& out, uint16_t v) {
  out.push_back(uint8_t(v >> 8));
  out.push_back(uint8_t(v));
}
inline void appendU32BE(Bytes& out, uint32_t v) {
  appendU16BE(out, uint16_t(v >> 16));
  appendU16BE(out, uint16_t(v));
}
inline void append(Bytes& out, ByteView bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

// Reads inside a view; callers check has() before each read.
class WireReader {
 public:
  explicit WireReader(ByteView bytes) : bytes_(bytes) {}
  size_t size() const { return bytes_.size(); }
  bool has(size_t offset, size_t length) const {
    return offset <= bytes_.size() && length <= bytes_.size() - offset;
  }
  uint8_t u8(size_t offset) const { return bytes_[offset]; }
  uint16_t u16BE(size_t offset) const { return uint16_t(bytes_[offset] << 8 | bytes_[offset + 1]); }
  uint32_t u32BE(size_t offset) const { return uint32_t(u16BE(offset)) << 16 | u16BE(offset + 2); }
  uint32_t u32LE(size_t offset) const {
    return uint32_t(bytes_[offset]) | uint32_t(bytes_[offset + 1]) << 8 |
           uint32_t(bytes_[offset + 2]) << 16 | uint32_t(bytes_[offset + 3]) << 24;
  }
  int32_t i32LE(size_t offset) const { return int32_t(u32LE(offset)); }
  ByteView view(size_t offset, size_t length) const { return bytes_.subspan(offset, length); }
  Bytes copy(size_t offset, size_t length) const {
    auto v = view(offset, length);
    return Bytes(v.begin(), v.end());
  }
  bool allZero(size_t offset, size_t length) const {
    for (uint8_t b : view(offset, length))
      if (b != 0) return false;
    return true;
  }

 private:
  ByteView bytes_;
};

// value x factor, truncated toward zero; saturates at the ends of i32, and
// a value that is not a number gives 0.
inline int32_t scaleTruncated(double value, double factor) {
  double v = std::trunc(value * factor);
  if (std::isnan(v)) return 0;
  if (v >= double(std::numeric_limits<int32_t>::max())) return std::numeric_limits<int32_t>::max();
  if (v <= double(std::numeric_limits<int32_t>::min())) return std::numeric_limits<int32_t>::min();
  return int32_t(v);
}

// value x factor, rounded to nearest with halves away from zero; saturating.
inline int32_t scaleRounded(double value, double factor) {
  return scaleTruncated(std::round(value * factor), 1.0);
}

// Why a parser refused its input. Input from the network never asserts.
enum class WireError {
  Truncated,  // fewer bytes than the layout needs
  WrongType,  // the first word is not the expected packet type
  WrongKind,  // a kind or tag byte that this layout does not have
  BadLength,  // a length field disagrees with the bytes that are there
  Malformed,  // a fixed or reserved field holds another value
};

const char* wireErrorText(WireError error);

// A parsed record or the reason it could not be parsed.
template <typename T>
class Parsed {
 public:
  Parsed(T value) : v_(std::move(value)) {}  // NOLINT: implicit on purpose
  Parsed(WireError error) : v_(error) {}     // NOLINT
  bool ok() const { return std::holds_alternative<T>(v_); }
  explicit operator bool() const { return ok(); }
  // Only when !ok().
  WireError error() const { return std::get<WireError>(v_); }
  // Only when ok().
  const T& value() const { return std::get<T>(v_); }
  const T& operator*() const { return value(); }
  const T* operator->() const { return &value(); }

 private:
  std::variant<T, WireError> v_;
};

}  // namespace oxelo::wire
