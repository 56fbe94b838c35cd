#pragma once

#include <cstdint>

#include "platform/camera/CameraFrame.h"

namespace oxelo {

// The virtual cameras' picture, drawn straight into NV12 in the frame's
// matrix and range: a vertical colour gradient with a bar that sweeps across
// and a square that moves down, different in every frame and the same for
// the same frame number, and on top four fixed corner patches, each an
// eighth of the width and of the height (rounded down to even, at least 2):
// red top left, green top right, blue bottom left, white bottom right, as a
// back camera's sensor sees them, so that a turn or a mirror on the way is
// visible. `halfTurned`: the whole scene as a sensor mounted half a turn
// from the back one sees it (the phone's front camera): turned half round,
// red at the bottom right.
void renderVirtualPicture(CameraFrame& frame, uint64_t frameNumber, bool halfTurned = false);

// Where the moving parts of the picture stand in one frame; the virtual
// cameras and the picture pushed by the headless screen draw the same one.
struct MovingPictureLayout {
  int barX, barWidth;          // the sweeping bar, full height
  int squareX, squareY, side;  // the square moving down
  uint8_t shift;               // colour step of the frame
  uint8_t backgroundGreen() const { return static_cast<uint8_t>(96 + shift / 2); }
  uint8_t squareBlue() const { return static_cast<uint8_t>(shift * 3); }
};
MovingPictureLayout movingPictureLayout(int width, int height, uint64_t frameNumber);

// The size of one corner patch for a picture of that size.
int32_t cornerPatchWidth(int32_t width);
int32_t cornerPatchHeight(int32_t height);

}  // namespace oxelo
