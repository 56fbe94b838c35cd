// A host that stops reading, over TCP and over the USB framed channel, and one that restarts
// between retries. The stall runs in real time (the kernel's buffers filling is the subject); the
// stream's clock is the manual one, moved one frame interval per frame.
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include <poll.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "channels/UnsentLimit.h"
#include "tests/support/WireVectors.h"
#include "tests/transport/support/StreamSocketHarness.h"
#include "wire/InfoPacket.h"
#include "wire/WireConstants.h"
#include "wire/WireStream.h"

namespace oxelo {
namespace {

constexpr uint64_t kFrameMs = 33;
constexpr size_t kKeyFrameBytes = 200 * 1024;  // a key frame every second: 1.6 Mb/s of key frames
constexpr size_t kInterFrameBytes = 20 * 1024;
constexpr size_t kAudioBytes = 400;

#ifdef __SANITIZE_ADDRESS__
extern "C" size_t __sanitizer_get_current_allocated_bytes();  // declared by no GCC header
#endif

// The memory the process holds, in kB: its resident size, or under AddressSanitizer (whose
// quarantine keeps freed blocks resident) the bytes its allocator has handed out.
long heldKb() {
#ifdef __SANITIZE_ADDRESS__
  return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
#else
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  return -1;
#endif
}

// The bytes unsent in the kernel on this process's end of the connection to `host`; -1: no end.
long unsentBytesTowards(const test::Fd& host) {
  sockaddr_storage hostAddress{}, peer{};
  socklen_t length = sizeof hostAddress;
  if (getsockname(host.get(), reinterpret_cast<sockaddr*>(&hostAddress), &length) != 0) return -1;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    int fd = std::stoi(entry.path().filename().string()), unsent = 0;
    socklen_t peerLength = sizeof peer;
    if (fd == host.get() || getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 ||
        peerLength != length || std::memcmp(&peer, &hostAddress, length) != 0)
      continue;
    return ioctl(fd, SIOCOUTQNSD, &unsent) == 0 ? unsent : -1;
  }
  return -1;
}

struct VideoArrival {
  uint32_t timestamp;
  bool key;
};

uint32_t littleEndian32(const test::Bytes& bytes, size_t at) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= uint32_t{bytes[at + i]} << (8 * i);
  return v;
}

// The host's end, with a receive buffer that fills soon: reads while told to, on a thread of its
// own, and keeps the video frames it finds. `framed`: the USB channel, one packet per frame.
class Host {
 public:
  Host(const test::Fd& fd, bool framed) : fd_(fd.get()), framed_(framed) {
    int size = 64 * 1024;
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    thread_ = std::thread([this] { run(); });
  }
  ~Host() {
    stop_ = true;
    thread_.join();
  }
  void setReading(bool reading) { reading_ = reading; }
  std::vector<VideoArrival> video() const {
    std::lock_guard lock(mutex_);
    return video_;
  }
  bool broken() const { return broken_; }

