#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/HostOptions.h"
#include "tools/host/HostSession.h"
#include "tools/host/Remuxer.h"

namespace oxelo::host {

// How a run ended, as the report names it.
enum class RunEnd {
  notConnected,  // "not_connected": no connection came about
  phone,         // "phone": the phone ended the connection
  duration,      // "duration": the host ended it when its time ran out
  error,         // "error": a read or write failed, or the framing broke
};

const char* runEndName(RunEnd end);

// Everything a report is made of.
struct ReportInput {
  HostMode mode = HostMode::listen;
  bool connected = false;
  RunEnd end = RunEnd::notConnected;
  const HostSession* session = nullptr;       // required
  std::vector<TimedCommand> commandsSent;     // in the order they went out
  std::optional<uint32_t> endCommand;         // 24, 25 or 26 when it went out
  std::optional<RecordingSummary> recording;  // with --output
};

// The report of one run, deterministic for a given exchange (no times taken
// by the host, no ephemeral ports):
//   {"mode": "listen"|"call"|"usb", "connected": bool,
//    "ended_by": "not_connected"|"phone"|"duration"|"error",
//    "handshake": {"complete", "hello_long", "hello_short", "host_info_sent",
//                  "settings_sent", "start_sent",
//                  "settings_answer": {"width", "height", "fps", "portrait",
//                                      "quality", "encoder", "audio_format"} | null},
//    "stream": {"info": {...} | null, "counts": {...}, "first_packets": [name, ...],
//               "last_status": {...} | null, "last_capability": {...} | null,
//               "status_blocks": [{...status, "after_commands"}, ...],
//               "phone_commands": [{"command", "parameter"?}, ...],
//               "order_errors": [text, ...]},
//    "commands_sent": [{"at", "command", "p1", "p2"}, ...],
//    "end_command": 24|25|26|null,
//    "errors": [text, ...]}
// "errors" holds every fault in the order seen, the order errors included.
// "status_blocks" lists the first status blocks in arrival order, each with
// the number of host commands (the end command included) that had gone out
// before it arrived: what a command changed shows in the first block whose
// "after_commands" passes that command's place in "commands_sent".
nlohmann::json buildReport(const ReportInput& input);

// Parts of the report, field by field.
nlohmann::json settingsJson(const handshake::VideoSettings& settings);
nlohmann::json streamJson(const StreamChecker& stream);
nlohmann::json infoJson(const wire::InfoPacket& info);
nlohmann::json statusJson(const wire::StatusBlock& status);
nlohmann::json capabilityJson(const wire::CapabilityBlock& capability);

// UTF-16 code units as UTF-8; a lone surrogate becomes U+FFFD.
std::string utf8FromUtf16(const std::u16string& text);

// Writes the report, indented, to `path`. False with `error` set on failure.
bool writeReportFile(const std::string& path, const nlohmann::json& report, std::string& error);

}  // namespace oxelo::host
