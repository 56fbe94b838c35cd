#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

// The phone finds the host by itself, in the namespace harness
// (scripts/netns): two network namespaces joined by a veth pair, so that the
// probes' broadcasts and the mDNS traffic never leave them. The harness needs
// root; where it cannot make the namespaces it fails, and so do these tests.
class DiscoveryEndToEndTest : public test::ProgramTest {
 protected:
  void writeSettings(const Json& settings) {
    std::filesystem::create_directories(dir_.path() / "cfg");
    std::ofstream(dir_.path() / "cfg" / "settings.json") << settings.dump();
  }

  // Runs the harness with these hosts and the phone, which has 6 s from its
  // start and ends once its host has ended the stream; returns the harness's
  // exit status.
  int runHarness(const std::vector<std::string>& hosts, bool dnssd) {
    std::string command = std::string(OXELO_SOURCE_DIR) + "/scripts/netns --logs " + path("logs") +
                          " --config " + path("cfg") + (dnssd ? " --dns-sd" : "");
    for (const auto& host : hosts)
      command += " --host " + quoted(std::string(OXELO_HOST_BIN) + " " + host);
    command +=
        " --phone " + quoted(std::string(OXELO_BIN) + " --headless --exit-when-ended --duration 6");
    return run(command + " > " + path("harness.log") + " 2>&1");
  }

  // `text` as one word for the shell.
  static std::string quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
  }

  // Everything the harness and the programs wrote, for a failure message.
  std::string logs() const {
    return readText("harness.log") + "\n--- phone\n" + readText("logs/phone.log") +
           "\n--- host 1\n" + readText("logs/host1.log") + "\n--- host 2\n" +
           readText("logs/host2.log");
  }

  // The phone's start packet within 6 s of its first log line.
  void expectStartWithinSixSeconds(const std::string& how) const {
    const std::string log = readText("logs/phone.log");
    const double seconds = secondsOf(log, ">> 0x88 0x11 start") - secondsOf(log, "");
    EXPECT_TRUE(seconds > 0 && seconds < 6.0) << seconds << " s\n" << logs();
    std::cout << "phone " << how << " and greeted the host " << seconds << " s after its start\n";
  }

  void expectHandshake(const Json& report, int width, int height, int fps) {
    ASSERT_TRUE(report.is_object()) << logs();
    // Complete: both hellos, the start and the answer.
    expectAt(report, R"({"/connected": true, "/handshake/complete": true, "/errors": []})");
    const Json& answer = report["handshake"]["settings_answer"];
    EXPECT_EQ(std::tuple(answer["width"], answer["height"], answer["fps"]),
              std::tuple(width, height, fps));
  }
};

// Two hosts answer the probes; the phone takes the last host (known by its
// name and address) without asking, within 6 s, and stores where it is. A
// single host found is DNS-SD's case below.
TEST_F(DiscoveryEndToEndTest, OfTwoHostsAnsweringProbesTheLastIsConnectedWithinSixSeconds) {
  writeSettings({{"autoConnect", true}, {"lastHostName", "Studio"}, {"lastHostIP", "10.77.0.2"}});
  int status = runHarness(
      {"listen --answer-probes --name Desk --wait 4 --report " + path("desk.json"),
       "listen --port 5896 --answer-probes --name Studio --settings 640x480@24 --wait 15 "
       "--duration 1 --end 24 --report " +
           path("studio.json")},
      /*dnssd=*/false);
  EXPECT_EQ(status, 1) << "Desk is never called, so it ends with an error\n" << logs();
  expectHandshake(readJson("studio.json"), 640, 480, 24);
  expectStartWithinSixSeconds("connected");
  EXPECT_EQ(readJson("desk.json").value("connected", true), false) << logs();
  EXPECT_NE(readText("logs/host1.log").find("answered the probe of 10.77.0.1:1707"),
            std::string::npos);
  // Studio answered too, and said goodbye to the phone it had answered.
  const std::string studio = readText("logs/host2.log");
  EXPECT_NE(studio.find("answered the probe of 10.77.0.1:1707"), std::string::npos) << studio;
  EXPECT_NE(studio.find("said goodbye to 10.77.0.1:1707"), std::string::npos) << studio;
  // No avahi-daemon in this run: the service search failed with one line and
  // the probes carried on.
  const std::string phone = readText("logs/phone.log");
  const auto noSearch = phone.find("DNS-SD - no search");
  EXPECT_TRUE(noSearch != std::string::npos && noSearch == phone.rfind("DNS-SD - no search"))
      << phone;
  // The port is stored from the probe's answer.
  expectAt(readJson("cfg/settings.json"),
           R"({"/lastHostName": "Studio", "/lastHostIP": "10.77.0.2", "/lastHostPort": 5896})");
}

TEST_F(DiscoveryEndToEndTest, PublishedHostIsFoundByDnsSdAloneWithinSixSeconds) {
  writeSettings({{"autoConnect", true}});
  int status = runHarness({"listen --publish --name 'Desk PC' --settings 1920x1080@30 --wait 15 "
                           "--duration 1 --end 24 --report " +
                           path("r3.json")},
                          /*dnssd=*/true);
  ASSERT_EQ(status, 0) << logs();
  expectHandshake(readJson("r3.json"), 1920, 1080, 30);
  expectStartWithinSixSeconds("found the host by DNS-SD");
  EXPECT_EQ(readText("logs/phone.log").find("DNS-SD - no search"), std::string::npos);
  EXPECT_EQ(readJson("cfg/settings.json").value("lastHostName", ""), "Desk PC");
  EXPECT_NE(readText("logs/host1.log").find("service withdrawn"), std::string::npos);
}

}  // namespace
}  // namespace oxelo
