#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "encoding/ColourTags.h"
#include "encoding/NalUnits.h"
#include "media/PixelBuffer.h"

namespace oxelo {

// Everything a video codec session is created with.
struct VideoCodecSettings {
  VideoCodec codec = VideoCodec::h264;  // H.264 Main with CABAC, or HEVC Main; level automatic
  int width = 0;
  int height = 0;
  int64_t expectedFrameRate = 0;           // also the time base: presentation times count frames
  int64_t maxKeyFrameInterval = 0;         // frames
  double maxKeyFrameIntervalDuration = 0;  // seconds
  int64_t averageBitRate = 0;              // bits per second
  int64_t dataRateLimitBytes = 0;          // at most this many bytes ...
  double dataRateLimitSeconds = 0;         // ... in any window of this length
  ColourTags colour;
};

// The rate control now in force inside the codec, as the codec holds it:
// the target, and the buffer model that caps it (a buffer of bufferBits
// drained at maxBitRate).
struct RateControl {
  int64_t averageBitRate = 0;  // bits per second
  int64_t maxBitRate = 0;      // bits per second
  int64_t bufferBits = 0;
};

// One coded picture as the codec session hands it out.
struct CodedSample {
  int status = 0;               // 0, or the codec's error: the picture is lost
  bool isSync = false;          // a key frame
  ParameterSets parameterSets;  // those this sample carried; empty where none
  std::vector<uint8_t> data;    // NAL units, each behind a 4-byte big-endian length
  uint64_t userValue = 0;       // the value given with the picture at encode time
};

// A running encoder of one codec, size and rate: the compression session
// behind LFHardwareVideoEncoder. Not thread-safe: its owner serialises every
// call. The output function is called synchronously from inside
// encodeFrame() and completeFrames(), once per coded picture, in order.
class VideoCodecSession {
 public:
  using Output = std::function<void(CodedSample&&)>;
  virtual ~VideoCodecSession() = default;

  // The encoder in use, as libavcodec names it ("libx264", "h264_vaapi").
  virtual const std::string& encoderName() const = 0;
  // The layout the codec takes: pictures in it (and in the session's matrix,
  // limited range) go in without a conversion.
  virtual PixelFormat preferredPixelFormat() const = 0;
  // Queues one picture, of any PixelFormat, at `presentationFrames` /
  // expectedFrameRate seconds. The session may keep a reference to the
  // picture until the codec is done with it, and never writes into it.
  // Returns false when the picture was dropped before the codec took it.
  virtual bool encodeFrame(const std::shared_ptr<PixelBuffer>& picture, int64_t presentationFrames,
                           bool forceKeyFrame, uint64_t userValue) = 0;
  // Hands out every picture still in flight; the session stays usable.
  virtual void completeFrames() = 0;
  // Changes the average bit rate and the byte limit while encoding.
  virtual void setBitRate(int64_t averageBitRate, int64_t dataRateLimitBytes,
                          double dataRateLimitSeconds) = 0;
  virtual RateControl rateControl() const = 0;
};

// Creates a session, or none when no encoder could be opened (with a log
// line).
using VideoCodecSessionFactory = std::function<std::unique_ptr<VideoCodecSession>(
    const VideoCodecSettings& settings, VideoCodecSession::Output output)>;

}  // namespace oxelo
