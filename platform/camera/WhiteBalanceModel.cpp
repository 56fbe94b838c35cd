#include "platform/camera/WhiteBalanceModel.h"

#include <algorithm>
#include <cmath>

namespace oxelo {

namespace {
constexpr double kNeutralKelvin = 6500.0;
constexpr double kTemperatureExponent = 1.5;
constexpr double kTintPerDoubling = 150.0;
}  // namespace

AVCaptureWhiteBalanceGains whiteBalanceGainsForTemperatureAndTint(
    AVCaptureWhiteBalanceTemperatureAndTintValues values) {
  double kelvin = std::max(1.0, static_cast<double>(values.temperature));
  double ratio = std::pow(kelvin / kNeutralKelvin, kTemperatureExponent / 2.0);
  double red = ratio;  // red / blue = ratio^2, their product 1
  double blue = 1.0 / ratio;
  double green = std::exp2(values.tint / kTintPerDoubling);
  double smallest = std::min({red, green, blue});
  return {static_cast<float>(red / smallest), static_cast<float>(green / smallest),
          static_cast<float>(blue / smallest)};
}

AVCaptureWhiteBalanceTemperatureAndTintValues temperatureAndTintForWhiteBalanceGains(
    AVCaptureWhiteBalanceGains gains) {
  double red = std::max(1e-6f, gains.redGain);
  double green = std::max(1e-6f, gains.greenGain);
  double blue = std::max(1e-6f, gains.blueGain);
  double kelvin = kNeutralKelvin * std::pow(red / blue, 1.0 / kTemperatureExponent);
  double tint = kTintPerDoubling * std::log2(green / std::sqrt(red * blue));
  return {static_cast<float>(kelvin), static_cast<float>(tint)};
}

}  // namespace oxelo
