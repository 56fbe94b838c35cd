#include "tools/host/HostOptions.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <limits>
#include <map>

#include "tools/host/CommandSchedule.h"
#include "tools/host/HostCommands.h"
#include "tools/host/Remuxer.h"

namespace oxelo::host {

namespace {

constexpr const char* kProgramHelp =
    R"(oxelo-host: the computer's side of the Oxelo stream, for tests and demos.

Usage:
  oxelo-host listen [--port P] [--bind ADDRESS] [--wait SECONDS]
                    [--answer-probes[=PORTS]] [--publish] [OPTIONS]
  oxelo-host call ADDRESS [--port P] [OPTIONS]
  oxelo-host usb [--port P] [OPTIONS]
  oxelo-host SUBCOMMAND --help

Subcommands:
  listen   wait for the phone to call (default port 5895, all interfaces)
  call     call the phone at ADDRESS (default port 5896)
  usb      connect to the phone's framed channel at 127.0.0.1 (default port 5895)

Run 'oxelo-host SUBCOMMAND --help' for the options.
)";

constexpr const char* kCommonHelp = R"(
Options:
  --name NAME          the name announced to the phone (default: this machine's host name)
  --settings SPEC      dictate the video settings before the start:
                       WIDTHxHEIGHT@FPS[:portrait][:q=N][:enc=h264|hevc][:audio=none|mono|stereo]
                       (defaults: landscape, q=1, enc=h264, audio=mono)
  --no-start           do not send the start packet
  --duration SECONDS   end the connection this long after it came up
                       (default: read until the phone ends it)
  --command "AT CMD [P1 [P2]]"
                       send command CMD with its parameters AT seconds after the
                       connection came up, once the phone has answered (repeatable);
                       each command takes exactly the parameters listed below
  --command-gap SECONDS
                       send each command at least this long after the one before
                       (default 0.1): the phone reads one command from each read
                       of the connection, so commands sent together are lost
  --end close|24|25|26 when the duration runs out: close the connection (default), or
                       send command 24, 25 or 26 first and give the phone a moment to end it
  --report FILE        write the JSON report to FILE (default: standard output)
  --output FILE        record the stream into FILE, Matroska (.mkv) or MP4 (.mp4),
                       as it comes: no re-encoding
  --arrivals FILE      write one line per video or audio frame as it arrives whole:
                       "video|audio TIMESTAMP_MS KEY ARRIVAL_NS", ARRIVAL_NS on
                       CLOCK_MONOTONIC (the phone's media clock on the same machine)
  --help               this text
)";

constexpr const char* kExitHelp = R"(
Exit status: 0 when the exchange was complete and no error was seen, 1 when
it was not, 2 for bad arguments.
)";

constexpr const char* kListenHelp = R"(oxelo-host listen: wait for the phone to call.

Usage: oxelo-host listen [--port P] [--bind ADDRESS] [--wait SECONDS]
                         [--answer-probes[=PORTS]] [--publish] [OPTIONS]

  --port P             the TCP port to listen on (default 5895; 0 picks a free one)
  --bind ADDRESS       the local IPv4 address to listen on (default 0.0.0.0, all)
  --wait SECONDS       give up when no phone has called after this long (default: no limit)
  --answer-probes[=PORTS]
                       answer the phone's UDP probes (on all interfaces) on the TCP port,
                       or on each of PORTS (comma separated): "port:P;NAME;1" back to the
                       probe's sender, and "port:P;NAME;0" to every phone answered on exit
  --publish            publish the service _tarnvik_oxelo._tcp with DNS-SD under --name on
                       the TCP port (needs a running avahi-daemon); withdrawn on exit
)";

constexpr const char* kCallHelp = R"(oxelo-host call: call the phone.

Usage: oxelo-host call ADDRESS [--port P] [OPTIONS]

  ADDRESS              the phone's IPv4 address or host name
  --port P             the phone's TCP port (default 5896)
)";

constexpr const char* kUsbHelp = R"(oxelo-host usb: connect to the phone's framed channel.

