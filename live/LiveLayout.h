#pragma once

#include <array>
#include <cstdint>

namespace oxelo {

struct LiveRect {
  double x = 0, y = 0, width = 0, height = 0;
  double right() const { return x + width; }
  double bottom() const { return y + height; }
  double centerX() const { return x + width * 0.5; }
  double centerY() const { return y + height * 0.5; }
  bool operator==(const LiveRect&) const = default;
};

// The buttons of the two rows, in the order they are placed from the right.
enum class LiveButton : int {
  close = 0,
  camera,
  mirror,
  beauty,
  torch,
  wifi,  // top row ends here
  record,
  snapshot,
  settings,
};
inline constexpr int kLiveButtonCount = 9;

// What the overlays are laid out for: the live view's size in points, the
// device class, and the configuration's output shape.
struct LiveLayoutInput {
  double width = 0, height = 0;  // the view's frame
  bool tablet = false;           // userInterfaceIdiom 1; anything else is a phone
  bool landscape = true;         // from the video configuration
  double videoWidth = 1280, videoHeight = 720;
  bool torchHidden = false;  // no back camera with a torch: the row closes up
};

// The layout values of the live screen, worked out once at creation. All
// rectangles are in the live view's coordinates except where told.
struct LiveLayout {
  static constexpr double kButtonSize = 44.0;

  int64_t buttonSpace = 0;  // gap between neighbouring buttons
  double topMargin = 0;     // top row below the top of the video rectangle
  double rowMargin = 0;     // rows from the right; battery icon and info label from the left
  double bottomMargin = 0;  // bottom row above the bottom of the video rectangle

  LiveRect video;  // containerView: the largest rectangle of the video's shape
  // Grid lines inside `video`, in its coordinates, one point thick: the two
  // vertical ones then the two horizontal ones.
  std::array<LiveRect, 4> grid{};
  // Every button, in `video`'s coordinates; a hidden wifi button keeps its
  // place, a hidden torch has none (empty) and the wifi button closes up.
  std::array<LiveRect, kLiveButtonCount> buttons{};
  bool wifiHidden = false;  // W of 320 points or less
  LiveRect bottomView;      // in `video`'s coordinates, 44 high
  LiveRect batteryIcon;     // in `video`'s coordinates
  LiveRect infoLabel;       // in `video`'s coordinates
  double infoFontSize = 16.0;
  // Centre of the lock label, in `video`'s coordinates; its size follows its
  // text (text size plus the paddings below).
  double lockCenterX = 0, lockCenterY = 0;
  static constexpr double kLockPaddingWidth = 12.0;
  static constexpr double kLockPaddingHeight = 6.0;
  static constexpr double kLockFontSize = 15.0;
};

// The margins and the button gap alone (the steps that overwrite each
// other), and the video rectangle alone; liveLayout() uses both.
LiveLayout liveLayoutValues(const LiveLayoutInput& input);
LiveRect videoRectangle(const LiveLayoutInput& input);
LiveLayout liveLayout(const LiveLayoutInput& input);

}  // namespace oxelo
