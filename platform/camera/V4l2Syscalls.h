#pragma once

#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>

namespace oxelo {

// The system calls the V4L2 backend makes, behind one small interface so
// that tests drive a scripted fake camera. Each call behaves as the system
// call of that name: -1 (MAP_FAILED for mmap) with errno set on failure.
// Any thread.
class V4l2Syscalls {
 public:
  virtual ~V4l2Syscalls() = default;
  virtual int open(const char* path, int flags) = 0;
  virtual int close(int fd) = 0;
  virtual int ioctl(int fd, unsigned long request, void* arg) = 0;
  virtual void* mmap(size_t length, int prot, int flags, int fd, off_t offset) = 0;
  virtual int munmap(void* address, size_t length) = 0;
  virtual int poll(pollfd* fds, nfds_t count, int timeoutMs) = 0;
  virtual int fstat(int fd, struct stat* st) = 0;
  // A descriptor that poll() reports readable once wake() was called on it:
  // how a stop reaches a thread waiting in poll(). Closed with close().
  virtual int makeWakeFd() = 0;
  virtual void wake(int fd) = 0;
  // CLOCK_MONOTONIC in seconds, the clock of the buffers' time stamps.
  virtual double monotonicNow() = 0;

  // ioctl() again while it fails with EINTR.
  int xioctl(int fd, unsigned long request, void* arg);

  // The real system calls.
  static std::shared_ptr<V4l2Syscalls> system();
};

}  // namespace oxelo
