#pragma once

#include <optional>
#include <vector>

#include "tools/host/HostOptions.h"

namespace oxelo::host {

// The host's commands in the order they fall due: by time, and in the order
// given where times are equal. Times are seconds since the connection came
// up. One thread.
class CommandSchedule {
 public:
  explicit CommandSchedule(std::vector<TimedCommand> commands);

  // The commands due at `elapsed` that have not been taken yet, in order.
  std::vector<TimedCommand> takeDue(double elapsed);
  // When the next command falls due; none when all have been taken.
  std::optional<double> nextAt() const;

 private:
  std::vector<TimedCommand> commands_;
  size_t next_ = 0;
};

}  // namespace oxelo::host
