#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "channels/TcpCarrier.h"
#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"
#include "platform/camera/CameraSystem.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/PlainStatusSource.h"
#include "tests/support/SocketTestSupport.h"
#include "tests/support/WireVectors.h"
#include "transport/OXLiveSession.h"
#include "transport/OXStreamSocket.h"
#include "wire/TailBlocks.h"

namespace oxelo::test {

// Plays the live session for a stream socket: records every report and
// offers the flags and block values the socket reads.
class RecordingSession final : public LFStreamSocketDelegate {
 public:
  explicit RecordingSession(StreamStatusValues values = {}) : source_(std::move(values)) {}

  void socketBufferStatus(LFStreamSocket*, BufferVerdict v) override { add(verdicts_, v); }
  void socketStatus(LFStreamSocket*, LiveStreamState status) override {
    add(states_, status);
    if (status == LiveStreamState::Connecting) add(connectingTimes_, mediaTime());
  }
  void socketDidError(LFStreamSocket*, LiveStreamError e) override { add(errors_, e); }
  void socketDebug(LFStreamSocket*, const LFLiveDebug&) override { ++debugReports_; }
  bool deviceChanged() const override { return deviceChanged_; }
  void setDeviceChanged(bool changed) override { deviceChanged_ = changed; }
  const StreamStatusSource* statusSource() const override { return &source_; }
  void socketClientCommand(LFStreamSocket*, const wire::HostCommandRecord& command) override {
    add(commands_, command.command);
  }

  std::vector<LiveStreamState> states() const { return copy(states_); }
  std::vector<LiveStreamError> errors() const { return copy(errors_); }
  std::vector<BufferVerdict> verdicts() const { return copy(verdicts_); }
  std::vector<uint32_t> forwardedCommands() const { return copy(commands_); }
  size_t debugReports() const { return debugReports_; }
  // The clock's time of each report of state Connecting.
  std::vector<double> connectingTimes() const { return copy(connectingTimes_); }

 private:
  template <class T>
  std::vector<T> copy(const std::vector<T>& list) const {
    std::lock_guard lock(mutex_);
    return list;
  }
  template <class T>
  void add(std::vector<T>& list, T value) {
    std::lock_guard lock(mutex_);
    list.push_back(value);
  }
  PlainStatusSource source_;
  std::atomic<bool> deviceChanged_{true};
  std::atomic<size_t> debugReports_{0};
  mutable std::mutex mutex_;
  std::vector<LiveStreamState> states_;
  std::vector<double> connectingTimes_;
  std::vector<LiveStreamError> errors_;
  std::vector<BufferVerdict> verdicts_;
  std::vector<uint32_t> commands_;
};

// A stream info with a 1280x720 configuration at `fps`, and the settings store the info packet
// reads (a fresh one in a temporary directory, with `audioFormat` as given and H.264).
struct StreamFixtureSettings {
  TempDir dir;
  std::shared_ptr<UserDefaults> defaults;
  explicit StreamFixtureSettings(long long audioFormat = 1);
  ~StreamFixtureSettings();
};
std::shared_ptr<LFLiveStreamInfo> makeStreamInfo(uint64_t fps = 30);
// That stream, opening its own connection to 127.0.0.1:`port`.
std::shared_ptr<LFLiveStreamInfo> loopbackStreamInfo(uint16_t port);

// A TCP connection on loopback: the phone's GCDAsyncSocket (delegate queue: the main queue) in the
// carrier that the main screen hands over, and the host's plain socket.
struct LoopbackConnection {
  std::shared_ptr<TcpCarrier> carrier;
  Fd host;
};
// Connects, running `main` until the phone side has heard of the connection.
LoopbackConnection connectLoopback(Queue& main);

// Runs both driven queues until `done` holds or `seconds` of real time pass.
inline bool pumpBoth(Queue& main, Queue& send, const std::function<bool()>& done,
                     double seconds = 5.0) {
  return waitUntil(done, seconds, [&] {
    send.runPending();
    main.runPending();
  });
}

// A socket test's world: the settings store, the manual main queue and a driven send queue, the
// recording session, and the socket made with them (stopped at the end).
class StreamSocketFixture : public testing::Test {
 protected:
  void TearDown() override {
    if (socket_) socket_->stop();
    pump([] { return false; }, 0.05);
  }
  std::shared_ptr<OXStreamSocket> makeSocket(std::shared_ptr<LFLiveStreamInfo> info,
                                             std::shared_ptr<AppLifecycle> lifecycle = nullptr) {
    StreamSocketEnvironment environment;
    environment.sendQueue = send_;
    environment.lifecycle = std::move(lifecycle);
    socket_ = OXStreamSocket::create(std::move(info), 0, 0, environment);
    socket_->setDelegate(session_);
    return socket_;
  }
  bool pump(const std::function<bool()>& done, double seconds = 5.0) {
    return pumpBoth(main_.main(), *send_, done, seconds);
  }
  // Every frame handed in has left the buffer and been written.
  bool sent() {
    return pump([&] { return socket_->buffer()->listCount() == 0 && !socket_->isSending(); });
  }

