#include "encoding/HardwareDecodeSupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include <va/va.h>
#include <va/va_drm.h>

namespace oxelo {

namespace {

constexpr const char* kRenderNode = "/dev/dri/renderD128";

void ignoreMessage(void* /*context*/, const char* /*message*/) {}

bool hasHevcDecode(VADisplay display) {
  std::vector<VAProfile> profiles(static_cast<size_t>(std::max(vaMaxNumProfiles(display), 0)));
  int count = 0;
  if (profiles.empty() ||
      vaQueryConfigProfiles(display, profiles.data(), &count) != VA_STATUS_SUCCESS)
    return false;
  profiles.resize(static_cast<size_t>(std::max(count, 0)));
  if (std::find(profiles.begin(), profiles.end(), VAProfileHEVCMain) == profiles.end())
    return false;
  std::vector<VAEntrypoint> entrypoints(
      static_cast<size_t>(std::max(vaMaxNumEntrypoints(display), 0)));
  int entrypointCount = 0;
  if (entrypoints.empty() ||
      vaQueryConfigEntrypoints(display, VAProfileHEVCMain, entrypoints.data(), &entrypointCount) !=
          VA_STATUS_SUCCESS)
    return false;
  entrypoints.resize(static_cast<size_t>(std::max(entrypointCount, 0)));
  return std::find(entrypoints.begin(), entrypoints.end(), VAEntrypointVLD) != entrypoints.end();
}

}  // namespace

bool isHevcHardwareDecodeSupportedOn(const std::string& renderNode) {
  const int fd = ::open(renderNode.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  bool supported = false;
  if (VADisplay display = vaGetDisplayDRM(fd)) {
    vaSetErrorCallback(display, ignoreMessage, nullptr);
    vaSetInfoCallback(display, ignoreMessage, nullptr);
    int major = 0;
    int minor = 0;
    if (vaInitialize(display, &major, &minor) == VA_STATUS_SUCCESS) {
      supported = hasHevcDecode(display);
    }
    vaTerminate(display);
  }
  ::close(fd);
  return supported;
}

bool isHevcHardwareDecodeSupported() {
  static const bool supported = isHevcHardwareDecodeSupportedOn(kRenderNode);
  return supported;
}

}  // namespace oxelo
