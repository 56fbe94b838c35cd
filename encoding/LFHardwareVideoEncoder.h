#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "encoding/VideoCodecSession.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/LFVideoEncoding.h"
#include "platform/device/AppLifecycle.h"

namespace oxelo {

// Turns the pixel buffers of video capture (BGRA, NV12 or I420) into H.264
// or HEVC frames through a codec session (libavcodec by default; see
// LibavVideoCodecSession, which says when a picture is converted), and offers
// the running bit rate for adaptation.
//
// The session is created with the encoder and again when the application
// becomes active after it resigned; it reads the settings `videoEncoder`
// (1: HEVC, else H.264), `colorspace` and `isCamBT601` at each creation.
// Presentation times count frames at the configuration's nominal rate; the
// capture time travels apart as the frame's timestamp. Frame 1 of a session
// and every frame 1 + k x videoMaxKeyframeInterval are forced key frames.
// The parameter sets are taken from the first key frame of the encoder's
// life and stay for good; every frame carries them, null until then.
//
// Threads: encodeVideoData() runs on the video processing queue; the codec
// works synchronously, so the delegate is called on that queue too, after
// the encoder's own lock is let go. The life-cycle notifications arrive on
// the main queue, setVideoBitRate() and stopEncoder() on the main queue or a
// socket callback. One lock serialises the codec session; the background
// flag is set before and cleared after the session is replaced, so no
// picture reaches a session being replaced.
class LFHardwareVideoEncoder final : public LFVideoEncoding,
                                     public std::enable_shared_from_this<LFHardwareVideoEncoder> {
 public:
  // Creates the encoder and its session and starts following `lifecycle`'s
  // will-resign-active and did-become-active notifications. `sessionFactory`
  // none: libavcodec with the default encoders.
  static std::shared_ptr<LFHardwareVideoEncoder> create(
      std::shared_ptr<LFLiveVideoConfiguration> configuration,
      VideoCodecSessionFactory sessionFactory = {},
      std::shared_ptr<AppLifecycle> lifecycle = AppLifecycle::shared());
  ~LFHardwareVideoEncoder() override;

  void encodeVideoData(std::shared_ptr<PixelBuffer> pixelBuffer, uint64_t timeStamp) override;
  void setDelegate(std::weak_ptr<LFVideoEncodingDelegate> delegate) override;
  void stopEncoder() override;
  int64_t videoBitRate() const override { return currentVideoBitRate_.load(); }
  // The layout the current session's codec takes; BGRA without a session.
  PixelFormat preferredPixelFormat() const override;
  // Sets the average rate and a limit of five times the average byte rate in
  // any second (value x 5 / 8 bytes per 1 second). Refused while in the
  // background. The configuration's videoBitRate is not touched.
  void setVideoBitRate(int64_t videoBitRate) override;

  // State, for statistics and tests. Any thread.
  bool isBackGround() const { return isBackGround_.load(); }
  bool useH265() const;
  int64_t frameCount() const;
  bool hasCompressionSession() const;
  std::string encoderName() const;  // empty without a session
  RateControl rateControl() const;  // as the codec holds it now
  ColourTags colourTags() const;    // those of the current session

  // Life-cycle steps (main queue); public for the notifications.
  void willEnterBackground();
  void willEnterForeground();

 private:
  LFHardwareVideoEncoder(std::shared_ptr<LFLiveVideoConfiguration> configuration,
                         VideoCodecSessionFactory sessionFactory);
  using Frames = std::vector<std::shared_ptr<LFVideoFrame>>;
  // mutex_ held. `cameraBT601`: the camera's matrix where it is known,
  // else the setting isCamBT601 stands for it.
  void initCompressionSession(Frames& out, std::optional<bool> cameraBT601 = std::nullopt);
  // mutex_ held, before the first picture: where the tags name the camera's
  // matrix ("Auto") and the setting guessed it wrong (it records the
  // previous capture's camera), the session is made again with the matrix
  // of the camera's own YCbCr picture, which then needs no conversion.
  void followCameraMatrix(const PixelBuffer& picture, Frames& out);
  void outputCallback(CodedSample&& sample);          // inside a session call, mutex_ held
  void takeParameterSets(const ParameterSets& sets);  // mutex_ held
  void deliver(const Frames& frames);                 // mutex_ not held

  const std::shared_ptr<LFLiveVideoConfiguration> configuration_;
  const VideoCodecSessionFactory sessionFactory_;
  Subscription lifecycleSubscription_;

  mutable std::mutex mutex_;
  std::unique_ptr<VideoCodecSession> compressionSession_;   // mutex_
  int64_t frameCount_ = 0;                                  // mutex_
  bool useH265_ = false;                                    // mutex_
  ColourTags colour_;                                       // mutex_
  std::shared_ptr<const Bytes> sps_;                        // mutex_
  std::shared_ptr<const Bytes> pps_;                        // mutex_
  std::shared_ptr<const Bytes> vps_;                        // mutex_
  std::weak_ptr<LFVideoEncodingDelegate> encoderDelegate_;  // mutex_
  Frames* collecting_ = nullptr;  // mutex_: where outputCallback puts frames during a call

  std::atomic<bool> isBackGround_{false};
  std::atomic<int64_t> currentVideoBitRate_{0};
};

}  // namespace oxelo
