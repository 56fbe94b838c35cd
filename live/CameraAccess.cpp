#include "live/CameraAccess.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

#include "platform/camera/CameraSystem.h"

namespace oxelo {

namespace {
constexpr int kNothingToAsk = -1;

std::string groupOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return "audio";
  if (const struct group* g = ::getgrgid(info.st_gid)) return g->gr_name;
  return "audio";
}
}  // namespace

int LinuxMediaAccess::authorizationStatus(Media media) {
  return media == Media::video ? cameraStatus() : microphoneStatus();
}

int LinuxMediaAccess::cameraStatus() {
  reason_[0].clear();
  if (!cameras_) return kNothingToAsk;
  if (!cameras_->devices().empty()) return authorized;
  for (const auto& problem : cameras_->unavailable()) {
    if (problem.reason.code != CameraErrorCode::permissionDenied) continue;
    reason_[0] = problem.reason.message;
    return denied;
  }
  return kNothingToAsk;
}

int LinuxMediaAccess::microphoneStatus() {
  reason_[1].clear();
  std::error_code ec;
  std::string refused;
  int refusal = 0;
  for (const auto& entry : std::filesystem::directory_iterator(devRoot_ + "/snd", ec)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("pcmC", 0) != 0 || name.back() != 'c') continue;  // capture nodes only
    const int fd = ::open(entry.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) {
      ::close(fd);
      return authorized;
    }
    if (errno != EACCES && errno != EPERM) return authorized;  // busy: not a matter of rights
    refusal = errno;
    refused = entry.path().string();
  }
  if (refused.empty()) return authorized;
  const std::string group = groupOf(refused);
  reason_[1] = fmt::format(
      "no permission to open the microphone {}: {}; add your user to the '{}' group (sudo "
      "usermod -aG {} $USER) and log in again",
      refused, std::strerror(refusal), group, group);
  return denied;
}

void LinuxMediaAccess::requestAccess(Media media, std::function<void(bool)> completion) {
  const bool granted = authorizationStatus(media) == authorized;
  if (completion) completion(granted);
}

std::string LinuxMediaAccess::refusalReason(Media media) {
  return reason_[media == Media::video ? 0 : 1];
}

}  // namespace oxelo
