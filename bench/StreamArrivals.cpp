#include "bench/StreamArrivals.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "wire/InfoPacket.h"
#include "wire/MediaPackets.h"
#include "wire/WireConstants.h"

namespace oxelo::bench {

namespace {
constexpr size_t kReadSize = 1 << 20;
}  // namespace

StreamArrivals::StreamArrivals() {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener_, 1) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    error_ = std::string("cannot listen on 127.0.0.1: ") + std::strerror(errno);
    return;
  }
  port_ = ntohs(address.sin_port);
  reader_ = std::thread([this] { read(); });
}

StreamArrivals::~StreamArrivals() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    if (connection_ >= 0) shutdown(connection_, SHUT_RDWR);
  }
  if (listener_ >= 0) shutdown(listener_, SHUT_RDWR);  // wakes a waiting accept()
  if (reader_.joinable()) reader_.join();
  if (connection_ >= 0) close(connection_);
  if (listener_ >= 0) close(listener_);
}

std::vector<StreamArrivals::Arrival> StreamArrivals::waitFor(size_t count,
                                                             std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [&] { return arrivals_.size() >= count || ended_; });
  return arrivals_;
}

std::string StreamArrivals::error() const {
  std::lock_guard lock(mutex_);
  return error_;
}

void StreamArrivals::fail(std::string why) {
  std::lock_guard lock(mutex_);
  if (error_.empty()) error_ = std::move(why);
}

void StreamArrivals::read() {
  int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  {
    std::lock_guard lock(mutex_);
    if (fd >= 0 && stopping_) {
      close(fd);
      fd = -1;
    }
    connection_ = fd;
  }
  std::vector<uint8_t> chunk(kReadSize);
  while (fd >= 0) {
    ssize_t n = recv(fd, chunk.data(), chunk.size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    const auto at = Clock::now();
    buffer_.insert(buffer_.end(), chunk.begin(), chunk.begin() + n);
    if (!takeRecords(at)) break;
  }
  std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

bool StreamArrivals::takeRecords(Clock::time_point at) {
  size_t used = 0;
  bool added = false;
  bool ok = true;
  while (ok) {
    const wire::ByteView rest(buffer_.data() + used, buffer_.size() - used);
    if (!infoSeen_) {
      if (rest.size() < wire::kInfoPacketSize) break;
      if (!wire::parseInfoPacket(rest.first(wire::kInfoPacketSize))) {
        fail("the stream does not start with an info packet");
        ok = false;
        break;
      }
      infoSeen_ = true;
      used += wire::kInfoPacketSize;
      continue;
    }
    if (rest.size() < wire::kCommonHeaderSize) break;
    wire::WireReader reader(rest);
    const uint32_t type = reader.u32LE(0);
    const size_t size = reader.u32LE(8);
    if (rest.size() < wire::kCommonHeaderSize + size) break;
    const auto body = rest.subspan(wire::kCommonHeaderSize, size);
    used += wire::kCommonHeaderSize + size;
    if (type == wire::kPacketTypeTail) {
      if (!tailAllowed_) {
        fail("a tail block behind a packet that takes none");
        ok = false;
      }
      tailAllowed_ = false;
      continue;
    }
    if (!wire::parsePacketHeader(rest)) {
      fail("a record of unknown type " + std::to_string(type));
      ok = false;
      break;
    }
    tailAllowed_ =
        type == wire::kPacketTypeVideo && !body.empty() && body[0] == wire::kVideoTagKeyFrame;
    if (type != wire::kPacketTypeVideo) continue;
    auto kind = wire::videoBodyKind(body);
    if (!kind) {
      fail("a video packet of unknown kind");
      ok = false;
      break;
    }
    if (*kind == wire::VideoBodyKind::SequenceHeader) continue;
    std::lock_guard lock(mutex_);
    arrivals_.push_back({reader.u32LE(4), at});
    added = true;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(used));
  if (added) {
    std::lock_guard lock(mutex_);
    changed_.notify_all();
  }
  return ok;
}

}  // namespace oxelo::bench
