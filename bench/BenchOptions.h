#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <utility>

// What the benchmark programs share in reading their command lines.
namespace oxelo::bench {

// A picture size written WxH with both sides positive, as "1280x720".
std::optional<std::pair<int, int>> parseFrameSize(const std::string& text);

// The CLI11 check of a WxH option.
CLI::Validator frameSize();

// The CLI11 check of a count or a rate: a whole number above 0.
CLI::Validator positive();

// The positional FRAMES option of the GL benchmarks: how many frames each
// case measures, 1 to 100000, `frames` holding the default.
void addFrameCount(CLI::App& app, int& frames);

// Reads argv into the options of `app`. Returns the exit status when the
// program is to end there: 0 after printing --help to stdout, 2 after
// printing the error and the help to stderr. None when it goes on.
std::optional<int> parseOptions(CLI::App& app, int argc, char** argv);

}  // namespace oxelo::bench
