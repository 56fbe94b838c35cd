#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/camera/CameraFrame.h"

namespace oxelo {

// Decodes the JPEG pictures of an MJPEG camera into NV12. One per stream,
// used on its delivery thread only.
class MjpegDecoder {
 public:
  virtual ~MjpegDecoder() = default;
  // Fills `frame` (of the picture's size) with the picture and sets its
  // matrix and range from the JPEG's own. False, with the reason, when the
  // data is not a picture of that size.
  virtual bool decode(const uint8_t* data, size_t size, CameraFrame& frame, std::string& error) = 0;
};

// Makes a decoder; an empty factory means this program has none.
using MjpegDecoderFactory = std::function<std::unique_ptr<MjpegDecoder>()>;

}  // namespace oxelo
