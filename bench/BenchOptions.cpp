#include "bench/BenchOptions.h"

#include <climits>
#include <cstdio>

namespace oxelo::bench {

std::optional<std::pair<int, int>> parseFrameSize(const std::string& text) {
  int width = 0, height = 0;
  char after = 0;
  if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &after) != 2) return std::nullopt;
  if (width <= 0 || height <= 0) return std::nullopt;
  return std::pair{width, height};
}

CLI::Validator frameSize() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        if (parseFrameSize(text)) return {};
        return "takes a size WxH, not '" + text + "'";
      },
      /*validator_desc=*/"", /*validator_name=*/"size");
}

CLI::Validator positive() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        long long n = 0;
        char after = 0;
        if (std::sscanf(text.c_str(), "%lld%c", &n, &after) == 1 && n > 0 && n <= INT_MAX)
          return {};
        return "takes a whole number above 0, not '" + text + "'";
      },
      /*validator_desc=*/"", /*validator_name=*/"positive");
}

void addFrameCount(CLI::App& app, int& frames) {
  app.add_option("FRAMES", frames, "frames measured per case")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
}

std::optional<int> parseOptions(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::fputs(app.help().c_str(), stdout);
    return 0;
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "%s: %s\n%s", app.get_name().c_str(), e.what(), app.help().c_str());
    return 2;
  }
  return std::nullopt;
}

}  // namespace oxelo::bench
