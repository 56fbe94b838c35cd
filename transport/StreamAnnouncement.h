#pragma once

#include "transport/LFLiveStreamInfo.h"
#include "wire/InfoPacket.h"

namespace oxelo {

// What the info packet announces for `stream`: the numbers of its two
// configurations, the settings `videoEncoder` and `audioFormat` (no audio
// numbers below 1), the device's name, the application's size catalogue and
// the HEVC decode flag. Reads the settings and the catalogue as they are
// now; any thread.
wire::InfoPacketFields infoPacketFields(const LFLiveStreamInfo& stream, bool hevcDecodeSupported);

}  // namespace oxelo
