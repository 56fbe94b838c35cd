#pragma once

#include <cstdint>
#include <memory>

#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"

namespace oxelo {

// The two records of a live session and its capture type, built from the
// settings.
struct LiveSessionConfiguration {
  std::shared_ptr<LFLiveVideoConfiguration> video;
  std::shared_ptr<LFLiveAudioConfiguration> audio;
  uint64_t captureType = 3;  // 2 video only, 3 audio and video
};

// What the live view does when it first needs its session, on the main
// queue, reading UserDefaults::standard():
//   preset = `videoSize` as it stands; rate = `videoFPS`, at least 15;
//   quality = `videoQuality` modulo 3; orientation = 1 when `videoPortrait`,
//   else `statusBarOrientation` when it is 3 or 4, else 3.
// Builds the video record, stores its longer side as `videoWidth` and its
// shorter side as `videoHeight` and synchronises, sets autorotate; builds the
// audio record from `audioQuality` modulo 3; the capture type is 2 when
// `audioFormat` is below 1, else 3. The caller creates the session with them.
LiveSessionConfiguration configurationFromSettings(int64_t statusBarOrientation);

}  // namespace oxelo
