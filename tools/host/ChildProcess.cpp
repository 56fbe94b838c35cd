#include "tools/host/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

extern char** environ;

namespace oxelo::host {

namespace {

// How long a child has to go after SIGTERM before it is killed.
constexpr auto kTermGrace = std::chrono::seconds(3);

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// Both ends close on exec; the child gets its copies through dup2.
bool makePipe(int ends[2], std::string& error) {
  if (::pipe2(ends, O_CLOEXEC) == 0) return true;
  error = std::string("cannot make a pipe: ") + std::strerror(errno);
  return false;
}

// The outcome of waitpid as one number: the exit status, or 128 + signal.
int statusOf(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
  return 255;
}

// One stream of the child's output, cut into lines.
struct LineBuffer {
  int fd = -1;
  bool error = false;
  std::string partial;

  // False at the end of the stream.
  bool readSome(const ChildProcess::LineHandler& onLine) {
    char chunk[4096];
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) {
      if (!partial.empty() && onLine) onLine(partial, error);
      partial.clear();
      return false;
    }
    partial.append(chunk, static_cast<size_t>(n));
    size_t start = 0;
    for (size_t end; (end = partial.find('\n', start)) != std::string::npos; start = end + 1) {
      if (onLine) onLine(std::string_view(partial).substr(start, end - start), error);
    }
    partial.erase(0, start);
    return true;
  }
};

}  // namespace

bool ChildProcess::start(const std::vector<std::string>& argv, bool pipeInput, LineHandler onLine,
                         std::string& error) {
  if (argv.empty() || pid_ > 0) {
    error = "no program to start";
    return false;
  }
  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  auto closeAll = [&] {
    for (int* ends : {in, out, err}) {
      closeFd(ends[0]);
      closeFd(ends[1]);
    }
  };
  if ((pipeInput && !makePipe(in, error)) || !makePipe(out, error) || !makePipe(err, error)) {
    closeAll();
    return false;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (pipeInput) {
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  // The host's sockets and files are none of the child's business.
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

  // The child starts with default signal handling and no blocked signals,
  // whatever the host's threads have set.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  int rc = posix_spawnp(&pid, args[0], &actions, &attributes, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (rc != 0) {
    error = "cannot run " + argv[0] + ": " + std::strerror(rc);
    closeAll();
    return false;
  }
  pid_ = pid;
  closeFd(in[0]);
  closeFd(out[1]);
  closeFd(err[1]);
  input_ = in[1];
  reader_ = std::thread(&ChildProcess::readOutput, this, out[0], err[0], std::move(onLine));
  return true;
}

void ChildProcess::readOutput(int out, int err, LineHandler onLine) {
  LineBuffer streams[2] = {{out, false, {}}, {err, true, {}}};
  bool open[2] = {true, true};
  while (open[0] || open[1]) {
    pollfd fds[2] = {{open[0] ? out : -1, POLLIN, 0}, {open[1] ? err : -1, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (open[i] && fds[i].revents != 0) open[i] = streams[i].readSome(onLine);
    }
  }
  ::close(out);
  ::close(err);
}

bool ChildProcess::writeInput(std::span<const uint8_t> bytes, std::string& error) {
  if (input_ < 0) {
    error = "the input of the child is closed";
    return false;
  }
  // A child that has gone away raises SIGPIPE on this thread: held back here
  // and taken off again, so that it only shows as EPIPE.
  sigset_t pipeOnly, previous;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeOnly, &previous);
  sigset_t pending;
  sigpending(&pending);
  const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;

  size_t done = 0;
  int failure = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(input_, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      failure = errno;
      break;
    }
    done += static_cast<size_t>(n);
  }
  if (failure == EPIPE && !alreadyPending) {
    const timespec zero{0, 0};
    while (sigtimedwait(&pipeOnly, nullptr, &zero) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (failure == 0) return true;
  error = failure == EPIPE ? "it stopped reading its input" : std::strerror(failure);
  return false;
}

void ChildProcess::closeInput() { closeFd(input_); }

int ChildProcess::wait() {
  if (status_) return *status_;
  closeInput();
  if (pid_ <= 0) return *(status_ = 255);
  int raw = 0;
  while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
  }
  if (reader_.joinable()) reader_.join();
  status_ = statusOf(raw);
  return *status_;
}

bool ChildProcess::running() {
  if (status_ || pid_ <= 0) return false;
  int raw = 0;
  if (::waitpid(pid_, &raw, WNOHANG) != pid_) return true;
  closeInput();
  if (reader_.joinable()) reader_.join();
  status_ = statusOf(raw);
  return false;
}

int ChildProcess::terminate() {
  if (status_ || pid_ <= 0) return wait();
  ::kill(pid_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kTermGrace;
  int raw = 0;
  for (;;) {
    const pid_t ended = ::waitpid(pid_, &raw, WNOHANG);
    if (ended == pid_) break;
    if (ended < 0 && errno != EINTR) break;
    if (std::chrono::steady_clock::now() >= deadline) {
      ::kill(pid_, SIGKILL);
      return wait();
    }
    ::usleep(10'000);
  }
  closeInput();
  if (reader_.joinable()) reader_.join();
  status_ = statusOf(raw);
  return *status_;
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !status_) terminate();
  if (reader_.joinable()) reader_.join();
  closeInput();
}

std::string describeExit(int status) {
  if (status > 128) return "killed by signal " + std::to_string(status - 128);
  return "exit status " + std::to_string(status);
}

}  // namespace oxelo::host
