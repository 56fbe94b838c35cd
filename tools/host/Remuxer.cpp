#include "tools/host/Remuxer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <mutex>

#include "tools/host/ChildProcess.h"
#include "tools/host/TransportStream.h"

namespace oxelo::host {

namespace {
constexpr int64_t kAacFrameSamples = 1024;
constexpr int64_t kTicksPerSecond = 90000;  // the transport stream's clock
// Frames held while the audio header is awaited; past this the file is
// opened with video alone.
constexpr size_t kMostPending = 600;
// Lines of ffmpeg's standard error kept for the summary.
constexpr size_t kMostToolLines = 8;

std::string extensionOf(const std::string& path) {
  auto dot = path.rfind('.');
  if (dot == std::string::npos) return {};
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return ext;
}

// Start codes in place of the 4-byte lengths: the same size, and the form
// that a transport stream carries.
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
}  // namespace

struct Remuxer::Output {
  ChildProcess ffmpeg;
  std::unique_ptr<ts::Writer> writer;
  std::optional<ts::AacConfig> aac;    // set when the file has sound
  std::string writeError;              // set once ffmpeg no longer reads
  std::mutex linesLock;                // the reader thread adds, finish() reads
  std::vector<std::string> toolLines;  // the last lines ffmpeg printed
  int64_t frameMillis = 33;            // duration given to each video packet
  int64_t lastVideoDts = INT64_MIN;    // milliseconds
  int64_t audioBase = -1;              // first audio pts, in samples
  double start = 1e300, end = -1e300;  // seconds, over all packets

  void span(double from, double to) {
    start = std::min(start, from);
    end = std::max(end, to);
  }
  void send(std::span<const uint8_t> packets) {
    if (writeError.empty()) ffmpeg.writeInput(packets, writeError);
  }
  // What ffmpeg said, for an error text.
  std::string said() {
    std::lock_guard lock(linesLock);
    std::string text;
    for (const auto& line : toolLines) text += (text.empty() ? "" : " / ") + line;
    return text.empty() ? "it printed nothing" : "it said: " + text;
  }
};

bool Remuxer::supportsPath(const std::string& path) {
  auto ext = extensionOf(path);
  return ext == "mkv" || ext == "mp4";
}

Remuxer::Remuxer(std::string path, std::string ffmpeg) : ffmpeg_(std::move(ffmpeg)) {
  summary_.path = std::move(path);
}

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
  summary_.container = extensionOf(summary_.path) == "mp4" ? "mp4" : "matroska";
  summary_.videoCodec = *codec_ == wire::VideoCodec::HEVC ? "hevc" : "h264";
  summary_.width = info_ ? info_->width : 0;
  summary_.height = info_ ? info_->height : 0;
  if (info_ && info_->frameRate > 0) {
    out->frameMillis = std::max<int64_t>(1, 1000 / info_->frameRate);
  }
  if (!audioConfig_.empty() && info_ && info_->audioSampleRate > 0 && info_->audioChannels > 0) {
    out->aac = ts::parseAudioSpecificConfig(audioConfig_);
    if (!out->aac) {
      summary_.errors.push_back(
          fmt::format("the audio header of {} cannot be written as ADTS; the file has no sound",
                      summary_.path));
    }
  }
  if (out->aac) {
    summary_.audioCodec = "aac";
    summary_.sampleRate = info_->audioSampleRate;
    summary_.channels = info_->audioChannels;
  }

  // "file:" keeps a name with a colon or a leading dash a plain file name.
  const std::vector<std::string> argv = {
      ffmpeg_,  "-hide_banner", "-loglevel", "error", "-f",   "mpegts", "-i",
      "pipe:0", "-map",         "0",         "-c",    "copy", "-y",     "file:" + summary_.path};
  std::string error;
  Output* raw = out.get();
  auto keepLine = [raw](std::string_view line, bool) {
    if (line.empty()) return;
    std::lock_guard lock(raw->linesLock);
    if (raw->toolLines.size() == kMostToolLines) raw->toolLines.erase(raw->toolLines.begin());
    raw->toolLines.emplace_back(line);
  };
  if (!out->ffmpeg.start(argv, /*pipeInput=*/true, keepLine, error)) {
    return fail(
        fmt::format("cannot record into {}: {} (ffmpeg writes the file)", summary_.path, error));
  }
  const uint8_t videoType =
      *codec_ == wire::VideoCodec::HEVC ? ts::kStreamTypeHevc : ts::kStreamTypeH264;
  out->writer =
      std::make_unique<ts::Writer>(videoType, out->aac.has_value(),
                                   [raw](std::span<const uint8_t> packets) { raw->send(packets); });
  out_ = std::move(out);
  auto held = std::move(pending_);
  pending_.clear();
  for (const auto& p : held) write(p);
}

void Remuxer::write(const Pending& p) {
  if (failed_ || !out_) return;
  if (p.video) {
    std::vector<uint8_t> sample(p.data);
    lengthsToStartCodes(sample);
    std::vector<uint8_t> annexB;
    if (p.key) annexB = videoConfig_;  // a decoder may start at any key frame
    annexB.insert(annexB.end(), sample.begin(), sample.end());
    const int64_t dts = std::max<int64_t>(p.timestamp, out_->lastVideoDts + 1);
    out_->lastVideoDts = dts;
    const uint64_t ticks = uint64_t(dts) * (kTicksPerSecond / 1000);
    out_->writer->writeVideo(ticks, ticks, p.key, annexB);
    out_->span(dts / 1000.0, (dts + out_->frameMillis) / 1000.0);
    ++summary_.videoFrames;
  } else {
    if (!out_->aac) return;  // sound that the file has no track for
    auto header = ts::adtsHeader(*out_->aac, p.data.size());
    if (!header)
      return fail(fmt::format("an audio frame of {} bytes is too long for ADTS", p.data.size()));
    const int64_t rate = summary_.sampleRate;
    if (out_->audioBase < 0) out_->audioBase = int64_t(p.timestamp) * rate / 1000;
    const int64_t pts = out_->audioBase + int64_t(summary_.audioFrames) * kAacFrameSamples;
    std::vector<uint8_t> frame(header->begin(), header->end());
    frame.insert(frame.end(), p.data.begin(), p.data.end());
    out_->writer->writeAudio(uint64_t(pts * kTicksPerSecond / rate), frame);
    out_->span(double(pts) / rate, double(pts + kAacFrameSamples) / rate);
    ++summary_.audioFrames;
  }
  if (!out_->writeError.empty()) closeOutput();
}

void Remuxer::closeOutput() {
  if (!out_) return;
  const int status = out_->ffmpeg.wait();
  if (!out_->writeError.empty()) {
    fail(fmt::format("ffmpeg stopped taking the stream for {} ({}, {}): {}", summary_.path,
                     out_->writeError, describeExit(status), out_->said()));
  } else if (status != 0) {
    fail(fmt::format("ffmpeg could not write {} ({}): {}", summary_.path, describeExit(status),
                     out_->said()));
  }
  if (out_->end > out_->start) summary_.duration = out_->end - out_->start;
  out_.reset();
}

RecordingSummary Remuxer::finish() {
  if (finished_) return summary_;
  finished_ = true;
  if (!out_ && !failed_ && codec_) open();  // the audio header never came
  if (!out_ && !failed_) fail("nothing to record: no video sequence header arrived");
  closeOutput();
  return summary_;
}

}  // namespace oxelo::host
