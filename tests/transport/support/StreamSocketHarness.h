#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "channels/TcpCarrier.h"
#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/PlainStatusSource.h"
#include "tests/support/SocketTestSupport.h"
#include "transport/OXStreamSocket.h"

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

// A video frame with the test vectors' parameter sets (H.264).
std::shared_ptr<LFVideoFrame> videoFrame(uint64_t timestamp, bool key, Bytes data);
std::shared_ptr<LFAudioFrame> audioFrame(uint64_t timestamp, Bytes data);

}  // namespace oxelo::test
