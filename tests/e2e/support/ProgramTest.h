#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/TestSupport.h"

namespace oxelo::test {

// Runs `oxelo` and `oxelo-host` as a user would, on loopback, in a fresh
// directory that holds their logs, reports and settings.
class ProgramTest : public testing::Test {
 protected:
  using Json = nlohmann::json;

  std::string path(const std::string& name) const { return (dir_.path() / name).string(); }

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

  std::string readText(const std::string& name) const {
    std::ifstream in(path(name));
    return std::string((std::istreambuf_iterator<char>(in)), {});
  }

  static int run(const std::string& command) { return std::system(command.c_str()); }

  TempDir dir_;
};

}  // namespace oxelo::test
