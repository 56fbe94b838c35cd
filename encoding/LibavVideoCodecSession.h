#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "encoding/PictureConverter.h"
#include "encoding/VideoCodecSession.h"

struct AVBufferRef;
struct AVCodec;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace oxelo {

// A video codec session on libavcodec. Tries the encoders it is given in
// order and keeps the first that opens: by default a hardware encoder where
// the device has one (VA-API on /dev/dri/renderD128, then V4L2 mem2mem), else
// libx264 (preset veryfast) or libx265 (preset ultrafast, as its veryfast
// costs several times as much), both tuned for zero latency. Every encoder
// runs with no B-frames, so no reordering; key frames come where they are
// forced and at the maximum interval, never at scene cuts. Output is Annex B
// from libavcodec, rewritten to length-prefixed NAL units with the parameter
// sets and delimiters taken out (NalUnits.h).
//
// The environment variable OXELO_VIDEO_ENCODER, a comma-separated list of
// libavcodec encoder names, replaces the default order (e.g. "libx264" to
// keep a board's hardware encoder out).
//
// Pictures. The codec takes NV12 where the encoder offers it (libx264; VA-API,
// which uploads it to the device), else I420 (libx265). A BGRA picture is
// converted with the matrix of the colour tags
// (ColourTags::effectiveConversionMatrix()). An NV12 or I420 picture in the
// codec's layout, in limited range and in that matrix goes to the codec without
// a conversion and without a copy: the frame's buffers reference the picture's
// planes, read-only, and keep the picture alive until the codec lets them go.
// Any other YCbCr picture is converted to what the tags say (layout and range
// in one step; another matrix through RGB), so that the tags always describe
// the samples that are coded.
//
// Rate control. Every encoder targets the average bit rate (libx264 and
// libx265 in their average bit rate mode) under a buffer model derived from
// the byte limit: a buffer of B bits refilled at the average rate A lets at
// most B + A x T bits out in any window of T seconds, so B = L - A x T for a
// limit of L bits in T seconds (at least one picture's worth at the
// average). The buffer takes the bursts, key frames first; in the long run
// no more than the average goes out. With the usual limit of five times the
// average byte rate per second the buffer holds four seconds at the average.
// The peak rate is the average itself because libx264 takes a new average in
// place only then: it changes rate between two pictures, with no key frame.
// A lowered rate shows within about a second (the buffer's credit is cut with
// it); a raised one is reached gradually, over several seconds, as libx264's
// rate control also weighs the pictures coded before. The other encoders cannot change their
// rate while open, so they are closed and opened again with the new rate,
// and as that makes a key frame, it waits for the next picture that is a key
// frame anyway (forced, or at the interval): no key frame is added, and the
// old rate holds until then.
//
// Not thread-safe: LFHardwareVideoEncoder serialises every call. The codec
// works synchronously on the caller's thread, and the output function runs
// inside encodeFrame() and completeFrames().
class LibavVideoCodecSession final : public VideoCodecSession {
 public:
  // None, with one log line, when no encoder opens. Logs the encoder chosen.
  // `encoderNames` empty: encoderNamesFor(settings.codec).
  static std::unique_ptr<LibavVideoCodecSession> open(const VideoCodecSettings& settings,
                                                      Output output,
                                                      std::vector<std::string> encoderNames = {});
  // The default order for a codec, or OXELO_VIDEO_ENCODER where it is set.
  static std::vector<std::string> encoderNamesFor(VideoCodec codec);
  // A factory for LFHardwareVideoEncoder that opens sessions with `encoderNames`.
  static VideoCodecSessionFactory factory(std::vector<std::string> encoderNames = {});

  ~LibavVideoCodecSession() override;

  const std::string& encoderName() const override { return name_; }
  PixelFormat preferredPixelFormat() const override;
  bool encodeFrame(const std::shared_ptr<PixelBuffer>& picture, int64_t presentationFrames,
                   bool forceKeyFrame, uint64_t userValue) override;
  void completeFrames() override;
  void setBitRate(int64_t averageBitRate, int64_t dataRateLimitBytes,
                  double dataRateLimitSeconds) override;
  RateControl rateControl() const override;

 private:
  LibavVideoCodecSession(const VideoCodecSettings& settings, Output output);
  bool openEncoder(const std::string& name);
  void closeEncoder();
  void reopen();
  void configure(AVCodecContext* context, const std::string& name) const;
  void applyRate(AVCodecContext* context) const;
  // The frame that carries `picture` to the codec: one referencing its
  // planes (`wrapped`, freed by the caller), or frame_ filled by the
  // converter. Null when neither works.
  AVFrame* frameFor(const std::shared_ptr<PixelBuffer>& picture, AVFrame*& wrapped);
  bool changesRateInPlace() const { return name_ == "libx264"; }
  // Drains what the codec has ready (everything, after the end marker).
  void receivePackets();
  void handlePacket(AVPacket* packet);

  VideoCodecSettings settings_;
  Output output_;
  std::string name_;
  bool hardwareFrames_ = false;  // VA-API: pictures are uploaded to the device
  int softwareFormat_ = -1;      // the AVPixelFormat pictures are converted to
  AVCodecContext* context_ = nullptr;
  AVBufferRef* hardwareDevice_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
  std::unique_ptr<PictureConverter> converter_;
  std::map<int64_t, uint64_t> userValues_;  // by presentation time, until the picture is out
  int64_t inFlight_ = 0;                    // pictures taken and not yet out
  bool reopenPending_ = false;
  bool ratePending_ = false;         // a new rate waits for the next key frame
  int64_t keyFrameInterval_ = 0;     // the codec's own, in pictures
  int64_t framesSinceKeyFrame_ = 0;  // pictures taken since the last key frame, it included
};

}  // namespace oxelo
