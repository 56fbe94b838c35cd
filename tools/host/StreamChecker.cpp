#include "tools/host/StreamChecker.h"

#include <fmt/format.h>

#include "wire/MediaPackets.h"
#include "wire/WireConstants.h"
#include "wire/WireStream.h"

namespace oxelo::host {

namespace {

constexpr size_t kAudioConfigSize = 2;

std::string readFault(const char* what, wire::WireError error) {
  return fmt::format("{} does not read: {}", what, wire::wireErrorText(error));
}

}  // namespace

StreamChecker::StreamChecker(ErrorSink sink) : sink_(std::move(sink)) {}

StreamRecord StreamChecker::take(std::span<const uint8_t> bytes, bool framed) {
  StreamRecord out;
  if (broken_) {
    out.length = bytes.size();
    return out;
  }
  auto span = wire::nextRecord(bytes);
  if (!span) {
    if (span.error() == wire::WireError::Truncated) return out;
    const uint32_t first = bytes.size() >= 4 ? wire::WireReader(bytes).u32LE(0) : 0;
    formatError(fmt::format("the stream broke at a record with first word {}: {}", first,
                            wire::wireErrorText(span.error())));
    broken_ = true;
    out.length = bytes.size();
    return out;
  }
  out.length = span->length;
  const auto record = bytes.first(span->length);
  const bool wasTailAllowed = tailAllowed_;
  const bool capabilityWasDue = capabilityDue_;
  tailAllowed_ = false;
  switch (span->type) {
    case wire::kPacketTypeInfo:
      takeInfo(record, out);
      break;
    case wire::kPacketTypeVideo:
      takeVideo(record, out);
      break;
    case wire::kPacketTypeAudio:
      takeAudio(record, out);
      break;
    case wire::kPacketTypeTail:
      if (!wasTailAllowed) {
        orderError(
            "a tail block behind a packet that is neither a key frame nor a sequence "
            "header");
      }
      takeTail(record, out);
      break;
    default:
      takeCommand(record, framed, out);
      break;
  }
  if (capabilityWasDue) {
    capabilityDue_ = false;
    if (out.name != "capability_block") {
      orderError("the first video sequence header carries no capability block");
    }
  }
  if (span->type != wire::kPacketTypeTail) {
    if (counts_.packets == 0 && span->type != wire::kPacketTypeInfo) {
      orderError(fmt::format("the first packet is a {}, not the info packet", out.name));
    }
    ++counts_.packets;
  }
  if (firstPackets_.size() < kFirstPacketsKept) firstPackets_.push_back(out.name);
  return out;
}

void StreamChecker::finish() {
  if (capabilityDue_) orderError("the first video sequence header carries no capability block");
  capabilityDue_ = false;
}

void StreamChecker::takeInfo(std::span<const uint8_t> record, StreamRecord& out) {
  out.name = "info";
  out.route = wire::usbRoute(wire::WireContent::Info);
  if (++counts_.infoPackets > 1) orderError("a second info packet");
  auto info = wire::parseInfoPacket(record);
  if (!info) {
    formatError(readFault("the info packet", info.error()));
    return;
  }
  if (info_) return;
  info_ = *info;
  if (mediaSink_) mediaSink_->streamInfo(*info_);
}

void StreamChecker::takeVideo(std::span<const uint8_t> record, StreamRecord& out) {
  const auto header = wire::parsePacketHeader(record);
  const auto body = record.subspan(wire::kCommonHeaderSize);
  out.route = wire::usbRoute(wire::WireContent::Video, header->timestamp);
  const auto kind = wire::videoBodyKind(body);
  if (!kind) {
    out.name = "video_packet";
    formatError(readFault("a video packet", kind.error()));
    return;
  }
  if (*kind == wire::VideoBodyKind::SequenceHeader) {
    out.name = "video_sequence_header";
    tailAllowed_ = true;
    if (++counts_.videoSequenceHeaders > 1) {
      orderError("a second video sequence header on the connection");
    } else {
      capabilityDue_ = true;
    }
    if (header->timestamp != 0) {
      orderError(fmt::format("a video sequence header with timestamp {}", header->timestamp));
    }
    const uint32_t encoder = info_ ? info_->videoEncoder : encoderHint_;
    const auto codec = encoder == 1 ? wire::VideoCodec::HEVC : wire::VideoCodec::H264;
    auto parsed = wire::parseVideoSequenceHeader(body, codec);
    if (!parsed) {
      formatError(readFault("the video sequence header", parsed.error()));
      return;
    }
    if (mediaSink_ && counts_.videoSequenceHeaders == 1)
      mediaSink_->videoSequenceHeader(*parsed, codec);
    return;
  }
  const bool key = *kind == wire::VideoBodyKind::KeyFrame;
  out.name = key ? "key_frame" : "inter_frame";
  tailAllowed_ = key;
  ++(key ? counts_.keyFrames : counts_.interFrames);
  if (counts_.videoSequenceHeaders == 0) {
    orderError("a video frame before the video sequence header");
  }
  if (!key && counts_.keyFrames == 0) orderError("an inter frame before the first key frame");
  if (lastVideoTimestamp_ && header->timestamp < *lastVideoTimestamp_) {
    orderError(fmt::format("the video timestamp went back from {} to {}", *lastVideoTimestamp_,
                           header->timestamp));
  }
  lastVideoTimestamp_ = header->timestamp;
  auto frame = wire::parseVideoFrameBody(body);
  if (!frame) {
    formatError(readFault("a video frame", frame.error()));
    return;
  }
  if (auto units = wire::splitLengthPrefixedUnits(frame->data); !units || units->empty()) {
    formatError("a video frame whose units do not add up to its data");
    return;
  }
  if (mediaSink_) mediaSink_->videoFrame(header->timestamp, key, frame->data);
}

void StreamChecker::takeAudio(std::span<const uint8_t> record, StreamRecord& out) {
  const auto header = wire::parsePacketHeader(record);
  out.route = wire::usbRoute(wire::WireContent::Audio);
  const auto body = wire::parseAudioBody(record.subspan(wire::kCommonHeaderSize));
  if (!body) {
    out.name = "audio_packet";
    formatError(readFault("an audio packet", body.error()));
    return;
  }
  if (info_ && info_->audioChannels == 0 &&
      counts_.audioSequenceHeaders + counts_.audioFrames == 0) {
    orderError("audio although the info packet announces none");
  }
  if (body->isSequenceHeader) {
    out.name = "audio_sequence_header";
    if (++counts_.audioSequenceHeaders > 1) orderError("a second audio sequence header");
    if (counts_.audioFrames > 0) orderError("an audio sequence header behind audio frames");
    if (header->timestamp != 0) {
      orderError(fmt::format("an audio sequence header with timestamp {}", header->timestamp));
    }
    if (body->payload.size() != kAudioConfigSize) {
      formatError(fmt::format("an audio sequence header with {} bytes of configuration",
                              body->payload.size()));
      return;
    }
    if (mediaSink_ && counts_.audioSequenceHeaders == 1)
      mediaSink_->audioSequenceHeader(body->payload);
    return;
  }
  out.name = "audio_frame";
  ++counts_.audioFrames;
  if (counts_.audioSequenceHeaders == 0) {
    orderError("an audio frame before the audio sequence header");
  }
  if (body->payload.empty()) {
    formatError("an empty audio frame");
    return;
  }
  if (mediaSink_) mediaSink_->audioFrame(header->timestamp, body->payload);
}

void StreamChecker::takeTail(std::span<const uint8_t> record, StreamRecord& out) {
  out.route = wire::UsbRoute{wire::kUsbFrameTypeControl, wire::kUsbTagTailBlock};
  const auto kind = wire::tailBlockKind(record);
  if (*kind == wire::TailBlock::Status) {
    out.name = "status_block";
    ++counts_.statusBlocks;
    auto status = wire::parseStatusBlock(record);
    if (!status) {
      formatError(readFault("a status block", status.error()));
      return;
    }
    lastStatus_ = *status;
    if (statusBlocks_.size() < kStatusBlocksKept) statusBlocks_.push_back({hostCommands_, *status});
    return;
  }
  out.name = "capability_block";
  ++counts_.capabilityBlocks;
  auto capability = wire::parseCapabilityBlock(record);
  if (!capability) {
    formatError(readFault("a capability block", capability.error()));
    return;
  }
  lastCapability_ = *capability;
}

void StreamChecker::takeCommand(std::span<const uint8_t> record, bool framed, StreamRecord& out) {
  const auto command = wire::parsePhoneCommand(record);
  if (command->command == wire::kCommandStopNotice) {
    out.name = "stop_notice";
    out.route = wire::usbRoute(wire::WireContent::StopNotice);
    ++counts_.stopNotices;
    if (!framed) formatError("a stop notice on TCP, which ends with the connection alone");
    return;
  }
  out.name = "phone_command";
  out.route = wire::usbRoute(wire::WireContent::Command, 0, command->command);
  ++counts_.phoneCommands;
  phoneCommands_.push_back(*command);
  if (command->command != wire::kCommandRemoteRecord &&
      command->command != wire::kCommandRemoteSnapshot) {
    formatError(fmt::format("an unknown command {} from the phone", command->command));
  }
}

void StreamChecker::formatError(std::string text) {
  if (sink_) sink_(std::move(text));
}

void StreamChecker::orderError(std::string text) {
  orderErrors_.push_back(text);
  if (sink_) sink_(std::move(text));
}

}  // namespace oxelo::host
