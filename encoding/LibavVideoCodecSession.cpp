#include "encoding/LibavVideoCodecSession.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <sstream>

#include "encoding/LibavLog.h"
#include "platform/log/Log.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace oxelo {

namespace {

constexpr const char* kRenderNode = "/dev/dri/renderD128";

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

const char* codecLabel(VideoCodec codec) { return codec == VideoCodec::hevc ? "HEVC" : "H.264"; }

// What the encoder takes: NV12 where it can (the camera's own layout, so
// its frames need no conversion; libx264 keeps its chroma interleaved
// anyway), else I420.
int softwareFormatFor(const AVCodec* codec) {
  if (!codec->pix_fmts) return AV_PIX_FMT_YUV420P;
  int found = AV_PIX_FMT_NONE;
  for (const AVPixelFormat* f = codec->pix_fmts; *f != AV_PIX_FMT_NONE; ++f) {
    if (*f == AV_PIX_FMT_NV12) return *f;
    if (*f == AV_PIX_FMT_YUV420P) found = *f;
  }
  return found;
}

void setOption(AVCodecContext* context, const char* key, const char* value) {
  av_opt_set(context->priv_data, key, value, 0);  // an option the encoder lacks is ignored
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

void releasePicture(void* opaque, uint8_t* /*data*/) {
  delete static_cast<std::shared_ptr<PixelBuffer>*>(opaque);
}

// A frame whose buffers reference the picture's planes, read-only: the
// codec copies before it would write, and each buffer holds the picture.
AVFrame* wrapPicture(const std::shared_ptr<PixelBuffer>& picture, int format) {
  AVFrame* frame = av_frame_alloc();
  if (!frame) return nullptr;
  frame->format = format;
  frame->width = picture->width();
  frame->height = picture->height();
  for (int i = 0; i < picture->planeCount(); ++i) {
    const size_t stride = picture->planeStride(i);
    const size_t size =
        stride * static_cast<size_t>(picture->planeHeight(i) - 1) + picture->planeRowBytes(i);
    auto* holder = new std::shared_ptr<PixelBuffer>(picture);
    frame->buf[i] =
        av_buffer_create(picture->plane(i), size, releasePicture, holder, AV_BUFFER_FLAG_READONLY);
    if (!frame->buf[i]) {
      delete holder;
      av_frame_free(&frame);
      return nullptr;
    }
    frame->data[i] = picture->plane(i);
    frame->linesize[i] = static_cast<int>(stride);
  }
  return frame;
}

}  // namespace

std::vector<std::string> LibavVideoCodecSession::encoderNamesFor(VideoCodec codec) {
  if (const char* chosen = std::getenv("OXELO_VIDEO_ENCODER"); chosen && *chosen) {
    std::vector<std::string> names;
    std::stringstream list(chosen);
    for (std::string name; std::getline(list, name, ',');)
      if (!name.empty()) names.push_back(name);
    if (!names.empty()) return names;
  }
  if (codec == VideoCodec::hevc) return {"hevc_vaapi", "hevc_v4l2m2m", "libx265"};
  return {"h264_vaapi", "h264_v4l2m2m", "libx264"};
}

VideoCodecSessionFactory LibavVideoCodecSession::factory(std::vector<std::string> encoderNames) {
  return [encoderNames](const VideoCodecSettings& settings,
                        Output output) -> std::unique_ptr<VideoCodecSession> {
    return open(settings, std::move(output), encoderNames);
  };
}

std::unique_ptr<LibavVideoCodecSession> LibavVideoCodecSession::open(
    const VideoCodecSettings& settings, Output output, std::vector<std::string> encoderNames) {
  installLibavLog();
  if (encoderNames.empty()) encoderNames = encoderNamesFor(settings.codec);
  std::unique_ptr<LibavVideoCodecSession> session(
      new LibavVideoCodecSession(settings, std::move(output)));
  for (const auto& name : encoderNames) {
    if (!session->openEncoder(name)) continue;
    oxlog("VideoEncoder: {} for {} {}x{}, {} fps, {} b/s", name, codecLabel(settings.codec),
          settings.width, settings.height, settings.expectedFrameRate, settings.averageBitRate);
    return session;
  }
  oxlog("VideoEncoder: no {} encoder could be opened at {}x{} (tried {})",
        codecLabel(settings.codec), settings.width, settings.height, joined(encoderNames));
  return nullptr;
}

LibavVideoCodecSession::LibavVideoCodecSession(const VideoCodecSettings& settings, Output output)
    : settings_(settings), output_(std::move(output)) {}

LibavVideoCodecSession::~LibavVideoCodecSession() { closeEncoder(); }

void LibavVideoCodecSession::applyRate(AVCodecContext* context) const {
  const double average = static_cast<double>(settings_.averageBitRate);
  const double seconds = settings_.dataRateLimitSeconds > 0 ? settings_.dataRateLimitSeconds : 1.0;
  const double fps =
      static_cast<double>(settings_.expectedFrameRate > 0 ? settings_.expectedFrameRate : 1);
  // No limit given: twice the average over the window.
  const double limitBits = settings_.dataRateLimitBytes > 0
                               ? static_cast<double>(settings_.dataRateLimitBytes) * 8
                               : 2 * average * seconds;
  // Any window of `seconds` carries at most buffer + average x seconds = the limit.
  const double buffer = std::max(limitBits - average * seconds, average / fps);
  context->bit_rate = settings_.averageBitRate;
  context->rc_max_rate = settings_.averageBitRate;
  context->rc_buffer_size = static_cast<int>(buffer);
}

void LibavVideoCodecSession::configure(AVCodecContext* context, const std::string& name) const {
  const bool hevc = settings_.codec == VideoCodec::hevc;
  const int fps =
      static_cast<int>(settings_.expectedFrameRate > 0 ? settings_.expectedFrameRate : 1);
  context->width = settings_.width;
  context->height = settings_.height;
  context->time_base = AVRational{1, fps};
  context->framerate = AVRational{fps, 1};
  context->max_b_frames = 0;

  // The key frame interval: the tighter of the frame count and the duration.
  int64_t interval = settings_.maxKeyFrameInterval;
  const auto byDuration = static_cast<int64_t>(settings_.maxKeyFrameIntervalDuration * fps);
  if (byDuration > 0 && (interval <= 0 || byDuration < interval)) interval = byDuration;
  if (interval > 0) context->gop_size = static_cast<int>(interval);
  applyRate(context);

  const ColourTags& colour = settings_.colour;
  if (colour.matrixTag != YCbCrMatrix::unset) {
    context->colorspace =
        colour.matrixTag == YCbCrMatrix::bt709 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
  }
  if (colour.bt709PrimariesAndTransfer) {
    context->color_primaries = AVCOL_PRI_BT709;
    context->color_trc = AVCOL_TRC_BT709;
  }
  if (colour.anySet()) context->color_range = AVCOL_RANGE_MPEG;

  if (name == "libx264") {
    setOption(context, "preset", "veryfast");
    setOption(context, "tune", "zerolatency");
    setOption(context, "profile", "main");
    setOption(context, "coder", "cabac");
    setOption(context, "forced-idr", "1");
    setOption(context, "x264-params", "scenecut=0:aud=0");
    return;
  }
  if (name == "libx265") {
    setOption(context, "preset", "ultrafast");
    setOption(context, "tune", "zerolatency");
    setOption(context, "profile", "main");
    setOption(context, "forced-idr", "1");
    setOption(context, "x265-params", "log-level=error:scenecut=0:open-gop=0:aud=0");
    return;
  }
  context->profile = hevc ? FF_PROFILE_HEVC_MAIN : FF_PROFILE_H264_MAIN;
  if (!hevc) setOption(context, "coder", "cabac");
  setOption(context, "aud", "0");
}

bool LibavVideoCodecSession::openEncoder(const std::string& name) {
  QuietLibavScope quiet;  // a missing encoder is reported by open() in one line
  const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str());
  const AVCodecID wanted =
      settings_.codec == VideoCodec::hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
  if (!codec || codec->id != wanted) return false;
  hardwareFrames_ = endsWith(name, "_vaapi");
  if (hardwareFrames_) {
    if (!std::filesystem::exists(kRenderNode)) return false;
    if (av_hwdevice_ctx_create(&hardwareDevice_, AV_HWDEVICE_TYPE_VAAPI, kRenderNode, nullptr, 0) <
        0) {
      return false;
    }
  }
  name_ = name;
  context_ = avcodec_alloc_context3(codec);
  if (!context_) {
    closeEncoder();
    return false;
  }
  configure(context_, name);
  softwareFormat_ = hardwareFrames_ ? AV_PIX_FMT_NV12 : softwareFormatFor(codec);
  if (softwareFormat_ == AV_PIX_FMT_NONE) {
    closeEncoder();
    return false;
  }
  if (hardwareFrames_) {
    AVBufferRef* frames = av_hwframe_ctx_alloc(hardwareDevice_);
    if (!frames) {
      closeEncoder();
      return false;
    }
    auto* framesContext = reinterpret_cast<AVHWFramesContext*>(frames->data);
    framesContext->format = AV_PIX_FMT_VAAPI;
    framesContext->sw_format = AV_PIX_FMT_NV12;
    framesContext->width = settings_.width;
    framesContext->height = settings_.height;
    framesContext->initial_pool_size = 8;
    if (av_hwframe_ctx_init(frames) < 0) {
      av_buffer_unref(&frames);
      closeEncoder();
      return false;
    }
    context_->hw_frames_ctx = frames;  // the context owns the reference
    context_->pix_fmt = AV_PIX_FMT_VAAPI;
  } else {
    context_->pix_fmt = static_cast<AVPixelFormat>(softwareFormat_);
  }
  if (avcodec_open2(context_, codec, nullptr) < 0) {
    closeEncoder();
    return false;
  }
  keyFrameInterval_ = context_->gop_size;
  framesSinceKeyFrame_ = keyFrameInterval_;  // the first picture is a key frame
  converter_ =
      std::make_unique<PictureConverter>(settings_.width, settings_.height, softwareFormat_,
                                         settings_.colour.effectiveConversionMatrix());
  frame_ = av_frame_alloc();
  packet_ = av_packet_alloc();
  if (!converter_->valid() || !frame_ || !packet_) {
    closeEncoder();
    return false;
  }
  frame_->format = softwareFormat_;
  frame_->width = settings_.width;
  frame_->height = settings_.height;
  if (av_frame_get_buffer(frame_, 0) < 0) {
    closeEncoder();
    return false;
  }
  return true;
}

