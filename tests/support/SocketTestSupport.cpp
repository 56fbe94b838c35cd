#include "tests/support/SocketTestSupport.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <chrono>

#include <gtest/gtest.h>

#include "channels/PTChannel.h"

namespace oxelo::test {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

Clock::time_point after(double seconds) {
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// Waits until `fd` can be read or `deadline` passes.
bool readable(int fd, Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, std::max<int>(0, static_cast<int>(left.count()))) > 0;
}

// Reads until the stream ends (true; a reset ends it too) or `deadline`
// passes (false).
bool readUntilEnd(int fd, Clock::time_point deadline, Bytes& bytes) {
  uint8_t chunk[65536];
  for (;;) {
    if (!readable(fd, deadline)) {
      if (Clock::now() >= deadline) return false;
      continue;
    }
    ssize_t n = ::recv(fd, chunk, sizeof chunk, MSG_DONTWAIT);
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) return true;
    if (n > 0) bytes.insert(bytes.end(), chunk, chunk + n);
  }
}

}  // namespace

Fd LoopbackListener::accept(double seconds) const {
  if (!readable(fd_.get(), after(seconds))) return Fd();
  Fd fd(::accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!fd.valid()) fail("accept");
  return fd;
}

namespace peer {

Fd connect(uint16_t port) {
  Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (!fd.valid() ||
      ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    fail("connect");
  return fd;
}

void sendAll(const Fd& fd, const Bytes& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    ssize_t n = ::send(fd.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("send");
    done += static_cast<size_t>(n);
  }
}

Bytes receive(const Fd& fd, size_t size, double seconds) {
  auto deadline = after(seconds);
  Bytes bytes(size);
  size_t done = 0;
  while (done < size && readable(fd.get(), deadline)) {
    ssize_t n = ::recv(fd.get(), bytes.data() + done, size - done, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  bytes.resize(done);
  return bytes;
}

Bytes receiveAvailable(const Fd& fd, double seconds) {
  Bytes bytes;
  readUntilEnd(fd.get(), after(seconds), bytes);
  return bytes;
}

std::optional<Bytes> readToEnd(const Fd& fd, double seconds) {
  Bytes bytes;
  if (!readUntilEnd(fd.get(), after(seconds), bytes)) return std::nullopt;
  return bytes;
}

std::vector<Frame> receiveFrames(const Fd& fd, size_t count, double seconds) {
  std::vector<Frame> frames;
  while (frames.size() < count) {
    Bytes bytes = receive(fd, 16, seconds);
    if (bytes.size() < 16) break;
    Bytes payload = receive(fd, bigEndian32At(bytes, 12), seconds);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    auto one = parseFrames(bytes);
    if (one.empty()) break;
    frames.push_back(std::move(one[0]));
  }
  return frames;
}

bool waitDelivered(const Fd& fd, double seconds) {
  return waitUntil(
      [&] {
        int unacknowledged = 0;
        return ::ioctl(fd.get(), SIOCOUTQ, &unacknowledged) == 0 && unacknowledged == 0;
      },
      seconds);
}

uint16_t closedPort() { return LoopbackListener().port(); }

}  // namespace peer

std::vector<SocketEvent> Recorder::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

size_t Recorder::count(SocketEvent::Kind kind) const {
  std::lock_guard lock(mutex_);
  return std::count_if(events_.begin(), events_.end(), [&](auto& e) { return e.kind == kind; });
}

SocketEvent Recorder::first(SocketEvent::Kind kind) const {
  std::lock_guard lock(mutex_);
  for (auto& e : events_)
    if (e.kind == kind) return e;
  ADD_FAILURE() << "no event of kind " << kind;
  return SocketEvent();
}

std::vector<SocketEvent::Kind> Recorder::kinds() const {
  std::vector<SocketEvent::Kind> kinds;
  for (auto& e : events()) kinds.push_back(e.kind);
  return kinds;
}

std::vector<int64_t> Recorder::tags(SocketEvent::Kind kind) const {
  std::vector<int64_t> tags;
  for (auto& e : events())
    if (e.kind == kind) tags.push_back(e.tag);
  return tags;
}

Bytes Recorder::readBytes() const {
  Bytes bytes;
  for (auto& e : events())
    if (e.kind == SocketEvent::read) bytes.insert(bytes.end(), e.data.begin(), e.data.end());
  return bytes;
}

void Recorder::answerWriteTimeouts(std::vector<double> answers) {
  std::lock_guard lock(mutex_);
  answers_ = std::move(answers);
}

Connection connectPair(const std::shared_ptr<Recorder>& delegate,
                       const std::shared_ptr<Queue>& queue) {
  LoopbackListener listener;
  Connection c;
  c.sock = GCDAsyncSocket::create(delegate, queue);
  OptionalError error;
  if (!c.sock->connectToHost("127.0.0.1", listener.port(), -1, error)) {
    ADD_FAILURE() << "connectToHost: " << error->toString();
    return {};
  }
  c.peer = listener.accept();
  if (!c.peer.valid() || !waitUntil([&] { return c.sock->isConnected(); })) {
    ADD_FAILURE() << "the loopback connection did not come up";
    return {};
  }
  return c;
}

UsbLoopback::~UsbLoopback() {
  if (listener_) listener_->close();
}

std::shared_ptr<UsbLoopback> UsbLoopback::connect(Queue& main) {
  auto loopback = std::make_shared<UsbLoopback>();
  loopback->listener_ = PTChannel::channelWithDelegate(loopback);
  OptionalError failure;
  loopback->listener_->listenOnPort(0, 0x7f000001, [&](OptionalError e) { failure = e; });
  EXPECT_FALSE(failure) << failure->toString();
  loopback->host = peer::connect(loopback->listener_->listeningPort());
  EXPECT_TRUE(pumpUntil(main, [&] { return loopback->carrier != nullptr; }))
      << "the listener took no connection";
  return loopback;
}

}  // namespace oxelo::test
