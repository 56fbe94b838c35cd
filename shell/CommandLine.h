#pragma once

#include <optional>
#include <string>
#include <vector>

namespace oxelo {

// What `oxelo` was asked to do.
struct CommandLine {
  bool headless = false;
  bool help = false;
  bool version = false;
  std::optional<std::string> configDir;
  double duration = -1;        // seconds; negative: until stopped
  bool exitWhenEnded = false;  // exit once the host has ended the stream
  std::optional<std::string> connectAddress;
  int instance = 1;
  std::string camera = "auto";
  std::string audio = "auto";
  bool listCameras = false;
  bool catalogue = false;
};

// Parses the arguments that follow the program's name. Returns nothing and
// sets `error` (one line, without the program's name) on a bad argument;
// --help and --version are requests, not errors: they set their fields.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::string& error);

// The text of --help, made from the same option table as the parser.
std::string usageText();

}  // namespace oxelo
