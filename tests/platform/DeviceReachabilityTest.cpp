#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/device/NetlinkReachability.h"
#include "tests/support/TestSupport.h"

extern char** environ;

namespace oxelo {
namespace {

// Read only, in the machine's own namespace: loopback is up with an IPv4
// address; the notifier starts and stops without any event.
TEST(NetlinkReachabilityTest, EvaluatesTheNamedInterfaceAndStopsCleanly) {
  test::ManualMain env;
  std::string name = "lo";
  NetlinkReachability reachability([&] { return name; });
  EXPECT_TRUE(reachability.isReachableViaWiFi());
  name = "oxelo-no-such-if";
  EXPECT_EQ(reachability.currentReachabilityStatus(), NetworkStatus::notReachable);
  name = "";
  EXPECT_FALSE(reachability.isReachableViaWiFi());
  ASSERT_TRUE(reachability.startNotifier());
  EXPECT_TRUE(reachability.startNotifier());
  reachability.stopNotifier();
  reachability.stopNotifier();
  ASSERT_TRUE(reachability.startNotifier());  // restartable; the destructor stops it
}

// ---- Real interface events, inside a network namespace of our own ----

// Runs `ip` with `args`; returns an error text, empty on success.
std::string ip(std::vector<std::string> args) {
  for (const char* path : {"/usr/sbin/ip", "/sbin/ip", "/usr/bin/ip", "/bin/ip"}) {
    if (access(path, X_OK) != 0) continue;
    std::vector<char*> argv{const_cast<char*>(path)};
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (int err = posix_spawn(&pid, path, nullptr, nullptr, argv.data(), environ))
      return std::string("cannot run ip: ") + strerror(err);
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
    std::string line;
    for (auto& a : args) line += " " + a;
    return "ip" + line + " failed";
  }
  return "the ip tool (iproute2) is not installed";
}

bool writeFile(const char* path, const std::string& text) {
  std::ofstream out(path);
  out << text;
  return static_cast<bool>(out.flush());
}

// A new network namespace for this process: directly when privileged, else
// inside a new user namespace. Returns an error text, empty on success.
std::string enterNewNetworkNamespace() {
  if (unshare(CLONE_NEWNET) == 0) return {};
  int first = errno;
  uid_t uid = getuid();
  gid_t gid = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
    return std::string("unshare(CLONE_NEWNET): ") + strerror(first) +
           "; unshare(CLONE_NEWUSER | CLONE_NEWNET): " + strerror(errno);
  writeFile("/proc/self/setgroups", "deny");
  if (!writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
      !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n"))
    return "cannot map the user into the new user namespace";
  return {};
}

// The child's side: everything it finds wrong, one line each.
class ChildReport {
 public:
  void fail(const std::string& line) { text_ += line + "\n"; }
  bool ok() const { return text_.empty(); }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// Drains the main queue until `done` holds or 10 real seconds pass: the wait
// is for the kernel's events, not for a delay of the system's own.
bool waitFor(Queue& main, const std::function<bool()>& done) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    main.runPending();
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

constexpr int kNoNamespace = 3;

int runInNamespace(ChildReport& report) {
  if (auto error = enterNewNetworkNamespace(); !error.empty()) {
    report.fail(error);
    return kNoNamespace;
  }
  auto step = [&](std::vector<std::string> args) {
    auto error = ip(std::move(args));
    if (!error.empty()) report.fail(error);
    return error.empty();
  };
  if (!step({"link", "add", "oxwl0", "type", "veth", "peer", "name", "oxwl1"})) return 1;
  setenv("OXELO_WIFI_INTERFACE", "oxwl0", 1);
  auto main = Queue::createDriven("main", std::make_shared<SystemClock>());
  MainQueue::set(main);
  {
    NetlinkReachability reachability;
    std::vector<bool> seen;  // the status each notification finds
    auto subscription =
        reachability.addChangeListener([&] { seen.push_back(reachability.isReachableViaWiFi()); });
    if (!reachability.startNotifier()) report.fail("startNotifier failed in the namespace");
    if (reachability.isReachableViaWiFi()) report.fail("a fresh veth counts as reachable");

    auto expect = [&](size_t count, bool reachable, const char* what) {
      if (!waitFor(*main, [&] { return seen.size() >= count; })) {
        report.fail(std::string("no change notification after ") + what);
        return false;
      }
      if (seen.size() != count || seen.back() != reachable)
        report.fail(std::string("after ") + what + ": " + std::to_string(seen.size()) +
                    " notifications, last status " + (seen.back() ? "reachable" : "not reachable"));
      return true;
    };

    // Link events alone change nothing; the address makes it reachable.
    if (!step({"link", "set", "oxwl1", "up"}) || !step({"link", "set", "oxwl0", "up"}) ||
        !step({"addr", "add", "10.77.0.1/24", "brd", "+", "dev", "oxwl0"}))
      return 1;
    if (!expect(1, true, "bringing the interface up with an address")) return 1;
    if (getIPAddress() != "10.77.0.1") report.fail("getIPAddress gave " + getIPAddress());
    if (getBroadcastIPAddress() != "10.77.0.255")
      report.fail("getBroadcastIPAddress gave " + getBroadcastIPAddress());

    // A second address is an event that leaves the status as it was; losing
    // the carrier (the peer goes down) ends reachability.
    if (!step({"addr", "add", "10.77.1.1/24", "dev", "oxwl0"}) ||
        !step({"link", "set", "oxwl1", "down"}))
      return 1;
    if (!expect(2, false, "losing the carrier")) return 1;
    if (!step({"link", "set", "oxwl1", "up"})) return 1;
    if (!expect(3, true, "regaining the carrier")) return 1;
    if (!step({"addr", "flush", "dev", "oxwl0"})) return 1;
    if (!expect(4, false, "removing the addresses")) return 1;
  }
  MainQueue::set(nullptr);
  return report.ok() ? 0 : 1;
}

TEST(NetlinkReachabilityTest, ReportsRealInterfaceChangesInAPrivateNamespace) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0) << strerror(errno);
  if (child == 0) {
    close(fds[0]);
    alarm(60);  // a hung child must not hang the test
    ChildReport report;
    int code = runInNamespace(report);
    const auto& text = report.text();
    size_t written = 0;
    while (written < text.size()) {
      ssize_t n = write(fds[1], text.data() + written, text.size() - written);
      if (n <= 0) break;
      written += n;
    }
    _exit(code);
  }
  close(fds[1]);
  std::string text;
  char buffer[512];
  ssize_t n;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) text.append(buffer, n);
  close(fds[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFSIGNALED(status)) FAIL() << "the namespace child died of signal " << WTERMSIG(status);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoNamespace)
    FAIL() << "this test needs a network namespace of its own and could not create one: " << text;
  EXPECT_EQ(WEXITSTATUS(status), 0) << text;
}

}  // namespace
}  // namespace oxelo
