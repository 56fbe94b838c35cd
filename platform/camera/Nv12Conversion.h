#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/camera/CameraFrame.h"

namespace oxelo {

// What the V4L2 backend does to a captured buffer to make it the frame's
// NV12. Each fills all of `frame` (whose size says what is expected) and
// returns false, leaving it undefined, when `size` bytes are too few for it.
// Chroma that is sampled more finely than 4:2:0 is averaged over each 2 x 2
// block, rounding halves up.

// NV12 as V4L2 lays it out in one buffer: the luma rows, then the chroma
// rows, both `bytesPerLine` apart. `crFirst`: NV21, each chroma pair Cr Cb.
bool copyNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, CameraFrame& frame,
              bool crFirst = false);

// NV12 in two buffers (V4L2's NV12M): the luma rows in one, the
// interleaved chroma rows in the other, each with its own row length.
struct PlaneBytes {
  const uint8_t* data = nullptr;
  size_t size = 0;
  int32_t bytesPerLine = 0;
};
bool copyNv12Planes(const PlaneBytes& luma, const PlaneBytes& chroma, CameraFrame& frame,
                    bool crFirst = false);

// Planar 4:2:0 in one buffer (V4L2's YU12, or YV12 with `crFirst`): the luma
// rows `bytesPerLine` apart, then the rows of one chroma plane and of the
// other, each half as long.
bool planar420ToNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, bool crFirst,
                     CameraFrame& frame);

// Packed 4:2:2, a pair of pixels in four bytes, rows `bytesPerLine` apart.
enum class PackedOrder {
  yuyv,  // Y0 Cb Y1 Cr
  uyvy,  // Cb Y0 Cr Y1
  yvyu,  // Y0 Cr Y1 Cb
  vyuy,  // Cr Y0 Cb Y1
};
bool packed422ToNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, PackedOrder order,
                     CameraFrame& frame);

// Three planes as a JPEG decoder gives them, chroma subsampled by
// 2^shiftX across and 2^shiftY down (4:2:0: 1, 1; 4:2:2: 1, 0; 4:4:4: 0, 0).
struct PlanarPicture {
  const uint8_t* planes[3] = {};
  int32_t strides[3] = {};
  int shiftX = 1;
  int shiftY = 1;
};
void planarToNv12(const PlanarPicture& picture, CameraFrame& frame);

}  // namespace oxelo
