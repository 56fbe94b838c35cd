// The phone streams the virtual camera and a test tone to the reference host
// over TCP and over the framed USB channel; the host checks every packet,
// asks for status blocks, and ends the stream with a command. Loopback only:
// the phone sees no Wi-Fi here and sends no broadcast.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

class StreamEndToEndTest : public test::ProgramTest {
 protected:
  std::string phoneLog() const { return readText("phone.log"); }

  // What every stream must show: the info packet as the phone's settings
  // make it, the sequence header with its capability block first, status
  // blocks once asked for, and no fault.
  void expectWellFormedStream(const Json& report, int width, int height) {
    ASSERT_TRUE(report.is_object()) << "no report";
    const Json& stream = report["stream"];
    expectAt(report, R"({"/errors": [], "/stream/order_errors": [], "/stream/info/video_encoder": 0,
        "/stream/first_packets/0": "info", "/stream/first_packets/1": "video_sequence_header",
        "/stream/first_packets/2": "capability_block", "/stream/first_packets/3": "key_frame",
        "/stream/counts/capability_blocks": 1, "/stream/last_capability/temperature_min": 2000})");
    EXPECT_EQ(std::tuple(stream["info"]["width"], stream["info"]["height"]),
              std::tuple(width, height));
    EXPECT_GT(stream["info"]["audio_sample_rate"].get<int>(), 0);
    EXPECT_GE(stream["counts"]["status_blocks"].get<int>(), 1) << "asked for at 1 s";
    EXPECT_GT(stream["counts"]["inter_frames"].get<int>(), 20);
    EXPECT_GT(stream["counts"]["audio_frames"].get<int>(), 20);
  }
};

TEST_F(StreamEndToEndTest, OverUsbTheHostsCloseLeavesThePhoneCallable) {
  stageCable();
  const std::string usbListening = "开始 USB 侦听";  // the phone's "USB listening" line
  std::string first =
      host("usb --settings 1280x720@30 --duration 3 --command '1 33 1' --end 24", "usb.json");
  // Back at the main screen the phone listens again, so a host can call it.
  std::string second =
      host("call 127.0.0.1 --settings 640x480@24 --duration 1 --end 24", "call.json");
  // The phone outlives the first end; it stops cleanly on SIGTERM.
  ASSERT_EQ(run(phone("--duration 20") + " & phone=$!; " + waitForLine("phone.log", usbListening) +
                "; " + first + "; " + waitForLine("phone.log", usbListening, 2) + "; " + second +
                "; status=$?; kill $phone; wait $phone || status=1; exit $status"),
            0)
      << phoneLog();
  Json report = readJson("usb.json");
  expectWellFormedStream(report, 1280, 720);
  EXPECT_EQ(report["end_command"], 24);
  std::string log = phoneLog();
  EXPECT_NE(log.find("Live - USB channel taken over"), std::string::npos) << log;
  EXPECT_NE(log.find("Live - error 206"), std::string::npos) << log;
  expectAt(readJson("call.json"),
           R"({"/errors": [], "/handshake/settings_answer/fps": 24, "/stream/info/width": 640})");
  EXPECT_NE(log.find("Live - TCP channel"), std::string::npos) << log;
}

TEST_F(StreamEndToEndTest, OverTcpARestartReconnectsAfterAQuarterSecond) {
  std::string first = host(
      "listen --bind 127.0.0.1 --port 5899 --settings 960x540@30 --wait 15 --duration 3"
      " --command '1 33 2' --end 26",
      "first.json");
  // The restarted phone calls the same host again; this time with no sound.
  std::string second = host(
      "listen --bind 127.0.0.1 --port 5899 --settings 960x540@30:audio=none --wait 5 --duration 1"
      " --end 24",
      "second.json");
  ASSERT_EQ(run(first + " & first=$!; " + waitForLine("host.log", "host - listening") + "; " +
                phone("--connect 127.0.0.1 --instance 5 --exit-when-ended --duration 20") +
                " & phone=$!; wait $first; " + second +
                "; status=$?; wait $phone || status=1; exit $status"),
            0)
      << phoneLog();
  Json report = readJson("first.json");
  expectWellFormedStream(report, 960, 540);
  EXPECT_EQ(report["end_command"], 26);
  EXPECT_EQ(report["stream"]["counts"]["status_blocks"], 1) << "33 with 2 asks for one block";

  std::string log = phoneLog();
  double error = secondsOf(log, "Live - error 207");
  double restart = secondsOf(log, "Live - restart asked by the host");
  ASSERT_GT(error, 0) << log;
  ASSERT_GT(restart, 0) << log;
  EXPECT_GE(restart - error, 0.245);
  EXPECT_LT(restart - error, 1.0);

  Json again = readJson("second.json");
  expectAt(again, R"({"/errors": [], "/stream/first_packets/0": "info",
      "/stream/counts/audio_sequence_headers": 0, "/stream/counts/audio_frames": 0})");
  EXPECT_GT(again.value(Json::json_pointer("/stream/counts/key_frames"), 0), 0) << log;
  // The phone keeps what the host asked for and where it was.
  // 960x540 is size 2 of the catalogue.
  expectAt(readJson("cfg/settings.json"), R"({"/videoSize": 2, "/videoWidth": 960,
      "/videoHeight": 540, "/videoFPS": 30, "/audioFormat": 0, "/lastHostIP": "127.0.0.1",
      "/lastHostPort": 5899})");
}

}  // namespace
}  // namespace oxelo
