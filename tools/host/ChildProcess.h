#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace oxelo::host {

// A helper program run as a child of the host, with no shell: the recorder's
// ffmpeg, the publisher's avahi-publish. Its standard output and error come
// back line by line on a reader thread of the object's own; its standard
// input is a pipe when asked for, else /dev/null. The child inherits the
// environment. start(), writeInput(), closeInput(), wait() and terminate()
// belong to the thread that owns the object; the destructor ends a child
// that still runs (SIGTERM, then reaped).
class ChildProcess {
 public:
  // Reader thread. `error` is true for a line of standard error.
  using LineHandler = std::function<void(std::string_view line, bool error)>;

  ChildProcess() = default;
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Runs argv[0], looked up in PATH. False, with `error` set, when the
  // program cannot be started (missing, not executable, out of processes).
  bool start(const std::vector<std::string>& argv, bool pipeInput, LineHandler onLine,
             std::string& error);

  // All of `bytes` to the child's standard input; blocks while the pipe is
  // full. False, with `error` set, once the child no longer reads it. Never
  // raises SIGPIPE.
  bool writeInput(std::span<const uint8_t> bytes, std::string& error);
  void closeInput();

  // Waits for the end of the child and of its output. The exit status, or
  // 128 + the signal that ended it. Once; later calls give the same.
  int wait();

  // SIGTERM, then wait().
  int terminate();

  bool started() const { return pid_ > 0; }
  // False once the child has ended; it is reaped then and its output is all
  // delivered, and wait() gives its status at once.
  bool running();

 private:
  void readOutput(int out, int err, LineHandler onLine);

  pid_t pid_ = -1;
  int input_ = -1;
  std::thread reader_;
  std::optional<int> status_;
};

// "exit status 1", "killed by signal 9": what wait() gave, in words.
std::string describeExit(int status);

}  // namespace oxelo::host
