#pragma once

#include <cstdint>
#include <memory>

#include "media/LFAudioEncoding.h"
#include "media/LFFrame.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/PixelBuffer.h"

namespace oxelo {

class LFVideoEncoding;

// Receives the coded frames of a video encoder, on the encoder thread: the
// codec backend's output thread, or the caller of encodeVideoData() (the
// video processing queue) where the codec works synchronously. Optional: the
// default ignores them.
class LFVideoEncodingDelegate {
 public:
  virtual ~LFVideoEncodingDelegate() = default;
  virtual void videoEncoderVideoFrame(LFVideoEncoding* /*encoder*/,
                                      std::shared_ptr<LFVideoFrame> /*frame*/) {}
};

// Turns pixel buffers (BGRA, NV12 or I420) into H.264 or HEVC frames and
// offers the running bit rate for adaptation. Created by the session (through an EncoderFactory)
// on first use.
class LFVideoEncoding {
 public:
  virtual ~LFVideoEncoding() = default;

  // Any thread: the layout the encoder takes pictures in without a
  // conversion, so that capture can end its draws in it. Pictures of the
  // other layouts are still taken.
  virtual PixelFormat preferredPixelFormat() const { return PixelFormat::bgra; }
  // Video processing queue. Queues one picture; `timeStamp` (milliseconds,
  // media clock) comes back as the frame's timestamp.
  virtual void encodeVideoData(std::shared_ptr<PixelBuffer> pixelBuffer, uint64_t timeStamp) = 0;
  // Held weakly. Any thread, before frames flow.
  virtual void setDelegate(std::weak_ptr<LFVideoEncodingDelegate> /*delegate*/) {}
  // Main queue. Delivers the frames still in flight and returns when they
  // are out; the encoder stays usable.
  virtual void stopEncoder() {}
  // Any thread: the average bit rate now in force, bits per second.
  virtual int64_t videoBitRate() const { return 0; }
  // Any thread (main queue, socket callbacks): changes the average bit rate
  // while encoding.
  virtual void setVideoBitRate(int64_t /*videoBitRate*/) {}
};

// Makes the session's encoders, so that the session (in transport) creates
// them on first use without knowing which implementation stands behind
// them. The shell hands one to the session. Main queue.
class EncoderFactory {
 public:
  virtual ~EncoderFactory() = default;
  virtual std::shared_ptr<LFVideoEncoding> makeVideoEncoder(
      std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration) = 0;
  virtual std::shared_ptr<LFAudioEncoding> makeAudioEncoder(
      std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration) = 0;
};

}  // namespace oxelo