  StreamFixtureSettings settings_{/*audioFormat=*/0};
  ManualMain main_;
  std::shared_ptr<Queue> send_ = Queue::createDriven("send", main_.clockPtr());
  std::shared_ptr<RecordingSession> session_ = std::make_shared<RecordingSession>(statusValues());
  std::shared_ptr<OXStreamSocket> socket_;
};

// Plays the live view for a session: records its reports and the host's requests.
struct RecordingView final : OXLiveSessionDelegate {
  void liveSessionLiveStateDidChange(OXLiveSession*, LiveStreamState state) override {
    states.push_back(state);
  }
  void liveSessionErrorCode(OXLiveSession*, LiveStreamError e) override { errors.push_back(e); }
  void liveSessionDebugInfo(OXLiveSession*, const LFLiveDebug&) override { ++debugInfos; }
  void liveSessionClientSetFocusPoint(OXLiveSession*, double x, double y) override {
    focus = {x, y};
  }
  void liveSessionClientSetAutoStatusForItem(OXLiveSession*, int64_t item) override {
    items.push_back(item);
  }
  std::vector<LiveStreamState> states;
  std::vector<LiveStreamError> errors;
  int debugInfos = 0;
  std::pair<double, double> focus{-1, -1};
  std::vector<int64_t> items;  // panel items to bring up to date
};

// A live session's world: the settings store, the manual main queue and a driven send queue.
class LiveSessionFixture : public testing::Test {
 protected:
  void TearDown() override {
    if (session_) session_->stopLive();
    send_->runPending();
    main_.drain();
    CameraSystem::setCurrent(nullptr);
  }
  // A session of `captureType` with `environment` and `send_`, telling `view`.
  std::shared_ptr<OXLiveSession> createSession(int64_t captureType,
                                               std::shared_ptr<OXLiveSessionDelegate> view,
                                               LiveSessionEnvironment environment = {}) {
    auto info = makeStreamInfo();
    environment.socket.sendQueue = send_;
    session_ = OXLiveSession::create(info->audioConfiguration, info->videoConfiguration,
                                     captureType, environment);
    session_->setDelegate(view);
    return session_;
  }
  // The blocks behind the next key frame, as the host reads them.
  wire::StatusBlock statusBlock() {
    auto block = wire::parseStatusBlock(wire::buildStatusBlock(*session_->statusSource()));
    EXPECT_TRUE(block.ok());
    return block.ok() ? *block : wire::StatusBlock{};
  }
  wire::CapabilityBlock capabilityBlock() {
    auto block = wire::parseCapabilityBlock(wire::buildCapabilityBlock(*session_->statusSource()));
    EXPECT_TRUE(block.ok());
    return block.ok() ? *block : wire::CapabilityBlock{};
  }

  StreamFixtureSettings settings_;
  ManualMain main_;
  std::shared_ptr<Queue> send_ = Queue::createDriven("send", main_.clockPtr());
  std::shared_ptr<OXLiveSession> session_;
};

// A video frame with the test vectors' parameter sets (H.264).
std::shared_ptr<LFVideoFrame> videoFrame(uint64_t timestamp, bool key, Bytes data);
std::shared_ptr<LFAudioFrame> audioFrame(uint64_t timestamp, Bytes data);

}  // namespace oxelo::test
