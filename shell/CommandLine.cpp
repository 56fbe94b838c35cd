#include "shell/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>

namespace oxelo {

namespace {

// The whole text is the number: strtod's reading, nothing left over.
bool parseNumber(const std::string& text, double& out) {
  char* end = nullptr;
  out = std::strtod(text.c_str(), &end);
  return !text.empty() && end && *end == '\0';
}

// A validator's text names the value; CLI11 puts the option's name in front.
CLI::Validator instanceNumber() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        double n = 0;
        if (!parseNumber(text, n) || !(n >= 1 && n <= 16) || n != std::trunc(n))
          return "takes a whole number from 1 to 16, not '" + text + "'";
        text = std::to_string(static_cast<int>(n));  // "3.0" is read as 3
        return {};
      },
      /*validator_desc=*/"", /*validator_name=*/"instance");
}

CLI::Validator secondsNumber() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        double seconds = 0;
        if (!parseNumber(text, seconds) || !std::isfinite(seconds) || seconds < 0)
          return "takes a number of seconds, not '" + text + "'";
        return {};
      },
      /*validator_desc=*/"", /*validator_name=*/"seconds");
}

// Usage first, then what the program does, the options and the footer.
class UsageFormatter final : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    return make_usage(app, std::move(name)) + "\n" + make_description(app) +
           make_groups(app, mode) + "\n" + make_footer(app);
  }
};

// The options of `oxelo`, writing into `cl`, which must outlive the app.
std::unique_ptr<CLI::App> makeApp(CommandLine& cl) {
  auto app = std::make_unique<CLI::App>(
      "Turns this device into a network webcam for a computer running the Oxelo host.", "oxelo");
  auto formatter = std::make_shared<UsageFormatter>();
  formatter->column_width(25);
  formatter->label("Options", "Options");
  app->formatter(formatter);
  // A repeated option keeps its last value, as people expect of a command line.
  app->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app->set_help_flag();  // --help is an answer, not an exception; see below
  app->allow_extras();   // reported below as the first unknown argument

  app->add_flag("--headless", cl.headless, "run without a display: search, connect and stream");
  app->add_option("--connect", cl.connectAddress,
                  "connect to the host at ADDRESS instead of searching")
      ->type_name("ADDRESS");
  app->add_option("--instance", cl.instance, "host instance 1..16 (TCP port 5895 + N - 1)")
      ->type_name("N")
      ->transform(instanceNumber())
      ->capture_default_str();
  app->add_option("--camera", cl.camera, "auto | virtual | v4l2[:DEVICE]")
      ->type_name("SOURCE")
      ->capture_default_str();
  app->add_option("--audio", cl.audio, "auto | synthetic | alsa[:DEVICE] | none")
      ->type_name("SOURCE")
      ->capture_default_str();
  app->add_flag("--list-cameras", cl.listCameras,
                "print the cameras with their formats as JSON and exit");
  app->add_flag("--catalogue", cl.catalogue,
                "print the video sizes and frame rates on offer and exit");
  app->add_option("--config-dir", cl.configDir,
                  "keep settings in DIR (else $OXELO_CONFIG_DIR,\n$XDG_CONFIG_HOME/oxelo or "
                  "~/.config/oxelo)")
      ->type_name("DIR");
  app->add_option("--duration", cl.duration, "stop cleanly after SECONDS")
      ->type_name("SECONDS")
      ->check(secondsNumber());
  app->add_flag(
      "--exit-when-ended", cl.exitWhenEnded,
      "with --headless: exit with status 0 once the host has ended\nthe stream: its close "
      "command, or a connection lost for good\n(the window goes back to its main page)");
  app->add_flag("--version", cl.version, "print the version and exit");
  app->add_flag("-h,--help", cl.help, "print this text and exit");
  app->footer(
      "SIGINT and SIGTERM stop the program cleanly.\n\n"
      "Exit status:\n"
      "  0   done\n"
      "  2   a bad command line, or an audio source that cannot be used\n"
      "  20  the camera failed (the message says how)\n"
      "  21  the camera is in use by another program\n"
      "  22  no permission to use the camera (join the video group)\n"
      "  23  the camera vanished (unplugged)\n"
      "  24  no usable camera on this machine\n"
      "  25  the camera offers no format the program can take");
  return app;
}

}  // namespace

std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& args,
                                            std::string& error) {
  CommandLine cl;
  auto app = makeApp(cl);
  // CLI11 takes a vector of arguments last first.
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app->parse(reversed);
  } catch (const CLI::ParseError& e) {
    error = e.what();
    return std::nullopt;
  }
  if (auto extras = app->remaining(); !extras.empty()) {
    error = "unknown argument '" + extras.front() + "' (see --help)";
    return std::nullopt;
  }
  return cl;
}

std::string usageText() {
  CommandLine unused;
  return makeApp(unused)->help();
}

}  // namespace oxelo
