#include "live/LiveIndicators.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace oxelo {

std::string statisticsLine(uint64_t configuredBitRate, const LFLiveDebug& info) {
  const float configured = static_cast<float>(configuredBitRate) / static_cast<float>(1 << 20);
  const double sent = info.currentBandwidth * 8.0 * std::ldexp(1.0, -20);
  std::string text = fmt::format("{:.2f} → {:.2f} Mbps, {} fps", configured, sent,
                                 static_cast<unsigned long>(info.currentCapturedVideoCount));
  if (info.dropFrame >= 1)
    text = fmt::format("{}, {} dropped", text, static_cast<unsigned long>(info.dropFrame));
  return text;
}

int64_t signalLevel(int64_t encoderBitRate, uint64_t configuredBitRate, double currentBandwidth) {
  if (currentBandwidth == 0) return 0;
  if (configuredBitRate == 0) return 5;
  const double r =
      static_cast<double>(encoderBitRate) * 5.1 / static_cast<double>(configuredBitRate);
  return static_cast<int64_t>(std::min(r, 5.0));
}

int batteryIconClass(float level, BatteryState state) {
  if (state == BatteryState::charging) return 0;
  if (level >= 0.8f) return 4;
  if (level >= 0.5f) return 3;
  if (level >= 0.2f) return 2;
  return 1;
}

}  // namespace oxelo
