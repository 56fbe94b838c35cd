#include "tools/host/CommandSchedule.h"

#include <algorithm>

namespace oxelo::host {

namespace {

void sortByTime(std::vector<TimedCommand>& commands) {
  std::stable_sort(commands.begin(), commands.end(),
                   [](const TimedCommand& a, const TimedCommand& b) { return a.at < b.at; });
}

}  // namespace

CommandSchedule::CommandSchedule(std::vector<TimedCommand> commands, double gap)
    : commands_(std::move(commands)), gap_(gap) {
  sortByTime(commands_);
}

std::vector<TimedCommand> CommandSchedule::takeDue(double elapsed) {
  std::vector<TimedCommand> due;
  while (next_ < commands_.size() && *nextAt() <= elapsed) {
    due.push_back(commands_[next_++]);
    if (gap_ <= 0) continue;
    lastTaken_ = elapsed;
    break;
  }
  return due;
}

std::optional<double> CommandSchedule::nextAt() const {
  if (next_ >= commands_.size()) return std::nullopt;
  const double at = commands_[next_].at;
  return lastTaken_ ? std::max(at, *lastTaken_ + gap_) : at;
}

std::vector<double> CommandSchedule::earliestTimes(std::vector<TimedCommand> commands, double gap) {
  CommandSchedule schedule(std::move(commands), gap);
  std::vector<double> times;
  while (auto at = schedule.nextAt()) {
    for (size_t n = schedule.takeDue(*at).size(); n > 0; --n) times.push_back(*at);
  }
  return times;
}

}  // namespace oxelo::host
