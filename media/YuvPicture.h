#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace oxelo {

// The two 4:2:0 layouts an encoder takes: NV12 (a luma plane, then one plane
// of interleaved Cb, Cr pairs) and I420 (luma, then Cb, then Cr).
enum class YuvLayout { nv12, i420 };
// The colour matrix and range the samples were made with.
enum class YuvMatrix { bt601, bt709 };

// One picture in 4:2:0 in one block of memory, planes back to back with no
// padding: luma rows `width` bytes, chroma rows `width` bytes (NV12) or
// `width / 2` bytes (I420). Width and height are even. Made on the video
// processing queue by the filter graph's output; later holders only read.
struct YuvPicture {
  YuvLayout layout = YuvLayout::nv12;
  YuvMatrix matrix = YuvMatrix::bt709;
  bool fullRange = false;
  int width = 0;
  int height = 0;
  double presentationTime = 0;  // seconds on the media clock
  std::vector<uint8_t> bytes;   // width x height x 3 / 2

  size_t lumaSize() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  uint8_t* luma() { return bytes.data(); }
  uint8_t* chroma() { return bytes.data() + lumaSize(); }     // NV12: the pairs; I420: Cb
  uint8_t* chromaRed() { return chroma() + lumaSize() / 4; }  // I420 only: Cr
};

}  // namespace oxelo
