#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "wire/CarrierMapping.h"
#include "wire/CommandPackets.h"
#include "wire/InfoPacket.h"
#include "wire/MediaPackets.h"
#include "wire/TailBlocks.h"

namespace oxelo::host {

// How many records of each kind the phone sent.
struct StreamCounts {
  uint64_t packets = 0;  // every record but the tail blocks
  uint64_t infoPackets = 0;
  uint64_t videoSequenceHeaders = 0;
  uint64_t keyFrames = 0;
  uint64_t interFrames = 0;
  uint64_t audioSequenceHeaders = 0;
  uint64_t audioFrames = 0;
  uint64_t statusBlocks = 0;
  uint64_t capabilityBlocks = 0;
  uint64_t phoneCommands = 0;  // requests to record or take a snapshot
  uint64_t stopNotices = 0;
};

// Receives the media of a stream as the checker reads it, in stream order:
// what a recorder needs to write the stream to a file. Only records that
// parse are passed on.
class MediaSink {
 public:
  virtual ~MediaSink() = default;
  virtual void streamInfo(const wire::InfoPacket& /*info*/) {}
  virtual void videoSequenceHeader(const wire::VideoSequenceHeader& /*header*/,
                                   wire::VideoCodec /*codec*/) {}
  // `data`: the sample's units, each behind a 4-byte big-endian length.
  virtual void videoFrame(uint32_t /*timestamp*/, bool /*key*/, std::span<const uint8_t> /*data*/) {
  }
  virtual void audioSequenceHeader(std::span<const uint8_t> /*config*/) {}
  virtual void audioFrame(uint32_t /*timestamp*/, std::span<const uint8_t> /*frame*/) {}
};

// A status block as it arrived, with how many host commands had gone out
// before it: the block a command asked for is the first one behind it.
struct StatusArrival {
  uint64_t commandsBefore = 0;
  wire::StatusBlock status;
};

// One record cut from the stream, for the carrier checks of the session.
struct StreamRecord {
  size_t length = 0;                    // 0: the record is not all there yet
  std::string name;                     // "info", "key_frame", ... (see packetName)
  std::optional<wire::UsbRoute> route;  // the USB frame it must travel in
};

// Reads the stream that follows the greeting, record by record, and checks
// it: every record must parse, and the order rules hold:
//  - the info packet comes first, once;
//  - the video sequence header comes before the first video frame, once per
//    connection, with timestamp 0, and carries a capability block;
//  - the first video frame is a key frame; video timestamps never go back;
//  - the audio sequence header comes before the first audio frame, once,
//    with timestamp 0, and no audio comes when the info packet announces
//    none;
//  - a tail block only rides behind a key frame or a video sequence header.
// Decoding is left to the transport's parsers. Faults go to the error sink
// as they are seen; the order faults are also kept on their own.
// Single-threaded, owned by the session.
class StreamChecker {
 public:
  using ErrorSink = std::function<void(std::string)>;
  static constexpr size_t kFirstPacketsKept = 12;
  static constexpr size_t kStatusBlocksKept = 256;  // the first ones; a long run sends more

  explicit StreamChecker(ErrorSink sink);

  // The encoder of the settings in force (0 H.264, 1 HEVC), used to read
  // the video sequence header when no info packet told it.
  void setEncoderHint(uint32_t encoder) { encoderHint_ = encoder; }
  // Where the media go as they are read; null for nowhere. Not owned.
  void setMediaSink(MediaSink* sink) { mediaSink_ = sink; }

  // Takes the record at the start of `bytes`, which is not empty. `framed`:
  // the bytes came over USB. Once the stream is broken every byte is taken
  // and dropped.
  StreamRecord take(std::span<const uint8_t> bytes, bool framed);
  // The connection has ended: notes a capability block still due.
  void finish();
  // A host command has gone out: status blocks from now on come after it.
  void noteHostCommand() { ++hostCommands_; }

  const std::optional<wire::InfoPacket>& info() const { return info_; }
  const StreamCounts& counts() const { return counts_; }
  const std::vector<std::string>& firstPackets() const { return firstPackets_; }
  const std::optional<wire::StatusBlock>& lastStatus() const { return lastStatus_; }
  // The first kStatusBlocksKept status blocks that read, in arrival order.
  const std::vector<StatusArrival>& statusBlocks() const { return statusBlocks_; }
  const std::optional<wire::CapabilityBlock>& lastCapability() const { return lastCapability_; }
  const std::vector<wire::PhoneCommand>& phoneCommands() const { return phoneCommands_; }
  const std::vector<std::string>& orderErrors() const { return orderErrors_; }
  bool broken() const { return broken_; }

 private:
  void takeInfo(std::span<const uint8_t> record, StreamRecord& out);
  void takeVideo(std::span<const uint8_t> record, StreamRecord& out);
  void takeAudio(std::span<const uint8_t> record, StreamRecord& out);
  void takeTail(std::span<const uint8_t> record, StreamRecord& out);
  void takeCommand(std::span<const uint8_t> record, bool framed, StreamRecord& out);
  void formatError(std::string text);
  void orderError(std::string text);

  ErrorSink sink_;
  MediaSink* mediaSink_ = nullptr;
  uint32_t encoderHint_ = 0;
  std::optional<wire::InfoPacket> info_;
  StreamCounts counts_;
  std::vector<std::string> firstPackets_;
  std::optional<wire::StatusBlock> lastStatus_;
  std::vector<StatusArrival> statusBlocks_;
  uint64_t hostCommands_ = 0;
  std::optional<wire::CapabilityBlock> lastCapability_;
  std::vector<wire::PhoneCommand> phoneCommands_;
  std::vector<std::string> orderErrors_;
  bool broken_ = false;
  bool tailAllowed_ = false;    // the last record was a key frame or a sequence header
  bool capabilityDue_ = false;  // behind the first video sequence header
  std::optional<uint32_t> lastVideoTimestamp_;
};

}  // namespace oxelo::host
