#include "live/LiveLayout.h"

#include <algorithm>

namespace oxelo {

namespace {
// The view's size in the direction of the video.
void videoDirection(const LiveLayoutInput& in, double& W, double& H) {
  const double longSide = std::max(in.width, in.height), shortSide = std::min(in.width, in.height);
  W = in.landscape ? longSide : shortSide;
  H = in.landscape ? shortSide : longSide;
}
}  // namespace

LiveLayout liveLayoutValues(const LiveLayoutInput& in) {
  LiveLayout l;
  const double longSide = std::max(in.width, in.height), shortSide = std::min(in.width, in.height);
  if (in.tablet) {
    l.buttonSpace = 15;
    l.topMargin = 15.0;
    l.rowMargin = 20.0;
    l.bottomMargin = 15.0;
  } else {
    l.buttonSpace = 10;
    l.rowMargin = 15.0;
  }
  if (in.landscape) l.buttonSpace += 5;
  if (in.tablet) return l;
  if (in.landscape) {
    l.topMargin = 5.0;
    l.rowMargin = 10.0;
    l.bottomMargin = 15.0;
  } else {
    l.topMargin = 15.0;
    l.bottomMargin = 15.0;
    if (shortSide > 0 && longSide / shortSide > 1.7777777777777777) {
      l.buttonSpace = 4;
      l.topMargin = 2.0;
      l.rowMargin = 4.0;
      l.bottomMargin = 5.0;
    }
  }
  if (shortSide <= 320.0) {
    l.buttonSpace = in.landscape ? 7 : 0;
    l.topMargin = l.rowMargin = l.bottomMargin = 5.0;
  }
  return l;
}

LiveRect videoRectangle(const LiveLayoutInput& in) {
  double W = 0, H = 0;
  videoDirection(in, W, H);
  const double r = in.videoWidth / in.videoHeight;
  const double horizontal = std::max(0.0, (W - H * r) * 0.5);
  const double vertical = std::max(0.0, (H - W / r) * 0.5);
  return {horizontal, vertical, W - 2 * horizontal, H - 2 * vertical};
}

LiveLayout liveLayout(const LiveLayoutInput& in) {
  LiveLayout l = liveLayoutValues(in);
  l.video = videoRectangle(in);
  double W = 0, H = 0;
  videoDirection(in, W, H);
  const double vw = l.video.width, vh = l.video.height, b = LiveLayout::kButtonSize;
  const double space = static_cast<double>(l.buttonSpace);

  l.grid = {LiveRect{vw / 3.0, 0, 1, vh}, LiveRect{vw * 2.0 / 3.0, 0, 1, vh},
            LiveRect{0, vh / 3.0, vw, 1}, LiveRect{0, vh * 2.0 / 3.0, vw, 1}};

  // Top row from the right; a hidden torch leaves no gap.
  double right = vw - l.rowMargin;
  for (LiveButton button : {LiveButton::close, LiveButton::camera, LiveButton::mirror,
                            LiveButton::beauty, LiveButton::torch, LiveButton::wifi}) {
    if (button == LiveButton::torch && in.torchHidden) continue;
    l.buttons[static_cast<size_t>(button)] = {right - b, l.topMargin, b, b};
    right -= b + space;
  }
  l.wifiHidden = W <= 320.0;
  l.batteryIcon = {l.rowMargin, l.topMargin, b, b};

  l.bottomView = {0, vh - l.bottomMargin - b, vw, b};
  right = vw - l.rowMargin;
  for (LiveButton button : {LiveButton::record, LiveButton::snapshot, LiveButton::settings}) {
    l.buttons[static_cast<size_t>(button)] = {right - b, l.bottomView.y, b, b};
    right -= b + space;
  }

  l.infoFontSize = in.tablet ? 22.0 : 16.0;
  l.infoLabel = {l.rowMargin, in.tablet ? 70.0 : 45.0, in.tablet ? 400.0 : 300.0, 25.0};
  const LiveRect& snapshot = l.buttons[static_cast<size_t>(LiveButton::snapshot)];
  l.lockCenterX = vw * 0.5;
  l.lockCenterY = in.landscape ? snapshot.centerY() : snapshot.centerY() - 40.0;
  return l;
}

}  // namespace oxelo
