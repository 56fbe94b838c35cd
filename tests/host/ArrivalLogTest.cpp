// The arrival times that the camera benchmark sets against capture times.
#include "tools/host/ArrivalLog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/TestSupport.h"
#include "tools/host/HostOptions.h"

namespace oxelo::host {
namespace {

// What reaches the sink behind the log.
struct Recorded final : MediaSink {
  std::vector<std::string> calls;
  void streamInfo(const wire::InfoPacket&) override { calls.push_back("info"); }
  void videoSequenceHeader(const wire::VideoSequenceHeader&, wire::VideoCodec) override {
    calls.push_back("video header");
  }
  void videoFrame(uint32_t timestamp, bool key, std::span<const uint8_t> data) override {
    calls.push_back("video " + std::to_string(timestamp) + (key ? " key " : " ") +
                    std::to_string(data.size()));
  }
  void audioSequenceHeader(std::span<const uint8_t>) override { calls.push_back("audio header"); }
  void audioFrame(uint32_t timestamp, std::span<const uint8_t> frame) override {
    calls.push_back("audio " + std::to_string(timestamp) + " " + std::to_string(frame.size()));
  }
};

TEST(ArrivalLogTest, WritesALinePerFrameAndPassesEveryRecordOn) {
  test::TempDir dir;
  const std::string path = (dir.path() / "arrivals.txt").string();
  Recorded next;
  int64_t now = 5'000'000'000;
  {
    ArrivalLog log(path, &next, [&] { return now += 1'500'000; });
    ASSERT_TRUE(log.ok());
    const std::vector<uint8_t> bytes(7);
    log.streamInfo(wire::InfoPacket{});
    log.videoSequenceHeader(wire::VideoSequenceHeader{}, wire::VideoCodec::H264);
    log.audioSequenceHeader(bytes);
    log.videoFrame(0, true, bytes);
    log.audioFrame(4294967295u, std::span(bytes).first(3));
    log.videoFrame(33, false, bytes);
  }
  std::ifstream in(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}),
            "video 0 1 5001500000\n"
            "audio 4294967295 0 5003000000\n"
            "video 33 0 5004500000\n");
  EXPECT_EQ(next.calls,
            (std::vector<std::string>{"info", "video header", "audio header", "video 0 key 7",
                                      "audio 4294967295 3", "video 33 7"}));
}

TEST(ArrivalLogTest, AFileThatCannotBeWrittenIsSaidSo) {
  ArrivalLog log("/nonexistent-dir/arrivals.txt", nullptr);
  EXPECT_FALSE(log.ok());
  const std::vector<uint8_t> bytes(3);
  log.videoFrame(1, true, bytes);  // no file, no sink: nothing to do, no crash
}

TEST(ArrivalLogTest, TheOptionNamesTheFile) {
  using enum ParsedCommandLine::Kind;
  for (const auto& [args, kind, path] :
       std::vector<std::tuple<std::vector<std::string>, ParsedCommandLine::Kind, std::string>>{
           {{"listen", "--arrivals", "a.txt"}, run, "a.txt"},
           {{"usb", "--arrivals=b"}, run, "b"},
           {{"listen"}, run, ""},
           {{"listen", "--arrivals="}, error, ""}}) {
    const ParsedCommandLine parsed = parseHostOptions(args, "desk");
    EXPECT_EQ(parsed.kind, kind) << args.back() << ": " << parsed.text;
    EXPECT_EQ(parsed.options.arrivalsPath, path) << args.back();
  }
}

}  // namespace
}  // namespace oxelo::host
