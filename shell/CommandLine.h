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
  double duration = -1;  // seconds; negative: until stopped
  std::optional<std::string> connectAddress;
  int instance = 1;
  std::string camera = "auto";
  std::string audio = "auto";
  bool listCameras = false;
  bool catalogue = false;
};

// Parses argv. Returns nothing and sets `error` on a bad argument.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::string& error);

// The text of --help.
std::string usageText();

}  // namespace oxelo
