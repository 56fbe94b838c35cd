#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace oxelo::host {

// The commands the host may send to the phone once the stream runs, and what
// each needs: the table behind --command and its help. A command the phone
// takes with no action (19, 20, 27 to 32, 36) is accepted too, so that a run
// can show that it changes nothing. Plain data, no state.
struct HostCommandInfo {
  uint32_t command = 0;
  int parameters = 0;  // words the record carries: 0, 1 or 2
  const char* name;    // one line of --help
};

// Sub-commands of command 18 (P1), with the meaning of P2.
struct CameraParameterInfo {
  int32_t subCommand = 0;
  const char* name;
};

// The entry of `command`; none outside the table.
const HostCommandInfo* findHostCommand(uint32_t command);
// The entry of sub-command `subCommand` of command 18; none for another.
const CameraParameterInfo* findCameraParameter(int32_t subCommand);

// Checks a command as the user wrote it, with `given` parameters (0 to 2)
// that hold `p1` and `p2`: the command must be in the table, a command must
// be given exactly the parameters its record carries, command 18 a known
// sub-command and command 23 a point of 0 to 255 on both axes. None when it
// may go out; else the reason, as one sentence.
std::optional<std::string> checkHostCommand(uint32_t command, int given, int32_t p1, int32_t p2);

// The table as --help shows it, one command a line, indented by `indent`.
std::string hostCommandHelp(std::string_view indent);

}  // namespace oxelo::host
