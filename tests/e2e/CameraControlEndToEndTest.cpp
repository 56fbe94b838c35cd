// The reference host steers the phone's virtual camera with its commands and
// reads each change back from the status block it asks for next (command 33
// with 2: one block behind the next key frame). A preset saved in one run of
// the phone is loaded in the next, with the same settings folder, and once
// deleted it loads no more. Loopback only.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/e2e/support/ProgramTest.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

// What a status block must show after a group of commands; the values in
// the block's own units (exposure x 10000, zoom x 10).
struct Expected {
  int exposure;
  int iso;
  int temperature;
  double zoom;  // the factor asked for
  int torch;
  bool mirror;
  int lock;  // aeaf_lock; -1: not checked
};

class CameraControlEndToEndTest : public test::ProgramTest {
 protected:
  // One run: the host listens on 5902, the phone calls it, streams
  // 640x480@15 and ends when the host sends 24 at the end of `seconds`.
  Json runOnce(const std::string& commands, double seconds, const std::string& report) {
    std::string listener = host(fmt::format("listen --bind 127.0.0.1 --port 5902 --wait 15"
                                            " --settings 640x480@15 --duration {} --end 24 {}",
                                            seconds, commands),
                                report);
    const int status =
        run(listener + " & " + waitForLine("host.log", "host - listening", ++runs_) + "; " +
            phone("--connect 127.0.0.1 --instance 8 --exit-when-ended --duration 20") +
            "; status=$?; wait $! || status=1; exit $status");
    phoneLogs_ += readText("phone.log");
    EXPECT_EQ(status, 0) << phoneLogs_;
    Json out = readJson(report);
    EXPECT_TRUE(out.is_object()) << phoneLogs_;
    if (!out.is_object()) return Json::object();
    EXPECT_EQ(out["errors"], Json::array()) << out.dump(1);
    return out;
  }

  // The status block that the `nth` command 33 (from 0) of the run asked
  // for: the first to arrive after it went out; null when none came.
  static Json blockAsked(const Json& report, int nth) {
    const Json& sent = report["commands_sent"];
    for (size_t i = 0; i < sent.size(); ++i) {
      if (sent[i]["command"] != 33 || nth-- > 0) continue;
      for (const Json& block : report["stream"]["status_blocks"]) {
        if (block["after_commands"].get<size_t>() > i) return block;
      }
      return nullptr;
    }
    return nullptr;
  }

  // The zoom the block shows for a factor asked for: a camera that zooms
  // less than 4 times maps 0 to 4 onto its range; x 10, rounded.
  static int zoomShown(double asked, const Json& capability) {
    const double most = capability["zoom_max"].get<int>() / 10.0;
    if (most > 1.0 && most < 4.0) asked = most * asked * 0.25;
    return static_cast<int>(std::lround(std::clamp(asked, 1.0, most) * 10));
  }

  void expectBlock(const Json& block, const Expected& e, const Json& capability,
                   const std::string& what) {
    SCOPED_TRACE(what);
    ASSERT_TRUE(block.is_object()) << "no status block came";
    const int iso =
        std::clamp(e.iso, capability["iso_min"].get<int>(), capability["iso_max"].get<int>());
    // Seconds go to the camera in single precision and come back truncated.
    EXPECT_NEAR(block["exposure"].get<int>(), e.exposure, 1);
    EXPECT_EQ(block["iso"], iso);
    // Through the camera's gains and back.
    EXPECT_NEAR(block["temperature"].get<int>(), e.temperature, 30);
    EXPECT_EQ(block["zoom"], zoomShown(e.zoom, capability));
    EXPECT_EQ(block["session"]["torch"], e.torch);
    EXPECT_EQ(block["session"]["mirror"], e.mirror);
    // A custom exposure: manual, custom, device mode 3; white balance set
    // by temperature is manual too.
    expectAt(block, R"({"/exposure_flags/manual": true, "/exposure_flags/custom": true,
        "/exposure_flags/device_mode": 3, "/white_balance_flags/manual": true})");
    if (e.lock < 0) return;
    EXPECT_EQ(block["session"]["aeaf_lock"], e.lock);
    const bool locked = e.lock == 2;
    EXPECT_EQ(std::vector<Json>({block["exposure_flags"]["locked"], block["focus_flags"]["locked"],
                                 block["white_balance_flags"]["locked"]}),
              std::vector<Json>(3, locked));
  }

  int runs_ = 0;
  std::string phoneLogs_;
};

