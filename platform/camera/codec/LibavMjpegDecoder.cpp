#include "platform/camera/codec/LibavMjpegDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include <cstring>
#include <string>
#include <vector>

#include "platform/camera/Nv12Conversion.h"

namespace oxelo {

namespace {

std::string avError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

class LibavMjpegDecoder final : public MjpegDecoder {
 public:
  LibavMjpegDecoder() {
    if (const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_MJPEG)) {
      context_ = avcodec_alloc_context3(codec);
      if (context_ && avcodec_open2(context_, codec, nullptr) < 0) avcodec_free_context(&context_);
    }
    packet_ = av_packet_alloc();
    picture_ = av_frame_alloc();
  }
  ~LibavMjpegDecoder() override {
    av_frame_free(&picture_);
    av_packet_free(&packet_);
    avcodec_free_context(&context_);
  }

  bool decode(const uint8_t* data, size_t size, CameraFrame& frame, std::string& error) override {
    if (!context_ || !packet_ || !picture_) {
      error = "libavcodec has no MJPEG decoder";
      return false;
    }
    // The decoder reads past the end in whole words: padded copy.
    input_.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
    std::memcpy(input_.data(), data, size);
    std::memset(input_.data() + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    packet_->data = input_.data();
    packet_->size = static_cast<int>(size);
    int r = avcodec_send_packet(context_, packet_);
    if (r >= 0) r = avcodec_receive_frame(context_, picture_);
    if (r < 0) {
      error = "not a JPEG picture (" + avError(r) + ")";
      return false;
    }
    bool ok = toNv12(frame, error);
    av_frame_unref(picture_);
    return ok;
  }

 private:
  bool toNv12(CameraFrame& frame, std::string& error) {
    if (picture_->width != frame.width() || picture_->height != frame.height()) {
      error = "a " + std::to_string(picture_->width) + "x" + std::to_string(picture_->height) +
              " picture in a " + std::to_string(frame.width()) + "x" +
              std::to_string(frame.height()) + " stream";
      return false;
    }
    auto format = static_cast<AVPixelFormat>(picture_->format);
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(format);
    bool planarYuv = d && !(d->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) &&
                     (d->flags & AV_PIX_FMT_FLAG_PLANAR) && d->comp[0].depth == 8 &&
                     d->nb_components >= 3 && d->log2_chroma_w <= 1 && d->log2_chroma_h <= 1;
    bool grey = d && d->nb_components == 1 && d->comp[0].depth == 8;
    if (!planarYuv && !grey) {
      error = std::string("the decoder gave ") + (d ? d->name : "an unknown layout") +
              ", which is not converted";
      return false;
    }
    if (grey) {
      grey_.assign(static_cast<size_t>(frame.chromaWidth()), 128);
      PlanarPicture p;
      p.planes[0] = picture_->data[0];
      p.strides[0] = picture_->linesize[0];
      p.planes[1] = p.planes[2] = grey_.data();
      p.strides[1] = p.strides[2] = 0;  // every chroma row the same neutral one
      planarToNv12(p, frame);
    } else {
      PlanarPicture p;
      for (int i = 0; i < 3; ++i) {
        p.planes[i] = picture_->data[i];
        p.strides[i] = picture_->linesize[i];
      }
      p.shiftX = d->log2_chroma_w;
      p.shiftY = d->log2_chroma_h;
      planarToNv12(p, frame);
    }
    // JPEG pixel formats (yuvj...) are full range by name; others say so in
    // the frame, and a JPEG that says nothing is full range.
    bool video = picture_->color_range == AVCOL_RANGE_MPEG && std::strncmp(d->name, "yuvj", 4) != 0;
    frame.range = video ? ColourRange::video : ColourRange::full;
    frame.matrix =
        picture_->colorspace == AVCOL_SPC_BT709 ? ColourMatrix::bt709 : ColourMatrix::bt601;
    return true;
  }

  AVCodecContext* context_ = nullptr;
  AVPacket* packet_ = nullptr;
  AVFrame* picture_ = nullptr;
  std::vector<uint8_t> input_;
  std::vector<uint8_t> grey_;
};

}  // namespace

std::unique_ptr<MjpegDecoder> makeLibavMjpegDecoder() {
  return std::make_unique<LibavMjpegDecoder>();
}

}  // namespace oxelo
