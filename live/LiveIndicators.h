#pragma once

#include <cstdint>
#include <string>

#include "platform/device/Battery.h"
#include "transport/LFLiveDebug.h"

namespace oxelo {

// The statistics line of the info label: the configured rate and the rate
// sent in the last window, in megabits of 1,048,576 bits, and the frames sent
// in it; with ", N dropped" when frames were dropped since the start.
// "1.00 → 0.50 Mbps, 30 fps".
std::string statisticsLine(uint64_t configuredBitRate, const LFLiveDebug& info);

// The signal icon's level 0 to 5: how far the encoder's rate has fallen from
// the configured one (factor 5.1, capped at 5, fraction cut off); 0 when
// nothing was sent in the last window.
int64_t signalLevel(int64_t encoderBitRate, uint64_t configuredBitRate, double currentBandwidth);

// The battery icon's class: 0 charging, 1 empty (below 0.2), 2 low (below
// 0.5), 3 and 4 (0.5 and 0.8 or more) not shown.
int batteryIconClass(float level, BatteryState state);

}  // namespace oxelo
