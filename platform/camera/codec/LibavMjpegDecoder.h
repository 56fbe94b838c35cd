#pragma once

#include <memory>

#include "platform/camera/MjpegDecoder.h"

namespace oxelo {

// MJPEG pictures decoded by libavcodec's MJPEG decoder, then made NV12 by
// planarToNv12 (4:2:0, 4:2:2, 4:4:4 and 4:4:0 JPEGs and greyscale). The
// frame is tagged as the JPEG says: full range unless it is marked as video
// range, BT.601 unless it is marked BT.709.
std::unique_ptr<MjpegDecoder> makeLibavMjpegDecoder();

}  // namespace oxelo
