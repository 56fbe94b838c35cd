#pragma once

#include <cstdint>

namespace oxelo {

// A size in pixels, width by height.
struct VideoSize {
  double width = 0;
  double height = 0;
  friend bool operator==(const VideoSize&, const VideoSize&) = default;
};

// The nine size steps of a live session, 0 to 8. The same number is the
// index the setting `videoSize` holds, though the catalogue of sizes closes
// up where the camera lacks a size and this table does not.
using LFLiveVideoSessionPreset = uint64_t;
inline constexpr LFLiveVideoSessionPreset kLFLiveVideoSessionPresetLast = 8;

// The output size of a step as it stands for portrait (width by height):
// 360x640, 480x640, 540x960, 600x800, 720x1280, 960x1280, 1080x1920,
// 1440x2560, 2160x3840. A value above 8 has the size of 1.
VideoSize portraitSizeOfPreset(LFLiveVideoSessionPreset preset);

// The capture preset the camera session is asked for; it may be larger than
// the output, and the filter chain crops the difference. A value above 8 has
// the capture preset of 1.
const char* capturePresetOfPreset(LFLiveVideoSessionPreset preset);

}  // namespace oxelo
