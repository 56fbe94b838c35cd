#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <random>

#include "discovery/MainViewController.h"
#include "tests/discovery/support/FlowFixture.h"
#include "tests/support/SocketTestSupport.h"

namespace oxelo {
namespace {

sockaddr_in ipv4(const char* ip, uint16_t port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  inet_pton(AF_INET, ip, &a.sin_addr);
  return a;
}

// A non-blocking UDP socket bound to `ip`:`port`; not valid when the port is taken.
test::Fd boundUdp(const char* ip, uint16_t port) {
  test::Fd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const sockaddr_in a = ipv4(ip, port);
  if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&a), sizeof a) != 0) fd.reset();
  return fd;
}

uint16_t freeUdpPort() {
  test::Fd fd = boundUdp("0.0.0.0", 0);
  sockaddr_in a{};
  socklen_t len = sizeof a;
  ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&a), &len);
  return ntohs(a.sin_port);
}

// Eight consecutive UDP ports, each bound on 127.0.0.1 and on 127.0.0.2: the
// stand-ins for the limited and the subnet broadcast address.
class ProbeReceivers {
 public:
  ProbeReceivers() {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 50 && !ok(); ++attempt) {
      first_ = static_cast<uint16_t>(20000 + random() % 40000);
      fds_.clear();
      for (uint16_t i = 0; i < 8; ++i) {
        test::Fd limited = boundUdp("127.0.0.1", first_ + i);
        test::Fd subnet = boundUdp("127.0.0.2", first_ + i);
        if (!limited.valid() || !subnet.valid()) break;
        fds_.emplace_back(std::move(limited), std::move(subnet));
      }
    }
  }
  bool ok() const { return fds_.size() == 8; }
  uint16_t firstPort() const { return first_; }

  // Counts what has come: probes per address, and other datagrams.
  void collect() {
    char buffer[64];
    for (const auto& [limited, subnet] : fds_)
      for (const test::Fd* fd : {&limited, &subnet})
        for (ssize_t n; (n = ::recv(fd->get(), buffer, sizeof buffer, 0)) >= 0;)
          ++(std::string(buffer, n) != "Oxelo" ? others : fd == &limited ? toLimited : toSubnet);
  }
  int total() const { return toLimited + toSubnet; }

  int toLimited = 0, toSubnet = 0, others = 0;

 private:
  uint16_t first_ = 0;
  std::vector<std::pair<test::Fd, test::Fd>> fds_;
};

