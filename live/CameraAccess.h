#pragma once

#include <functional>
#include <string>

namespace oxelo {

// Whether the program may use the camera or the microphone, with the
// platform's status numbers: 0 not determined, 1 restricted, 2 denied, 3
// authorised. On Linux nobody is asked: access is whether the device nodes
// can be opened, so the status is 3 or 2 at once and the reason says why
// not and what to do.
class CameraAccess {
 public:
  enum class Media { video, audio };
  enum Status : int { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

  virtual ~CameraAccess() = default;
  virtual int authorizationStatus(Media media) = 0;
  // Asks the user; `completion(granted)` may run on any thread.
  virtual void requestAccess(Media media, std::function<void(bool)> completion) = 0;
  // Why access was refused and what to do about it; empty when granted.
  virtual std::string refusalReason(Media /*media*/) { return {}; }
};

// The Linux answer: video is granted when the camera backend in use is the
// virtual one, or when a /dev/video* node opens for reading and writing; the
// microphone the same with the /dev/snd/pcmC*c capture nodes (or no nodes at
// all, where a sound server holds them). A node that exists and refuses with
// EACCES or EPERM is a denial, with the node, the system's reason and the
// advice to join the group that owns it (`video`, `audio`) and log in again.
// No node at all is "any other": nothing is done.
class DeviceNodeAccess final : public CameraAccess {
 public:
  // `devRoot` is "/dev" but for tests; `virtualCamera` when the program
  // uses the simulated camera.
  explicit DeviceNodeAccess(std::string devRoot = "/dev", bool virtualCamera = false)
      : devRoot_(std::move(devRoot)), virtualCamera_(virtualCamera) {}
  int authorizationStatus(Media media) override;
  void requestAccess(Media media, std::function<void(bool)> completion) override;
  std::string refusalReason(Media media) override;

 private:
  std::string devRoot_;
  bool virtualCamera_;
  std::string reason_[2];
};

}  // namespace oxelo
