#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tests/support/TestSupport.h"
#include "tools/host/HostRunner.h"

// Runs of the host that must fail, against a small phone written here from the
// packet tables, over real sockets on 127.0.0.1 only: they keep the end-to-end
// checks from passing a phone that misbehaves.  The runs that succeed are the
// end-to-end tests' work.
namespace oxelo::host {
namespace {

using namespace testbytes;

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// The host listening on a free loopback port, called by a phone that greets,
// reads the host's information and start (the run sends no settings), then
// answers with the settings in force and `afterAnswer`, and closes.
RunResult runAgainstPhone(const Bytes& afterAnswer) {
  HostOptions options;
  options.address = "127.0.0.1";
  options.port = 0;
  options.name = "Desk";
  options.wait = 5.0;
  std::thread phone;
  RunHooks hooks;
  hooks.listening = [&](uint16_t port) {
    phone = std::thread([=] {
      const int fd = socket(AF_INET, SOCK_STREAM, 0);
      timeval limit{5, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
      const sockaddr_in host = loopback(port);
      if (connect(fd, reinterpret_cast<const sockaddr*>(&host), sizeof host) == 0) {
        // A few hundred bytes each way: one call moves them on loopback.
        send(fd, kHellos.data(), kHellos.size(), MSG_NOSIGNAL);
        Bytes greeting(kHostInfoDesk5895.size() + kStart.size());
        const ssize_t got = recv(fd, greeting.data(), greeting.size(), MSG_WAITALL);
        const Bytes reply = cat({kAnswer720p, afterAnswer});
        if (got == ssize_t(greeting.size())) send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
      }
      ::close(fd);
    });
  };
  RunResult result = runHost(options, hooks);
  if (phone.joinable()) phone.join();
  return result;
}

class HostLoopbackTest : public testing::Test {
 protected:
  test::LogCapture log_;  // keeps the run's log lines off the test output
};

TEST_F(HostLoopbackTest, AStreamOutOfOrderFailsTheRun) {
  const RunResult result = runAgainstPhone(cat({kInfo, kKeyFrame0}));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.report["stream"]["order_errors"],
            nlohmann::json::array({"a video frame before the video sequence header"}));
  EXPECT_EQ(result.report["errors"], result.report["stream"]["order_errors"]);
}

TEST_F(HostLoopbackTest, ARefusedCallIsReported) {
  // A port that was free a moment ago: bound, never listened on, closed.
  sockaddr_in address = loopback(0);
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  const uint16_t port = ntohs(address.sin_port);
  HostOptions options;
  options.mode = HostMode::call;
  options.address = "127.0.0.1";
  options.port = port;
  const RunResult result = runHost(options);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_FALSE(result.report["connected"].get<bool>());
  EXPECT_EQ(result.report["ended_by"], "not_connected");
  EXPECT_EQ(result.report["errors"],
            nlohmann::json::array({"connection refused by 127.0.0.1:" + std::to_string(port)}));
}

}  // namespace
}  // namespace oxelo::host
