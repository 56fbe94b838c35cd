#pragma once

#include <functional>
#include <memory>
#include <string>

namespace oxelo {

class CameraSystem;

// Whether the program may use the camera or the microphone, with the
// platform's status numbers: 0 not determined, 1 restricted, 2 denied, 3
// authorised. On Linux nobody is asked: access is whether the devices can be
// opened, so the answer comes at once, and a refusal says why and what to do.
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

// The Linux answer. The camera: granted when the program's camera set has a
// camera; refused when it has none and a camera was found that the user may
// not open (the set's problem says which and how to join the `video` group);
// with no camera at all, neither (status -1: nothing is done). The
// microphone: granted unless every ALSA capture node under /dev/snd refuses
// with EACCES or EPERM (then the reason names the node and the group that
// owns it); no node at all is granted too, since a sound server may hold
// them.
class LinuxMediaAccess final : public CameraAccess {
 public:
  // `cameras` is the process's set (CameraSystem::current()) but for tests;
  // `devRoot` is "/dev" but for tests.
  explicit LinuxMediaAccess(std::shared_ptr<CameraSystem> cameras, std::string devRoot = "/dev")
      : cameras_(std::move(cameras)), devRoot_(std::move(devRoot)) {}
  int authorizationStatus(Media media) override;
  void requestAccess(Media media, std::function<void(bool)> completion) override;
  std::string refusalReason(Media media) override;

 private:
  int cameraStatus();
  int microphoneStatus();

  std::shared_ptr<CameraSystem> cameras_;
  std::string devRoot_;
  std::string reason_[2];  // by media, from the last status
};

}  // namespace oxelo
