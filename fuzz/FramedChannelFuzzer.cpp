// The framed channel's reader (frame headers, payload reassembly, skipped
// payloads, the end of the stream) on a real local stream socket: the bytes
// are written by the peer, which then closes, and every frame the channel
// delivers must be the one a plain reading of the bytes finds, in order,
// ending the way that reading says.
//
// Input: one byte that says how the peer writes (FuzzSupport.h; bit 7: the
// delegate refuses frames of odd type, whose payloads are then skipped), then
// the peer's bytes.
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "channels/PTChannel.h"
#include "fuzz/FuzzSupport.h"

using namespace oxelo;

namespace {

struct Frame {
  uint32_t type = 0;
  uint32_t tag = 0;
  std::vector<uint8_t> payload;
  bool operator==(const Frame&) const = default;
};

uint32_t bigEndianAt(fuzz::ByteSpan b, size_t at) {
  return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}

// The frames a plain reading finds, and whether the stream ends with an error
// (a header cut short or of another version) rather than quietly.
std::vector<Frame> expectedFrames(fuzz::ByteSpan bytes, bool skipOdd, bool& endsWithError) {
  std::vector<Frame> frames;
  endsWithError = false;
  size_t at = 0;
  while (at < bytes.size()) {
    if (bytes.size() - at < kPTFrameHeaderSize || bigEndianAt(bytes, at) != kPTProtocolVersion) {
      endsWithError = true;
      break;
    }
    const uint32_t type = bigEndianAt(bytes, at + 4), tag = bigEndianAt(bytes, at + 8);
    const uint32_t size = bigEndianAt(bytes, at + 12);
    if (type == kPTFrameTypeEndOfStream) break;
    at += kPTFrameHeaderSize;
    if (bytes.size() - at < size) break;  // the stream ends inside the payload
    if (!(skipOdd && type % 2 == 1))
      frames.push_back({type, tag, {bytes.begin() + long(at), bytes.begin() + long(at + size)}});
    at += size;
  }
  return frames;
}

class Recorder final : public PTChannelDelegate {
 public:
  explicit Recorder(bool skipOdd) : skipOdd_(skipOdd) {}
  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t type,
                                           uint32_t tag,
                                           std::shared_ptr<const PTPayload> payload) override {
    std::lock_guard lock(mutex_);
    OX_FUZZ_CHECK(!payload || !payload->empty());  // size 0 comes as no payload
    frames_.push_back({type, tag, payload ? *payload : PTPayload{}});
  }
  bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t type,
                                             uint32_t, uint32_t) override {
    return !(skipOdd_ && type % 2 == 1);
  }
  void ioFrameChannelDidEndWithError(const std::shared_ptr<PTChannel>&,
                                     const OptionalError& error) override {
    std::lock_guard lock(mutex_);
    OX_FUZZ_CHECK(!ended_);
    ended_ = true;
    error_ = error;
    ended.notify_all();
  }
  uint8_t ptChannelDelegateOptionalOps() const override {
    return kPTDelegateDidEndWithError | (skipOdd_ ? kPTDelegateShouldAcceptFrame : 0);
  }

  // Waits for the end; false when it does not come in time (a hang).
  bool waitForEnd() {
    std::unique_lock lock(mutex_);
    return ended.wait_for(lock, std::chrono::seconds(20), [&] { return ended_; });
  }
  std::vector<Frame> frames() {
    std::lock_guard lock(mutex_);
    return frames_;
  }
  bool endedWithError() {
    std::lock_guard lock(mutex_);
    return error_.has_value();
  }

 private:
  const bool skipOdd_;
  std::mutex mutex_;
  std::condition_variable ended;
  std::vector<Frame> frames_;
  bool ended_ = false;
  OptionalError error_;
};

// Writes everything, in pieces, then closes: the reader sees the end.
void writeAndClose(int fd, const fuzz::PiecedInput& in) {
  in.forEachPiece([&](fuzz::ByteSpan piece) {
    size_t done = 0;
    while (done < piece.size()) {
      ssize_t n = ::send(fd, piece.data() + done, piece.size() - done, MSG_NOSIGNAL);
      if (n <= 0) return;
      done += size_t(n);
    }
  });
  ::close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto protocol = PTProtocol::sharedProtocolForQueue(Queue::create("fuzz.channel"));
  const auto in = fuzz::PiecedInput::of(data, size);
  // The peer writes on a thread of its own while the channel reads.
  int fds[2];
  OX_FUZZ_CHECK(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
  std::thread peer([&] { writeAndClose(fds[1], in); });

  auto recorder = std::make_shared<Recorder>(in.flag);
  auto channel = PTChannel::create(protocol, recorder);
  OptionalError error;
  auto stream = PTIOStream::create(fds[0], protocol->queue(), &error);
  OX_FUZZ_CHECK(stream);
  OX_FUZZ_CHECK(channel->startReadingFromConnectedChannel(stream, &error));
  stream.reset();
  OX_FUZZ_CHECK(recorder->waitForEnd());
  peer.join();

  bool endsWithError = false;
  auto expected = expectedFrames(in.bytes, in.flag, endsWithError);
  OX_FUZZ_CHECK(recorder->frames() == expected);
  OX_FUZZ_CHECK(recorder->endedWithError() == endsWithError);
  channel.reset();
  return 0;
}
