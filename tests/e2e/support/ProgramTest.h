#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/TestSupport.h"

namespace oxelo::test {

// Runs `oxelo` and `oxelo-host` as a user would, on loopback, in a fresh
// directory that holds their logs, reports and settings. No run waits out a
// fixed time: the host ends the stream once it has seen what it checks, and
// the phone (--exit-when-ended) follows.
class ProgramTest : public testing::Test {
 protected:
  using Json = nlohmann::json;

  std::string path(const std::string& name) const { return (dir_.path() / name).string(); }

  // The phone streaming the virtual camera and a test tone, its log in
  // phone.log; it takes a battery under ps/ for a cable (see stageCable).
  std::string phone(const std::string& arguments) const {
    return "OXELO_POWER_SUPPLY_DIR=" + path("ps") + " timeout 30 " + OXELO_BIN +
           " --headless --camera virtual --audio synthetic --config-dir " + path("cfg") + " " +
           arguments + " > " + path("phone.log") + " 2>&1";
  }

  // The host, its report in `report`, its log added to host.log.
  std::string host(const std::string& arguments, const std::string& report) const {
    return std::string(OXELO_HOST_BIN) + " " + arguments + " --report " + path(report) + " >> " +
           path("host.log") + " 2>&1";
  }

  // A shell step that waits (10 s at most) until `log` holds `count` lines
  // with `text`.
  std::string waitForLine(const std::string& log, const std::string& text, int count = 1) const {
    return "for i in $(seq 200); do [ $(grep -cF '" + text + "' " + path(log) +
           " 2>/dev/null) -ge " + std::to_string(count) + " ] && break; sleep 0.05; done";
  }

  // A battery that charges under ps/: the phone takes it for a USB cable
  // when OXELO_POWER_SUPPLY_DIR names the folder.
  void stageCable() {
    std::filesystem::create_directories(dir_.path() / "ps" / "BAT0");
    std::ofstream(dir_.path() / "ps" / "BAT0" / "type") << "Battery\n";
    std::ofstream(dir_.path() / "ps" / "BAT0" / "status") << "Charging\n";
  }

  // The JSON in a file of the directory; a discarded value when unreadable.
  Json readJson(const std::string& name) const {
    std::ifstream in(path(name));
    return Json::parse(in, nullptr, false);
  }

  // Each JSON pointer of `expected` names a value of `document`.
  static void expectAt(const Json& document, const std::string& expected) {
    const Json wanted = Json::parse(expected);
    for (const auto& [pointer, value] : wanted.items()) {
      const Json::json_pointer at(pointer);
      EXPECT_EQ(document.contains(at) ? document.at(at) : Json(), value)
          << pointer << " in " << document.dump(1);
    }
  }

  std::string readText(const std::string& name) const {
    std::ifstream in(path(name));
    return std::string((std::istreambuf_iterator<char>(in)), {});
  }

  // The exit status of a shell command; -1 when it did not exit.
  static int run(const std::string& command) {
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Seconds of the day of the first log line that holds `text` (lines start
  // "2026-11-23 16:13:54.531 "); -1 when there is none.
  static double secondsOf(const std::string& log, const std::string& text) {
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

  TempDir dir_;
};

}  // namespace oxelo::test