Usage: oxelo-host usb [--port P] [OPTIONS]

Connects to 127.0.0.1, where a USB forwarder ends (adb forward, ssh -L, ...).

  --port P             the forwarded TCP port (default 5895)
)";

// The options every subcommand shares, the commands, the exit status.
std::string commonHelp() {
  return std::string(kCommonHelp) + "\nCommands for --command (CMD and its parameters):\n" +
         hostCommandHelp("  ") + kExitHelp;
}

std::string helpFor(HostMode mode) {
  switch (mode) {
    case HostMode::listen:
      return kListenHelp + commonHelp();
    case HostMode::call:
      return kCallHelp + commonHelp();
    case HostMode::usb:
      return kUsbHelp + commonHelp();
  }
  return kProgramHelp;
}

ParsedCommandLine fail(std::string text) {
  ParsedCommandLine out;
  out.kind = ParsedCommandLine::Kind::error;
  out.text = std::move(text);
  return out;
}

// A whole decimal number in [min, max].
std::optional<uint64_t> parseUnsigned(std::string_view text, uint64_t min, uint64_t max) {
  uint64_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (value < min || value > max) return std::nullopt;
  return value;
}

// A finite number of seconds; zero allowed only where `allowZero`.
std::optional<double> parseSeconds(std::string_view text, bool allowZero) {
  double value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!std::isfinite(value) || value < 0 || (value == 0 && !allowZero)) return std::nullopt;
  return value;
}

bool isIpv4Address(const std::string& text) {
  in_addr addr{};
  return inet_pton(AF_INET, text.c_str(), &addr) == 1;
}

constexpr uint64_t kMaxWord = std::numeric_limits<uint32_t>::max();

// One ":suffix" of the settings text.
bool applySettingsSuffix(std::string_view suffix, handshake::VideoSettings& s,
                         std::map<std::string, bool>& seen, std::string& error) {
  const auto eq = suffix.find('=');
  const std::string key(suffix.substr(0, eq));
  const std::string_view value = eq == std::string_view::npos ? "" : suffix.substr(eq + 1);
  if (seen[key]) {
    error = "'" + key + "' is given twice";
    return false;
  }
  seen[key] = true;
  if (key == "portrait" && eq == std::string_view::npos) {
    s.portrait = 1;
    return true;
  }
  if (key == "q" && eq != std::string_view::npos) {
    auto q = parseUnsigned(value, 0, kMaxWord);
    if (!q) {
      error = "the quality must be a whole number (0 low, 1 medium, 2 high), not '" +
              std::string(value) + "'";
      return false;
    }
    s.quality = static_cast<uint32_t>(*q);
    return true;
  }
  if (key == "enc" && eq != std::string_view::npos) {
    if (value == "h264" || value == "hevc") {
      s.encoder = value == "h264" ? 0 : 1;
      return true;
    }
    error = "the encoder must be h264 or hevc, not '" + std::string(value) + "'";
    return false;
  }
  if (key == "audio" && eq != std::string_view::npos) {
    static const std::map<std::string_view, uint32_t> formats = {
        {"none", 0}, {"mono", 1}, {"stereo", 2}};
    auto it = formats.find(value);
    if (it == formats.end()) {
      error = "the audio format must be none, mono or stereo, not '" + std::string(value) + "'";
      return false;
    }
    s.audioFormat = it->second;
    return true;
  }
  error = "unknown settings suffix ':" + std::string(suffix) + "'";
  return false;
}

// A whole signed decimal number that fits 32 bits.
std::optional<int32_t> parseSigned(std::string_view text) {
  int32_t value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> out;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t start = text.find_first_not_of(" \t", pos);
    if (start == std::string_view::npos) break;
    const size_t end = std::min(text.find_first_of(" \t", start), text.size());
    out.push_back(text.substr(start, end - start));
    pos = end;
  }
  return out;
}

