#pragma once

#include <cstdint>
#include <optional>

namespace oxelo {

// The rules that turn a touch on the picture into a camera setting, as plain
// functions of the values they read. OXLiveView applies them.

// A point as fractions of the picture, 0 to 1.
struct FocusFraction {
  double u = 0, v = 0;
};

// What the focus correction needs of the configuration and the camera.
struct FocusGeometry {
  double viewWidth = 0, viewHeight = 0;    // containerView
  double videoWidth = 0, videoHeight = 0;  // the configuration's videoSize
  int64_t sessionPreset = 0;
  bool landscape = true;
  double formatWidth = 0, formatHeight = 0;  // the camera's active format, long side first
  bool mirror = false;
};

// The point (x, y) in containerView coordinates as the fractions that the
// capture's setFocusPoint takes: for the presets cut out of a larger camera
// format (0, 3, 5, 7) moved into the camera's frame, then turned in x when
// the picture is mirrored.
FocusFraction focusFraction(double x, double y, const FocusGeometry& geometry);

// What a tap (or the host's focus point) does.
enum class TapAction { none, focus, expose };
struct TapContext {
  int64_t aeafLock = 0;
  bool customFocusSupported = false, afLock = false;
  bool customExposureSupported = false, aeLock = false;
};
// focus: setFocusPoint animated; expose: the quiet one; none: nothing.
TapAction tapAction(const TapContext& context);
// With the panel open a tap counts only above it (panelY below 0, the touch
// in the panel's coordinates) and below the top strip of 50 points.
bool tapPassesPanel(bool panelVisible, double panelY, double containerY);

// The long press steps the lock: 0 to 1, 1 to 2, anything else to 0.
int64_t nextAeafLock(int64_t lock);
// A long press in the upper left quarter also allows the idle cover again.
bool inUpperLeftQuarter(double x, double y, double width, double height);

// The pinch's zoom: scale x the zoom at its start, capped at maxZoom, then at
// least 1.0. Empty when that equals the present zoom (nothing to send).
std::optional<double> pinchZoom(double scale, double zoomAtStart, double maxZoom,
                                double presentZoom);

// Whether a drag (its translation, at the recogniser state `state`) closes
// the panel: state changed (2), |dy| above 20, nearly vertical (|dy/dx| above
// 5 or dx 0), downwards.
bool dragClosesPanel(int state, double dx, double dy);

}  // namespace oxelo
