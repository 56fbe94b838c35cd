// The phone's real coded stream, recorded by the reference host with no
// re-encoding, must be a file that Debian's ffprobe and ffmpeg read: the
// right codec, size and sound, every frame decoding with no error.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

struct RecordingCase {
  const char* name;
  const char* encoder;  // as --settings names it
  const char* codec;    // as ffprobe names it
  const char* audio;    // none, mono or stereo
  int channels;
  const char* extension;
};

// Output of a shell command, standard error included.
std::string capture(const std::string& command) {
  std::string out;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return "popen failed";
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  pclose(pipe);
  return out;
}

class RecordingEndToEndTest : public test::ProgramTest,
                              public testing::WithParamInterface<RecordingCase> {};

TEST_P(RecordingEndToEndTest, HostRecordsAFileThatFfmpegDecodes) {
  const auto& c = GetParam();
  std::string file = path(std::string("out.") + c.extension);
  std::string host = std::string(OXELO_HOST_BIN) +
                     " listen --bind 127.0.0.1 --port 5898 --wait 15 --duration 3 --settings "
                     "640x480@30:enc=" +
                     c.encoder + ":audio=" + c.audio + " --output " + file + " --report " +
                     path("r.json") + " > " + path("host.log") + " 2>&1";
  std::string phone = "timeout 30 " + std::string(OXELO_BIN) +
                      " --headless --connect 127.0.0.1 --instance 4 --camera virtual --audio "
                      "synthetic --duration 5 --config-dir " +
                      path("cfg") + " > " + path("phone.log") + " 2>&1";
  ASSERT_EQ(run(host + " & sleep 0.3; " + phone + "; wait $!"), 0);

  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object());
  EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
  const Json& recording = report["recording"];
  EXPECT_EQ(recording["video_codec"], c.codec);
  EXPECT_EQ(recording["width"], 640);
  EXPECT_EQ(recording["height"], 480);
  // How many frames a loaded machine codes in three seconds varies; that
  // they all arrive and decode is what counts.
  EXPECT_GE(recording["video_frames"].get<int>(), 3);
  EXPECT_GT(recording["duration"].get<double>(), 0.05);
  EXPECT_EQ(recording["video_frames"], report["stream"]["counts"]["key_frames"].get<int>() +
                                           report["stream"]["counts"]["inter_frames"].get<int>())
      << "every frame that came is in the file";

  Json probe = Json::parse(capture("ffprobe -v error -print_format json -show_streams " + file),
                           nullptr, false);
  ASSERT_TRUE(probe.is_object()) << "ffprobe cannot read " << file;
  int video = 0, audio = 0;
  for (const auto& stream : probe["streams"]) {
    if (stream["codec_type"] == "video") {
      ++video;
      EXPECT_EQ(stream["codec_name"], c.codec);
      EXPECT_EQ(stream["width"], 640);
      EXPECT_EQ(stream["height"], 480);
    } else if (stream["codec_type"] == "audio") {
      ++audio;
      EXPECT_EQ(stream["codec_name"], "aac");
      EXPECT_EQ(stream["channels"], c.channels);
    }
  }
  EXPECT_EQ(video, 1);
  EXPECT_EQ(audio, c.channels > 0 ? 1 : 0);
  EXPECT_EQ(capture("ffmpeg -v error -i " + file + " -f null -"), "");
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, RecordingEndToEndTest,
    testing::Values(RecordingCase{"H264MonoMatroska", "h264", "h264", "mono", 1, "mkv"},
                    RecordingCase{"H264StereoMp4", "h264", "h264", "stereo", 2, "mp4"},
                    RecordingCase{"H264SilentMatroska", "h264", "h264", "none", 0, "mkv"},
                    RecordingCase{"HevcMonoMp4", "hevc", "hevc", "mono", 1, "mp4"},
                    RecordingCase{"HevcStereoMatroska", "hevc", "hevc", "stereo", 2, "mkv"},
                    RecordingCase{"HevcSilentMp4", "hevc", "hevc", "none", 0, "mp4"}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
