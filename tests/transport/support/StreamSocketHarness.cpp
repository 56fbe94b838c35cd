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
  return c;
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
