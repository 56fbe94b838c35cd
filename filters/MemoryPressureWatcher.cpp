#include "filters/MemoryPressureWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

namespace oxelo {

namespace {

constexpr char kTrigger[] = "some 150000 2000000";

}  // namespace

std::unique_ptr<MemoryPressureWatcher> MemoryPressureWatcher::start(
    std::function<void()> onPressure, std::string* whyNot) {
  const int fd = open("/proc/pressure/memory", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    *whyNot = fmt::format("no memory pressure signal: /proc/pressure/memory: {}", strerror(errno));
    return nullptr;
  }
  if (write(fd, kTrigger, sizeof kTrigger) < 0) {
    *whyNot = fmt::format("no memory pressure signal: trigger refused: {}", strerror(errno));
    close(fd);
    return nullptr;
  }
  return watch(fd, std::move(onPressure));
}

std::unique_ptr<MemoryPressureWatcher> MemoryPressureWatcher::watch(
    int fd, std::function<void()> onPressure) {
  const int stopFd = eventfd(0, EFD_CLOEXEC);
  return std::unique_ptr<MemoryPressureWatcher>(
      new MemoryPressureWatcher(fd, stopFd, std::move(onPressure)));
}

MemoryPressureWatcher::MemoryPressureWatcher(int fd, int stopFd, std::function<void()> onPressure)
    : fd_(fd), stopFd_(stopFd), onPressure_(std::move(onPressure)) {
  thread_ = std::thread([this] { run(); });
}

MemoryPressureWatcher::~MemoryPressureWatcher() {
  const uint64_t one = 1;
  if (write(stopFd_, &one, sizeof one) < 0) {
    // An eventfd write fails only on overflow; the thread then wakes anyway.
  }
  thread_.join();
  close(stopFd_);
  close(fd_);
}

void MemoryPressureWatcher::run() {
  for (;;) {
    pollfd fds[2] = {{fd_, POLLPRI | POLLIN, 0}, {stopFd_, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents) return;
    if (fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) return;
    if (fds[0].revents & POLLIN) {
      // A plain descriptor (tests): take what was written.
      char drain[64];
      if (read(fd_, drain, sizeof drain) <= 0) return;
    }
    if (fds[0].revents & (POLLPRI | POLLIN)) onPressure_();
  }
}

}  // namespace oxelo
