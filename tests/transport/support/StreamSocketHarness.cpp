#include "tests/transport/support/StreamSocketHarness.h"

#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "tests/support/WireVectors.h"

namespace oxelo::test {

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

std::shared_ptr<LFLiveStreamInfo> loopbackStreamInfo(uint16_t port) {
  auto info = makeStreamInfo();
  info->host = "127.0.0.1";
  info->port = port;
  return info;
}

LoopbackConnection connectLoopback(Queue& main) {
  // The greeting's delegate, until the socket becomes a carrier.
  auto greeter = std::make_shared<Recorder>();
  auto c = connectPair(greeter, MainQueue::get());
  EXPECT_TRUE(pumpUntil(main, [&] { return greeter->count(SocketEvent::connected) == 1; }));
  return {c.sock ? TcpCarrier::adopt(c.sock) : nullptr, std::move(c.peer)};
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