// UDP discovery on real loopback sockets ("limited broadcast" 127.0.0.1, "subnet" 127.0.0.2);
// time on the manual clock, the sockets' events pumped in real time.
class UdpDiscoveryTest : public test::FlowFixture {
 protected:
  void start(std::string subnet, bool autoConnect = true) {
    startFlow(autoConnect, [&](MainViewController::Services& s) {
      s.reachability = std::make_shared<FakeReachability>(NetworkStatus::reachableViaWiFi);
      s.probes.udpPort = udpPort_;
      s.probes.probeFirstPort = receivers_.firstPort();
      s.probes.subnetBroadcast = [subnet] { return subnet; };
    });
    flow_->discover();
  }
  // Pumps until `count` probes came (or `seconds` passed), then a little longer.
  int probesAfterPumping(int count, double seconds = 5.0) {
    auto counted = [&] {
      receivers_.collect();
      return receivers_.total() >= count;
    };
    test::pumpUntil(env_, counted, seconds);
    test::pumpFor(env_.main(), 0.1);
    receivers_.collect();
    return receivers_.total();
  }
  // Sends `text` to the flow's UDP port from 127.0.0.1.
  void answer(const std::string& text) {
    const sockaddr_in to = ipv4("127.0.0.1", udpPort_);
    ::sendto(boundUdp("127.0.0.1", 0).get(), text.data(), text.size(), 0,
             reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }

  ProbeReceivers receivers_;
  uint16_t udpPort_ = freeUdpPort();
};

struct TickCase {
  const char* name;
  std::string subnet;
  int toSubnet;  // per tick; the limited address always gets 8
};
class ProbeTickTest : public UdpDiscoveryTest, public testing::WithParamInterface<TickCase> {};

TEST_P(ProbeTickTest, EachTickSendsTheProbeToEveryPortOfEachAddress) {
  ASSERT_TRUE(receivers_.ok());
  start(GetParam().subnet);
  const int perTick = 8 + GetParam().toSubnet;
  EXPECT_EQ(probesAfterPumping(perTick), perTick);  // the first tick comes at once
  EXPECT_EQ(receivers_.toSubnet, GetParam().toSubnet);
  EXPECT_EQ(receivers_.others, 0);
  EXPECT_TRUE(log_.contains("MAIN - UDP listening on #" + std::to_string(udpPort_)));
  env_.advance(4.9);
  EXPECT_EQ(probesAfterPumping(perTick + 1, 0.2), perTick);
  env_.advance(0.1);
  EXPECT_EQ(probesAfterPumping(2 * perTick), 2 * perTick);
  EXPECT_EQ(log_.count("MAIN - UDP listening on #"), 2u);  // beginReceiving on every tick
}

INSTANTIATE_TEST_SUITE_P(Ticks, ProbeTickTest,
                         testing::Values(TickCase{"WithSubnetAddress", "127.0.0.2", 8},
                                         TickCase{"WithoutSubnetAddress", "", 0},
                                         TickCase{"SubnetIsTheLimitedBroadcast", "255.255.255.255",
                                                  0}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(UdpDiscoveryTest, PortTakenEndsTheTickThenTheUnboundSocketIsDroppedAndBoundAnew) {
  ASSERT_TRUE(receivers_.ok());
  test::Fd taken = boundUdp("0.0.0.0", udpPort_);
  ASSERT_TRUE(taken.valid());
  start("");
  EXPECT_EQ(probesAfterPumping(1, 0.2), 0);  // the failed bind ended the first tick
  EXPECT_EQ(log_.count("Error binding UDP port: "), 1u);
  EXPECT_FALSE(log_.contains("Error UDP enableBroadcast"));
  // The next tick's socket cannot receive, so it is closed and dropped.
  env_.advance(5.0);
  test::pumpUntil(env_, [&] { return log_.contains("Error UDP beginReceiving: "); });
  EXPECT_EQ(log_.count("Error UDP beginReceiving: "), 1u);
  EXPECT_FALSE(log_.contains("MAIN - UDP listening on"));
  taken.reset();
  // The tick after that makes a new socket, which binds.
  receivers_.collect();
  const int before = receivers_.total();
  env_.advance(5.0);
  EXPECT_EQ(probesAfterPumping(before + 8), before + 8);
  EXPECT_TRUE(log_.contains("MAIN - UDP listening on #" + std::to_string(udpPort_)));
  EXPECT_EQ(log_.count("Error binding UDP port: "), 1u);
}

TEST_F(UdpDiscoveryTest, AnswerWithLettersForPortGivesAHostOn5895UntilItsGoodbye) {
  ASSERT_TRUE(receivers_.ok());
  start("", /*autoConnect=*/false);
  test::pumpUntil(env_, [&] { return log_.contains("MAIN - UDP listening on"); });
  answer("port:5895");  // no name field: ignored
  answer("port:abc;Desk");
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return !flow_->arr_hosts().empty(); }));
  EXPECT_EQ(flow_->arr_hosts(), (std::vector<HostRecord>{{"Desk", "127.0.0.1", 0, true}}));
  EXPECT_EQ(flow_->hostPort(), 5895);
  const int searches = screen_->discoverTrueCount();
  answer("port:abc;Desk;0");  // the goodbye
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return flow_->arr_hosts().empty(); }));
  EXPECT_EQ(screen_->discoverTrueCount(), searches + 1);  // an empty list searches again
}

}  // namespace
}  // namespace oxelo