 private:
  void run() {
    uint8_t chunk[64 * 1024];
    while (!stop_) {
      ssize_t n = reading_ ? recv(fd_, chunk, sizeof chunk, MSG_DONTWAIT) : 0;
      if (n <= 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      buffer_.insert(buffer_.end(), chunk, chunk + n);
      size_t rest = 0;
      if (framed_) {
        for (auto& frame : test::parseFrames(buffer_, &rest))
          if (frame.type == wire::kPacketTypeVideo) packet(frame.payload, 0);
      } else {
        size_t at = 0;
        for (;;) {
          auto record = wire::nextRecord(std::span<const uint8_t>(buffer_).subspan(at));
          broken_ = broken_ || (!record && record.error() != wire::WireError::Truncated);
          if (!record) break;
          if (record->type == wire::kPacketTypeVideo) packet(buffer_, at);
          at += record->length;
        }
        rest = buffer_.size() - at;
      }
      buffer_.erase(buffer_.begin(), buffer_.end() - static_cast<long>(rest));
    }
  }
  // A video packet at `at` of `bytes`.
  void packet(const test::Bytes& bytes, size_t at) {
    if (bytes.size() < at + wire::kCommonHeaderSize + 2) {
      broken_ = true;
      return;
    }
    if (bytes[at + 13] != wire::kVideoKindFrame) return;
    std::lock_guard lock(mutex_);
    video_.push_back({littleEndian32(bytes, at + 4), bytes[at + 12] == wire::kVideoTagKeyFrame});
  }

  const int fd_;
  const bool framed_;
  std::thread thread_;
  std::atomic<bool> stop_{false}, reading_{true}, broken_{false};
  test::Bytes buffer_;  // reader thread only
  mutable std::mutex mutex_;
  std::vector<VideoArrival> video_;
};

class StalledHostTest : public test::StreamSocketFixture, public testing::WithParamInterface<bool> {
 protected:
  // One frame interval of a 30 fps stream (a video frame, a key frame every 30, and an audio
  // frame) handed over; then the clock moves on. Paced to real time from `start`.
  void frameInterval(std::chrono::steady_clock::time_point start) {
    const uint64_t n = frames_++;
    const uint64_t timestamp = 1000 + n * kFrameMs;
    const bool key = n % 30 == 0;
    socket_->sendFrame(test::videoFrame(
        timestamp, key, test::Bytes(key ? kKeyFrameBytes : kInterFrameBytes, uint8_t(n))));
    socket_->sendFrame(test::audioFrame(timestamp, test::Bytes(kAudioBytes, 1)));
    pump([&] { return socket_->buffer()->listCount() == 0 && !socket_->isSending(); }, 1.0);
    main_.advance(kFrameMs / 1000.0, kFrameMs / 1000.0);
    std::this_thread::sleep_until(start + std::chrono::milliseconds(frames_ * kFrameMs));
  }
  void stream(double seconds) {
    const auto start =
        std::chrono::steady_clock::now() - std::chrono::milliseconds(frames_ * kFrameMs);
    const uint64_t end = frames_ + static_cast<uint64_t>(seconds * 1000 / kFrameMs);
    while (frames_ < end) frameInterval(start);
  }
  uint64_t lastTimestamp() const { return 1000 + (frames_ - 1) * kFrameMs; }

