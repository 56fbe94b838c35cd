#pragma once

#include <chrono>
#include <vector>

namespace oxelo::bench {

// Summary figures of a set of samples. Every function returns 0 for an
// empty set.

// The middle value; the mean of the two middle values for an even count.
double median(std::vector<double> samples);
// The nearest-rank percentile: the smallest sample that at least `percent`
// per cent of the samples do not exceed (p99 of 300 samples is the 297th).
double percentile(std::vector<double> samples, double percent);
double mean(const std::vector<double>& samples);

// Milliseconds on the steady clock from `start` until now, for timing one
// step of a benchmark.
inline double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace oxelo::bench
