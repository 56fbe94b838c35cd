#pragma once

#include <string>

namespace oxelo::bench {

// How busy the machine is, to print beside wall-clock figures: a machine
// shared with other work adds its noise to them.
class MachineLoad {
 public:
  // Takes the first reading.
  MachineLoad();
  // "load 1.20 at the start, 0.90 at the end, on 2 processors", and a
  // warning when either reading was above the number of processors.
  std::string describe() const;

 private:
  double start_ = 0;
};

}  // namespace oxelo::bench