// The host sends the commands of a group 0.1 s apart (the phone takes one
// command from each read) and asks for the block 0.3 s after the last one,
// once the first zoom has ramped and the camera has settled. Key frames,
// and with them the blocks, come once a second: the next group goes out
// 1.3 s after a block was asked for, once that block is in.
TEST_F(CameraControlEndToEndTest, CommandsShowInTheNextStatusBlockAndPresetsOutliveThePhone) {
  // Exposure 0.02 s, ISO 400, 4500 K, zoom 2.0, torch up from 0, mirrored,
  // manual; then preset 3 (slot 2) saved and everything changed.
  const std::string first =
      "--command '0.2 18 1 200' --command '0.2 18 2 400' --command '0.2 18 4 4500'"
      " --command '0.2 18 6 20' --command '0.2 37' --command '0.2 35 1' --command '0.2 41 1'"
      " --command '1.1 33 2'"
      " --command '2.4 42 2' --command '2.4 18 1 100' --command '2.4 18 2 800'"
      " --command '2.4 18 4 6000' --command '2.4 18 6 30' --command '2.4 37'"
      " --command '2.4 35 0' --command '2.4 41 2' --command '3.4 33 2'";
  const Json saved = runOnce(first, 4.6, "first.json");
  ASSERT_TRUE(saved.contains("stream"));
  const Json& capability = saved["stream"]["last_capability"];
  ASSERT_TRUE(capability.is_object()) << saved.dump(1);
  EXPECT_EQ(saved["stream"]["counts"]["status_blocks"], 2) << "two asked for, one each";
  expectBlock(blockAsked(saved, 0), {200, 400, 4500, 2.0, 1, true, 1}, capability, "first group");
  expectBlock(blockAsked(saved, 1), {100, 800, 6000, 3.0, 2, false, 2}, capability, "second group");
  // The preset is in the settings file as soon as it is saved.
  const Json settings = readJson("cfg/settings.json");
  expectAt(settings, R"({"/preset_3/torchLevel": 1, "/preset_3/horizontalFlip": true,
      "/preset_3/faceBeautify": false, "/preset_3/customExposure": true,
      "/preset_3/autoExposure": false, "/preset_3/ISO": 400, "/preset_3/frontCam": false})");
  EXPECT_NEAR(settings.value(Json::json_pointer("/preset_3/exposure"), 0.0), 0.02, 0.0001);
  EXPECT_NEAR(settings.value(Json::json_pointer("/preset_3/zoomScale"), 0.0), 2.0, 0.001);

  // The phone again, on the same settings: loading slot 7 (preset 3 too)
  // brings the first group back, the delayed zoom and torch included. Once
  // deleted, the preset loads no more: the mirror and the temperature set
  // just before stay.
  const std::string second =
      "--command '0.2 43 7' --command '1.7 33 2'"
      " --command '3.0 44 2' --command '3.0 35 0' --command '3.0 18 4 7000'"
      " --command '3.0 43 2' --command '3.6 33 2'";
  const Json loaded = runOnce(second, 4.8, "second.json");
  ASSERT_TRUE(loaded.contains("stream"));
  expectBlock(blockAsked(loaded, 0), {200, 400, 4500, 2.0, 1, true, -1}, capability,
              "preset loaded after a restart");
  const Json after = blockAsked(loaded, 1);
  ASSERT_TRUE(after.is_object()) << loaded.dump(1);
  EXPECT_EQ(after["session"]["mirror"], false) << after.dump(1);
  EXPECT_NEAR(after["temperature"].get<int>(), 7000, 30) << after.dump(1);
}

}  // namespace
}  // namespace oxelo
