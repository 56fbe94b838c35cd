#pragma once

#include <QDBusConnection>
#include <QString>
#include <memory>

#include "live/LiveServices.h"

namespace oxelo {

// The live screen's haptic impacts and event sounds through feedbackd, the
// feedback daemon of the Linux phones (org.sigxcpu.Feedback on the session
// bus: TriggerFeedback(app id, event, hints, timeout)). The daemon's theme
// turns each event into a sound, a rumble of the haptic motor or nothing,
// by the profile the user has chosen (full, quiet, silent); this class only
// names the events, from the documented names for applications:
//
//   impact 0 light    button-pressed     the softest input event (7 ms at a
//                                         fifth of the strength in the stock
//                                         theme)
//   impact 1 medium   button-released    the firmer one (12 ms at full
//                                         strength)
//   impact 2 heavy    timeout-completed  a hold that has run its time: the
//                                         heavy impact marks a long press held
//                                         long enough (100 ms)
//   sound 1108        camera-shutter     a picture was taken
//   sound 1117        camera-focus       the camera goes to work: recording
//                                         begins
//   sound 1118        timeout-completed  recording ends, as a stop watch stops
//
// Impacts ask for the quiet profile (the hint "profile"), whose feedbacks
// are the haptic ones: an impact is felt, not heard. Sounds leave the
// profile to the user. Every event runs its feedback once (timeout -1).
//
// Where no session bus runs or the daemon does not answer, the first failure
// is logged once and nothing else happens; later events are still offered,
// since the daemon may start with the session after this program. GUI
// thread; the calls do not wait for the answer.
class FeedbackdFeedback final : public Haptics, public SystemSounds {
 public:
  static constexpr const char* kAppId = "oxelo";

  explicit FeedbackdFeedback(QDBusConnection bus = QDBusConnection::sessionBus());

  void impact(int style) override;
  void play(int soundId) override;

  // The event for an impact style or a sound; empty for one not known.
  static QString impactEvent(int style);
  static QString soundEvent(int soundId);

 private:
  void trigger(const QString& event, bool hapticOnly);

  QDBusConnection bus_;
  // Shared with the answers on their way, which may outlive this object.
  std::shared_ptr<bool> warned_ = std::make_shared<bool>(false);
};

}  // namespace oxelo
