#include "tools/host/CommandSchedule.h"

#include <algorithm>

namespace oxelo::host {

CommandSchedule::CommandSchedule(std::vector<TimedCommand> commands)
    : commands_(std::move(commands)) {
  std::stable_sort(commands_.begin(), commands_.end(),
                   [](const TimedCommand& a, const TimedCommand& b) { return a.at < b.at; });
}

std::vector<TimedCommand> CommandSchedule::takeDue(double elapsed) {
  std::vector<TimedCommand> due;
  while (next_ < commands_.size() && commands_[next_].at <= elapsed) {
    due.push_back(commands_[next_++]);
  }
  return due;
}

std::optional<double> CommandSchedule::nextAt() const {
  if (next_ >= commands_.size()) return std::nullopt;
  return commands_[next_].at;
}

}  // namespace oxelo::host
