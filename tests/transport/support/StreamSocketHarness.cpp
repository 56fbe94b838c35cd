#include "tests/transport/support/StreamSocketHarness.h"

#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "tests/support/WireVectors.h"

namespace oxelo::test {

void RecordingSession::socketBufferStatus(LFStreamSocket*, BufferVerdict status) {
  std::lock_guard lock(mutex_);
  verdicts_.push_back(status);
}

void RecordingSession::socketStatus(LFStreamSocket*, LiveStreamState status) {
  std::lock_guard lock(mutex_);
  states_.push_back(status);
  if (status == LiveStreamState::Connecting) connectingTimes_.push_back(mediaTime());
}

void RecordingSession::socketDidError(LFStreamSocket*, LiveStreamError errorCode) {
  std::lock_guard lock(mutex_);
  errors_.push_back(errorCode);
}

void RecordingSession::socketDebug(LFStreamSocket*, const LFLiveDebug&) {
  std::lock_guard lock(mutex_);
  ++debugReports_;
}

void RecordingSession::socketClientCommand(LFStreamSocket*,
                                           const wire::HostCommandRecord& command) {
  std::lock_guard lock(mutex_);
  commands_.push_back(command.command);
}

std::vector<LiveStreamState> RecordingSession::states() const {
  std::lock_guard lock(mutex_);
  return states_;
}
std::vector<LiveStreamError> RecordingSession::errors() const {
  std::lock_guard lock(mutex_);
  return errors_;
}
std::vector<BufferVerdict> RecordingSession::verdicts() const {
  std::lock_guard lock(mutex_);
  return verdicts_;
}
std::vector<uint32_t> RecordingSession::forwardedCommands() const {
  std::lock_guard lock(mutex_);
  return commands_;
}
size_t RecordingSession::debugReports() const {
  std::lock_guard lock(mutex_);
  return debugReports_;
}
std::vector<double> RecordingSession::connectingTimes() const {
  std::lock_guard lock(mutex_);
  return connectingTimes_;
}

StreamFixtureSettings::StreamFixtureSettings(long long audioFormat)
    : defaults(std::make_shared<UserDefaults>(dir.path())) {
  defaults->setInteger(keys::audioFormat, audioFormat);
  defaults->setInteger(keys::videoEncoder, 0);
  UserDefaults::setStandard(defaults);
}

StreamFixtureSettings::~StreamFixtureSettings() { UserDefaults::setStandard(nullptr); }

std::shared_ptr<LFLiveStreamInfo> makeStreamInfo(uint64_t fps) {
  auto info = std::make_shared<LFLiveStreamInfo>();
  auto video = LFLiveVideoConfiguration::defaultConfigurationForQuality(1);
  video->setVideoSize({1280, 720});
  video->setVideoFrameRate(fps);
  video->setVideoBitRate(2000000);
  info->videoConfiguration = video;
  info->audioConfiguration = LFLiveAudioConfiguration::defaultConfigurationForQuality(1);
  return info;
}

LoopbackConnection connectLoopback(Queue& main) {
  LoopbackConnection c;
  uint16_t port = 0;
  Fd listener = peer::listen(port);
  c.greeter = std::make_shared<Recorder>();
  c.phone = GCDAsyncSocket::create(c.greeter, MainQueue::get());
  OptionalError error;
  EXPECT_TRUE(c.phone->connectToHost("127.0.0.1", port, -1, error));
  c.host = peer::accept(listener);
  EXPECT_TRUE(pumpUntil(main, [&] { return c.greeter->count(SocketEvent::connected) == 1; }));
  c.carrier = TcpCarrier::adopt(c.phone);
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

void UsbLoopback::ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>&,
                                                    const std::shared_ptr<PTChannel>& channel,
                                                    const PTAddress&) {
  carrier = UsbCarrier::adopt(channel);
}

namespace {
uint32_t bigEndian32(const Bytes& bytes, size_t at) {
  return uint32_t(bytes[at]) << 24 | uint32_t(bytes[at + 1]) << 16 | uint32_t(bytes[at + 2]) << 8 |
         uint32_t(bytes[at + 3]);
}
void appendBigEndian32(Bytes& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}
}  // namespace

std::vector<HostFrame> receiveFrames(const Fd& fd, size_t count, double seconds) {
  std::vector<HostFrame> frames;
  for (size_t i = 0; i < count; ++i) {
    Bytes head = peer::receive(fd, 16, seconds);
    if (head.size() < 16) break;
    HostFrame frame{bigEndian32(head, 4), bigEndian32(head, 8), {}};
    uint32_t size = bigEndian32(head, 12);
    if (size > 0) frame.payload = peer::receive(fd, size, seconds);
    frames.push_back(std::move(frame));
  }
  return frames;
}

Bytes hostFrame(uint32_t type, uint32_t tag, const Bytes& payload) {
  Bytes out;
  for (uint32_t word : {1u, type, tag, static_cast<uint32_t>(payload.size())})
    appendBigEndian32(out, word);
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

bool pumpBoth(Queue& main, Queue& send, const std::function<bool()>& done, double seconds) {
  return pumpUntil(
      main,
      [&] {
        send.runPending();
        main.runPending();
        return done();
      },
      seconds);
}

std::shared_ptr<LFVideoFrame> videoFrame(uint64_t timestamp, bool key, Bytes data) {
  auto frame = std::make_shared<LFVideoFrame>();
  frame->timestamp = timestamp;
  frame->isKeyFrame = key;
  frame->data = std::move(data);
  frame->sps = std::make_shared<const Bytes>(h264Sps());
  frame->pps = std::make_shared<const Bytes>(h264Pps());
  return frame;
}

std::shared_ptr<LFAudioFrame> audioFrame(uint64_t timestamp, Bytes data) {
  auto frame = std::make_shared<LFAudioFrame>();
  frame->timestamp = timestamp;
  frame->data = std::move(data);
  frame->audioInfo = std::make_shared<const Bytes>(audioInfo());
  return frame;
}

}  // namespace oxelo::test
