#include "bench/ChildProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace oxelo::bench {

namespace fs = std::filesystem;

double monotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void sleepUntil(double monotonic) {
  const double left = monotonic - monotonicSeconds();
  if (left > 0) std::this_thread::sleep_for(std::chrono::duration<double>(left));
}

std::string readText(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool Child::wait() {
  if (pid < 0) return false;
  if (!status) {
    int s = 0;
    while (waitpid(pid, &s, 0) < 0 && errno == EINTR) {
    }
    status = s;
  }
  return WIFEXITED(*status) && WEXITSTATUS(*status) == 0;
}

void Child::stop() {
  if (pid > 0 && !status) {
    kill(pid, SIGTERM);
    wait();
  }
}

bool Child::running() {
  if (pid < 0 || status) return false;
  int s = 0;
  if (waitpid(pid, &s, WNOHANG) != pid) return true;
  status = s;
  return false;
}

Child spawn(const std::vector<std::string>& words, const fs::path& log) {
  std::vector<std::string> copy = words;
  std::vector<char*> argv;
  for (auto& w : copy) argv.push_back(w.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  Child child;
  if (posix_spawn(&child.pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
    child.pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return child;
}

bool waitForText(const fs::path& file, const std::string& text, Child& child, double deadline) {
  while (monotonicSeconds() < deadline) {
    if (readText(file).find(text) != std::string::npos) return true;
    if (!child.running()) return readText(file).find(text) != std::string::npos;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

std::optional<int> freeInstance() {
  for (int n = 16; n >= 1; --n) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(5894 + n));
    const bool free = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    if (free) return n;
  }
  return std::nullopt;
}

std::vector<Arrival> readArrivals(const fs::path& file) {
  std::vector<Arrival> out;
  std::ifstream in(file);
  std::string kind;
  int key = 0;
  Arrival a;
  long long at = 0;
  while (in >> kind >> a.timestamp >> key >> at) {
    a.video = kind == "video";
    a.at = at;
    out.push_back(a);
  }
  return out;
}

}  // namespace oxelo::bench
