#include "tools/host/Report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/host/HostTestBytes.h"
#include "tools/host/HostSession.h"

namespace oxelo::host {
namespace {

using namespace testbytes;
using Json = nlohmann::json;

// Every field of the status block holds a value of its own, so that a field
// read at another offset or from other bits shows: session flags beauty 2,
// mirror, dim, torch 5, lock 2 (0x02000516); exposure 333 with flags manual,
// custom, mode 3; temperature 4321 with flags locked, mode 1; lens 77 with
// flags manual, locked, mode 0; ISO 1234, bias -17, zoom 25, battery 163.
const Bytes kEveryStatusField =
    hex("10000000 02000200 2c000000 | 16050002 | 4d010000 05030000 | e1100000 02010000"
        "| 4d000000 03000000 | d2040000 efffffff 19000000 a3000000");

const Json kEveryStatusFieldJson = Json::parse(R"({
    "session": {"beauty": 2, "mirror": true, "dim": true, "torch": 5, "aeaf_lock": 2},
    "exposure": 333,
    "exposure_flags": {"manual": true, "locked": false, "custom": true, "device_mode": 3},
    "temperature": 4321,
    "white_balance_flags": {"manual": false, "locked": true, "custom": false, "device_mode": 1},
    "lens_position": 77,
    "focus_flags": {"manual": true, "locked": true, "custom": false, "device_mode": 0},
    "iso": 1234, "bias": -17, "zoom": 25, "battery": 163})");

// The same for the capability block, where a field is not fixed: camera
// kind 5, exposure 2 to 5000 with capabilities 6, white balance 2, focus 1,
// ISO 32 to 3072 with capability 0, bias -80 to 60, zoom to 160 with 3.
const Bytes kEveryCapabilityField =
    hex("10000000 01000100 4c000000 | 05000000 | 02000000 88130000 06000000"
        "| d0070000 401f0000 02000000 | 00000000 64000000 01000000"
        "| 20000000 000c0000 00000000 | b0ffffff 3c000000 01000000"
        "| 0a000000 a0000000 03000000");

const Json kEveryCapabilityFieldJson = Json::parse(R"({
    "camera_kind": 5, "exposure_min": 2, "exposure_max": 5000, "exposure_capabilities": 6,
    "temperature_min": 2000, "temperature_max": 8000, "white_balance_capabilities": 2,
    "lens_min": 0, "lens_max": 100, "focus_capabilities": 1,
    "iso_min": 32, "iso_max": 3072, "iso_capability": 0,
    "bias_min": -80, "bias_max": 60, "bias_capability": 1,
    "zoom_min": 10, "zoom_max": 160, "zoom_capabilities": 3})");

// The block a command asked for is the first one that arrives behind it;
// the report lists the blocks, each with the commands sent before it, and
// decodes every field of the last ones.
TEST(ReportTest, ListsTheBlocksAndDecodesEveryFieldOfTheLast) {
  HostSession session({"Desk", 5895, std::nullopt, /*sendStart=*/true});
  session.receiveBytes(
      cat({kHellos, kAnswer720p, kInfo, kVideoHeader, kEveryCapabilityField, kKeyFrame0, kStatus}));
  session.queueCommand(18, 6, 25);
  session.queueCommand(33, 2, 0);
  session.receiveBytes(cat({keyFrameAt("42000000"), kStatus}));
  session.queueCommand(37, 0, 0);
  session.receiveBytes(cat({keyFrameAt("84000000"), kEveryStatusField}));
  session.hostEnded();
  EXPECT_EQ(session.errors(), std::vector<std::string>());
  const Json stream = streamJson(session.stream());
  EXPECT_EQ(stream["last_status"], kEveryStatusFieldJson);
  EXPECT_EQ(stream["last_capability"], kEveryCapabilityFieldJson);
  Json blocks = stream["status_blocks"];
  ASSERT_EQ(blocks.size(), 3u) << blocks.dump(1);
  EXPECT_EQ(std::vector<int>({blocks[0]["after_commands"], blocks[1]["after_commands"],
                              blocks[2]["after_commands"]}),
            std::vector<int>({0, 2, 3}));
  EXPECT_EQ(blocks[1]["temperature"], 5000);
  blocks[2].erase("after_commands");
  EXPECT_EQ(blocks[2], kEveryStatusFieldJson);
}

}  // namespace
}  // namespace oxelo::host
