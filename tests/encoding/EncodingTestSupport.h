#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "encoding/VideoCodecSession.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/LFVideoEncoding.h"
#include "media/PixelBuffer.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/CameraTestSupport.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace oxelo::test {

// A settings store of its own for one test, and no cameras.
struct ScopedDefaults : CameraAndSettings {
  ScopedDefaults() : CameraAndSettings(nullptr) {}
  UserDefaults* operator->() { return &defaults(); }
};

inline std::shared_ptr<LFLiveVideoConfiguration> smallVideoConfiguration(
    int width = 320, int height = 240, uint64_t fps = 30, uint64_t bitRate = 400000) {
  auto configuration = std::make_shared<LFLiveVideoConfiguration>();
  configuration->setVideoSize({static_cast<double>(width), static_cast<double>(height)});
  configuration->setVideoFrameRate(fps);
  configuration->setVideoMaxKeyframeInterval(fps);
  configuration->setVideoBitRate(bitRate);
  return configuration;
}

// Sliding stripes and fixed noise, so that every frame costs bits.
inline std::shared_ptr<PixelBuffer> movingPicture(int width, int height, int index) {
  auto picture = PixelBuffer::create(width, height);
  uint32_t state = 0x9e3779b9u * static_cast<uint32_t>(index + 1);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = picture->row(y);
    for (int x = 0; x < width; ++x) {
      state = state * 1664525u + 1013904223u;
      const uint8_t noise = static_cast<uint8_t>(state >> 31);
      const auto stripe = static_cast<uint8_t>(((x + y + index * 3) / 8 % 2) * 160);
      row[4 * x + 0] = static_cast<uint8_t>(stripe + noise);
      row[4 * x + 1] = static_cast<uint8_t>((x * 255 / width) ^ noise);
      row[4 * x + 2] = static_cast<uint8_t>(y * 255 / height + noise);
      row[4 * x + 3] = 255;
    }
  }
  return picture;
}

// A body's NAL units by 4-byte lengths; none unless they cover it exactly, none zero.
inline std::optional<std::vector<std::vector<uint8_t>>> lengthPrefixedUnits(
    const std::vector<uint8_t>& body) {
  std::vector<std::vector<uint8_t>> units;
  size_t at = 0;
  while (at < body.size()) {
    if (body.size() - at < 4) return std::nullopt;
    const size_t n = (size_t{body[at]} << 24) | (size_t{body[at + 1]} << 16) |
                     (size_t{body[at + 2]} << 8) | size_t{body[at + 3]};
    at += 4;
    if (n == 0 || n > body.size() - at) return std::nullopt;
    units.emplace_back(body.begin() + static_cast<std::ptrdiff_t>(at),
                       body.begin() + static_cast<std::ptrdiff_t>(at + n));
    at += n;
  }
  return units;
}

// libavcodec's decoder fed the way a host would: the parameter sets, then
// each frame body turned back to Annex B (or a raw packet as it is).
class TestDecoder {
 public:
  // `extradata`: what the stream carries out of band (an AAC asc).
  explicit TestDecoder(AVCodecID codec, const std::vector<uint8_t>& extradata = {}) {
    context_ = avcodec_alloc_context3(avcodec_find_decoder(codec));
    if (!extradata.empty()) {
      context_->extradata =
          static_cast<uint8_t*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
      std::copy(extradata.begin(), extradata.end(), context_->extradata);
      context_->extradata_size = static_cast<int>(extradata.size());
    }
    opened_ = avcodec_open2(context_, avcodec_find_decoder(codec), nullptr) == 0;
    packet_ = av_packet_alloc();
    frame_ = av_frame_alloc();
  }
  ~TestDecoder() {
    avcodec_free_context(&context_);
    av_packet_free(&packet_);
    av_frame_free(&frame_);
  }
  // The size of every picture out, each also shown to `look`.
  std::vector<std::pair<int, int>> decode(const std::vector<uint8_t>& annexB,
                                          const std::function<void(const AVFrame&)>& look = {}) {
    std::vector<std::pair<int, int>> sizes;
    av_new_packet(packet_, static_cast<int>(annexB.size()));
    std::copy(annexB.begin(), annexB.end(), packet_->data);
    if (avcodec_send_packet(context_, packet_) < 0) errors_++;
    av_packet_unref(packet_);
    while (avcodec_receive_frame(context_, frame_) == 0) {
      sizes.emplace_back(frame_->width, frame_->height);
      if (look) look(*frame_);
      av_frame_unref(frame_);
    }
    return sizes;
  }
  // A coded sample as the host gets it: its parameter sets, then its units.
  std::vector<std::pair<int, int>> decode(const CodedSample& sample,
                                          const std::function<void(const AVFrame&)>& look = {}) {
    std::vector<uint8_t> stream;
    for (const auto* set :
         {&sample.parameterSets.vps, &sample.parameterSets.sps, &sample.parameterSets.pps})
      if (!set->empty()) appendAnnexB(stream, *set);
    if (auto units = lengthPrefixedUnits(sample.data))
      for (const auto& unit : *units) appendAnnexB(stream, unit);
    return decode(stream, look);
  }
  int errors() const { return errors_; }
  bool opened() const { return opened_; }

  static void appendAnnexB(std::vector<uint8_t>& out, const std::vector<uint8_t>& unit) {
    static const uint8_t startCode[] = {0, 0, 0, 1};
    out.insert(out.end(), startCode, startCode + 4);
    out.insert(out.end(), unit.begin(), unit.end());
  }

 private:
  AVCodecContext* context_ = nullptr;
  AVPacket* packet_ = nullptr;
  AVFrame* frame_ = nullptr;
  int errors_ = 0;
  bool opened_ = false;
};

// Keeps every frame a video encoder hands out.
class VideoFrameRecorder final : public LFVideoEncodingDelegate {
 public:
  void videoEncoderVideoFrame(LFVideoEncoding*, std::shared_ptr<LFVideoFrame> frame) override {
    frames.push_back(std::move(frame));
  }
  std::vector<std::shared_ptr<LFVideoFrame>> frames;
};

}  // namespace oxelo::test
