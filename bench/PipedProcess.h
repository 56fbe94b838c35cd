#pragma once

#include <sys/resource.h>

#include <memory>
#include <string>
#include <vector>

#include "media/PixelBuffer.h"

namespace oxelo::bench {

// The outcome of one timed run of a program.
struct TimedRun {
  bool ok = false;        // it ran and exited with status 0
  double seconds = 0;     // wall time from the start of the program to its end
  double cpuSeconds = 0;  // processor time of the program, user and system
  std::string failure;    // why not ok
};

// Runs `program` (looked up in PATH) with `arguments`, writes the pictures
// to its standard input as tightly packed BGRA rows, closes it, and waits for
// the program to end. Its standard output is thrown away; its standard error
// is the caller's. The pictures are written from memory, so the writer costs
// a copy into the pipe and nothing else. SIGPIPE must be ignored by the
// caller. Blocks the calling thread.
TimedRun runWithPictures(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::shared_ptr<PixelBuffer>>& pictures);

// User and system time together, in seconds.
double cpuSecondsOf(const rusage& usage);

}  // namespace oxelo::bench
