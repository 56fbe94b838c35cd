#pragma once

#include <cstdint>
#include <memory>

#include "live/LiveServices.h"

namespace oxelo {

// Keeps the display on through the desktop's screen saver service on the
// session bus (org.freedesktop.ScreenSaver: Inhibit, then UnInhibit with its
// cookie). Where no session bus or no such service runs, it logs once and
// does nothing: there is nothing that would turn the display off. GUI
// thread; the calls do not wait for the answer.
class ScreenSaverInhibitor final : public DisplayAwake {
 public:
  ~ScreenSaverInhibitor() override;
  void setKeepAwake(bool awake) override;

 private:
  // Shared with the answers on their way, which may outlive this object.
  struct State {
    bool wanted = false;
    bool asking = false;  // an Inhibit call is on its way
    uint32_t cookie = 0;  // of the inhibition in force; 0 for none
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
  bool warned_ = false;
};

}  // namespace oxelo
