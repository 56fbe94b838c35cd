#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/host/StreamChecker.h"
#include "wire/HandshakePackets.h"

namespace oxelo::host {

// A packet for the phone. A TCP carrier writes `bytes` as they are; the USB
// carrier sends them as the payload of one frame of `frameType` and
// `frameTag`.
struct OutgoingPacket {
  uint32_t frameType = handshake::kUsbFrameType;
  uint32_t frameTag = 0;
  std::vector<uint8_t> bytes;
};

// What the host has seen and done of the greeting.
struct HandshakeSeen {
  bool helloLong = false;
  bool helloShort = false;
  bool hostInfoSent = false;
  bool settingsSent = false;
  bool startSent = false;
  std::optional<handshake::VideoSettings> settingsAnswer;
};

// The host's side of the greeting on one connection, apart from any socket:
// fed the phone's bytes, it queues the packets to send back and notes every
// fault it sees.
//
// The phone says hello twice (a 16-byte long form, then a 4-byte short form);
// once both are in, the host sends its information (command 16), the video
// settings (19) when it has some, and the start (17) unless told not to. The
// phone then answers with the 48 bytes of the settings in force, and the
// stream follows, which the session's StreamChecker reads. Over TCP the bytes
// come as a stream cut anywhere; over USB each frame carries one packet, whose
// frame type and tag are checked too. The host's commands go out on the same
// carrier once the stream runs.
//
// Single-threaded: the owner calls everything from one thread.
class HostSession {
 public:
  struct Config {
    std::string name;      // announced in the host information
    uint32_t port = 5895;  // announced in the host information
    std::optional<handshake::VideoSettings> settings;
    bool sendStart = true;
  };

  explicit HostSession(Config config);
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  // Bytes of the phone's TCP stream, in order of arrival, in pieces of any
  // size.
  void receiveBytes(std::span<const uint8_t> bytes);
  // One frame of the USB channel other than the end of the stream. An empty
  // payload is ignored.
  void receiveFrame(uint32_t type, uint32_t tag, std::span<const uint8_t> payload);
  // The phone ended the connection: notes what was missing by then.
  void phoneEnded();
  // The host ends the connection (its duration ran out): notes what was
  // missing by then.
  void hostEnded();
  // A fault seen by the carrier or the connection (a failed write, a broken
  // frame header); kept in order with the session's own.
  void addError(std::string text);

  // Queues a command for the phone: 8 to 16 bytes by command, in a USB frame
  // of type 88 and tag 8800 + command. Status blocks read from now on count
  // it among the commands before them.
  void queueCommand(uint32_t command, int32_t p1, int32_t p2);
  // The greeting is over as far as the host is concerned: its packets have
  // gone and, when it sent the start, the phone has answered.
  bool readyForCommands() const;

  // The packets to send, in order; the queue is emptied.
  std::vector<OutgoingPacket> takeOutgoing();

  // Both hellos in, the host's packets sent and, when the start was sent, the
  // settings answer read.
  bool handshakeComplete() const;
  const HandshakeSeen& seen() const { return seen_; }
  const std::vector<std::string>& errors() const { return errors_; }
  // What came behind the settings answer.
  const StreamChecker& stream() const { return stream_; }
  // Where the stream's media go as they are read (a recorder); not owned.
  void setMediaSink(MediaSink* sink) { stream_.setMediaSink(sink); }

 private:
  enum class State {
    awaitingHello,   // before both hello forms
    awaitingAnswer,  // the start has gone; the settings answer is due
    quiet,           // no start was sent: the phone has nothing more to say
    streaming,       // behind the settings answer
    lost,            // bytes that could not be understood; the rest is dropped
  };
  struct FrameInfo {
    uint32_t type = 0;
    uint32_t tag = 0;
    int packets = 0;
  };

  void parse();
  // The handshake packet at the start of `bytes`: its length once it is all
  // there, 0 while more bytes are needed.
  size_t takeHandshakePacket(std::span<const uint8_t> bytes);
  void onHelloLong(std::span<const uint8_t> packet);
  void onHelloShort(std::span<const uint8_t> packet);
  void onSettingsAnswer(std::span<const uint8_t> packet);
  void sendOpening();
  void checkFrame(const std::string& what, uint32_t type, uint32_t tag);
  void lose(std::string text);
  std::string missingStep() const;

  Config config_;
  State state_ = State::awaitingHello;
  HandshakeSeen seen_;
  std::vector<uint8_t> buffer_;  // received, not yet understood
  std::vector<OutgoingPacket> outgoing_;
  std::vector<std::string> errors_;
  std::optional<FrameInfo> frame_;  // the USB frame being read
  StreamChecker stream_;
  bool ended_ = false;
};

}  // namespace oxelo::host
