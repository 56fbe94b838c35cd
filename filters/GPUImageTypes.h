#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace oxelo {

// A size in pixels, as two doubles.
struct GPUSize {
  double width = 0;
  double height = 0;
  bool isZero() const { return width == 0 && height == 0; }
  bool operator==(const GPUSize&) const = default;
};

// Frame times are seconds on the media clock; an indefinite time (a still
// picture) is NaN.
inline constexpr double kIndefiniteTime = std::numeric_limits<double>::quiet_NaN();
inline bool isIndefiniteTime(double time) { return std::isnan(time); }

// Rotation modes of the camera's conversion draw and of every filter input.
enum RotationMode : uint64_t {
  kRotationNone = 0,
  kRotateLeft = 1,
  kRotateRight = 2,
  kFlipVertical = 3,
  kFlipHorizontal = 4,
  kRotateRightFlipVertical = 5,
  kRotateRightFlipHorizontal = 6,
  kRotate180 = 7,
};

// Modes 1, 2, 5 and 6 exchange width and height.
inline bool rotationSwapsWidthAndHeight(uint64_t mode) {
  return mode == 1 || mode == 2 || mode == 5 || mode == 6;
}

// Four (s, t) pairs for the vertices (-1, -1), (1, -1), (-1, 1), (1, 1).
using TextureCoordinates = std::array<float, 8>;

// The texture parameters of a framebuffer, GL enum values.
struct GPUTextureOptions {
  uint32_t minFilter = 0x2601;       // GL_LINEAR
  uint32_t magFilter = 0x2601;       // GL_LINEAR
  uint32_t wrapS = 0x812F;           // GL_CLAMP_TO_EDGE
  uint32_t wrapT = 0x812F;           // GL_CLAMP_TO_EDGE
  uint32_t internalFormat = 0x1908;  // GL_RGBA
  uint32_t format = 0x80E1;          // GL_BGRA
  uint32_t type = 0x1401;            // GL_UNSIGNED_BYTE
  bool operator==(const GPUTextureOptions&) const = default;
};

}  // namespace oxelo
