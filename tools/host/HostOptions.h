#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wire/HandshakePackets.h"

namespace oxelo::host {

// How the host reaches the phone.
enum class HostMode {
  listen,  // waits for the phone to call (TCP)
  call,    // calls the phone on its listening port (TCP)
  usb,     // connects to the phone's framed channel on the loopback address
};

inline constexpr uint16_t kDefaultHostPort = 5895;   // listen and usb
inline constexpr uint16_t kDefaultPhonePort = 5896;  // call
inline constexpr uint32_t kDefaultQuality = 1;       // medium
inline constexpr uint32_t kDefaultAudioFormat = 1;   // mono
inline constexpr double kDefaultCommandGap = 0.1;    // seconds between two commands

// A command for the phone, sent `at` seconds after the connection came up
// (and not before the phone has answered the start).
struct TimedCommand {
  double at = 0;
  uint32_t command = 0;
  int32_t p1 = 0;
  int32_t p2 = 0;
  bool operator==(const TimedCommand&) const = default;
};

// How the host ends the connection when its duration runs out: by closing
// it, or by first sending command 24 (the host closes the stream), 25 (the
// connection is given up) or 26 (a restart).
enum class EndAction : uint32_t { close = 0, peerClose = 24, connectionLost = 25, restart = 26 };

// Everything one run of oxelo-host is asked to do. Plain record, filled by
// parseHostOptions() from the command line.
struct HostOptions {
  HostMode mode = HostMode::listen;
  // listen: the local address to bind ("0.0.0.0" for all interfaces);
  // call: the phone's address; usb: "127.0.0.1".
  std::string address;
  uint16_t port = kDefaultHostPort;                  // listen: 0 picks a free port
  std::string name;                                  // announced in the host information
  std::optional<handshake::VideoSettings> settings;  // sent as command 19 when given
  bool sendStart = true;
  // Seconds from the moment the connection is up until the host ends it;
  // none: until the phone ends it.
  std::optional<double> duration;
  // listen only: seconds to wait for the phone to call; none: no limit.
  std::optional<double> wait;
  // listen only: answer the phone's UDP probes on these ports; an empty list
  // with answerProbes set means the TCP port the host listens on.
  bool answerProbes = false;
  std::vector<uint16_t> probePorts;
  // listen only: publish the service with DNS-SD under `name`.
  bool publish = false;
  std::string reportPath;              // empty: the report goes to standard output
  std::string outputPath;              // empty: the stream is not recorded
  std::string arrivalsPath;            // empty: arrival times are not written
  std::vector<TimedCommand> commands;  // in the order given
  // The least time between two commands: the phone takes one command from
  // each read, so commands sent together would be lost but the first.
  double commandGap = kDefaultCommandGap;
  EndAction end = EndAction::close;  // needs a duration unless close
};

// The outcome of reading the command line: options to run with, a help text
// to print (exit 0), or an error text (exit 2).
struct ParsedCommandLine {
  enum class Kind { run, help, error };
  Kind kind = Kind::error;
  HostOptions options;
  std::string text;  // the help text, or the error message
};

// Reads the arguments that follow the program name, with CLI11; the values
// are read by the grammars below. Options take their value as the next
// argument or after '=' ("--port 5895", "--port=5895"); --answer-probes
// takes its list only after '='.
// `defaultName` is announced when --name is not given.
ParsedCommandLine parseHostOptions(std::span<const std::string> args,
                                   const std::string& defaultName);

// WIDTHxHEIGHT@FPS[:portrait][:q=N][:enc=h264|hevc][:audio=none|mono|stereo];
// the suffixes in any order, each at most once. Defaults: landscape, quality
// 1, H.264, mono. None, with `error` set, for anything else.
std::optional<handshake::VideoSettings> parseSettingsText(const std::string& text,
                                                          std::string& error);

// AT_SECONDS COMMAND [P1 [P2]], separated by spaces: a time of 0 or more,
// a command of the phone's table with exactly the signed 32-bit parameters
// its record carries (checkHostCommand); a parameter not given is 0. None,
// with `error` set, for anything else.
std::optional<TimedCommand> parseCommandText(const std::string& text, std::string& error);

// The machine's host name, or "oxelo-host" when it cannot be had.
std::string machineHostName();

const char* modeName(HostMode mode);

}  // namespace oxelo::host
