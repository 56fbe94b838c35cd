#include "tools/host/HostCommands.h"

#include <fmt/format.h>

#include <array>

namespace oxelo::host {

namespace {

// In command order; "P1 P2" spelled as --help shows them.
struct Row {
  HostCommandInfo info;
  const char* usage;
};

constexpr std::array kCommands{
    Row{{18, 2, "set a camera parameter: SUB below, VALUE in its unit"}, "SUB VALUE"},
    Row{{19, 0, "no action"}, ""},
    Row{{20, 0, "no action"}, ""},
    Row{{21, 0, "zoom in one step (x 1.05)"}, ""},
    Row{{22, 0, "zoom out one step (/ 1.05, not below 1.0)"}, ""},
    Row{{23, 2, "focus at a point, X and Y 0 to 255 across and down the picture"}, "X Y"},
    Row{{24, 0, "the host closes the stream (--end 24 sends it at the end)"}, ""},
    Row{{25, 0, "the connection is given up"}, ""},
    Row{{26, 0, "the host asks for a restart"}, ""},
    Row{{27, 0, "no action"}, ""},
    Row{{28, 0, "no action"}, ""},
    Row{{29, 0, "no action"}, ""},
    Row{{30, 0, "no action"}, ""},
    Row{{31, 0, "no action"}, ""},
    Row{{32, 0, "no action"}, ""},
    Row{{33, 1, "status blocks: 0 none, 1 behind every key frame, 2 behind the next one"}, "N"},
    Row{{34, 1, "camera: 0 turns between front and back, N > 0 takes camera (N - 1) mod 4"}, "N"},
    Row{{35, 1, "mirror: 0 off, other on"}, "ON"},
    Row{{36, 0, "no action"}, ""},
    Row{{37, 0, "torch one level up, 0 to 5 and round to 0"}, ""},
    Row{{38, 1, "beauty: 0 off, other on with that method"}, "METHOD"},
    Row{{39, 1, "dim the screen: 0 off, other on"}, "ON"},
    Row{{40, 1, "record on the phone: 0 off, other on"}, "ON"},
    Row{{41, 1, "exposure and focus lock: 0 automatic, 1 manual, 2 locked (N and 3)"}, "N"},
    Row{{42, 1, "save the camera state as preset (SLOT mod 5) + 1"}, "SLOT"},
    Row{{43, 1, "load preset (SLOT mod 5) + 1"}, "SLOT"},
    Row{{44, 1, "delete preset (SLOT mod 5) + 1"}, "SLOT"},
};

constexpr std::array kParameters{
    CameraParameterInfo{1, "exposure time, seconds x 10000"},
    CameraParameterInfo{2, "ISO"},
    CameraParameterInfo{3, "exposure bias, EV x 10"},
    CameraParameterInfo{4, "white balance temperature, kelvin (the tint stays)"},
    CameraParameterInfo{5, "lens position, 0 to 100"},
    CameraParameterInfo{6, "zoom, factor x 10"},
    CameraParameterInfo{11, "automatic exposure: 0 on, 2 locked, other neither"},
    CameraParameterInfo{14, "automatic white balance: 0 on, 2 locked, other neither"},
    CameraParameterInfo{15, "automatic focus: 0 on, 2 locked, other neither"},
};

const char* parameterWords(int count) {
  switch (count) {
    case 0:
      return "no parameter";
    case 1:
      return "one parameter";
    default:
      return "two parameters";
  }
}

}  // namespace

const HostCommandInfo* findHostCommand(uint32_t command) {
  for (const auto& row : kCommands) {
    if (row.info.command == command) return &row.info;
  }
  return nullptr;
}

const CameraParameterInfo* findCameraParameter(int32_t subCommand) {
  for (const auto& p : kParameters) {
    if (p.subCommand == subCommand) return &p;
  }
  return nullptr;
}

std::optional<std::string> checkHostCommand(uint32_t command, int given, int32_t p1, int32_t p2) {
  const HostCommandInfo* info = findHostCommand(command);
  if (!info) return fmt::format("command {} is not one the phone takes (18 to 44)", command);
  if (given != info->parameters) {
    return fmt::format("command {} takes {}, not {}", command, parameterWords(info->parameters),
                       given);
  }
  if (command == 18 && !findCameraParameter(p1)) {
    return fmt::format("command 18 has no sub-command {} (1 to 6, 11, 14, 15)", p1);
  }
  if (command == 23 && (p1 < 0 || p1 > 255 || p2 < 0 || p2 > 255)) {
    return fmt::format("command 23 takes a point of 0 to 255 on both axes, not ({}, {})", p1, p2);
  }
  return std::nullopt;
}

std::string hostCommandHelp(std::string_view indent) {
  constexpr std::string_view kNoAction = "no action";
  std::string out;
  std::string idle;  // the commands with no action, on one line at the end
  for (const auto& row : kCommands) {
    if (row.info.name == kNoAction) {
      idle += fmt::format("{}{}", idle.empty() ? "" : ", ", row.info.command);
      continue;
    }
    out += fmt::format("{}{:<14}{}\n", indent, fmt::format("{} {}", row.info.command, row.usage),
                       row.info.name);
    if (row.info.command != 18) continue;
    for (const auto& p : kParameters) {
      out += fmt::format("{}{:<14}SUB {:>2}: {}\n", indent, "", p.subCommand, p.name);
    }
  }
  return out + fmt::format("{}{}: accepted, the phone takes no action\n", indent, idle);
}

}  // namespace oxelo::host
