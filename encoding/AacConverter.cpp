#include "encoding/AacConverter.h"

#include <cstring>

#include "encoding/LibavLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

namespace oxelo {

namespace {

constexpr int kSamplesPerPacket = 1024;

class LibavAacConverter final : public AacConverter {
 public:
  ~LibavAacConverter() override {
    avcodec_free_context(&context_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
  }

  bool open(const LFLiveAudioConfiguration& configuration) {
    channels_ = static_cast<int>(configuration.numberOfChannels());
    if (channels_ < 1 || channels_ > 2) return false;
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (!codec) return false;
    context_ = avcodec_alloc_context3(codec);
    frame_ = av_frame_alloc();
    packet_ = av_packet_alloc();
    if (!context_ || !frame_ || !packet_) return false;
    context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context_->sample_rate = static_cast<int>(configuration.audioSampleRate());
    context_->bit_rate = static_cast<int64_t>(configuration.audioBitrate());
    context_->profile = FF_PROFILE_AAC_LOW;
    context_->time_base = AVRational{1, context_->sample_rate};
    av_channel_layout_default(&context_->ch_layout, channels_);
    if (avcodec_open2(context_, codec, nullptr) < 0) return false;
    if (context_->frame_size != kSamplesPerPacket) return false;

    frame_->format = AV_SAMPLE_FMT_FLTP;
    frame_->nb_samples = kSamplesPerPacket;
    frame_->sample_rate = context_->sample_rate;
    if (av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout) < 0) return false;
    if (av_frame_get_buffer(frame_, 0) < 0) return false;

    // Prime the look-ahead with silence: the codec answers this block with
    // no packet, and every later block with one.
    const std::vector<int16_t> silence(static_cast<size_t>(kSamplesPerPacket * channels_), 0);
    std::vector<uint8_t> none;
    const int primed = encodeBlock(reinterpret_cast<const uint8_t*>(silence.data()), none);
    return primed == 0 || primed == AVERROR(EAGAIN);
  }

  int encodeBlock(const uint8_t* pcm, std::vector<uint8_t>& packet) override {
    packet.clear();
    int result = av_frame_make_writable(frame_);
    if (result < 0) return result;
    // The block may sit at any byte offset; copy it into aligned samples.
    std::vector<int16_t> samples(static_cast<size_t>(kSamplesPerPacket * channels_));
    std::memcpy(samples.data(), pcm, samples.size() * sizeof(int16_t));
    deinterleaveToFloat(samples.data(), kSamplesPerPacket, static_cast<size_t>(channels_),
                        reinterpret_cast<float* const*>(frame_->extended_data));
    frame_->pts = nextPts_;
    nextPts_ += kSamplesPerPacket;
    result = avcodec_send_frame(context_, frame_);
    if (result < 0) return result;
    result = avcodec_receive_packet(context_, packet_);
    if (result < 0) return result;
    packet.assign(packet_->data, packet_->data + packet_->size);
    av_packet_unref(packet_);
    return 0;
  }

 private:
  int channels_ = 0;
  int64_t nextPts_ = 0;
  AVCodecContext* context_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
};

}  // namespace

void deinterleaveToFloat(const int16_t* pcm, size_t frames, size_t channels, float* const* planes) {
  for (size_t c = 0; c < channels; ++c) {
    float* plane = planes[c];
    for (size_t i = 0; i < frames; ++i) plane[i] = pcm[i * channels + c] / 32768.0f;
  }
}

std::unique_ptr<AacConverter> makeLibavAacConverter(const LFLiveAudioConfiguration& configuration) {
  installLibavLog();
  QuietLibavScope quiet;  // failures are silent; the encoder tries again with the next PCM
  auto converter = std::make_unique<LibavAacConverter>();
  if (!converter->open(configuration)) return nullptr;
  return converter;
}

}  // namespace oxelo