  uint64_t frames_ = 0;
};

// Ten seconds in which the host reads nothing: what waits for it stays bounded, and when it reads
// again the stream goes on from a key frame and the write statistics raise the rate again.
TEST_P(StalledHostTest, MemoryStaysBoundedAndTheStreamRecoversFromAKeyFrame) {
  const bool usb = GetParam();
  std::shared_ptr<test::UsbLoopback> usbLink;
  test::LoopbackConnection tcpLink;
  if (usb)
    usbLink = test::UsbLoopback::connect(main_.main());
  else
    tcpLink = test::connectLoopback(main_.main());
  std::shared_ptr<Carrier> carrier =
      usb ? std::shared_ptr<Carrier>(usbLink->carrier) : tcpLink.carrier;
  ASSERT_TRUE(carrier);
  const test::Fd& hostFd = usb ? usbLink->host : tcpLink.host;
  Host host(hostFd, usb);
  makeSocket(test::makeStreamInfo());
  socket_->setCarrier(carrier);
  socket_->start();
  ASSERT_TRUE(pump([&] { return socket_->isConnected(); }));

  stream(2.0);
  ASSERT_TRUE(test::waitUntil([&] { return host.video().size() >= 55; })) << "the stream flows";
  host.setReading(false);
  const long heldBefore = heldKb();
  const size_t verdictsBefore = session_->verdicts().size();

  stream(10.0);
  const long heldAfter = heldKb();
  const long unsent = unsentBytesTowards(hostFd);
  const size_t queued = carrier->queuedBytes();
  RecordProperty("held_growth_kb", std::to_string(heldAfter - heldBefore));
  RecordProperty("queued_bytes", std::to_string(queued));
  RecordProperty("unsent_bytes", std::to_string(unsent));
  EXPECT_LE(socket_->buffer()->listCount(), 2u);
  EXPECT_GT(socket_->backlogDrops(), 0) << "ten seconds of key frames and sound reach the mark";
  EXPECT_LE(queued, OXStreamSocket::kMaxQueuedBytes + kKeyFrameBytes + 4096);
  // The mark is checked per segment, so one segment of up to 64 KiB may pass it.
  EXPECT_GE(unsent, 0);
  EXPECT_LE(unsent, kUnsentLowWater + 64 * 1024);
  EXPECT_LT(heldAfter - heldBefore, 4 * 1024) << "kB of growth over the stall";
  EXPECT_EQ(session_->verdicts().size(), verdictsBefore) << "no completions, no verdicts";

  const uint64_t stallEnd = lastTimestamp();
  host.setReading(true);
  stream(5.0);
  const uint64_t lastKey = 1000 + (frames_ - 1) / 30 * 30 * kFrameMs;
  ASSERT_TRUE(test::waitUntil(
      [&] { return !host.video().empty() && host.video().back().timestamp >= lastKey; }, 10.0,
      [&] {
        main_.drain();
        send_->runPending();
      }));
  EXPECT_FALSE(host.broken());
  auto video = host.video();
  size_t gaps = 0;
  bool afterStall = false;
  for (size_t i = 1; i < video.size(); ++i) {
    if (video[i].timestamp > video[i - 1].timestamp + kFrameMs) {
      ++gaps;
      EXPECT_TRUE(video[i].key) << "after a gap at " << video[i - 1].timestamp
                                << " the stream goes on from a key frame, not "
                                << video[i].timestamp;
    }
    afterStall |= video[i].timestamp > stallEnd && !video[i].key;
  }
  EXPECT_GT(gaps, 0u);
  EXPECT_TRUE(afterStall) << "the stream flows whole again";
  auto verdicts = session_->verdicts();
  ASSERT_GT(verdicts.size(), verdictsBefore);
  EXPECT_EQ(verdicts.back(), BufferVerdict::RaiseBitrate) << "the link is good again";
}

// A listener on 127.0.0.1:`port` (0: the system's choice, written back) that may take a port whose
// last connection is still in TIME_WAIT, as a restarted host does.
test::Fd listenOn(uint16_t& port) {
  test::Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  int one = 1;
  setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(port);
  socklen_t length = sizeof a;
  if (bind(fd.get(), reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(fd.get(), 4) != 0 ||
      getsockname(fd.get(), reinterpret_cast<sockaddr*>(&a), &length) != 0)
    ADD_FAILURE() << "listen on " << port << ": " << std::strerror(errno);
  port = ntohs(a.sin_port);
  return fd;
}

using HostRestartTest = test::StreamSocketFixture;

// The host goes away and comes back on its port between two retries: the retries stay 3 s apart,
// no error reaches the session, and the new connection starts over (info, then the header at 0).
TEST_F(HostRestartTest, TheNextRetryFindsTheRestartedHostAndStartsOver) {
  uint16_t port = 0;
  auto listener = listenOn(port);
  makeSocket(test::loopbackStreamInfo(port))->start();
  auto accept = [&] {
    pollfd waiting{listener.get(), POLLIN, 0};
    test::Fd host(pump([&] { return ::poll(&waiting, 1, 0) > 0; })
                      ? ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)
                      : -1);
    EXPECT_TRUE(pump([&] { return socket_->isConnected(); }));
    return host;
  };
  auto host = accept();
  ASSERT_TRUE(host.valid());
  EXPECT_EQ(test::peer::receive(host, wire::kInfoPacketSize).size(), wire::kInfoPacketSize);
  socket_->sendFrame(test::videoFrame(4000, true, test::keyFrameData()));
  ASSERT_TRUE(pump([&] { return socket_->lastSendVideoFrameTimestamp() == 4000; }));

  // The host vanishes: its connection and its listener close.
  host.reset();
  listener.reset();
  ASSERT_TRUE(pump([&] { return socket_->retryTimes() == 1 && socket_->isReconnecting(); }));
  const double lost = main_.clock().now();
  main_.advance(OXStreamSocket::kRetryDelay);
  ASSERT_TRUE(pump([&] { return socket_->retryTimes() == 2 && socket_->isReconnecting(); }))
      << "the first retry finds nobody";

  listener = listenOn(port);
  main_.advance(OXStreamSocket::kRetryDelay);
  host = accept();
  ASSERT_TRUE(host.valid());
  EXPECT_EQ(socket_->retryTimes(), 0);
  auto times = session_->connectingTimes();
  ASSERT_EQ(times.size(), 3u);
  EXPECT_NEAR(times[1] - lost, OXStreamSocket::kRetryDelay, 0.06);
  EXPECT_NEAR(times[2] - times[1], OXStreamSocket::kRetryDelay, 0.06);
  EXPECT_TRUE(session_->errors().empty());

  auto first = test::peer::receive(host, wire::kInfoPacketSize);
  EXPECT_TRUE(wire::parseInfoPacket(first)) << "the new connection starts with the info packet";
  // The session starts its timestamps again from 0 on a new connection.
  socket_->sendFrame(test::videoFrame(0, true, test::keyFrameData()));
  ASSERT_TRUE(sent());
  EXPECT_EQ(test::peer::receive(host, test::h264SequenceHeaderPacket().size()),
            test::h264SequenceHeaderPacket());
}

INSTANTIATE_TEST_SUITE_P(Carriers, StalledHostTest, testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Usb" : "Tcp"; });

}  // namespace
}  // namespace oxelo