// P[,P...]: UDP ports from 1 to 65535.
std::optional<std::vector<uint16_t>> parsePortList(std::string_view text) {
  std::vector<uint16_t> ports;
  size_t pos = 0;
  for (;;) {
    const size_t comma = text.find(',', pos);
    auto port = parseUnsigned(
        text.substr(pos, comma == std::string_view::npos ? comma : comma - pos), 1, 65535);
    if (!port) return std::nullopt;
    ports.push_back(static_cast<uint16_t>(*port));
    if (comma == std::string_view::npos) return ports;
    pos = comma + 1;
  }
}

std::optional<EndAction> parseEndAction(std::string_view text) {
  if (text == "close") return EndAction::close;
  if (text == "24") return EndAction::peerClose;
  if (text == "25") return EndAction::connectionLost;
  if (text == "26") return EndAction::restart;
  return std::nullopt;
}

}  // namespace

std::optional<TimedCommand> parseCommandText(const std::string& text, std::string& error) {
  const auto parts = words(text);
  if (parts.size() < 2 || parts.size() > 4) {
    error = "a command is 'AT_SECONDS COMMAND [P1 [P2]]', not '" + text + "'";
    return std::nullopt;
  }
  TimedCommand c;
  auto at = parseSeconds(parts[0], /*allowZero=*/true);
  auto command = parseUnsigned(parts[1], 0, kMaxWord);
  if (!at || !command) {
    error = "the time and the command number must be numbers of 0 or more in '" + text + "'";
    return std::nullopt;
  }
  c.at = *at;
  c.command = static_cast<uint32_t>(*command);
  for (size_t i = 2; i < parts.size(); ++i) {
    auto p = parseSigned(parts[i]);
    if (!p) {
      error = "the parameters must be whole 32-bit numbers in '" + text + "'";
      return std::nullopt;
    }
    (i == 2 ? c.p1 : c.p2) = *p;
  }
  if (auto refused = checkHostCommand(c.command, static_cast<int>(parts.size()) - 2, c.p1, c.p2)) {
    error = *refused + " in '" + text + "'";
    return std::nullopt;
  }
  return c;
}

std::optional<handshake::VideoSettings> parseSettingsText(const std::string& text,
                                                          std::string& error) {
  const std::string_view all(text);
  const auto colon = all.find(':');
  const std::string_view head = all.substr(0, colon);
  const auto x = head.find('x');
  const auto at = head.find('@');
  if (x == std::string_view::npos || at == std::string_view::npos || at < x) {
    error = "the settings must start with WIDTHxHEIGHT@FPS, not '" + text + "'";
    return std::nullopt;
  }
  auto width = parseUnsigned(head.substr(0, x), 1, kMaxWord);
  auto height = parseUnsigned(head.substr(x + 1, at - x - 1), 1, kMaxWord);
  auto fps = parseUnsigned(head.substr(at + 1), 1, kMaxWord);
  if (!width || !height || !fps) {
    error = "width, height and frame rate must be whole numbers above 0 in '" + text + "'";
    return std::nullopt;
  }
  handshake::VideoSettings s;
  s.width = static_cast<uint32_t>(*width);
  s.height = static_cast<uint32_t>(*height);
  s.fps = static_cast<uint32_t>(*fps);
  s.quality = kDefaultQuality;
  s.audioFormat = kDefaultAudioFormat;
  std::map<std::string, bool> seen;
  size_t pos = colon;
  while (pos != std::string_view::npos) {
    const auto next = all.find(':', pos + 1);
    const auto suffix = all.substr(pos + 1, next == std::string_view::npos ? next : next - pos - 1);
    if (!applySettingsSuffix(suffix, s, seen, error)) return std::nullopt;
    pos = next;
  }
  return s;
}

