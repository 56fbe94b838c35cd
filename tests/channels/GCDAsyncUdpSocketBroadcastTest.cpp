// Broadcast sends run only inside a network namespace that this test makes for itself: the test
// binary starts a copy of itself in a new network namespace with a veth pair at 10.213.0.1/24, and
// that copy sends to 10.213.0.255. Nothing leaves the namespace.

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "channels/GCDAsyncUdpSocket.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

using test::SocketEvent;

constexpr const char* kChildVariable = "OXELO_UDP_BROADCAST_NAMESPACE_CHILD";
constexpr const char* kSetUp =
    "ip link set lo up && ip link add v0 type veth peer name v1 && "
    "ip addr add 10.213.0.1/24 dev v0 && ip link set v0 up && ip link set v1 up";
constexpr const char* kBroadcast = "10.213.0.255";

// The copy's work, in its own namespace: the empty text when all went as it
// should, else what went wrong.
std::string sendBroadcastsInsideNamespace() {
  if (::unshare(CLONE_NEWNET) != 0)
    return std::string("cannot create a network namespace: ") + std::strerror(errno);
  if (std::system(kSetUp) != 0) return std::string("cannot set up the interfaces: ") + kSetUp;
  auto queue = Queue::create("delegate", std::make_shared<SystemClock>());
  auto senderEvents = std::make_shared<test::Recorder>();
  auto receiverEvents = std::make_shared<test::Recorder>();
  auto receiver = GCDAsyncUdpSocket::create(receiverEvents, queue);
  auto sender = GCDAsyncUdpSocket::create(senderEvents, queue);
  OptionalError error;
  if (!receiver->bindToPort(0, error) || !receiver->beginReceiving(error) ||
      !sender->bindToPort(0, error))
    return "bind: " + error->toString();
  // Sends once; the report of that send.
  auto send = [&](int64_t tag) {
    sender->sendData(test::bytesOf("Oxelo"), kBroadcast, receiver->localPort(), -1, tag);
    test::waitUntil([&] { return senderEvents->events().size() == size_t(tag); });
    return senderEvents->events().at(size_t(tag) - 1);
  };

  auto refused = send(1);
  if (refused.kind != SocketEvent::udpNotSent || !refused.error ||
      refused.error->domain != kPosixErrorDomain || refused.error->code != EACCES)
    return "a send without the broadcast flag was not refused with EACCES";
  if (!sender->enableBroadcast(true, error)) return "enableBroadcast: " + error->toString();
  if (send(2).kind != SocketEvent::udpSent) return "the broadcast send failed";
  // The system hands a copy of a broadcast to this host's own listeners.
  if (!test::waitUntil([&] { return receiverEvents->count(SocketEvent::udpReceived) == 1; }))
    return "the broadcast did not come back to the local receiver";
  auto got = receiverEvents->first(SocketEvent::udpReceived);
  if (got.data != test::bytesOf("Oxelo") || got.address.host() != "10.213.0.1")
    return "wrong datagram or sender " + got.address.host();
  return "";
}

// In the copy, the namespace side runs before main, while the process still
// has one thread, and ends the process.
[[maybe_unused]] const bool kRanInsideNamespace = [] {
  if (!std::getenv(kChildVariable)) return false;
  std::string failure = sendBroadcastsInsideNamespace();
  std::fprintf(stderr, "%s\n", failure.c_str());
  std::fflush(stderr);
  std::_Exit(failure.empty() ? 0 : 1);
}();

TEST(GCDAsyncUdpSocketBroadcastTest, BroadcastNeedsTheBroadcastFlag) {
  std::string exe = std::filesystem::read_symlink("/proc/self/exe");
  // The copy says what went wrong on its standard error, which is the test's.
  int status = std::system(
      (std::string("env -i ") + kChildVariable + "=1 timeout 60 '" + exe + "'").c_str());
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the copy in its namespace failed";
}

}  // namespace
}  // namespace oxelo
