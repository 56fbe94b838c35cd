#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

// The phone sees no Wi-Fi here, so it sends no broadcast; a staged battery
// that charges stands for the cable where the host comes by USB or calls.
class HandshakeEndToEndTest : public test::ProgramTest {};

Json expectedAnswer(int w, int h, int fps) {
  return {{"width", w},   {"height", h},  {"fps", fps},       {"portrait", 0},
          {"quality", 1}, {"encoder", 0}, {"audio_format", 1}};
}

TEST_F(HandshakeEndToEndTest, PhoneCallsTheHostByAddressAndStoresItsSettings) {
  // One shell runs both, so that it can wait for the host it started.
  std::string host = std::string(OXELO_HOST_BIN) +
                     " listen --bind 127.0.0.1 --port 5897 --settings 1920x1080@30 --wait 15"
                     " --duration 1 --report " +
                     path("r.json") + " > " + path("host.log") + " 2>&1";
  std::string phone = "timeout 20 " + std::string(OXELO_BIN) +
                      " --headless --connect 127.0.0.1 --instance 3 --duration 3 --config-dir " +
                      path("cfg") + " > " + path("phone.log") + " 2>&1";
  ASSERT_EQ(run(host + " & sleep 0.5; " + phone + "; status=$?; wait $!; exit $status"), 0);
  Json report = readJson("r.json");
  ASSERT_TRUE(report.is_object()) << "no report from the host";
  EXPECT_TRUE(report["handshake"]["hello_long"]);
  EXPECT_TRUE(report["handshake"]["hello_short"]);
  EXPECT_EQ(report["handshake"]["settings_answer"], expectedAnswer(1920, 1080, 30));
  EXPECT_EQ(report["errors"], Json::array());
  Json settings = readJson("cfg/settings.json");
  EXPECT_EQ(settings["videoWidth"], 1920);
  EXPECT_EQ(settings["videoHeight"], 1080);
  EXPECT_EQ(settings["videoFPS"], 30);
  EXPECT_EQ(settings["videoSize"], 6);
  EXPECT_EQ(settings["lastHostIP"], "127.0.0.1");
  EXPECT_EQ(settings["lastHostPort"], 5897);
}

TEST_F(HandshakeEndToEndTest, HostReachesThePhoneByUsbAndByCallingIt) {
  stageCable();
  for (const std::string& way : {std::string("usb --settings 1280x720@30"),
                                 std::string("call 127.0.0.1 --settings 640x480@24")}) {
    SCOPED_TRACE(way);
    std::string phone = "OXELO_POWER_SUPPLY_DIR=" + path("ps") + " timeout 20 " + OXELO_BIN +
                        " --headless --duration 4 --config-dir " + path("cfg") + " > " +
                        path("phone.log") + " 2>&1";
    // The phone opens its listeners as soon as it sees the cable.
    std::string host = std::string(OXELO_HOST_BIN) + " " + way + " --duration 1 --report " +
                       path("r.json") + " > " + path("host.log") + " 2>&1";
    EXPECT_EQ(run(phone + " & sleep 1; " + host + "; status=$?; wait $!; exit $status"), 0);
    Json report = readJson("r.json");
    ASSERT_TRUE(report.is_object());
    bool usb = way.starts_with("usb");
    EXPECT_EQ(report["handshake"]["settings_answer"],
              usb ? expectedAnswer(1280, 720, 30) : expectedAnswer(640, 480, 24));
    EXPECT_EQ(report["errors"], Json::array());
    std::string text = readText("phone.log");
    EXPECT_NE(text.find(usb ? "Live - USB channel taken over" : "Live - TCP channel"),
              std::string::npos)
        << text;
  }
}

}  // namespace
}  // namespace oxelo
