#include "bench/PipedProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

extern char** environ;

namespace oxelo::bench {

namespace {

constexpr int kPipeBytes = 1 << 20;

bool writeAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool writePicture(int fd, const PixelBuffer& picture) {
  const size_t rowBytes = static_cast<size_t>(picture.width()) * 4;
  if (picture.stride() == rowBytes)
    return writeAll(fd, picture.data(), rowBytes * static_cast<size_t>(picture.height()));
  for (int y = 0; y < picture.height(); ++y) {
    if (!writeAll(fd, picture.row(y), rowBytes)) return false;
  }
  return true;
}

}  // namespace

double cpuSecondsOf(const rusage& usage) {
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

TimedRun runWithPictures(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::shared_ptr<PixelBuffer>>& pictures) {
  TimedRun run;
  int pipeFds[2];
  if (pipe2(pipeFds, O_CLOEXEC) != 0) {
    run.failure = std::string("pipe: ") + std::strerror(errno);
    return run;
  }
  // A large pipe lets the program read a picture in a few steps, so that it
  // seldom waits for this process to be scheduled to refill it.
  fcntl(pipeFds[1], F_SETPIPE_SZ, kPipeBytes);  // the default size stays if refused
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[0], STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

  const auto begin = std::chrono::steady_clock::now();
  pid_t pid = 0;
  int spawned = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipeFds[0]);
  if (spawned != 0) {
    close(pipeFds[1]);
    run.failure = program + ": " + std::strerror(spawned);
    return run;
  }
  bool written = true;
  for (const auto& picture : pictures) {
    if (!(written = writePicture(pipeFds[1], *picture))) break;
  }
  close(pipeFds[1]);
  int status = 0;
  rusage usage{};
  while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  run.cpuSeconds = cpuSecondsOf(usage);
  run.ok = written && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!run.ok) {
    run.failure = written ? program + " failed (status " + std::to_string(status) + ")"
                          : program + " stopped reading its input";
  }
  return run;
}

}  // namespace oxelo::bench
