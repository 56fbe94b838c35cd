#include "platform/camera/CaptureDeviceFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace oxelo {

namespace {

// 1 / rate as a time: exact for whole rates, else in nanoseconds.
CaptureTime durationOfRate(double rate) {
  if (rate <= 0) return CaptureTime::invalid();
  if (rate == std::floor(rate) && rate <= 1e9)
    return CaptureTime::make(1, static_cast<int32_t>(rate));
  return CaptureTime::withSeconds(1.0 / rate, 1000000000);
}

double rateOfDuration(CaptureTime d) {
  if (!d.isValid() || d.value <= 0) return 0.0;
  return static_cast<double>(d.timescale) / static_cast<double>(d.value);
}

}  // namespace

AVFrameRateRange AVFrameRateRange::fromRates(double minRate, double maxRate) {
  AVFrameRateRange r;
  r.minFrameRate = minRate;
  r.maxFrameRate = maxRate;
  r.minFrameDuration = durationOfRate(maxRate);
  r.maxFrameDuration = durationOfRate(minRate);
  return r;
}

AVFrameRateRange AVFrameRateRange::fromDurations(CaptureTime shortest, CaptureTime longest) {
  AVFrameRateRange r;
  r.minFrameDuration = shortest;
  r.maxFrameDuration = longest;
  r.maxFrameRate = rateOfDuration(shortest);
  r.minFrameRate = rateOfDuration(longest);
  return r;
}

double CaptureDeviceFormat::maxFrameRate() const {
  double best = 0;
  for (const auto& r : videoSupportedFrameRateRanges) best = std::max(best, r.maxFrameRate);
  return best;
}

std::string CaptureDeviceFormat::description() const {
  std::string rates;
  for (const auto& r : videoSupportedFrameRateRanges) {
    if (!rates.empty()) rates += ",";
    rates += r.minFrameRate == r.maxFrameRate
                 ? fmt::format("{:g}", r.maxFrameRate)
                 : fmt::format("{:g}-{:g}", r.minFrameRate, r.maxFrameRate);
  }
  return fmt::format("{}x{} {} {} fps{}", width, height, mediaSubType, rates,
                     nativePixelFormat.empty() ? "" : " from " + nativePixelFormat);
}

}  // namespace oxelo
