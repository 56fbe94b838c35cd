#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/StreamChecker.h"

namespace oxelo::host {

// What a recording holds, for the report.
struct RecordingSummary {
  std::string path;
  std::string container;   // "matroska" or "mp4"
  std::string videoCodec;  // "h264", "hevc", or empty without video
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t videoFrames = 0;
  std::string audioCodec;  // "aac", or empty without audio
  uint32_t sampleRate = 0;
  uint32_t channels = 0;
  uint64_t audioFrames = 0;
  double duration = 0;  // seconds, from the first to the end of the last packet
  std::vector<std::string> errors;
};

// Writes the phone's stream into a Matroska or MP4 file (by the extension)
// as it arrives: H.264 or HEVC from the sequence header and the frames, AAC
// from the audio header and the frames, the packets' own times, no
// re-encoding. The stream goes as an MPEG transport stream into a child
// `ffmpeg`, which copies it into the container; a missing ffmpeg, one that
// stops reading or one that ends with an error is an error of the summary.
// The container is opened once the video header is in and, when the info
// packet announces sound, the audio header too; frames that come before are
// held until then. Audio times follow the sample count from the first frame
// on, since frames coded in one call share a stamp. Single-threaded: fed by
// the session's StreamChecker; finish() waits for ffmpeg to end.
class Remuxer final : public MediaSink {
 public:
  // True for a path whose extension names a container we write.
  static bool supportsPath(const std::string& path);

  // `ffmpeg`: the program that writes the container, looked up in PATH.
  explicit Remuxer(std::string path, std::string ffmpeg = "ffmpeg");
  ~Remuxer() override;
  Remuxer(const Remuxer&) = delete;
  Remuxer& operator=(const Remuxer&) = delete;

  void streamInfo(const wire::InfoPacket& info) override;
  void videoSequenceHeader(const wire::VideoSequenceHeader& header,
                           wire::VideoCodec codec) override;
  void videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) override;
  void audioSequenceHeader(std::span<const uint8_t> config) override;
  void audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) override;

  // Writes what is held and closes the file. Once; the destructor calls it.
  RecordingSummary finish();

  struct Output;  // the child ffmpeg and what feeds it

 private:
  struct Pending {
    bool video = false;
    uint32_t timestamp = 0;
    bool key = false;
    std::vector<uint8_t> data;
  };
  bool readyToOpen() const;
  void open();
  void write(const Pending& packet);
  void fail(std::string text);
  // Ends ffmpeg's input and waits for it; its failure, if any, into the
  // summary.
  void closeOutput();

  std::string ffmpeg_;
  RecordingSummary summary_;
  std::optional<wire::InfoPacket> info_;
  std::optional<wire::VideoCodec> codec_;
  std::vector<uint8_t> videoConfig_;  // parameter sets, each behind a start code
  std::vector<uint8_t> audioConfig_;
  std::vector<Pending> pending_;
  std::unique_ptr<Output> out_;
  bool failed_ = false;
  bool finished_ = false;
};

}  // namespace oxelo::host
