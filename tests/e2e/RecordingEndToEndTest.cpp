// The phone's real coded stream, recorded by the reference host with no
// re-encoding, must be a file that Debian's ffprobe and ffmpeg read: the
// right codec, size and sound, every frame decoding with no error.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

struct RecordingCase {
  const char* name;
  const char* codec;  // as --settings and ffprobe name it
  const char* audio;  // mono or stereo
  int channels;
  const char* extension;
};

class RecordingEndToEndTest : public test::ProgramTest,
                              public testing::WithParamInterface<RecordingCase> {};

TEST_P(RecordingEndToEndTest, HostRecordsAFileThatFfmpegDecodes) {
  const auto& c = GetParam();
  std::string file = path(std::string("out.") + c.extension);
  std::string recorder = host(std::string("listen --bind 127.0.0.1 --port 5898 --wait 15 ") +
                                  "--duration 3 --end 24 --settings 640x480@30:enc=" + c.codec +
                                  ":audio=" + c.audio + " --output " + file,
                              "r.json");
  ASSERT_EQ(run(recorder + " & " + waitForLine("host.log", "host - listening") + "; " +
                phone("--connect 127.0.0.1 --instance 4 --exit-when-ended --duration 20") +
                "; status=$?; wait $! || status=1; exit $status"),
            0)
      << readText("phone.log");

  // The phone followed the host's end at once (--exit-when-ended).
  EXPECT_NE(readText("phone.log").find("MAIN - the host ended the stream"), std::string::npos);
  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object());
  EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
  const Json& recording = report["recording"];
  EXPECT_EQ(std::tuple(recording["video_codec"], recording["width"], recording["height"]),
            std::tuple(c.codec, 640, 480));
  // How many frames a loaded machine codes in three seconds varies; that
  // they all arrive and decode is what counts.
  EXPECT_GE(recording["video_frames"].get<int>(), 3);
  EXPECT_GT(recording["duration"].get<double>(), 0.05);
  EXPECT_EQ(recording["video_frames"], report["stream"]["counts"]["key_frames"].get<int>() +
                                           report["stream"]["counts"]["inter_frames"].get<int>())
      << "every frame that came is in the file";

  run("ffprobe -v error -print_format json -show_streams " + file + " > " + path("probe.json"));
  Json probe = readJson("probe.json");
  ASSERT_TRUE(probe.is_object()) << "ffprobe cannot read " << file;
  // One video and one sound stream: codec, size, channels.
  Json streams, expected;
  for (const auto& s : probe["streams"])
    streams[s["codec_type"].get<std::string>()].push_back(Json::array(
        {s["codec_name"], s.value("width", 0), s.value("height", 0), s.value("channels", 0)}));
  expected["video"].push_back(Json::array({c.codec, 640, 480, 0}));
  expected["audio"].push_back(Json::array({"aac", 0, 0, c.channels}));
  EXPECT_EQ(streams, expected) << probe.dump(1);
  EXPECT_EQ(run("ffmpeg -v error -i " + file + " -f null - > " + path("decode.log") + " 2>&1"), 0);
  EXPECT_EQ(readText("decode.log"), "") << "every frame decodes";
}

INSTANTIATE_TEST_SUITE_P(Codecs, RecordingEndToEndTest,
                         // Between them: both codecs, both containers, mono and stereo. A stream
                         // with no sound is StreamEndToEndTest's restart.
                         testing::Values(RecordingCase{"H264StereoMp4", "h264", "stereo", 2, "mp4"},
                                         RecordingCase{"HevcMonoMatroska", "hevc", "mono", 1,
                                                       "mkv"}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
