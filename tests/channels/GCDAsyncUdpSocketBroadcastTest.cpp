// Broadcast sends run only inside a network namespace that this test makes
// for itself: the test binary starts a copy of itself in a new network
// namespace with a veth pair at 10.213.0.1/24, and that copy sends to
// 10.213.0.255. Nothing leaves the namespace.

#include <errno.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "channels/GCDAsyncUdpSocket.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::Recorder;
using test::SocketEvent;

constexpr const char* kChildVariable = "OXELO_UDP_BROADCAST_NAMESPACE_CHILD";
constexpr const char* kSetUp =
    "ip link set lo up && ip link add v0 type veth peer name v1 && "
    "ip addr add 10.213.0.1/24 dev v0 && ip link set v0 up && ip link set v1 up";
constexpr const char* kBroadcast = "10.213.0.255";

// The copy's work, in its own namespace; returns its exit status and says
// what went wrong on standard error.
int sendBroadcastsInsideNamespace() {
  if (::unshare(CLONE_NEWNET) != 0) {
    std::fprintf(stderr, "cannot create a network namespace: unshare(CLONE_NEWNET): %s\n",
                 std::strerror(errno));
    return 2;
  }
  if (int rc = std::system(kSetUp); rc != 0) {
    std::fprintf(stderr, "cannot set up the namespace's interfaces (%s): status %d\n", kSetUp, rc);
    return 3;
  }
  auto queue = Queue::create("delegate", std::make_shared<SystemClock>());
  auto senderEvents = std::make_shared<Recorder>();
  auto receiverEvents = std::make_shared<Recorder>();
  auto receiver = GCDAsyncUdpSocket::create(receiverEvents, queue);
  auto sender = GCDAsyncUdpSocket::create(senderEvents, queue);
  OptionalError error;
  if (!receiver->bindToPort(0, error) || !receiver->beginReceiving(error) ||
      !sender->bindToPort(0, error)) {
    std::fprintf(stderr, "bind: %s\n", error->toString().c_str());
    return 4;
  }
  uint16_t port = receiver->localPort();
  auto finished = [&](size_t n) {
    return test::waitUntil([&] {
      return senderEvents->count(SocketEvent::udpSent) +
                 senderEvents->count(SocketEvent::udpNotSent) >=
             n;
    });
  };

  sender->sendData(test::bytesOf("Oxelo"), kBroadcast, port, -1, 1);
  if (!finished(1)) {
    std::fprintf(stderr, "no report for the send without the broadcast flag\n");
    return 5;
  }
  auto first = senderEvents->events().at(0);
  if (first.kind != SocketEvent::udpNotSent || first.tag != 1 || !first.error) {
    std::fprintf(stderr, "a send to %s without the broadcast flag was not refused\n", kBroadcast);
    return 6;
  }
  if (first.error->domain != kPosixErrorDomain || first.error->code != EACCES) {
    std::fprintf(stderr, "unexpected error: %s\n", first.error->toString().c_str());
    return 7;
  }

  if (!sender->enableBroadcast(true, error)) {
    std::fprintf(stderr, "enableBroadcast: %s\n", error->toString().c_str());
    return 8;
  }
  sender->sendData(test::bytesOf("Oxelo"), kBroadcast, port, -1, 2);
  if (!finished(2)) {
    std::fprintf(stderr, "no report for the send with the broadcast flag\n");
    return 9;
  }
  auto second = senderEvents->events().at(1);
  if (second.kind != SocketEvent::udpSent || second.tag != 2) {
    std::fprintf(stderr, "the broadcast send failed: %s\n",
                 second.error ? second.error->toString().c_str() : "no error");
    return 10;
  }
  // The system hands a copy of a broadcast to this host's own listeners.
  if (!test::waitUntil([&] { return receiverEvents->count(SocketEvent::udpReceived) == 1; })) {
    std::fprintf(stderr, "the broadcast did not come back to the local receiver\n");
    return 11;
  }
  auto got = receiverEvents->events().at(0);
  if (got.data != test::bytesOf("Oxelo") || got.address.host() != "10.213.0.1") {
    std::fprintf(stderr, "wrong datagram or sender %s\n", got.address.host().c_str());
    return 12;
  }
  return 0;
}

// In the copy, the namespace side runs before main, while the process still
// has one thread, and ends the process.
[[maybe_unused]] const bool kRanInsideNamespace = [] {
  if (!std::getenv(kChildVariable)) return false;
  int status = sendBroadcastsInsideNamespace();
  std::fflush(stderr);
  std::_Exit(status);
}();

struct ChildResult {
  int status = -1;
  std::string output;
};

ChildResult runCopyInNewNamespace() {
  char exe[4096];
  ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return {-1, "cannot find this test program"};
  exe[n] = 0;
  std::string variable = std::string(kChildVariable) + "=1";
  char* argv[] = {exe, nullptr};
  char* envp[] = {variable.data(), nullptr};
  int out[2];
  if (::pipe(out) != 0) return {-1, "pipe failed"};
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(out[1], STDERR_FILENO);
    ::close(out[0]);
    ::close(out[1]);
    ::execve(exe, argv, envp);
    ::_exit(127);
  }
  ::close(out[1]);
  ChildResult result;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  char chunk[512];
  for (;;) {
    pollfd p{out[0], POLLIN, 0};
    if (::poll(&p, 1, 100) > 0) {
      ssize_t got = ::read(out[0], chunk, sizeof chunk);
      if (got <= 0) break;
      result.output.append(chunk, static_cast<size_t>(got));
    }
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(pid, SIGKILL);
      result.output += "\n(killed after 60 s)";
      break;
    }
  }
  ::close(out[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

TEST(GCDAsyncUdpSocketBroadcastTest, BroadcastNeedsTheBroadcastFlag) {
  auto result = runCopyInNewNamespace();
  EXPECT_EQ(result.status, 0) << result.output;
}

}  // namespace
}  // namespace oxelo
