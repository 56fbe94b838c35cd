#include "shell/CommandLine.h"

#include <cstdlib>

namespace oxelo {

namespace {
bool parseNumber(const std::string& text, double& out) {
  char* end = nullptr;
  out = std::strtod(text.c_str(), &end);
  return !text.empty() && end && *end == '\0';
}
}  // namespace

std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::string& error) {
  CommandLine cl;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& out) {
      if (i + 1 >= args.size()) {
        error = a + " needs a value";
        return false;
      }
      out = args[++i];
      return true;
    };
    std::string v;
    if (a == "--headless") {
      cl.headless = true;
    } else if (a == "--help" || a == "-h") {
      cl.help = true;
    } else if (a == "--version") {
      cl.version = true;
    } else if (a == "--list-cameras") {
      cl.listCameras = true;
    } else if (a == "--catalogue") {
      cl.catalogue = true;
    } else if (a == "--config-dir") {
      if (!value(v)) return std::nullopt;
      cl.configDir = v;
    } else if (a == "--duration") {
      if (!value(v)) return std::nullopt;
      if (!parseNumber(v, cl.duration) || cl.duration < 0) {
        error = "--duration takes a number of seconds, not '" + v + "'";
        return std::nullopt;
      }
    } else if (a == "--connect") {
      if (!value(v)) return std::nullopt;
      cl.connectAddress = v;
    } else if (a == "--instance") {
      if (!value(v)) return std::nullopt;
      double n;
      if (!parseNumber(v, n) || n < 1 || n > 16 || n != static_cast<int>(n)) {
        error = "--instance takes a whole number from 1 to 16, not '" + v + "'";
        return std::nullopt;
      }
      cl.instance = static_cast<int>(n);
    } else if (a == "--camera") {
      if (!value(cl.camera)) return std::nullopt;
    } else if (a == "--audio") {
      if (!value(cl.audio)) return std::nullopt;
    } else {
      error = "unknown argument '" + a + "' (see --help)";
      return std::nullopt;
    }
  }
  return cl;
}

std::string usageText() {
  return R"(Usage: oxelo [OPTIONS]

Turns this device into a network webcam for a computer running the Oxelo host.

  --headless             run without a display: search, connect and stream
  --connect ADDRESS      connect to the host at ADDRESS instead of searching
  --instance N           host instance 1..16 (TCP port 5895 + N - 1), default 1
  --camera SOURCE        auto | virtual | v4l2[:DEVICE]   (default auto)
  --audio SOURCE         auto | synthetic | alsa[:DEVICE] | none (default auto)
  --list-cameras         print the cameras with their formats as JSON and exit
  --catalogue            print the video sizes and frame rates on offer and exit
  --config-dir DIR       keep settings in DIR (else $OXELO_CONFIG_DIR,
                         $XDG_CONFIG_HOME/oxelo or ~/.config/oxelo)
  --duration SECONDS     stop cleanly after SECONDS
  --version              print the version and exit
  --help                 print this text and exit

SIGINT and SIGTERM stop the program cleanly.
)";
}

}  // namespace oxelo
