#pragma once

#include <cstdint>

#include "media/PixelBuffer.h"

namespace oxelo {

// The virtual camera's picture: a vertical colour gradient with a bar that
// sweeps across and a square that moves down, different in every frame and
// the same for the same frame number, so that an encoder has motion to code
// and a test can tell frames apart. Any thread.
void renderMovingPicture(PixelBuffer& buffer, uint64_t frameNumber);

}  // namespace oxelo
