#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace oxelo {

// What the live screen asks of the desktop or phone it runs on, each behind
// a small interface that the Qt layer provides. The defaults do nothing,
// which is right only where no such service runs (no haptics motor, no
// event sounds, no screen saver, nobody to show an alert to); the Qt layer
// supplies the real ones where they exist. Main queue, all of them.

// Haptic impacts: style 0 light, 1 medium, 2 heavy.
class Haptics {
 public:
  virtual ~Haptics() = default;
  virtual void impact(int /*style*/) {}
  void lightVibrate() { impact(0); }
  void mediumVibrate() { impact(1); }
  void heavyVibrate() { impact(2); }
};

// The system sounds the live screen plays, by their platform numbers: 1108
// the shutter, 1117 recording begins, 1118 recording ends.
class SystemSounds {
 public:
  virtual ~SystemSounds() = default;
  virtual void play(int /*soundId*/) {}
};

// Keeps the display on while the live screen is up (the idle timer of the
// platform disabled), and lets it sleep again.
class DisplayAwake {
 public:
  virtual ~DisplayAwake() = default;
  virtual void setKeepAwake(bool /*awake*/) {}
};

// An alert: title (may be empty), message, buttons. Button type 0 default,
// 1 plain, 2 cancel. Buttons carry localisation keys; the title and the
// message are texts, or keys when `keys` is set.
struct LiveAlert {
  struct Button {
    std::string key;  // "A_OK", "A_CANCEL"
    int type = 0;
    std::function<void()> action;  // may be empty
  };
  std::string title;
  std::string message;
  std::vector<Button> buttons;
  bool keys = false;
  int transitionStyle = 3;
  uint32_t titleColour = 0;  // 0xRRGGBB; 0 for the default
};

// How long a toast stays where nothing says otherwise.
constexpr double kToastDefaultSeconds = 2.0;

// Alerts, toasts, the settings page of the system, and the pulse of a button.
class LiveMessages {
 public:
  virtual ~LiveMessages() = default;
  virtual void showAlert(const LiveAlert& /*alert*/) {}
  // A short text, by its key, at the centre for `seconds`.
  virtual void showToast(const std::string& /*key*/, double /*seconds*/) {}
  // Opens where the user gives the program its camera and microphone.
  virtual void openSettings() {}
  // The opacity pulse on a button: 1.0 to 0.0 and back, 0.3 s each way.
  virtual void pulse(int /*button*/) {}
};

}  // namespace oxelo
