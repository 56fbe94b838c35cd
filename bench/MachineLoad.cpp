#include "bench/MachineLoad.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <thread>

namespace oxelo::bench {

namespace {

// The one-minute load average; 0 when it cannot be read.
double loadAverage() {
  std::ifstream in("/proc/loadavg");
  double load = 0;
  in >> load;
  return load;
}

}  // namespace

MachineLoad::MachineLoad() : start_(loadAverage()) {}

std::string MachineLoad::describe() const {
  const double end = loadAverage();
  const unsigned processors = std::thread::hardware_concurrency();
  std::string text = fmt::format(
      "machine load {:.2f} at the start, {:.2f} at the end, on {} "
      "processors",
      start_, end, processors);
  if (std::max(start_, end) > processors)
    text += " (busier than its processors: other work adds its noise to wall times)";
  return text;
}

}  // namespace oxelo::bench
