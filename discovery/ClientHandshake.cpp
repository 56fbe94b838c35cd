#include "discovery/ClientHandshake.h"

#include <algorithm>

#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"
#include "wire/HandshakePackets.h"
#include "wire/WireBytes.h"

namespace oxelo {

namespace hs = handshake;

namespace {
// The first catalogue row of exactly this size, in catalogue order.
std::optional<size_t> catalogueIndexOfSize(uint32_t width, uint32_t height) {
  auto sizes = VideoSizeCatalogue::shared().videoSizes();
  for (size_t i = 0; i < sizes.size(); ++i) {
    if (sizes[i].width == static_cast<int>(width) && sizes[i].height == static_cast<int>(height)) {
      return i;
    }
  }
  return std::nullopt;
}

// Whether the bytes at the end of a block (fewer than four) can still become
// the type word of a packet.
bool mayStartPacket(const uint8_t* data, size_t left) {
  uint8_t probe[4] = {};
  std::copy(data, data + left, probe);
  return probe[0] == 0x88 && (left < 2 || probe[1] == 0) && (left < 3 || probe[2] == 0);
}
}  // namespace

std::shared_ptr<ClientHandshake> ClientHandshake::create(
    std::weak_ptr<ClientHandshakeDelegate> delegate) {
  return std::shared_ptr<ClientHandshake>(new ClientHandshake(std::move(delegate)));
}

ClientHandshake::~ClientHandshake() {
  if (carrier_) carrier_->setDelegate({});
}

void ClientHandshake::attach(std::shared_ptr<Carrier> carrier) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (carrier_ || !carrier) return;
  carrier_ = std::move(carrier);
  carrier_->setDelegate(weak_from_this());
}

void ClientHandshake::send(std::vector<uint8_t> bytes, int64_t tag) {
  CarrierRecord record;
  record.bytes = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
  record.tag = tag;
  record.timeout = hs::kWriteTimeout;
  record.frameType = hs::kUsbFrameType;
  carrier_->sendRecord(std::move(record));
}

void ClientHandshake::sendHello() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!carrier_) return;
  send(hs::helloLong(), hs::kTagHello);
  send(hs::helloShort(), hs::kTagHello);
  carrier_->startReading();
}

std::shared_ptr<Carrier> ClientHandshake::takeCarrier() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!carrier_) return nullptr;
  carrier_->setDelegate({});
  partialPacket_.clear();
  return std::move(carrier_);
}

void ClientHandshake::close() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto carrier = takeCarrier()) carrier->close();
}

void ClientHandshake::carrierDidConnect(Carrier*, const std::string&, uint16_t) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto delegate = delegate_.lock()) delegate->handshakeDidConnect(this);
}

void ClientHandshake::carrierDidReceiveData(Carrier*, std::span<const uint8_t> data,
                                            bool endsMessage) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (data.empty()) return;
  auto keep = shared_from_this();  // the start packet may end the flow's hold on us
  workOffBlock(data.data(), data.size());
  if (endsMessage) partialPacket_.clear();  // a frame is whole: nothing carries over
}

void ClientHandshake::carrierDidWriteRecord(Carrier* carrier, int64_t tag) {
  if (carrier->kind() == Carrier::Kind::usb) {
    oxlog("usbPeerChannel send {}: (null)", tag);
  } else {
    oxlog("MAIN - socket didWriteDataWithTag: {}", tag);
  }
}

void ClientHandshake::carrierDidEnd(Carrier* carrier, const OptionalError& error) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (carrier != carrier_.get()) return;
  auto keep = shared_from_this();
  partialPacket_.clear();
  if (auto delegate = delegate_.lock()) delegate->handshakeDidEnd(this, error);
}

void ClientHandshake::workOffBlock(const uint8_t* data, size_t size) {
  std::vector<uint8_t> joined;
  if (!partialPacket_.empty()) {
    joined = std::move(partialPacket_);
    partialPacket_.clear();
    joined.insert(joined.end(), data, data + size);
    data = joined.data();
    size = joined.size();
  }
  size_t offset = 0;
  while (offset < size) {
    size_t left = size - offset;
    if (left < 4) {
      if (mayStartPacket(data + offset, left)) partialPacket_.assign(data + offset, data + size);
      return;
    }
    wire::WireReader packet(wire::ByteView(data + offset, left));
    if (packet.u32LE(0) != hs::kType) return;
    if (left < 8) {
      partialPacket_.assign(data + offset, data + size);
      return;
    }
    size_t needed = hs::hostPacketSize(packet.u32LE(4));
    if (needed == 0) return;  // an unknown command drops the rest of the block
    if (left < needed) {
      partialPacket_.assign(data + offset, data + size);
      return;
    }
    size_t words = handleClientPacket(data + offset, left);
    if (words == 0) return;
    offset += 4 * words;
  }
}

size_t ClientHandshake::handleClientPacket(const uint8_t* words, size_t available) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (available < 8) return 0;
  switch (wire::WireReader(wire::ByteView(words, available)).u32LE(4)) {
    case hs::kHostInfo: {
      auto info = hs::readHostInfo(words, available);
      if (!info) return 0;
      if (auto delegate = delegate_.lock())
        delegate->handshakeDidReceiveHostInfo(this, info->port, info->name);
      return 20;
    }
    case hs::kVideoSettings: {
      auto s = hs::readVideoSettings(words, available);
      if (!s) return 0;
      auto defaults = UserDefaults::standard();
      defaults->setInteger(keys::videoWidth, s->width);
      defaults->setInteger(keys::videoHeight, s->height);
      if (auto index = catalogueIndexOfSize(s->width, s->height)) {
        defaults->setInteger(keys::videoSize, static_cast<long long>(*index));
      }
      defaults->setInteger(keys::videoFPS, s->fps);
      defaults->setBool(keys::videoPortrait, s->portrait != 0);
      defaults->setInteger(keys::videoQuality, s->quality);
      defaults->setInteger(keys::videoEncoder, s->encoder);
      defaults->setInteger(keys::audioFormat, s->audioFormat);
      defaults->synchronize();
      oxlog(">> 0x88 0x13 {}x{} {}fps portrait:{} quality:{} encoder:{} audio:{}", s->width,
            s->height, s->fps, s->portrait, s->quality, s->encoder, s->audioFormat);
      return 9;
    }
    case hs::kStart:
      if (available < hs::kStartSize) return 0;
      sendSettingsAnswer();
      if (auto delegate = delegate_.lock()) delegate->handshakeDidReceiveStart(this);
      oxlog(">> 0x88 0x11 start");
      return 5;
    default:
      return 0;
  }
}

void ClientHandshake::sendSettingsAnswer() {
  if (!carrier_) return;
  auto defaults = UserDefaults::standard();
  hs::VideoSettings s;
  s.width = static_cast<uint32_t>(defaults->integerForKey(keys::videoWidth));
  s.height = static_cast<uint32_t>(defaults->integerForKey(keys::videoHeight));
  s.fps = static_cast<uint32_t>(defaults->integerForKey(keys::videoFPS));
  s.portrait = defaults->boolForKey(keys::videoPortrait) ? 1 : 0;
  s.quality = static_cast<uint32_t>(defaults->integerForKey(keys::videoQuality));
  s.encoder = static_cast<uint32_t>(defaults->integerForKey(keys::videoEncoder));
  s.audioFormat = static_cast<uint32_t>(defaults->integerForKey(keys::audioFormat));
  send(hs::settingsAnswer(s), hs::kTagSettings);
}

}  // namespace oxelo
