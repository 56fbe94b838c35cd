#include "tools/host/Remuxer.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace oxelo::host {

namespace {
constexpr AVRational kMillis{1, 1000};
constexpr int64_t kAacFrameSamples = 1024;
// Frames held while the audio header is awaited; past this the file is
// opened with video alone.
constexpr size_t kMostPending = 600;

std::string avError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

std::string extensionOf(const std::string& path) {
  auto dot = path.rfind('.');
  if (dot == std::string::npos) return {};
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return ext;
}

// Start codes in place of the 4-byte lengths: the same size, and the form in
// which both muxers take parameter sets and samples and rewrite them to
// their own.
void lengthsToStartCodes(std::vector<uint8_t>& data) {
  size_t at = 0;
  while (at + 4 <= data.size()) {
    size_t length = size_t(data[at]) << 24 | size_t(data[at + 1]) << 16 |
                    size_t(data[at + 2]) << 8 | size_t(data[at + 3]);
    data[at] = data[at + 1] = data[at + 2] = 0;
    data[at + 3] = 1;
    at += 4 + length;
  }
}

void appendUnit(std::vector<uint8_t>& out, const std::vector<uint8_t>& unit) {
  if (unit.empty()) return;
  out.insert(out.end(), {0, 0, 0, 1});
  out.insert(out.end(), unit.begin(), unit.end());
}

bool setExtradata(AVCodecParameters* par, const std::vector<uint8_t>& bytes) {
  par->extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!par->extradata) return false;
  std::copy(bytes.begin(), bytes.end(), par->extradata);
  par->extradata_size = static_cast<int>(bytes.size());
  return true;
}
}  // namespace

struct Remuxer::Output {
  AVFormatContext* ctx = nullptr;
  AVStream* video = nullptr;
  AVStream* audio = nullptr;
  AVPacket* packet = nullptr;
  bool headerWritten = false;
  int64_t frameMillis = 33;            // duration given to each video packet
  int64_t lastVideoDts = INT64_MIN;    // milliseconds
  int64_t audioBase = -1;              // first audio pts, in samples
  double start = 1e300, end = -1e300;  // seconds, over all packets

  ~Output() {
    av_packet_free(&packet);
    if (ctx && ctx->pb && !(ctx->oformat->flags & AVFMT_NOFILE)) avio_closep(&ctx->pb);
    avformat_free_context(ctx);
  }
  void span(double from, double to) {
    start = std::min(start, from);
    end = std::max(end, to);
  }
};

bool Remuxer::supportsPath(const std::string& path) {
  auto ext = extensionOf(path);
  return ext == "mkv" || ext == "mp4";
}

Remuxer::Remuxer(std::string path) { summary_.path = std::move(path); }

Remuxer::~Remuxer() { finish(); }

void Remuxer::fail(std::string text) {
  if (!failed_) summary_.errors.push_back(std::move(text));
  failed_ = true;
  pending_.clear();
}

void Remuxer::streamInfo(const wire::InfoPacket& info) {
  if (!info_) info_ = info;
}

void Remuxer::videoSequenceHeader(const wire::VideoSequenceHeader& header, wire::VideoCodec codec) {
  if (codec_) return;
  codec_ = codec;
  videoConfig_.clear();
  appendUnit(videoConfig_, header.vps);
  appendUnit(videoConfig_, header.sps);
  appendUnit(videoConfig_, header.pps);
  if (readyToOpen()) open();
}

void Remuxer::audioSequenceHeader(std::span<const uint8_t> config) {
  if (!audioConfig_.empty()) return;
  audioConfig_.assign(config.begin(), config.end());
  if (readyToOpen()) open();
}

void Remuxer::videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) {
  Pending p{true, timestamp, key, {data.begin(), data.end()}};
  if (out_) return write(p);
  if (failed_) return;
  pending_.push_back(std::move(p));
  if (pending_.size() >= kMostPending && codec_) open();
}

void Remuxer::audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) {
  Pending p{false, timestamp, false, {frame.begin(), frame.end()}};
  if (out_) return write(p);
  if (failed_) return;
  pending_.push_back(std::move(p));
}

bool Remuxer::readyToOpen() const {
  if (!codec_ || out_ || failed_) return false;
  bool soundAnnounced = info_ && info_->audioChannels > 0 && info_->audioSampleRate > 0;
  return !soundAnnounced || !audioConfig_.empty();
}