namespace {

// What the options of one subcommand fill in; the defaults that depend on
// the mode are settled once it is known.
struct Collected {
  HostOptions o;
  std::optional<uint16_t> port;
  std::optional<std::string> probes;  // the value of --answer-probes, "" alone
};

// A value that does not read: CLI11 reports it as "--option: text".
[[noreturn]] void refuse(const std::string& option, const std::string& text) {
  throw CLI::ValidationError(option, text);
}

void addCommonOptions(CLI::App& app, Collected& c) {
  app.add_option_function<std::string>("--name", [&c](const std::string& v) {
    if (v.empty()) refuse("--name", "the name must not be empty");
    c.o.name = v;
  });
  app.add_option_function<std::string>("--settings", [&c](const std::string& v) {
    std::string error;
    c.o.settings = parseSettingsText(v, error);
    if (!c.o.settings) refuse("--settings", error);
  });
  app.add_flag_function(
         "--no-start", [&c](int64_t) { c.o.sendStart = false; }, "")
      ->disable_flag_override();
  app.add_option_function<std::string>("--duration", [&c](const std::string& v) {
    c.o.duration = parseSeconds(v, /*allowZero=*/false);
    if (!c.o.duration) refuse("--duration", "bad duration '" + v + "'");
  });
  app.add_option_function<std::vector<std::string>>("--command",
                                                    [&c](const std::vector<std::string>& texts) {
                                                      for (const auto& text : texts) {
                                                        std::string error;
                                                        auto command =
                                                            parseCommandText(text, error);
                                                        if (!command) refuse("--command", error);
                                                        c.o.commands.push_back(*command);
                                                      }
                                                    })
      ->allow_extra_args(false)
      ->take_all();
  app.add_option_function<std::string>("--command-gap", [&c](const std::string& v) {
    auto gap = parseSeconds(v, /*allowZero=*/true);
    if (!gap) refuse("--command-gap", "bad number of seconds '" + v + "'");
    c.o.commandGap = *gap;
  });
  app.add_option_function<std::string>("--end", [&c](const std::string& v) {
    auto end = parseEndAction(v);
    if (!end) refuse("--end", "takes close, 24, 25 or 26, not '" + v + "'");
    c.o.end = *end;
  });
  app.add_option_function<std::string>("--report", [&c](const std::string& v) {
    if (v.empty()) refuse("--report", "the report file name must not be empty");
    c.o.reportPath = v;
  });
  app.add_option_function<std::string>("--output", [&c](const std::string& v) {
    if (!Remuxer::supportsPath(v))
      refuse("--output", "takes a file ending in .mkv or .mp4, not '" + v + "'");
    c.o.outputPath = v;
  });
  app.add_option_function<std::string>("--arrivals", [&c](const std::string& v) {
    if (v.empty()) refuse("--arrivals", "the file name must not be empty");
    c.o.arrivalsPath = v;
  });
}

// --port, from `min` (listen takes 0 for a free port).
void addPortOption(CLI::App& app, Collected& c, uint64_t min) {
  app.add_option_function<std::string>("--port", [&c, min](const std::string& v) {
    auto port = parseUnsigned(v, min, 65535);
    if (!port) refuse("--port", "bad port '" + v + "'");
    c.port = static_cast<uint16_t>(*port);
  });
}

void addListenOptions(CLI::App& app, Collected& c) {
  app.add_option_function<std::string>("--bind", [&c](const std::string& v) {
    if (!isIpv4Address(v)) refuse("--bind", "bad IPv4 address '" + v + "'");
    c.o.address = v;
  });
  app.add_option_function<std::string>("--wait", [&c](const std::string& v) {
    c.o.wait = parseSeconds(v, /*allowZero=*/true);
    if (!c.o.wait) refuse("--wait", "bad number of seconds '" + v + "'");
  });
  // A flag, so that its list comes only after '='; alone it gives "".
  app.add_flag("--answer-probes{}", c.probes);
  app.add_flag("--publish", c.o.publish)->disable_flag_override();
}

ParsedCommandLine help(std::string text) {
  ParsedCommandLine out;
  out.kind = ParsedCommandLine::Kind::help;
  out.text = std::move(text);
  return out;
}

// The checks that span options, once every option is read.
std::optional<std::string> crossCheck(const std::string& mode, const HostOptions& o) {
  if (o.end != EndAction::close && !o.duration) return mode + ": --end needs a --duration";
  if (!o.duration || o.commands.empty()) return std::nullopt;
  const double last = CommandSchedule::earliestTimes(o.commands, o.commandGap).back();
  if (last >= *o.duration) {
    return fmt::format("{}: the last command would go at {:g} s, not before the duration of {:g} s",
                       mode, last, *o.duration);
  }
  // The end command is a command too: it keeps the gap (give or take the
  // rounding of the sums of times).
  if (o.end != EndAction::close && last + o.commandGap > *o.duration + 1e-9) {
    return fmt::format(
        "{}: the last command would go at {:g} s, less than --command-gap before "
        "the end command at {:g} s",
        mode, last, *o.duration);
  }
  return std::nullopt;
}

}  // namespace

