#pragma once

#include <optional>
#include <vector>

#include "tools/host/HostOptions.h"

namespace oxelo::host {

// The host's commands in the order they fall due: by time, and in the order
// given where times are equal. Times are seconds since the connection came
// up. With a gap, a command goes no sooner than `gap` seconds after the one
// before it went: the phone reads a command from the start of each read, so
// two commands in one read would lose the second. One thread.
class CommandSchedule {
 public:
  explicit CommandSchedule(std::vector<TimedCommand> commands, double gap = 0);

  // The commands due at `elapsed` that have not been taken yet, in order;
  // with a gap, one at most.
  std::vector<TimedCommand> takeDue(double elapsed);
  // When the next command falls due; none when all have been taken.
  std::optional<double> nextAt() const;

  // When each command goes at the earliest, in order, were each taken as
  // soon as it falls due.
  static std::vector<double> earliestTimes(std::vector<TimedCommand> commands, double gap);

 private:
  std::vector<TimedCommand> commands_;
  double gap_ = 0;
  size_t next_ = 0;
  std::optional<double> lastTaken_;
};

}  // namespace oxelo::host