void Remuxer::open() {
  auto out = std::make_unique<Output>();
  int rc = avformat_alloc_output_context2(&out->ctx, nullptr, nullptr, summary_.path.c_str());
  if (rc < 0 || !out->ctx) return fail("cannot make a container for " + summary_.path);
  summary_.container = out->ctx->oformat->name;

  out->video = avformat_new_stream(out->ctx, nullptr);
  auto* v = out->video->codecpar;
  v->codec_type = AVMEDIA_TYPE_VIDEO;
  v->codec_id = *codec_ == wire::VideoCodec::HEVC ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
  v->width = info_ ? static_cast<int>(info_->width) : 0;
  v->height = info_ ? static_cast<int>(info_->height) : 0;
  if (!setExtradata(v, videoConfig_)) return fail("out of memory");
  out->video->time_base = kMillis;
  if (info_ && info_->frameRate > 0) {
    out->frameMillis = std::max<int64_t>(1, 1000 / info_->frameRate);
  }
  summary_.videoCodec = *codec_ == wire::VideoCodec::HEVC ? "hevc" : "h264";
  summary_.width = static_cast<uint32_t>(v->width);
  summary_.height = static_cast<uint32_t>(v->height);

  if (!audioConfig_.empty() && info_ && info_->audioSampleRate > 0 && info_->audioChannels > 0) {
    out->audio = avformat_new_stream(out->ctx, nullptr);
    auto* a = out->audio->codecpar;
    a->codec_type = AVMEDIA_TYPE_AUDIO;
    a->codec_id = AV_CODEC_ID_AAC;
    a->sample_rate = static_cast<int>(info_->audioSampleRate);
    av_channel_layout_default(&a->ch_layout, static_cast<int>(info_->audioChannels));
    a->frame_size = kAacFrameSamples;
    if (!setExtradata(a, audioConfig_)) return fail("out of memory");
    out->audio->time_base = AVRational{1, a->sample_rate};
    summary_.audioCodec = "aac";
    summary_.sampleRate = info_->audioSampleRate;
    summary_.channels = info_->audioChannels;
  }

  if (!(out->ctx->oformat->flags & AVFMT_NOFILE)) {
    rc = avio_open(&out->ctx->pb, summary_.path.c_str(), AVIO_FLAG_WRITE);
    if (rc < 0) return fail(fmt::format("cannot open {}: {}", summary_.path, avError(rc)));
  }
  rc = avformat_write_header(out->ctx, nullptr);
  if (rc < 0)
    return fail(fmt::format("cannot write the header of {}: {}", summary_.path, avError(rc)));
  out->headerWritten = true;
  out->packet = av_packet_alloc();
  out_ = std::move(out);
  auto held = std::move(pending_);
  pending_.clear();
  for (const auto& p : held) write(p);
}

void Remuxer::write(const Pending& p) {
  if (failed_ || !out_) return;
  AVStream* stream = p.video ? out_->video : out_->audio;
  if (!stream) return;  // sound that the file has no track for
  AVPacket* pkt = out_->packet;
  av_packet_unref(pkt);
  if (av_new_packet(pkt, static_cast<int>(p.data.size())) < 0) return fail("out of memory");
  std::copy(p.data.begin(), p.data.end(), pkt->data);
  pkt->stream_index = stream->index;
  AVRational base = kMillis;
  if (p.video) {
    std::vector<uint8_t> annexB(p.data);
    lengthsToStartCodes(annexB);
    std::copy(annexB.begin(), annexB.end(), pkt->data);
    int64_t dts = std::max<int64_t>(p.timestamp, out_->lastVideoDts + 1);
    out_->lastVideoDts = dts;
    pkt->pts = pkt->dts = dts;
    pkt->duration = out_->frameMillis;
    if (p.key) pkt->flags |= AV_PKT_FLAG_KEY;
    out_->span(dts / 1000.0, (dts + out_->frameMillis) / 1000.0);
    ++summary_.videoFrames;
  } else {
    int64_t rate = stream->codecpar->sample_rate;
    base = AVRational{1, static_cast<int>(rate)};
    if (out_->audioBase < 0) out_->audioBase = int64_t(p.timestamp) * rate / 1000;
    pkt->pts = pkt->dts = out_->audioBase + int64_t(summary_.audioFrames) * kAacFrameSamples;
    pkt->duration = kAacFrameSamples;
    out_->span(double(pkt->pts) / rate, double(pkt->pts + kAacFrameSamples) / rate);
    ++summary_.audioFrames;
  }
  av_packet_rescale_ts(pkt, base, stream->time_base);
  int rc = av_interleaved_write_frame(out_->ctx, pkt);
  if (rc < 0) fail(fmt::format("cannot write a packet to {}: {}", summary_.path, avError(rc)));
}

RecordingSummary Remuxer::finish() {
  if (finished_) return summary_;
  finished_ = true;
  if (!out_ && !failed_ && codec_) open();  // the audio header never came
  if (!out_ && !failed_) fail("nothing to record: no video sequence header arrived");
  if (out_ && out_->headerWritten) {
    int rc = av_write_trailer(out_->ctx);
    if (rc < 0) fail(fmt::format("cannot finish {}: {}", summary_.path, avError(rc)));
    if (out_->end > out_->start) summary_.duration = out_->end - out_->start;
  }
  out_.reset();
  return summary_;
}

}  // namespace oxelo::host
