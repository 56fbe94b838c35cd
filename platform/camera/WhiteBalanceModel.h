#pragma once

#include "platform/camera/CaptureTypes.h"

namespace oxelo {

// The conversion between a colour temperature with tint and the three
// channel gains, the same for every backend. Light at 6500 K with tint 0
// needs no correction (all gains 1.0). Warmer light (lower kelvin) raises
// blue against red, cooler light the reverse: red / blue = (T / 6500)^1.5.
// A positive tint calls for more green: green / sqrt(red * blue) =
// 2^(tint / 150). The gains are scaled so that the smallest is 1.0. The two
// directions are exact inverses.
AVCaptureWhiteBalanceGains whiteBalanceGainsForTemperatureAndTint(
    AVCaptureWhiteBalanceTemperatureAndTintValues values);
AVCaptureWhiteBalanceTemperatureAndTintValues temperatureAndTintForWhiteBalanceGains(
    AVCaptureWhiteBalanceGains gains);

}  // namespace oxelo
