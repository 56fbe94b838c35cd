#include "live/CameraAccess.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fmt/format.h>

namespace oxelo {

namespace {

bool isNode(CameraAccess::Media media, const std::string& name) {
  if (media == CameraAccess::Media::video) return name.rfind("video", 0) == 0;
  return name.rfind("pcmC", 0) == 0 && !name.empty() && name.back() == 'c';
}

std::string groupOf(const std::string& path, const char* fallback) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return fallback;
  if (const struct group* g = ::getgrgid(info.st_gid)) return g->gr_name;
  return fallback;
}

}  // namespace

int DeviceNodeAccess::authorizationStatus(Media media) {
  const int slot = media == Media::video ? 0 : 1;
  reason_[slot].clear();
  if (media == Media::video && virtualCamera_) return authorized;
  const std::filesystem::path dir = media == Media::video ? std::filesystem::path(devRoot_)
                                                          : std::filesystem::path(devRoot_) / "snd";
  std::error_code ec;
  std::string refused;
  int refusal = 0;
  bool any = false;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
    const std::string name = entry.path().filename().string();
    if (!isNode(media, name)) continue;
    any = true;
    const int fd = ::open(entry.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) {
      ::close(fd);
      return authorized;
    }
    if (errno == EACCES || errno == EPERM) {
      refusal = errno;
      refused = entry.path().string();
    }
  }
  if (!any) return media == Media::audio ? authorized : -1;
  if (refused.empty()) return -1;  // present but busy or failing: not a matter of permission
  const char* group = media == Media::video ? "video" : "audio";
  reason_[slot] = fmt::format(
      "{} cannot be opened: {}. Add your user to the group '{}' (sudo usermod -aG {} $USER) "
      "and log in again.",
      refused, std::strerror(refusal), groupOf(refused, group), groupOf(refused, group));
  return denied;
}

void DeviceNodeAccess::requestAccess(Media media, std::function<void(bool)> completion) {
  const bool granted = authorizationStatus(media) == authorized;
  if (completion) completion(granted);
}

std::string DeviceNodeAccess::refusalReason(Media media) {
  return reason_[media == Media::video ? 0 : 1];
}

}  // namespace oxelo
