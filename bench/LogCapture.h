#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace oxelo::bench {

// Keeps the program's log lines out of a benchmark's output: while it lives
// they are collected, and also written to standard error when `echo` is set
// (--verbose). Any thread.
class LogCapture {
 public:
  explicit LogCapture(bool echo);
  ~LogCapture();  // log lines go to standard error again
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The word that follows `prefix` in the first line that starts with it, up
  // to the next space; empty when no line does ("VideoEncoder: " gives the
  // encoder's name).
  std::string wordAfter(const std::string& prefix) const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;  // guarded by mutex_
};

}  // namespace oxelo::bench
