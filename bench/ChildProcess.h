#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace oxelo::bench {

// What the benchmarks that run the phone and the host as programs share:
// starting them, watching their logs, a free host port, and the host's
// arrivals file. One thread.

// CLOCK_MONOTONIC in seconds, the clock of the phone's media times.
double monotonicSeconds();
void sleepUntil(double monotonic);
// The whole file; empty when it cannot be read.
std::string readText(const std::filesystem::path& file);

// A program started with its output into a file.
struct Child {
  pid_t pid = -1;
  std::optional<int> status;  // once it has ended

  // Waits for the end; true when it exited with status 0.
  bool wait();
  // SIGTERM, then waits.
  void stop();
  bool running();
};

// Starts words[0] (a path) with the rest as arguments, standard output and
// error into `log`; pid -1 when it could not be started.
Child spawn(const std::vector<std::string>& words, const std::filesystem::path& log);

// Polls `file` until it holds `text`; false when `deadline` (monotonic
// seconds) passes or the child ends first.
bool waitForText(const std::filesystem::path& file, const std::string& text, Child& child,
                 double deadline);

// The highest host instance N (port 5895 + N - 1, N 1 to 16) free on 127.0.0.1.
std::optional<int> freeInstance();

// One line of `oxelo-host --arrivals`.
struct Arrival {
  bool video = false;
  uint32_t timestamp = 0;  // ms
  int64_t at = 0;          // CLOCK_MONOTONIC, ns
};
std::vector<Arrival> readArrivals(const std::filesystem::path& file);

}  // namespace oxelo::bench
