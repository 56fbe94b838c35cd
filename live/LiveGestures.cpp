#include "live/LiveGestures.h"

#include <algorithm>
#include <cmath>

namespace oxelo {

FocusFraction focusFraction(double x, double y, const FocusGeometry& g) {
  const double vw = g.videoWidth, vh = g.videoHeight;
  double u = x * (vw / g.viewWidth) / vw;
  double v = y * (vh / g.viewHeight) / vh;
  const int64_t preset = g.sessionPreset;
  if ((preset == 0 || preset == 3 || preset == 5 || preset == 7) && g.formatWidth > 0 &&
      g.formatHeight > 0) {
    const double L = std::max(vw, vh), S = std::min(vw, vh);
    const double W = g.formatWidth, H = g.formatHeight;
    if (S / L != H / W) {
      const double a = L / W, b = S / H;
      if (g.landscape) {
        u = u * a + (1 - a) * 0.5;
        v = v * b + (1 - b) * 0.5;
      } else {
        u = u * b + (1 - b) * 0.5;
        v = v * a + (1 - a) * 0.5;
      }
    }
  }
  if (g.mirror) u = 1 - u;
  return {u, v};
}

TapAction tapAction(const TapContext& c) {
  if (c.aeafLock == 2) return TapAction::none;
  if (c.customFocusSupported && !c.afLock) return TapAction::focus;
  if (c.customExposureSupported && !c.aeLock) return TapAction::expose;
  return TapAction::none;
}

bool tapPassesPanel(bool panelVisible, double panelY, double containerY) {
  if (!panelVisible) return true;
  return panelY < 0 && containerY >= 50.0;
}

int64_t nextAeafLock(int64_t lock) {
  if (lock == 0) return 1;
  if (lock == 1) return 2;
  return 0;
}

bool inUpperLeftQuarter(double x, double y, double width, double height) {
  return x < width * 0.25 && y < height * 0.25;
}

std::optional<double> pinchZoom(double scale, double zoomAtStart, double maxZoom,
                                double presentZoom) {
  double z = scale * zoomAtStart;
  z = std::min(z, maxZoom);
  z = std::max(z, 1.0);
  if (z == presentZoom) return std::nullopt;
  return z;
}

bool dragClosesPanel(int state, double dx, double dy) {
  if (state != 2 || std::fabs(dy) <= 20.0) return false;
  if (dx != 0 && std::fabs(dy / dx) <= 5.0) return false;
  return dy > 0;
}

}  // namespace oxelo
