#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace oxelo {

class LFLiveAudioConfiguration;
class LFLiveVideoConfiguration;

// The target of a stream and its two configurations, shared with the live
// session. `host` and `port` are set together or not at all: the live view
// sets them when it knows both; without them the socket needs a handed-over
// carrier. Written before the socket starts, read-only afterwards.
struct LFLiveStreamInfo {
  std::string streamId;  // copied into the statistics; not set by this program
  std::string host;      // host of a connection that the socket opens itself
  int64_t port = 0;      // its TCP port; the socket uses the low 16 bits
  std::string url;       // copied into the statistics; not set by this program
  std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration;
  std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration;
};

}  // namespace oxelo
