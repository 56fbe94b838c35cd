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

// Reads exactly `n` bytes; fewer when the peer closed or 5 s went by.
Bytes readExactly(int fd, size_t n) {
  Bytes out(n);
  size_t done = 0;
  while (done < n) {
    const ssize_t r = recv(fd, out.data() + done, n - done, 0);
    if (r <= 0) break;
    done += static_cast<size_t>(r);
  }
  out.resize(done);
  return out;
}

void writeAllBytes(int fd, const Bytes& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t w = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (w <= 0) return;
    done += static_cast<size_t>(w);
  }
}

// The phone's side of one connection: greets, reads the host's information
// and start (the runs send no settings), then answers with the settings in
// force (unless told not to) and the stream bytes given, and closes.
struct FakePhone {
  bool answer = true;
  Bytes afterAnswer;

  void run(int fd) {
    timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    writeAllBytes(fd, cat({kHelloLong, kHelloShort}));
    const size_t greeting = kHostInfoDesk5895.size() + kStart.size();
    if (readExactly(fd, greeting).size() < greeting || !answer) return;
    writeAllBytes(fd, cat({kAnswer720p, afterAnswer}));
  }
};

// A listening socket of the phone on a free loopback port.
struct PhoneListener {
  int fd = -1;
  uint16_t port = 0;
  PhoneListener() {
    fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    listen(fd, 4);
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    port = ntohs(a.sin_port);
  }
  ~PhoneListener() { ::close(fd); }
  // Serves one host connection with `phone` on a thread.
  std::thread serve(FakePhone& phone) {
    return std::thread([this, &phone] {
      timeval limit{5, 0};
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
      const int conn = accept(fd, nullptr, nullptr);
      if (conn < 0) return;
      phone.run(conn);
      ::close(conn);
    });
  }
};

HostOptions callOptions(uint16_t port) {
  HostOptions o;
  o.mode = HostMode::call;
  o.address = "127.0.0.1";  // the phone's
  o.port = port;
  o.name = "Desk";
  return o;
}

std::string errorsOf(const RunResult& r) { return r.report["errors"].dump(); }

class HostLoopbackTest : public testing::Test {
 protected:
  test::LogCapture log_;  // keeps the run's log lines off the test output
};

TEST_F(HostLoopbackTest, AStreamOutOfOrderFailsTheRun) {
  PhoneListener listener;
  FakePhone phone;
  phone.afterAnswer = cat({kInfo, kKeyFrame0});
  std::thread t = listener.serve(phone);
  const RunResult result = runHost(callOptions(listener.port));
  t.join();

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.report["stream"]["order_errors"],
            nlohmann::json::array({"a video frame before the video sequence header"}));
  EXPECT_EQ(result.report["errors"], result.report["stream"]["order_errors"]);
}

TEST_F(HostLoopbackTest, APhoneThatNeverAnswersFailsTheRun) {
  PhoneListener listener;
  FakePhone phone;
  phone.answer = false;
  std::thread t = listener.serve(phone);
  const RunResult result = runHost(callOptions(listener.port));
  t.join();

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.report["ended_by"], "phone");
  EXPECT_FALSE(result.report["handshake"]["complete"].get<bool>());
  EXPECT_NE(errorsOf(result).find("before the settings answer"), std::string::npos)
      << errorsOf(result);
}

TEST_F(HostLoopbackTest, ARefusedCallIsReported) {
  uint16_t port;
  {
    PhoneListener closed;  // a port that was free a moment ago and is closed again
    port = closed.port;
  }
  const RunResult result = runHost(callOptions(port));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_FALSE(result.report["connected"].get<bool>());
  EXPECT_EQ(result.report["ended_by"], "not_connected");
  EXPECT_EQ(result.report["errors"],
            nlohmann::json::array({"connection refused by 127.0.0.1:" + std::to_string(port)}));
}

}  // namespace
}  // namespace oxelo::host
