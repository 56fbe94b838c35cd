#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "channels/TcpCarrier.h"
#include "channels/UsbCarrier.h"
#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/PlainStatusSource.h"
#include "tests/support/SocketTestSupport.h"
#include "tests/support/TestSupport.h"
#include "transport/OXStreamSocket.h"

namespace oxelo::test {

// Plays the live session for a stream socket: records every report and
// offers the flags and block values the socket reads.
class RecordingSession final : public LFStreamSocketDelegate {
 public:
  explicit RecordingSession(StreamStatusValues values = {}) : source_(std::move(values)) {}

  void socketBufferStatus(LFStreamSocket*, BufferVerdict status) override;
  void socketStatus(LFStreamSocket*, LiveStreamState status) override;
  void socketDidError(LFStreamSocket*, LiveStreamError errorCode) override;
  void socketDebug(LFStreamSocket*, const LFLiveDebug& info) override;
  bool deviceChanged() const override { return deviceChanged_; }
  void setDeviceChanged(bool changed) override { deviceChanged_ = changed; }
  const StreamStatusSource* statusSource() const override { return &source_; }
  void socketClientCommand(LFStreamSocket*, const wire::HostCommandRecord& command) override;

  std::vector<LiveStreamState> states() const;
  std::vector<LiveStreamError> errors() const;
  std::vector<BufferVerdict> verdicts() const;
  std::vector<uint32_t> forwardedCommands() const;
  size_t debugReports() const;
  // The clock's time of each report of state Connecting.
  std::vector<double> connectingTimes() const;

 private:
  PlainStatusSource source_;
  std::atomic<bool> deviceChanged_{true};
  mutable std::mutex mutex_;
  std::vector<LiveStreamState> states_;
  std::vector<double> connectingTimes_;
  std::vector<LiveStreamError> errors_;
  std::vector<BufferVerdict> verdicts_;
  std::vector<uint32_t> commands_;
  size_t debugReports_ = 0;
};

// A stream info with a 1280x720 configuration at `fps`, and the settings
// store the info packet reads (a fresh one in a temporary directory, with
// `audioFormat` as given and H.264).
struct StreamFixtureSettings {
  TempDir dir;
  std::shared_ptr<UserDefaults> defaults;
  explicit StreamFixtureSettings(long long audioFormat = 1);
  ~StreamFixtureSettings();
};
std::shared_ptr<LFLiveStreamInfo> makeStreamInfo(uint64_t fps = 30);

// A TCP connection on loopback: the phone's GCDAsyncSocket (delegate queue:
// the main queue) in the carrier that the main screen hands over, and the
// host's plain socket.
struct LoopbackConnection {
  std::shared_ptr<GCDAsyncSocket> phone;
  std::shared_ptr<TcpCarrier> carrier;
  Fd host;
  std::shared_ptr<Recorder> greeter;  // the phone socket's delegate until it became a carrier
};
// Connects, running `main` until the phone side reports the connection.
LoopbackConnection connectLoopback(Queue& main);

// A framed channel on loopback as the USB listener accepts it: the phone's
// channel in its carrier, and the host's plain socket (the forwarder's end).
class UsbLoopback final : public PTChannelDelegate {
 public:
  ~UsbLoopback() override;
  // Listens on a free loopback port, connects the host and runs `main`
  // until the phone side has the channel.
  static std::shared_ptr<UsbLoopback> connect(Queue& main);

  std::shared_ptr<UsbCarrier> carrier;
  Fd host;

  void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<PTChannel>&, uint32_t, uint32_t,
                                           std::shared_ptr<const PTPayload>) override {}
  void ioFrameChannelDidAcceptConnection(const std::shared_ptr<PTChannel>&,
                                         const std::shared_ptr<PTChannel>& channel,
                                         const PTAddress&) override;
  uint8_t ptChannelDelegateOptionalOps() const override { return kPTDelegateDidAcceptConnection; }

 private:
  std::shared_ptr<PTChannel> listener_;
};

// One frame of the framed channel as the host reads it.
struct HostFrame {
  uint32_t type = 0;
  uint32_t tag = 0;
  Bytes payload;
};
// Reads `count` whole frames (16-byte big-endian head, then the payload).
std::vector<HostFrame> receiveFrames(const Fd& fd, size_t count, double seconds = 5.0);
// A frame as the host writes it: version 1, type, tag, size, payload.
Bytes hostFrame(uint32_t type, uint32_t tag, const Bytes& payload);

// Runs both driven queues until `done` holds or `seconds` of real time pass.
bool pumpBoth(Queue& main, Queue& send, const std::function<bool()>& done, double seconds = 5.0);

// A video frame with the test vectors' parameter sets (H.264).
std::shared_ptr<LFVideoFrame> videoFrame(uint64_t timestamp, bool key, Bytes data);
std::shared_ptr<LFAudioFrame> audioFrame(uint64_t timestamp, Bytes data);

}  // namespace oxelo::test
