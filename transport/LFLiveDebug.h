#pragma once

#include <cstdint>
#include <string>

namespace oxelo {

// Statistics of a stream, measured per second. Written by the socket's send
// passes on rtmpSendQueue; the socket hands a copy to its delegate.
struct LFLiveDebug {
  struct Size {
    double width = 0;
    double height = 0;
  };

  std::string streamId;   // copy of the stream info's field
  std::string uploadUrl;  // copy of the stream info's `url`
  Size videoSize;         // not filled by this program
  bool isRtmp = false;
  double elapsedMilli = 0;      // ms since the current measuring second began
  double timeStamp = 0;         // media clock (ms) when that second began; 0 before
  double dataFlow = 0;          // bytes of frame data since the record was created
  double bandwidth = 0;         // bytes of frame data in the current second
  double currentBandwidth = 0;  // bytes in the last finished second; 0 after a loss
  int64_t dropFrame = 0;        // frames dropped since the record was created
  int64_t totalFrame = 0;       // frames taken from the buffer since then
  int64_t capturedAudioCount = 0;
  int64_t capturedVideoCount = 0;
  int64_t currentCapturedAudioCount = 0;
  int64_t currentCapturedVideoCount = 0;
  int64_t unSendCount = 0;  // frames waiting when the last frame was sent
};

}  // namespace oxelo