void LibavVideoCodecSession::closeEncoder() {
  avcodec_free_context(&context_);
  av_buffer_unref(&hardwareDevice_);
  av_frame_free(&frame_);
  av_packet_free(&packet_);
  converter_.reset();
  userValues_.clear();
  inFlight_ = 0;
}

void LibavVideoCodecSession::reopen() {
  reopenPending_ = false;
  ratePending_ = false;
  if (context_ && inFlight_ > 0) {
    avcodec_send_frame(context_, nullptr);
    receivePackets();
  }
  const std::string name = name_;
  closeEncoder();
  if (!openEncoder(name)) {
    oxlog("VideoEncoder: {} could not be opened again; pictures are dropped", name);
    return;
  }
  oxlog("VideoEncoder: {} opened again at {} b/s", name, settings_.averageBitRate);
}

PixelFormat LibavVideoCodecSession::preferredPixelFormat() const {
  return softwareFormat_ == AV_PIX_FMT_NV12 ? PixelFormat::nv12 : PixelFormat::i420;
}

AVFrame* LibavVideoCodecSession::frameFor(const std::shared_ptr<PixelBuffer>& picture,
                                          AVFrame*& wrapped) {
  if (converter_->passesThrough(*picture)) {
    wrapped = wrapPicture(picture, softwareFormat_);
    return wrapped;
  }
  if (av_frame_make_writable(frame_) < 0 || !converter_->convert(*picture, frame_)) return nullptr;
  return frame_;
}

