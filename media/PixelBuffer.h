#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "media/YuvPicture.h"

namespace oxelo {

// How a picture's samples are laid out.
enum class PixelFormat {
  bgra,  // one plane, 32 bits a pixel: bytes B, G, R, A
  nv12,  // luma, then one plane of interleaved Cb, Cr pairs at half size
  i420,  // luma, then Cb, then Cr, each chroma plane at half size
};

// One picture in CPU memory. BGRA is what the filter chain's output node
// reads back; NV12 and I420 are YCbCr 4:2:0 with their matrix and range:
// the camera's own frames where the chain has nothing to draw, or the
// graph's GPU-side conversion. Handed from the output node to the session,
// which gives it to the video encoder on the same queue (the video
// processing queue).
//
// Shared: it lives until the last holder lets go; a pooled one then returns
// its memory to its pool, a wrapped one lets its owner go. Not synchronised:
// one queue writes it, later readers only read. A wrapped picture is never
// written.
class PixelBuffer {
 public:
  static constexpr size_t kRowAlignment = 64;
  static constexpr int kMaxPlanes = 3;

  // A BGRA buffer of its own (not pooled), rows padded to kRowAlignment bytes.
  static std::shared_ptr<PixelBuffer> create(int width, int height);
  // A 4:2:0 buffer of its own: `format` nv12 or i420, even width and height,
  // every plane's rows padded to kRowAlignment bytes, contents undefined.
  static std::shared_ptr<PixelBuffer> createYuv(PixelFormat format, int width, int height,
                                                YuvMatrix matrix, bool fullRange);
  // A 4:2:0 picture in memory that `owner` keeps alive (a camera frame): no
  // copy. `planes` and `strides` as planeCount(format) says.
  static std::shared_ptr<PixelBuffer> wrapYuv(PixelFormat format, int width, int height,
                                              YuvMatrix matrix, bool fullRange,
                                              std::array<const uint8_t*, kMaxPlanes> planes,
                                              std::array<size_t, kMaxPlanes> strides,
                                              std::shared_ptr<const void> owner);

  PixelFormat format() const { return format_; }
  bool isYuv() const { return format_ != PixelFormat::bgra; }
  int width() const { return width_; }
  int height() const { return height_; }

  // Plane 0: the BGRA pixels or the luma.
  size_t stride() const { return strides_[0]; }  // bytes from one row to the next
  uint8_t* data() { return planes_[0]; }
  const uint8_t* data() const { return planes_[0]; }
  uint8_t* row(int y) { return data() + static_cast<size_t>(y) * stride(); }
  const uint8_t* row(int y) const { return data() + static_cast<size_t>(y) * stride(); }

  // Every plane: 1 for BGRA, 2 for NV12, 3 for I420.
  static int planeCount(PixelFormat format);
  int planeCount() const { return planeCount(format_); }
  uint8_t* plane(int index) { return planes_[static_cast<size_t>(index)]; }
  const uint8_t* plane(int index) const { return planes_[static_cast<size_t>(index)]; }
  size_t planeStride(int index) const { return strides_[static_cast<size_t>(index)]; }
  int planeHeight(int index) const { return index == 0 ? height_ : (height_ + 1) / 2; }
  // Bytes of one row that carry samples (the rest up to the stride is padding).
  size_t planeRowBytes(int index) const;

  // YCbCr only: the matrix and range the samples were made with.
  YuvMatrix matrix() const { return matrix_; }
  bool fullRange() const { return fullRange_; }

  // Seconds on the media clock at which the picture was captured.
  double presentationTime() const { return presentationTime_; }
  void setPresentationTime(double seconds) { presentationTime_ = seconds; }

  static size_t strideForWidth(int width);  // of a BGRA row

  // Internal: built by create() and by PixelBufferPool.
  PixelBuffer(int width, int height, size_t stride, std::unique_ptr<std::vector<uint8_t>> storage);
  std::unique_ptr<std::vector<uint8_t>> takeStorage() { return std::move(storage_); }

 private:
  PixelBuffer() = default;
  // A YCbCr picture's description, with no planes yet.
  static std::shared_ptr<PixelBuffer> yuvHeader(PixelFormat format, int width, int height,
                                                YuvMatrix matrix, bool fullRange);

  PixelFormat format_ = PixelFormat::bgra;
  int width_ = 0;
  int height_ = 0;
  std::array<uint8_t*, kMaxPlanes> planes_{};
  std::array<size_t, kMaxPlanes> strides_{};
  YuvMatrix matrix_ = YuvMatrix::bt709;
  bool fullRange_ = false;
  std::unique_ptr<std::vector<uint8_t>> storage_;
  std::shared_ptr<const void> owner_;
  double presentationTime_ = 0;
};

// Buffers of one size whose memory is reused: a buffer handed out by
// makeBuffer() gives its memory back when its last holder lets go, also after
// the pool itself is gone (the memory is then freed). At most `capacity`
// idle blocks are kept. BGRA. Any thread.
class PixelBufferPool : public std::enable_shared_from_this<PixelBufferPool> {
 public:
  static std::shared_ptr<PixelBufferPool> create(int width, int height, size_t capacity = 3);

  int width() const { return width_; }
  int height() const { return height_; }
  // A buffer with undefined content.
  std::shared_ptr<PixelBuffer> makeBuffer();
  size_t idleCount() const;

 private:
  PixelBufferPool(int width, int height, size_t capacity);
  void giveBack(std::unique_ptr<std::vector<uint8_t>> storage);

  const int width_;
  const int height_;
  const size_t capacity_;
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<std::vector<uint8_t>>> idle_;  // guarded by mutex_
};

}  // namespace oxelo
