#include "tools/host/HostSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "platform/log/Log.h"
#include "wire/CarrierMapping.h"
#include "wire/CommandPackets.h"
#include "wire/WireBytes.h"

namespace oxelo::host {

namespace {

constexpr size_t kHelloLongSize = 16;
constexpr size_t kHelloShortSize = 4;

uint32_t wordAt(std::span<const uint8_t> bytes, size_t offset) {
  return wire::WireReader(bytes).u32LE(offset);
}

// Frame tags of the host's packets: the last two digits repeat the command in
// hexadecimal, as the phone's tags of the same family do.
constexpr uint32_t kTagHostInfo = 8810;
constexpr uint32_t kTagStart = 8811;
constexpr uint32_t kTagSettings = 8813;

std::string hexBytes(std::span<const uint8_t> bytes) {
  std::string out;
  for (size_t i = 0; i < std::min<size_t>(bytes.size(), 8); ++i) {
    out += fmt::format("{}{:02x}", i ? " " : "", bytes[i]);
  }
  return out;
}

std::string settingsText(const handshake::VideoSettings& s) {
  return fmt::format("{}x{}@{} portrait {} quality {} encoder {} audio {}", s.width, s.height,
                     s.fps, s.portrait, s.quality, s.encoder, s.audioFormat);
}

}  // namespace

HostSession::HostSession(Config config)
    : config_(std::move(config)),
      stream_([this](std::string text) { addError(std::move(text)); }) {}

void HostSession::receiveBytes(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  parse();
}

void HostSession::receiveFrame(uint32_t type, uint32_t tag, std::span<const uint8_t> payload) {
  if (payload.empty()) return;
  if (!buffer_.empty()) {
    addError(fmt::format("a USB frame began while {} bytes of a packet were unfinished",
                         buffer_.size()));
    buffer_.clear();
  }
  frame_ = FrameInfo{type, tag, 0};
  receiveBytes(payload);
  if (!buffer_.empty()) {
    addError(fmt::format("a USB frame of type {} tag {} ended inside a packet ({} bytes left)",
                         type, tag, buffer_.size()));
    buffer_.clear();
  }
  frame_.reset();
}

void HostSession::phoneEnded() {
  if (ended_) return;
  ended_ = true;
  if (state_ == State::streaming) stream_.finish();
  if (!buffer_.empty() && state_ != State::lost) {
    addError(fmt::format("the phone ended the connection inside a packet ({} bytes left)",
                         buffer_.size()));
  }
  if (auto missing = missingStep(); !missing.empty()) {
    addError("the phone ended the connection before " + missing);
  }
}

void HostSession::hostEnded() {
  if (ended_) return;
  ended_ = true;
  if (state_ == State::streaming) stream_.finish();
  if (auto missing = missingStep(); !missing.empty()) {
    addError("the time ran out before " + missing);
  }
}

void HostSession::addError(std::string text) {
  oxlog("host - error: {}", text);
  errors_.push_back(std::move(text));
}

std::vector<OutgoingPacket> HostSession::takeOutgoing() { return std::exchange(outgoing_, {}); }

bool HostSession::handshakeComplete() const { return missingStep().empty(); }

std::string HostSession::missingStep() const {
  if (!seen_.helloLong) return "the long hello";
  if (!seen_.helloShort) return "the short hello";
  if (seen_.startSent && !seen_.settingsAnswer) return "the settings answer";
  return {};
}

void HostSession::parse() {
  size_t pos = 0;
  while (pos < buffer_.size()) {
    const std::span<const uint8_t> rest(buffer_.data() + pos, buffer_.size() - pos);
    if (state_ == State::lost) {
      pos = buffer_.size();
      break;
    }
    if (state_ == State::streaming) {
      const StreamRecord record = stream_.take(rest, frame_.has_value());
      if (record.length == 0) break;
      if (record.route) checkFrame(record.name, record.route->type, record.route->tag);
      pos += record.length;
      continue;
    }
    const size_t used = takeHandshakePacket(rest);
    if (used == 0) break;
    pos += used;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<long>(pos));
}

size_t HostSession::takeHandshakePacket(std::span<const uint8_t> bytes) {
  // The short hello is the bytes 88 10 20 00; every other packet starts with
  // the little-endian word 136, bytes 88 00 00 00.
  if (bytes[0] != 0x88) {
    lose("unexpected bytes during the handshake: " + hexBytes(bytes));
    return bytes.size();
  }
  if (bytes.size() < 2) return 0;
  if (bytes[1] == handshake::helloShort()[1]) {
    if (bytes.size() < kHelloShortSize) return 0;
    onHelloShort(bytes.first(kHelloShortSize));
    return kHelloShortSize;
  }
  const size_t zeros = std::min<size_t>(bytes.size(), 4);
  if (std::any_of(bytes.begin() + 1, bytes.begin() + static_cast<long>(zeros),
                  [](uint8_t b) { return b != 0; })) {
    lose("unexpected bytes during the handshake: " + hexBytes(bytes));
    return bytes.size();
  }
  if (bytes.size() < 8) return 0;
  const uint32_t command = wordAt(bytes, 4);
  if (command == handshake::kHostInfo) {
    if (bytes.size() < kHelloLongSize) return 0;
    onHelloLong(bytes.first(kHelloLongSize));
    return kHelloLongSize;
  }
  if (command == handshake::kVideoSettings) {
    if (bytes.size() < handshake::kSettingsAnswerSize) return 0;
    onSettingsAnswer(bytes.first(handshake::kSettingsAnswerSize));
    return handshake::kSettingsAnswerSize;
  }
  lose(fmt::format("unknown command {} from the phone during the handshake", command));
  return bytes.size();
}

void HostSession::onHelloLong(std::span<const uint8_t> packet) {
  checkFrame("the long hello", handshake::kUsbFrameType, handshake::kTagHello);
  if (wordAt(packet, 8) != handshake::kHelloMark || wordAt(packet, 12) != 0) {
    addError("a long hello with unexpected words: " + hexBytes(packet.subspan(8)));
  }
  if (seen_.helloLong) {
    addError("a second long hello");
    return;
  }
  if (seen_.helloShort) addError("the short hello came before the long one");
  seen_.helloLong = true;
  oxlog("host - hello, long form");
  if (seen_.helloShort) sendOpening();
}

void HostSession::onHelloShort(std::span<const uint8_t> packet) {
  checkFrame("the short hello", handshake::kUsbFrameType, handshake::kTagHello);
  const auto shortHello = handshake::helloShort();
  if (!std::equal(packet.begin(), packet.end(), shortHello.begin(), shortHello.end())) {
    addError("a short hello with unexpected bytes: " + hexBytes(packet));
  }
  if (seen_.helloShort) {
    addError("a second short hello");
    return;
  }
  seen_.helloShort = true;
  oxlog("host - hello, short form");
  if (seen_.helloLong) sendOpening();
}

void HostSession::onSettingsAnswer(std::span<const uint8_t> packet) {
  checkFrame("the settings answer", handshake::kUsbFrameType, handshake::kTagSettings);
  if (state_ != State::awaitingAnswer) {
    addError("a settings answer that no start packet asked for");
  }
  if (seen_.settingsAnswer) {
    addError("a second settings answer");
    return;
  }
  auto answer = handshake::readSettingsAnswer(packet.data(), packet.size());
  seen_.settingsAnswer = answer;
  oxlog("host - settings in force: {}", settingsText(*answer));
  stream_.setEncoderHint(answer->encoder);
  if (std::any_of(packet.begin() + 36, packet.end(), [](uint8_t b) { return b != 0; })) {
    addError("the reserved bytes of the settings answer are not 0");
  }
  if (answer->portrait > 1) {
    addError(
        fmt::format("the settings answer has portrait {} (expected 0 or 1)", answer->portrait));
  }
  if (config_.settings) {
    auto expected = *config_.settings;
    expected.portrait = expected.portrait ? 1 : 0;
    if (!(*answer == expected)) {
      addError("the settings answer (" + settingsText(*answer) + ") differs from those sent (" +
               settingsText(expected) + ")");
    }
  }
  if (state_ == State::awaitingAnswer) state_ = State::streaming;
}

void HostSession::sendOpening() {
  outgoing_.push_back(
      {handshake::kUsbFrameType, kTagHostInfo, handshake::hostInfo(config_.port, config_.name)});
  seen_.hostInfoSent = true;
  if (config_.settings) {
    outgoing_.push_back(
        {handshake::kUsbFrameType, kTagSettings, handshake::videoSettings(*config_.settings)});
    seen_.settingsSent = true;
  }
  if (!config_.sendStart) {
    state_ = State::quiet;
    return;
  }
  outgoing_.push_back({handshake::kUsbFrameType, kTagStart, handshake::start()});
  seen_.startSent = true;
  state_ = State::awaitingAnswer;
}

void HostSession::checkFrame(const std::string& what, uint32_t type, uint32_t tag) {
  if (!frame_) return;
  if (++frame_->packets > 1) {
    addError(fmt::format("{} shares a USB frame with another packet", what));
  }
  if (frame_->type != type || frame_->tag != tag) {
    addError(fmt::format("{} came in a USB frame of type {} tag {} (expected type {} tag {})", what,
                         frame_->type, frame_->tag, type, tag));
  }
}

void HostSession::queueCommand(uint32_t command, int32_t p1, int32_t p2) {
  const auto route = wire::usbRoute(wire::WireContent::Command, 0, command);
  outgoing_.push_back({route.type, route.tag, wire::buildHostCommandPacket(command, p1, p2)});
  stream_.noteHostCommand();
  oxlog("host - command {} ({}, {})", command, p1, p2);
}

bool HostSession::readyForCommands() const {
  return seen_.hostInfoSent && (!seen_.startSent || seen_.settingsAnswer);
}

void HostSession::lose(std::string text) {
  addError(std::move(text));
  state_ = State::lost;
}

}  // namespace oxelo::host