ParsedCommandLine parseHostOptions(std::span<const std::string> args,
                                   const std::string& defaultName) {
  if (args.empty()) return fail("a subcommand is needed: listen, call or usb (see --help)");
  if (args[0] == "help") return help(kProgramHelp);

  Collected c;
  c.o.name = defaultName;
  CLI::App app("oxelo-host");
  app.require_subcommand(1);
  CLI::App* listen = app.add_subcommand("listen");
  CLI::App* call = app.add_subcommand("call");
  CLI::App* usb = app.add_subcommand("usb");
  for (CLI::App* sub : {listen, call, usb}) addCommonOptions(*sub, c);
  addPortOption(*listen, c, 0);
  addPortOption(*call, c, 1);
  addPortOption(*usb, c, 1);
  addListenOptions(*listen, c);
  call->add_option("ADDRESS", c.o.address)->required();

  auto modeOf = [&]() -> std::optional<HostMode> {
    if (listen->parsed()) return HostMode::listen;
    if (call->parsed()) return HostMode::call;
    if (usb->parsed()) return HostMode::usb;
    return std::nullopt;
  };
  // CLI11 reads the arguments in reverse, as argv without its program name.
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    auto mode = modeOf();
    return help(mode ? helpFor(*mode) : kProgramHelp);
  } catch (const CLI::ParseError& e) {
    auto mode = modeOf();
    if (!mode) {
      const std::string& first = args[0];
      if (first.starts_with("-")) return fail(e.what());
      return fail("unknown subcommand '" + first + "': use listen, call or usb");
    }
    const std::string name = modeName(*mode);
    if (*mode != HostMode::listen) {
      for (const std::string& arg : args) {
        for (const char* only : {"--bind", "--wait", "--answer-probes", "--publish"}) {
          if (arg == only || arg.starts_with(std::string(only) + "="))
            return fail(name + ": " + only + " is for listen only");
        }
      }
    }
    return fail(name + ": " + e.what());
  }

  HostOptions& o = c.o;
  o.mode = *modeOf();
  const std::string mode = modeName(o.mode);
  if (o.mode == HostMode::listen && o.address.empty()) o.address = "0.0.0.0";
  if (o.mode == HostMode::usb) o.address = "127.0.0.1";
  o.port = c.port.value_or(o.mode == HostMode::call ? kDefaultPhonePort : kDefaultHostPort);
  if (c.probes) {
    o.answerProbes = true;
    if (!c.probes->empty()) {
      auto ports = parsePortList(*c.probes);
      if (!ports) return fail(mode + ": bad list of probe ports '" + *c.probes + "'");
      o.probePorts = *ports;
    }
  }
  if (auto error = crossCheck(mode, o)) return fail(*error);
  ParsedCommandLine out;
  out.kind = ParsedCommandLine::Kind::run;
  out.options = std::move(o);
  return out;
}

std::string machineHostName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0 || name[0] == 0) return "oxelo-host";
  return name;
}

const char* modeName(HostMode mode) {
  switch (mode) {
    case HostMode::listen:
      return "listen";
    case HostMode::call:
      return "call";
    case HostMode::usb:
      return "usb";
  }
  return "?";
}

}  // namespace oxelo::host
