#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/HostTestBytes.h"
#include "tests/support/TestSupport.h"
#include "tools/host/HostRunner.h"
#include "tools/host/Report.h"

// Whole runs of the host against a small phone written here from the packet
// tables, over real sockets on 127.0.0.1 only.
namespace oxelo::host {
namespace {

using namespace testbytes;

uint32_t le(const Bytes& b, size_t at) {
  return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 |
         uint32_t(b[at + 3]) << 24;
}
uint32_t be(const Bytes& b, size_t at) {
  return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 |
         uint32_t(b[at + 3]);
}
void putLe(Bytes& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
Bytes frame(uint32_t type, uint32_t tag, const Bytes& payload) {
  Bytes out(16, 0);
  const uint32_t words[4] = {1, type, tag, static_cast<uint32_t>(payload.size())};
  for (int w = 0; w < 4; ++w) {
    for (int i = 0; i < 4; ++i) out[4 * w + i] = static_cast<uint8_t>(words[w] >> (24 - 8 * i));
  }
  return cat({out, payload});
}

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

// The phone's side of one connection: greets, reads the host's packets up to
// the start, answers with the settings it now holds, then closes or waits for
// the host to close.
struct FakePhone {
  bool usb = false;
  bool answer = true;
  bool closeAfterAnswer = true;
  Bytes afterAnswer;  // stream bytes (or frames) sent behind the answer
  // Then reads the host's commands until the host closes, or until command
  // 24, on which it closes itself.
  bool readCommands = false;

  struct Packet {
    uint32_t frameType = 0;
    uint32_t frameTag = 0;
    Bytes bytes;
  };
  std::vector<Packet> received;
  std::vector<Packet> commands;
  bool sawHostClose = false;

  void run(int fd) {
    timeval limit{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (usb) {
      writeAllBytes(fd, cat({frame(88, 8810, kHelloLong), frame(88, 8810, kHelloShort)}));
    } else {
      writeAllBytes(fd, cat({kHelloLong, kHelloShort}));
    }
    // The settings in force, landscape 1280x720@30, quality 1, H.264, mono,
    // unless the host dictates others.
    Bytes settings = kAnswer720p;
    for (;;) {
      auto packet = readPacket(fd);
      if (!packet) return;
      received.push_back(*packet);
      const uint32_t command = le(packet->bytes, 4);
      if (command == 19) {
        std::copy(packet->bytes.begin() + 8, packet->bytes.end(), settings.begin() + 8);
        putLe(settings, 20, le(packet->bytes, 20) != 0 ? 1 : 0);
      }
      if (command == 17) break;
    }
    if (!answer) return;
    writeAllBytes(fd, usb ? frame(88, 8813, settings) : settings);
    if (!afterAnswer.empty()) writeAllBytes(fd, afterAnswer);
    if (readCommands) {
      while (auto command = readCommand(fd)) {
        commands.push_back(*command);
        if (le(command->bytes, 4) == 24) return;
      }
      sawHostClose = true;
      return;
    }
    if (closeAfterAnswer) return;
    sawHostClose = readExactly(fd, 1).empty();
  }

  // Host commands carry 0, 1 or 2 parameter words by command.
  static size_t commandSize(uint32_t command) {
    if (command == 18 || command == 23) return 16;
    if ((command >= 33 && command <= 35) || (command >= 38 && command <= 44)) return 12;
    return 8;
  }

  std::optional<Packet> readCommand(int fd) {
    if (usb) return readPacket(fd);
    Packet p;
    Bytes head = readExactly(fd, 8);
    if (head.size() < 8 || le(head, 0) != 136) return std::nullopt;
    p.bytes = cat({head, readExactly(fd, commandSize(le(head, 4)) - 8)});
    return p;
  }

  std::optional<Packet> readPacket(int fd) {
    Packet p;
    if (usb) {
      Bytes head = readExactly(fd, 16);
      if (head.size() < 16 || be(head, 0) != 1) return std::nullopt;
      p.frameType = be(head, 4);
      p.frameTag = be(head, 8);
      p.bytes = readExactly(fd, be(head, 12));
      return p;
    }
    Bytes head = readExactly(fd, 8);
    if (head.size() < 8 || le(head, 0) != 136) return std::nullopt;
    const uint32_t command = le(head, 4);
    const size_t size = command == 16 ? 80 : command == 17 ? 20 : command == 19 ? 36 : 0;
    if (size == 0) return std::nullopt;
    p.bytes = cat({head, readExactly(fd, size - 8)});
    return p;
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

int connectLoopback(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(port);
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

HostOptions optionsFor(HostMode mode, uint16_t port) {
  HostOptions o;
  o.mode = mode;
  o.address = "127.0.0.1";  // listen: the address bound; else the phone's
  o.port = port;
  o.name = "Desk";
  if (mode == HostMode::listen) o.wait = 5.0;
  return o;
}

// Runs the host in listen mode and lets `phone` call it once it listens.
RunResult runListening(HostOptions options, FakePhone& phone, std::thread& phoneThread) {
  RunHooks hooks;
  hooks.listening = [&](uint16_t port) {
    phoneThread = std::thread([&phone, port] {
      const int fd = connectLoopback(port);
      if (fd < 0) return;
      phone.run(fd);
      ::close(fd);
    });
  };
  return runHost(options, hooks);
}

std::string errorsOf(const RunResult& r) { return r.report["errors"].dump(); }

class HostLoopbackTest : public testing::Test {
 protected:
  test::LogCapture log_;  // keeps the run's log lines off the test output
};

TEST_F(HostLoopbackTest, CallsThePhoneAndDictatesItsSettings) {
  PhoneListener listener;
  FakePhone phone;
  std::thread t = listener.serve(phone);
  HostOptions options = optionsFor(HostMode::call, listener.port);
  options.settings = handshake::VideoSettings{1920, 1080, 60, 1, 2, 1, 2};
  const RunResult result = runHost(options);
  t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  EXPECT_EQ(result.report["mode"], "call");
  EXPECT_EQ(result.report["ended_by"], "phone");
  const auto& hs = result.report["handshake"];
  EXPECT_TRUE(hs["complete"].get<bool>());
  EXPECT_TRUE(hs["hello_long"].get<bool>());
  EXPECT_TRUE(hs["hello_short"].get<bool>());
  EXPECT_EQ(hs["settings_answer"],
            nlohmann::json::parse(R"({"width":1920,"height":1080,"fps":60,"portrait":1,
                                      "quality":2,"encoder":1,"audio_format":2})"));
  EXPECT_EQ(result.report["errors"], nlohmann::json::array());

  ASSERT_EQ(phone.received.size(), 3u);
  EXPECT_EQ(phone.received[0].bytes, kHostInfoDesk5895);
  EXPECT_EQ(phone.received[1].bytes,
            hex("88000000 13000000 80070000 38040000 3c000000 01000000 02000000 01000000"
                "02000000"));
  EXPECT_EQ(phone.received[2].bytes, kStart);
}

TEST_F(HostLoopbackTest, ListensAndAnnouncesItsPort) {
  FakePhone phone;
  std::thread t;
  HostOptions options = optionsFor(HostMode::listen, 0);
  const RunResult result = runListening(options, phone, t);
  if (t.joinable()) t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  EXPECT_EQ(result.report["mode"], "listen");
  ASSERT_EQ(phone.received.size(), 2u);  // no settings given: no command 19
  const Bytes& info = phone.received[0].bytes;
  ASSERT_EQ(info.size(), 80u);
  EXPECT_EQ(le(info, 0), 136u);
  EXPECT_EQ(le(info, 4), 16u);
  EXPECT_NE(le(info, 8), 0u);  // the port the phone called, picked by the system
  EXPECT_EQ(phone.received[1].bytes, kStart);
  EXPECT_EQ(result.report["handshake"]["settings_answer"]["width"], 1280);
  EXPECT_FALSE(result.report["handshake"]["settings_sent"].get<bool>());
}

TEST_F(HostLoopbackTest, SpeaksFramesOverUsb) {
  PhoneListener listener;
  FakePhone phone;
  phone.usb = true;
  std::thread t = listener.serve(phone);
  HostOptions options = optionsFor(HostMode::usb, listener.port);
  options.settings = handshake::VideoSettings{1280, 720, 30, 0, 1, 0, 1};
  const RunResult result = runHost(options);
  t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  EXPECT_EQ(result.report["mode"], "usb");
  ASSERT_EQ(phone.received.size(), 3u);
  EXPECT_EQ(phone.received[0].bytes, kHostInfoDesk5895);
  EXPECT_EQ(phone.received[1].bytes, kSettings720p);
  EXPECT_EQ(phone.received[2].bytes, kStart);
  for (const auto& p : phone.received) EXPECT_EQ(p.frameType, 88u);
  EXPECT_EQ(phone.received[0].frameTag, 8810u);
  EXPECT_EQ(phone.received[1].frameTag, 8813u);
  EXPECT_EQ(phone.received[2].frameTag, 8811u);
}

TEST_F(HostLoopbackTest, EndsTheConnectionWhenTheDurationRunsOut) {
  PhoneListener listener;
  FakePhone phone;
  phone.closeAfterAnswer = false;
  phone.afterAnswer = hex("12000000 01000000");  // the start of a stream
  std::thread t = listener.serve(phone);
  HostOptions options = optionsFor(HostMode::call, listener.port);
  options.duration = 0.3;
  const RunResult result = runHost(options);
  t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  EXPECT_EQ(result.report["ended_by"], "duration");
  EXPECT_TRUE(phone.sawHostClose);
}

TEST_F(HostLoopbackTest, ChecksTheStreamAndSendsItsCommands) {
  PhoneListener listener;
  FakePhone phone;
  phone.afterAnswer = cat({kInfo, kVideoHeader, kCapability, kKeyFrame0, kStatus, kAudioHeader,
                           kInterFrame33, kAudioFrame});
  phone.readCommands = true;
  std::thread t = listener.serve(phone);
  HostOptions options = optionsFor(HostMode::call, listener.port);
  options.duration = 1.0;
  options.commands = {{0.1, 33, 1, 0}, {0.0, 21, 0, 0}, {0.1, 18, 6, 20}};
  options.end = EndAction::peerClose;
  const RunResult result = runHost(options);
  t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  // The phone closed on command 24, well within the host's grace.
  EXPECT_EQ(result.report["ended_by"], "phone");
  EXPECT_EQ(result.report["end_command"], 24);
  const auto& stream = result.report["stream"];
  EXPECT_EQ(stream["info"]["device_name"], "Cam");
  EXPECT_EQ(stream["info"]["video_sizes"], nlohmann::json::parse("[[1280,720],[640,480]]"));
  EXPECT_EQ(stream["counts"]["packets"], 6);
  EXPECT_EQ(stream["counts"]["key_frames"], 1);
  EXPECT_EQ(stream["counts"]["capability_blocks"], 1);
  EXPECT_EQ(stream["first_packets"][0], "info");
  EXPECT_EQ(stream["last_status"]["battery"], 180);
  EXPECT_EQ(stream["last_status"]["session"]["mirror"], true);
  EXPECT_EQ(stream["last_capability"]["iso_max"], 3200);
  EXPECT_EQ(stream["order_errors"], nlohmann::json::array());
  EXPECT_EQ(result.report["commands_sent"],
            nlohmann::json::parse(R"([{"at":0.0,"command":21,"p1":0,"p2":0},
                                      {"at":0.1,"command":33,"p1":1,"p2":0},
                                      {"at":0.1,"command":18,"p1":6,"p2":20}])"));

  // Commands in time order, equal times in the order given, the end last.
  ASSERT_EQ(phone.commands.size(), 4u);
  EXPECT_EQ(phone.commands[0].bytes, hex("88000000 15000000"));
  EXPECT_EQ(phone.commands[1].bytes, hex("88000000 21000000 01000000"));
  EXPECT_EQ(phone.commands[2].bytes, hex("88000000 12000000 06000000 14000000"));
  EXPECT_EQ(phone.commands[3].bytes, hex("88000000 18000000"));
}

TEST_F(HostLoopbackTest, ChecksTheFramedStreamOverUsb) {
  PhoneListener listener;
  FakePhone phone;
  phone.usb = true;
  phone.afterAnswer =
      cat({frame(18, 1, kInfo), frame(9, 0, kVideoHeader), frame(88, 8821, kCapability),
           frame(9, 0, kKeyFrame0), frame(88, 8818, kSnapshot), frame(88, 8814, kStopNotice)});
  phone.readCommands = true;
  std::thread t = listener.serve(phone);
  HostOptions options = optionsFor(HostMode::usb, listener.port);
  options.duration = 0.5;
  options.commands = {{0.0, 37, 0, 0}};
  const RunResult result = runHost(options);
  t.join();

  EXPECT_EQ(result.exitCode, 0) << errorsOf(result);
  EXPECT_EQ(result.report["ended_by"], "duration");
  EXPECT_TRUE(phone.sawHostClose);
  const auto& counts = result.report["stream"]["counts"];
  EXPECT_EQ(counts["packets"], 5);
  EXPECT_EQ(counts["stop_notices"], 1);
  EXPECT_EQ(result.report["stream"]["phone_commands"],
            nlohmann::json::parse(R"([{"command":18,"parameter":0}])"));
  ASSERT_EQ(phone.commands.size(), 1u);
  EXPECT_EQ(phone.commands[0].frameType, 88u);
  EXPECT_EQ(phone.commands[0].frameTag, 8837u);
  EXPECT_EQ(phone.commands[0].bytes, hex("88000000 25000000"));
}

TEST_F(HostLoopbackTest, AStreamOutOfOrderFailsTheRun) {
  PhoneListener listener;
  FakePhone phone;
  phone.afterAnswer = cat({kInfo, kKeyFrame0});
  std::thread t = listener.serve(phone);
  const RunResult result = runHost(optionsFor(HostMode::call, listener.port));
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
  const RunResult result = runHost(optionsFor(HostMode::call, listener.port));
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
  const RunResult result = runHost(optionsFor(HostMode::call, port));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_FALSE(result.report["connected"].get<bool>());
  EXPECT_EQ(result.report["ended_by"], "not_connected");
  EXPECT_EQ(result.report["errors"],
            nlohmann::json::array({"connection refused by 127.0.0.1:" + std::to_string(port)}));
}

TEST_F(HostLoopbackTest, ListeningGivesUpAfterItsWait) {
  HostOptions options = optionsFor(HostMode::listen, 0);
  options.wait = 0.1;
  const RunResult result = runHost(options);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(errorsOf(result).find("no phone called"), std::string::npos) << errorsOf(result);
}

TEST_F(HostLoopbackTest, TheReportFileHoldsTheReport) {
  test::TempDir dir;
  const std::string path = (dir.path() / "report.json").string();
  const nlohmann::json report = {{"errors", nlohmann::json::array()}, {"mode", "usb"}};
  std::string error;
  ASSERT_TRUE(writeReportFile(path, report, error)) << error;
  std::ifstream in(path);
  EXPECT_EQ(nlohmann::json::parse(in), report);
  EXPECT_FALSE(writeReportFile((dir.path() / "missing" / "r.json").string(), report, error));
  EXPECT_NE(error.find("cannot write the report"), std::string::npos);
}

}  // namespace
}  // namespace oxelo::host
