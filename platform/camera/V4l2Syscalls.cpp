#include "platform/camera/V4l2Syscalls.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

namespace oxelo {

namespace {

class SystemV4l2Syscalls final : public V4l2Syscalls {
 public:
  int open(const char* path, int flags) override { return ::open(path, flags); }
  int close(int fd) override { return ::close(fd); }
  int ioctl(int fd, unsigned long request, void* arg) override { return ::ioctl(fd, request, arg); }
  void* mmap(size_t length, int prot, int flags, int fd, off_t offset) override {
    return ::mmap(nullptr, length, prot, flags, fd, offset);
  }
  int munmap(void* address, size_t length) override { return ::munmap(address, length); }
  int poll(pollfd* fds, nfds_t count, int timeoutMs) override {
    return ::poll(fds, count, timeoutMs);
  }
  int fstat(int fd, struct stat* st) override { return ::fstat(fd, st); }
  int makeWakeFd() override { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }
  void wake(int fd) override {
    uint64_t one = 1;
    [[maybe_unused]] auto written = ::write(fd, &one, sizeof one);
  }
  double monotonicNow() override {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
  }
};

}  // namespace

int V4l2Syscalls::xioctl(int fd, unsigned long request, void* arg) {
  int r;
  do {
    r = ioctl(fd, request, arg);
  } while (r == -1 && errno == EINTR);
  return r;
}

std::shared_ptr<V4l2Syscalls> V4l2Syscalls::system() {
  static auto instance = std::make_shared<SystemV4l2Syscalls>();
  return instance;
}

}  // namespace oxelo
