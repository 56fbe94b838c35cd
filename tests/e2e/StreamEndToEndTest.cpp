// The phone streams the virtual camera and a test tone to the reference host
// over TCP and over the framed USB channel; the host checks every packet,
// asks for status blocks, and ends the stream with a command. Loopback only:
// the phone sees no Wi-Fi here and sends no broadcast.
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

class StreamEndToEndTest : public test::ProgramTest {
 protected:
  std::string phoneLog() const { return readText("phone.log"); }

  std::string phone(const std::string& arguments) const {
    return "OXELO_POWER_SUPPLY_DIR=" + path("ps") + " timeout 30 " + OXELO_BIN +
           " --headless --camera virtual --audio synthetic --config-dir " + path("cfg") + " " +
           arguments + " > " + path("phone.log") + " 2>&1";
  }

  std::string host(const std::string& arguments, const std::string& report) const {
    return std::string(OXELO_HOST_BIN) + " " + arguments + " --report " + path(report) + " >> " +
           path("host.log") + " 2>&1";
  }

  // What every stream must show: the info packet as the phone's settings
  // make it, the sequence header with its capability block first, status
  // blocks once asked for, and no fault.
  void expectWellFormedStream(const Json& report, int width, int height) {
    ASSERT_TRUE(report.is_object()) << "no report";
    const Json& stream = report["stream"];
    EXPECT_EQ(report["errors"], Json::array()) << report.dump(1);
    EXPECT_EQ(stream["order_errors"], Json::array());
    EXPECT_EQ(stream["info"]["width"], width);
    EXPECT_EQ(stream["info"]["height"], height);
    EXPECT_EQ(stream["info"]["video_encoder"], 0);
    EXPECT_GT(stream["info"]["audio_sample_rate"].get<int>(), 0);
    ASSERT_GE(stream["first_packets"].size(), 4u);
    EXPECT_EQ(stream["first_packets"][0], "info");
    EXPECT_EQ(stream["first_packets"][1], "video_sequence_header");
    EXPECT_EQ(stream["first_packets"][2], "capability_block");
    EXPECT_EQ(stream["first_packets"][3], "key_frame");
    EXPECT_EQ(stream["counts"]["capability_blocks"], 1);
    EXPECT_GE(stream["counts"]["status_blocks"].get<int>(), 1) << "asked for at 1 s";
    EXPECT_GT(stream["counts"]["inter_frames"].get<int>(), 20);
    EXPECT_GT(stream["counts"]["audio_frames"].get<int>(), 20);
    EXPECT_EQ(stream["last_capability"]["temperature_min"], 2000);
  }
};

// Seconds of the day of the first log line that holds `text` (lines start
// "2026-11-23 16:13:54.531 "); -1 when there is none.
double secondsOf(const std::string& log, const std::string& text) {
  auto at = log.find(text);
  if (at == std::string::npos) return -1;
  auto lineStart = log.rfind('\n', at);
  lineStart = lineStart == std::string::npos ? 0 : lineStart + 1;
  int hours = 0, minutes = 0;
  double seconds = 0;
  if (std::sscanf(log.c_str() + lineStart, "%*d-%*d-%*d %d:%d:%lf", &hours, &minutes, &seconds) !=
      3)
    return -1;
  return hours * 3600.0 + minutes * 60.0 + seconds;
}

TEST_F(StreamEndToEndTest, OverUsbTheHostsCloseLeavesThePhoneCallable) {
  stageCable();
  std::string first =
      host("usb --settings 1280x720@30 --duration 3 --command '1 33 1 0' --end 24", "usb.json");
  // Back at the main screen the phone listens again, so a host can call it.
  std::string second =
      host("call 127.0.0.1 --settings 640x480@30 --no-start --duration 1", "call.json");
  ASSERT_EQ(run(phone("--duration 9") + " & sleep 1; " + first + "; sleep 0.5; " + second +
                "; status=$?; wait $!; exit $status"),
            0)
      << phoneLog();
  Json report = readJson("usb.json");
  expectWellFormedStream(report, 1280, 720);
  EXPECT_EQ(report["end_command"], 24);
  std::string log = phoneLog();
  EXPECT_NE(log.find("Live - USB channel taken over"), std::string::npos) << log;
  EXPECT_NE(log.find("Live - error 206"), std::string::npos) << log;
  Json call = readJson("call.json");
  ASSERT_TRUE(call.is_object());
  EXPECT_TRUE(call["handshake"]["hello_long"]) << call.dump(1);
  EXPECT_EQ(call["errors"], Json::array());
}

TEST_F(StreamEndToEndTest, OverTcpARestartReconnectsAfterAQuarterSecond) {
  std::string first = host(
      "listen --bind 127.0.0.1 --port 5899 --settings 960x540@30 --wait 15 --duration 3"
      " --command '1 33 2 0' --end 26",
      "first.json");
  // The restarted phone calls the same host again.
  std::string second =
      host("listen --bind 127.0.0.1 --port 5899 --settings 960x540@30 --wait 5 --duration 1",
           "second.json");
  ASSERT_EQ(run(first + " & first=$!; sleep 0.3; " +
                phone("--connect 127.0.0.1 --instance 5 --duration 9") +
                " & phone=$!; wait $first; " + second + "; status=$?; wait $phone; exit $status"),
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
  ASSERT_TRUE(again.is_object()) << log;
  EXPECT_TRUE(again["handshake"]["complete"]) << again.dump(1);
  EXPECT_EQ(again["stream"]["order_errors"], Json::array());
  EXPECT_EQ(again["stream"]["first_packets"][0], "info");
}

}  // namespace
}  // namespace oxelo