bool LibavVideoCodecSession::encodeFrame(const std::shared_ptr<PixelBuffer>& picture,
                                         int64_t presentationFrames, bool forceKeyFrame,
                                         uint64_t userValue) {
  // Where the codec puts a key frame anyway: forced, or at its own interval.
  const bool keyFrameDue =
      forceKeyFrame || (keyFrameInterval_ > 0 && framesSinceKeyFrame_ >= keyFrameInterval_);
  if (reopenPending_ || (ratePending_ && keyFrameDue)) reopen();
  if (!context_ || !picture) return false;
  AVFrame* wrapped = nullptr;
  AVFrame* sent = frameFor(picture, wrapped);
  if (!sent) return false;
  AVFrame* uploaded = nullptr;
  if (hardwareFrames_) {
    uploaded = av_frame_alloc();
    if (!uploaded || av_hwframe_get_buffer(context_->hw_frames_ctx, uploaded, 0) < 0 ||
        av_hwframe_transfer_data(uploaded, sent, 0) < 0) {
      av_frame_free(&uploaded);
      av_frame_free(&wrapped);
      return false;
    }
    sent = uploaded;
  }
  sent->pts = presentationFrames;
  sent->pict_type = forceKeyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  userValues_[presentationFrames] = userValue;
  int result = avcodec_send_frame(context_, sent);
  if (result == AVERROR(EAGAIN)) {
    receivePackets();
    result = avcodec_send_frame(context_, sent);
  }
  av_frame_free(&uploaded);
  av_frame_free(&wrapped);  // the codec holds its own references where it keeps the picture
  if (result < 0) {
    userValues_.erase(presentationFrames);
    return false;
  }
  ++inFlight_;
  framesSinceKeyFrame_ = keyFrameDue ? 1 : framesSinceKeyFrame_ + 1;
  receivePackets();
  return true;
}

