#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace oxelo {

// The colour matrix a frame's YUV was made with.
enum class ColourMatrix : uint8_t {
  bt601,  // ITU-R BT.601 (SD cameras, JPEG)
  bt709,  // ITU-R BT.709; also the tag of every other non-601 matrix
};

// Luma 16 to 235 and chroma 16 to 240 (video), or 0 to 255 for both (full).
enum class ColourRange : uint8_t { video, full };

// One plane as a texture would take it: `width` x `height` texels of
// `bytesPerTexel` bytes (1: luminance, 2: luminance-alpha), rows `stride`
// bytes apart.
struct CameraFramePlane {
  const uint8_t* data = nullptr;
  int32_t stride = 0;
  int32_t width = 0;
  int32_t height = 0;
  int32_t bytesPerTexel = 1;
};

// One picture from a camera: bi-planar 4:2:0 (NV12), plane 0 the luma of
// width x height, plane 1 the interleaved Cb, Cr pairs of
// ceil(width / 2) x ceil(height / 2), with the colour-matrix tag, the range
// and the presentation time on the media clock (mediaTime(), seconds).
//
// Written by the backend that fills it on its delivery thread, then handed
// on as std::shared_ptr<const CameraFrame> and only read, from any thread.
class CameraFrame {
 public:
  // Planes of the given size, rows padded to `alignment` bytes, contents
  // undefined. Width and height at least 1.
  static std::shared_ptr<CameraFrame> make(int32_t width, int32_t height, size_t alignment = 64);

  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  int32_t chromaWidth() const { return (width_ + 1) / 2; }
  int32_t chromaHeight() const { return (height_ + 1) / 2; }

  // Plane 0 (luma) or 1 (chroma pairs).
  uint8_t* data(int plane) { return planes_[plane]; }
  const uint8_t* data(int plane) const { return planes_[plane]; }
  int32_t stride(int plane) const { return strides_[plane]; }
  uint8_t* row(int plane, int32_t y) {
    return planes_[plane] + static_cast<size_t>(y) * strides_[plane];
  }
  const uint8_t* row(int plane, int32_t y) const {
    return planes_[plane] + static_cast<size_t>(y) * strides_[plane];
  }
  // The two planes as GPU textures take them: luma W x H of one byte,
  // chroma W/2 x H/2 of two bytes.
  std::array<CameraFramePlane, 2> planes() const;

  ColourMatrix matrix = ColourMatrix::bt709;
  ColourRange range = ColourRange::video;
  double presentationTime = 0;  // media clock, seconds

 private:
  CameraFrame() = default;

  int32_t width_ = 0;
  int32_t height_ = 0;
  std::array<int32_t, 2> strides_{};
  std::array<uint8_t*, 2> planes_{};
  std::unique_ptr<uint8_t[]> storage_;
};

using CameraFramePtr = std::shared_ptr<const CameraFrame>;

// The Y, Cb, Cr of an RGB colour (0 to 255 each) under a matrix and range,
// rounded: what a camera stores for that colour.
struct YCbCr {
  uint8_t y, cb, cr;
  friend bool operator==(const YCbCr&, const YCbCr&) = default;
};
YCbCr ycbcrOf(uint8_t r, uint8_t g, uint8_t b, ColourMatrix matrix, ColourRange range);

}  // namespace oxelo