void LibavVideoCodecSession::receivePackets() {
  while (true) {
    const int result = avcodec_receive_packet(context_, packet_);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
    if (result < 0) {
      CodedSample failed;
      failed.status = result;
      if (inFlight_ > 0) --inFlight_;
      output_(std::move(failed));
      return;
    }
    handlePacket(packet_);
    av_packet_unref(packet_);
  }
}

void LibavVideoCodecSession::handlePacket(AVPacket* packet) {
  CodedSample sample;
  sample.isSync = (packet->flags & AV_PKT_FLAG_KEY) != 0;
  // Pictures are never reordered: values of earlier times belong to
  // pictures the codec dropped.
  if (auto it = userValues_.find(packet->pts); it != userValues_.end()) {
    sample.userValue = it->second;
    userValues_.erase(userValues_.begin(), std::next(it));
  }
  auto unit = rewriteAccessUnit(
      settings_.codec, std::span<const uint8_t>(packet->data, static_cast<size_t>(packet->size)));
  sample.data = std::move(unit.data);
  sample.parameterSets = std::move(unit.parameterSets);
  if (inFlight_ > 0) --inFlight_;
  output_(std::move(sample));
}

void LibavVideoCodecSession::completeFrames() {
  if (!context_ || inFlight_ == 0) return;
  avcodec_send_frame(context_, nullptr);
  receivePackets();
  inFlight_ = 0;
  userValues_.clear();
  // After the end marker a codec takes pictures again only once flushed, and
  // not every encoder can be.
  if (context_->codec->capabilities & AV_CODEC_CAP_ENCODER_FLUSH) {
    avcodec_flush_buffers(context_);
    return;
  }
  reopenPending_ = true;
}

void LibavVideoCodecSession::setBitRate(int64_t averageBitRate, int64_t dataRateLimitBytes,
                                        double dataRateLimitSeconds) {
  settings_.averageBitRate = averageBitRate;
  settings_.dataRateLimitBytes = dataRateLimitBytes;
  settings_.dataRateLimitSeconds = dataRateLimitSeconds;
  if (!context_) return;
  if (changesRateInPlace()) {
    applyRate(context_);  // libx264 reconfigures itself with the next picture
    return;
  }
  // Opening again makes a key frame: wait for one that is due anyway.
  ratePending_ = true;
}

RateControl LibavVideoCodecSession::rateControl() const {
  if (!context_) return {};
  return {context_->bit_rate, context_->rc_max_rate, context_->rc_buffer_size};
}

}  // namespace oxelo
